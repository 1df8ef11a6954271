#include "json/json_document.h"

#include <glib.h>
#include <json-c/json_object_iterator.h>

#include <algorithm>
#include <climits>

#include "cli/report.h"
#include "io/input.h"
#include "json/json_text.h"
#include "utils/json_compat.h"

namespace vynpkt {
namespace {

// Far more than protobuf lets messages nest.
constexpr int kDepth = 200;

std::string position(std::string_view text, std::size_t offset, bool one_line) {
    const std::string_view before = text.substr(0, offset);
    const std::size_t newline = before.rfind('\n');
    const std::string_view line =
        before.substr(newline == std::string_view::npos ? 0 : newline + 1);
    const auto column = std::count_if(line.begin(), line.end(), [](unsigned char c) {
        constexpr unsigned kKindOfByte = 0xC0;
        constexpr unsigned kWithinCharacter = 0x80;
        return (c & kKindOfByte) != kWithinCharacter;
    });
    return (one_line
                ? ""
                : "line " + std::to_string(1 + std::count(before.begin(), before.end(), '\n')) +
                      ", ") +
           "column " + std::to_string(column + 1) + ": ";
}

struct Parsed {
    vyn::JsonPtr value;
    json_tokener_error error;
    std::size_t end;  // behind the document, or where it goes wrong
};

Parsed parse(const std::string& text, int flags) {
    static_assert(kMaxInMemory < INT_MAX, "json-c takes an int");
    const vyn::TokenerPtr tokener(json_tokener_new_ex(kDepth));
    if (tokener == nullptr) {
        return {nullptr, json_tokener_continue, 0};
    }
    json_tokener_set_flags(tokener.get(), flags);
    // The NUL behind the text ends a number.
    vyn::JsonPtr value(
        json_tokener_parse_ex(tokener.get(), text.c_str(), static_cast<int>(text.size()) + 1));
    const auto end = static_cast<std::size_t>(std::max(tokener->char_offset, 0));
    return {std::move(value), json_tokener_get_error(tokener.get()), std::min(end, text.size())};
}

std::string words_for(json_tokener_error error) {
    return error == json_tokener_continue || error == json_tokener_error_parse_eof
               ? "the text ends here"
               : json_tokener_error_desc(error);
}

std::string rendered(json_object* value) {
    return json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN);
}

}  // namespace

std::string syntax_fault(const std::string& text, bool one_line, bool strict) {
    if (is_blank(text)) {
        return "the text is empty";
    }
    const Parsed parsed = parse(text, strict ? JSON_TOKENER_STRICT : 0);
    if (parsed.error != json_tokener_success) {
        return position(text, parsed.end, one_line) + words_for(parsed.error);
    }
    const std::size_t more = text.find_first_not_of(" \t\r\n", parsed.end);
    return more == std::string::npos
               ? ""
               : position(text, more, one_line) + "more text behind the document";
}

std::string utf8_fault(const std::string& text) {
    const char* wrong = nullptr;
    return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), &wrong) != FALSE
               ? ""
               : position(text, static_cast<std::size_t>(wrong - text.data()), false) +
                     "a byte that is not text in UTF-8";
}

bool JsonValue::is_default() const {
    return is(json_type_null) || text().empty() || (is(json_type_int) && text() == "0");
}

std::string JsonValue::text() const {
    if (is(json_type_string)) {
        return {json_object_get_string(value_),
                static_cast<std::size_t>(json_object_get_string_len(value_))};
    }
    return json_object_is_type(exact_, json_type_string) != 0 ? json_object_get_string(exact_)
                                                              : rendered(value_);
}

std::string JsonValue::json() const { return rendered(value_); }
std::string JsonValue::exact_json() const { return rendered(exact_); }

std::string JsonValue::words() const {
    switch (type()) {
        case json_type_object:
            return "an object";
        case json_type_array:
            return "an array";
        case json_type_string:
            return json_text(clipped(text()));
        default:
            return clipped(text());
    }
}

std::vector<std::pair<std::string, JsonValue>> JsonValue::members() const {
    std::vector<std::pair<std::string, JsonValue>> members;
    if (!is(json_type_object)) {
        return members;
    }
    const json_object_iterator end = json_object_iter_end(value_);
    for (json_object_iterator i = json_object_iter_begin(value_);
         json_object_iter_equal(&i, &end) == 0; json_object_iter_next(&i)) {
        const char* key = json_object_iter_peek_name(&i);
        json_object* exact = nullptr;
        (void)json_object_object_get_ex(exact_, key, &exact);
        members.emplace_back(key, JsonValue(json_object_iter_peek_value(&i), exact));
    }
    return members;
}

std::vector<JsonValue> JsonValue::elements() const {
    std::vector<JsonValue> elements;
    const auto count = is(json_type_array) ? json_object_array_length(value_) : 0;
    for (vyn::JsonIndex i = 0; i < count; ++i) {
        elements.emplace_back(json_object_array_get_idx(value_, i),
                              json_object_array_get_idx(exact_, i));
    }
    return elements;
}

JsonDocument::JsonDocument(const std::string& text) : value_(parse(text, 0).value) {
    const std::string quoted = with_integers_quoted(text);
    if (quoted != text) {
        exact_ = parse(quoted, 0).value;
    }
}

}  // namespace vynpkt

// A JSON text that is looked at to tell what is wrong with it. Numbers keep all of their digits.
#ifndef VYN_TOOLS_JSON_JSON_DOCUMENT_H
#define VYN_TOOLS_JSON_JSON_DOCUMENT_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utils/owned.h"

namespace vynpkt {

// Where a text stops being JSON, such as "line 1, column 7: unexpected character"; without the line
// when the text is one line of its input, whose number the caller names. Empty for JSON. Strict also
// refuses what json-c lets pass, such as a text in single quotes.
[[nodiscard]] std::string syntax_fault(const std::string& text, bool one_line, bool strict = false);

// Where a text stops being UTF-8; empty if nowhere.
[[nodiscard]] std::string utf8_fault(const std::string& text);

// A value within a document, which must stay.
class JsonValue {
public:
    JsonValue(json_object* value, json_object* exact) : value_(value), exact_(exact) {}

    [[nodiscard]] json_type type() const { return json_object_get_type(value_); }
    [[nodiscard]] bool is(json_type type) const { return this->type() == type; }
    // Whether it says nothing: null, 0, or an empty text.
    [[nodiscard]] bool is_default() const;
    // A string's own text; a number with all of its digits.
    [[nodiscard]] std::string text() const;
    // The value as JSON, as json-c read it and with long integers in quotes.
    [[nodiscard]] std::string json() const;
    [[nodiscard]] std::string exact_json() const;
    // For messages: kind or text, of which the end is left out when it is long.
    [[nodiscard]] std::string words() const;

    [[nodiscard]] std::vector<std::pair<std::string, JsonValue>> members() const;
    [[nodiscard]] std::vector<JsonValue> elements() const;

private:
    json_object* value_;
    json_object* exact_;  // the same, parsed with long integers in quotes
};

class JsonDocument {
public:
    explicit JsonDocument(const std::string& text);

    // Null too for a text that json-c does not take.
    [[nodiscard]] JsonValue root() const {
        return {value_.get(), exact_ ? exact_.get() : value_.get()};
    }

private:
    vyn::JsonPtr value_;
    vyn::JsonPtr exact_;  // null when no integer is long
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_JSON_DOCUMENT_H

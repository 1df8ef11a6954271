#include "io/json_text.h"

namespace vynpkt {
namespace {

// Offset behind the string that starts here. It ends at the kind of quote with which it starts: the
// library's parser takes single and double quotes.
std::size_t end_of_string(std::string_view text, std::size_t start) {
    const std::string stops{text[start], '\\'};
    std::size_t i = text.find_first_of(stops, start + 1);
    while (i != std::string_view::npos && text[i] == '\\') {
        i = text.find_first_of(stops, i + 2);
    }
    return i == std::string_view::npos ? text.size() : i + 1;
}

}  // namespace

bool is_blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::size_t end_of_document(std::string_view text) {
    int depth = 0;
    std::size_t i = text.find_first_of("\"'{}[]");
    while (i != std::string_view::npos) {
        const char c = text[i];
        if (c == '"' || c == '\'') {
            i = end_of_string(text, i);
        } else {
            ++i;
            depth += c == '{' || c == '[' ? 1 : -1;
            if (depth == 0) {
                return i;
            }
        }
        i = text.find_first_of("\"'{}[]", i);
    }
    return text.size();
}

std::string with_integers_quoted(std::string_view json) {
    constexpr std::size_t kSafeLength = 18;
    std::string text;
    std::size_t done = 0;
    std::size_t i = json.find_first_of("\"'-0123456789");
    while (i != std::string_view::npos) {
        std::size_t end = json.find_first_not_of("+-.0123456789eE", i);
        if (json[i] == '"' || json[i] == '\'') {
            end = end_of_string(json, i);
        } else {
            const std::string_view number = json.substr(i, end - i);
            const bool integer = number.find_first_of(".eE") == std::string_view::npos;
            if (integer && (number == "-0" || number.size() > kSafeLength)) {
                text.append(json.substr(done, i - done)).append("\"").append(number).append("\"");
                done = i + number.size();
            }
        }
        i = json.find_first_of("\"'-0123456789", end);
    }
    return text.append(json.substr(done));
}

}  // namespace vynpkt

// Works on the text of JSON where a parser would change it.
#ifndef VYN_TOOLS_JSON_JSON_TEXT_H
#define VYN_TOOLS_JSON_JSON_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vynpkt {

[[nodiscard]] bool is_blank(std::string_view text);

// Offset behind the first array or object in the text; the size of the text when that does not end.
[[nodiscard]] std::size_t end_of_document(std::string_view text);

// A member of an object, as the text has it: the key without its quotes, the value with them.
struct JsonMember {
    std::string_view key;
    std::string_view value;
};

// Finds the members of a text that is one object. False for any other text; what stands within the
// values is not looked at.
[[nodiscard]] bool split_object(std::string_view json, std::vector<JsonMember>& members);

// What to tell of the keys of an envelope, and of its property bag, that stand there more than once:
// parsers take the last one.
[[nodiscard]] std::vector<std::string> repeated_keys(const std::vector<JsonMember>& members);

// Puts -0 and long integers in quotes. json-c would read -0 as 0 and clamp integers of more than 64
// bits; as strings they reach protobuf unchanged, which takes a string for a number.
[[nodiscard]] std::string with_integers_quoted(std::string_view json);

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_JSON_TEXT_H

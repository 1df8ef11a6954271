// The work of the JSON helpers on parsed trees. Each function writes its own log lines, whoever calls
// it.
#ifndef VYN_COMMON_UTILS_JSON_TREE_H
#define VYN_COMMON_UTILS_JSON_TREE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "json_helper.h"
#include "utils/owned.h"

namespace vyn {

// Parses a text; null when it is not JSON, and for the text `null`.
[[nodiscard]] JsonPtr parse_json(const char* text);
// The same for a member of a header; null too when the text is unterminated.
template <std::size_t Size>
[[nodiscard]] JsonPtr parse_member(const char (&member)[Size]) {
    return ::strnlen(member, Size) < Size ? parse_json(member) : nullptr;
}

[[nodiscard]] inline bool is_object(const JsonPtr& value) {
    return json_object_is_type(value.get(), json_type_object) != 0;
}
[[nodiscard]] inline bool is_array(const JsonPtr& value) {
    return json_object_is_type(value.get(), json_type_array) != 0;
}

// Sets a key of an object. False when memory runs out; a value that is null counts as that.
[[nodiscard]] bool put_member(json_object* object, const char* key, JsonPtr value);

[[nodiscard]] bool put_text(json_object* object, const char* key, const char* text);

// Makes a number whose text has a point in any locale: six decimals, fewer where they do not fit,
// an exponent where none does. Null for a number beyond what the text can hold.
[[nodiscard]] JsonPtr new_double(double number);

// get_json_value() on arguments that are there.
[[nodiscard]] int read_value(json_object* root, const char* key, json_val& result);

// get_key_json_int64() on a parsed document: false when the key is not there.
[[nodiscard]] bool read_int64(json_object* root, const char* key, int64_t& result);

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_JSON_TREE_H

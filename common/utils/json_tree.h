// The work of the JSON helpers on parsed trees. The log lines that belong to a piece of work are
// written here, whoever asks for it.
#ifndef VYN_COMMON_UTILS_JSON_TREE_H
#define VYN_COMMON_UTILS_JSON_TREE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "json_helper.h"
#include "utils/owned.h"

namespace vyn {

// The value that a text holds; null when that is not JSON, or the text `null`.
[[nodiscard]] JsonPtr parse_json(const char* text);
// The same for a member of a record; null too when the text does not end inside it.
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

// Sets a key of an object. A value that is null was not created, for want of memory, and fails.
[[nodiscard]] bool put_member(json_object* object, const char* key, JsonPtr value);

[[nodiscard]] bool put_text(json_object* object, const char* key, const char* text);

// A number that is written with six decimals in any locale; null when it has no such text that
// fits and reads back equal.
[[nodiscard]] JsonPtr new_double(double number);

// get_json_value() on arguments that are there.
[[nodiscard]] int read_value(json_object* root, const char* key, json_val& result);

// get_key_json_int64() on a parsed document: false when the key is not there.
[[nodiscard]] bool read_int64(json_object* root, const char* key, int64_t& result);

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_JSON_TREE_H

// What differs between the releases of json-c that we build on, 0.12 and later.
#ifndef VYN_COMMON_UTILS_JSON_COMPAT_H
#define VYN_COMMON_UTILS_JSON_COMPAT_H

#include <json-c/json.h>

#include <cstddef>

namespace vyn {

#if JSON_C_VERSION_NUM >= ((0 << 16) | (13 << 8))

using JsonIndex = std::size_t;

// False when memory ran out; the value then stays with the caller.
[[nodiscard]] inline bool object_add(json_object* object, const char* key, json_object* value) {
    return json_object_object_add(object, key, value) == 0;
}

#else

using JsonIndex = int;

// Before 0.13 json-c itself ends the process when memory runs out here.
[[nodiscard]] inline bool object_add(json_object* object, const char* key, json_object* value) {
    json_object_object_add(object, key, value);
    return true;
}

#endif

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_JSON_COMPAT_H

#include "utils/json_tree.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "logger.h"
#include "utils/json_compat.h"
#include "utils/limits.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kNullValue[] = "JSON has key %s with null value";
constexpr char kUnknownType[] = "JSON has key %s has unknown json type";
constexpr char kKeyNotFound[] = "get_key_json_int64 failure:json_object_object_get_ex failed";
constexpr char kNotAnInteger[] = "get_key_json_int64 :json value received not an integer";
}  // namespace log_text

}  // namespace

JsonPtr parse_json(const char* text) {
    const std::size_t length = std::strlen(text);
    if (length >= kMaxInt) {
        return nullptr;
    }
    const TokenerPtr tokener(json_tokener_new());
    if (tokener == nullptr) {
        return nullptr;
    }
    // The NUL counts in, since it ends a number. Told no length, json-c 0.12 reads on behind a
    // text that ends inside an escape.
    JsonPtr value(json_tokener_parse_ex(tokener.get(), text, static_cast<int>(length) + 1));
    if (json_tokener_get_error(tokener.get()) != json_tokener_success) {
        return nullptr;
    }
    return value;
}

bool put_member(json_object* object, const char* key, JsonPtr value) {
    if (value == nullptr || !object_add(object, key, value.get())) {
        return false;
    }
    (void)value.release();
    return true;
}

bool put_text(json_object* object, const char* key, const char* text) {
    return put_member(object, key, JsonPtr(json_object_new_string(text)));
}

JsonPtr new_double(double number) {
    // Beyond these limits the digits in front of the point do not fit.
    constexpr double kUpperLimit = 1e29;
    constexpr double kLowerLimit = -1e28;
    if (!(number > kLowerLimit && number < kUpperLimit)) {
        return nullptr;  // NaN too
    }
    char text[kDoubleTextSize + 8];  // all six decimals of the longest
    const auto fixed = std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, 6);
    char* end = std::min(fixed.ptr, text + kDoubleTextSize - 1);
    const void* point = std::memchr(text, '.', static_cast<std::size_t>(end - text));
    if (point == nullptr || point == end - 1) {
        // No decimal fits. Without its point the text would read back as an integer, and a text that
        // ends in a point is no JSON to other parsers.
        end = std::to_chars(text, text + kDoubleTextSize - 1, number, std::chars_format::scientific)
                  .ptr;
    }
    *end = '\0';
    return JsonPtr(json_object_new_double_s(number, text));
}

int read_value(json_object* root, const char* key, json_val& result) {
    json_object* value = nullptr;
    if (json_object_object_get_ex(root, key, &value) == 0) {
        return VYN_JSON_NULL;
    }
    const json_type type = json_object_get_type(value);
    switch (type) {
        case json_type_null:
            LOG(LOG_LEVEL_DEBUG, log_text::kNullValue, key);
            break;
        case json_type_boolean:
        case json_type_int:
            result.int_val = json_object_get_int(value);
            break;
        case json_type_double:
            result.dbl_val = json_object_get_double(value);
            break;
        case json_type_object:
        case json_type_string:
            result.str_val = json_object_get_string(value);
            break;
        default:
            LOG(LOG_LEVEL_DEBUG, log_text::kUnknownType, key);
            break;
    }
    return static_cast<int>(type);
}

bool read_int64(json_object* root, const char* key, int64_t& result) {
    json_object* value = nullptr;
    if (json_object_object_get_ex(root, key, &value) == 0) {
        LOG(LOG_LEVEL_DEBUG, log_text::kKeyNotFound);
        return false;
    }
    if (json_object_is_type(value, json_type_int) == 0) {
        LOG(LOG_LEVEL_ERROR, log_text::kNotAnInteger);
        return true;
    }
    result = json_object_get_int64(value);
    return true;
}

}  // namespace vyn

#include "json_helper.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "logger.h"
#include "utils/bounded.h"
#include "utils/durable_file.h"
#include "utils/guard.h"
#include "utils/json_compat.h"
#include "utils/json_tree.h"
#include "utils/limits.h"

using vyn::JsonPtr;

namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kLonger[] = "data %d is longer than length %d";
constexpr char kLongerThan[] = "data %d is longerthan length %d";
constexpr char kLongerUnstated[] = "data is longer than length ";
constexpr char kLongerArray[] = "data is longer than array length ";
constexpr char kArrayKeyNotJson[] = "set_array_key_json failure:json_tokener_parse returned NULL";
constexpr char kArrayKeyLonger[] = "set_array_key_json failure : data is longer than length ";
constexpr char kInt64NullArgument[] = "get_key_json_int64 failure : NULL argument received";
constexpr char kInt64NotJson[] = "get_key_json_int64 failure:json_tokener_parse returned NULL";
}  // namespace log_text

static_assert(sizeof(off_t) == 8, "files of 2 GiB and more, on 32 bits too");

// Logs that a text of this length does not fit. Each function has its own line.
using TooLongNote = void (*)(int length, int max_chars);

void note_longer(int length, int max_chars) {
    LOG(LOG_LEVEL_DEBUG, log_text::kLonger, length, max_chars);
}
void note_longerthan(int length, int max_chars) {
    LOG(LOG_LEVEL_DEBUG, log_text::kLongerThan, length, max_chars);
}
void note_longer_unstated(int /*length*/, int /*max_chars*/) {
    LOG(LOG_LEVEL_DEBUG, log_text::kLongerUnstated);
}
void note_longer_array(int /*length*/, int /*max_chars*/) {
    LOG(LOG_LEVEL_DEBUG, log_text::kLongerArray);
}
void note_array_key_longer(int /*length*/, int /*max_chars*/) {
    LOG(LOG_LEVEL_DEBUG, log_text::kArrayKeyLonger);
}

// Copies a text unless it is null or too long. A text that is too long is logged.
[[nodiscard]] bool copy_text(const char* text, char* dest, uint32_t size, TooLongNote note) {
    if (text == nullptr) {
        return false;
    }
    const std::size_t length = std::strlen(text);
    if (vyn::copy_if_fits(dest, size, text, length)) {
        return true;
    }
    note(static_cast<int>(length), static_cast<int>(size - 1U));
    return false;
}

// The nesting rewrite, in place: drops every backslash, then every quote that stands before '[' or
// '{' or behind ']' or '}'. The neighbours of a quote are those in the text without backslashes; a
// quote that is dropped counts as a neighbour too.
void format_json(char* json) {
    char* end = std::remove(json, json + std::strlen(json), '\\');
    *end = '\0';

    char* out = json;
    char before = '\0';
    for (const char* in = json; in != end; ++in) {
        const char behind = in[1];
        const bool drop =
            *in == '"' && (behind == '[' || behind == '{' || before == ']' || before == '}');
        before = *in;
        if (!drop) {
            *out++ = before;
        }
    }
    *out = '\0';
}

[[nodiscard]] bool copy_rewritten(const char* text, char* dest, uint32_t size, TooLongNote note) {
    if (!copy_text(text, dest, size, note)) {
        return false;
    }
    format_json(dest);
    return true;
}

// Renders a document; null when there is none. The text lasts until the tree changes.
[[nodiscard]] const char* rendered(const JsonPtr& root) {
    return json_object_get_string(root.get());
}

// The parsed document when its top is an object, else null.
[[nodiscard]] JsonPtr parse_object(const char* json) {
    JsonPtr root = vyn::parse_json(json);
    return vyn::is_object(root) ? std::move(root) : nullptr;
}

[[nodiscard]] JsonPtr parse_array(const char* json) {
    JsonPtr root = vyn::parse_json(json);
    return vyn::is_array(root) ? std::move(root) : nullptr;
}

// Parses a document and sets a key; null when the document is no object or memory ran out.
[[nodiscard]] JsonPtr with_member(const char* json, const char* key, JsonPtr value) {
    JsonPtr root = parse_object(json);
    if (root == nullptr || !vyn::put_member(root.get(), key, std::move(value))) {
        return nullptr;
    }
    return root;
}

template <typename Value>
[[nodiscard]] Value load(const void* from) {
    Value value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <typename Value>
void store(void* to, Value value) {
    std::memcpy(to, &value, sizeof value);
}

// Makes a value of this type of the memory at value; null for a type that is not set this way.
[[nodiscard]] JsonPtr new_value(const void* value, int type) {
    switch (type) {
        case VYN_JSON_BOOLEAN:
            return JsonPtr(json_object_new_boolean(load<int32_t>(value) != 0 ? 1 : 0));
        case VYN_JSON_DOUBLE:
            return vyn::new_double(load<double>(value));
        case VYN_JSON_INT:
            return JsonPtr(json_object_new_int(load<int32_t>(value)));
        case VYN_JSON_STRING:
            return JsonPtr(json_object_new_string(static_cast<const char*>(value)));
        default:
            return nullptr;
    }
}

[[nodiscard]] int length_of(const JsonPtr& array) {
    return static_cast<int>(json_object_array_length(array.get()));
}

// Reads a regular file; false when it cannot be read or is too large. Never blocks on a FIFO or a
// device, and never adopts a terminal.
[[nodiscard]] bool read_file(const char* path, std::string& contents) {
    const vyn::UniqueFd file(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    char block[4096];
    for (;;) {
        const ssize_t got = ::read(file.get(), block, sizeof block);
        if (got == 0) {
            return true;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 || contents.size() + static_cast<std::size_t>(got) > vyn::kJsonFileCapacity) {
            return false;
        }
        contents.append(block, static_cast<std::size_t>(got));
    }
}

}  // namespace

int get_key_json(const char* json, const char* key, char* dest, uint32_t size) {
    if (json == nullptr || key == nullptr || dest == nullptr) {
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    json_object* value = nullptr;
    return json_object_object_get_ex(root.get(), key, &value) != 0 &&
           copy_text(json_object_get_string(value), dest, size, note_longerthan);
}

int get_generic_key_json(const char* json, const char* key, void* dest, int type, uint32_t size) {
    if (json == nullptr || key == nullptr || dest == nullptr) {
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    json_object* value = nullptr;
    if (json_object_object_get_ex(root.get(), key, &value) == 0) {
        return 0;
    }
    switch (type) {
        case VYN_JSON_BOOLEAN:
            store(dest, static_cast<uint8_t>(json_object_get_boolean(value) != 0));
            return 1;
        case VYN_JSON_DOUBLE:
            store(dest, json_object_get_double(value));
            return 1;
        case VYN_JSON_INT:
            if (size == sizeof(int64_t)) {
                store(dest, json_object_get_int64(value));
            } else {
                store(dest, json_object_get_int(value));
            }
            return 1;
        case VYN_JSON_STRING:
            return copy_text(json_object_get_string(value), static_cast<char*>(dest), size,
                             note_longer);
        default:
            return 0;
    }
}

int set_generic_key_json(char* json, const char* key, const void* value, int type, uint32_t size) {
    if (json == nullptr || key == nullptr || value == nullptr) {
        return 0;
    }
    const JsonPtr root = with_member(json, key, new_value(value, type));
    return root != nullptr && copy_text(rendered(root), json, size, note_longer);
}

int set_key_json(char* json, const char* key, const char* value, uint32_t size) {
    if (json == nullptr || key == nullptr || value == nullptr) {
        return 0;
    }
    const JsonPtr root = with_member(json, key, JsonPtr(json_object_new_string(value)));
    return root != nullptr && copy_rewritten(rendered(root), json, size, note_longer);
}

int set_array_key_json(char* json, const char* key, struct json_object* value, uint32_t size) {
    if (json == nullptr || key == nullptr) {
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    if (root == nullptr) {
        LOG(LOG_LEVEL_ERROR, log_text::kArrayKeyNotJson);
        return 0;
    }
    JsonPtr owned(value);
    if (!vyn::is_object(root) || !vyn::object_add(root.get(), key, value)) {
        return 0;
    }
    (void)owned.release();
    return copy_text(rendered(root), json, size, note_array_key_longer);
}

int del_json_key(const char* json, const char* key, char* dest, uint32_t size) {
    if (json == nullptr || key == nullptr || dest == nullptr) {
        return 0;
    }
    const JsonPtr root = parse_object(json);
    if (root == nullptr) {
        return 0;
    }
    json_object_object_del(root.get(), key);
    const char* text = rendered(root);
    if (text == nullptr) {
        return 1;  // services rely on this result when memory runs out for the text
    }
    return copy_rewritten(text, dest, size, note_longer_unstated);
}

int get_key_json_int64(const char* json, const char* key, int64_t* result) {
    if (json == nullptr || key == nullptr || result == nullptr) {
        LOG(LOG_LEVEL_DEBUG, log_text::kInt64NullArgument);
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    if (root == nullptr) {
        LOG(LOG_LEVEL_ERROR, log_text::kInt64NotJson);
        return 0;
    }
    return vyn::read_int64(root.get(), key, *result);
}

int get_json_type(const char* json, const char* key, int* type) {
    if (json == nullptr || key == nullptr || type == nullptr) {
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    json_object* value = nullptr;
    if (json_object_object_get_ex(root.get(), key, &value) == 0) {
        return 0;
    }
    *type = static_cast<int>(json_object_get_type(value));
    return 1;
}

int get_json_value(struct json_object* root, const char* key, json_val* result) {
    if (root == nullptr || key == nullptr || result == nullptr) {
        return VYN_JSON_NULL;
    }
    return vyn::read_value(root, key, *result);
}

int copy_array_json(const char* json, int index, char* dest, uint32_t size) {
    if (json == nullptr || dest == nullptr) {
        return 0;
    }
    const JsonPtr array = parse_array(json);
    if (array == nullptr || index < 0 || index >= length_of(array)) {
        return 0;
    }
    json_object* element =
        json_object_array_get_idx(array.get(), static_cast<vyn::JsonIndex>(index));
    return copy_rewritten(json_object_get_string(element), dest, size, note_longer_unstated);
}

int array_add_json(const char* element, char* json, uint32_t size) {
    if (element == nullptr || json == nullptr) {
        return 0;
    }
    const JsonPtr array = parse_array(json);
    JsonPtr added = vyn::parse_json(element);
    if (array == nullptr || added == nullptr ||
        json_object_array_add(array.get(), added.get()) != 0) {
        return 0;
    }
    (void)added.release();
    return copy_rewritten(rendered(array), json, size, note_longer_unstated);
}

int replace_array_index_json(char* json, int index, const char* element, uint32_t size) {
    if (json == nullptr || element == nullptr) {
        return 0;
    }
    const JsonPtr array = parse_array(json);
    JsonPtr placed = vyn::parse_json(element);
    if (array == nullptr || placed == nullptr || index < 0) {
        return 0;
    }
    // json-c takes memory for each null of the gap. A gap that cannot fit as text is refused before.
    const int gap = std::max(index - length_of(array), 0);
    if (static_cast<uint64_t>(gap) * vyn::kRenderedNullLength >= size) {
        note_longer_array(0, 0);
        return 0;
    }
    if (json_object_array_put_idx(array.get(), static_cast<vyn::JsonIndex>(index), placed.get()) !=
        0) {
        return 0;
    }
    (void)placed.release();
    return copy_rewritten(rendered(array), json, size, note_longer_array);
}

int get_json_array_length(const char* json) {
    if (json == nullptr) {
        return 0;
    }
    const JsonPtr array = parse_array(json);
    return array != nullptr ? length_of(array) : 0;
}

int get_json_file(const char* path, char* dest, uint32_t size) {
    if (path == nullptr || dest == nullptr) {
        return 0;
    }
    return vyn::guarded(0, [&]() -> int {
        std::string contents;
        if (!read_file(path, contents)) {
            return 0;
        }
        const JsonPtr root = vyn::parse_json(contents.c_str());
        return copy_rewritten(rendered(root), dest, size, note_longer);
    });
}

int write_to_file(const char* path, const char* json) {
    if (path == nullptr || json == nullptr) {
        return 0;
    }
    const JsonPtr root = vyn::parse_json(json);
    return root != nullptr && json_object_to_file(path, root.get()) != -1;
}

int write_to_file_using_fop(const char* path, const void* data, uint32_t length) {
    const bool allowed = path != nullptr && data != nullptr;
    return vyn::succeeded(allowed ? vyn::write_synced(path, data, length) : EINVAL);
}

int write_to_file_using_mmap_atomic(const char* path, const void* data, uint32_t length) {
    const bool allowed = path != nullptr && data != nullptr;
    return vyn::succeeded(allowed ? vyn::replace_file(path, data, length) : EINVAL);
}

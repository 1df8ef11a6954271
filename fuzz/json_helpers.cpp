// The helpers of JSON documents in buffers. The input: a line of the helper's letter and a number,
// a line of a key, a line of a value, then the document.
#include <json-c/json.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "fuzz.h"
#include "json_helper.h"
#include "vyn_header.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;

constexpr int kText = VYN_JSON_STRING;
constexpr std::size_t kRoom = 100000;  // more than most documents need

struct Call {
    char* json;  // which the result replaces
    const char *key, *value;
    uint32_t size;
    int number;
    double real;
};

static int set(const Call& c, const void* value, int type) {
    return set_generic_key_json(c.json, c.key, value, type, c.size);
}

// The helper releases the value, unless the document is not JSON.
static int set_array(const Call& c) {
    const bool is_json = json_object_put(json_tokener_parse(c.json)) != 0;
    json_object* value = json_tokener_parse(c.value);
    const int result = set_array_key_json(c.json, c.key, value, c.size);
    (void)json_object_put(is_json ? nullptr : value);
    return result;
}

// By letter; the last one is for all others.
constexpr std::pair<char, int (*)(const Call&)> kHelpers[] = {
    {'f', [](const Call& c) { return set(c, &c.real, VYN_JSON_DOUBLE); }},
    {'i', [](const Call& c) { return set(c, &c.number, VYN_JSON_INT); }},
    {'b', [](const Call& c) { return set(c, &c.number, VYN_JSON_BOOLEAN); }},
    {'o', [](const Call& c) { return set(c, c.value, VYN_JSON_OBJECT); }},
    {'a', set_array},
    {'k', [](const Call& c) { return set_key_json(c.json, c.key, c.value, c.size); }},
    {'+', [](const Call& c) { return array_add_json(c.value, c.json, c.size); }},
    {'r',
     [](const Call& c) { return replace_array_index_json(c.json, c.number, c.value, c.size); }},
    {'d', [](const Call& c) { return del_json_key(c.json, c.key, c.json, c.size); }},
    {'c', [](const Call& c) { return copy_array_json(c.json, c.number, c.json, c.size); }},
    {'g', [](const Call& c) { return get_key_json(c.json, c.key, c.json, c.size); }},
    {'G', [](const Call& c) { return get_generic_key_json(c.json, c.key, c.json, kText, c.size); }},
    {'s', [](const Call& c) { return set(c, c.value, kText); }},
};
// What is read of a document is what json-c knows.
static void read(json_object* root, const char* json, const char* key) {
    json_object* value = nullptr;
    const int there = json_object_object_get_ex(root, key, &value);
    int type = 0;
    int64_t integer = 7;
    json_val found{9.5, 9, "old"};
    require(get_json_type(json, key, &type) == there && get_json_value(root, key, &found) == type &&
                json_object_is_type(value, static_cast<json_type>(type)) != 0,
            "a type");
    const bool integral = type == VYN_JSON_BOOLEAN || type == VYN_JSON_INT;
    const bool text = type == VYN_JSON_OBJECT || type == VYN_JSON_STRING;
    const double real = type == VYN_JSON_DOUBLE ? json_object_get_double(value) : 9.5;
    require((found.dbl_val == real || std::isnan(real)) &&
                found.int_val == (integral ? json_object_get_int(value) : 9) &&
                std::strcmp(found.str_val, text ? json_object_get_string(value) : "old") == 0,
            "a value of its own type");
    require(get_key_json_int64(json, key, &integer) == there &&
                integer == (type == VYN_JSON_INT ? json_object_get_int64(value) : 7),
            "an integer");
    const auto reads = [&](int as_type, auto expected, uint32_t stated_size) {
        const Buffer to(sizeof expected);
        require(get_generic_key_json(json, key, to.text, as_type, stated_size) == there &&
                    (there == 0 || std::memcmp(to.text, &expected, to.size) == 0),
                "a converted value, whatever its own type");
    };
    reads(VYN_JSON_BOOLEAN, json_object_get_boolean(value) != 0, 0);
    reads(VYN_JSON_DOUBLE, json_object_get_double(value), 0);
    reads(VYN_JSON_INT, json_object_get_int64(value), 8);
    reads(VYN_JSON_INT, json_object_get_int(value), 7);
    reads(VYN_JSON_INT, json_object_get_int(value), 9);
    const bool array = json_object_is_type(root, json_type_array) != 0;
    require(static_cast<std::size_t>(get_json_array_length(json)) ==
                static_cast<std::size_t>(array ? json_object_array_length(root) : 0),
            "a length");
}

// What is written stands in the file, and is read as any document.
static void write(json_object* root, const char* json) {
    const vyn_fuzz::File file;
    const char* path = file.path.c_str();
    const std::string bytes(json, std::strlen(json) + 1);
    for (auto* write_bytes : {write_to_file_using_mmap_atomic, write_to_file_using_fop}) {
        require(write_bytes(path, json, vyn_test::length_of(bytes)) == 1 &&
                    vyn_fuzz::contents_of(path) == bytes,
                "bytes");
    }
    const Buffer deleted(kRoom);
    const Buffer got(kRoom);
    (void)get_json_file(path, got.text, got.size);
    // No document has itself for a key.
    require(del_json_key(json, json, deleted.text, deleted.size) == 0 ||
                got.contents() == deleted.contents(),
            "an object from a file, as any other");
    const char* plain = json_object_to_json_string_ext(root, JSON_C_TO_STRING_PLAIN);
    require(write_to_file(path, json) == (root != nullptr ? 1 : 0) &&
                vyn_fuzz::contents_of(path) == (root != nullptr ? plain : bytes),
            "a document");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string json = vyn_fuzz::up_to_nul({reinterpret_cast<const char*>(data), size});
    const auto helper = *std::find_if(kHelpers, std::end(kHelpers) - 1,
                                      [&](const auto& row) { return row.first == json[0]; });
    const auto number = static_cast<int>(vyn_fuzz::take_number(json.erase(0, 1)));
    const std::string key = vyn_fuzz::take_line(json);
    const std::string value = vyn_fuzz::take_line(json);
    json_object* root = json_tokener_parse(json.c_str());
    read(root, json.c_str(), key.c_str());
    write(root, json.c_str());
    (void)json_object_put(root);

    // At a size: the text, or "#" for none.
    const auto text_at = [&](std::size_t room) -> std::string {
        const Buffer to(json + std::string(std::max(room, json.size() + 1) - json.size(), '\0'));
        const std::string before = to.contents();
        const int result =
            helper.second({to.text, key.c_str(), value.c_str(), static_cast<uint32_t>(room), number,
                           std::strtod(value.c_str(), nullptr)});
        require(result == 1 ? std::strlen(to.text) < room : result == 0 && to.contents() == before,
                "text and its NUL fit; 0 changes nothing");
        return result == 1 ? to.text : "#";
    };
    const std::string text = text_at(kRoom);
    require(text == "#" || text_at(text.size()) == "#", "text that does not fit is refused");
    return 0;
}

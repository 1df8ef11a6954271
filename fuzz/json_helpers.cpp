// The helpers of JSON documents in buffers. The input: a line of the helper's letter and a number,
// a line of a key, a line of a value, then the document.
#include <json-c/json.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <utility>

#include "fuzz.h"
#include "json_helper.h"
#include "vyn_header.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;

constexpr int kText = VYN_JSON_STRING;

struct Call {
    const char *from, *key, *value;
    char* to;  // of the helpers that edit it, the document itself
    uint32_t size;
    int number;
    double real;
};

static int set(const Call& c, const void* value, int type) {
    return set_generic_key_json(c.to, c.key, value, type, c.size);
}

// The helper releases the value, unless the document is not JSON.
static int set_array(const Call& c) {
    json_object* document = c.to != nullptr ? json_tokener_parse(c.to) : nullptr;
    json_object* value = json_tokener_parse(c.value);
    const int result = set_array_key_json(c.to, c.key, value, c.size);
    (void)json_object_put(document != nullptr ? document : value);
    return result;
}

// By letter; the last one is for all others.
constexpr std::pair<char, int (*)(const Call&)> kHelpers[] = {
    {'f', [](const Call& c) { return set(c, &c.real, VYN_JSON_DOUBLE); }},
    {'i', [](const Call& c) { return set(c, &c.number, VYN_JSON_INT); }},
    {'b', [](const Call& c) { return set(c, &c.number, VYN_JSON_BOOLEAN); }},
    {'o', [](const Call& c) { return set(c, c.value, VYN_JSON_OBJECT); }},
    {'a', set_array},
    {'k', [](const Call& c) { return set_key_json(c.to, c.key, c.value, c.size); }},
    {'+', [](const Call& c) { return array_add_json(c.value, c.to, c.size); }},
    {'r', [](const Call& c) { return replace_array_index_json(c.to, c.number, c.value, c.size); }},
    {'d', [](const Call& c) { return del_json_key(c.from, c.key, c.to, c.size); }},
    {'c', [](const Call& c) { return copy_array_json(c.from, c.number, c.to, c.size); }},
    {'g', [](const Call& c) { return get_key_json(c.from, c.key, c.to, c.size); }},
    {'G', [](const Call& c) { return get_generic_key_json(c.from, c.key, c.to, kText, c.size); }},
    {'s', [](const Call& c) { return set(c, c.value, kText); }},
};

// A value as the type reads it, whatever its own; nothing when there is none.
template <typename Value>
static void reads_as(const char* json, const char* key, int type, int there, Value value) {
    const Buffer to(sizeof value);
    std::string expected = to.contents();
    std::memcpy(expected.data(), &value, there != 0 ? sizeof value : 0);
    require(get_generic_key_json(json, key, to.text.get(), type, to.size) == there &&
                to.contents() == expected,
            "a converted value");
}

// What is read tells what json-c knows, from a file too.
static void read(const char* json, const char* key) {
    json_object* root = json_tokener_parse(json);
    json_object* value = nullptr;
    const int there = json_object_object_get_ex(root, key, &value);
    int type = 0;
    int64_t integer = 7;
    json_val found{};
    require(get_json_type(json, key, &type) == there && get_json_value(root, key, &found) == type &&
                json_object_is_type(value, static_cast<json_type>(type)) != 0,
            "a type");
    require(get_key_json_int64(json, key, &integer) == there &&
                integer == (type == VYN_JSON_INT ? json_object_get_int64(value) : 7),
            "an integer");
    reads_as(json, key, VYN_JSON_BOOLEAN, there, json_object_get_boolean(value) != 0);
    reads_as(json, key, VYN_JSON_DOUBLE, there, json_object_get_double(value));
    reads_as(json, key, VYN_JSON_INT, there, json_object_get_int64(value));
    reads_as(json, key, VYN_JSON_INT, there, json_object_get_int(value));
    reads_as(json, key, VYN_JSON_ARRAY, 0, 0);
    const bool array = json_object_is_type(root, json_type_array) != 0;
    require(static_cast<std::size_t>(get_json_array_length(json)) ==
                (array ? json_object_array_length(root) : 0),
            "a length");
    require(get_key_json_int64(nullptr, key, &integer) + get_json_type(nullptr, key, &type) +
                    get_json_value(nullptr, key, &found) + get_json_array_length(nullptr) +
                    get_json_file("", nullptr, 0) + write_to_file("", nullptr) ==
                0,
            "nothing");
    const vyn_fuzz::File written;
    const char* path = written.path.c_str();
    require(write_to_file_using_fop(path, json, vyn_test::length_of(json)) == 1, "bytes");
    const char* text = json_object_get_string(root);
    const Buffer deleted(text != nullptr ? std::strlen(text) + 1 : 0);
    const auto get = [&](const Buffer& to) {
        return static_cast<uint32_t>(get_json_file(path, to.text.get(), to.size));
    };
    const std::string got = vyn_fuzz::at_exact_fit(deleted.size, text != nullptr ? 1 : 0, 0, get);
    // No document has itself for a key.
    require(del_json_key(json, json, deleted.text.get(), deleted.size) == 0 ||
                got == deleted.contents(),
            "an object from a file, as any other");
    require(write_to_file(path, json) == (root != nullptr ? 1 : 0), "a document");
    const char* plain = json_object_to_json_string_ext(root, JSON_C_TO_STRING_PLAIN);
    std::ifstream file(path);
    require(
        std::string(std::istreambuf_iterator<char>(file), {}) == (root != nullptr ? plain : json),
        "what was written");
    (void)json_object_put(root);
    if (std::strlen(json) % 64 == 1) {  // seldom: it waits for the disk
        const std::string target = "/tmp/vyn_fuzz_" + std::to_string(gettid());
        require(
            write_to_file_using_mmap_atomic(target.c_str(), json, vyn_test::length_of(json)) == 1 &&
                fsync_parent_dir(target.c_str()) == 0,
            "a durable file");
        std::ifstream durable(target);
        require(std::string(std::istreambuf_iterator<char>(durable), {}) == json, "its contents");
        (void)unlink(target.c_str());
    }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string json = vyn_fuzz::up_to_nul({reinterpret_cast<const char*>(data), size});
    const auto& helper = *std::find_if(kHelpers, std::end(kHelpers) - 1,
                                       [&](const auto& entry) { return entry.first == json[0]; });
    const auto number = static_cast<int>(vyn_fuzz::take_number(json.erase(0, 1)));
    const std::string key = vyn_fuzz::take_line(json);
    const std::string value = vyn_fuzz::take_line(json);
    read(json.c_str(), key.c_str());
    require(helper.second({nullptr, key.c_str(), value.c_str(), nullptr, 0, 0, 0}) == 0, "nothing");

    // At a size: the text, or a mark for none. A document that is edited has its room all the same.
    const auto text_at = [&](std::size_t room) -> std::string {
        const Buffer document(json +
                              std::string(std::max(room, json.size() + 1) - json.size(), '\0'));
        const Buffer apart(room);
        const Buffer& to =
            std::strchr("dcgG", helper.first) != nullptr && value.empty() ? apart : document;
        const std::string before = to.contents();
        const int result =
            helper.second({document.text.get(), key.c_str(), value.c_str(), to.text.get(),
                           apart.size, number, std::strtod(value.c_str(), nullptr)});
        require(result == 1 || (result == 0 && to.contents() == before), "0 changes nothing");
        require(result == 0 || std::strlen(to.text.get()) < room, "text and its NUL fit");
        require(&to == &document || document.text.get() == json, "what is read stays");
        return result == 1 ? to.text.get() : "#";
    };
    const std::string text = text_at(8 * size + 8192);
    if (text != "#") {
        require(text_at(text.size()) == "#", "text that does not fit is refused");
        // What is rewritten comes from a longer one.
        require(std::strchr("dkc+r", helper.first) != nullptr || text_at(text.size() + 1) == text,
                "an exact fit is enough");
        const Buffer found(text.size() + 1);
        require(helper.first != 's' ||
                    (get_key_json(text.c_str(), key.c_str(), found.text.get(), found.size) == 1 &&
                     found.text.get() == value),
                "a text that was set");
    }
    return 0;
}

// The helpers of JSON documents in buffers. The input: a line of the helper's letter and a number,
// a line of a key, a line of a value, then the document.
#include <json-c/json.h>

#include <algorithm>

#include "fuzz.h"
#include "json_helper.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;

struct Arguments {
    int number;
    std::string key, value;
};

// The helper releases the value, unless the document is not JSON.
static int set_array(char* json, const Arguments& with, uint32_t size) {
    json_object* document = json_tokener_parse(json);
    json_object* value = json_tokener_parse(with.value.c_str());
    const int result = set_array_key_json(json, with.key.c_str(), value, size);
    (void)json_object_put(document != nullptr ? document : value);
    return result;
}

// Calls a helper whose document and destination are one buffer.
static int call(char helper, const Arguments& with, char* json, uint32_t size) {
    const char* key = with.key.c_str();
    const char* value = with.value.c_str();
    const double real = std::strtod(value, nullptr);
    switch (helper) {
        case 'd':
            return del_json_key(json, key, json, size);
        case 'k':
            return set_key_json(json, key, value, size);
        case 'c':
            return copy_array_json(json, with.number, json, size);
        case '+':
            return array_add_json(value, json, size);
        case 'r':
            return replace_array_index_json(json, with.number, value, size);
        case 'a':
            return set_array(json, with, size);
        case 'g':
            return get_key_json(json, key, json, size);
        case 'G':
            return get_generic_key_json(json, key, json, VYN_JSON_STRING, size);
        case 'f':
            return set_generic_key_json(json, key, &real, VYN_JSON_DOUBLE, size);
        case 'i':
            return set_generic_key_json(json, key, &with.number, VYN_JSON_INT, size);
        case 'b':
            return set_generic_key_json(json, key, &with.number, VYN_JSON_BOOLEAN, size);
        default:
            return set_generic_key_json(json, key, value, VYN_JSON_STRING, size);
    }
}

// What is read tells what json-c knows.
static void read(const char* json, const char* key) {
    json_object* root = json_tokener_parse(json);
    json_object* value = nullptr;
    int type = 0;
    int64_t integer = 7;
    json_val found{};
    require(get_json_type(json, key, &type) == json_object_object_get_ex(root, key, &value) &&
                get_json_value(root, key, &found) == type &&
                json_object_is_type(value, static_cast<json_type>(type)) != 0,
            "a type");
    require(get_key_json_int64(json, key, &integer) == get_json_type(json, key, &type) &&
                integer == (type == VYN_JSON_INT ? json_object_get_int64(value) : 7),
            "an integer");
    const bool array = json_object_is_type(root, json_type_array) != 0;
    require(static_cast<std::size_t>(get_json_array_length(json)) ==
                (array ? json_object_array_length(root) : 0),
            "a length");
    (void)json_object_put(root);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string input = 's' + std::string(reinterpret_cast<const char*>(data), size);
    const char helper = input[size > 0 ? 1 : 0];
    const auto number = static_cast<int>(vyn_fuzz::take_number(input.erase(0, 2)));
    const Arguments with = {number, vyn_fuzz::up_to_nul(vyn_fuzz::take_line(input)),
                            vyn_fuzz::up_to_nul(vyn_fuzz::take_line(input))};
    const std::string json = vyn_fuzz::up_to_nul(input);
    read(json.c_str(), with.key.c_str());

    // At a size: the text, or a mark for none. The document has its room all the same.
    const auto text_at = [&](std::size_t room) -> std::string {
        const Buffer buffer(json +
                            std::string(std::max(room, json.size() + 1) - json.size(), '\0'));
        const std::string before = buffer.contents();
        const int result = call(helper, with, buffer.text.get(), static_cast<uint32_t>(room));
        require(result == 1 || (result == 0 && buffer.contents() == before), "0 changes nothing");
        require(result == 0 || std::strlen(buffer.text.get()) < room, "text and its NUL fit");
        return result == 1 ? buffer.text.get() : "#";
    };
    const std::string text = text_at(8 * size + 8192);
    if (text != "#") {
        const bool rewritten = std::strchr("dkc+r", helper) != nullptr;  // from a longer one
        require(text_at(text.size()) == "#", "text that does not fit is refused");
        require(rewritten || text_at(text.size() + 1) == text, "an exact fit is enough");
        const Buffer found(text.size() + 1);
        require(
            std::strchr("Ggdkc+rafib", helper) != nullptr ||
                (get_key_json(text.c_str(), with.key.c_str(), found.text.get(), found.size) == 1 &&
                 found.text.get() == with.value),
            "a text that was set");
    }
    return 0;
}

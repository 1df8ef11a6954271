#include "support/calls.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "logger.h"
#include "proto_helper.h"

namespace vyn_test {

namespace {

const char kDoc[] = R"({"t":"text","n":12,"d":2.5,"o":{"a":[1,"b\/"]},"l":[1,null],"b":true})";
const char kArray[] = R"([{"a":"x"},"two",3])";
const char kEnvelope[] =
    R"({"system_id":"s","message_id":"m","correlation_id":"c","version":3,"sub_system_id":1,)"
    R"("device_id":"d","target_id":"t","message_type":32773,"time":1,"ttl":2,)"
    R"("property_bag":{"error_code":1,"checksum":"c"},"body":"QUJD"})";
const char kOddEnvelope[] = R"({"property_bag":{"error_code":1e},"body":{"a":[1,{"b":"c"}]}})";

template <int... Number>
constexpr uint32_t kBits = (0U | ... | (1U << Number));

template <typename Value>
Value* in_buffer(Output& out) {
    return reinterpret_cast<Value*>(out.buffer);
}
void keep(Output& out, std::string_view text) { (void)text.copy(out.buffer, sizeof out.buffer); }

int64_t result(Output& out, char* text) {
    out.made.reset(text);
    return text != nullptr;
}
int64_t result(Output& /*out*/, int code) { return code; }
int64_t result(Output& /*out*/, uint32_t code) { return code; }

int64_t value_of_tree(Input& in, Output& out) {
    json_val value{};
    const int type = get_json_value(in.tree.get(), in.key.c_str(), &value);
    if (type == VYN_JSON_OBJECT && value.str_val == nullptr) {
        return VYN_JSON_NULL;  // no memory to render it
    }
    keep(out, value.str_val != nullptr ? value.str_val : "");
    out.number = static_cast<uint32_t>(value.int_val);
    return type;
}

int64_t set_value(Input& in, Output& out) {
    const double real = in.number * 1e7;
    const void* value = &real;
    if (in.number == VYN_JSON_STRING) {
        value = in.other.c_str();
    }
    return set_generic_key_json(out.document, in.key.c_str(), value, in.number, in.size);
}

// Says 1 also when it had no memory for the text without the key.
int64_t delete_key(Input& in, Output& out) {
    return del_json_key(in.text.c_str(), in.key.c_str(), out.buffer, in.size) == 1 &&
           out.buffer[0] != '#';
}

// Leaves out the bag and the time to live that there is no memory for.
int64_t whole_envelope(Input& in, Output& out) {
    out.made.reset(convert_hdr_to_json(&in.record, 0, 0));
    const auto lacks = [&](const char* key) { return std::strstr(out.made.get(), key) == nullptr; };
    return out.made != nullptr && (in.record.ttl == 0 || !lacks("\"ttl\"")) &&
           (in.record.property_bag[0] == '\0' || !lacks("\"property_bag\""));
}

// A record that there is no memory for ends the reading: 20 and the number of records.
int64_t read_packets(Input& in, Output& out) {
    constexpr std::size_t kSlots = 8;
    static thread_local uint8_t room[kSlots][kPacketFileRoom];
    uint8_t* bufs[kSlots + 1] = {};
    uint32_t lens[kSlots];
    std::transform(room, room + kSlots, bufs, [](uint8_t* slot) { return slot; });
    const uint32_t code = read_proto_msg_from_file(bufs, &out.number, lens, in.packets_path);
    std::size_t used = 0;
    for (uint32_t i = 0; code == VYN_OK && i < out.number; ++i) {
        const std::size_t count = std::min<std::size_t>(lens[i], sizeof out.buffer - used);
        (void)std::copy_n(room[i], count, out.buffer + used);
        used += count;
    }
    return code == VYN_OK ? 20 + int64_t{out.number} : int64_t{code};
}

int64_t property_bag(Input& in, Output& out) {
    const auto number = static_cast<uint32_t>(in.number);
    const msg_property_bag bag = {number, number / 2, number / 4, "c", "e", "t", "f", ""};
    return result(out, construct_property_bag(&bag));
}

int64_t to_json(Input& in, Output& out) {
    std::string json = "kept";
    const bool good = ProtoToJson(json, in.header);
    keep(out, json == "kept" ? std::string_view() : json);
    return good;
}

int64_t from_json(Input& in, Output& out) {
    Header message;
    return JsonToProto(in.text, message) && message.SerializeToArray(out.buffer, kCallRoom);
}

// Those that need no memory, and nothing of which is the same twice.
int64_t ids_and_log(Input& in, Output& /*out*/) {
    char uuid[MSG_UUID_SIZE];
    get_new_message_uuid(uuid, sizeof uuid);
    const uint32_t id = generate_unique_trans_id();
    const bool distinct = get_new_message_id() != 0 && get_current_message_id() != 0 &&
                          generate_unique_trans_id() != id;
    const int opened = log_file_init("calls", 0, LOG_LEVEL_INFO);
    update_log_level(static_cast<uint32_t>(in.number) % 4);
    LOG(static_cast<uint32_t>(in.number), "%s %u", in.text.c_str(), get_log_level());
    notify_IVI_(in.text.c_str(), in.number);
    log_file_cleanup();
    return distinct && get_current_timestamp_() > combine_msg_type_encoding_type(1, 2) &&
           std::strlen(uuid) == 36 && is_param_not_empty(uuid) == 1 && opened == 1;
}

// What most calls are made of, by short names.
struct Arguments {
    const char *text, *key, *other;
    int number;
    uint32_t text_len, size, pkt_len;
    const uint8_t* pkt;
    char *json, *to;
    uint8_t* bytes;
    uint32_t* length;
};

// clang-format off
#define CALL(function, ...)                                                                       \
    #function, [](Input& in, Output& out) -> int64_t {                                              \
        [[maybe_unused]] const auto [text, key, other, number, text_len, size, pkt_len, pkt, json, to, bytes,      \
                    length] =                                                                     \
            Arguments{in.text.c_str(), in.key.c_str(), in.other.c_str(), in.number,               \
                      length_of(in.text), in.size, length_of(in.packet), bytes_of(in.packet),     \
                      out.document, out.buffer, in_buffer<uint8_t>(out), &out.length};            \
        return result(out, function(__VA_ARGS__));                                                \
    }
// clang-format on

}  // namespace

const std::vector<Call> kCalls = {
    {CALL(get_key_json, text, key, to, size), {kDoc, "o"}},
    {CALL(get_generic_key_json, text, key, to, number, size), {kDoc, "o", VYN_JSON_STRING}},
    {CALL(get_key_json_int64, text, key, in_buffer<int64_t>(out)), {kDoc, "n"}},
    {CALL(get_json_type, text, key, in_buffer<int>(out)), {kDoc, "d"}},
    {"get_json_value", value_of_tree, {"", "o", 0, kDoc}},
    {"set_generic_key_json", set_value, {kDoc, "new", VYN_JSON_DOUBLE, "text"}},
    {CALL(set_key_json, json, key, other, size), {kDoc, "new", 0, "[1]"}},
    {CALL(set_array_key_json, json, key, json_object_get(in.tree.get()), size),
     {kDoc, "new", 0, kArray}},
    {"del_json_key", delete_key, {kDoc, "t"}},
    {CALL(get_json_array_length, text), {kArray}},
    {CALL(copy_array_json, text, number, to, size), {kArray}},
    {CALL(array_add_json, other, json, size), {kArray, "", 0, R"({"k":1})"}},
    {CALL(replace_array_index_json, json, number, other, size), {kArray, "", 40, R"("v")"}},
    {CALL(get_json_file, in.json_path, to, size), {}},
    {CALL(write_to_file, in.json_path, text), {kArray}, 1, 1},
    {CALL(write_to_file_using_fop, in.json_path, text, text_len), {kDoc}, 1, 1},
    {CALL(write_to_file_using_mmap_atomic, in.json_path, text, text_len), {kDoc}, 1, 0},
    {CALL(fsync_parent_dir, in.json_path), {}, 0, 0},
    {"convert_hdr_to_json", whole_envelope, {kEnvelope}, 1, 1},
    {CALL(get_msg_hdr, text, in_buffer<msg_hdr>(out)), {kEnvelope}},
    {CALL(add_body_to_message, text, other), {kEnvelope, "", 0, "b/"}},
    {CALL(get_body_from_message, text, to, size), {kOddEnvelope}},
    {"construct_property_bag", property_bag, {"", "", 1}},
    {CALL(cnvrt_hdr_to_protobuf, &in.record, bytes, size, length, pkt, pkt_len),
     {kEnvelope},
     kBits<7, 9>,
     kBits<7>},
    {CALL(cnvrt_json_hdr_to_protobuf, text, bytes, size, length),
     {kEnvelope},
     kBits<3, 7, 9, 11>,
     kBits<7, 9, 11>},
    {CALL(cnvrt_protobuf_to_json_hdr, bytes_of(in.frame), to, length_of(in.frame), size),
     {},
     kBits<5, 6, 8, 13>,
     0},
    {CALL(deser_nd_alter_pkt_st, pkt, pkt_len, bytes, size, length, 3, &out.number),
     {},
     kBits<7, 8>,
     kBits<7>},
    {CALL(store_proto_msg_to_file, pkt, static_cast<int>(pkt_len), in.packets_path), {}, kBits<7>},
    {"read_proto_msg_from_file", read_packets, {}, kBits<7, 20, 21>, kBits<7, 20, 21>},
    {"ProtoToJson", to_json, {}},
    {"JsonToProto", from_json, {kEnvelope}, 1, 1},
    {CALL(find_key_regex, text, other), {"some text", "", 0, "t[e]*xt"}},
    {CALL(compare_config_data_values, text, other), {"n", "", 0, "t|n|text"}},
    {CALL(calculate_checksum, pkt, pkt_len, json, size), {"text"}},
    {CALL(memscpy, to, size, text, text_len), {kDoc}},
    {"LOG combine_msg_type_encoding_type generate_unique_trans_id get_current_message_id "
     "get_current_timestamp_ get_log_level get_new_message_id get_new_message_uuid "
     "is_param_not_empty log_file_cleanup log_file_init notify_IVI_ update_log_level",
     ids_and_log,
     {kDoc}},
};

Input::Input(const Sample& sample, const std::string& pkt)
    : Sample(sample), packet(pkt), frame(compressed(pkt)), tree(json_tokener_parse(other.c_str())) {
    (void)header.ParsePartialFromString(packet);
    (void)get_msg_hdr(text.c_str(), &record);
}

void TreeRelease::operator()(json_object* tree) const {
    while (json_object_put(tree) == 0) {
    }
}

Output::Output(const Input& in) {
    std::memset(document, '#', sizeof document);
    std::memset(buffer, '#', sizeof buffer);
    document[in.text.copy(document, sizeof document - 1)] = '\0';
}

bool Output::operator==(const Output& good) const {
    return std::memcmp(document, good.document, sizeof document) == 0 &&
           std::memcmp(buffer, good.buffer, sizeof buffer) == 0 && length == good.length &&
           number == good.number && (made == nullptr) == (good.made == nullptr) &&
           (made == nullptr || std::strcmp(made.get(), good.made.get()) == 0);
}

}  // namespace vyn_test

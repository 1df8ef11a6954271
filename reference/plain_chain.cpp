#include "plain_chain.h"

#include <google/protobuf/unknown_field_set.h>
#include <json-c/json.h>
#include <zstd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "vyn_header_v3.pb.h"
#include "vynutils.h"

namespace plain_chain {
namespace {

// ---- Texts --------------------------------------------------------------------------------------

void put(json_object* object, const char* key, const char* text) {
    json_object_object_add(object, key, json_object_new_string(text));
}

void put_if_set(json_object* object, const char* key, const char* text) {
    if (text[0] != '\0') {
        put(object, key, text);
    }
}

void put_if_set(json_object* object, const char* key, uint32_t number) {
    if (number != 0) {
        json_object_object_add(object, key, json_object_new_int(static_cast<int32_t>(number)));
    }
}

std::string rendered(json_object* value) {
    std::string text = json_object_to_json_string(value);
    json_object_put(value);
    return text;
}

// Empty when nothing is set.
std::string property_bag(const msg_property_bag& members) {
    json_object* bag = json_object_new_object();
    put_if_set(bag, "error_code", members.error_code);
    put_if_set(bag, "OTT", members.OTT);
    put_if_set(bag, "ack_required", members.ack_required);
    put_if_set(bag, "attempt", members.attempt);
    put_if_set(bag, "checksum", members.checksum);
    put_if_set(bag, "error", members.error);
    put_if_set(bag, "target", members.target);
    put_if_set(bag, "file", members.file);
    const bool empty = json_object_object_length(bag) == 0;
    std::string text = rendered(bag);
    return empty ? "" : text;
}

std::string envelope(const msg_hdr& hdr) {
    json_object* object = json_object_new_object();
    put(object, "system_id", hdr.system_id);
    put(object, "message_id", hdr.message_id);
    put_if_set(object, "correlation_id", hdr.correlation_id);
    json_object_object_add(object, "version", json_object_new_int(3));
    put_if_set(object, "sub_system_id", hdr.sub_system_id);
    put_if_set(object, "device_id", hdr.device_id);
    put_if_set(object, "target_id", hdr.target_id);
    const uint32_t word = hdr.msg_type | hdr.encoding_type << 14;
    json_object_object_add(object, "message_type", json_object_new_int(static_cast<int32_t>(word)));
    json_object_object_add(object, "time", json_object_new_int64(hdr.time));
    if (hdr.ttl != 0) {
        json_object_object_add(object, "ttl", json_object_new_int64(hdr.ttl));
    }
    if (hdr.property_bag[0] != '\0') {
        json_object_object_add(object, "property_bag", json_tokener_parse(hdr.property_bag));
    }
    return rendered(object);
}

std::string with_body(const std::string& json, const char* body) {
    json_object* object = json_tokener_parse(json.c_str());
    put(object, "body", body);
    return rendered(object);
}

// ---- Messages -----------------------------------------------------------------------------------

bool is_binary(const Header& header) { return header.message_type() >> 14 == 2; }

void fill_header(const msg_hdr& hdr, Header& header) {
    header.set_message_id(hdr.message_id);
    header.set_correlation_id(hdr.correlation_id);
    header.set_version(hdr.version);
    header.set_system_id(hdr.system_id);
    header.set_sub_system_id(hdr.sub_system_id);
    header.set_device_id(hdr.device_id);
    header.set_target_id(hdr.target_id);
    header.set_message_type(combine_msg_type_encoding_type(hdr.msg_type, hdr.encoding_type));
    header.set_time(hdr.time);
    header.set_ttl(hdr.ttl);
    header.set_packet_status(static_cast<PacketStatus>(static_cast<int>(hdr.packet_status)));
}

// Copies into a member that is zero; a text that is too long is not copied.
template <std::size_t Size>
void take(char (&member)[Size], const std::string& text, uint32_t& result) {
    if (text.size() < Size) {
        std::memcpy(member, text.data(), text.size());
    } else {
        result = 2;
    }
}

void fill_header(const Header& header, msg_hdr& hdr, uint32_t& result) {
    take(hdr.message_id, header.message_id(), result);
    take(hdr.correlation_id, header.correlation_id(), result);
    take(hdr.system_id, header.system_id(), result);
    take(hdr.device_id, header.device_id(), result);
    take(hdr.target_id, header.target_id(), result);
    hdr.sub_system_id = header.sub_system_id();
    hdr.msg_type = header.message_type();
    hdr.time = header.time();
    hdr.ttl = header.ttl();
}

void fill_bag(const Header_Property_bag& received, msg_property_bag& bag, uint32_t& result) {
    bag.error_code = received.error_code();
    bag.ack_required = received.ack_required();
    take(bag.attempt, received.attempt(), result);
    take(bag.checksum, received.checksum(), result);
    take(bag.error, received.error(), result);
    take(bag.target, received.target(), result);
    take(bag.file, received.file(), result);
}

enum class Checksum { kLeft, kTaken };

bool take_bag(const char* text, Checksum checksum, Header& header) {
    if (*text == '\0') {
        return true;
    }
    json_object* bag = json_tokener_parse(text);
    if (bag == nullptr) {
        return false;
    }
    json_val value{};
    if (get_json_value(bag, "error_code", &value) == VYN_JSON_INT) {
        header.mutable_property_bag()->set_error_code(static_cast<uint32_t>(value.int_val));
    }
    if (checksum == Checksum::kTaken &&
        get_json_value(bag, "checksum", &value) == VYN_JSON_STRING) {
        header.mutable_property_bag()->set_checksum(value.str_val);
    }
    (void)json_object_put(bag);
    return true;
}

// Returns the result given, or that of writing when writing fails.
uint32_t serialize(const Header& header, uint32_t result, uint8_t* out, uint32_t capacity,
                   uint32_t* length) {
    *length = static_cast<uint32_t>(header.ByteSizeLong());
    if (*length > capacity) {
        return 2;
    }
    return header.SerializeToArray(out, static_cast<int>(*length)) ? result : 7;
}

#if GOOGLE_PROTOBUF_VERSION < 3008000
// Those releases take a bag that is cut for a whole one, but read unknown fields strictly.
bool ends_inside(const uint8_t* bytes, std::size_t size) {
    google::protobuf::UnknownFieldSet fields;
    if (!fields.ParseFromArray(bytes, static_cast<int>(size))) {
        return false;
    }
    for (int i = 0; i < fields.field_count(); ++i) {
        const auto& field = fields.field(i);
        if (field.number() == Header::kPropertyBagFieldNumber &&
            field.type() == google::protobuf::UnknownField::TYPE_LENGTH_DELIMITED &&
            !google::protobuf::UnknownFieldSet().ParseFromString(field.length_delimited())) {
            return false;
        }
    }
    return true;
}
#else
bool ends_inside(const uint8_t* /*bytes*/, std::size_t /*size*/) { return true; }
#endif

}  // namespace

bool parse(const uint8_t* bytes, std::size_t size, Header& header) {
    return ends_inside(bytes, size) && header.ParseFromArray(bytes, static_cast<int>(size));
}

uint32_t wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                      uint32_t json_out_size) {
    constexpr uint8_t kMagic[] = {0x28, 0xB5, 0x2F, 0xFD};
    uint8_t plain[24576] = {};
    if (pkt_len < sizeof kMagic || std::memcmp(pkt, kMagic, sizeof kMagic) != 0 ||
        ZSTD_findFrameCompressedSize(pkt, pkt_len) != pkt_len) {
        return 13;
    }
    // Makes a context and releases it.
    const std::size_t plain_len = ZSTD_decompress(plain, sizeof plain, pkt, pkt_len);
    if (ZSTD_isError(plain_len) != 0) {
        return 13;
    }
    Header header;
    if (!parse(plain, plain_len, header)) {
        return 8;
    }
    const uint32_t word = header.message_type();
    LOG(LOG_LEVEL_DEBUG, "PH:Received message :%d : Message type: %d : Encoding type : %d ",
        static_cast<int>(word), static_cast<int>(word & 0x3FFF), static_cast<int>(word >> 14 & 3));
    uint32_t result = 0;
    msg_hdr hdr{};
    fill_header(header, hdr, result);
    char body[24576] = {};
    if (!is_binary(header)) {
        take(body, header.body(), result);
    } else if (base64_encode(reinterpret_cast<const uint8_t*>(header.body().data()),
                             static_cast<uint32_t>(header.body().size()), body, sizeof body) != 0) {
        result = 11;
    }
    msg_property_bag bag{};
    fill_bag(header.property_bag(), bag, result);
    uint32_t ignored = 0;
    take(hdr.property_bag, property_bag(bag), ignored);
    const std::string json = with_body(envelope(hdr), body);
    if (json.size() >= json_out_size) {
        return 6;
    }
    std::memcpy(json_out, json.c_str(), json.size() + 1);
    return result;
}

uint32_t json_to_wire(const char* json, uint8_t* out, uint32_t capacity, uint32_t* length) {
    msg_hdr hdr{};
    if (get_msg_hdr(json, &hdr) == 0) {
        return 3;
    }
    Header header;
    fill_header(hdr, header);
    uint32_t result = take_bag(hdr.property_bag, Checksum::kLeft, header) ? 0 : 9;
    char body[8192] = {};
    if (get_body_from_message(json, body, sizeof body) == 0) {
        return 11;
    }
    if (is_binary(header)) {
        uint8_t decoded[8192] = {};
        uint32_t decoded_len = 0;
        if (base64_decode(body, static_cast<uint32_t>(std::strlen(body)), decoded, &decoded_len,
                          sizeof decoded) == 0) {
            header.set_body(decoded, decoded_len);
        } else {
            result = 11;
        }
    } else {
        header.set_body(body);
    }
    return serialize(header, result, out, capacity, length);
}

uint32_t header_to_wire(const msg_hdr& hdr, const uint8_t* body, uint32_t body_len, uint8_t* out,
                        uint32_t capacity, uint32_t* length) {
    Header header;
    fill_header(hdr, header);
    if (!take_bag(hdr.property_bag, Checksum::kTaken, header)) {
        return 9;
    }
    header.set_body(body, body_len);
    return serialize(header, 0, out, capacity, length);
}

uint32_t restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t status, uint8_t* out,
                 uint32_t capacity, uint32_t* length) {
    Header header;
    if (!parse(pkt, pkt_len, header)) {
        return 8;
    }
    header.set_packet_status(static_cast<PacketStatus>(static_cast<int>(status)));
    return serialize(header, 0, out, capacity, length);
}

}  // namespace plain_chain

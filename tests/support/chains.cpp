#include "support/chains.h"

#include <json-c/json.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "json_helper.h"
#include "logger.h"
#include "vyn_header.h"
#include "vyn_header_v3.pb.h"
#include "vynutils.h"

namespace vyn_test {

uint32_t chained_json_to_wire(const char* json, uint8_t* out, uint32_t capacity, uint32_t* length) {
    msg_hdr hdr{};
    if (get_msg_hdr(json, &hdr) == 0) {
        return 3;
    }
    Header header;
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
    uint32_t result = 0;
    if (hdr.property_bag[0] != '\0') {
        json_object* bag = json_tokener_parse(hdr.property_bag);
        json_val value{};
        if (bag == nullptr) {
            result = 9;
        } else if (get_json_value(bag, "error_code", &value) == 3) {
            header.mutable_property_bag()->set_error_code(static_cast<uint32_t>(value.int_val));
        }
        json_object_put(bag);
    }
    char body[8192];
    if (get_body_from_message(json, body, sizeof body) == 0) {
        return 11;
    }
    if (header.message_type() >> 14 == 2) {
        uint8_t decoded[8192];
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
    *length = static_cast<uint32_t>(header.ByteSizeLong());
    if (*length > capacity) {
        return 2;
    }
    return header.SerializeToArray(out, static_cast<int>(*length)) ? result : 7;
}

namespace {

template <std::size_t Size>
void take(char (&member)[Size], const std::string& text, uint32_t& result) {
    if (text.size() + 1 > Size) {
        result = 2;
    } else {
        std::memcpy(member, text.c_str(), text.size() + 1);
    }
}

}  // namespace

uint32_t chained_wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                              uint32_t json_out_size) {
    std::vector<uint8_t> plain(24576);
    uint32_t plain_len = 0;
    if (vyn_zstd_decompress(pkt, pkt_len, plain.data(), 24576, &plain_len) != 0) {
        return 13;
    }
    Header header;
    if (!header.ParseFromArray(plain.data(), static_cast<int>(plain_len))) {
        return 8;
    }
    const uint32_t word = header.message_type();
    LOG(LOG_LEVEL_DEBUG, "PH:Received message :%d : Message type: %d : Encoding type : %d ",
        static_cast<int>(word), static_cast<int>(word & 0x3FFF), static_cast<int>(word >> 14 & 3));
    uint32_t result = 0;
    msg_hdr hdr{};
    take(hdr.message_id, header.message_id(), result);
    take(hdr.correlation_id, header.correlation_id(), result);
    take(hdr.system_id, header.system_id(), result);
    take(hdr.device_id, header.device_id(), result);
    take(hdr.target_id, header.target_id(), result);
    hdr.sub_system_id = header.sub_system_id();
    hdr.msg_type = word;
    hdr.time = header.time();
    hdr.ttl = header.ttl();

    std::vector<char> body(24576);
    if (word >> 14 == 2) {
        if (base64_encode(reinterpret_cast<const uint8_t*>(header.body().data()),
                          static_cast<uint32_t>(header.body().size()), body.data(), 24576) != 0) {
            result = 11;
        }
    } else if (header.body().size() + 1 > body.size()) {
        result = 2;
    } else {
        std::strcpy(body.data(), header.body().c_str());
    }

    const Header_Property_bag& received = header.property_bag();
    msg_property_bag bag{};
    bag.error_code = received.error_code();
    bag.ack_required = received.ack_required();
    take(bag.attempt, received.attempt(), result);
    take(bag.checksum, received.checksum(), result);
    take(bag.error, received.error(), result);
    take(bag.target, received.target(), result);
    take(bag.file, received.file(), result);
    char* bag_text = construct_property_bag(&bag);
    if (bag_text != nullptr && std::strlen(bag_text) <= 255) {
        std::strcpy(hdr.property_bag, bag_text);
    }
    free(bag_text);

    char* envelope = convert_hdr_to_json(&hdr, 0, 0);
    if (envelope == nullptr) {
        return 5;
    }
    char* whole = add_body_to_message(envelope, body.data());
    free(envelope);
    if (whole == nullptr || std::strlen(whole) >= json_out_size) {
        free(whole);
        return 6;
    }
    std::strcpy(json_out, whole);
    free(whole);
    return result;
}

}  // namespace vyn_test

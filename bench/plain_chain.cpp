#include "plain_chain.h"

#include <json-c/json.h>
#include <zstd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "json_helper.h"
#include "proto_helper.h"
#include "vyn_header_v3.pb.h"
#include "vynutils.h"

namespace bench::plain_chain {
namespace {

struct Release {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Release>;

bool is_binary(const Header& header) { return header.message_type() >> 14 == MSG_ENCODING_BINARY; }

// Into a member that is zero. What is too long leaves it so.
template <std::size_t Size>
void copy(char (&member)[Size], std::string_view text) {
    if (text.size() < Size) {
        std::memcpy(member, text.data(), text.size());
    }
}

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
    header.set_packet_status(static_cast<PacketStatus>(hdr.packet_status));
}

void fill_record(const Header& header, msg_hdr& hdr) {
    copy(hdr.message_id, header.message_id());
    copy(hdr.correlation_id, header.correlation_id());
    hdr.version = header.version();
    copy(hdr.system_id, header.system_id());
    hdr.sub_system_id = header.sub_system_id();
    copy(hdr.device_id, header.device_id());
    copy(hdr.target_id, header.target_id());
    hdr.msg_type = header.message_type();
    hdr.time = header.time();
    hdr.ttl = header.ttl();
}

void fill_bag_text(const Header& header, msg_hdr& hdr) {
    const Header_Property_bag& received = header.property_bag();
    msg_property_bag bag{};
    bag.error_code = received.error_code();
    bag.ack_required = received.ack_required();
    copy(bag.attempt, received.attempt());
    copy(bag.checksum, received.checksum());
    copy(bag.error, received.error());
    copy(bag.target, received.target());
    copy(bag.file, received.file());
    const Text text(construct_property_bag(&bag));
    if (text != nullptr) {
        copy(hdr.property_bag, text.get());
    }
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

bool take_json_body(const char* body, Header& header) {
    if (!is_binary(header)) {
        header.set_body(body);
        return true;
    }
    uint8_t decoded[VYN_JSON_BODY_MAX_CHARS + 1] = {};
    uint32_t length = 0;
    if (base64_decode(body, static_cast<uint32_t>(std::strlen(body)), decoded, &length,
                      sizeof decoded) != 0) {
        return false;
    }
    header.set_body(decoded, length);
    return true;
}

bool give_json_body(const Header& header, char (&body)[VYN_PACKET_CAPACITY]) {
    const std::string& received = header.body();
    if (!is_binary(header)) {
        copy(body, received);
        return received.size() < sizeof body;
    }
    if (received.size() > VYN_BINARY_BODY_CAPACITY) {
        return false;
    }
    char base64[VYN_PACKET_CAPACITY] = {};
    (void)encode_base64(received, base64);
    copy(body, base64);
    return true;
}

bool serialize(const Header& header, Output& out) {
    const std::size_t length = header.ByteSizeLong();
    if (length > sizeof out.bytes) {
        return false;
    }
    out.length = static_cast<uint32_t>(length);
    return header.SerializeToArray(out.bytes, static_cast<int>(length));
}

}  // namespace

bool wire_to_json(const Sample& sample, Output& out) {
    uint8_t packet[VYN_PACKET_CAPACITY] = {};
    // Makes a context and releases it.
    const std::size_t packet_length =
        ZSTD_decompress(packet, sizeof packet, sample.received.data(), sample.received.size());
    Header header;
    if (ZSTD_isError(packet_length) != 0 ||
        !header.ParseFromArray(packet, static_cast<int>(packet_length))) {
        return false;
    }
    msg_hdr hdr{};
    fill_record(header, hdr);
    char body[VYN_PACKET_CAPACITY] = {};
    if (!give_json_body(header, body)) {
        return false;
    }
    fill_bag_text(header, hdr);
    const Text envelope(convert_hdr_to_json(&hdr, 0, 0));
    const Text whole(add_body_to_message(envelope.get(), body));
    if (whole == nullptr || std::strlen(whole.get()) >= sizeof out.bytes) {
        return false;
    }
    out.length = static_cast<uint32_t>(std::strlen(whole.get()));
    std::memcpy(out.bytes, whole.get(), out.length + 1);
    return true;
}

bool json_to_wire(const Sample& sample, Output& out) {
    const char* json = sample.envelope.c_str();
    msg_hdr hdr{};
    char body[VYN_JSON_BODY_MAX_CHARS + 1] = {};
    // The only helper for numbers of 64 bits takes a text, and parses it each time. Our own
    // get_msg_hdr() reads them from its tree, so these two parses of a chain are added here.
    if (get_msg_hdr(json, &hdr) == 0 || get_key_json_int64(json, "time", &hdr.time) == 0 ||
        get_key_json_int64(json, "ttl", &hdr.ttl) == 0) {
        return false;
    }
    Header header;
    fill_header(hdr, header);
    return take_bag(hdr.property_bag, Checksum::kLeft, header) &&
           get_body_from_message(json, body, sizeof body) == 1 && take_json_body(body, header) &&
           serialize(header, out);
}

bool record_to_wire(const Sample& sample, Output& out) {
    Header header;
    fill_header(sample.record, header);
    if (!take_bag(sample.record.property_bag, Checksum::kTaken, header)) {
        return false;
    }
    header.set_body(sample.body.data(), sample.body.size());
    return serialize(header, out);
}

}  // namespace bench::plain_chain

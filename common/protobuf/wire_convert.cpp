#include "protobuf/wire_convert.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "envelope/envelope_tree.h"
#include "envelope/message_type.h"
#include "logger.h"
#include "protobuf/header_fields.h"
#include "utils/bounded.h"
#include "utils/json_tree.h"
#include "utils/limits.h"
#include "vynutils.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace text {
constexpr char kReceived[] = "%s:Received message :%d : Message type: %d : Encoding type : %d ";
constexpr char kFromWire[] = "PH";
constexpr char kRestamped[] = "DPH";
}  // namespace text

void tell_length(uint64_t length, const PacketOut& out) {
    *out.length = static_cast<uint32_t>(std::min<uint64_t>(length, UINT32_MAX));
}

// The length of a packet once this body is in it: behind a tag of one byte and its length.
uint64_t length_with_body(const Header& header, uint32_t body_len) {
    return uint64_t{header.ByteSizeLong()} + 1 +
           google::protobuf::io::CodedOutputStream::VarintSize32(body_len) + body_len;
}

// The sub-message is made only when there is something to put into it.

int take_error_code(json_object* bag, Header& header) {
    json_val value{};
    const int type = read_value(bag, "error_code", value);
    if (type == VYN_JSON_INT) {
        header.mutable_property_bag()->set_error_code(static_cast<uint32_t>(value.int_val));
    }
    return type;
}

void take_checksum(json_object* bag, Header& header) {
    json_val value{};
    if (read_value(bag, "checksum", value) == VYN_JSON_STRING) {
        header.mutable_property_bag()->set_checksum(value.str_val);
    }
}

// The property bag that read_record() left: what parsing the record's text would give. False
// when that is not JSON, which it never is once it was cut, since it lost its last brace.
[[nodiscard]] bool take_envelope_bag(json_object* bag, const msg_hdr& hdr, Header& header) {
    if (hdr.property_bag[0] == '\0') {
        return true;
    }
    if (bag == nullptr) {
        return false;
    }
    if (take_error_code(bag, header) == VYN_JSON_DOUBLE) {
        // A number such as "1e" is a double here but an integer in the text rendered from it.
        const JsonPtr rendered = parse_json(hdr.property_bag);
        if (rendered == nullptr) {
            return false;
        }
        (void)take_error_code(rendered.get(), header);
    }
    return true;
}

[[nodiscard]] vyn_result receive(const uint8_t* pkt, uint32_t pkt_len, Header& header) {
    uint8_t plain[VYN_PACKET_CAPACITY];
    uint32_t length = 0;
    if (vyn_zstd_decompress(pkt, pkt_len, plain, sizeof plain, &length) != 0) {
        return VYN_NOT_DECOMPRESSED;
    }
    return parse_packet(plain, length, header) ? VYN_OK : VYN_NOT_A_HEADER;
}

// The property bag of a received packet, with its text in the record. False: memory ran out.
[[nodiscard]] bool received_bag(const msg_property_bag& members, msg_hdr& hdr, JsonPtr& bag) {
    if (!build_property_bag(members, bag)) {
        return false;
    }
    if (bag == nullptr) {
        return true;
    }
    const char* rendered = json_object_get_string(bag.get());
    if (rendered == nullptr) {
        return false;
    }
    if (!copy_if_fits(hdr.property_bag, sizeof hdr.property_bag, rendered, std::strlen(rendered))) {
        bag.reset();
        return true;
    }
    // Not rendered again with the envelope: from here on it stands for the text in the record,
    // which outlives it.
    json_object_set_serializer(bag.get(), json_object_userdata_to_json_string, hdr.property_bag,
                               nullptr);
    return true;
}

void log_received(const char* prefix, uint32_t word) {
    LOG(LOG_LEVEL_DEBUG, text::kReceived, prefix, static_cast<int>(word),
        static_cast<int>(message_type_of(word)), static_cast<int>(encoding_type_of(word)));
}

}  // namespace

bool parse_packet(const uint8_t* data, uint32_t length, Header& header) {
    return length <= kMaxInt && header.ParseFromArray(data, static_cast<int>(length));
}

vyn_result write_packet(const Header& header, const PacketOut& out) {
    const std::size_t length = header.ByteSizeLong();
    tell_length(length, out);
    if (length > out.capacity || length > kMaxInt) {
        return VYN_DOES_NOT_FIT;
    }
    const uint8_t* end = header.SerializeWithCachedSizesToArray(out.data);
    return end == out.data + length ? VYN_OK : VYN_NOT_SERIALIZED;
}

vyn_result record_to_wire(const msg_hdr& hdr, const uint8_t* body, uint32_t body_len,
                          const PacketOut& out) {
    Header header;
    fill_header(hdr, header);
    if (hdr.property_bag[0] != '\0') {
        const JsonPtr bag = parse_json(hdr.property_bag);
        if (bag == nullptr) {
            return VYN_BAD_PROPERTY_BAG;
        }
        (void)take_error_code(bag.get(), header);
        take_checksum(bag.get(), header);
    }
    if (body_len > out.capacity || body_len > kMaxInt) {
        tell_length(length_with_body(header, body_len), out);  // without copying it first
        return VYN_DOES_NOT_FIT;
    }
    if (body_len > 0) {
        header.set_body(body, body_len);
    }
    return write_packet(header, out);
}

vyn_result json_to_wire(const char* json, const PacketOut& out) {
    const JsonPtr envelope = parse_envelope(json);
    if (envelope == nullptr) {
        return VYN_BAD_ENVELOPE;
    }
    msg_hdr hdr{};
    json_object* bag = read_record(envelope.get(), hdr);
    Header header;
    fill_header(hdr, header);
    vyn_result result = take_envelope_bag(bag, hdr, header) ? VYN_OK : VYN_BAD_PROPERTY_BAG;

    const char* body = read_body(envelope.get(), VYN_JSON_BODY_MAX_CHARS + 1);
    if (body == nullptr) {
        return VYN_BAD_BODY;
    }
    if (has_binary_body(header.message_type())) {
        uint8_t decoded[VYN_JSON_BODY_MAX_CHARS + 1];
        uint32_t decoded_len = 0;
        if (base64_decode(body, static_cast<uint32_t>(std::strlen(body)), decoded, &decoded_len,
                          sizeof decoded) == 0) {
            header.set_body(decoded, decoded_len);
        } else {
            result = VYN_BAD_BODY;
        }
    } else {
        header.set_body(body);
    }
    const vyn_result written = write_packet(header, out);
    return written == VYN_OK ? result : written;
}

vyn_result wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                        uint32_t json_out_size) {
    Header header;
    vyn_result result = receive(pkt, pkt_len, header);
    if (result != VYN_OK) {
        return result;
    }
    log_received(text::kFromWire, header.message_type());

    // What is too long stays empty, and the loss that is found last is told.
    msg_hdr hdr{};
    result = fill_record(header, hdr) ? VYN_OK : VYN_DOES_NOT_FIT;

    char base64[VYN_PACKET_CAPACITY];
    const char* body = header.body().c_str();
    if (has_binary_body(header.message_type())) {
        body = base64;
        if (base64_encode(reinterpret_cast<const uint8_t*>(header.body().data()),
                          static_cast<uint32_t>(header.body().size()), base64,
                          sizeof base64) != 0) {
            body = "";
            result = VYN_BAD_BODY;
        }
    } else if (!fits(header.body().size(), VYN_PACKET_CAPACITY)) {
        body = "";
        result = VYN_DOES_NOT_FIT;
    }

    msg_property_bag members{};
    if (!fill_record(header.property_bag(), members)) {
        result = VYN_DOES_NOT_FIT;
    }
    JsonPtr bag;
    if (!received_bag(members, hdr, bag)) {
        return VYN_NO_ENVELOPE;
    }
    const JsonPtr envelope = build_envelope(hdr, hdr.time, std::move(bag));
    if (envelope == nullptr) {
        return VYN_NO_ENVELOPE;
    }
    if (!put_body(envelope.get(), body)) {
        return VYN_NO_BODY_ADDED;
    }
    const char* rendered = json_object_get_string(envelope.get());
    if (rendered == nullptr ||
        !copy_if_fits(json_out, json_out_size, rendered, std::strlen(rendered))) {
        return VYN_NO_BODY_ADDED;
    }
    return result;
}

vyn_result restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t new_status,
                   uint32_t& msg_type_out, const PacketOut& out) {
    Header header;
    if (!parse_packet(pkt, pkt_len, header)) {
        return VYN_NOT_A_HEADER;
    }
    log_received(text::kRestamped, header.message_type());
    msg_type_out = message_type_of(header.message_type());
    header.set_packet_status(packet_status_of(new_status));
    return write_packet(header, out);
}

}  // namespace vyn

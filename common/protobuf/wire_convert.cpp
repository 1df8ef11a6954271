#include "protobuf/wire_convert.h"

#include <cstring>
#include <string>
#include <string_view>

#include "envelope/envelope_text.h"
#include "envelope/envelope_tree.h"
#include "envelope/message_type.h"
#include "logger.h"
#include "protobuf/header_fields.h"
#include "protobuf/packet.h"
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

int take_error_code(json_object* bag, SentBag& sent) {
    json_val value{};
    const int type = read_value(bag, "error_code", value);
    if (type == VYN_JSON_INT) {
        sent.present = true;
        sent.error_code = static_cast<uint32_t>(value.int_val);
    }
    return type;
}

void take_checksum(json_object* bag, SentBag& sent) {
    json_val value{};
    if (read_value(bag, "checksum", value) == VYN_JSON_STRING) {
        sent.present = true;
        sent.checksum = value.str_val;
    }
}

// The property bag that read_record() left: what parsing the record's text would give. False
// when that is not JSON, which it never is once it was cut, since it lost its last brace.
[[nodiscard]] bool take_envelope_bag(json_object* bag, const msg_hdr& hdr, SentBag& sent) {
    if (hdr.property_bag[0] == '\0') {
        return true;
    }
    if (bag == nullptr) {
        return false;
    }
    if (take_error_code(bag, sent) == VYN_JSON_DOUBLE) {
        // A number such as "1e" is a double here but an integer in the text rendered from it.
        const JsonPtr rendered = parse_json(hdr.property_bag);
        if (rendered == nullptr) {
            return false;
        }
        (void)take_error_code(rendered.get(), sent);
    }
    return true;
}

[[nodiscard]] vyn_result receive(const uint8_t* pkt, uint32_t pkt_len, Header& header) {
    uint8_t plain[VYN_PACKET_CAPACITY];
    uint32_t length = 0;
    if (vyn_zstd_decompress(pkt, pkt_len, plain, sizeof plain, &length) != 0) {
        return VYN_NOT_DECOMPRESSED;
    }
    return header.ParseFromArray(plain, static_cast<int>(length)) ? VYN_OK : VYN_NOT_A_HEADER;
}

void log_received(const char* prefix, uint32_t word) {
    LOG(LOG_LEVEL_DEBUG, text::kReceived, prefix, static_cast<int>(word),
        static_cast<int>(message_type_of(word)), static_cast<int>(encoding_type_of(word)));
}

}  // namespace

vyn_result record_to_wire(const msg_hdr& hdr, const SentBody& body, const PacketOut& out) {
    JsonPtr bag;
    SentBag sent;
    if (hdr.property_bag[0] != '\0') {
        bag = parse_member(hdr.property_bag);
        if (bag == nullptr) {
            return VYN_BAD_PROPERTY_BAG;
        }
        (void)take_error_code(bag.get(), sent);
        take_checksum(bag.get(), sent);
    }
    return write_record_packet(hdr, sent, body, out);
}

vyn_result json_to_wire(const char* json, const PacketOut& out) {
    const JsonPtr envelope = parse_envelope(json);
    if (envelope == nullptr) {
        return VYN_BAD_ENVELOPE;
    }
    msg_hdr hdr{};
    json_object* bag = read_record(envelope.get(), hdr);
    SentBag sent;
    vyn_result result = take_envelope_bag(bag, hdr, sent) ? VYN_OK : VYN_BAD_PROPERTY_BAG;

    const char* text = read_body(envelope.get(), VYN_JSON_BODY_MAX_CHARS + 1);
    if (text == nullptr) {
        return VYN_BAD_BODY;
    }
    SentBody body = {reinterpret_cast<const uint8_t*>(text),
                     static_cast<uint32_t>(std::strlen(text))};
    uint8_t decoded[VYN_JSON_BODY_MAX_CHARS + 1];
    if (hdr.encoding_type == MSG_ENCODING_BINARY) {
        uint32_t length = 0;
        if (base64_decode(text, body.length, decoded, &length, sizeof decoded) != 0) {
            length = 0;
            result = VYN_BAD_BODY;
        }
        body = {decoded, length};
    }
    const vyn_result written = write_record_packet(hdr, sent, body, out);
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
    char bag_text[kBagTextCapacity];
    std::string_view bag = write_property_bag(members, bag_text);
    if (!fits(bag.size(), sizeof hdr.property_bag)) {
        bag = {};
    }
    EnvelopeText envelope(hdr, hdr.time, bag);
    envelope.set_body(body);
    const std::size_t length = envelope.length();
    if (!fits(length, json_out_size)) {
        return VYN_NO_BODY_ADDED;
    }
    envelope.write(json_out);
    json_out[length] = '\0';
    return result;
}

vyn_result restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t new_status,
                   uint32_t& msg_type_out, const PacketOut& out) {
    Packet packet;
    if (!packet.read(pkt, pkt_len)) {
        return VYN_NOT_A_HEADER;
    }
    log_received(text::kRestamped, packet.message_type());
    msg_type_out = message_type_of(packet.message_type());
    packet.set_status(new_status);
    const uint64_t length = packet.length();
    out.tell(length);
    if (length > out.capacity || length > kMaxInt) {
        return VYN_DOES_NOT_FIT;
    }
    return packet.write(out.data) ? VYN_OK : VYN_NOT_SERIALIZED;
}

}  // namespace vyn

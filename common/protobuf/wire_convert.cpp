#include "protobuf/wire_convert.h"

#include <cstring>

#include "envelope/envelope_tree.h"
#include "envelope/message_type.h"
#include "protobuf/header_json.h"
#include "protobuf/packet.h"
#include "utils/json_tree.h"
#include "utils/limits.h"
#include "vynutils.h"

namespace vyn {
namespace {

// Monitoring searches the log for this text.
namespace log_text {
constexpr char kRestamped[] = "DPH";
}  // namespace log_text

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

// Takes what parsing the header's own text of the bag would give. False when that text is not JSON.
[[nodiscard]] bool take_envelope_bag(const EnvelopeBag& bag, const msg_hdr& hdr, SentBag& sent) {
    if (bag.state != EnvelopeBag::State::kWhole) {
        return bag.state == EnvelopeBag::State::kAbsent;
    }
    if (take_error_code(bag.tree, sent) == VYN_JSON_DOUBLE) {
        // A number such as "1e" is a double here, but an integer in the text rendered from it.
        const JsonPtr rendered = parse_json(hdr.property_bag);
        if (rendered == nullptr) {
            return false;
        }
        (void)take_error_code(rendered.get(), sent);
    }
    return true;
}

}  // namespace

vyn_result header_to_wire(const msg_hdr& hdr, const SentBody& body, const PacketOut& out) {
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
    return write_packet(hdr, sent, body, out);
}

vyn_result json_to_wire(const char* json, const PacketOut& out) {
    const JsonPtr envelope = parse_envelope(json);
    if (envelope == nullptr) {
        return VYN_BAD_ENVELOPE;
    }
    msg_hdr hdr{};
    const EnvelopeBag bag = read_header(envelope.get(), hdr);
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
        // Should the unit's decoder claim more than it writes, nothing from the stack is sent.
        std::memset(decoded, 0, body.length);
        uint32_t length = 0;
        if (base64_decode(text, body.length, decoded, &length, sizeof decoded) != 0) {
            length = 0;
            result = VYN_BAD_BODY;
        }
        body = {decoded, length};
    }
    const vyn_result written = write_packet(hdr, sent, body, out);
    return written == VYN_OK ? result : written;
}

vyn_result wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                        uint32_t json_out_size) {
    Header header;
    {
        uint8_t plain[VYN_PACKET_CAPACITY];
        uint32_t length = 0;
        if (vyn_zstd_decompress(pkt, pkt_len, plain, sizeof plain, &length) != 0) {
            return VYN_NOT_DECOMPRESSED;
        }
        if (!parse_packet(plain, length, header)) {
            return VYN_NOT_A_HEADER;
        }
    }
    return header_to_json(header, json_out, json_out_size);
}

vyn_result restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t new_status,
                   uint32_t& msg_type_out, const PacketOut& out) {
    Packet packet;
    if (!packet.read(pkt, pkt_len)) {
        return VYN_NOT_A_HEADER;
    }
    log_message_type(log_text::kRestamped, packet.message_type());
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

#include "protobuf/packet_writer.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <cstring>

#include "envelope/header_members.h"
#include "utils/bounded.h"
#include "utils/limits.h"
#include "vyn_header_v3.pb.h"

namespace vyn {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedOutputStream;
using Bag = Header_Property_bag;

// A tag, and a number or a length.
constexpr std::size_t kFieldOverhead = 1 + 10;

// Writes fields into a buffer that is large enough. The caller keeps to the order of their numbers.
// A field at its default is left out.
class FieldWriter {
public:
    explicit FieldWriter(uint8_t* out) : end_(out) {}

    void text(int field, std::string_view value) {
        if (!value.empty()) {
            bytes(field, value.data(), static_cast<uint32_t>(value.size()));
        }
    }
    void number(int field, uint32_t value) {
        if (value != 0) {
            end_ = WireFormatLite::WriteUInt32ToArray(field, value, end_);
        }
    }
    void number(int field, int64_t value) {
        if (value != 0) {
            end_ = WireFormatLite::WriteInt64ToArray(field, value, end_);
        }
    }
    void bytes(int field, const void* value, uint32_t length) {
        bytes_head(field, length);
        if (length > 0) {
            std::memcpy(end_, value, length);
            end_ += length;
        }
    }
    // Writes the tag and the length that stand in front of the bytes.
    void bytes_head(int field, uint32_t length) {
        end_ =
            WireFormatLite::WriteTagToArray(field, WireFormatLite::WIRETYPE_LENGTH_DELIMITED, end_);
        end_ = CodedOutputStream::WriteVarint32ToArray(length, end_);
    }

    [[nodiscard]] uint8_t* end() const { return end_; }

private:
    uint8_t* end_;
};

// Bytes of a packet that are written before it is known whether the packet fits.
template <std::size_t Capacity>
struct Piece {
    uint8_t data[Capacity];
    uint32_t length;

    void ends_at(const uint8_t* end) { length = static_cast<uint32_t>(end - data); }
};
using BagPiece = Piece<MSG_HDR_BAG_SIZE + 2 * kFieldOverhead>;
// Everything in front of the body's bytes.
using FrontPiece = Piece<3 * MSG_HDR_ID_SIZE + 2 * MSG_HDR_DEVICE_ID_SIZE + sizeof(BagPiece) +
                         Header::kBodyFieldNumber * kFieldOverhead>;

void write_bag(const SentBag& bag, BagPiece& piece) {
    FieldWriter fields(piece.data);
    fields.number(Bag::kErrorCodeFieldNumber, bag.error_code);
    fields.text(Bag::kChecksumFieldNumber, bag.checksum);
    piece.ends_at(fields.end());
}

static_assert(kMessageId.number == Header::kMessageIdFieldNumber &&
              kCorrelationId.number == Header::kCorrelationIdFieldNumber &&
              kSystemId.number == Header::kSystemIdFieldNumber &&
              kDeviceId.number == Header::kDeviceIdFieldNumber &&
              kTargetId.number == Header::kTargetIdFieldNumber);

void write_front(const msg_hdr& hdr, const SentBag& bag, uint32_t body_len, FrontPiece& piece) {
    FieldWriter fields(piece.data);
    fields.text(kMessageId.number, member_text(hdr.message_id));
    fields.text(kCorrelationId.number, member_text(hdr.correlation_id));
    fields.number(Header::kVersionFieldNumber, hdr.version);
    fields.text(kSystemId.number, member_text(hdr.system_id));
    fields.number(Header::kSubSystemIdFieldNumber, hdr.sub_system_id);
    fields.text(kDeviceId.number, member_text(hdr.device_id));
    fields.number(Header::kMessageTypeFieldNumber,
                  combine_msg_type_encoding_type(hdr.msg_type, hdr.encoding_type));
    fields.text(kTargetId.number, member_text(hdr.target_id));
    fields.number(Header::kTtlFieldNumber, hdr.ttl);
    fields.number(Header::kTimeFieldNumber, hdr.time);
    if (bag.present) {
        BagPiece bag_piece;
        write_bag(bag, bag_piece);
        fields.bytes(Header::kPropertyBagFieldNumber, bag_piece.data, bag_piece.length);
    }
    if (body_len > 0) {
        fields.bytes_head(Header::kBodyFieldNumber, body_len);
    }
    piece.ends_at(fields.end());
}

// Has the protobuf runtime write a line to its own log when a text is not UTF-8, as it does where it
// serializes a `Header` itself.
void verify_utf8(const char* full_name, std::string_view text) {
    if (!text.empty()) {
        (void)WireFormatLite::VerifyUtf8String(text.data(), static_cast<int>(text.size()),
                                               WireFormatLite::SERIALIZE, full_name);
    }
}

void verify_texts(const msg_hdr& hdr, const SentBag& bag) {
    verify_utf8(kMessageId.full_name, member_text(hdr.message_id));
    verify_utf8(kCorrelationId.full_name, member_text(hdr.correlation_id));
    verify_utf8(kSystemId.full_name, member_text(hdr.system_id));
    verify_utf8(kDeviceId.full_name, member_text(hdr.device_id));
    verify_utf8(kTargetId.full_name, member_text(hdr.target_id));
    verify_utf8("Header.Property_bag.checksum", bag.checksum);
}

}  // namespace

// Any number, named or not; a negative one takes ten bytes.
StatusField::StatusField(uint32_t status) {
    static_assert(sizeof data == kFieldOverhead);
    if (status != 0) {
        const uint8_t* end = WireFormatLite::WriteEnumToArray(Header::kPacketStatusFieldNumber,
                                                              static_cast<int>(status), data);
        length = static_cast<uint32_t>(end - data);
    }
}

void PacketOut::tell(uint64_t count) const {
    *length = static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
}

vyn_result write_packet(const msg_hdr& hdr, const SentBag& bag, const SentBody& body,
                        const PacketOut& out) {
    FrontPiece front;
    write_front(hdr, bag, body.length, front);
    const StatusField status(hdr.packet_status);

    const uint64_t length = uint64_t{front.length} + body.length + status.length;
    out.tell(length);
    if (length > out.capacity || length > kMaxInt) {
        return VYN_DOES_NOT_FIT;
    }
    verify_texts(hdr, bag);
    if (body.length > 0) {
        std::memmove(out.data + front.length, body.data, body.length);
    }
    std::memcpy(out.data, front.data, front.length);
    std::memcpy(out.data + front.length + body.length, status.data, status.length);
    return VYN_OK;
}

}  // namespace vyn

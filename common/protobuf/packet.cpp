#include "protobuf/packet.h"

#include <climits>
#include <cstddef>
#include <cstring>

#include "protobuf/header_fields.h"
#include "utils/limits.h"

namespace vyn {
namespace {

using Bag = Header_Property_bag;

enum class Kind : uint8_t { kUnknown, kText, kBytes, kUInt32, kInt64, kEnum, kBag };

// By field number.
constexpr Kind kHeaderFields[] = {Kind::kUnknown, Kind::kText,   Kind::kText,  Kind::kUInt32,
                                  Kind::kText,    Kind::kUInt32, Kind::kText,  Kind::kUInt32,
                                  Kind::kText,    Kind::kInt64,  Kind::kInt64, Kind::kBag,
                                  Kind::kBytes,   Kind::kEnum};
constexpr Kind kBagFields[] = {Kind::kUnknown, Kind::kUInt32, Kind::kUInt32, Kind::kText,
                               Kind::kText,    Kind::kText,   Kind::kText,   Kind::kText};
static_assert(Header::kPacketStatusFieldNumber == 13 && Header::kBodyFieldNumber == 12 &&
              Header::kPropertyBagFieldNumber == 11 && Header::kTimeFieldNumber == 10 &&
              Header::kTtlFieldNumber == 9 && Header::kMessageTypeFieldNumber == 7 &&
              Header::kSubSystemIdFieldNumber == 5 && Header::kVersionFieldNumber == 3 &&
              Bag::kErrorCodeFieldNumber == 1 && Bag::kAckRequiredFieldNumber == 2);

constexpr uint32_t kVarint = 0;  // wire types
constexpr uint32_t kLengthDelimited = 2;

bool is_ascii(const uint8_t* text, std::size_t length) {
    uint64_t all = 0;
    for (; length >= sizeof all; length -= sizeof all, text += sizeof all) {
        uint64_t block = 0;
        std::memcpy(&block, text, sizeof block);
        all |= block;
    }
    for (; length > 0; --length) {
        all |= *text++;
    }
    return (all & 0x8080808080808080U) == 0;
}

// Reads the fields of one message in the only form in which they would be written: in the order of
// their numbers, each once, none at its default, numbers as short as they can be.
class Fields {
public:
    Fields(const uint8_t* data, std::size_t length) : at_(data), end_(data + length) {}

    [[nodiscard]] bool done() const { return at_ == end_; }
    [[nodiscard]] const uint8_t* at() const { return at_; }

    // The next field's number and its wire type.
    [[nodiscard]] bool tag(uint32_t& number, uint32_t& wire_type) {
        const uint8_t tag = *at_++;  // all known numbers take one byte
        wire_type = tag & 7U;
        const uint32_t previous = number;
        number = tag >> 3;
        return number > previous && tag < 0x80;
    }

    [[nodiscard]] bool varint(uint64_t& value) {
        value = 0;
        for (unsigned shift = 0; shift < 64 && at_ != end_; shift += 7) {
            const uint8_t byte = *at_++;
            value |= uint64_t{byte & 0x7FU} << shift;
            if (byte < 0x80) {
                return (byte != 0 || shift == 0) && (shift < 63 || byte == 1);
            }
        }
        return false;
    }

    [[nodiscard]] bool bytes(const uint8_t*& data, std::size_t& length) {
        uint64_t count = 0;
        if (!varint(count) || count > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        data = at_;
        length = static_cast<std::size_t>(count);
        at_ += length;
        return true;
    }

private:
    const uint8_t* at_;
    const uint8_t* end_;
};

bool is_number(Kind kind, Fields& fields, uint64_t& value) {
    if (!fields.varint(value) || value == 0) {
        return false;
    }
    switch (kind) {
        case Kind::kUInt32:
            return value <= UINT32_MAX;
        case Kind::kEnum:  // a negative one takes all 64 bits
            return value <= INT32_MAX || value >= static_cast<uint64_t>(int64_t{INT32_MIN});
        default:
            return kind == Kind::kInt64;
    }
}

struct Field {
    uint32_t number = 0;
    uint64_t value = 0;
    const uint8_t* data = nullptr;
    std::size_t length = 0;
};

// What is in a property bag is another question.
bool is_delimited(Kind kind, Fields& fields, Field& field) {
    if (!fields.bytes(field.data, field.length)) {
        return false;
    }
    switch (kind) {
        case Kind::kText:
            return field.length > 0 && is_ascii(field.data, field.length);
        case Kind::kBag:
            return true;
        default:
            return kind == Kind::kBytes && field.length > 0;
    }
}

// One field, behind the one that was read before.
template <std::size_t Count>
bool is_field(const Kind (&kinds)[Count], Fields& fields, Field& field) {
    uint32_t wire_type = 0;
    if (!fields.tag(field.number, wire_type) || field.number >= Count) {
        return false;
    }
    switch (wire_type) {
        case kVarint:
            return is_number(kinds[field.number], fields, field.value);
        case kLengthDelimited:
            return is_delimited(kinds[field.number], fields, field);
        default:
            return false;
    }
}

bool is_canonical_bag(const Field& bag) {
    Fields fields(bag.data, bag.length);
    Field field;
    while (!fields.done()) {
        if (!is_field(kBagFields, fields, field)) {
            return false;
        }
    }
    return true;
}

struct KnownFields {
    uint32_t message_type = 0;
    uint32_t status_offset = 0;  // of the last field; the packet's length when it is not there
};

// Whether parsing and serializing the packet would give the same bytes. Answers no where that takes
// more than a look to find out, as for a text that is not ASCII, or a field that `Header` does not
// know.
bool is_canonical(const uint8_t* data, uint32_t length, KnownFields& known) {
    known = {0, length};
    Fields fields(data, length);
    Field field;
    while (!fields.done()) {
        const auto offset = static_cast<uint32_t>(fields.at() - data);
        if (!is_field(kHeaderFields, fields, field)) {
            return false;
        }
        switch (field.number) {
            case Header::kMessageTypeFieldNumber:
                known.message_type = static_cast<uint32_t>(field.value);
                break;
            case Header::kPropertyBagFieldNumber:
                if (!is_canonical_bag(field)) {
                    return false;
                }
                break;
            case Header::kPacketStatusFieldNumber:
                known.status_offset = offset;
                break;
            default:
                break;
        }
    }
    return true;
}

}  // namespace

bool Packet::read(const uint8_t* data, uint32_t length) {
    if (length > kMaxInt) {
        return false;
    }
    KnownFields known;
    if (is_canonical(data, length, known)) {
        data_ = data;
        kept_ = length;
        status_ = StatusField{};
        status_offset_ = known.status_offset;
        message_type_ = known.message_type;
        return true;
    }
    data_ = nullptr;
    if (!header_.ParseFromArray(data, static_cast<int>(length))) {
        return false;
    }
    message_type_ = header_.message_type();
    return true;
}

void Packet::set_status(uint32_t status) {
    if (data_ != nullptr) {
        kept_ = status_offset_;
        status_ = StatusField(status);
    } else {
        header_.set_packet_status(packet_status_of(status));
    }
}

uint64_t Packet::length() const {
    return data_ != nullptr ? uint64_t{kept_} + status_.length : header_.ByteSizeLong();
}

bool Packet::write(uint8_t* out) const {
    if (data_ == nullptr) {
        const uint8_t* end = header_.SerializeWithCachedSizesToArray(out);
        return end == out + header_.GetCachedSize();
    }
    if (kept_ > 0) {
        std::memmove(out, data_, kept_);
    }
    std::memcpy(out + kept_, status_.data, status_.length);
    return true;
}

}  // namespace vyn

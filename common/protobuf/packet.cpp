// A parser of our own in front of protobuf's, for two reasons.
//
// Protobuf 3.5.1 takes a packet that is cut inside its property bag for a whole one; later releases
// refuse it. The walk below requires each field to end inside its message, so all releases give one
// answer. The walk refuses nothing that current releases take: what else may be wrong with a packet
// is left to protobuf.
//
// Nearly all packets already have the form in which `Header` would write them. The same walk tells
// them, and then their bytes can be copied: a new status costs a quarter of the instructions that
// parsing and serializing take, and no memory from the heap.
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

enum WireType : uint32_t {
    kVarint = 0,
    kFixed64 = 1,
    kLengthDelimited = 2,
    kGroupStart = 3,
    kGroupEnd = 4,
    kFixed32 = 5
};

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

struct Field {
    uint32_t number = 0;
    uint32_t wire_type = 0;
    uint64_t value = 0;             // of a varint
    const uint8_t* data = nullptr;  // of a length-delimited field
    std::size_t length = 0;
    bool shortest = true;  // the tag, and the value or length, take as few bytes as they can
};

// Reads the fields of one message. Each function returns false when what it reads does not end
// inside the message.
class FieldReader {
public:
    FieldReader(const uint8_t* data, std::size_t length) : at_(data), end_(data + length) {}

    [[nodiscard]] bool done() const { return at_ == end_; }
    [[nodiscard]] const uint8_t* at() const { return at_; }

    [[nodiscard]] bool read_field(Field& field) {
        uint32_t tag = 0;
        field.shortest = true;
        if (!read_varint32(tag, field.shortest)) {
            return false;
        }
        field.number = tag >> 3;
        field.wire_type = tag & 7U;
        if (tag == 0) {  // no field: protobuf decides about the message
            at_ = end_;
            return true;
        }
        switch (field.wire_type) {
            case kVarint:
                return read_varint(field.value, field.shortest);
            case kLengthDelimited:
                return read_delimited(field);
            case kFixed64:
                return skip(sizeof(uint64_t));
            case kFixed32:
                return skip(sizeof(uint32_t));
            default:
                return field.wire_type == kGroupStart || field.wire_type == kGroupEnd;
        }
    }

private:
    [[nodiscard]] bool read_varint(uint64_t& value, bool& shortest) {
        if (at_ != end_ && *at_ < 0x80) {  // most take one byte
            value = *at_++;
            return true;
        }
        return read_long_varint(value, shortest);
    }

    [[nodiscard]] bool read_long_varint(uint64_t& value, bool& shortest) {
        constexpr int kMaxVarintSize = 10;
        value = 0;
        for (int size = 0; size < kMaxVarintSize && at_ != end_; ++size) {
            const uint8_t byte = *at_++;
            value |= uint64_t{byte & 0x7FU} << (7 * size);
            if (byte < 0x80) {
                // The tenth byte holds one bit.
                shortest = shortest && (byte != 0 || size == 0) && (size < 9 || byte == 1);
                return true;
            }
        }
        return false;
    }

    // A tag or a length. Some releases of protobuf drop the bits above 32, others refuse them.
    [[nodiscard]] bool read_varint32(uint32_t& value, bool& shortest) {
        uint64_t all = 0;
        const bool read = read_varint(all, shortest);
        value = static_cast<uint32_t>(all);
        shortest = shortest && all <= UINT32_MAX;
        return read;
    }

    [[nodiscard]] bool skip(std::size_t count) {
        if (count > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        at_ += count;
        return true;
    }

    [[nodiscard]] bool read_delimited(Field& field) {
        uint32_t count = 0;
        if (!read_varint32(count, field.shortest)) {
            return false;
        }
        field.data = at_;
        field.length = count;
        return skip(count);
    }

    const uint8_t* at_;
    const uint8_t* end_;
};

bool is_canonical_number(Kind kind, uint64_t value) {
    switch (kind) {
        case Kind::kUInt32:
            return value <= UINT32_MAX;
        case Kind::kEnum:  // a negative one takes all 64 bits
            return value <= INT32_MAX || value >= static_cast<uint64_t>(int64_t{INT32_MIN});
        default:
            return kind == Kind::kInt64;
    }
}

// Whether a field of this kind would be written just so. The fields of a bag are looked at apart. A
// text that is not ASCII is left to protobuf, which knows UTF-8.
bool is_canonical(Kind kind, const Field& field) {
    if (!field.shortest) {
        return false;
    }
    switch (field.wire_type) {
        case kVarint:
            return field.value != 0 && is_canonical_number(kind, field.value);
        case kLengthDelimited:
            return kind == Kind::kBag ||
                   (field.length > 0 &&
                    (kind == Kind::kBytes ||
                     (kind == Kind::kText && is_ascii(field.data, field.length))));
        default:
            return false;
    }
}

enum class Form {
    kCut,       // a field does not end inside its message
    kWhole,     // each does; protobuf decides about the rest
    kCanonical  // the bytes that `Header` would write
};

// What the caller of a walk wants to know.
enum class Ask { kWhetherCut, kForm };

// Walks over the fields of one message, and hands each one to visit(field, offset), whose form
// counts too. Canonical are fields in the order of their numbers, each once, none at its default.
template <std::size_t Count, typename Visit>
Form walk(Ask ask, const Kind (&kinds)[Count], const uint8_t* data, std::size_t length,
          Visit visit) {
    FieldReader fields(data, length);
    Field field;
    bool canonical = ask == Ask::kForm;
    uint32_t previous = 0;
    while (!fields.done()) {
        const auto offset = static_cast<std::size_t>(fields.at() - data);
        if (!fields.read_field(field)) {
            return Form::kCut;
        }
        canonical = canonical && field.number > previous && field.number < Count &&
                    is_canonical(kinds[field.number], field);
        previous = field.number;
        const Form form = visit(field, offset);
        if (form == Form::kCut) {
            return form;
        }
        canonical = canonical && form == Form::kCanonical;
    }
    return canonical ? Form::kCanonical : Form::kWhole;
}

// What a packet that is copied must tell.
struct KnownFields {
    uint32_t message_type = 0;
    uint32_t status_offset = 0;  // of the last field; the packet's length when it is not there
};

Form form_of(Ask ask, const uint8_t* data, std::size_t length, KnownFields& known) {
    known = {0, static_cast<uint32_t>(length)};
    int depth = 0;  // of unknown groups: a field in there is none of `Header`
    return walk(ask, kHeaderFields, data, length, [&](const Field& field, std::size_t offset) {
        if (field.wire_type == kGroupStart || field.wire_type == kGroupEnd) {
            depth += field.wire_type == kGroupStart ? 1 : -1;
        } else if (depth != 0) {
            return Form::kWhole;
        } else if (field.number == Header::kPropertyBagFieldNumber &&
                   field.wire_type == kLengthDelimited) {
            return walk(ask, kBagFields, field.data, field.length,
                        [](const Field&, std::size_t) { return Form::kCanonical; });
        } else if (field.number == Header::kMessageTypeFieldNumber) {
            known.message_type = static_cast<uint32_t>(field.value);
        } else if (field.number == Header::kPacketStatusFieldNumber) {
            known.status_offset = static_cast<uint32_t>(offset);
        }
        return Form::kCanonical;
    });
}

}  // namespace

bool parse_packet(const uint8_t* data, std::size_t length, Header& header) {
    KnownFields ignored;
    return length <= kMaxInt && form_of(Ask::kWhetherCut, data, length, ignored) != Form::kCut &&
           header.ParseFromArray(data, static_cast<int>(length));
}

bool Packet::read(const uint8_t* data, uint32_t length) {
    if (length > kMaxInt) {
        return false;
    }
    KnownFields known;
    const Form form = form_of(Ask::kForm, data, length, known);
    if (form == Form::kCanonical) {
        data_ = data;
        kept_ = length;
        status_ = StatusField{};
        status_offset_ = known.status_offset;
        message_type_ = known.message_type;
        return true;
    }
    data_ = nullptr;
    if (form == Form::kCut || !header_.ParseFromArray(data, static_cast<int>(length))) {
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

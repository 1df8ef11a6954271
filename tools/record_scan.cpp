#include "record_scan.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>

#include "packet.h"
#include "record_file.h"

namespace vynpkt {
namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

// Of a text in a record; the unit's own are shorter.
constexpr uint32_t kMaxText = 4096;
// How many records in a row show that records start again.
constexpr int kChain = 3;
// The longest length in front of a packet, and the longest tag and number.
constexpr std::size_t kMaxPrefix = 5;
constexpr std::size_t kMaxField = 11;
constexpr std::size_t kBlock = std::size_t{64} << 10;

// The limit, and what counts against it.
constexpr uint64_t kWorkAtFirst = uint64_t{64} << 20;
constexpr uint64_t kWorkPerByte = 128;
constexpr uint64_t kPerLook = 4;
constexpr uint64_t kPerField = 16;
constexpr uint64_t kPerParse = 256;

bool is_number(int field) {
    return field == Header::kVersionFieldNumber || field == Header::kSubSystemIdFieldNumber ||
           field == Header::kMessageTypeFieldNumber || field == Header::kTtlFieldNumber ||
           field == Header::kTimeFieldNumber || field == Header::kPacketStatusFieldNumber;
}

// How many bytes the field takes that these bytes begin with, 0 when they are none.
uint64_t field_size(std::string_view bytes, int field) {
    CodedInputStream in(bytes_of(bytes), static_cast<int>(bytes.size()));
    uint64_t value = 0;
    if (!in.Skip(1) || !in.ReadVarint64(&value)) {
        return 0;
    }
    const auto size = static_cast<uint64_t>(in.CurrentPosition());
    if (field == Header::kPacketStatusFieldNumber) {
        return value > 0 && value < 0x80 ? size : 0;
    }
    if (is_number(field)) {
        return size;
    }
    if (value > (field == Header::kBodyFieldNumber ? kMaxInMemory : kMaxText)) {
        return 0;
    }
    // What is empty is not written, but for the bag, and a length takes the fewest bytes.
    const bool bag = field == Header::kPropertyBagFieldNumber;
    const bool shortest = size == 1 + CodedOutputStream::VarintSize64(value);
    return bag || (value > 0 && shortest) ? size + value : 0;
}

}  // namespace

bool is_named(const Header& header) {
    return !header.message_id().empty() || header.message_type() != 0;
}

bool RecordScan::read_record(uint64_t at, Record& record) {
    const Prefix prefix = read_prefix(file_.bytes_at(at, kMaxPrefix));
    record.begin = at;
    record.packet = at + prefix.size;
    record.end = record.packet + prefix.length;
    return prefix.size != 0 && record.end <= file_.size();
}

// As has_shape(); tells where the body begins, or what stands behind it.
bool RecordScan::find_body(uint64_t begin, uint64_t end, uint64_t& body) {
    body = end;
    int last = 0;
    for (uint64_t at = begin; at < end;) {
        const auto most = static_cast<std::size_t>(std::min<uint64_t>(kMaxField, end - at));
        const std::string_view bytes = file_.bytes_at(at, most);
        if (bytes.empty()) {
            return false;
        }
        const auto tag = static_cast<unsigned char>(bytes.front());
        const int field = tag >> 3;
        if (field <= last || field > Header::kPacketStatusFieldNumber ||
            (tag & 7) != (is_number(field) ? 0 : 2)) {
            return false;
        }
        if (field >= Header::kBodyFieldNumber) {
            body = std::min(body, at);
        }
        work_ += kPerField;
        last = field;
        const uint64_t size = field_size(bytes, field);
        if (size == 0 || size > end - at) {
            return false;
        }
        at += size;
    }
    return last != 0;
}

bool RecordScan::has_shape(uint64_t begin, uint64_t end) {
    uint64_t ignored = 0;
    return find_body(begin, end, ignored);
}

bool RecordScan::is_own(const Record& record) {
    uint64_t body = 0;
    if (!find_body(record.packet, record.end, body)) {
        return false;
    }
    const auto size = static_cast<std::size_t>(body - record.packet);
    const std::string_view head = file_.bytes_at(record.packet, size);
    work_ += kPerParse + 4 * size;
    if (head.size() != size || !parse_header(head, header_)) {
        return false;
    }
    const google::protobuf::Message& bag = header_.property_bag();
    return is_named(header_) && bag.GetReflection()->GetUnknownFields(bag).empty() &&
           header_.SerializeAsString() == head;
}

bool RecordScan::read_own(uint64_t at, Record& record) {
    work_ += kPerField;
    return read_record(at, record) && record.end > record.packet &&
           CodedOutputStream::VarintSize32(static_cast<uint32_t>(record.end - record.packet)) ==
               record.packet - at &&
           is_own(record);
}

bool RecordScan::is_crossed(const Record& record) {
    if (record.packet == record.begin) {
        return false;  // nothing but zeros
    }
    Record inner;
    for (uint64_t at = record.packet + 1; at < record.end; ++at) {
        work_ += kPerLook;
        if (exhausted() ||
            (read_record(at, inner) && inner.end > record.end && read_own(at, inner))) {
            return true;
        }
    }
    return false;
}

bool RecordScan::starts_chain(uint64_t at) {
    Record record;
    for (int i = 0; i < kChain && (i == 0 || at < file_.size()); ++i) {
        if (exhausted() || !read_own(at, record)) {
            return false;
        }
        at = record.end;
    }
    return true;
}

uint64_t RecordScan::find_chain(uint64_t at) {
    for (at = end_of_zeros(at); at < file_.size(); at = end_of_zeros(at + 1)) {
        reach(at);
        if (starts_chain(at)) {
            break;
        }
    }
    return std::min(at, file_.size());
}

uint64_t RecordScan::end_of_zeros(uint64_t at) {
    std::string_view bytes = file_.bytes_at(at, 1);
    while (!bytes.empty() && bytes.front() == '\0') {
        bytes = file_.bytes_at(at, kBlock);
        const std::size_t zeros = std::min(bytes.find_first_not_of('\0'), bytes.size());
        at += zeros;
        reach(at);
        bytes = file_.bytes_at(at, 1);
    }
    return at;
}

void RecordScan::reach(uint64_t at) {
    reached_ = std::max(reached_, at);
    progress_.at(at);
}

void RecordScan::looked_at(uint64_t begin, uint64_t end) {
    work_ += kPerField + (end - begin);
    reach(end);
}

bool RecordScan::exhausted() const {
    return work_ + file_.bytes_read() > kWorkAtFirst + kWorkPerByte * reached_;
}

}  // namespace vynpkt

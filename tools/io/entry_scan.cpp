#include "io/entry_scan.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>

#include "io/packet.h"
#include "io/packet_file.h"

namespace vynpkt {
namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

// The longest text in a packet that counts as one; those of the unit are shorter.
constexpr uint32_t kMaxText = 4096;
// So many entries in a row show that entries start again.
constexpr int kChain = 3;
// Most bytes of a length in front of a packet, and of a tag with its number.
constexpr std::size_t kMaxPrefix = 5;
constexpr std::size_t kMaxField = 11;
constexpr std::size_t kBlock = std::size_t{64} << 10;

// The limit of work, see the header, and what each step counts.
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

// Size of the field with which these bytes begin; 0 when the library would not have written it so.
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
    // The library writes no empty field except the bag, and each length in the fewest bytes.
    const bool bag = field == Header::kPropertyBagFieldNumber;
    const bool shortest = size == 1 + CodedOutputStream::VarintSize64(value);
    return bag || (value > 0 && shortest) ? size + value : 0;
}

}  // namespace

bool is_named(const Header& header) {
    return !header.message_id().empty() || header.message_type() != 0;
}

bool EntryScan::read_entry(uint64_t at, Entry& entry) {
    const vyn::LengthPrefix prefix = read_length(file_.bytes_at(at, kMaxPrefix));
    entry.begin = at;
    entry.packet = at + prefix.size;
    entry.end = entry.packet + prefix.length;
    return prefix.size != 0 && entry.end <= file_.size();
}

// Like has_shape(). Sets body to where the body begins, or the field behind it, or else to the end.
bool EntryScan::find_body(uint64_t begin, uint64_t end, uint64_t& body) {
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

bool EntryScan::has_shape(uint64_t begin, uint64_t end) {
    uint64_t ignored = 0;
    return find_body(begin, end, ignored);
}

bool EntryScan::is_own(const Entry& entry) {
    uint64_t body = 0;
    if (!find_body(entry.packet, entry.end, body)) {
        return false;
    }
    const auto size = static_cast<std::size_t>(body - entry.packet);
    const std::string_view head = file_.bytes_at(entry.packet, size);
    work_ += kPerParse + 4 * size;
    if (head.size() != size || !parse_header(head, header_)) {
        return false;
    }
    const google::protobuf::Message& bag = header_.property_bag();
    return is_named(header_) && bag.GetReflection()->GetUnknownFields(bag).empty() &&
           header_.SerializeAsString() == head;
}

bool EntryScan::read_own(uint64_t at, Entry& entry) {
    work_ += kPerField;
    return read_entry(at, entry) && entry.end > entry.packet &&
           CodedOutputStream::VarintSize32(static_cast<uint32_t>(entry.end - entry.packet)) ==
               entry.packet - at &&
           is_own(entry);
}

bool EntryScan::is_crossed(const Entry& entry) {
    if (entry.packet == entry.begin) {
        return false;  // a run of empty entries
    }
    Entry inner;
    for (uint64_t at = entry.packet + 1; at < entry.end; ++at) {
        work_ += kPerLook;
        if (exhausted() ||
            (read_entry(at, inner) && inner.end > entry.end && read_own(at, inner))) {
            return true;
        }
    }
    return false;
}

bool EntryScan::starts_chain(uint64_t at) {
    Entry entry;
    for (int i = 0; i < kChain && (i == 0 || at < file_.size()); ++i) {
        if (exhausted() || !read_own(at, entry)) {
            return false;
        }
        at = entry.end;
    }
    return true;
}

uint64_t EntryScan::find_chain(uint64_t at) {
    for (at = end_of_zeros(at); at < file_.size(); at = end_of_zeros(at + 1)) {
        reach(at);
        if (starts_chain(at)) {
            break;
        }
    }
    return std::min(at, file_.size());
}

uint64_t EntryScan::end_of_zeros(uint64_t at) {
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

void EntryScan::reach(uint64_t at) {
    reached_ = std::max(reached_, at);
    progress_.at(at);
}

void EntryScan::looked_at(uint64_t begin, uint64_t end) {
    work_ += kPerField + (end - begin);
    reach(end);
}

bool EntryScan::exhausted() const {
    return work_ + file_.bytes_read() > kWorkAtFirst + kWorkPerByte * reached_;
}

}  // namespace vynpkt

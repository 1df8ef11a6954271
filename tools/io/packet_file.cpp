#include "io/packet_file.h"

#include <climits>

#include "cli/report.h"
#include "io/packet.h"
#include "io/zstd_frame.h"
#include "proto_helper.h"

namespace vynpkt {

PacketFile::Outcome PacketFile::next() {
    using ReaderOutcome = vyn::PacketReader::Outcome;
    switch (reader_.next()) {
        case ReaderOutcome::kEnd:
            return Outcome::kEnd;
        case ReaderOutcome::kFailed:
            file_failure(name(), reader_.error());
        case ReaderOutcome::kDamaged:
            reason_ = why_damaged() + mistaken();
            return Outcome::kDamaged;
        case ReaderOutcome::kEntry:
            break;
    }
    if (!vyn::parse_packet(reader_.data(), reader_.length(), header_)) {
        reader_.reject();
        reason_ = std::string(kNotAHeader) + mistaken();
        return Outcome::kDamaged;
    }
    return Outcome::kEntry;
}

std::string PacketFile::why_damaged() const {
    const vyn::LengthPrefix prefix = read_length(reader_.held());
    switch (reader_.damage()) {
        case vyn::Damage::kLengthCut:
            return "the file ends within a length";
        case vyn::Damage::kLengthOverlong:
            return "a length of more than 5 bytes";
        case vyn::Damage::kTooLarge:
            return prefix.length > INT_MAX
                       ? "a length of 2 GiB or more"
                       : "a length of more than the 64 MiB that this command takes";
        case vyn::Damage::kPacketCut:
            return "a record of " + std::to_string(prefix.length) + " bytes, of which " +
                   std::to_string(reader_.held().size() - prefix.size) + " are there";
        default:
            return "a block of zeros at the end";
    }
}

// A hint at what the file is, if people often take such a file for a packet file.
const char* PacketFile::mistaken() {
    constexpr std::size_t kFrameMagic = 4;
    if (offset() > 0 || reader_.held().size() < kFrameMagic) {
        return "";
    }
    if (is_frame(reader_.held())) {
        return "; this is a zstd frame, which \"vynpkt decompress\" opens";
    }
    const auto size = static_cast<std::size_t>(input_.size());
    const bool is_packet = size <= VYN_PACKET_CAPACITY && reader_.hold(size) &&
                           reader_.held().size() == size && parse_header(reader_.held(), header_);
    return is_packet ? "; this is one packet, which \"vynpkt unpack\" reads" : "";
}

}  // namespace vynpkt

#include "io/packet_file.h"

#include <sys/stat.h>

#include <chrono>
#include <climits>
#include <thread>

#include "cli/report.h"
#include "io/packet.h"
#include "io/zstd_frame.h"
#include "proto_helper.h"

namespace vynpkt {

PacketFile::Outcome PacketFile::next() {
    using ReaderOutcome = vyn::PacketReader::Outcome;
    switch (reader_.next()) {
        case ReaderOutcome::kEnd:
            may_grow_ = true;
            return Outcome::kEnd;
        case ReaderOutcome::kFailed:
            file_failure(name(), reader_.error());
        case ReaderOutcome::kDamaged:
            may_grow_ = reader_.damage() == vyn::Damage::kLengthCut ||
                        reader_.damage() == vyn::Damage::kPacketCut;
            reason_ = why_damaged() + mistaken();
            return Outcome::kDamaged;
        case ReaderOutcome::kEntry:
            break;
    }
    if (!vyn::parse_packet(reader_.data(), reader_.length(), header_)) {
        reader_.reject();
        may_grow_ = false;
        reason_ = std::string(kNotAHeader) + mistaken();
        return Outcome::kDamaged;
    }
    return Outcome::kEntry;
}

bool PacketFile::is_replaced() const {
    struct stat named {};
    struct stat open {};
    const bool both = ::stat(path_.c_str(), &named) == 0 && ::fstat(input_->fd(), &open) == 0;
    // While a file is being replaced, its name may lead nowhere for a moment.
    return both && (named.st_ino != open.st_ino || named.st_dev != open.st_dev);
}

bool PacketFile::wait_for_more() {
    constexpr auto kPause = std::chrono::milliseconds(100);
    // What was read so far, with the part of an entry at its end.
    const uint64_t read = reader_.position() + reader_.held().size();
    while (input_->size() == read && !is_replaced()) {
        std::this_thread::sleep_for(kPause);
    }
    // Of a file that was replaced, all that it holds is shown first. One that became shorter was
    // written anew.
    const bool anew = input_->size() <= read;
    if (anew) {
        input_.emplace(path_);
        reader_ = reader_of(*input_);
    } else {
        reader_.resume();
    }
    return anew;
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
    const auto size = static_cast<std::size_t>(input_->size());
    const bool is_packet = size <= VYN_PACKET_CAPACITY && reader_.hold(size) &&
                           reader_.held().size() == size && parse_header(reader_.held(), header_);
    return is_packet ? "; this is one packet, which \"vynpkt unpack\" reads" : "";
}

}  // namespace vynpkt

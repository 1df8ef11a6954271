// Reads packet files from any input and says in words what is wrong with them.
#ifndef VYN_TOOLS_IO_PACKET_FILE_H
#define VYN_TOOLS_IO_PACKET_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "io/input.h"
#include "protobuf/packet_reader.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

// Reads the length with which these bytes begin, by the limit of the commands.
[[nodiscard]] inline vyn::LengthPrefix read_length(std::string_view bytes) {
    return vyn::read_length(bytes, kMaxInMemory);
}

// The entries of a packet file, one after the other, by the rules of read_proto_msg_from_file().
class PacketFile {
public:
    enum class Outcome { kEntry, kEnd, kDamaged };

    explicit PacketFile(const std::string& path)
        : input_(path), reader_(input_.fd(), vyn::PacketReader::kUntilEnd, kMaxInMemory) {}

    [[nodiscard]] Outcome next();
    [[nodiscard]] const std::string& name() const { return input_.name(); }
    [[nodiscard]] uint64_t size() const { return input_.size(); }
    // Offset of the entry, or of the damage.
    [[nodiscard]] uint64_t offset() const { return reader_.offset(); }
    // Size of all entries so far.
    [[nodiscard]] uint64_t position() const { return reader_.position(); }
    // The packet of the entry, and its size in bytes.
    [[nodiscard]] const Header& header() const { return header_; }
    [[nodiscard]] std::size_t length() const { return reader_.length(); }
    // What is wrong, after kDamaged.
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    [[nodiscard]] std::string why_damaged() const;
    [[nodiscard]] const char* mistaken();

    Input input_;
    vyn::PacketReader reader_;
    Header header_;
    std::string reason_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_PACKET_FILE_H

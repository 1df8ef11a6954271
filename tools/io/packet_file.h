// Reads packet files from any input and says in words what is wrong with them.
#ifndef VYN_TOOLS_IO_PACKET_FILE_H
#define VYN_TOOLS_IO_PACKET_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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
        : path_(path), input_(std::in_place, path), reader_(reader_of(*input_)) {}

    [[nodiscard]] Outcome next();
    [[nodiscard]] const std::string& name() const { return input_->name(); }
    [[nodiscard]] uint64_t size() const { return input_->size(); }
    [[nodiscard]] bool is_regular() const { return input_->is_regular(); }
    // Offset of the entry, or of the damage.
    [[nodiscard]] uint64_t offset() const { return reader_.offset(); }
    // Size of all entries so far.
    [[nodiscard]] uint64_t position() const { return reader_.position(); }
    // The packet of the entry, and its size in bytes.
    [[nodiscard]] const Header& header() const { return header_; }
    [[nodiscard]] std::size_t length() const { return reader_.length(); }
    // The entry itself, as it stands in the file.
    [[nodiscard]] std::string_view entry() const { return reader_.entry(); }
    // Whether next() gives an entry without reading, and so without waiting for it.
    [[nodiscard]] bool next_is_held() const { return reader_.next_is_held(); }
    // What is wrong, after kDamaged.
    [[nodiscard]] const std::string& reason() const { return reason_; }
    // Whether the file ended, perhaps within an entry that is still being written.
    [[nodiscard]] bool may_grow() const { return may_grow_; }

    // Waits until there is more than at the last call of next(). The file may have been replaced: then
    // next() goes on with the first entry of the new one. True if it was.
    [[nodiscard]] bool wait_for_more();

private:
    static vyn::PacketReader reader_of(const Input& input) {
        return vyn::PacketReader(input.fd(), vyn::PacketReader::kUntilEnd, kMaxInMemory);
    }
    [[nodiscard]] bool is_replaced() const;
    [[nodiscard]] std::string why_damaged() const;
    [[nodiscard]] const char* mistaken();

    std::string path_;
    std::optional<Input> input_;  // always one; replaced when the file is
    vyn::PacketReader reader_;
    Header header_;
    std::string reason_;
    bool may_grow_ = false;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_PACKET_FILE_H

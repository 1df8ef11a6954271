#include "packet_files.h"

#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "proto_helper.h"
#include "vyn_header_v3.pb.h"

namespace bench::packet_files {
namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;
using google::protobuf::io::FileInputStream;

constexpr std::size_t kEntries = 7;
// Room for each entry in the output.
constexpr std::size_t kSlot = sizeof(Output::bytes) / kEntries;

// Removed with its folder when the program ends.
class File {
public:
    File() {
        std::string name = std::filesystem::temp_directory_path() / "vyn_bench_XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no folder for the packet file");
        }
        path_ = name + "/packets";
    }
    ~File() {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::path(path_).parent_path(), ignored);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    File(File&&) = delete;
    File& operator=(File&&) = delete;

    [[nodiscard]] const char* path() const { return path_.c_str(); }

private:
    std::string path_;
};

const char* path() {
    static const File file;
    return file.path();
}

const uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

bool parse(const std::string& packet, Header& header) {
    return header.ParseFromArray(packet.data(), static_cast<int>(packet.size()));
}

int open_to_append() { return ::open(path(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666); }

}  // namespace

bool store(const Sample& sample, Output& /*unused*/) {
    return store_proto_msg_to_file(bytes_of(sample.packet),
                                   static_cast<int32_t>(sample.packet.size()), path()) == VYN_OK;
}

bool store_plainly(const Sample& sample, Output& /*unused*/) {
    Header header;
    if (!parse(sample.packet, header)) {
        return false;
    }
    const int fd = open_to_append();
    const bool stored = google::protobuf::util::SerializeDelimitedToFileDescriptor(header, fd);
    return ::close(fd) == 0 && stored;
}

bool store_floor(const Sample& sample, Output& out) {
    Header header;
    if (!parse(sample.packet, header)) {
        return false;
    }
    uint8_t* end = CodedOutputStream::WriteVarint32ToArray(
        static_cast<uint32_t>(sample.packet.size()), out.bytes);
    std::copy(sample.packet.begin(), sample.packet.end(), end);
    const auto length =
        static_cast<ssize_t>(end - out.bytes) + static_cast<ssize_t>(sample.packet.size());
    const int fd = open_to_append();
    const bool stored = ::write(fd, out.bytes, static_cast<std::size_t>(length)) == length;
    return ::close(fd) == 0 && stored;
}

bool read(const Sample& /*unused*/, Output& out) {
    uint8_t* entries[kEntries + 1] = {};
    uint32_t lengths[kEntries];
    for (std::size_t i = 0; i < kEntries; ++i) {
        entries[i] = out.bytes + i * kSlot;
    }
    uint32_t count = 0;
    out.length = sizeof out.bytes;
    return read_proto_msg_from_file(entries, &count, lengths, path()) == VYN_OK &&
           count == kEntries;
}

bool read_plainly(const Sample& /*unused*/, Output& out) {
    const int fd = ::open(path(), O_RDONLY | O_CLOEXEC);
    FileInputStream file(fd);
    file.SetCloseOnDelete(true);
    CodedInputStream stream(&file);
    out.length = sizeof out.bytes;
    for (std::size_t i = 0; i < kEntries; ++i) {
        Header header;
        bool end = false;
        if (!google::protobuf::util::ParseDelimitedFromCodedStream(&header, &stream, &end) ||
            !header.SerializeToArray(out.bytes + i * kSlot, static_cast<int>(kSlot))) {
            return false;
        }
    }
    return true;
}

bool read_floor(const Sample& /*unused*/, Output& out) {
    static uint8_t bytes[sizeof out.bytes];
    const int fd = ::open(path(), O_RDONLY | O_CLOEXEC);
    const ssize_t read = ::read(fd, bytes, sizeof bytes);
    if (::close(fd) != 0 || read <= 0) {
        return false;
    }
    CodedInputStream stream(bytes, static_cast<int>(read));
    out.length = sizeof out.bytes;
    for (std::size_t i = 0; i < kEntries; ++i) {
        uint32_t length = 0;
        Header header;
        if (!stream.ReadVarint32(&length)) {
            return false;
        }
        const uint8_t* packet = bytes + stream.CurrentPosition();
        if (!header.ParseFromArray(packet, static_cast<int>(length)) ||
            !stream.Skip(static_cast<int>(length))) {
            return false;
        }
        std::memcpy(out.bytes + i * kSlot, packet, length);
    }
    return true;
}

void start_storing(const Sample& /*unused*/) { (void)::unlink(path()); }

void start_reading(const Sample& sample) {
    start_storing(sample);
    Output out{};
    for (std::size_t i = 0; i < kEntries; ++i) {
        if (!store(sample, out)) {
            throw std::runtime_error("a packet was not stored");
        }
    }
}

void look(Output& out) {
    const int fd = ::open(path(), O_RDONLY | O_CLOEXEC);
    const ssize_t read = ::read(fd, out.bytes, sizeof out.bytes);
    out.length = static_cast<uint32_t>(read > 0 ? read : 0);
    (void)::close(fd);
}

}  // namespace bench::packet_files

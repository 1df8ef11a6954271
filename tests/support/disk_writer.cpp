// Calls the functions that write files, and runs the shell command DISK_HOOK in front of each
// system call by which they change the disk: with its name in $call and its number in $n. When the
// command fails, the call does nothing. The exit code is 0, or the errno or result.
//   atomic|stream TARGET TEXT, and fsync_parent_dir()
//   store|read PACKETS ID..., which prints the letters of the packets that were stored or read
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <string>

#include "json_helper.h"
#include "proto_helper.h"
#include "vyn_header.h"

namespace {

bool armed = false;
int number = 0;

// Whether the call is to do nothing.
bool stop_at(const std::string& call) {
    const char* hook = std::getenv("DISK_HOOK");
    if (!armed || hook == nullptr) {
        return false;
    }
    armed = false;
    const std::string command = "call=" + call + " n=" + std::to_string(++number) + "\n" + hook;
    const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): a test's own
    armed = true;
    return status != 0;
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// clang-format off
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
#define TRAP(name, call, parameters, arguments) \
    int name parameters { return stop_at(call) ? 0 : real<decltype(name)>(#name) arguments; }
extern "C" {
TRAP(posix_fallocate64, "reserve", (int fd, off64_t from, off64_t size), (fd, from, size))
TRAP(fallocate64, "reserve", (int fd, int mode, off64_t from, off64_t size), (fd, mode, from, size))
TRAP(msync, "msync", (void* data, std::size_t size, int flags), (data, size, flags))
TRAP(fsync, "fsync", (int fd), (fd))
TRAP(rename, "rename", (const char* from, const char* to) noexcept, (from, to))
// Two writes instead of none.
ssize_t write(int fd, const void* data, std::size_t size) {
    const std::size_t half = stop_at("write") ? size / 2 : 0;
    const auto* bytes = static_cast<const char*>(data);
    if (half > 0 && real<decltype(write)>("write")(fd, data, half) > 0) {
        (void)stop_at("second-half");
    }
    return static_cast<ssize_t>(half) + real<decltype(write)>("write")(fd, bytes + half, size - half);
}
}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
// clang-format on

namespace {

int write_file(bool is_atomic, const char* path, const std::string& text) {
    const auto write_it = is_atomic ? write_to_file_using_mmap_atomic : write_to_file_using_fop;
    armed = true;
    if (write_it(path, text.data(), static_cast<uint32_t>(text.size())) != 1) {
        return errno;
    }
    const bool is_left_out = stop_at("dirsync");
    armed = false;
    const int error = is_left_out || fsync_parent_dir(path) == 0 ? 0 : errno;
    armed = true;
    (void)stop_at("end");
    return error;
}

// A Header with this message id and a body of 10000 bytes.
std::string packet(char id) {
    return "\x0A\x01" + (id + ("\x62\x90\x4E" + std::string(10000, 'x')));
}

uint32_t store(const char* path, char id) {
    std::string pkt = packet(id);
    auto* bytes = reinterpret_cast<uint8_t*>(pkt.data());
    armed = true;
    const uint32_t code = store_proto_msg_to_file(bytes, static_cast<int32_t>(pkt.size()), path);
    armed = false;
    std::cout << (code == 0 ? std::string(1, id) : "") << std::flush;
    return code;
}

// "?" for a record that nobody stored.
void read(const char* path) {
    static uint8_t buffers[100][11000];
    static uint32_t lens[100];
    uint8_t* bufs[101] = {};
    for (int i = 0; i < 100; ++i) {
        bufs[i] = buffers[i];
    }
    uint32_t count = 0;
    (void)read_proto_msg_from_file(bufs, &count, lens, path);
    for (uint32_t i = 0; i < count; ++i) {
        const char id = static_cast<char>(buffers[i][2]);
        std::cout << (std::string(bufs[i], bufs[i] + lens[i]) == packet(id) ? id : '?');
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc < 3 ? "" : argv[1];
    if (command == "atomic" || command == "stream") {
        return write_file(command == "atomic", argv[2], argv[3]);
    }
    uint32_t code = 0;
    for (int i = 3; i < argc; ++i) {
        code = store(argv[2], *argv[i]);
    }
    if (command == "read") {
        read(argv[2]);
    }
    return static_cast<int>(code);
}

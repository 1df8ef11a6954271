// Writes whole files from memory to flash. Each function returns 0, or the errno of the first call
// that failed.
#ifndef VYN_COMMON_UTILS_DURABLE_FILE_H
#define VYN_COMMON_UTILS_DURABLE_FILE_H

#include <cerrno>
#include <cstddef>

namespace vyn {

// Hands an error on to a caller of the C interface: sets errno unless it is 0. Returns whether it is.
inline bool succeeded(int error) {
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}

// Writes the file in place, by way of a stream.
[[nodiscard]] int write_synced(const char* path, const void* data, std::size_t length);

// Writes a temporary file beside the target, which it then replaces in one step.
[[nodiscard]] int replace_file(const char* path, const void* data, std::size_t length);

// Makes durable what happened to the name in its directory: that it was created, renamed, removed.
[[nodiscard]] int sync_parent_dir(const char* path);

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_DURABLE_FILE_H

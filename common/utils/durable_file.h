// Whole files from memory to flash. Each returns whether the file is written, and errno tells why
// not.
#ifndef VYN_COMMON_UTILS_DURABLE_FILE_H
#define VYN_COMMON_UTILS_DURABLE_FILE_H

#include <cstddef>

namespace vyn {

// In place, by way of a stream.
[[nodiscard]] bool write_synced(const char* path, const void* data, std::size_t length);

// Beside the target, which it then replaces in one step.
[[nodiscard]] bool replace_file(const char* path, const void* data, std::size_t length);

// Makes what happened to the name durable: that it was created, renamed, removed.
[[nodiscard]] bool sync_parent_dir(const char* path);

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_DURABLE_FILE_H

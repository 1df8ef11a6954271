// Sizes that only the inner code needs. A ...Size counts the NUL, a ...Capacity is plain bytes.
#ifndef VYN_COMMON_UTILS_LIMITS_H
#define VYN_COMMON_UTILS_LIMITS_H

#include <climits>
#include <cstddef>
#include <cstdint>

namespace vyn {

// protobuf and json-c count bytes in an int.
constexpr std::size_t kMaxInt = INT_MAX;

// Room for the text of a double in a document: 29 characters hold every magnitude below 1e21
// with its six decimals.
constexpr std::size_t kDoubleTextSize = 30;

// Characters that a null in an array takes at least once it is rendered: "null, ".
constexpr std::size_t kRenderedNullLength = 6;

// Largest JSON file that is read. Documents of the unit have kilobytes; a larger file is a wrong path.
constexpr std::size_t kJsonFileCapacity = std::size_t{16} * 1024 * 1024;

// regcomp() recurses into nested groups, with some 600 bytes of stack each: a few hundred overflow
// the smallest stack of a service's thread.
constexpr int kMaxRegexDepth = 50;

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_LIMITS_H

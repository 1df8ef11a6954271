// What a mistyped word was probably meant to be.
#ifndef VYN_TOOLS_NEAREST_H
#define VYN_TOOLS_NEAREST_H

#include <string>
#include <vector>

namespace vynpkt {

// The name that a word abbreviates or nearly spells, in any case; empty when none is near.
[[nodiscard]] std::string nearest(const std::string& word, const std::vector<std::string>& names);

}  // namespace vynpkt

#endif  // VYN_TOOLS_NEAREST_H

// What a mistyped word was probably meant to be.
#ifndef VYN_TOOLS_CLI_NEAREST_H
#define VYN_TOOLS_CLI_NEAREST_H

#include <string>
#include <vector>

namespace vynpkt {

// The name of which the word is an abbreviation or a misspelling, upper and lower case alike. Empty
// when no name is near.
[[nodiscard]] std::string nearest(const std::string& word, const std::vector<std::string>& names);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_NEAREST_H

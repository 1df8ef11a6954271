// What is wrong with the arguments of a command, in the words of vynpkt.
#ifndef VYN_TOOLS_CLI_ARGUMENTS_H
#define VYN_TOOLS_CLI_ARGUMENTS_H

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace vynpkt {

// For arguments that CLI11 refuses.
[[nodiscard]] std::string why_refused(const CLI::App& command, const CLI::ParseError& error);

// For arguments that it takes: it would read "-1" as a very large count, and "010" as eight. Empty
// when nothing is wrong.
[[nodiscard]] std::string wrong_count(const CLI::App& command);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_ARGUMENTS_H

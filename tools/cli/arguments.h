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

// For arguments that it takes: it reads "-1" as a very large count, "010" as eight, and "--now=3" as
// "--now". Empty when nothing is wrong.
[[nodiscard]] std::string wrong_value(const CLI::App& command);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_ARGUMENTS_H

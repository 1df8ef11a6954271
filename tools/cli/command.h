// What every command has: a name, help, the options -o, -v and --json, and a way to report.
#ifndef VYN_TOOLS_CLI_COMMAND_H
#define VYN_TOOLS_CLI_COMMAND_H

#include <memory>
#include <string>
#include <vector>

#include "cli/report.h"

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace vynpkt {

class Command {
public:
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    Command(Command&&) = delete;
    Command& operator=(Command&&) = delete;

    [[nodiscard]] std::string name() const;
    // Whether the arguments name this command.
    [[nodiscard]] bool chosen() const;
    [[nodiscard]] bool verbose() const { return verbose_; }

    // What is wrong with the arguments that were given, which CLI11 refuses by this error, or takes
    // when it is null. Empty when nothing is.
    [[nodiscard]] std::string wrong_arguments(const CLI::ParseError* error) const;

    // Returns how it ended, or throws a Failure.
    virtual ExitCode run() = 0;

protected:
    Command(CLI::App& program, const char* name, const char* description, const char* notes);

    // Commands add their own arguments and options to this.
    [[nodiscard]] CLI::App& arguments() { return arguments_; }
    void add_input(std::string& path, const char* description);
    void add_inputs(std::vector<std::string>& paths, const char* name, const char* description);

    // Replaces the help of --json, for a command whose output it changes too.
    void describe_json(const char* description);

    // The FILE of -o; empty without -o.
    [[nodiscard]] const std::string& output() const { return output_; }
    [[nodiscard]] bool json() const { return json_; }
    void tell(const Remark& remark) const { report(name(), remark); }

private:
    CLI::App& arguments_;
    std::string output_;
    bool verbose_ = false;
    bool json_ = false;
};

using CommandPtr = std::unique_ptr<Command>;

[[nodiscard]] CommandPtr make_pack(CLI::App& program);
[[nodiscard]] CommandPtr make_unpack(CLI::App& program);
[[nodiscard]] CommandPtr make_compress(CLI::App& program);
[[nodiscard]] CommandPtr make_decompress(CLI::App& program);
[[nodiscard]] CommandPtr make_checksum(CLI::App& program);
[[nodiscard]] CommandPtr make_restamp(CLI::App& program);
[[nodiscard]] CommandPtr make_encode(CLI::App& program);
[[nodiscard]] CommandPtr make_decode(CLI::App& program);
[[nodiscard]] CommandPtr make_list(CLI::App& program);
[[nodiscard]] CommandPtr make_describe(CLI::App& program);
[[nodiscard]] CommandPtr make_append(CLI::App& program);
[[nodiscard]] CommandPtr make_show(CLI::App& program);
[[nodiscard]] CommandPtr make_verify(CLI::App& program);
[[nodiscard]] CommandPtr make_recover(CLI::App& program);
[[nodiscard]] CommandPtr make_diff(CLI::App& program);
[[nodiscard]] CommandPtr make_types(CLI::App& program);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_COMMAND_H

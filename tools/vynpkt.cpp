// The command vynpkt: packets and envelopes on the command line.
#include <google/protobuf/stubs/logging.h>
#include <syslog.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command.h"
#include "cli/nearest.h"
#include "io/process.h"
#include "logger.h"
#include "vyn_version.h"

namespace {

using vynpkt::Command;
using vynpkt::CommandPtr;
using vynpkt::ExitCode;
using Commands = std::vector<CommandPtr>;
using Arguments = std::vector<std::string>;

constexpr char kNotes[] =
    R"(Each command reads a file or standard input ("-") and writes to standard output
or to -o FILE. "vynpkt COMMAND --help" tells more, with examples.

Exit codes: 0 done; 1 data refused; 2 wrong usage; 3 a file cannot be read or
written; 4 done, but something was lost. Numbers named "code" in messages are
the library's own.

With --json, each message on standard error is an object on a line of its own:
"command", "file", "text", "code" and "exit_status", null where none is.
The log lines of -v stay as they are.

Examples:
  vynpkt pack envelope.json | vynpkt compress | vynpkt unpack
  vynpkt verify packets.dat || vynpkt recover packets.dat -o trusted.dat
  vynpkt unpack --body - packet.bin | vynpkt decode -t Telemetry
  vynpkt restamp HISTORY packet.bin | vynpkt append packets.dat)";

using Maker = CommandPtr (*)(CLI::App& program);

struct Group {
    const char* name;
    std::vector<Maker> makers;
};

Commands make_commands(CLI::App& program) {
    const Group groups[] = {
        {"Packets",
         {vynpkt::make_pack, vynpkt::make_unpack, vynpkt::make_compress, vynpkt::make_decompress}},
        {"Packet files",
         {vynpkt::make_show, vynpkt::make_append, vynpkt::make_verify, vynpkt::make_recover,
          vynpkt::make_diff}},
        {"Messages",
         {vynpkt::make_list, vynpkt::make_describe, vynpkt::make_encode, vynpkt::make_decode,
          vynpkt::make_types}},
        {"Others", {vynpkt::make_checksum, vynpkt::make_restamp}},
    };
    Commands commands;
    for (const Group& group : groups) {
        for (const Maker make : group.makers) {
            commands.push_back(make(program));
            program.get_subcommand(commands.back()->name())->group(group.name);
        }
    }
    return commands;
}

int exit_status(ExitCode code) { return static_cast<int>(code); }

// What is wrong with the first argument, which must name a command or ask for help; empty if
// nothing.
std::string why_no_command(const Arguments& arguments, const Commands& commands) {
    if (arguments.empty()) {
        return "no command given; see \"vynpkt --help\"";
    }
    const std::string& word = arguments.front();
    if (word == "-h" || word == "--help" || word == "--version") {
        return "";
    }
    if (word.substr(0, 1) == "-") {
        return word + ": the command comes first; see \"vynpkt --help\"";
    }
    std::vector<std::string> names;
    for (const CommandPtr& command : commands) {
        names.push_back(command->name());
    }
    if (std::find(names.begin(), names.end(), word) != names.end()) {
        return "";
    }
    const std::string meant = vynpkt::nearest(word, names);
    return word + ": no such command; " +
           (meant.empty() ? "see \"vynpkt --help\"" : "did you mean \"" + meant + "\"?");
}

// The command that the arguments name, or null.
Command* chosen(const Commands& commands) {
    for (const CommandPtr& command : commands) {
        if (command->chosen()) {
            return command.get();
        }
    }
    return nullptr;
}

void set_up_logging(bool verbose) {
    if (verbose) {
        // LOG_PERROR: syslog() writes the lines to standard error as well, even without a daemon.
        ::openlog("vynpkt", LOG_PERROR, LOG_USER);
    } else {
        update_log_level(LOG_LEVEL_NONE);
        google::protobuf::SetLogHandler(nullptr);
    }
}

int run(Command& command) {
    set_up_logging(command.verbose());
    try {
        return exit_status(command.run());
    } catch (const vynpkt::Failure& failure) {
        vynpkt::report(command.name(), failure.remark());
        return exit_status(failure.remark().exit);
    }
}

int wrong_arguments(const Command* command, const std::string& message) {
    const std::string name = command != nullptr ? command->name() : "";
    const std::string help = command != nullptr ? name + " --help" : "--help";
    vynpkt::report(name, {ExitCode::kUsage, {}, message + "; see \"vynpkt " + help + "\""});
    return exit_status(ExitCode::kUsage);
}

std::string why_refused(const Command* command, const CLI::ParseError& error) {
    return command != nullptr ? command->wrong_arguments(&error) : error.what();
}

// Looked up before the arguments are parsed: errors of parsing must come as JSON too.
bool wants_json(const Arguments& arguments) {
    const auto end = std::find(arguments.begin(), arguments.end(), "--");
    return std::find(arguments.begin(), end, "--json") != end;
}

// "help COMMAND" is another way to say "COMMAND --help".
void translate_help(Arguments& arguments) {
    if (!arguments.empty() && arguments.front() == "help") {
        arguments.erase(arguments.begin());
        arguments.emplace_back("--help");
    }
}

int run_program(Arguments arguments) {
    CLI::App program("Makes and reads the packets of the telematics unit.", "vynpkt");
    program.set_version_flag("--version",
                             "vynpkt " VYN_PROTO_VERSION " (protobuf " VYN_PROTO_PROTOBUF_VERSION
                             ", json-c " VYN_PROTO_JSON_C_VERSION ")");
    program.require_subcommand(1);
    program.footer(kNotes);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    const Commands commands = make_commands(program);

    if (wants_json(arguments)) {
        vynpkt::report_as_json();
    }
    translate_help(arguments);
    const std::string missing = why_no_command(arguments, commands);
    if (!missing.empty()) {
        vynpkt::report("", {ExitCode::kUsage, {}, missing});
        return exit_status(ExitCode::kUsage);
    }
    try {
        program.parse(Arguments(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        // CLI11 throws for --help and --version as well, with exit code 0.
        return error.get_exit_code() == 0
                   ? program.exit(error)
                   : wrong_arguments(chosen(commands), why_refused(chosen(commands), error));
    } catch (const vynpkt::Failure& failure) {
        return wrong_arguments(chosen(commands), failure.remark().text);
    }
    Command& command = *chosen(commands);
    const std::string wrong = command.wrong_arguments(nullptr);
    return wrong.empty() ? run(command) : wrong_arguments(&command, wrong);
}

}  // namespace

int main(int argc, char** argv) {
    vynpkt::occupy_standard_streams();
    vynpkt::end_cleanly_on_signals();
    try {
        return run_program(Arguments(argv + std::min(argc, 1), argv + argc));
    } catch (const std::exception& error) {  // such as memory that ran out
        vynpkt::report("", {ExitCode::kRefused, {}, error.what()});
        return exit_status(ExitCode::kRefused);
    }
}

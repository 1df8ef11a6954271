// The command vynpkt: packets and envelopes on the command line.
#include <google/protobuf/stubs/logging.h>
#include <syslog.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "io.h"
#include "logger.h"
#include "nearest.h"

namespace {

using vynpkt::Command;
using vynpkt::CommandPtr;
using vynpkt::ExitCode;
using Commands = std::vector<CommandPtr>;

constexpr char kNotes[] =
    R"(Each command reads a file or standard input ("-") and writes to standard output
or to -o FILE. "vynpkt COMMAND --help" tells more, with examples.

Exit codes: 0 done; 1 data refused; 2 wrong usage; 3 a file cannot be read or
written; 4 done, but something was lost. Numbers named "code" in messages are
the library's own.

Example:
  vynpkt pack envelope.json | vynpkt compress | vynpkt unpack)";

Commands make_commands(CLI::App& program) {
    Commands commands;
    for (const auto make :
         {vynpkt::make_pack, vynpkt::make_unpack, vynpkt::make_compress, vynpkt::make_decompress,
          vynpkt::make_checksum, vynpkt::make_restamp, vynpkt::make_encode, vynpkt::make_decode,
          vynpkt::make_list, vynpkt::make_describe, vynpkt::make_append, vynpkt::make_show,
          vynpkt::make_verify, vynpkt::make_recover}) {
        commands.push_back(make(program));
    }
    return commands;
}

int exit_status(ExitCode code) { return static_cast<int>(code); }

// Why the first argument is not where a run begins; empty when it is.
std::string why_no_command(int argc, char** argv, const Commands& commands) {
    if (argc < 2) {
        return "no command given; see \"vynpkt --help\"";
    }
    const std::string word = argv[1];
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
        // Whether or not there is a daemon, syslog copies what it gets to standard error.
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
        vynpkt::tell(command.name(), failure.what());
        return exit_status(failure.code());
    }
}

int usage_error(const std::string& message) {
    std::cerr << "vynpkt: " + message + "\n";
    return exit_status(ExitCode::kUsage);
}

int wrong_arguments(const Command* command, const std::string& message) {
    const std::string name = command != nullptr ? command->name() + ": " : "";
    const std::string help = command != nullptr ? command->name() + " --help" : "--help";
    return usage_error(name + message + "; see \"vynpkt " + help + "\"");
}

int run_program(int argc, char** argv) {
    CLI::App program("Makes and reads the packets of the telematics unit.", "vynpkt");
    program.set_version_flag("--version", "vynpkt " VYNPKT_VERSION);
    program.require_subcommand(1);
    program.footer(kNotes);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    const Commands commands = make_commands(program);

    if (argc == 2 && std::string_view(argv[1]) == "help") {
        std::cout << program.help();
        return exit_status(ExitCode::kDone);
    }
    const std::string missing = why_no_command(argc, argv, commands);
    if (!missing.empty()) {
        return usage_error(missing);
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Asking for help or the version arrives here too, as a success.
        return error.get_exit_code() == 0 ? program.exit(error)
                                          : wrong_arguments(chosen(commands), error.what());
    } catch (const vynpkt::Failure& failure) {
        return wrong_arguments(chosen(commands), failure.what());
    }
    return run(*chosen(commands));
}

}  // namespace

int main(int argc, char** argv) {
    vynpkt::occupy_standard_streams();
    vynpkt::end_cleanly_on_signals();
    try {
        return run_program(argc, argv);
    } catch (const std::exception& error) {  // such as memory that ran out
        std::cerr << "vynpkt: " << error.what() << "\n";
        return exit_status(ExitCode::kRefused);
    }
}

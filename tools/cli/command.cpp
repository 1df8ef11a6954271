#include "cli/command.h"

#include <CLI/CLI.hpp>

#include "cli/arguments.h"

namespace vynpkt {

Command::Command(CLI::App& program, const char* name, const char* description, const char* notes)
    : arguments_(*program.add_subcommand(name, description)) {
    arguments_.footer(notes);
    arguments_
        .add_option("-o,--output", output_, "Write to FILE, which appears whole or not at all")
        ->type_name("FILE");
    arguments_.add_flag("-v,--verbose", verbose_, "Show the library's log lines");
    arguments_.add_flag("--json", json_, "Report errors as JSON objects; see \"vynpkt --help\"");
}

std::string Command::name() const { return arguments_.get_name(); }

bool Command::chosen() const { return arguments_.parsed(); }

std::string Command::wrong_arguments(const CLI::ParseError* error) const {
    return error != nullptr ? why_refused(arguments_, *error) : wrong_value(arguments_);
}

void Command::add_input(std::string& path, const char* description) {
    arguments_.add_option("FILE", path, description)->type_name("");
}

void Command::describe_json(const char* description) {
    arguments_.get_option("--json")->description(description);
}

// As an ordinary list of arguments, CLI11 would read the name "[a,b]" as two names. It leaves names
// as they are for an option that expects more arguments than a run can have, and TakeAll lets such
// an option accept fewer.
void Command::add_inputs(std::vector<std::string>& paths, const char* name,
                         const char* description) {
    constexpr int kMany = CLI::detail::expected_max_vector_size - 1;
    arguments_.add_option(name, paths, description)
        ->type_name("")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(kMany, CLI::detail::expected_max_vector_size)
        ->allow_extra_args(false);
}

}  // namespace vynpkt

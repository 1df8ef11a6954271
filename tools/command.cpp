#include "command.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace vynpkt {

Command::Command(CLI::App& program, const char* name, const char* description, const char* notes)
    : arguments_(*program.add_subcommand(name, description)) {
    arguments_.group("Commands");
    arguments_.footer(notes);
    arguments_
        .add_option("-o,--output", output_, "Write to FILE, which appears whole or not at all")
        ->type_name("FILE");
    arguments_.add_flag("-v,--verbose", verbose_, "Show the library's log lines");
}

std::string Command::name() const { return arguments_.get_name(); }

bool Command::chosen() const { return arguments_.parsed(); }

void Command::add_input(std::string& path, const char* description) {
    arguments_.add_option("FILE", path, description)->type_name("");
}

void Command::tell(const std::string& message) const { vynpkt::tell(name(), message); }

void tell(const std::string& command, const std::string& message) {
    std::cerr << "vynpkt: " + command + ": " + message + "\n";
}

}  // namespace vynpkt

// types: checks a file of message types and prints what it says.
#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "io/output.h"
#include "schema/message_types.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Message types are numbers that services agree on. FILE tells which message each
one is: a line "NUMBER NAME" for each type, "#" in front of a comment. NUMBER is
the 14-bit type, without the encoding; NAME is one that "vynpkt list" prints, or
as much of its end as no other name has.

Checks such a FILE, or standard input without FILE or with "-", and prints it
sorted and with full names, in the same form. Other commands take the file with
--types FILE, or from the environment variable VYNPKT_TYPES.

Examples:
  vynpkt types types.txt
  vynpkt types --json types.txt | jq -r '.[] | select(.type == 21).name')";

std::string as_text(const MessageTypes::Table& table) {
    const std::size_t width =
        table.empty() ? 0 : std::to_string(table.rbegin()->first).size();  // of the largest number
    std::string text;
    for (const auto& [type, message] : table) {
        const std::string number = std::to_string(type);
        text += std::string(width - number.size(), ' ') + number + " " +
                std::string(message->full_name()) + "\n";
    }
    return text;
}

// No name in a schema has a character that JSON escapes.
std::string as_json(const MessageTypes::Table& table) {
    std::string text = "[";
    for (const auto& [type, message] : table) {
        text += (text.size() == 1 ? "\n" : ",\n");
        text += R"(  {"type": )" + std::to_string(type) + R"(, "name": ")" +
                std::string(message->full_name()) + R"("})";
    }
    return text + "\n]\n";
}

class Types : public Command {
public:
    explicit Types(CLI::App& program)
        : Command(program, "types", "Check a file of message types", kNotes) {
        add_input(input_, "The file of message types");
        describe_json("Print an array of objects with type and name; errors as objects, too");
    }

    ExitCode run() override {
        Output out(output());
        const MessageTypes types(input_);
        out.write(json() ? as_json(types.table()) : as_text(types.table()));
        out.commit();
        return ExitCode::kDone;
    }

private:
    std::string input_ = "-";
};

}  // namespace

CommandPtr make_types(CLI::App& program) { return std::make_unique<Types>(program); }

}  // namespace vynpkt

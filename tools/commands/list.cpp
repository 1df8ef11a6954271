// list: the messages that the library knows.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/command.h"
#include "io/output.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Prints the full name of each message on a line of its own, in the order of the
schema files. A message comes in front of those that are nested in it.

Examples:
  vynpkt list | grep -i ota
  vynpkt list --files
  vynpkt list --json | jq -r '.[] | select(.file == "trip.proto") | .name')";

std::string plain_list() {
    std::string text;
    for (const FileDescriptor* file : schema_files()) {
        for (const Descriptor* message : messages_of(*file)) {
            text += std::string(message->full_name()) + "\n";
        }
    }
    return text;
}

std::string list_by_file() {
    std::string text;
    for (const FileDescriptor* file : schema_files()) {
        text += std::string(file->name()) + "\n";
        for (const Descriptor* message : messages_of(*file)) {
            text += "  " + std::string(message->full_name()) + "\n";
        }
    }
    return text;
}

// No name in a schema has a character that JSON escapes.
std::string json_list() {
    std::string text;
    for (const FileDescriptor* file : schema_files()) {
        for (const Descriptor* message : messages_of(*file)) {
            text += (text.empty() ? "[\n" : ",\n");
            text += R"(  {"name": ")" + std::string(message->full_name()) + R"(", "file": ")" +
                    std::string(file->name()) + R"("})";
        }
    }
    return text + "\n]\n";
}

class List : public Command {
public:
    explicit List(CLI::App& program)
        : Command(program, "list", "List the messages that the library knows", kNotes) {
        arguments().add_flag("--files", files_, "Group them by schema file");
        describe_json("Print an array of objects with name and file; errors as objects, too");
    }

    ExitCode run() override {
        if (files_ && json()) {
            throw Failure(ExitCode::kUsage, "--files",
                          "does not go with --json, which names the files anyway");
        }
        Output out(output());
        if (json()) {
            out.write(json_list());
        } else {
            out.write(files_ ? list_by_file() : plain_list());
        }
        out.commit();
        return ExitCode::kDone;
    }

private:
    bool files_ = false;
};

}  // namespace

CommandPtr make_list(CLI::App& program) { return std::make_unique<List>(program); }

}  // namespace vynpkt

// describe: a message, an enum or a field as the schema has it.
#include <CLI/CLI.hpp>
#include <memory>
#include <variant>
#include <vector>

#include "cli/command.h"
#include "io/output.h"
#include "schema/catalogue.h"
#include "schema/example.h"
#include "schema/schema_text.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(NAME is the full name of a message, an enum or a field, or the last parts of it
when no other ends in them. Prints it as it stands in the schema, with the
comments there, below the name of its file.

-r goes on with the messages and enums that it uses, each once. --example prints
a JSON document that "vynpkt encode -t NAME" takes, in which each field is set
once, of a oneof the last one.

Examples:
  vynpkt describe Telemetry
  vynpkt describe -r TripData
  vynpkt describe --example Telemetry | vynpkt encode -t Telemetry -o body.bin
  vynpkt describe PacketStatus
  vynpkt describe EventMessage.Step.ecu_name)";

struct Index {
    std::vector<Definition> definitions;
    std::vector<std::string> names;

    void add(const Definition& definition) {
        definitions.push_back(definition);
        names.push_back(name_of(definition));
    }
    void add_enums_of(const FileDescriptor& file) {
        for (int i = 0; i < file.enum_type_count(); ++i) {
            add(file.enum_type(i));
        }
    }
    void add_enums_of(const Descriptor& message) {
        for (int i = 0; i < message.enum_type_count(); ++i) {
            add(message.enum_type(i));
        }
    }
    void add_fields_of(const Descriptor& message) {
        for (int i = 0; i < message.field_count(); ++i) {
            add(message.field(i));
        }
    }
};

Index messages_and_enums() {
    Index index;
    for (const FileDescriptor* file : schema_files()) {
        index.add_enums_of(*file);
        for (const Descriptor* message : messages_of(*file)) {
            index.add(message);
            index.add_enums_of(*message);
        }
    }
    return index;
}

Index fields() {
    Index index;
    for (const FileDescriptor* file : schema_files()) {
        for (const Descriptor* message : messages_of(*file)) {
            index.add_fields_of(*message);
        }
    }
    return index;
}

std::string description(const std::vector<Definition>& definitions) {
    const SchemaText schema;
    std::string text;
    for (const Definition& definition : definitions) {
        text += (text.empty() ? "" : "\n") + schema.of(definition);
    }
    return text;
}

class Describe : public Command {
public:
    explicit Describe(CLI::App& program)
        : Command(program, "describe", "Print a message, an enum or a field of the schema",
                  kNotes) {
        arguments()
            .add_option("NAME", name_, "The message, enum or field")
            ->type_name("")
            ->required();
        arguments().add_flag("-r,--recursive", recursive_,
                             "Also print the messages and enums that it uses");
        arguments().add_flag("--example", example_, "Print a JSON document of the message instead");
    }

    ExitCode run() override {
        if (example_ && recursive_) {
            throw Failure(ExitCode::kUsage, "--example",
                          "shows the messages inside anyway; leave out --recursive");
        }
        const Definition found = find();
        const std::string text =
            example_ ? example(found)
                     : description(recursive_ ? with_all_used(found) : std::vector{found});
        Output out(output());
        out.write(text);
        out.commit();
        return ExitCode::kDone;
    }

private:
    [[nodiscard]] std::string example(const Definition& definition) const {
        const auto* message = std::get_if<const Descriptor*>(&definition);
        if (message == nullptr) {
            throw Failure(ExitCode::kUsage, name_,
                          "no message; only messages have an example document");
        }
        return example_of(**message);
    }

    // Where a type and a field have the same name, the type is meant.
    [[nodiscard]] Definition find() const {
        const Index types = messages_and_enums();
        const std::vector<std::size_t> found = matches(types.names, name_);
        if (!found.empty()) {
            return the_one(types, found);
        }
        const Index members = fields();
        const std::vector<std::size_t> found_fields = matches(members.names, name_);
        if (!found_fields.empty()) {
            return the_one(members, found_fields);
        }
        std::vector<std::string> names = types.names;
        names.insert(names.end(), members.names.begin(), members.names.end());
        refuse_unknown(name_, "message, enum or field", names);
    }

    [[nodiscard]] Definition the_one(const Index& index,
                                     const std::vector<std::size_t>& found) const {
        if (found.size() > 1) {
            refuse_ambiguous(name_, index.names, found);
        }
        return index.definitions[found.front()];
    }

    std::string name_;
    bool recursive_ = false;
    bool example_ = false;
};

}  // namespace

CommandPtr make_describe(CLI::App& program) { return std::make_unique<Describe>(program); }

}  // namespace vynpkt

// describe: a message, an enum or a field as the schema has it.
#include <CLI/CLI.hpp>
#include <memory>
#include <variant>

#include "cli/command.h"
#include "io/catalogue.h"
#include "io/output.h"

namespace vynpkt {
namespace {

using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;

constexpr char kNotes[] =
    R"(NAME is the full name of a message, an enum or a field, or the last parts of it
when no other ends in them. Prints it as it stands in the schema, below the name
of its file.

Examples:
  vynpkt describe Telemetry
  vynpkt describe PacketStatus
  vynpkt describe EventMessage.Step.ecu_name)";

using Definition = std::variant<const Descriptor*, const EnumDescriptor*, const FieldDescriptor*>;

struct Index {
    std::vector<Definition> definitions;
    std::vector<std::string> names;

    void add(const Definition& definition) {
        definitions.push_back(definition);
        names.push_back(
            std::visit([](auto* what) { return std::string(what->full_name()); }, definition));
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

std::string description(const Definition& definition) {
    return std::visit(
        [](auto* what) {
            return "// " + std::string(what->file()->name()) + "\n" + what->DebugString();
        },
        definition);
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
    }

    ExitCode run() override {
        const std::string text = description(find());
        Output out(output());
        out.write(text);
        out.commit();
        return ExitCode::kDone;
    }

private:
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
};

}  // namespace

CommandPtr make_describe(CLI::App& program) { return std::make_unique<Describe>(program); }

}  // namespace vynpkt

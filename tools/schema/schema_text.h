// Messages, enums and fields as they stand in the schema files, with the comments there.
#ifndef VYN_TOOLS_SCHEMA_SCHEMA_TEXT_H
#define VYN_TOOLS_SCHEMA_SCHEMA_TEXT_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <variant>
#include <vector>

namespace vynpkt {

using Definition =
    std::variant<const google::protobuf::Descriptor*, const google::protobuf::EnumDescriptor*,
                 const google::protobuf::FieldDescriptor*>;

[[nodiscard]] std::string name_of(const Definition& definition);

// This definition, and the messages and enums that it uses, each once, in the order of their first
// use. Leaves out those of protobuf itself, and those that stand inside of another one.
[[nodiscard]] std::vector<Definition> with_all_used(const Definition& definition);

class SchemaText {
public:
    // Reads the embedded descriptor set.
    SchemaText();

    // The definition below the name of its file. Its own comment stands behind its first line, a
    // comment of one line beside what it is about.
    [[nodiscard]] std::string of(const Definition& definition) const;

private:
    google::protobuf::DescriptorPool pool_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_SCHEMA_SCHEMA_TEXT_H

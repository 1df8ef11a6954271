// A document of a message that shows how its JSON looks.
#ifndef VYN_TOOLS_SCHEMA_EXAMPLE_H
#define VYN_TOOLS_SCHEMA_EXAMPLE_H

#include <google/protobuf/descriptor.h>

#include <string>

namespace vynpkt {

// JSON of the message with each field set: repeated ones to one element, of a oneof the last
// field. Values are made up of the names and kinds of the fields.
[[nodiscard]] std::string example_of(const google::protobuf::Descriptor& type);

}  // namespace vynpkt

#endif  // VYN_TOOLS_SCHEMA_EXAMPLE_H

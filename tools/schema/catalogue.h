// The messages of the library's schema files, found by name, and their JSON.
#ifndef VYN_TOOLS_SCHEMA_CATALOGUE_H
#define VYN_TOOLS_SCHEMA_CATALOGUE_H

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "cli/report.h"

namespace vynpkt {

using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;

// In the order in which the library registers them.
[[nodiscard]] std::vector<const FileDescriptor*> schema_files();

// All messages of a file, each in front of those that are nested in it. Leaves out the messages
// that protobuf makes for the entries of maps.
[[nodiscard]] std::vector<const Descriptor*> messages_of(const FileDescriptor& file);

// Indices of the names that a word may stand for: the name that equals it or, if none does, all
// names that end in a dot and the word.
[[nodiscard]] std::vector<std::size_t> matches(const std::vector<std::string>& names,
                                               const std::string& word);

// Throw a usage error for a word that stands for no name, or for several.
[[noreturn]] void refuse_unknown(const std::string& word, const std::string& what,
                                 const std::vector<std::string>& names);
[[noreturn]] void refuse_ambiguous(const std::string& word, const std::vector<std::string>& names,
                                   const std::vector<std::size_t>& meant);

// Finds a message by its full name or the last parts of it. Throws a usage error when there is
// none.
[[nodiscard]] const Descriptor& find_message(const std::string& name);

// Such as google.protobuf.UInt64Value: in JSON it is the value of its one field.
[[nodiscard]] bool is_wrapper(const Descriptor& type);

[[nodiscard]] std::unique_ptr<google::protobuf::Message> new_message(const Descriptor& type);

// Gives the same bytes in every run: protobuf itself writes the entries of maps in any order.
[[nodiscard]] bool serialize(const google::protobuf::Message& message, std::string& bytes);

struct Converted {
    std::string data;
    std::string loss;  // says what the data lacks; empty when it is complete
};

// Refuse data that does not fit the type. The place names the input in messages. A key that is
// skipped may be a misspelling of one of the other keys, too.
[[nodiscard]] Converted encode(const Descriptor& type, const std::string& json, const Place& place,
                               const std::vector<std::string>& other_keys = {});
[[nodiscard]] Converted decode(const Descriptor& type, const std::string& bytes,
                               const Place& place);

}  // namespace vynpkt

#endif  // VYN_TOOLS_SCHEMA_CATALOGUE_H

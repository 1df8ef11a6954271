// The messages of the library's schema files, found by name, and their JSON.
#ifndef VYN_TOOLS_CATALOGUE_H
#define VYN_TOOLS_CATALOGUE_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "report.h"

namespace vynpkt {

using google::protobuf::Descriptor;
using google::protobuf::FileDescriptor;

// In the order in which the library registers them.
[[nodiscard]] std::vector<const FileDescriptor*> schema_files();

// Each message in front of those that are nested in it. The entry of a map is none: it comes as
// a field of the message around it.
[[nodiscard]] std::vector<const Descriptor*> messages_of(const FileDescriptor& file);

// The names that a word may stand for: the one that it is in full or, failing that, all that end
// in it behind a dot. As indices.
[[nodiscard]] std::vector<std::size_t> matches(const std::vector<std::string>& names,
                                               const std::string& word);

// Usage errors, for a word that stands for none of the names or for several.
[[noreturn]] void refuse_unknown(const std::string& word, const std::string& what,
                                 const std::vector<std::string>& names);
[[noreturn]] void refuse_ambiguous(const std::string& word, const std::vector<std::string>& names,
                                   const std::vector<std::size_t>& meant);

// A message by its full name or the last parts of it; without one, a usage error.
[[nodiscard]] const Descriptor& find_message(const std::string& name);

struct Converted {
    std::string data;
    std::string loss;  // what it lacks, in words; empty when whole
};

// Place is what messages call the input. Data that is none of the type is refused.
[[nodiscard]] Converted encode(const Descriptor& type, const std::string& json, const Place& place);
[[nodiscard]] Converted decode(const Descriptor& type, const std::string& bytes,
                               const Place& place);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CATALOGUE_H

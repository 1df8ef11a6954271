// Why JSON does not become a message, or not wholly: the explanation of what protobuf refuses or skips.
#ifndef VYN_TOOLS_JSON_JSON_FAULTS_H
#define VYN_TOOLS_JSON_JSON_FAULTS_H

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace vynpkt {

using google::protobuf::Descriptor;

// For JSON that protobuf refuses as this message: where it is no JSON, or which value has the wrong
// type, and which it should have.
[[nodiscard]] std::string why_refused(const Descriptor& type, const std::string& json);

// For JSON of which protobuf skips something: the keys that the message does not know, each with the
// one that was probably meant, and the enum values. Empty when they are not found. The other keys
// are known, too.
[[nodiscard]] std::string what_is_skipped(const Descriptor& type, const std::string& json,
                                          const std::vector<std::string>& other_keys = {});

// `"vim" (did you mean "vin"?)`: a path whose last part is a key, or another word, that is none of the
// names.
[[nodiscard]] std::string unknown_word(const std::string& path, const std::string& word,
                                       const std::vector<std::string>& names);
// The first of these and how many more there are.
[[nodiscard]] std::string listed(const std::vector<std::string>& items);

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_JSON_FAULTS_H

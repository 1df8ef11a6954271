#include "schema/catalogue.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>

#include <climits>
#include <memory>
#include <sstream>

#include "cli/nearest.h"
#include "io/input.h"
#include "json/json_faults.h"
#include "proto_helper.h"

namespace vynpkt {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::util::JsonParseOptions;
using google::protobuf::util::JsonStringToMessage;

// Recursion goes no deeper than our own schemas nest messages.
// NOLINTNEXTLINE(misc-no-recursion)
void collect(const Descriptor& message, std::vector<const Descriptor*>& all) {
    if (message.options().map_entry()) {
        return;
    }
    all.push_back(&message);
    for (int i = 0; i < message.nested_type_count(); ++i) {
        collect(*message.nested_type(i), all);
    }
}

std::string last_part(const std::string& name) { return name.substr(name.rfind('.') + 1); }

bool ends_in(const std::string& name, const std::string& word) {
    return name.size() > word.size() && name[name.size() - word.size() - 1] == '.' &&
           name.compare(name.size() - word.size(), word.size(), word) == 0;
}

bool parse(const std::string& bytes, Message& message) {
    static_assert(kMaxInMemory <= INT_MAX, "the parser takes an int");
    return message.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace

std::vector<const FileDescriptor*> schema_files() {
    std::vector<const FileDescriptor*> files;
    std::istringstream names(VYNPKT_SCHEMAS);
    for (std::string name; std::getline(names, name, ',');) {
        const FileDescriptor* file =
            DescriptorPool::generated_pool()->FindFileByName(name + ".proto");
        if (file != nullptr) {
            files.push_back(file);
        }
    }
    return files;
}

std::vector<const Descriptor*> messages_of(const FileDescriptor& file) {
    std::vector<const Descriptor*> messages;
    for (int i = 0; i < file.message_type_count(); ++i) {
        collect(*file.message_type(i), messages);
    }
    return messages;
}

std::vector<std::size_t> matches(const std::vector<std::string>& names, const std::string& word) {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == word) {
            return {i};
        }
        if (ends_in(names[i], word)) {
            found.push_back(i);
        }
    }
    return found;
}

void refuse_unknown(const std::string& word, const std::string& what,
                    const std::vector<std::string>& names) {
    std::vector<std::string> spellings = names;
    for (const std::string& name : names) {
        if (matches(names, last_part(name)).size() == 1) {
            spellings.push_back(last_part(name));
        }
    }
    const std::string meant = nearest(word, spellings);
    throw Failure(ExitCode::kUsage, word,
                  "no such " + what + "; " +
                      (meant.empty() ? "see \"vynpkt list\"" : "did you mean \"" + meant + "\"?"));
}

void refuse_ambiguous(const std::string& word, const std::vector<std::string>& names,
                      const std::vector<std::size_t>& meant) {
    constexpr std::size_t kShown = 3;
    std::string list;
    for (std::size_t i = 0; i < meant.size() && i < kShown; ++i) {
        list += (i > 0 ? ", " : "") + names[meant[i]];
    }
    throw Failure(ExitCode::kUsage, word,
                  std::to_string(meant.size()) + " have that name: " + list +
                      (meant.size() > kShown ? ", ..." : ""));
}

const Descriptor& find_message(const std::string& name) {
    std::vector<const Descriptor*> messages;
    std::vector<std::string> names;
    for (const FileDescriptor* file : schema_files()) {
        for (const Descriptor* message : messages_of(*file)) {
            messages.push_back(message);
            names.emplace_back(message->full_name());
        }
    }
    const std::vector<std::size_t> found = matches(names, name);
    if (found.empty()) {
        refuse_unknown(name, "message", names);
    }
    if (found.size() > 1) {
        refuse_ambiguous(name, names, found);
    }
    return *messages[found.front()];
}

bool is_wrapper(const Descriptor& type) {
    return type.file()->name() == "google/protobuf/wrappers.proto";
}

std::unique_ptr<Message> new_message(const Descriptor& type) {
    return std::unique_ptr<Message>(
        MessageFactory::generated_factory()->GetPrototype(&type)->New());
}

bool serialize(const Message& message, std::string& bytes) {
    bytes.clear();
    google::protobuf::io::StringOutputStream stream(&bytes);
    google::protobuf::io::CodedOutputStream coded(&stream);
    coded.SetSerializationDeterministic(true);
    return message.SerializeToCodedStream(&coded);
}

Converted encode(const Descriptor& type, const std::string& json, const Place& place,
                 const std::vector<std::string>& other_keys) {
    const std::unique_ptr<Message> message = new_message(type);
    const std::string& name = type.full_name();
    Converted converted;
    // JsonToProto() skips keys that the type does not have, and does not tell.
    const bool whole = JsonStringToMessage(json, message.get(), JsonParseOptions()).ok();
    // The bytes are parsed again: some releases of protobuf write a text that is not UTF-8, which
    // no receiver could read.
    if ((!whole && !JsonToProto(json, *message)) || !serialize(*message, converted.data) ||
        !parse(converted.data, *message)) {
        throw Failure(ExitCode::kRefused, place,
                      "not JSON of " + name + ": " + why_refused(type, json));
    }
    if (!whole) {
        const std::string skipped = what_is_skipped(type, json, other_keys);
        converted.loss =
            "skipped what " + name + " does not know" + (skipped.empty() ? "" : ": " + skipped);
    }
    return converted;
}

Converted decode(const Descriptor& type, const std::string& bytes, const Place& place) {
    const std::unique_ptr<Message> message = new_message(type);
    const std::string& name = type.full_name();
    Converted converted;
    if (!parse(bytes, *message) || !ProtoToJson(converted.data, *message)) {
        throw Failure(ExitCode::kRefused, place, "not a valid " + name);
    }
    const std::size_t size = message->ByteSizeLong();
    message->DiscardUnknownFields();
    if (message->ByteSizeLong() != size) {
        converted.loss = "left out fields that " + name + " does not know";
    }
    return converted;
}

}  // namespace vynpkt

#include "schema/schema_text.h"

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "schema/descriptor_set.h"

namespace vynpkt {
namespace {

using google::protobuf::DebugStringOptions;
using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::DescriptorProto;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;
using google::protobuf::SourceCodeInfo;

// Marks a comment that stands beside what it is about. No schema has this character.
constexpr char kBeside = '\1';
constexpr std::string_view kBesideLine = "// \1";

// The lines of a comment without the blanks around them.
std::string trimmed_lines(const std::string& comment) {
    std::istringstream lines(comment);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t begin = line.find_first_not_of(" \t\r");
        if (begin != std::string::npos) {
            text += line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin) + "\n";
        }
    }
    return text;
}

// protobuf prints a comment that stands beside a field below it, where it seems to be about the
// next one. So all are put in front, and those of one line are marked.
void put_comments_in_front(SourceCodeInfo& info) {
    for (SourceCodeInfo::Location& location : *info.mutable_location()) {
        std::string comment = trimmed_lines(location.leading_comments());
        const std::string beside = trimmed_lines(location.trailing_comments());
        if (std::count(beside.begin(), beside.end(), '\n') == 1) {
            comment += kBeside;
        }
        location.set_leading_comments(comment + beside);
        location.clear_trailing_comments();
        location.clear_leading_detached_comments();
    }
}

// protoc writes down the name that each field has in camel case, and then it is printed.
void forget_json_names(FileDescriptorProto& file) {
    std::vector<DescriptorProto*> messages;
    for (DescriptorProto& message : *file.mutable_message_type()) {
        messages.push_back(&message);
    }
    for (std::size_t next = 0; next < messages.size(); ++next) {
        for (auto& field : *messages[next]->mutable_field()) {
            field.clear_json_name();
        }
        for (DescriptorProto& inner : *messages[next]->mutable_nested_type()) {
            messages.push_back(&inner);
        }
    }
}

// The definition in the pool that has the comments.
const Descriptor* in_pool(const DescriptorPool& pool, const Descriptor& message) {
    return pool.FindMessageTypeByName(message.full_name());
}
const EnumDescriptor* in_pool(const DescriptorPool& pool, const EnumDescriptor& values) {
    return pool.FindEnumTypeByName(values.full_name());
}
const FieldDescriptor* in_pool(const DescriptorPool& pool, const FieldDescriptor& field) {
    return pool.FindFieldByName(field.full_name());
}

bool begins_with(const std::string& line, std::string_view start) {
    return line.compare(0, start.size(), start) == 0;
}

// Puts the definition's own comment, with which the text begins, behind its first line.
std::string with_comment_inside(const std::string& text) {
    std::istringstream lines(text);
    std::string comment;
    std::string line;
    while (std::getline(lines, line) && begins_with(line, "//") &&
           !begins_with(line, kBesideLine)) {
        comment += "  " + line + "\n";
    }
    if (comment.empty() || line.back() != '{') {
        return text;
    }
    return line + "\n" + comment + "\n" + text.substr(static_cast<std::size_t>(lines.tellg()));
}

// Puts the marked comments beside what follows them.
std::string with_comments_beside(const std::string& text) {
    std::istringstream lines(text);
    std::string result;
    std::string beside;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t mark = line.find(kBeside);
        if (mark != std::string::npos) {
            beside = "  // " + line.substr(mark + 1);
            continue;
        }
        result += line + beside + "\n";
        beside.clear();
    }
    return result;
}

// Whether the definition is printed as a part of one of these.
bool is_inside(const Descriptor* outer, const std::vector<Definition>& all) {
    for (; outer != nullptr; outer = outer->containing_type()) {
        if (std::find(all.begin(), all.end(), Definition(outer)) != all.end()) {
            return true;
        }
    }
    return false;
}

template <typename Type>
void add_once(const Type* type, std::vector<Definition>& all) {
    if (std::find(all.begin(), all.end(), Definition(type)) == all.end() &&
        !is_inside(type->containing_type(), all) && type->file()->package() != "google.protobuf") {
        all.emplace_back(type);
    }
}

void add_type_of(const FieldDescriptor& field, std::vector<Definition>& all) {
    if (field.message_type() != nullptr) {
        add_once(field.message_type(), all);
    } else if (field.enum_type() != nullptr) {
        add_once(field.enum_type(), all);
    }
}

// Those of the fields of a message and of the messages in it.
void add_types_of(const Descriptor& message, std::vector<Definition>& all) {
    std::vector<const Descriptor*> inner{&message};
    for (std::size_t next = 0; next < inner.size(); ++next) {
        for (int i = 0; i < inner[next]->nested_type_count(); ++i) {
            inner.push_back(inner[next]->nested_type(i));
        }
        for (int i = 0; i < inner[next]->field_count(); ++i) {
            add_type_of(*inner[next]->field(i), all);
        }
    }
}

}  // namespace

std::string name_of(const Definition& definition) {
    return std::visit([](auto* what) { return std::string(what->full_name()); }, definition);
}

std::vector<Definition> with_all_used(const Definition& definition) {
    std::vector<Definition> all{definition};
    for (std::size_t next = 0; next < all.size(); ++next) {
        const Definition current = all[next];
        if (const auto* message = std::get_if<const Descriptor*>(&current)) {
            add_types_of(**message, all);
        } else if (const auto* field = std::get_if<const FieldDescriptor*>(&current)) {
            add_type_of(**field, all);
        }
    }
    return all;
}

SchemaText::SchemaText() {
    FileDescriptorSet set;
    if (!set.ParseFromArray(kDescriptorSet, static_cast<int>(kDescriptorSetSize))) {
        throw std::logic_error("the embedded schemas cannot be read");
    }
    for (FileDescriptorProto& file : *set.mutable_file()) {
        forget_json_names(file);
        put_comments_in_front(*file.mutable_source_code_info());
        if (pool_.BuildFile(file) == nullptr) {
            throw std::logic_error("the embedded schemas do not fit together");
        }
    }
}

std::string SchemaText::of(const Definition& definition) const {
    DebugStringOptions options;
    options.include_comments = true;
    return std::visit(
        [&](auto* what) {
            const std::string text = in_pool(pool_, *what)->DebugStringWithOptions(options);
            return "// " + std::string(what->file()->name()) + "\n" +
                   with_comments_beside(with_comment_inside(text));
        },
        definition);
}

}  // namespace vynpkt

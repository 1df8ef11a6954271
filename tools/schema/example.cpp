#include "schema/example.h"

#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include "schema/catalogue.h"

namespace vynpkt {
namespace {

using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

constexpr double kNumber = 1.5;
constexpr int64_t kMilliseconds = 1700000000000;

int64_t whole_number(const FieldDescriptor& field) {
    const bool is_time = std::string(field.name()).find("time") != std::string::npos;
    return is_time ? kMilliseconds : 1;
}

// The first that is not 0, which JSON leaves out.
const EnumValueDescriptor* some_value(const FieldDescriptor& field) {
    const auto& values = *field.enum_type();
    return values.value(std::min(1, values.value_count() - 1));
}

// Sets a field that is no message, or adds an element to it.
void set_value(Message& message, const FieldDescriptor& field) {
    const Reflection& values = *message.GetReflection();
    const auto put = [&](auto set, auto add, auto value) {
        field.is_repeated() ? (values.*add)(&message, &field, value)
                            : (values.*set)(&message, &field, value);
    };
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return put(&Reflection::SetInt32, &Reflection::AddInt32, 1);
        case FieldDescriptor::CPPTYPE_UINT32:
            return put(&Reflection::SetUInt32, &Reflection::AddUInt32, uint32_t{1});
        case FieldDescriptor::CPPTYPE_INT64:
            return put(&Reflection::SetInt64, &Reflection::AddInt64, whole_number(field));
        case FieldDescriptor::CPPTYPE_UINT64:
            return put(&Reflection::SetUInt64, &Reflection::AddUInt64,
                       static_cast<uint64_t>(whole_number(field)));
        case FieldDescriptor::CPPTYPE_FLOAT:
            return put(&Reflection::SetFloat, &Reflection::AddFloat, static_cast<float>(kNumber));
        case FieldDescriptor::CPPTYPE_DOUBLE:
            return put(&Reflection::SetDouble, &Reflection::AddDouble, kNumber);
        case FieldDescriptor::CPPTYPE_BOOL:
            return put(&Reflection::SetBool, &Reflection::AddBool, true);
        case FieldDescriptor::CPPTYPE_ENUM:
            return put(&Reflection::SetEnum, &Reflection::AddEnum, some_value(field));
        case FieldDescriptor::CPPTYPE_STRING:
            return put(&Reflection::SetString, &Reflection::AddString, std::string(field.name()));
        case FieldDescriptor::CPPTYPE_MESSAGE:
            break;
    }
}

// Open are the messages around this one: a message that uses itself is not set in it again.
// Recursion goes no deeper than our own schemas nest messages.
// NOLINTNEXTLINE(misc-no-recursion)
void fill(Message& message, std::vector<const Descriptor*>& open) {
    const Descriptor& type = *message.GetDescriptor();
    const Reflection& values = *message.GetReflection();
    open.push_back(&type);
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor& field = *type.field(i);
        if (std::find(open.begin(), open.end(), field.message_type()) != open.end()) {
            continue;
        }
        if (field.cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
            set_value(message, field);
        } else {
            fill(field.is_repeated() ? *values.AddMessage(&message, &field)
                                     : *values.MutableMessage(&message, &field),
                 open);
        }
    }
    open.pop_back();
}

}  // namespace

std::string example_of(const Descriptor& type) {
    const std::unique_ptr<Message> message = new_message(type);
    std::vector<const Descriptor*> open;
    fill(*message, open);
    google::protobuf::util::JsonPrintOptions options;
    options.add_whitespace = true;
    options.preserve_proto_field_names = true;
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(*message, &json, options).ok()) {
        throw std::logic_error("an example that is no JSON");
    }
    return json;
}

}  // namespace vynpkt

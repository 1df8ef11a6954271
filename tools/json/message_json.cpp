#include "json/message_json.h"

#include <charconv>
#include <cmath>
#include <set>
#include <utility>

#include "schema/catalogue.h"
#include "utils/json_text.h"
#include "vynutils.h"

namespace vynpkt {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

void append_key(std::string& out, std::string_view key) {
    out += '"';
    out += key;
    out += "\":";
}

// JSON has no numbers for these.
template <typename Real>
void append_real(std::string& out, Real number) {
    if (std::isfinite(number)) {
        append_number(out, number);
    } else if (std::isnan(number)) {
        out += "\"NaN\"";
    } else {
        out += number > 0 ? "\"Infinity\"" : "\"-Infinity\"";
    }
}

// Many readers of JSON keep no more than 53 bits of a number.
template <typename Number>
void append_quoted(std::string& out, Number number) {
    out += '"';
    append_number(out, number);
    out += '"';
}

void append_enum(std::string& out, const FieldDescriptor& field, int number, bool by_name) {
    const EnumValueDescriptor* value =
        by_name ? field.enum_type()->FindValueByNumber(number) : nullptr;
    if (value == nullptr) {
        append_number(out, number);
    } else {
        append_text(out, value->name());
    }
}

// Writes the values of one field.
class ValueWriter {
public:
    ValueWriter(std::string& out, const Message& message, const FieldDescriptor& field, int index,
                bool enum_names)
        : out_(out),
          message_(message),
          field_(field),
          reflection_(*message.GetReflection()),
          index_(index),
          enum_names_(enum_names) {}

    // Recursion goes no deeper than protobuf's parser lets messages nest.
    // NOLINTNEXTLINE(misc-no-recursion)
    void write() {
        switch (field_.cpp_type()) {
            case FieldDescriptor::CPPTYPE_INT32:
                return append_number(out_,
                                     get(&Reflection::GetInt32, &Reflection::GetRepeatedInt32));
            case FieldDescriptor::CPPTYPE_UINT32:
                return append_number(out_,
                                     get(&Reflection::GetUInt32, &Reflection::GetRepeatedUInt32));
            case FieldDescriptor::CPPTYPE_INT64:
                return append_quoted(
                    out_, int64_t{get(&Reflection::GetInt64, &Reflection::GetRepeatedInt64)});
            case FieldDescriptor::CPPTYPE_UINT64:
                return append_quoted(
                    out_, uint64_t{get(&Reflection::GetUInt64, &Reflection::GetRepeatedUInt64)});
            case FieldDescriptor::CPPTYPE_DOUBLE:
                return append_real(out_,
                                   get(&Reflection::GetDouble, &Reflection::GetRepeatedDouble));
            case FieldDescriptor::CPPTYPE_FLOAT:
                return append_real(out_, get(&Reflection::GetFloat, &Reflection::GetRepeatedFloat));
            case FieldDescriptor::CPPTYPE_BOOL:
                out_ += get(&Reflection::GetBool, &Reflection::GetRepeatedBool) ? "true" : "false";
                return;
            case FieldDescriptor::CPPTYPE_ENUM:
                return append_enum(
                    out_, field_, get(&Reflection::GetEnumValue, &Reflection::GetRepeatedEnumValue),
                    enum_names_);
            case FieldDescriptor::CPPTYPE_STRING:
                return write_text();
            case FieldDescriptor::CPPTYPE_MESSAGE:
                return append_message(out_, nested(), {enum_names_});
        }
    }

private:
    template <typename Value>
    [[nodiscard]] Value get(Value (Reflection::*one)(const Message&, const FieldDescriptor*) const,
                            Value (Reflection::*of_many)(const Message&, const FieldDescriptor*,
                                                         int) const) const {
        return index_ < 0 ? (reflection_.*one)(message_, &field_)
                          : (reflection_.*of_many)(message_, &field_, index_);
    }

    void write_text() {
        std::string room;
        const std::string& text =
            index_ < 0 ? reflection_.GetStringReference(message_, &field_, &room)
                       : reflection_.GetRepeatedStringReference(message_, &field_, index_, &room);
        if (field_.type() == FieldDescriptor::TYPE_BYTES) {
            append_base64(out_, text);
        } else {
            append_text(out_, text);
        }
    }

    [[nodiscard]] const Message& nested() const {
        return index_ < 0 ? reflection_.GetMessage(message_, &field_)
                          : reflection_.GetRepeatedMessage(message_, &field_, index_);
    }

    std::string& out_;
    const Message& message_;
    const FieldDescriptor& field_;
    const Reflection& reflection_;
    int index_;
    bool enum_names_;
};

// Keys of a map are texts in JSON, whatever their type.
// NOLINTNEXTLINE(misc-no-recursion)
void append_entry(std::string& out, const Message& entry, bool enum_names) {
    const Descriptor& type = *entry.GetDescriptor();
    std::string key;
    append_value(key, entry, *type.FindFieldByNumber(1), -1, enum_names);
    out += key.front() == '"' ? key : '"' + key + '"';
    out += ':';
    append_value(out, entry, *type.FindFieldByNumber(2), -1, enum_names);
}

// By their keys, since protobuf keeps the entries in an order that differs from run to run.
// NOLINTNEXTLINE(misc-no-recursion)
void append_map(std::string& out, const Message& message, const FieldDescriptor& field,
                bool enum_names) {
    const Reflection& reflection = *message.GetReflection();
    std::set<std::string> entries;
    for (int i = 0; i < reflection.FieldSize(message, &field); ++i) {
        std::string entry;
        append_entry(entry, reflection.GetRepeatedMessage(message, &field, i), enum_names);
        entries.insert(std::move(entry));
    }
    out += '{';
    for (const std::string& entry : entries) {
        out += (out.back() == '{' ? "" : ",") + entry;
    }
    out += '}';
}

// NOLINTNEXTLINE(misc-no-recursion)
void append_repeated(std::string& out, const Message& message, const FieldDescriptor& field,
                     bool enum_names) {
    const Reflection& reflection = *message.GetReflection();
    const int size = reflection.FieldSize(message, &field);
    out += '[';
    for (int i = 0; i < size; ++i) {
        if (i > 0) {
            out += ',';
        }
        append_value(out, message, field, i, enum_names);
    }
    out += ']';
}

// Messages that are not there, and all but one of a oneof, are no fields at their default.
bool is_printed(const Message& message, const FieldDescriptor& field) {
    const bool can_be_absent =
        field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE || field.containing_oneof() != nullptr;
    return field.is_repeated() || !can_be_absent ||
           message.GetReflection()->HasField(message, &field);
}

}  // namespace

template <typename Number>
void append_number(std::string& out, Number number) {
    constexpr std::size_t kLongest = 32;
    char text[kLongest];
    const auto result = std::to_chars(text, text + sizeof text, number);
    out.append(text, result.ptr);
}

template void append_number(std::string& out, int32_t number);
template void append_number(std::string& out, uint32_t number);
template void append_number(std::string& out, int64_t number);
template void append_number(std::string& out, uint64_t number);

void append_text(std::string& out, std::string_view text) {
    const std::size_t begin = out.size();
    out.resize(begin + vyn::escaped_length(text) + 2);
    char* end = &out[begin];
    *end++ = '"';
    end = vyn::write_escaped(end, text);
    *end = '"';
}

void append_base64(std::string& out, std::string_view bytes) {
    const std::size_t begin = out.size();
    const std::size_t length = (bytes.size() + 2) / 3 * 4;
    out.resize(begin + length + 3);
    out[begin] = '"';
    // The encoder ends its text with a NUL, in place of which the quote comes.
    if (base64_encode(reinterpret_cast<const uint8_t*>(bytes.data()),
                      static_cast<uint32_t>(bytes.size()), &out[begin + 1],
                      static_cast<uint32_t>(length + 1)) != 0) {
        throw std::bad_alloc();
    }
    out.resize(begin + length + 2);
    out.back() = '"';
}

// NOLINTNEXTLINE(misc-no-recursion)
void append_value(std::string& out, const Message& message, const FieldDescriptor& field, int index,
                  bool enum_names) {
    ValueWriter(out, message, field, index, enum_names).write();
}

// NOLINTNEXTLINE(misc-no-recursion)
void append_message(std::string& out, const Message& message, const MessageStyle& style) {
    const Descriptor& type = *message.GetDescriptor();
    if (is_wrapper(type)) {
        return append_value(out, message, *type.field(0), -1, style.enum_names);
    }
    out += '{';
    const std::size_t begin = out.size();
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor& field = *type.field(i);
        if (&field == style.left_out || !is_printed(message, field)) {
            continue;
        }
        if (out.size() > begin) {
            out += ',';
        }
        append_key(out, field.name());
        if (field.is_map()) {
            append_map(out, message, field, style.enum_names);
        } else if (field.is_repeated()) {
            append_repeated(out, message, field, style.enum_names);
        } else {
            append_value(out, message, field, -1, style.enum_names);
        }
    }
    out += '}';
}

}  // namespace vynpkt

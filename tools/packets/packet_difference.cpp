#include "packets/packet_difference.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/unknown_field_set.h>
#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/message_differencer.h>

#include "json/message_json.h"
#include "packets/packet_keys.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

using google::protobuf::UnknownField;
using google::protobuf::util::DefaultFieldComparator;
using google::protobuf::util::MessageDifferencer;

// The wrapper stands for its one field, as in JSON, and the key of a map for its value.
bool is_silent(const FieldDescriptor& field) {
    const Descriptor& type = *field.containing_type();
    return is_wrapper(type) || type.options().map_entry();
}

bool is_of_envelope(const FieldDescriptor& field) {
    return field.containing_type()->file() == Header::descriptor()->file();
}

// What can be told without the schema.
std::string json_of(const UnknownField& field) {
    std::string json;
    switch (field.type()) {
        case UnknownField::TYPE_VARINT:
            return std::to_string(field.varint());
        case UnknownField::TYPE_FIXED32:
            return std::to_string(field.fixed32());
        case UnknownField::TYPE_FIXED64:
            return std::to_string(field.fixed64());
        case UnknownField::TYPE_LENGTH_DELIMITED:
            append_base64(json, field.length_delimited());
            return json;
        default:
            return "{}";
    }
}

// Takes down what protobuf finds when it compares two messages.
class Notes : public MessageDifferencer::Reporter {
public:
    using Path = std::vector<MessageDifferencer::SpecificField>;

    Notes(const Message& a, const Message& b, bool enum_names, std::vector<FieldDifference>& found)
        : a_(a), b_(b), enum_names_(enum_names), found_(found) {}

    void ReportAdded(const Message& a, const Message& b, const Path& path) override {
        take_down(name_of(path, false), default_of(a, path), value_of(b, path, false));
    }
    void ReportDeleted(const Message& a, const Message& b, const Path& path) override {
        take_down(name_of(path, true), value_of(a, path, true), default_of(b, path));
    }
    void ReportModified(const Message& a, const Message& b, const Path& path) override {
        const FieldDescriptor* field = path.back().field;
        // Of messages, the fields that differ were told before.
        if (field == nullptr || field->message_type() == nullptr) {
            take_down(name_of(path, true), value_of(a, path, true), value_of(b, path, false));
        }
    }
    void ReportMoved(const Message&, const Message&, const Path&) override {}

private:
    using Text = std::optional<std::string>;

    void take_down(const std::string& name, const Text& a, const Text& b) {
        found_.push_back({name, a, b});
    }

    // As keys of packets are: an entry of a map is named by its key.
    [[nodiscard]] std::string name_of(const Path& path, bool in_a) const {
        const Message* at = in_a ? &a_ : &b_;
        std::string name = at->GetDescriptor() == Header::descriptor() ? "" : ".message";
        for (const MessageDifferencer::SpecificField& step : path) {
            const int index = in_a ? step.index : step.new_index;
            if (step.field != nullptr && step.field->message_type() != nullptr) {
                at = message_at(*at, *step.field, index);
            }
            name += name_of(step, *at, index);
        }
        return name.substr(1);
    }

    static std::string name_of(const MessageDifferencer::SpecificField& step,
                               const Message& message, int index) {
        if (step.field == nullptr) {
            return ".(field " + std::to_string(step.unknown_field_number) + ")";
        }
        return (is_silent(*step.field) ? "" : "." + std::string(step.field->name())) +
               (step.field->is_repeated() ? which(*step.field, message, index) : "");
    }

    // The message is the element, if the field holds messages.
    static std::string which(const FieldDescriptor& field, const Message& message, int index) {
        if (!field.is_map()) {
            return "[" + std::to_string(index) + "]";
        }
        std::string key = ".";
        append_plain(key, read_value(message, *message.GetDescriptor()->FindFieldByNumber(1), -1),
                     false);
        return key;
    }

    static const Message* message_at(const Message& message, const FieldDescriptor& field,
                                     int index) {
        const auto& reflection = *message.GetReflection();
        return field.is_repeated() ? &reflection.GetRepeatedMessage(message, &field, index)
                                   : &reflection.GetMessage(message, &field);
    }

    [[nodiscard]] Text value_of(const Message& message, const Path& path, bool is_a) const {
        const MessageDifferencer::SpecificField& last = path.back();
        if (last.field == nullptr) {
            const auto* fields = is_a ? last.unknown_field_set1 : last.unknown_field_set2;
            return json_of(
                fields->field(is_a ? last.unknown_field_index1 : last.unknown_field_index2));
        }
        const int index = is_a ? last.index : last.new_index;
        return json_of_field(message, *last.field, last.field->is_repeated() ? index : -1);
    }

    // A field without a value still has its default, unless it can be absent.
    [[nodiscard]] Text default_of(const Message& message, const Path& path) const {
        const FieldDescriptor* field = path.back().field;
        const bool can_be_absent = field == nullptr || field->is_repeated() ||
                                   field->message_type() != nullptr ||
                                   field->containing_oneof() != nullptr;
        return can_be_absent ? Text() : json_of_field(message, *field, -1);
    }

    [[nodiscard]] std::string json_of_field(const Message& message, const FieldDescriptor& field,
                                            int index) const {
        const Value value = read_value(message, field, index);
        const bool is_number =
            value.kind == Value::Kind::kSigned || value.kind == Value::Kind::kUnsigned;
        std::string json;
        if (is_number && is_of_envelope(field)) {
            append_plain(json, value, false);
        } else {
            append_json(json, value, enum_names_ || is_of_envelope(field));
        }
        return json;
    }

    const Message& a_;
    const Message& b_;
    bool enum_names_;
    std::vector<FieldDifference>& found_;
};

void compare(const Message& a, const Message& b, const FieldDescriptor* ignored, bool enum_names,
             std::vector<FieldDifference>& found) {
    Notes notes(a, b, enum_names, found);
    DefaultFieldComparator comparator;
    comparator.set_treat_nan_as_equal(true);
    MessageDifferencer differencer;
    differencer.set_field_comparator(&comparator);
    differencer.ReportDifferencesTo(&notes);
    if (ignored != nullptr) {
        differencer.IgnoreField(ignored);
    }
    (void)differencer.Compare(a, b);
}

}  // namespace

std::vector<FieldDifference> differences(PacketContents& a, PacketContents& b, bool enum_names) {
    const FieldDescriptor* body = Header::descriptor()->FindFieldByNumber(Header::kBodyFieldNumber);
    std::vector<FieldDifference> found;
    const bool same_type =
        a.descriptor() == b.descriptor() && a.message() != nullptr && b.message() != nullptr;
    if (same_type) {
        compare(*a.message(), *b.message(), nullptr, enum_names, found);
    }
    compare(a.header(), b.header(), found.empty() ? nullptr : body, enum_names, found);
    return found;
}

}  // namespace vynpkt

#include "io/packet_difference.h"

#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/message_differencer.h>

#include "io/packet_keys.h"

namespace vynpkt {
namespace {

using google::protobuf::util::DefaultFieldComparator;
using google::protobuf::util::MessageDifferencer;

// The wrapper stands for its one field, as in JSON.
bool is_of_wrapper(const FieldDescriptor& field) {
    return field.containing_type()->file()->name() == "google/protobuf/wrappers.proto";
}

bool is_of_envelope(const FieldDescriptor& field) {
    return field.containing_type()->file() == Header::descriptor()->file();
}

// Takes down what protobuf finds when it compares two messages.
class Notes : public MessageDifferencer::Reporter {
public:
    using Path = std::vector<MessageDifferencer::SpecificField>;

    Notes(std::string prefix, bool enum_names, std::vector<FieldDifference>& found)
        : prefix_(std::move(prefix)), enum_names_(enum_names), found_(found) {}

    void ReportAdded(const Message& a, const Message& b, const Path& path) override {
        take_down(path, default_of(a, path), value_of(b, path, false));
    }
    void ReportDeleted(const Message& a, const Message& b, const Path& path) override {
        take_down(path, value_of(a, path, true), default_of(b, path));
    }
    void ReportModified(const Message& a, const Message& b, const Path& path) override {
        const FieldDescriptor* field = path.back().field;
        // Of messages, the fields that differ were told before.
        if (field == nullptr || field->message_type() == nullptr) {
            take_down(path, value_of(a, path, true), value_of(b, path, false));
        }
    }
    void ReportMoved(const Message&, const Message&, const Path&) override {}

private:
    using Text = std::optional<std::string>;

    void take_down(const Path& path, const Text& a, const Text& b) {
        found_.push_back({prefix_ + name_of(path), a, b});
    }

    static std::string name_of(const Path& path) {
        std::string name;
        for (const MessageDifferencer::SpecificField& step : path) {
            if (step.field != nullptr && is_of_wrapper(*step.field)) {
                continue;
            }
            name += name.empty() ? "" : ".";
            name += step.field == nullptr
                        ? "(field " + std::to_string(step.unknown_field_number) + ")"
                        : std::string(step.field->name());
            if (step.field != nullptr && step.field->is_repeated()) {
                name += "[" + std::to_string(step.index >= 0 ? step.index : step.new_index) + "]";
            }
        }
        return name;
    }

    [[nodiscard]] Text value_of(const Message& message, const Path& path, bool is_a) const {
        const MessageDifferencer::SpecificField& last = path.back();
        if (last.field == nullptr) {
            return {};
        }
        const int index = is_a ? last.index : last.new_index;
        return json_of(message, *last.field, last.field->is_repeated() ? index : -1);
    }

    // A field without a value still has its default, unless it can be absent.
    [[nodiscard]] Text default_of(const Message& message, const Path& path) const {
        const FieldDescriptor* field = path.back().field;
        const bool can_be_absent = field == nullptr || field->is_repeated() ||
                                   field->message_type() != nullptr ||
                                   field->containing_oneof() != nullptr;
        return can_be_absent ? Text() : json_of(message, *field, -1);
    }

    [[nodiscard]] std::string json_of(const Message& message, const FieldDescriptor& field,
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

    std::string prefix_;
    bool enum_names_;
    std::vector<FieldDifference>& found_;
};

void compare(const Message& a, const Message& b, const FieldDescriptor* ignored, Notes& notes) {
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
    const bool same_type =
        a.descriptor() == b.descriptor() && a.message() != nullptr && b.message() != nullptr;
    std::vector<FieldDifference> found;
    Notes in_message("message.", enum_names, found);
    if (same_type) {
        compare(*a.message(), *b.message(), nullptr, in_message);
    }
    const bool told = !found.empty();
    Notes in_header("", enum_names, found);
    compare(a.header(), b.header(), told ? body : nullptr, in_header);
    return found;
}

}  // namespace vynpkt

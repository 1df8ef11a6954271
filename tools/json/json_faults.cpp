#include "json/json_faults.h"

#include <google/protobuf/util/json_util.h>

#include "cli/nearest.h"
#include "cli/report.h"
#include "json/json_document.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::util::JsonParseOptions;
using google::protobuf::util::JsonStringToMessage;

auto parse(const Descriptor& type, const std::string& json) {
    JsonParseOptions options;
    options.ignore_unknown_fields = true;
    return JsonStringToMessage(json, new_message(type).get(), options);
}

// The field whose value stands for this one's in JSON.
const FieldDescriptor& value_field(const FieldDescriptor& field) {
    const Descriptor* type = field.message_type();
    return type != nullptr && is_wrapper(*type) ? *type->field(0) : field;
}

// The messages in a field, or null when its values are no objects with keys of a schema.
const Descriptor* messages_in(const FieldDescriptor& field) {
    const Descriptor* type = field.message_type();
    return type == nullptr || is_wrapper(*type) ? nullptr : type;
}

const FieldDescriptor* find_field(const Descriptor& type, const std::string& key) {
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor* field = type.field(i);
        if (key == field->name() || key == field->json_name()) {
            return field;
        }
    }
    return nullptr;
}

std::string joined(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + "." + key;
}

std::string joined(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

std::string expected_one(const FieldDescriptor& outer) {
    const FieldDescriptor& field = value_field(outer);
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            return "an integer of 32 bits";
        case FieldDescriptor::CPPTYPE_UINT32:
            return "an integer of 32 bits without a sign";
        case FieldDescriptor::CPPTYPE_INT64:
            return "an integer of 64 bits";
        case FieldDescriptor::CPPTYPE_UINT64:
            return "an integer of 64 bits without a sign";
        case FieldDescriptor::CPPTYPE_DOUBLE:
        case FieldDescriptor::CPPTYPE_FLOAT:
            return std::string("a number of type ") + field.cpp_type_name();
        case FieldDescriptor::CPPTYPE_BOOL:
            return "true or false";
        case FieldDescriptor::CPPTYPE_ENUM:
            return "a value of " + std::string(field.enum_type()->full_name());
        case FieldDescriptor::CPPTYPE_STRING:
            return field.type() == FieldDescriptor::TYPE_BYTES ? "base64 text" : "a string";
        case FieldDescriptor::CPPTYPE_MESSAGE:
            break;
    }
    return "an object, " + std::string(field.message_type()->full_name());
}

std::string not_expected(const std::string& path, const JsonValue& value,
                         const std::string& expected) {
    return json_text(path) + ": " + value.words() + " is not " + expected;
}

// Asks protobuf itself whether the field takes the value; in front and behind stands what makes a
// value of an element.
bool takes(const FieldDescriptor& field, const JsonValue& value, const std::string& front = "",
           const std::string& behind = "") {
    const std::string begin = "{" + json_text(std::string(field.name())) + ":" + front;
    const std::string end = behind + "}";
    const Descriptor& type = *field.containing_type();
    return parse(type, begin + value.json() + end).ok() &&
           parse(type, begin + value.exact_json() + end).ok();
}

// Looks for the first value that has the wrong type. Each returns what is wrong, or an empty text.
class WrongValue {
public:
    // Recursion goes no deeper than our own schemas nest messages.
    // NOLINTNEXTLINE(misc-no-recursion)
    static std::string in_message(const Descriptor& type, const JsonValue& value,
                                  const std::string& path) {
        for (const auto& [key, member] : value.members()) {
            const FieldDescriptor* field = find_field(type, key);
            if (field != nullptr && !takes(*field, member)) {
                return in_field(*field, member, joined(path, key));
            }
        }
        return "";
    }

private:
    // NOLINTNEXTLINE(misc-no-recursion)
    static std::string in_field(const FieldDescriptor& field, const JsonValue& value,
                                const std::string& path) {
        if (field.is_map()) {
            return in_map(field, value, path);
        }
        return field.is_repeated() ? in_array(field, value, path) : in_one(field, value, path);
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    static std::string in_one(const FieldDescriptor& field, const JsonValue& value,
                              const std::string& path) {
        const Descriptor* type = messages_in(field);
        std::string wrong;
        if (type != nullptr && value.is(json_type_object)) {
            wrong = in_message(*type, value, path);
        }
        return wrong.empty() ? not_expected(path, value, expected_one(field)) : wrong;
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    static std::string in_array(const FieldDescriptor& field, const JsonValue& value,
                                const std::string& path) {
        std::size_t index = 0;
        for (const JsonValue& element : value.elements()) {
            if (!takes(field, element, "[", "]")) {
                return in_one(field, element, joined(path, index));
            }
            ++index;
        }
        return not_expected(path, value, "an array");
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    static std::string in_map(const FieldDescriptor& field, const JsonValue& value,
                              const std::string& path) {
        for (const auto& [key, member] : value.members()) {
            if (!takes(field, member, "{" + json_text(key) + ":", "}")) {
                return in_one(*field.message_type()->FindFieldByNumber(2), member,
                              joined(path, key));
            }
        }
        return not_expected(path, value, "an object");
    }
};

// Collects what is skipped.
class Skipped {
public:
    // NOLINTNEXTLINE(misc-no-recursion)
    void in_message(const Descriptor& type, const JsonValue& value, const std::string& path,
                    const std::vector<std::string>& other_keys = {}) {
        for (const auto& [key, member] : value.members()) {
            const FieldDescriptor* field = find_field(type, key);
            if (field != nullptr) {
                in_field(*field, member, joined(path, key));
            } else {
                found_.push_back(unknown_word(joined(path, key), key, names(type, other_keys)));
            }
        }
    }
    [[nodiscard]] const std::vector<std::string>& found() const { return found_; }

private:
    static std::vector<std::string> names(const Descriptor& type, std::vector<std::string> names) {
        for (int i = 0; i < type.field_count(); ++i) {
            names.emplace_back(type.field(i)->name());
        }
        return names;
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    void in_field(const FieldDescriptor& field, const JsonValue& value, const std::string& path) {
        if (field.is_map()) {
            for (const auto& [key, member] : value.members()) {
                in_one(*field.message_type()->FindFieldByNumber(2), member, joined(path, key));
            }
        } else if (field.is_repeated()) {
            std::size_t index = 0;
            for (const JsonValue& element : value.elements()) {
                in_one(field, element, joined(path, index++));
            }
        } else {
            in_one(field, value, path);
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    void in_one(const FieldDescriptor& field, const JsonValue& value, const std::string& path) {
        if (const Descriptor* type = messages_in(field)) {
            in_message(*type, value, path);
        } else if (field.enum_type() != nullptr && value.is(json_type_string)) {
            check_name(*field.enum_type(), value.text(), path);
        }
    }

    void check_name(const google::protobuf::EnumDescriptor& type, const std::string& name,
                    const std::string& path) {
        const bool is_number =
            !name.empty() && name.find_first_not_of("-0123456789") == std::string::npos;
        if (is_number || type.FindValueByName(name) != nullptr) {
            return;
        }
        std::vector<std::string> names;
        names.reserve(static_cast<std::size_t>(type.value_count()));
        for (int i = 0; i < type.value_count(); ++i) {
            names.emplace_back(type.value(i)->name());
        }
        found_.push_back(json_text(path) + ": " + unknown_word(name, name, names));
    }

    std::vector<std::string> found_;
};

// Of protobuf's words those on the first line, without the kind of the error. The others show a part
// of the text, which may be long.
std::string first_words(const std::string& status) {
    const std::string line = status.substr(0, status.find('\n'));
    const std::size_t colon = line.find(':');
    return colon == std::string::npos ? line : line.substr(colon + 1);
}

}  // namespace

std::string why_refused(const Descriptor& type, const std::string& json) {
    std::string why = syntax_fault(json, false);
    if (why.empty()) {
        why = utf8_fault(json);
    }
    if (why.empty()) {
        const JsonDocument document(json);
        why = document.root().is(json_type_object)
                  ? WrongValue::in_message(type, document.root(), "")
                  : "not an object";
    }
    // json-c takes some texts that protobuf does not, which takes some that are not strict.
    if (why.empty()) {
        why = syntax_fault(json, false, true);
    }
    return why.empty() ? first_words(parse(type, json).ToString()) : why;
}

std::string what_is_skipped(const Descriptor& type, const std::string& json,
                            const std::vector<std::string>& other_keys) {
    const JsonDocument document(json);
    Skipped skipped;
    skipped.in_message(type, document.root(), "", other_keys);
    return listed(skipped.found());
}

std::string unknown_word(const std::string& path, const std::string& word,
                         const std::vector<std::string>& names) {
    const std::string meant = nearest(word, names);
    return json_text(path) + (meant.empty() ? "" : " (did you mean \"" + meant + "\"?)");
}

std::string listed(const std::vector<std::string>& items) {
    constexpr std::size_t kShown = 5;
    std::string list;
    for (std::size_t i = 0; i < items.size() && i < kShown; ++i) {
        list += (i > 0 ? ", " : "") + items[i];
    }
    return items.size() <= kShown
               ? list
               : list + " and " + std::to_string(items.size() - kShown) + " more";
}

}  // namespace vynpkt

#include "packets/packet_keys.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "cli/nearest.h"
#include "cli/report.h"
#include "envelope/message_type.h"
#include "json/message_json.h"

namespace vynpkt {
namespace {

using google::protobuf::Reflection;

constexpr std::string_view kInMessage = "message.";
// Far deeper than the messages of the catalogue nest.
constexpr std::size_t kMaxDepth = 12;

// ---- Values --------------------------------------------------------------------------------------

template <typename Number>
void append_digits(std::string& out, Number number) {
    constexpr std::size_t kLongest = 32;
    char text[kLongest];
    out.append(text, std::to_chars(text, text + sizeof text, number).ptr);
}

bool is_float(const Value& value) {
    return value.field != nullptr && value.field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT;
}

void append_enum(std::string& out, const Value& value, bool by_name) {
    const auto* known =
        by_name ? value.field->enum_type()->FindValueByNumber(static_cast<int>(value.signed_number))
                : nullptr;
    if (known != nullptr) {
        out += known->name();
    } else {
        append_digits(out, value.signed_number);
    }
}

// JSON of a field, or of a message as a whole.
void append_part(std::string& out, const Value& value, bool enum_names) {
    if (value.field != nullptr) {
        append_value(out, *value.message, *value.field, value.index, enum_names);
    } else {
        append_message(out, *value.message, {enum_names});
    }
}

// Reads fields with one function for those that are repeated and those that are not.
class FieldReader {
public:
    FieldReader(const Message& message, const FieldDescriptor& field, int index)
        : message_(message), field_(field), reflection_(*message.GetReflection()), index_(index) {}

    void read_into(Value& value) const {
        switch (field_.cpp_type()) {
            case FieldDescriptor::CPPTYPE_INT32:
                return set_signed(value, get(&Reflection::GetInt32, &Reflection::GetRepeatedInt32));
            case FieldDescriptor::CPPTYPE_INT64:
                return set_signed(value, get(&Reflection::GetInt64, &Reflection::GetRepeatedInt64));
            case FieldDescriptor::CPPTYPE_UINT32:
                return set_unsigned(value,
                                    get(&Reflection::GetUInt32, &Reflection::GetRepeatedUInt32));
            case FieldDescriptor::CPPTYPE_UINT64:
                return set_unsigned(value,
                                    get(&Reflection::GetUInt64, &Reflection::GetRepeatedUInt64));
            case FieldDescriptor::CPPTYPE_DOUBLE:
                return set_real(value, get(&Reflection::GetDouble, &Reflection::GetRepeatedDouble));
            case FieldDescriptor::CPPTYPE_FLOAT:
                return set_real(value, get(&Reflection::GetFloat, &Reflection::GetRepeatedFloat));
            case FieldDescriptor::CPPTYPE_BOOL:
                set_signed(value, get(&Reflection::GetBool, &Reflection::GetRepeatedBool));
                value.kind = Value::Kind::kBool;
                return;
            case FieldDescriptor::CPPTYPE_ENUM:
                set_signed(value,
                           get(&Reflection::GetEnumValue, &Reflection::GetRepeatedEnumValue));
                value.kind = Value::Kind::kEnum;
                return;
            case FieldDescriptor::CPPTYPE_STRING:
                return set_text(value);
            case FieldDescriptor::CPPTYPE_MESSAGE:
                value.kind = Value::Kind::kMessage;
        }
    }

private:
    template <typename Type>
    [[nodiscard]] Type get(Type (Reflection::*one)(const Message&, const FieldDescriptor*) const,
                           Type (Reflection::*of_many)(const Message&, const FieldDescriptor*, int)
                               const) const {
        return index_ < 0 ? (reflection_.*one)(message_, &field_)
                          : (reflection_.*of_many)(message_, &field_, index_);
    }

    static void set_signed(Value& value, int64_t number) {
        value.kind = Value::Kind::kSigned;
        value.signed_number = number;
    }
    static void set_unsigned(Value& value, uint64_t number) {
        value.kind = Value::Kind::kUnsigned;
        value.unsigned_number = number;
    }
    static void set_real(Value& value, double number) {
        value.kind = Value::Kind::kReal;
        value.real = number;
    }
    // The messages of the catalogue hold their texts as strings, so nothing is copied into the room.
    void set_text(Value& value) const {
        std::string room;
        value.text = index_ < 0
                         ? reflection_.GetStringReference(message_, &field_, &room)
                         : reflection_.GetRepeatedStringReference(message_, &field_, index_, &room);
        value.kind =
            field_.type() == FieldDescriptor::TYPE_BYTES ? Value::Kind::kBytes : Value::Kind::kText;
    }

    const Message& message_;
    const FieldDescriptor& field_;
    const Reflection& reflection_;
    int index_;
};

// The body is text unless its message-type word says that it is binary.
bool is_text_body(const Message& message, const FieldDescriptor& field) {
    return message.GetDescriptor() == Header::descriptor() &&
           field.number() == Header::kBodyFieldNumber &&
           !vyn::has_binary_body(static_cast<const Header&>(message).message_type());
}

// ---- Paths ---------------------------------------------------------------------------------------

bool holds_wrapper(const FieldDescriptor& field) {
    return field.message_type() != nullptr && is_wrapper(*field.message_type());
}

std::string take_part(std::string_view& names) {
    const std::size_t dot = std::min(names.find('.'), names.size());
    std::string part(names.substr(0, dot));
    names.remove_prefix(std::min(dot + 1, names.size()));
    return part;
}

// Takes the key of a map entry off the names: all that is left, unless the value is a message.
PathStep map_step(const FieldDescriptor& map, std::string_view& names) {
    const FieldDescriptor& value = *map.message_type()->FindFieldByNumber(2);
    PathStep step{&map, true};
    if (value.message_type() != nullptr) {
        step.map_key = take_part(names);
    } else {
        step.map_key = names;
        names = {};
    }
    return step;
}

std::optional<FieldPath> find_path(const Descriptor& type, std::string_view names) {
    FieldPath path;
    const Descriptor* within = &type;
    while (!names.empty() && names.back() != '.') {
        const FieldDescriptor* field =
            within == nullptr ? nullptr : within->FindFieldByName(take_part(names));
        if (field == nullptr) {
            return {};
        }
        if (field->is_map() && !names.empty()) {
            path.push_back(map_step(*field, names));
            field = field->message_type()->FindFieldByNumber(2);
        }
        path.push_back({field});
        within = field->message_type();
    }
    if (path.empty() || !names.empty()) {
        return {};
    }
    if (holds_wrapper(*path.back().field)) {
        path.push_back({path.back().field->message_type()->field(0)});
    }
    return path;
}

bool has_map_key(const Message& entry, const std::string& key) {
    std::string text;
    append_plain(text, read_value(entry, *entry.GetDescriptor()->FindFieldByNumber(1), -1), false);
    return text == key;
}

// ---- Keys that there are, for a hint at what a wrong one was meant to be --------------------------

struct Prefix {
    const Descriptor* type;
    std::string text;
    std::size_t depth;
};

// Messages may hold messages of their own type, so there is a limit to the depth.
void add_keys(const Descriptor& type, const std::string& text, std::vector<std::string>& keys) {
    std::vector<Prefix> waiting{{&type, text, 0}};
    while (!waiting.empty()) {
        const Prefix prefix = waiting.back();
        waiting.pop_back();
        for (int i = 0; i < prefix.type->field_count(); ++i) {
            const FieldDescriptor& field = *prefix.type->field(i);
            keys.push_back(prefix.text + std::string(field.name()));
            const bool has_fields =
                field.message_type() != nullptr && !field.is_map() && !holds_wrapper(field);
            if (has_fields && prefix.depth < kMaxDepth) {
                waiting.push_back({field.message_type(), keys.back() + ".", prefix.depth + 1});
            }
        }
    }
}

[[noreturn]] void refuse_key(const std::string& key, const std::vector<std::string>& keys) {
    const std::string meant = nearest(key, keys);
    throw Failure(ExitCode::kUsage, '"' + key + '"',
                  meant.empty() ? "no such key; see \"vynpkt show --help\""
                                : "no such key; did you mean \"" + meant + "\"?");
}

[[noreturn]] void refuse_without_types(const std::string& key) {
    throw Failure(ExitCode::kUsage, key, "needs --types FILE, which tells what bodies are");
}

}  // namespace

void append_plain(std::string& out, const Value& value, bool enum_names) {
    switch (value.kind) {
        case Value::Kind::kSigned:
            return append_digits(out, value.signed_number);
        case Value::Kind::kUnsigned:
            return append_digits(out, value.unsigned_number);
        case Value::Kind::kReal:
            return is_float(value) ? append_digits(out, static_cast<float>(value.real))
                                   : append_digits(out, value.real);
        case Value::Kind::kBool:
            out += value.signed_number != 0 ? "true" : "false";
            return;
        case Value::Kind::kEnum:
            return append_enum(out, value, enum_names);
        case Value::Kind::kText:
            out += value.text;
            return;
        case Value::Kind::kBytes: {
            const std::size_t begin = out.size();
            append_base64(out, value.text);
            out.pop_back();
            out.erase(begin, 1);
            return;
        }
        case Value::Kind::kMessage:
            return append_part(out, value, enum_names);
    }
}

void append_json(std::string& out, const Value& value, bool enum_names) {
    if (value.kind == Value::Kind::kText) {
        append_text(out, value.text);
    } else if (value.message != nullptr) {
        append_part(out, value, enum_names);
    } else {
        append_plain(out, value, enum_names);
    }
}

Value read_value(const Message& message, const FieldDescriptor& field, int index) {
    Value value;
    value.field = &field;
    value.message = &message;
    value.index = index;
    FieldReader(message, field, index).read_into(value);
    if (value.kind == Value::Kind::kBytes && is_text_body(message, field)) {
        value.kind = Value::Kind::kText;
    }
    return value;
}

void follow(const PathStep& step, const Message& message, std::vector<const Message*>& found) {
    const Reflection& reflection = *message.GetReflection();
    if (!step.field->is_repeated()) {
        if (reflection.HasField(message, step.field)) {
            found.push_back(&reflection.GetMessage(message, step.field));
        }
        return;
    }
    const int size = reflection.FieldSize(message, step.field);
    for (int i = 0; i < size; ++i) {
        const Message& element = reflection.GetRepeatedMessage(message, step.field, i);
        if (!step.has_map_key || has_map_key(element, step.map_key)) {
            found.push_back(&element);
        }
    }
}

void read_field(const FieldDescriptor& field, const Message& message, std::vector<Value>& values) {
    const Reflection& reflection = *message.GetReflection();
    if (field.is_repeated()) {
        const int size = reflection.FieldSize(message, &field);
        for (int i = 0; i < size; ++i) {
            values.push_back(read_value(message, field, i));
        }
        return;
    }
    const bool can_be_absent =
        field.message_type() != nullptr || field.containing_oneof() != nullptr;
    if (!can_be_absent || reflection.HasField(message, &field)) {
        values.push_back(read_value(message, field, -1));
    }
}

const PacketKey::Derived PacketKey::kDerived[] = {
    {"type", Source::kType},
    {"encoding", Source::kEncoding},
    {"name", Source::kName},
    {"body_length", Source::kBodyLength},
    {"offset", Source::kOffset},
    {"length", Source::kLength},
    {"unknown_fields", Source::kUnknownFields},
    {"message", Source::kWholeMessage},
};

PacketKey::PacketKey(const std::string& text, const MessageTypes& types) : text_(text) {
    const std::string_view names = text == "status" ? "packet_status" : std::string_view(text);
    const std::optional<FieldPath> path = find_path(*Header::descriptor(), names);
    if (path) {
        header_path_ = *path;
    } else if (text.compare(0, kInMessage.size(), kInMessage) == 0) {
        find_in_messages(types);
    } else {
        find_elsewhere(types);
    }
}

void PacketKey::find_in_messages(const MessageTypes& types) {
    if (types.empty()) {
        refuse_without_types(text_);
    }
    source_ = Source::kMessage;
    std::vector<std::string> keys;
    for (const auto& [type, message] : types.table()) {
        const auto path = find_path(*message, std::string_view(text_).substr(kInMessage.size()));
        if (path) {
            paths_.emplace(message, *path);
        }
        add_keys(*message, std::string(kInMessage), keys);
    }
    if (paths_.empty()) {
        refuse_key(text_, keys);
    }
}

void PacketKey::find_elsewhere(const MessageTypes& types) {
    std::vector<std::string> keys{"status"};
    for (const Derived& derived : kDerived) {
        keys.emplace_back(derived.text);
        if (text_ == derived.text) {
            source_ = derived.source;
            const bool of_message =
                source_ == Source::kName || is_whole_message() || source_ == Source::kUnknownFields;
            if (of_message && types.empty()) {
                refuse_without_types(text_);
            }
            return;
        }
    }
    add_keys(*Header::descriptor(), "", keys);
    refuse_key(text_, keys);
}

std::vector<const FieldDescriptor*> PacketKey::fields() const {
    std::vector<const FieldDescriptor*> fields;
    if (source_ == Source::kHeader) {
        fields.push_back(header_path_.back().field);
    }
    for (const auto& [message, path] : paths_) {
        fields.push_back(path.back().field);
    }
    return fields;
}

const FieldPath* PacketKey::path_in(PacketContents& packet) const {
    if (packet.descriptor() == nullptr) {
        return nullptr;
    }
    const auto found = paths_.find(packet.descriptor());
    return found != paths_.end() && packet.message() != nullptr ? &found->second : nullptr;
}

bool PacketKey::is_list(const FieldPath& path, std::size_t from) {
    return std::any_of(
        path.begin() + static_cast<std::ptrdiff_t>(from), path.end(),
        [](const PathStep& step) { return step.field->is_repeated() && !step.has_map_key; });
}

bool PacketKey::read_derived(PacketContents& packet, Value& value) const {
    switch (source_) {
        case Source::kType:
            value.unsigned_number = packet.type();
            return true;
        case Source::kEncoding:
            value.unsigned_number = packet.encoding();
            return true;
        case Source::kBodyLength:
            value.unsigned_number = packet.header().body().size();
            return true;
        case Source::kOffset:
            value.unsigned_number = packet.offset();
            return true;
        case Source::kLength:
            value.unsigned_number = packet.length();
            return true;
        case Source::kUnknownFields:
            value.unsigned_number = packet.unknown_fields();
            return packet.message() != nullptr;
        case Source::kName:
            value.kind = Value::Kind::kText;
            value.text = packet.descriptor() == nullptr
                             ? std::string_view()
                             : std::string_view(packet.descriptor()->full_name());
            return packet.descriptor() != nullptr;
        case Source::kWholeMessage:
            value.kind = Value::Kind::kMessage;
            value.message = packet.message();
            return value.message != nullptr;
        default:
            return false;
    }
}

const std::vector<Value>& PacketKey::values(PacketContents& packet) {
    if (source_ == Source::kHeader) {
        return values(packet.header(), header_path_, 0);
    }
    if (source_ == Source::kMessage) {
        if (const FieldPath* path = path_in(packet)) {
            return values(*packet.message(), *path, 0);
        }
        values_.clear();
        return values_;
    }
    values_.clear();
    Value value;
    if (read_derived(packet, value)) {
        values_.push_back(value);
    }
    return values_;
}

const std::vector<Value>& PacketKey::values(const Message& message, const FieldPath& path,
                                            std::size_t from) {
    values_.clear();
    level_.assign(1, &message);
    for (std::size_t i = from; i + 1 < path.size(); ++i) {
        next_level_.clear();
        for (const Message* reached : level_) {
            follow(path[i], *reached, next_level_);
        }
        level_.swap(next_level_);
    }
    for (const Message* reached : level_) {
        read_field(*path.back().field, *reached, values_);
    }
    return values_;
}

}  // namespace vynpkt

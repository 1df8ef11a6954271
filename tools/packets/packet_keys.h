// Names for what a packet holds, as filters and columns use them: "device_id",
// "property_bag.error_code", "message.meta.vin".
#ifndef VYN_TOOLS_PACKETS_PACKET_KEYS_H
#define VYN_TOOLS_PACKETS_PACKET_KEYS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "packets/packet_contents.h"

namespace vynpkt {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// One value of a packet. Valid as long as the packet is.
struct Value {
    enum class Kind { kSigned, kUnsigned, kReal, kBool, kEnum, kText, kBytes, kMessage };

    Kind kind = Kind::kUnsigned;
    int64_t signed_number = 0;     // of kSigned, kBool and kEnum
    uint64_t unsigned_number = 0;  // of kUnsigned
    double real = 0;
    std::string_view text = {};  // of kText and kBytes

    // The field, the message that it is in, and its index if it is repeated. The field is null for
    // what none holds: the length of a packet, or a message as a whole.
    const FieldDescriptor* field = nullptr;
    const Message* message = nullptr;
    int index = -1;
};

// As a cell of a table: without quotes, enums by name if asked for, bytes in base64.
void append_plain(std::string& out, const Value& value, bool enum_names);
// As JSON.
void append_json(std::string& out, const Value& value, bool enum_names);

[[nodiscard]] Value read_value(const Message& message, const FieldDescriptor& field, int index);

// Leads from a message to one of its fields. A step into a map takes all of its entries, or the one
// with a key; the field "value" of the entry is a step of its own.
struct PathStep {
    const FieldDescriptor* field = nullptr;
    bool has_map_key = false;
    std::string map_key = {};

    [[nodiscard]] bool operator==(const PathStep& other) const {
        return field == other.field && has_map_key == other.has_map_key && map_key == other.map_key;
    }
};
using FieldPath = std::vector<PathStep>;

// The messages to which a step leads, none or several.
void follow(const PathStep& step, const Message& message, std::vector<const Message*>& found);
// The values of the last field of a path.
void read_field(const FieldDescriptor& field, const Message& message, std::vector<Value>& values);

class PacketKey {
public:
    using Paths = std::map<const Descriptor*, FieldPath>;

    // Throws a usage error for a key that no packet can have.
    PacketKey(const std::string& text, const MessageTypes& types);

    [[nodiscard]] const std::string& text() const { return text_; }
    // The fields that hold the values, one for each message that has the path; none for what no field
    // holds.
    [[nodiscard]] std::vector<const FieldDescriptor*> fields() const;
    // What no field holds is a number, apart from these.
    [[nodiscard]] bool is_name() const { return source_ == Source::kName; }
    [[nodiscard]] bool is_whole_message() const { return source_ == Source::kWholeMessage; }

    // The paths of "message.": one for each message that has it. Empty for other keys.
    [[nodiscard]] const Paths& paths() const { return paths_; }
    // The path in the message of this packet; null if the packet has no such message, or the
    // message no such path.
    [[nodiscard]] const FieldPath* path_in(PacketContents& packet) const;
    // Whether a packet can have several values, or a map.
    [[nodiscard]] static bool is_list(const FieldPath& path, std::size_t from);

    // All values in the packet. Valid until the next call.
    [[nodiscard]] const std::vector<Value>& values(PacketContents& packet);
    // Those to which the rest of a path leads from a message that is on it.
    [[nodiscard]] const std::vector<Value>& values(const Message& message, const FieldPath& path,
                                                   std::size_t from);

private:
    enum class Source {
        kHeader,
        kMessage,
        kWholeMessage,
        kType,
        kEncoding,
        kName,
        kBodyLength,
        kOffset,
        kLength,
        kUnknownFields
    };
    struct Derived {
        const char* text;
        Source source;
    };
    static const Derived kDerived[];

    void find_in_messages(const MessageTypes& types);
    void find_elsewhere(const MessageTypes& types);
    [[nodiscard]] bool read_derived(PacketContents& packet, Value& value) const;

    std::string text_;
    Source source_ = Source::kHeader;
    FieldPath header_path_;
    Paths paths_;
    std::vector<Value> values_;
    std::vector<const Message*> level_;
    std::vector<const Message*> next_level_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_KEYS_H

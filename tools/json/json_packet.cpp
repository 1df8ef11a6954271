#include "json/json_packet.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "envelope/message_type.h"
#include "json/json_document.h"
#include "json/json_text.h"
#include "proto_helper.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

using Members = std::vector<JsonMember>;
using Extras = std::map<std::string_view, std::string_view>;

// What stands in a line beside the fields of `Header`.
const std::vector<std::string>& extra_keys() {
    static const std::vector<std::string> keys = {"type",          "encoding", "name",  "message",
                                                  "message_error", "offset",   "length"};
    return keys;
}

template <typename Container>
bool contains(const Container& words, std::string_view word) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

template <typename Number>
bool read_number(std::string_view text, Number& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

// The envelope has numbers of 32 bits with a sign, `Header` without.
std::string without_sign(const JsonMember& member) {
    constexpr std::string_view kNumbers[] = {"version", "sub_system_id", "message_type",
                                             "error_code", "ack_required"};
    int32_t number = 0;
    const bool negative =
        contains(kNumbers, member.key) && read_number(member.value, number) && number < 0;
    return negative ? std::to_string(static_cast<uint32_t>(number)) : std::string(member.value);
}

void append(std::string& object, std::string_view key, std::string_view value) {
    object.append(object.empty() ? "{\"" : ",\"").append(key).append("\":").append(value);
}

std::string closed(const std::string& object) { return object.empty() ? "{}" : object + "}"; }

std::string bag_without_signs(std::string_view bag) {
    Members members;
    if (!split_object(bag, members)) {
        return std::string(bag);
    }
    std::string json;
    for (const JsonMember& member : members) {
        append(json, member.key, without_sign(member));
    }
    return closed(json);
}

class Reader {
public:
    Reader(bool header_form, const MessageTypes& types, const Place& place)
        : header_form_(header_form), types_(types), place_(place) {}

    JsonPacket read(const std::string& json) {
        Members members;
        if (!split_object(json, members)) {
            const std::string fault = syntax_fault(json, !place_.part.empty(), true);
            refuse(fault.empty() ? "not a JSON object" : "not strict JSON: " + fault);
        }
        read_header(members);
        agree_on_type();
        const Descriptor* type = descriptor();
        if (has("message")) {
            take_message(type);
        } else if (has("body")) {
            packet_.header.set_body(body());
        }
        return std::move(packet_);
    }

private:
    [[noreturn]] void refuse(const std::string& reason) const {
        throw Failure(ExitCode::kRefused, place_, reason);
    }

    [[nodiscard]] bool has(std::string_view key) const { return extras_.count(key) > 0; }

    void lose(const std::string& loss) {
        if (!loss.empty()) {
            packet_.losses.push_back(loss);
        }
    }

    void read_header(const Members& members) {
        std::string json;
        for (const std::string& twice : repeated_keys(members)) {
            lose(twice);
        }
        for (const JsonMember& member : members) {
            if (member.key == "body" || contains(extra_keys(), member.key)) {
                if (member.value != "null") {
                    extras_[member.key] = member.value;
                }
                continue;
            }
            has_word_ = has_word_ || member.key == "message_type" || member.key == "messageType";
            if (header_form_) {
                append(json, member.key, member.value);
            } else {
                append(json, member.key,
                       member.key == "property_bag" ? bag_without_signs(member.value)
                                                    : without_sign(member));
            }
        }
        packet_.header = parse(closed(json));
    }

    [[nodiscard]] Header parse(const std::string& json) {
        const Converted converted = encode(*Header::descriptor(), json, place_, extra_keys());
        lose(converted.loss);
        Header header;
        (void)header.ParseFromString(converted.data);
        return header;
    }

    [[nodiscard]] uint32_t number(std::string_view key, uint32_t most) const {
        const std::string_view text = extras_.at(key);
        uint32_t number = 0;
        if (!read_number(text, number) || number > most) {
            refuse("\"" + std::string(key) + "\": " + std::string(text) +
                   " is not an integer from 0 to " + std::to_string(most));
        }
        return number;
    }

    // "type" and "encoding" say the same as "message_type", or stand in for it.
    void agree_on_type() {
        uint32_t word = packet_.header.message_type();
        const bool given = has_word_;
        const uint32_t type =
            has("type") ? number("type", vyn::kTypeMask) : vyn::message_type_of(word);
        uint32_t encoding = vyn::encoding_type_of(word);
        if (has("encoding")) {
            encoding = number("encoding", vyn::kEncodingMask);
        } else if (!given && has("type") && has("message")) {
            encoding = MSG_ENCODING_BINARY;
        }
        const uint32_t said = combine_msg_type_encoding_type(type, encoding);
        constexpr uint32_t kBits = 0xFFFF;
        if (given && said != (word & kBits)) {
            refuse("\"message_type\" " + std::to_string(word) +
                   " contradicts \"type\" and \"encoding\", which make " + std::to_string(said));
        }
        word = given ? word : said;
        packet_.header.set_message_type(word);
    }

    [[nodiscard]] std::string text_of(std::string_view key) const {
        const JsonDocument document{std::string(extras_.at(key))};
        if (!document.root().is(json_type_string)) {
            refuse("\"" + std::string(key) + "\": " + document.root().words() + " is not a string");
        }
        return document.root().text();
    }

    // The message of the body by its name or else by the types. Null when neither tells.
    [[nodiscard]] const Descriptor* descriptor() const {
        const uint32_t type = vyn::message_type_of(packet_.header.message_type());
        const Descriptor* by_type = types_.find(type);
        if (!has("name")) {
            return by_type;
        }
        const Descriptor& by_name = named(text_of("name"));
        if (by_type != nullptr && by_type != &by_name) {
            refuse("\"name\" is " + std::string(by_name.full_name()) + ", but type " +
                   std::to_string(type) + " is " + std::string(by_type->full_name()));
        }
        return &by_name;
    }

    [[nodiscard]] const Descriptor& named(const std::string& name) const {
        try {
            return find_message(name);
        } catch (const Failure& failure) {
            refuse("\"name\": " + failure.remark().text);
        }
    }

    void take_message(const Descriptor* type) {
        const uint32_t word = packet_.header.message_type();
        if (!vyn::has_binary_body(word)) {
            refuse("its message_type is not that of a binary body, as a message is; " +
                   std::to_string(combine_msg_type_encoding_type(vyn::message_type_of(word),
                                                                 MSG_ENCODING_BINARY)) +
                   " would be");
        }
        if (type == nullptr) {
            refuse("\"message\" without \"name\", and --types does not tell what type " +
                   std::to_string(vyn::message_type_of(word)) + " is");
        }
        const Place within = place_.within("\"message\"");
        if (has("body")) {
            choose(*type, within);
            return;
        }
        take(encode_message(*type, within));
    }

    [[nodiscard]] Converted encode_message(const Descriptor& type, const Place& within) const {
        const std::string json(extras_.at("message"));
        Converted message = encode(type, json, within);
        // So that -0 keeps its sign.
        const std::string quoted = with_integers_quoted(json);
        if (quoted != json) {
            message.data = encode(type, quoted, within).data;
        }
        return message;
    }

    void take(Converted message) {
        lose(message.loss.empty() ? "" : "\"message\": " + message.loss);
        packet_.header.set_body(std::move(message.data));
    }

    // With both, the body stays as long as it says what the message says: its bytes may tell more,
    // such as fields that the message does not know.
    void choose(const Descriptor& type, const Place& within) {
        packet_.header.set_body(body());
        Converted message;
        try {
            message = encode_message(type, within);
        } catch (const Failure& failure) {
            lose(failure.remark().text + "; took \"body\" instead");
            return;
        }
        if (message.data != packet_.header.body() &&
            !same_message(type, message.data, packet_.header.body())) {
            lose("\"body\" is not \"message\"; took \"message\"");
            take(std::move(message));
        }
    }

    [[nodiscard]] bool same_message(const Descriptor& type, const std::string& one,
                                    const std::string& other) const {
        try {
            return decode(type, one, place_).data == decode(type, other, place_).data;
        } catch (const Failure&) {
            return false;
        }
    }

    [[nodiscard]] std::string body() {
        if (header_form_ || vyn::has_binary_body(packet_.header.message_type())) {
            std::string json;
            append(json, "body", extras_.at("body"));
            return parse(closed(json)).body();
        }
        const std::string_view text = extras_.at("body");
        if (text.front() == '{') {
            return JsonDocument(std::string(text)).root().json();
        }
        return text_of("body");
    }

    bool header_form_;
    const MessageTypes& types_;
    const Place& place_;
    Extras extras_;
    bool has_word_ = false;  // "message_type"
    JsonPacket packet_;
};

}  // namespace

bool is_typed_line(const std::string& json) {
    Members members;
    // Most envelopes have neither, and need not be taken apart.
    if ((json.find("\"message\"") == std::string::npos &&
         json.find("\"encoding\"") == std::string::npos) ||
        !split_object(json, members)) {
        return false;
    }
    const auto has = [&members](std::string_view key) {
        return std::any_of(members.begin(), members.end(),
                           [key](const JsonMember& member) { return member.key == key; });
    };
    return (has("type") && has("encoding")) ||
           std::any_of(members.begin(), members.end(), [](const JsonMember& member) {
               return member.key == "message" && !member.value.empty() &&
                      member.value.front() == '{';
           });
}

JsonPacket read_json_packet(const std::string& json, bool header_form, const MessageTypes& types,
                            const Place& place) {
    try {
        return Reader(header_form, types, place).read(json);
    } catch (const Failure&) {
        // A text that is no JSON is refused for that alone.
        const std::string fault = syntax_fault(json, !place.part.empty());
        if (!fault.empty()) {
            throw Failure(
                ExitCode::kRefused, place,
                (header_form ? "not JSON of Header: " : "the envelope is not JSON: ") + fault,
                VYN_BAD_ENVELOPE);
        }
        throw;
    }
}

}  // namespace vynpkt

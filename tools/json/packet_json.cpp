#include "json/packet_json.h"

#include "envelope/header_members.h"
#include "io/packet.h"
#include "json/message_json.h"
#include "proto_helper.h"
#include "protobuf/header_json.h"

namespace vynpkt {
namespace {

using google::protobuf::Message;
using Bag = Header_Property_bag;

const char* words_for(uint32_t code) {
    switch (code) {
        case VYN_DOES_NOT_FIT:
            return "a text is too long for the envelope and left empty there";
        case VYN_BAD_BODY:
            return "a binary body is too long for the envelope and left empty there";
        case VYN_NOT_DECOMPRESSED:
            return "more bytes than become JSON";
        default:
            return "the envelope could not be made";
    }
}

void lose(PacketLine& line, uint32_t code) { line.losses.push_back({words_for(code), code}); }

// As the library writes it, with its limits.
void write_envelope(const PacketContents& packet, PacketLine& line) {
    if (packet.length() > VYN_PACKET_CAPACITY) {
        line.json.clear();
        return lose(line, VYN_NOT_DECOMPRESSED);
    }
    line.room.resize(kEnvelopeRoom);
    const uint32_t code = vyn::header_to_json(packet.header(), line.room.data(),
                                              static_cast<uint32_t>(line.room.size()));
    const bool soft = code == VYN_DOES_NOT_FIT || code == VYN_BAD_BODY;
    line.json = code == VYN_OK || soft ? line.room.data() : "";
    if (code != VYN_OK) {
        lose(line, code);
    }
}

// ---- With types ----------------------------------------------------------------------------------

// Adds members in the form of the envelope.
class MemberWriter {
public:
    explicit MemberWriter(std::string& out) : out_(out) {}

    void key(std::string_view name) {
        out_ += out_.empty() || out_.back() == '{' ? " \"" : ", \"";
        out_ += name;
        out_ += "\": ";
    }
    void text(std::string_view name, std::string_view value) {
        key(name);
        append_text(out_, value);
    }
    void text_if_set(std::string_view name, std::string_view value) {
        if (!value.empty()) {
            text(name, value);
        }
    }
    void number(std::string_view name, int64_t value) {
        key(name);
        append_number(out_, value);
    }
    void number_if_set(std::string_view name, int64_t value) {
        if (value != 0) {
            number(name, value);
        }
    }

private:
    std::string& out_;
};

// Numbers of 32 bits are signed in the envelope.
int64_t signed_number(uint32_t number) { return static_cast<int32_t>(number); }

void append_bag(std::string& out, const Bag& bag) {
    out += '{';
    MemberWriter members(out);
    members.number_if_set("error_code", signed_number(bag.error_code()));
    members.number_if_set("ack_required", signed_number(bag.ack_required()));
    members.text_if_set("attempt", bag.attempt());
    members.text_if_set("checksum", bag.checksum());
    members.text_if_set("error", bag.error());
    members.text_if_set("target", bag.target());
    members.text_if_set("file", bag.file());
    out += " }";
}

void append_status(std::string& out, const Header& header) {
    append_value(out, header,
                 *Header::descriptor()->FindFieldByNumber(Header::kPacketStatusFieldNumber), -1,
                 true);
}

void append_body(std::string& out, const Header& header) {
    if (vyn::has_binary_body(header.message_type())) {
        append_base64(out, header.body());
    } else {
        append_text(out, header.body());
    }
}

// The envelope without limits, still open.
void open_envelope(std::string& out, const Header& header, bool with_body) {
    out = "{";
    MemberWriter members(out);
    members.text(vyn::kSystemId.key(), header.system_id());
    members.text(vyn::kMessageId.key(), header.message_id());
    members.text_if_set(vyn::kCorrelationId.key(), header.correlation_id());
    members.number("version", signed_number(header.version()));
    members.number_if_set("sub_system_id", signed_number(header.sub_system_id()));
    members.text_if_set(vyn::kDeviceId.key(), header.device_id());
    members.text_if_set(vyn::kTargetId.key(), header.target_id());
    members.number("message_type", signed_number(header.message_type()));
    members.number("time", header.time());
    members.number_if_set("ttl", header.ttl());
    if (header.has_property_bag()) {
        members.key("property_bag");
        append_bag(out, header.property_bag());
    }
    if (with_body) {
        members.key("body");
        append_body(out, header);
    }
    if (header.packet_status() != NONE) {
        members.key("packet_status");
        append_status(out, header);
    }
}

// `Header` itself, still open.
void open_header(std::string& out, const Header& header, bool with_body) {
    const FieldDescriptor* body = Header::descriptor()->FindFieldByNumber(Header::kBodyFieldNumber);
    out.clear();
    append_message(out, header, {true, with_body ? nullptr : body});
    out.pop_back();
}

// Whether the JSON of the message gives the body again, byte for byte.
bool gives_body(PacketContents& packet) {
    const Message* message = packet.message();
    const std::string& body = packet.header().body();
    std::string bytes;
    return message != nullptr && packet.unknown_fields() == 0 &&
           message->ByteSizeLong() == body.size() && serialize(*message, bytes) && bytes == body;
}

// Why the body is not the message that its type says, or not for certain; empty if it is.
std::string why_doubtful(PacketContents& packet) {
    if (packet.descriptor() == nullptr) {
        return "";
    }
    if (packet.message() == nullptr) {
        return "not a valid " + std::string(packet.descriptor()->full_name());
    }
    const std::size_t unknown = packet.unknown_fields();
    return unknown == 0 ? ""
                        : "parses, with " + std::to_string(unknown) + " unknown field" +
                              (unknown == 1 ? "" : "s") + ": perhaps another type";
}

void append_names(PacketContents& packet, const JsonStyle& style, PacketLine& line) {
    MemberWriter members(line.json);
    members.number("type", packet.type());
    members.number("encoding", packet.encoding());
    if (packet.descriptor() != nullptr) {
        members.text("name", packet.descriptor()->full_name());
    }
    if (packet.message() != nullptr) {
        members.key("message");
        append_message(line.json, *packet.message(), {style.enum_names});
    }
    const std::string doubt = why_doubtful(packet);
    if (!doubt.empty()) {
        members.text("message_error", doubt);
        line.losses.push_back({"body: " + doubt, {}});
    }
}

void write_without_limits(PacketContents& packet, const JsonStyle& style, bool with_body,
                          PacketLine& line) {
    const Header& header = packet.header();
    if (style.header) {
        open_header(line.json, header, with_body);
    } else {
        open_envelope(line.json, header, with_body);
    }
    if (const std::size_t unknown = count_unknown_fields(header)) {
        line.losses.push_back({"left out " + std::to_string(unknown) + " field" +
                                   (unknown == 1 ? "" : "s") + " that Header does not know",
                               {}});
    }
    if (style.types) {
        append_names(packet, style, line);
    }
    line.json += style.header && !style.types ? "}" : " }";
}

}  // namespace

std::string position_keys(const PacketContents& packet) {
    return "\"offset\": " + std::to_string(packet.offset()) +
           ", \"length\": " + std::to_string(packet.length());
}

void write_json(PacketContents& packet, const JsonStyle& style, PacketLine& line) {
    line.losses.clear();
    if (style.header || style.types) {
        const bool with_body = !style.types || style.keep_body || !gives_body(packet);
        write_without_limits(packet, style, with_body, line);
        // JSON has one NaN, a body many.
        if (!with_body && line.json.find("NaN") != std::string::npos) {
            line.losses.clear();
            write_without_limits(packet, style, true, line);
        }
    } else {
        write_envelope(packet, line);
    }
    if (style.position && !line.json.empty()) {
        line.json.insert(line.json.find('{') + 1, " " + position_keys(packet) + ",");
    }
}

}  // namespace vynpkt

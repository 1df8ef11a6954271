// pack: from JSON envelopes to packets.
#include <google/protobuf/io/coded_stream.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "cli/command.h"
#include "cli/packet_options.h"
#include "io/input.h"
#include "io/line_reader.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/text_form.h"
#include "io/zstd_frame.h"
#include "json/envelope_losses.h"
#include "json/json_document.h"
#include "json/json_packet.h"
#include "json/json_text.h"
#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads the envelope from FILE, or from standard input without FILE or with "-".
Of the property bag, the packet carries "error_code", and with --body or --type
also "checksum".
"body" may have up to 8191 characters. FILE of --body may have any length and
goes into the packet as it is. So a binary body (message_type with encoding type
2) is base64 text in "body", and the bytes themselves in FILE. A packet of more
than 24576 bytes cannot become JSON again, but "unpack --body -" takes its body.

With --type, "body" is the JSON of message T, an object or that object as text,
of any length, and T goes into the packet. Its message_type must have encoding
type 2. "vynpkt list" prints the names for T.

What the packet does not carry is reported, with exit code 4: a key that the
envelope does not know, a value of the wrong type, a member of the bag, a text
that is cut. --lenient leaves these reports out.

With --header, the JSON is that of Header itself, as "show --header" prints it,
and all of it goes into the packet. So does all of a line that "show --types"
prints, which has "message", or "type" and "encoding": "message" becomes the
body, by its "name" or by the types.

-l writes each packet behind its length, a protobuf varint; with --hex or
--base64, each as a line of text. The first line that is refused ends the run.
Standard output has the packets of the lines before it by then, while a file
named with -o stays as it was. A line that loses something is written and
reported, the run goes on, and the exit code is 4.

Examples:
  vynpkt pack envelope.json -o packet.bin
  vynpkt pack -z --new-id --now --status LIVE envelope.json -o packet.zst
  vynpkt pack --body photo.jpg envelope.json -o packet.bin
  vynpkt pack --type Telemetry envelope.json -o packet.bin
  vynpkt pack -l envelopes.jsonl -o packets.bin
  vynpkt show --header packets.dat | vynpkt pack -l --header -o again.dat
  vynpkt show --types types.txt packets.dat | vynpkt pack -l --types types.txt
  vynpkt pack -l -z --base64 envelopes.jsonl)";

// For all fields but the body: their texts are as long as in the header, and a tag with its number
// takes at most eleven bytes.
constexpr std::size_t kFieldsRoom = 2 * sizeof(msg_hdr);

constexpr char kUnfitBody[] = "\"body\" is neither a string nor an object";

// What a packet lacks, and the result of the library that tells it, if one does.
struct Loss {
    std::string reason;
    LibraryCode code = {};
};

struct Packet {
    std::string bytes;
    std::vector<Loss> losses = {};
};

[[noreturn]] void refuse(const Place& place, const std::string& reason, LibraryCode code = {}) {
    throw Failure(ExitCode::kRefused, place, reason, code);
}

// The library reads one document and ignores what follows, which would be lost without a message.
void refuse_second_document(const std::string& text, const Place& place) {
    if (text.find('\0') != std::string::npos) {
        refuse(place, "the envelope holds a NUL byte");
    }
    if (!is_blank(std::string_view(text).substr(end_of_document(text)))) {
        refuse(place, "more text behind the envelope; -l takes one envelope on each line");
    }
}

bool is_object(const std::string& json) {
    const std::unique_ptr<char, decltype(&free)> with_body(add_body_to_message(json.c_str(), ""),
                                                           free);
    return with_body != nullptr;
}

std::string why_no_body(const std::string& envelope) {
    int type = VYN_JSON_NULL;
    (void)get_json_type(envelope.c_str(), "body", &type);
    switch (type) {
        case VYN_JSON_NULL:
            return "the envelope has no \"body\", and there is no --body FILE";
        case VYN_JSON_STRING:
        case VYN_JSON_OBJECT:
            return "\"body\" is longer than " + std::to_string(VYN_JSON_BODY_MAX_CHARS) +
                   " characters, the most that goes from JSON to a packet; --body FILE takes any "
                   "length";
        default:
            return kUnfitBody;
    }
}

std::string bag_too_long() {
    return "\"property_bag\" is longer than " + std::to_string(MSG_HDR_BAG_SIZE - 1) +
           " characters";
}

std::string why_not_packed(const std::string& envelope, uint32_t code, const Place& place) {
    switch (code) {
        case VYN_BAD_ENVELOPE: {
            const std::string fault = syntax_fault(envelope, !place.part.empty());
            return "the envelope is not JSON" + (fault.empty() ? "" : ": " + fault);
        }
        case VYN_BAD_PROPERTY_BAG:
            return bag_too_long();
        case VYN_BAD_BODY:
            return why_no_body(envelope);
        default:
            return "the packet could not be made";
    }
}

std::string loss_of(uint32_t code) {
    return code == VYN_BAD_BODY
               ? "\"body\" is not base64 as its message_type says; packed without a body"
               : bag_too_long() + "; packed without it";
}

// Takes the body out of the envelope.
Packet pack_envelope(const std::string& envelope, const Place& place) {
    Packet packet{std::string(kFieldsRoom + VYN_JSON_BODY_MAX_CHARS, '\0')};
    uint32_t length = 0;
    const uint32_t code =
        cnvrt_json_hdr_to_protobuf(envelope.c_str(), bytes_of(packet.bytes),
                                   static_cast<uint32_t>(packet.bytes.size()), &length);
    const bool soft = code == VYN_BAD_PROPERTY_BAG || (code == VYN_BAD_BODY && length > 0);
    if (code != VYN_OK && !soft) {
        refuse(place, why_not_packed(envelope, code, place), code);
    }
    packet.bytes.resize(length);
    if (soft) {
        packet.losses.push_back({loss_of(code), code});
    }
    return packet;
}

msg_hdr read_header(const std::string& envelope, const Place& place) {
    msg_hdr hdr{};
    if (get_msg_hdr(envelope.c_str(), &hdr) == 0) {
        refuse(place, why_not_packed(envelope, VYN_BAD_ENVELOPE, place), VYN_BAD_ENVELOPE);
    }
    if (!is_object(envelope)) {
        refuse(place, "the envelope is not a JSON object");  // the header would be empty
    }
    return hdr;
}

Packet pack_with_body(const std::string& envelope, const std::string& body, const Place& place) {
    const msg_hdr hdr = read_header(envelope, place);
    Packet packet{std::string(kFieldsRoom + body.size(), '\0')};
    uint32_t length = 0;
    const uint32_t code = cnvrt_hdr_to_protobuf(
        &hdr, bytes_of(packet.bytes), static_cast<uint32_t>(packet.bytes.size()), &length,
        bytes_of(std::string_view(body)), static_cast<uint32_t>(body.size()));
    if (code != VYN_OK) {
        refuse(place, why_not_packed(envelope, code, place), code);
    }
    packet.bytes.resize(length);
    return packet;
}

std::string body_text(const std::string& envelope, const Place& place) {
    // In the text of an object a character takes at most six bytes, as control characters do.
    std::string text(6 * envelope.size(), '\0');
    if (get_body_from_message(envelope.c_str(), text.data(), static_cast<uint32_t>(text.size())) ==
        0) {
        int type = VYN_JSON_NULL;
        (void)get_json_type(envelope.c_str(), "body", &type);
        refuse(place, type == VYN_JSON_NULL ? "the envelope has no \"body\"" : kUnfitBody);
    }
    text.resize(std::strlen(text.c_str()));
    return text;
}

Packet pack_with_type(const std::string& envelope, const Descriptor& type, const Place& place) {
    const msg_hdr hdr = read_header(envelope, place);
    if (hdr.encoding_type != MSG_ENCODING_BINARY) {
        const uint32_t binary = combine_msg_type_encoding_type(hdr.msg_type, MSG_ENCODING_BINARY);
        refuse(place, "its message_type is not that of a binary body, as a message is; " +
                          std::to_string(binary) + " would be");
    }
    const Place within = place.within("\"body\"");
    const std::string quoted = with_integers_quoted(envelope);
    const Converted body = encode(type, body_text(quoted, place), within);
    if (quoted != envelope) {
        (void)encode(type, body_text(envelope, place),
                     within);  // refuses a number in place of a text
    }
    Packet packet = pack_with_body(envelope, body.data, place);
    if (!body.loss.empty()) {
        packet.losses.push_back({"\"body\": " + body.loss});
    }
    return packet;
}

class Pack : public Command {
public:
    explicit Pack(CLI::App& program)
        : Command(program, "pack", "Turn a JSON envelope into a packet", kNotes) {
        add_input(input_, "The envelope");
        CLI::App& app = arguments();
        app.add_option("--body", body_, "Take the body from FILE, byte for byte")
            ->type_name("FILE");
        app.add_option("-t,--type", type_name_, "Take \"body\" as JSON of message T; see below")
            ->type_name("T");
        app.add_flag("--new-id", new_id_, "Give the packet a new message_id");
        app.add_flag("--now", now_, "Set time to the current time");
        app.add_option_function<std::string>(
               "--status", [this](const std::string& text) { status_ = parse_status(text); },
               "Set packet_status: " + status_names())
            ->type_name("STATUS");
        app.add_flag("-z,--compress", compress_, "Compress the packet");
        app.add_flag("-l,--lines", lines_, "Take an envelope from each line; see below");
        app.add_flag("--hex", hex_, "Write each packet as a line of hexadecimal digits");
        app.add_flag("--base64", base64_, "Write each packet as a line of base64");
        app.add_flag("--lenient", lenient_, "Do not tell what of the envelope is left out");
        options_.add_to(app, false);
    }

    ExitCode run() override {
        check_arguments();
        type_ = type_name_.empty() ? nullptr : &find_message(type_name_);
        types_ = options_.read_types();
        Output out(output());
        if (!as_text()) {
            out.refuse_terminal();
        }
        const ExitCode code = lines_ ? pack_lines(out) : pack_one(out);
        out.commit();
        return code;
    }

private:
    [[nodiscard]] bool as_text() const { return hex_ || base64_; }

    void check_arguments() const {
        if (lines_ && ((compress_ && !as_text()) || !body_.empty())) {
            throw Failure(ExitCode::kUsage, "--lines",
                          compress_ && body_.empty()
                              ? "goes with neither --compress nor --body; --hex or --base64 makes "
                                "lines of compressed packets"
                              : "goes with neither --compress nor --body");
        }
        if (hex_ && base64_) {
            throw Failure(ExitCode::kUsage, "--hex", "does not go with --base64");
        }
        if (!type_name_.empty() && !body_.empty()) {
            throw Failure(ExitCode::kUsage, "--type", "does not go with --body");
        }
        if (!type_name_.empty() && options_.header()) {
            throw Failure(ExitCode::kUsage, "--type",
                          "does not go with --header; give \"name\" and \"message\"");
        }
        if (is_standard(body_) && is_standard(input_)) {
            throw Failure(ExitCode::kUsage, "--body -",
                          "the envelope comes from standard input already; name its file");
        }
    }

    ExitCode pack_one(Output& out) const {
        const std::string envelope = read_whole(input_);
        const Packet packet = pack(envelope, {input_name(input_)});
        out.write(written(packet.bytes));
        return packet.losses.empty() ? ExitCode::kDone : ExitCode::kLoss;
    }

    ExitCode pack_lines(Output& out) const {
        LineReader lines(input_);
        std::string line;
        ExitCode code = ExitCode::kDone;
        while (lines.next(line)) {
            if (is_blank(line)) {
                continue;
            }
            const Packet packet = pack(line, lines.place());
            out.write(written(packet.bytes));
            code = packet.losses.empty() ? code : ExitCode::kLoss;
        }
        return code;
    }

    // The packet in the form that is asked for.
    [[nodiscard]] std::string written(const std::string& packet) const {
        const std::string& bytes = compress_ ? compressed(packet) : packet;
        if (as_text()) {
            return write_text_form(hex_ ? TextForm::kHex : TextForm::kBase64, bytes) + "\n";
        }
        return lines_ ? delimited(bytes) : bytes;
    }

    [[nodiscard]] Packet pack(const std::string& envelope, const Place& place) const {
        refuse_second_document(envelope, place);
        Packet packet = make(envelope, place);
        stamp(packet.bytes, place);
        for (const Loss& loss : packet.losses) {
            tell({ExitCode::kLoss, place, loss.reason, loss.code});
        }
        return packet;
    }

    // Whether all of the JSON goes into the packet, and not only what the library takes.
    [[nodiscard]] bool takes_all(const std::string& json) const {
        return options_.header() || (type_ == nullptr && body_.empty() && is_typed_line(json));
    }

    [[nodiscard]] Packet make(const std::string& json, const Place& place) const {
        return takes_all(json) ? make_of_all(json, place) : make_of_envelope(json, place);
    }

    [[nodiscard]] Packet make_of_all(const std::string& json, const Place& place) const {
        JsonPacket parsed = read_json_packet(json, options_.header(), types_, place);
        if (!body_.empty()) {
            parsed.header.set_body(read_whole(body_));
        }
        Packet packet{parsed.header.SerializeAsString()};
        if (!lenient_) {
            for (const std::string& loss : parsed.losses) {
                packet.losses.push_back({loss});
            }
        }
        return packet;
    }

    [[nodiscard]] Packet make_of_envelope(const std::string& envelope, const Place& place) const {
        Packet packet = convert(envelope, place);
        if (!lenient_) {
            for (const std::string& loss : envelope_losses(envelope, use(packet))) {
                packet.losses.push_back({loss});
            }
        }
        return packet;
    }

    [[nodiscard]] EnvelopeUse use(const Packet& packet) const {
        EnvelopeUse use{
            type_ != nullptr || !body_.empty(),
            !packet.losses.empty() && packet.losses.front().code == VYN_BAD_PROPERTY_BAG};
        const std::pair<bool, const char*> replaced[] = {{!body_.empty(), "body"},
                                                         {new_id_, "message_id"},
                                                         {now_, "time"},
                                                         {status_.has_value(), "packet_status"}};
        for (const auto& [is_replaced, key] : replaced) {
            if (is_replaced) {
                use.replaced.emplace_back(key);
            }
        }
        return use;
    }

    [[nodiscard]] Packet convert(const std::string& envelope, const Place& place) const {
        if (type_ != nullptr) {
            return pack_with_type(envelope, *type_, place);
        }
        return body_.empty() ? pack_envelope(envelope, place)
                             : pack_with_body(envelope, read_whole(body_), place);
    }

    void stamp(std::string& packet, const Place& place) const {
        Header header;
        if (!parse_header(packet, header)) {
            // The library may cut a text within a character, and then no receiver could read the
            // packet.
            refuse(place,
                   "a text is not UTF-8, or too long for its field and cut inside a character",
                   VYN_NOT_A_HEADER);
        }
        if (!new_id_ && !now_ && !status_) {
            return;
        }
        if (new_id_) {
            char uuid[MSG_UUID_SIZE];
            get_new_message_uuid(uuid, sizeof uuid);
            header.set_message_id(uuid);
        }
        if (now_) {
            header.set_time(static_cast<int64_t>(get_current_timestamp_()));
        }
        if (status_) {
            header.set_packet_status(static_cast<PacketStatus>(*status_));
        }
        packet = header.SerializeAsString();
    }

    [[nodiscard]] static std::string delimited(const std::string& packet) {
        constexpr std::size_t kMaxVarint32 = 5;
        std::string entry(kMaxVarint32, '\0');
        const uint8_t* end = google::protobuf::io::CodedOutputStream::WriteVarint32ToArray(
            static_cast<uint32_t>(packet.size()), bytes_of(entry));
        entry.resize(static_cast<std::size_t>(end - bytes_of(entry)));
        return entry + packet;
    }

    std::string input_ = "-";
    std::string body_;
    std::string type_name_;
    const Descriptor* type_ = nullptr;
    bool new_id_ = false;
    bool now_ = false;
    std::optional<int> status_;
    bool compress_ = false;
    bool lines_ = false;
    bool hex_ = false;
    bool base64_ = false;
    bool lenient_ = false;
    PacketOptions options_;
    MessageTypes types_;
};

}  // namespace

CommandPtr make_pack(CLI::App& program) { return std::make_unique<Pack>(program); }

}  // namespace vynpkt

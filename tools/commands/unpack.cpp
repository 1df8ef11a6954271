// unpack: from a packet to its JSON envelope and its body.
#include <json-c/json.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "cli/command.h"
#include "cli/packet_options.h"
#include "cli/text_options.h"
#include "io/input.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/packet_file.h"
#include "io/zstd_frame.h"
#include "json/packet_json.h"
#include "json_helper.h"
#include "packets/packet_contents.h"
#include "proto_helper.h"
#include "protobuf/header_json.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads a packet, compressed or plain, from FILE, or from standard input without
FILE or with "-". JSON does not carry the packet status, and "version" is always
3 in it. A packet of more than 24576 bytes cannot become JSON; --body - still
takes its body. Without -o, "--body -" prints the body and no envelope.

With --type, the body is the bytes of message T, and "body" becomes the JSON of
T, an object, whatever its length. "vynpkt list" prints the names for T.

--types FILE, or VYNPKT_TYPES in the environment, names the message of each type
by lines NUMBER NAME; "type", "encoding", "name" and "message" then stand in place
of "body". --header prints Header itself: its status, its whole property bag and
a body of any length.

--hex and --base64 take the packet as text. With -l each line is a packet, whose
JSON is written before the next line is read. A line that is refused is reported
and passed, and the exit code is 4. --plain takes no packet for a compressed one.

Examples:
  vynpkt unpack packet.bin
  vynpkt unpack --body photo.jpg -o envelope.json packet.bin
  vynpkt unpack --body - packet.bin | hexdump -C
  vynpkt unpack --type Telemetry packet.bin | jq .body
  vynpkt unpack packet.bin | jq -r .message_id
  vynpkt unpack --header --types types.txt packet.bin
  mosquitto_sub -F %x -t 'car/#' | vynpkt unpack -l --hex --types types.txt)";

bool is_soft(uint32_t code) { return code == VYN_DOES_NOT_FIT || code == VYN_BAD_BODY; }

constexpr char kAPacketFile[] =
    "not a valid Header; this is a packet file, which \"vynpkt show\" reads";

// Whether bytes that are no packet themselves begin with an entry.
bool is_packet_file(std::string_view bytes) {
    const vyn::LengthPrefix prefix = read_length(bytes);
    Header header;
    const auto length = static_cast<std::size_t>(prefix.length);
    return length > 0 && prefix.size > 0 && length <= bytes.size() - prefix.size &&
           parse_header(bytes.substr(prefix.size, length), header) && !parse_header(bytes, header);
}

std::string content_of(const std::string& packet, bool is_compressed) {
    return is_compressed ? decompressed(packet) : packet;
}

std::string words_for(uint32_t code, const std::string& packet, bool is_compressed) {
    switch (code) {
        case VYN_DOES_NOT_FIT:
            return "a text is too long for the envelope and left empty there";
        case VYN_NOT_A_HEADER:
            return is_packet_file(content_of(packet, is_compressed)) ? kAPacketFile : kNotAHeader;
        case VYN_BAD_BODY:
            return "a binary body of more than " + std::to_string(VYN_BINARY_BODY_CAPACITY) +
                   " bytes does not go into the envelope and is left empty there; --body FILE "
                   "takes it whole";
        case VYN_NOT_DECOMPRESSED:
            try {
                if (is_packet_file(content_of(packet, is_compressed))) {
                    return kAPacketFile;
                }
            } catch (const FrameError& error) {
                return error.what();
            }
            return "more than the " + std::to_string(VYN_PACKET_CAPACITY) +
                   " bytes that become JSON; --body - takes the body";
        default:
            return "the envelope could not be made";
    }
}

// Whether a terminal can show the body.
bool is_plain_text(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) {
        constexpr unsigned char kDelete = 0x7F;
        return (c >= ' ' && c != kDelete) || c == '\n' || c == '\r' || c == '\t';
    });
}

// Removes the line breaks with their indentation, since an envelope is one line. Newlines in
// strings are escaped and stay.
std::string on_one_line(const std::string& json) {
    std::string line;
    bool indent = false;
    for (const char c : json) {
        indent = c == '\n' || (indent && c == ' ');
        if (!indent) {
            line += c;
        }
    }
    return line;
}

class Unpack : public Command {
public:
    explicit Unpack(CLI::App& program)
        : Command(program, "unpack", "Turn a packet into its JSON envelope", kNotes) {
        add_input(input_, "The packet");
        arguments()
            .add_option("--body", body_, "Write the body to FILE as well, byte for byte")
            ->type_name("FILE");
        arguments()
            .add_option("-t,--type", type_name_, "Show the body as JSON of message T; see below")
            ->type_name("T");
        style_.add_to(arguments(), true);
        text_.add_to(arguments());
    }

    ExitCode run() override {
        check_usage();
        type_ = type_name_.empty() ? nullptr : &find_message(type_name_);
        by_types_ = type_ == nullptr && (style_.has_types() || style_.header());
        types_ = by_types_ ? style_.read_types() : MessageTypes();
        return text_.lines() ? unpack_lines() : unpack_one();
    }

private:
    void check_usage() {
        text_.check();
        if (text_.lines() && !body_.empty()) {
            throw Failure(ExitCode::kUsage, "--lines", "does not go with --body");
        }
        if (!body_.empty() && !output().empty() && same_file(body_, output())) {
            throw Failure(ExitCode::kUsage, output(), "cannot be both the envelope and the body");
        }
        for (const char* other : {"--types", "--header", "--keep-body", "--enum-names"}) {
            if (!type_name_.empty() && is_given(other)) {
                throw Failure(ExitCode::kUsage, "--type", std::string("does not go with ") + other);
            }
        }
        for (const char* option : {"--type", "--types", "--header"}) {
            if (is_given(option) && !envelope_wanted()) {
                throw Failure(ExitCode::kUsage, option,
                              "is about the envelope, which \"--body -\" leaves out; add -o FILE");
            }
        }
    }

    // Whether the arguments have this option. CLI11 also counts one that the environment sets.
    [[nodiscard]] bool is_given(const std::string& name) {
        const CLI::Option& option = *arguments().get_option(name);
        const char* fallback =
            option.get_envname().empty() ? nullptr : std::getenv(option.get_envname().c_str());
        return option.count() > 0 &&
               (fallback == nullptr || option.as<std::string>() != std::string(fallback));
    }

    [[nodiscard]] bool envelope_wanted() const { return !is_standard(body_) || !output().empty(); }

    ExitCode unpack_one() {
        const Place place{input_name(input_)};
        const std::string packet = text_.read(input_);
        ExitCode code = ExitCode::kDone;
        std::string envelope;
        if (envelope_wanted()) {
            code = make_envelope(packet, place, envelope);
        }
        Header header;
        if (!body_.empty()) {
            parse(packet, place, header);
        }
        write(envelope + "\n", header.body());
        return code;
    }

    ExitCode unpack_lines() {
        Output out(output());
        std::string envelope;
        const ExitCode code = text_.read_lines(
            input_,
            [&](const std::string& packet, const Place& place) {
                const ExitCode one = make_envelope(packet, place, envelope);
                out.write(envelope + "\n");
                return one;
            },
            [this](const Remark& remark) { tell(remark); });
        out.commit();
        return code;
    }

    ExitCode make_envelope(const std::string& packet, const Place& place, std::string& envelope) {
        if (type_ != nullptr) {
            return convert_with_type(packet, place, envelope);
        }
        return by_types_ ? convert_by_types(packet, place, envelope)
                         : convert(packet, place, envelope);
    }

    ExitCode convert(const std::string& packet, const Place& place, std::string& envelope) const {
        envelope.resize(kEnvelopeRoom);
        const auto room = static_cast<uint32_t>(envelope.size());
        Header header;
        uint32_t code = VYN_NOT_A_HEADER;
        const bool is_compressed = text_.is_compressed(packet);
        if (is_compressed) {
            code = cnvrt_protobuf_to_json_hdr(bytes_of(std::string_view(packet)), envelope.data(),
                                              static_cast<uint32_t>(packet.size()), room);
        } else if (packet.size() > VYN_PACKET_CAPACITY) {
            code = VYN_NOT_DECOMPRESSED;  // the result for a frame of so many bytes
        } else if (parse_header(packet, header)) {
            code = vyn::header_to_json(header, envelope.data(), room);
        }
        envelope.resize(std::strlen(envelope.c_str()));
        if (code == VYN_OK) {
            return ExitCode::kDone;
        }
        const std::string reason = words_for(code, packet, is_compressed);
        if (!is_soft(code)) {
            throw Failure(ExitCode::kRefused, place, reason, code);
        }
        tell({ExitCode::kLoss, place, reason, code});
        return ExitCode::kLoss;
    }

    // The body is converted apart from the envelope, because it may be longer than the envelope
    // takes.
    ExitCode convert_with_type(const std::string& packet, const Place& whole,
                               std::string& envelope) const {
        Header header;
        parse(packet, whole, header);
        const Place place = whole.within("the body");
        const Converted body = decode(*type_, header.body(), place);
        header.clear_body();
        const ExitCode code = convert(header.SerializeAsString(), whole, envelope);
        set_body(envelope, on_one_line(body.data), whole);
        if (body.loss.empty()) {
            return code;
        }
        tell({ExitCode::kLoss, place, body.loss});
        return ExitCode::kLoss;
    }

    // As "show" prints the packet.
    ExitCode convert_by_types(const std::string& packet, const Place& place,
                              std::string& envelope) {
        Header header;
        const std::size_t length = parse(packet, place, header);
        contents_.look_at(header, 0, length);
        write_json(contents_, style_.style(), line_);
        envelope = line_.json;
        for (const PacketLine::Loss& loss : line_.losses) {
            if (envelope.empty()) {
                throw Failure(ExitCode::kRefused, place, loss.reason, loss.code);
            }
            tell({ExitCode::kLoss, place, loss.reason, loss.code});
        }
        return line_.losses.empty() ? ExitCode::kDone : ExitCode::kLoss;
    }

    // Puts the text in as it is. If json-c parsed it, -0 would become 0.
    static void set_body(std::string& envelope, std::string json, const Place& place) {
        json_object* body = json_object_new_object();
        json_object_set_serializer(body, json_object_userdata_to_json_string, json.data(), nullptr);
        envelope.resize(2 * envelope.size() + json.size() + sizeof R"("body": , )");
        if (set_array_key_json(envelope.data(), "body", body,
                               static_cast<uint32_t>(envelope.size())) == 0) {
            throw Failure(ExitCode::kRefused, place, "the envelope could not be made");
        }
        envelope.resize(std::strlen(envelope.c_str()));
    }

    // Returns the length of the packet, once it is decompressed.
    std::size_t parse(const std::string& packet, const Place& place, Header& header) const {
        const std::string plain = text_.plain(packet, place);
        if (!parse_header(plain, header)) {
            throw Failure(ExitCode::kRefused, place, kNotAHeader, VYN_NOT_A_HEADER);
        }
        return plain.size();
    }

    // Writes and closes both before either file is replaced, and replaces the envelope first: one
    // that cannot be written leaves both files as they were.
    void write(const std::string& envelope, const std::string& body) const {
        std::optional<Output> body_out;
        if (!body_.empty()) {
            body_out.emplace(body_);
            if (!is_plain_text(body)) {
                body_out->refuse_terminal();
            }
            body_out->write(body);
            body_out->finish();
        }
        if (envelope_wanted()) {
            Output out(output());
            out.write(envelope);
            out.commit();
        }
        if (body_out) {
            body_out->commit();
        }
    }

    std::string input_ = "-";
    std::string body_;
    std::string type_name_;
    PacketOptions style_;
    TextOptions text_;
    const Descriptor* type_ = nullptr;
    bool by_types_ = false;
    MessageTypes types_;
    PacketContents contents_{types_};
    PacketLine line_;
};

}  // namespace

CommandPtr make_unpack(CLI::App& program) { return std::make_unique<Unpack>(program); }

}  // namespace vynpkt

// diff: what differs between two packet files.
#include <CLI/CLI.hpp>
#include <string_view>

#include "cli/command.h"
#include "cli/packet_options.h"
#include "cli/progress.h"
#include "io/file_window.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/packet_file.h"
#include "packets/packet_difference.h"
#include "packets/packet_match.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Compares the packets of two packet files, each with the one of the same
message_id. Packets without message_id, and several with the same one, are taken
in their order. Prints which are only in A, only in B, changed (with the fields
and both values), and moved to another place among the others; at the end, how
many. Prints nothing when all are the same.

With --types, a change of the body is told by the fields of the message. With
--json, a line is an object: "what" ("only in A", "only in B", "changed" or
"moved"), "moved", "message_id", "offset_a", "offset_b", and "fields", each with
"path", "a" and "b".

Both must be regular files; they are read twice, and memory takes some 60 bytes
for each of at most 5000000 records. A damaged file is not compared: "vynpkt
recover" mends it.

Exit code 0: the same; 1: they differ; 2: wrong usage; 3: a file cannot be read,
or is damaged.

Examples:
  vynpkt diff old.dat new.dat
  vynpkt diff --types types.txt --json old.dat new.dat | jq -c .fields)";

[[noreturn]] void refuse_changed(const std::string& name) {
    throw Failure(ExitCode::kFileError, name, "was changed while it was read");
}

// A file of zeros holds as many empty packets as it has bytes.
constexpr uint64_t kMostPackets = 5000000;

// Reads single packets of a file in any order.
class PacketWindow {
public:
    explicit PacketWindow(const std::string& path) : window_(path) {}

    // The packet of the entry at this offset, until the next call.
    [[nodiscard]] std::string_view packet_at(uint64_t offset) {
        constexpr std::size_t kLongestPrefix = 5;
        const vyn::LengthPrefix prefix = read_length(window_.bytes_at(offset, kLongestPrefix));
        const auto length = static_cast<std::size_t>(prefix.length);
        const std::string_view packet = window_.bytes_at(offset + prefix.size, length);
        if (prefix.size == 0 || packet.size() != length) {
            refuse_changed(window_.name());
        }
        return packet;
    }

    void look_at(uint64_t offset, PacketContents& packet) {
        const std::string_view bytes = packet_at(offset);
        if (!parse_header(bytes, header_)) {
            refuse_changed(window_.name());
        }
        packet.look_at(header_, offset, bytes.size());
    }

private:
    FileWindow window_;
    Header header_;
};

struct Counts {
    uint64_t only_in_a = 0;
    uint64_t only_in_b = 0;
    uint64_t changed = 0;
    uint64_t moved = 0;

    [[nodiscard]] bool any() const { return only_in_a + only_in_b + changed + moved > 0; }
};

struct Finding {
    const char* what;
    bool moved;
    const std::string& message_id;
    std::optional<uint64_t> offset_a;
    std::optional<uint64_t> offset_b;
    std::vector<FieldDifference> fields = {};

    [[nodiscard]] bool is(std::string_view other) const { return other == what; }
};

std::string number_or_null(const std::optional<uint64_t>& number) {
    return number ? std::to_string(*number) : "null";
}

std::string json_line(const Finding& finding) {
    std::string line = "{\"what\":\"" + std::string(finding.what) +
                       "\",\"moved\":" + (finding.moved ? "true" : "false") +
                       ",\"message_id\":" + json_text(finding.message_id) +
                       ",\"offset_a\":" + number_or_null(finding.offset_a) +
                       ",\"offset_b\":" + number_or_null(finding.offset_b) + ",\"fields\":[";
    for (const FieldDifference& field : finding.fields) {
        line += line.back() == '[' ? "" : ",";
        line += "{\"path\":" + json_text(field.path) + ",\"a\":" + field.a.value_or("null") +
                ",\"b\":" + field.b.value_or("null") + "}";
    }
    return line + "]}\n";
}

// Bodies can be long; people look at the beginning.
std::string shown(const std::optional<std::string>& json) {
    constexpr std::size_t kLongest = 120;
    if (!json) {
        return "(none)";
    }
    if (json->size() <= kLongest) {
        return *json;
    }
    std::size_t end = kLongest;
    while ((static_cast<unsigned char>((*json)[end]) & 0xC0U) == 0x80U) {
        --end;  // not within a character
    }
    return json->substr(0, end) + "... (" + std::to_string(json->size()) + " bytes)";
}

std::string text_lines(const Finding& finding) {
    std::string text = finding.what;
    const bool changed = finding.offset_a && finding.offset_b;
    text += changed && finding.moved && !finding.is("moved") ? " and moved: " : ": ";
    text += finding.message_id.empty() ? "no message_id" : json_text(finding.message_id);
    text +=
        ", at offset " + std::to_string(finding.offset_a ? *finding.offset_a : *finding.offset_b);
    text += changed ? " in A, " + std::to_string(*finding.offset_b) + " in B\n" : "\n";
    if (changed && finding.fields.empty() && !finding.is("moved")) {
        text += "  the same fields in other bytes\n";
    }
    for (const FieldDifference& field : finding.fields) {
        text += "  " + field.path + ": " + shown(field.a) + " -> " + shown(field.b) + "\n";
    }
    return text;
}

class Diff : public Command {
public:
    explicit Diff(CLI::App& program)
        : Command(program, "diff", "Compare the packets of two packet files", kNotes) {
        CLI::App& app = arguments();
        app.add_option("A", a_, "The first packet file")->type_name("")->required();
        app.add_option("B", b_, "The second one")->type_name("")->required();
        options_.add_types_to(app);
        app.add_flag("--enum-names", enum_names_, "Print enums of messages by name");
        describe_json("Print an object for each difference; errors as objects, too");
    }

    // Exit code 1 means that the files differ, so nothing else ends with it.
    ExitCode run() override {
        try {
            return compare();
        } catch (const Failure& failure) {
            Remark remark = failure.remark();
            if (remark.exit != ExitCode::kRefused) {
                throw;
            }
            remark.exit = ExitCode::kFileError;
            tell(remark);
        } catch (const std::bad_alloc&) {
            tell({ExitCode::kFileError, {}, "not enough memory for so many packets"});
        }
        return ExitCode::kFileError;
    }

private:
    ExitCode compare() {
        if (is_standard(a_) || is_standard(b_)) {
            throw Failure(ExitCode::kUsage, "-",
                          "files are read twice, so A and B must be regular");
        }
        const MessageTypes types = options_.read_types();
        Output out(output());
        PacketWindow a(a_);
        (void)PacketWindow(b_);  // refuses what is no regular file, as the other does
        PacketMatch match;
        for_each(a_, [&](const PacketFile& file) {
            match.add_a(file.header().message_id(), file.offset());
        });
        match.end_a();
        for_each(b_, [&](const PacketFile& file) { match.add_b(file.header().message_id()); });
        match.end_b();
        look_at_b(match, a, types, out);
        look_at_rest_of_a(match, a, types, out);
        if (counts_.any() && !json()) {
            out.append(std::to_string(counts_.only_in_a) + " only in A, " +
                       std::to_string(counts_.only_in_b) + " only in B, " +
                       std::to_string(counts_.changed) + " changed, " +
                       std::to_string(counts_.moved) + " moved\n");
        }
        out.commit();
        return counts_.any() ? ExitCode::kRefused : ExitCode::kDone;
    }

    template <typename Visit>
    void for_each(const std::string& path, const Visit& visit) const {
        using Outcome = PacketFile::Outcome;
        PacketFile file(path);
        Progress progress(name(), file.size());
        Outcome outcome = Outcome::kEntry;
        for (uint64_t count = 1; (outcome = file.next()) == Outcome::kEntry; ++count) {
            if (count > kMostPackets) {
                throw Failure(ExitCode::kFileError, file.name(),
                              "more than " + std::to_string(kMostPackets) + " records");
            }
            progress.at(file.position());
            visit(file);
        }
        if (outcome == Outcome::kDamaged) {
            throw Failure(ExitCode::kFileError, file.name(),
                          "damaged at offset " + std::to_string(file.offset()) + ": " +
                              file.reason() + "; see \"vynpkt recover\"");
        }
    }

    void look_at_b(const PacketMatch& match, PacketWindow& a, const MessageTypes& types,
                   Output& out) {
        PacketContents packet_a(types);
        PacketContents packet_b(types);
        std::size_t number = 0;
        for_each(b_, [&](const PacketFile& file) {
            const std::string& message_id = file.header().message_id();
            if (number >= match.size_of_b()) {
                refuse_changed(file.name());
            }
            const std::optional<uint64_t> partner = match.partner(number);
            const bool moved = match.is_moved(number);
            ++number;
            if (!partner) {
                ++counts_.only_in_b;
                return write({"only in B", false, message_id, {}, file.offset()}, out);
            }
            counts_.moved += moved ? 1 : 0;
            Finding finding{"moved", moved, message_id, partner, file.offset()};
            if (a.packet_at(*partner) != packet_of(file)) {
                ++counts_.changed;
                finding.what = "changed";
                a.look_at(*partner, packet_a);
                packet_b.look_at(file.header(), file.offset(), file.length());
                finding.fields = differences(packet_a, packet_b, enum_names_);
                write(finding, out);
            } else if (moved) {
                write(finding, out);
            }
        });
    }

    static std::string_view packet_of(const PacketFile& file) {
        const std::string_view entry = file.entry();
        return entry.substr(entry.size() - file.length());
    }

    void look_at_rest_of_a(const PacketMatch& match, PacketWindow& a, const MessageTypes& types,
                           Output& out) {
        PacketContents packet(types);
        for (const uint64_t offset : match.without_partner()) {
            ++counts_.only_in_a;
            a.look_at(offset, packet);
            write({"only in A", false, packet.header().message_id(), offset, {}}, out);
        }
    }

    void write(const Finding& finding, Output& out) const {
        out.append(json() ? json_line(finding) : text_lines(finding));
    }

    std::string a_;
    std::string b_;
    PacketOptions options_;
    bool enum_names_ = false;
    Counts counts_;
};

}  // namespace

CommandPtr make_diff(CLI::App& program) { return std::make_unique<Diff>(program); }

}  // namespace vynpkt

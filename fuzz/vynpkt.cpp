// What vynpkt reads: the input as a packet file to recover, as lines, as a packet and as JSON.
#include <algorithm>
#include <fstream>
#include <string>

#include "cli/progress.h"
#include "cli/report.h"
#include "fuzz.h"
#include "io/line_reader.h"
#include "io/packet.h"
#include "io/packet_file.h"
#include "io/recovery.h"
#include "io/text_form.h"
#include "io/zstd_frame.h"
#include "json/envelope_losses.h"
#include "json/json_packet.h"
#include "json/json_text.h"
#include "json/packet_json.h"
#include "packets/packet_difference.h"
#include "packets/packet_table.h"
#include "schema/catalogue.h"
#include "telemetry.pb.h"

using vyn_fuzz::require;

namespace {

// A file of these bytes, which the readers open by its path.
struct InputFile : vyn_fuzz::File {
    explicit InputFile(const std::string& bytes) { std::ofstream(path) << bytes; }
};

// How many entries there are, or -1 where the reader finds damage.
int64_t entries_of_whole(const std::string& bytes) {
    const InputFile file(bytes);
    vynpkt::PacketFile reader(file.path);
    auto outcome = reader.next();
    int64_t count = 0;
    for (; outcome == vynpkt::PacketFile::Outcome::kEntry; ++count) {
        outcome = reader.next();
    }
    return outcome == vynpkt::PacketFile::Outcome::kEnd ? count : -1;
}

// What recover keeps of a file: all of it but the gaps that are told.
std::string recover(const std::string& bytes, vynpkt::Recovered& recovered) {
    const InputFile input(bytes);
    vynpkt::FileWindow file(input.path);
    vynpkt::Progress progress("recover", bytes.size());
    std::string kept;
    std::string without_gaps;
    std::size_t at = 0;
    recovered = vynpkt::recover(
        file, progress, [&](std::string_view piece) { kept += piece; },
        [&](uint64_t begin, uint64_t end) {
            require(at <= begin && begin < end && end <= bytes.size(), "gaps in their order");
            without_gaps += bytes.substr(at, static_cast<std::size_t>(begin) - at);
            at = static_cast<std::size_t>(end);
        });
    require(kept == without_gaps + bytes.substr(at), "what is kept stands in the file");
    require(kept.size() + recovered.left == bytes.size(), "all bytes are accounted for");
    return kept;
}

void recover_twice(const std::string& bytes) {
    vynpkt::Recovered first;
    const std::string kept = recover(bytes, first);
    require(entries_of_whole(kept) == static_cast<int64_t>(first.entries), "what is kept is whole");
    require((entries_of_whole(bytes) >= 0) == (first.left == 0), "a whole file is copied");
    vynpkt::Recovered second;
    require(recover(kept, second) == kept, "what is kept is kept again");
}

void read_lines(const std::string& bytes) {
    const InputFile file(bytes);
    vynpkt::LineReader lines(file.path);
    std::string line;
    std::string joined;
    while (lines.next(line)) {
        joined += line + '\n';
    }
    require(joined == bytes + (bytes.empty() || bytes.back() == '\n' ? "" : "\n"), "all lines");
}

// The JSON of a packet and back.
void print_packet(Header& header) {
    static const InputFile file("0 Telemetry\n1 OtaManifestEcu\n5 Meta\n");
    static const vynpkt::MessageTypes types(file.path);
    header.DiscardUnknownFields();
    vynpkt::PacketContents packet(types);
    packet.look_at(header, 0, header.ByteSizeLong());
    vynpkt::PacketLine line;
    for (const bool as_header : {false, true}) {
        for (const bool with_types : {false, true}) {
            write_json(packet, {as_header, with_types, false, true}, line);
            if (as_header || with_types) {
                const auto read = vynpkt::read_json_packet(line.json, as_header, types, {"line"});
                require(read.header.SerializeAsString() == header.SerializeAsString() &&
                            read.losses.empty(),
                        "a packet comes back from its JSON");
            }
        }
    }
}

void tabulate(const Header& header) {
    static const InputFile file("0 Telemetry\n1 OtaManifestEcu\n5 Meta\n");
    static const vynpkt::MessageTypes types(file.path);
    thread_local vynpkt::PacketTable table(
        {vynpkt::PacketTable::Form::kTsv, "message,message.vin,body", "message.telemetry.data",
         false},
        types);
    vynpkt::PacketContents packet(types);
    packet.look_at(header, 0, header.ByteSizeLong());
    std::string rows;
    table.append_rows(packet, rows);
    std::size_t elements = 0;
    if (const auto* telemetry = dynamic_cast<const Telemetry*>(packet.message())) {
        for (const TelemetryData& data : telemetry->telemetry()) {
            elements += static_cast<std::size_t>(data.data_size());
        }
    }
    require(static_cast<std::size_t>(std::count(rows.begin(), rows.end(), '\n')) == elements,
            "a row for each element");
    require(vynpkt::differences(packet, packet, true).empty(),
            "a packet does not differ from itself");
}

void read_packet(const std::string& bytes) {
    try {
        Header header;
        const std::string plain = vynpkt::plain_packet(bytes, "packet");
        if (vynpkt::parse_header(plain, header)) {
            tabulate(header);
            print_packet(header);
        }
        require(vynpkt::decompressed(vynpkt::compressed(plain)) == plain, "compressed and back");
    } catch (const vynpkt::Failure&) {
        require(vynpkt::is_frame(bytes), "only a frame can be refused");
    }
}

void read_text(const std::string& bytes) {
    for (const vynpkt::TextForm form : {vynpkt::TextForm::kHex, vynpkt::TextForm::kBase64}) {
        const std::string text = vynpkt::write_text_form(form, bytes);
        require(vynpkt::read_text_form(form, text, {"text"}) == bytes, "as text and back");
        try {
            (void)vynpkt::read_text_form(form, bytes, {"text"});
        } catch (const vynpkt::Failure& failure) {
            require(failure.remark().file == "text", "a refusal tells the place");
        }
    }
}

void read_json(const std::string& bytes) {
    require(vynpkt::end_of_document(bytes) <= bytes.size(), "a document ends within its text");
    const std::string quoted = vynpkt::with_integers_quoted(bytes);
    require(vynpkt::with_integers_quoted(quoted) == quoted, "integers are quoted once");
    (void)vynpkt::envelope_losses(bytes, {});
    for (const char* name : {"Telemetry", "OtaManifestEcu", "EventMessage"}) {
        try {
            const vynpkt::Descriptor& type = vynpkt::find_message(name);
            const vynpkt::Converted encoded = vynpkt::encode(type, quoted, {"json"});
            (void)vynpkt::decode(type, encoded.data, {"bytes"});
        } catch (const vynpkt::Failure& failure) {
            require(failure.remark().file == "json", "what was encoded can be decoded");
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    recover_twice(bytes);
    read_lines(bytes);
    read_packet(bytes);
    read_text(bytes);
    read_json(bytes);
    return 0;
}

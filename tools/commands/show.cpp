// show: the packets of a packet file as lines of JSON.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "cli/command.h"
#include "cli/packet_options.h"
#include "cli/progress.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/packet_file.h"
#include "json/packet_json.h"
#include "packets/packet_filter.h"
#include "packets/packet_summary.h"
#include "packets/packet_table.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads a packet file of any length from FILE, or from standard input without FILE
or with "-", and prints the envelope of each packet on a line, as "unpack" does.
A packet that does not become JSON, such as one of more than 24576 bytes, is an
object with "offset", "length" and "error" instead, and the run ends with exit
code 4.

With --types, a line tells "type" (without the encoding), "encoding", "name" and
"message", the body as JSON, instead of a binary body whose type the file names.
A body that is not that message stays, with "message_error", and the run ends
with exit code 4. No packet is too long then. "vynpkt types" tells more of FILE.

--header prints Header itself, with all that an envelope leaves out, in the form
of "decode". "pack -l" with the same option makes the same packets again.

--only selects packets, and may be given several times: all must hold. In place
of "=" may stand != < <= > >= and "~" for a regular expression, as "grep -E"
takes it. KEY is a field of Header, as "device_id" or "property_bag.error", or
one of type (without the encoding), encoding, status, body_length, offset and
length; with --types also name, unknown_fields, and a field of the message, as
"message.meta.vin" or, of a map, "message.configuration.KEY". A repeated field
holds when one of its elements does, a field that is not there does not; "!=" is
the opposite of "=". "version" is the packet's own. Times are milliseconds, or
as 2026-11-01T00:00:00Z. A binary body is compared as base64, an enum by name or
number.

--csv and --tsv print a table with a line of names; the columns are keys as of
--only, and "message". Cells of CSV are quoted as RFC 4180 says, in lines that
end in a newline; TSV has \t \n \r \\ for these characters. What is not there is
an empty cell, a message or a repeated field is JSON. With --each, each element
of that field is a row, and columns within the field are those of the element.

--summary counts packets and their bytes by type, device_id and status, with the
first and the last time; beyond 50000 such groups, the rest counts as "others".

--skip and -n count the packets that --only selects. With --offset, each object
also tells where its record begins and the length of its packet.

-f goes on when the file ends: it prints what is appended, also once the file is
replaced by another of its name, until it is interrupted.

Records in front of damage are shown. Then the offset of the damage is reported
and the run ends with exit code 1; a file named with -o stays as it was.

Examples:
  vynpkt show packets.dat
  vynpkt show --types types.txt packets.dat | jq .message
  vynpkt show --only type=5 -n 10 packets.dat | jq .body
  vynpkt show --only 'time>=2026-11-01T00:00:00Z' --only 'body~err' packets.dat
  vynpkt show --only message_type=5 --records packets.dat -o some.dat
  vynpkt show --csv time,device_id,status,body_length packets.dat
  vynpkt show --types types.txt --tsv time,message.meta.vin packets.dat
  vynpkt show --types types.txt --each message.telemetry --csv time packets.dat
  vynpkt show --summary packets.dat
  vynpkt show --offset packets.dat | jq -c '[.offset, .message_id]'
  vynpkt show --header packets.dat | vynpkt pack -l --header -o same.dat
  vynpkt show --count packets.dat)";

class Show : public Command {
public:
    explicit Show(CLI::App& program)
        : Command(program, "show", "Print the packets of a packet file as JSON lines", kNotes) {
        add_input(input_, "The packet file");
        CLI::App& app = arguments();
        app.add_option("-n", most_, "Show at most N packets")->type_name("N");
        app.add_option("--skip", skip_, "Leave out the first N")->type_name("N");
        app.add_option_function<std::vector<std::string>>(
               "--only", [this](const std::vector<std::string>& texts) { take_filters(texts); },
               "Show packets with this value; all that are given must hold")
            ->type_name("KEY=VALUE")
            ->allow_extra_args(false);
        options_.add_to(app, true);
        app.add_flag("--offset", offset_, "Add the keys \"offset\" and \"length\"");
        app.add_option("--csv", csv_, "Print a table of these keys, with commas between")
            ->type_name("COL,COL,...");
        app.add_option("--tsv", tsv_, "The same with tabs between")->type_name("COL,COL,...");
        app.add_option("--each", each_, "In the table, a row for each element of this field")
            ->type_name("KEY");
        app.add_flag("--summary", summary_, "Print how many packets of which type there are");
        describe_json("With --summary, print an object; errors as objects, too");
        app.add_flag("--records", records_, "Copy the records themselves, as a packet file");
        app.add_flag("--count", count_, "Print only the number of packets");
        app.add_flag("-f,--follow", follow_, "Go on with what is appended to the file");
    }

    ExitCode run() override {
        refuse_contradictions();
        const MessageTypes types = options_.read_types();
        Output out(output());
        if (records_) {
            out.refuse_terminal();
        }
        make_filters(types);
        make_table(types);
        PacketFile file(input_);
        if (follow_ && (is_standard(input_) || !file.is_regular())) {
            throw Failure(ExitCode::kUsage, file.name(), "-f follows a regular file by its name");
        }
        style_ = options_.style();
        style_.position = offset_;
        show(file, types, out);
        out.commit();
        return code_;
    }

private:
    void take_filters(const std::vector<std::string>& texts) {
        std::for_each(texts.begin(), texts.end(), PacketFilter::check);
        only_ = texts;
    }

    void refuse_contradictions() const {
        const int forms = static_cast<int>(csv_.has_value()) + static_cast<int>(tsv_.has_value()) +
                          static_cast<int>(summary_) + static_cast<int>(records_) +
                          static_cast<int>(count_);
        if (forms > 1) {
            throw Failure(ExitCode::kUsage, Place{},
                          "only one of --csv, --tsv, --summary, --records and --count goes");
        }
        if (!each_.empty() && !csv_ && !tsv_) {
            throw Failure(ExitCode::kUsage, "--each", "is for --csv and --tsv");
        }
        if (follow_ && !output().empty()) {
            throw Failure(ExitCode::kUsage, "--follow",
                          "never ends, and the FILE of -o would appear at the end");
        }
        if (follow_ && (count_ || summary_)) {
            throw Failure(ExitCode::kUsage, "--follow", "never ends, so there is nothing to count");
        }
    }

    void make_table(const MessageTypes& types) {
        if (!csv_ && !tsv_) {
            return;
        }
        using Form = PacketTable::Form;
        const Form form = tsv_ ? Form::kTsv : Form::kCsv;
        table_.emplace(
            PacketTable::Options{form, tsv_ ? *tsv_ : *csv_, each_, options_.style().enum_names},
            types);
    }

    void make_filters(const MessageTypes& types) {
        for (const std::string& text : only_) {
            filters_.emplace_back(text, types);
        }
    }

    void show(PacketFile& file, const MessageTypes& types, Output& out) {
        PacketContents packet(types);
        PacketSummary summary(types);
        Progress progress(name(), file.size());
        progress.only_if(
            !out.is_terminal());  // packets that scroll by show the progress themselves
        if (table_) {
            std::string header;
            table_->append_header(header);
            out.append(header);
        }
        auto outcome = PacketFile::Outcome::kEntry;
        while (!(most_ && shown_ >= *most_) &&
               (outcome = next(file, out)) == PacketFile::Outcome::kEntry) {
            progress.at(file.position());
            packet.look_at(file.header(), file.offset(), file.length());
            if (!is_selected(packet) || ++seen_ <= skip_) {
                continue;
            }
            ++shown_;
            if (summary_) {
                summary.add(packet);
            } else if (!count_) {
                show(packet, file, out);
            }
        }
        if (count_) {
            out.write(std::to_string(shown_) + "\n");
        }
        if (summary_) {
            write(summary, out);
        }
        if (outcome == PacketFile::Outcome::kDamaged) {
            throw Failure(
                ExitCode::kRefused, file.name(),
                "damaged at offset " + std::to_string(file.offset()) + ": " + file.reason());
        }
    }

    [[nodiscard]] PacketFile::Outcome next(PacketFile& file, Output& out) const {
        if (!file.next_is_held()) {
            out.flush();  // before a wait, perhaps
        }
        PacketFile::Outcome outcome = file.next();
        while (follow_ && outcome != PacketFile::Outcome::kEntry && file.may_grow()) {
            if (file.wait_for_more()) {
                tell({ExitCode::kDone, {file.name()}, "replaced; going on with the new file"});
            }
            outcome = file.next();
        }
        return outcome;
    }

    [[nodiscard]] bool is_selected(PacketContents& packet) {
        return std::all_of(filters_.begin(), filters_.end(),
                           [&packet](PacketFilter& filter) { return filter.holds(packet); });
    }

    void show(PacketContents& packet, const PacketFile& file, Output& out) {
        if (records_) {
            out.append(file.entry());
        } else if (table_) {
            line_.json.clear();
            table_->append_rows(packet, line_.json);
            out.append(line_.json);
            tell_of_wrong_body(packet, file, out);
        } else {
            print(packet, file, out);
        }
    }

    void write(const PacketSummary& summary, Output& out) {
        if (json()) {
            summary.write_json(out);
        } else {
            summary.write_table(out);
        }
        if (summary.left_over() > 0) {
            code_ = ExitCode::kLoss;
            tell({ExitCode::kLoss,
                  {},
                  "too many different groups: " + std::to_string(summary.left_over()) +
                      " packets are counted together as others"});
        }
    }

    // What a table shows of the body, it lacks then.
    void tell_of_wrong_body(PacketContents& packet, const PacketFile& file, Output& out) {
        line_.losses.clear();
        if (table_->shows_messages() && packet.descriptor() != nullptr &&
            packet.message() == nullptr) {
            line_.losses.push_back(
                {"body: not a valid " + std::string(packet.descriptor()->full_name()), {}});
        }
        tell_losses(packet, file, out);
    }

    void tell_losses(const PacketContents& packet, const PacketFile& file, Output& out) {
        for (const PacketLine::Loss& loss : line_.losses) {
            out.flush();
            code_ = ExitCode::kLoss;
            tell({ExitCode::kLoss,
                  {file.name(), "record at offset " + std::to_string(packet.offset())},
                  loss.reason,
                  loss.code});
        }
    }

    void print(PacketContents& packet, const PacketFile& file, Output& out) {
        write_json(packet, style_, line_);
        tell_losses(packet, file, out);
        if (line_.json.empty()) {
            const PacketLine::Loss& loss = line_.losses.back();
            line_.json = "{ " + position_keys(packet) + ", \"error\": \"" +
                         with_code(loss.reason, loss.code) + "\" }";
        }
        line_.json += '\n';
        out.append(line_.json);
    }

    std::string input_ = "-";
    std::optional<uint64_t> most_;
    uint64_t skip_ = 0;
    std::vector<std::string> only_;
    std::vector<PacketFilter> filters_;
    std::optional<std::string> csv_;
    std::optional<std::string> tsv_;
    std::string each_;
    std::optional<PacketTable> table_;
    bool summary_ = false;
    PacketOptions options_;
    bool offset_ = false;
    bool records_ = false;
    bool count_ = false;
    bool follow_ = false;
    JsonStyle style_;
    PacketLine line_;
    uint64_t seen_ = 0;
    uint64_t shown_ = 0;
    ExitCode code_ = ExitCode::kDone;
};

}  // namespace

CommandPtr make_show(CLI::App& program) { return std::make_unique<Show>(program); }

}  // namespace vynpkt

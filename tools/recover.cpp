// recover: takes what can be trusted out of a damaged packet file.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <deque>

#include "command.h"
#include "io.h"
#include "packet.h"
#include "progress.h"
#include "record_file.h"
#include "record_scan.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Writes the records of the packet file FILE that can be trusted, as they stand,
and tells on standard error what was left behind. FILE must be a regular file.

Up to damage, a record is trusted as "verify" does, and a file that it calls
whole is copied. Behind damage, a record must be one that this library could
have written: a message_id or a message_type, no unknown field, exactly the
bytes that it serializes to again. Three of them in a row, or fewer that end
with the file, show where to go on. Left behind are also
- a record in front of damage when such a record begins in it and runs on beyond
  its end, or when its bytes go on to where records start again: its length is
  wrong, or it was torn and the next ones were appended to it;
- records in front of damage that have neither message_id nor message_type;
- more than 8 zero bytes in a row where a record should begin, behind damage or
  in front of it without such a record between them, and the record before them
  when it ends in zeros as well;
- what would take too long: bytes of which nearly each seems to begin a record.
Not noticed are bytes that changed within a text, a number or a body, a record
that is missing as a whole, and bytes that are missing within a record when its
length happens to end where another record does.

Exit code 0: FILE was whole; 4: something was left behind; 1: nothing is left.

Example:
  vynpkt recover packets.dat -o trusted.dat)";

// Records in front of damage that are looked at once more.
constexpr std::size_t kMaxSuspects = 64;
constexpr std::size_t kBlock = std::size_t{64} << 10;

class Recovery {
public:
    Recovery(std::string command, const std::string& name, FileWindow& file, Output& out)
        : command_(std::move(command)),
          name_(name),
          file_(file),
          progress_(command_, file.size()),
          scan_(file, progress_),
          out_(out) {}

    ExitCode run() {
        uint64_t at = 0;
        while (at < file_.size()) {
            at = accept(at) ? suspects_.back().end : pass(at);
        }
        copy(region_, at);
        sum_up();
        return left_ == 0 ? ExitCode::kDone : ExitCode::kLoss;
    }

private:
    bool accept(uint64_t at) {
        Record record;
        if (!read_zeros(at, record) && !read_packet(at, record)) {
            return false;
        }
        scan_.looked_at(record.begin, record.end);
        suspects_.push_back(record);
        if (suspects_.size() > kMaxSuspects) {
            suspects_.pop_front();
        }
        count_ += record.count;
        return true;
    }

    // Empty packets in a row.
    bool read_zeros(uint64_t at, Record& record) {
        const uint64_t end = scan_.end_of_zeros(at);
        record = {at, at, end, end - at, false};
        if (record.count <= kMaxEmptyAtEnd) {
            return record.count > 0;
        }
        if (left_ > 0 || end == file_.size()) {
            return false;
        }
        zeros_ = record;
        return true;
    }

    bool read_packet(uint64_t at, Record& record) {
        record = {};
        if (!scan_.read_record(at, record) || record.packet == record.end) {
            return false;
        }
        const auto size = static_cast<std::size_t>(record.end - record.packet);
        const std::string_view packet = file_.bytes_at(record.packet, size);
        if (packet.size() != size || !parse_header(packet, header_)) {
            return false;
        }
        record.named = is_named(header_);
        return true;
    }

    // A record that is damaged inside only is passed by its length: packets in its body are none
    // of this file.
    [[nodiscard]] uint64_t resume(uint64_t damage) {
        Record record;
        if (scan_.read_record(damage, record) && scan_.has_shape(record.packet, record.end) &&
            (record.end == file_.size() || scan_.starts_chain(record.end))) {
            return record.end;
        }
        return scan_.find_chain(damage + 1);
    }

    // Forgets the older ones: those up to the last that the library could have written.
    void narrow_suspects() {
        std::size_t keep = 0;
        while (keep < suspects_.size()) {
            ++keep;
            if (scan_.is_own(suspects_[suspects_.size() - keep])) {
                break;
            }
        }
        suspects_.erase(suspects_.begin(), suspects_.end() - static_cast<std::ptrdiff_t>(keep));
    }

    // Whether it is one with the record behind it and all up to here.
    [[nodiscard]] bool extends_to(const Record& record, uint64_t next) {
        return next - record.packet <= kMaxInMemory && scan_.has_shape(record.packet, next);
    }

    // Whether zeros seem to have taken the place of its end and of what stood behind it.
    [[nodiscard]] bool ends_in_zeros(const Record& record) {
        constexpr std::size_t kRun = kMaxEmptyAtEnd + 2;
        const std::string_view run = file_.bytes_at(record.end - 1, kRun);
        return run.size() == kRun && run.find_first_not_of('\0') == std::string_view::npos;
    }

    // Leaves the damage behind, with what it makes doubtful. Returns where to go on.
    uint64_t pass(uint64_t damage) {
        narrow_suspects();
        auto first = std::find_if(suspects_.begin(), suspects_.end(), [&](const Record& record) {
            return record.count > kMaxEmptyAtEnd || scan_.is_crossed(record);
        });
        uint64_t next = 0;
        if (first != suspects_.end()) {
            next = scan_.find_chain(first->begin + 1);
        } else {
            next = resume(damage);
            first = std::find_if(suspects_.begin(), suspects_.end(),
                                 [&](const Record& record) { return extends_to(record, next); });
        }
        // A damaged length easily makes nameless records of the bytes behind it.
        while (first != suspects_.begin() &&
               (!std::prev(first)->named || ends_in_zeros(*std::prev(first)))) {
            --first;
        }
        uint64_t cut = damage;
        for (auto record = first; record != suspects_.end(); ++record) {
            cut = std::min(cut, record->begin);
            count_ -= record->count;
        }
        if (zeros_.end > 0 && cut == zeros_.end) {  // perhaps the output would end with them
            cut = zeros_.begin;
            count_ -= zeros_.count;
        }
        leave(cut, std::max(cut, next));
        return region_;
    }

    void leave(uint64_t begin, uint64_t end) {
        copy(region_, begin);
        left_ += end - begin;
        tell("left behind: offset " + std::to_string(begin) + ", length " +
             std::to_string(end - begin));
        suspects_.clear();
        zeros_ = {};
        region_ = end;
    }

    void copy(uint64_t begin, uint64_t end) {
        while (begin < end) {
            const auto size = static_cast<std::size_t>(std::min<uint64_t>(kBlock, end - begin));
            const std::string_view bytes = file_.bytes_at(begin, size);
            if (bytes.empty()) {
                throw Failure(ExitCode::kFileError, name_, "was cut while it was read");
            }
            out_.write(bytes);
            begin += bytes.size();
        }
    }

    void sum_up() const {
        if (left_ == 0) {
            return;
        }
        if (count_ == 0) {
            throw Failure(ExitCode::kRefused, name_, "nothing could be recovered");
        }
        tell(std::to_string(count_) + (count_ == 1 ? " record" : " records") + " recovered, " +
             std::to_string(left_) + (left_ == 1 ? " byte" : " bytes") + " left behind");
    }

    void tell(const std::string& words) const {
        report(command_, {ExitCode::kLoss, {name_}, words});
    }

    std::string command_;
    const std::string& name_;
    FileWindow& file_;
    Progress progress_;
    RecordScan scan_;
    Output& out_;
    Header header_;
    std::deque<Record> suspects_;  // the newest records, all trusted so far
    Record zeros_;                 // the last that were too many to be trusted in front of damage
    uint64_t region_ = 0;          // where the records begin that are trusted and not written yet
    uint64_t count_ = 0;
    uint64_t left_ = 0;
};

class Recover : public Command {
public:
    explicit Recover(CLI::App& program)
        : Command(program, "recover", "Save the records of a damaged packet file", kNotes) {
        arguments().add_option("FILE", input_, "The packet file")->type_name("")->required();
    }

    ExitCode run() override {
        if (is_standard(input_)) {
            throw Failure(ExitCode::kUsage, input_, "standard input will not do; name a file");
        }
        if (!output().empty() && same_file(input_, output())) {
            throw Failure(ExitCode::kUsage, output(), "would lose what is left behind");
        }
        FileWindow file(input_);
        Output out(output());
        out.refuse_terminal();
        const ExitCode code = Recovery(name(), input_, file, out).run();
        out.commit();
        return code;
    }

private:
    std::string input_;
};

}  // namespace

CommandPtr make_recover(CLI::App& program) { return std::make_unique<Recover>(program); }

}  // namespace vynpkt

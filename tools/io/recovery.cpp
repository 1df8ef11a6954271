// Takes the entries that can be trusted out of a damaged packet file.
//
// From the beginning of the file to its end, these steps repeat:
//
// 1. Walk (accept()). Entries are read one after another by the rules of "verify". The newest are
//    remembered, since damage behind them may cast doubt on them.
// 2. Where no entry can be read, there is damage (pass_damage()). Look back first: which of the
//    entries in front of it belong to the damage? An entry into which another one was written, an
//    entry whose length is wrong, and entries that were made of the pieces of such a one. In doubt
//    is the last entry that the library could have written, and all entries behind that one.
// 3. Look ahead: where do entries start again? Where three in a row, or fewer that end with the
//    file, are entries that the library could have written (EntryScan::find_chain()).
// 4. Leave behind what lies in between (leave()), a gap, and go on walking.
//
// What stands between two gaps is copied as it is. So the output is a whole packet file: it
// consists of entries that "verify" accepts, and only a block of zeros at its end could still be
// damage. There is none, since a gap includes a long run of empty entries in front of it, and behind
// a gap the output goes on with an entry that has contents.
#include "io/recovery.h"

#include <algorithm>
#include <deque>
#include <string_view>

#include "cli/report.h"
#include "io/entry_scan.h"
#include "io/packet.h"
#include "io/packet_file.h"

namespace vynpkt {
namespace {

// How many entries in front of damage are checked again at most.
constexpr std::ptrdiff_t kMaxSuspects = 64;
constexpr std::size_t kBlock = std::size_t{64} << 10;

class Recovery {
public:
    Recovery(FileWindow& file, Progress& progress, const Keep& keep, const Leave& leave)
        : file_(file), scan_(file, progress), keep_(keep), leave_(leave) {}

    Recovered run() {
        uint64_t at = 0;
        while (at < file_.size()) {
            at = accept(at) ? newest_.back().end : pass_damage(at);
        }
        copy(region_, at);
        return {count_, left_};
    }

private:
    using Entries = std::deque<Entry>;

    // ---- 1. Walk --------------------------------------------------------------------------------

    bool accept(uint64_t at) {
        Entry entry;
        const uint64_t zeros_end = scan_.end_of_zeros(at);
        if (zeros_end > at) {  // a run of empty entries
            entry = {at, at, zeros_end, zeros_end - at, false};
        }
        if (zeros_end > at ? !is_trusted_run(entry) : !read_packet(at, entry)) {
            return false;
        }
        scan_.looked_at(entry.begin, entry.end);
        newest_.push_back(entry);
        if (newest_.size() > kMaxSuspects + 1) {
            newest_.pop_front();
        }
        count_ += entry.count;
        return true;
    }

    // A long run of zeros counts as damage behind other damage, and at the end of a file in which
    // an entry with contents came before.
    [[nodiscard]] bool is_trusted_run(const Entry& zeros) const {
        return !is_long(zeros) || (left_ == 0 && !(has_contents_ && zeros.end == file_.size()));
    }

    bool read_packet(uint64_t at, Entry& entry) {
        if (!scan_.read_entry(at, entry)) {
            return false;
        }
        const auto size = static_cast<std::size_t>(entry.end - entry.packet);
        const std::string_view packet = file_.bytes_at(entry.packet, size);
        if (packet.size() != size || !parse_header(packet, header_)) {
            return false;
        }
        entry.named = is_named(header_);
        has_contents_ = has_contents_ || size > 0;
        return true;
    }

    [[nodiscard]] static bool is_long(const Entry& entry) {
        return entry.count > vyn::kMaxEmptyAtEnd;
    }

    // ---- 2. Look back ---------------------------------------------------------------------------

    // Leaves the damage behind, and the entries in front of it that belong to it. Returns the
    // offset where the walk goes on.
    uint64_t pass_damage(uint64_t damage) {
        const auto oldest = oldest_suspect();
        auto first = std::find_if(oldest, newest_.end(), [&](const Entry& entry) {
            return is_long(entry) || scan_.is_crossed(entry);
        });
        uint64_t next = 0;
        if (first != newest_.end()) {
            next = scan_.find_chain(first->begin + 1);
        } else {
            next = resume(damage);
            first = std::find_if(oldest, newest_.end(),
                                 [&](const Entry& entry) { return extends_to(entry, next); });
        }
        // Where a length is damaged, the bytes behind it often read as entries without a name.
        while (first != oldest && (!std::prev(first)->named || ends_in_zeros(*std::prev(first)))) {
            --first;
        }
        // A long run of zeros in front of a gap could become the end of the output.
        if (first != newest_.begin() && is_long(*std::prev(first))) {
            --first;
        }
        const uint64_t cut = first == newest_.end() ? damage : first->begin;
        for (; first != newest_.end(); ++first) {
            count_ -= first->count;
        }
        leave(cut, std::max(cut, next));
        return region_;
    }

    // The newest entry that the library could have written, or else the oldest to be checked.
    [[nodiscard]] Entries::iterator oldest_suspect() {
        auto suspect = newest_.end();
        while (suspect != newest_.begin() && newest_.end() - suspect < kMaxSuspects) {
            --suspect;
            if (scan_.is_own(*suspect)) {
                break;
            }
        }
        return suspect;
    }

    // Whether the bytes from this packet up to next look like one packet: then the length is wrong.
    [[nodiscard]] bool extends_to(const Entry& entry, uint64_t next) {
        return next - entry.packet <= kMaxInMemory && scan_.has_shape(entry.packet, next);
    }

    // Whether the entry ends in zeros that go on behind it, as where a block was lost.
    [[nodiscard]] bool ends_in_zeros(const Entry& entry) {
        constexpr std::size_t kRun = vyn::kMaxEmptyAtEnd + 2;
        const std::string_view run = file_.bytes_at(entry.end - 1, kRun);
        return run.size() == kRun && run.find_first_not_of('\0') == std::string_view::npos;
    }

    // ---- 3. Look ahead --------------------------------------------------------------------------

    // An entry whose length is right and whose contents are damaged is skipped as a whole. Packets
    // in its body do not belong to this file.
    [[nodiscard]] uint64_t resume(uint64_t damage) {
        Entry entry;
        if (scan_.read_entry(damage, entry) && scan_.has_shape(entry.packet, entry.end) &&
            (entry.end == file_.size() || scan_.starts_chain(entry.end))) {
            return entry.end;
        }
        return scan_.find_chain(damage + 1);
    }

    // ---- 4. Leave behind, write -----------------------------------------------------------------

    void leave(uint64_t begin, uint64_t end) {
        copy(region_, begin);
        left_ += end - begin;
        leave_(begin, end);
        newest_.clear();
        region_ = end;
    }

    void copy(uint64_t begin, uint64_t end) {
        while (begin < end) {
            const auto size = static_cast<std::size_t>(std::min<uint64_t>(kBlock, end - begin));
            const std::string_view bytes = file_.bytes_at(begin, size);
            if (bytes.empty()) {
                throw Failure(ExitCode::kFileError, file_.name(), "was cut while it was read");
            }
            keep_(bytes);
            begin += bytes.size();
        }
    }

    FileWindow& file_;
    EntryScan scan_;
    const Keep& keep_;
    const Leave& leave_;
    Header header_;
    Entries newest_;             // accepted since the last gap, the newest of them
    uint64_t region_ = 0;        // from here on, accepted entries are not written yet
    bool has_contents_ = false;  // whether an entry with contents was accepted
    uint64_t count_ = 0;
    uint64_t left_ = 0;
};

}  // namespace

Recovered recover(FileWindow& file, Progress& progress, const Keep& keep, const Leave& leave) {
    return Recovery(file, progress, keep, leave).run();
}

}  // namespace vynpkt

// Looks for entries of a packet file in any bytes.
#ifndef VYN_TOOLS_IO_ENTRY_SCAN_H
#define VYN_TOOLS_IO_ENTRY_SCAN_H

#include <cstdint>

#include "cli/progress.h"
#include "io/file_window.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

// Where an entry stands in the file. Empty entries in a row are taken together.
struct Entry {
    uint64_t begin = 0;
    uint64_t packet = 0;
    uint64_t end = 0;
    uint64_t count = 1;  // how many entries this stands for
    bool named = false;  // with a message_id or a message_type
};

[[nodiscard]] bool is_named(const Header& header);

// The work is limited to a fixed amount for each byte of the file. Without a limit a file could
// take forever in which an entry seems to begin at nearly every byte. Beyond the limit, searches
// find nothing until they reach bytes that nobody looked at before.
class EntryScan {
public:
    EntryScan(FileWindow& file, Progress& progress) : file_(file), progress_(progress) {}

    // Reads the length only. False when there is no valid length, or it goes beyond the end of the
    // file.
    [[nodiscard]] bool read_entry(uint64_t at, Entry& entry);
    // Whether these bytes are known fields in the order of their numbers, each at most once.
    [[nodiscard]] bool has_shape(uint64_t begin, uint64_t end);
    // Whether the library could have written the packet of this entry.
    [[nodiscard]] bool is_own(const Entry& entry);
    // Whether an entry that the library could have written begins inside this one and ends behind
    // its end. Also true when the limit of work does not allow to find out.
    [[nodiscard]] bool is_crossed(const Entry& entry);
    // Whether entries start here: three in a row, or fewer up to the end of the file, that the
    // library could have written.
    [[nodiscard]] bool starts_chain(uint64_t at);
    // The first offset from this one on where entries start, or the size of the file.
    [[nodiscard]] uint64_t find_chain(uint64_t at);
    // Offset behind the zero bytes that begin here.
    [[nodiscard]] uint64_t end_of_zeros(uint64_t at);

    // Counts the caller's work on these bytes, and raises the limit as for bytes that were reached.
    void looked_at(uint64_t begin, uint64_t end);

private:
    [[nodiscard]] bool find_body(uint64_t begin, uint64_t end, uint64_t& body);
    [[nodiscard]] bool read_own(uint64_t at, Entry& entry);
    [[nodiscard]] bool exhausted() const;
    void reach(uint64_t at);

    FileWindow& file_;
    Progress& progress_;
    Header header_;
    uint64_t reached_ = 0;
    uint64_t work_ = 0;  // apart from reading, in units of about a nanosecond
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_ENTRY_SCAN_H

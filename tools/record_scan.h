// Looks for records in bytes that may be anything.
#ifndef VYN_TOOLS_RECORD_SCAN_H
#define VYN_TOOLS_RECORD_SCAN_H

#include <cstdint>

#include "io.h"
#include "progress.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

struct Record {
    uint64_t begin = 0;
    uint64_t packet = 0;
    uint64_t end = 0;
    uint64_t count = 1;  // of records: empty ones in a row are taken together
    bool named = false;
};

[[nodiscard]] bool is_named(const Header& header);

// The work for a byte of the file is limited: bytes can be made so that a record seems to begin at
// each of them, and damage has all of them looked at again. Once it is exceeded, searches find
// nothing until bytes are reached that were not looked at before.
class RecordScan {
public:
    RecordScan(FileWindow& file, Progress& progress) : file_(file), progress_(progress) {}

    // Goes by the length alone; false when it is none or goes beyond the end of the file.
    [[nodiscard]] bool read_record(uint64_t at, Record& record);
    // Whether these bytes are known fields in the order of their numbers, each at most once.
    [[nodiscard]] bool has_shape(uint64_t begin, uint64_t end);
    // Whether the library could have written this record's packet.
    [[nodiscard]] bool is_own(const Record& record);
    // Whether a record that the library could have written begins in this one and runs on beyond
    // its end. True when that is too much work to tell.
    [[nodiscard]] bool is_crossed(const Record& record);
    // Whether records can be seen to start here.
    [[nodiscard]] bool starts_chain(uint64_t at);
    // Where the first of them does, or the end of the file.
    [[nodiscard]] uint64_t find_chain(uint64_t at);
    // Where the zeros end that begin here.
    [[nodiscard]] uint64_t end_of_zeros(uint64_t at);

    // Counts the work for bytes that the caller looks at, and allows for the work in front of them.
    void looked_at(uint64_t begin, uint64_t end);

private:
    [[nodiscard]] bool find_body(uint64_t begin, uint64_t end, uint64_t& body);
    [[nodiscard]] bool read_own(uint64_t at, Record& record);
    [[nodiscard]] bool exhausted() const;
    void reach(uint64_t at);

    FileWindow& file_;
    Progress& progress_;
    Header header_;
    uint64_t reached_ = 0;
    uint64_t work_ = 0;  // beside reading; a unit takes about a nanosecond
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_RECORD_SCAN_H

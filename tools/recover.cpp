// recover: takes what can be trusted out of a damaged packet file.
#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <deque>
#include <system_error>

#include "command.h"
#include "io.h"
#include "packet.h"
#include "record_file.h"

namespace vynpkt {
namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

constexpr char kNotes[] =
    R"(Writes the records of the packet file FILE that can be trusted, as they stand,
and tells on standard error what was left behind. FILE must be a regular file.

Up to damage, a record is trusted as "verify" does. Behind damage, a record must
be one that this library could have written: a message_id or a message_type, no
unknown field, exactly the bytes that it serializes to again. Three of them in a
row, or fewer that end with the file, show where to go on. Left behind are also
- a record in front of damage when such a record begins in it and runs on beyond
  its end, or when its bytes go on to where records start again: its length is
  wrong, or it was torn and the next ones were appended to it;
- records in front of damage that have neither message_id nor message_type;
- more than 8 zero bytes in a row where a record should begin, and the record in
  front of them when it ends in zeros as well.
A record whose text or body changed without a trace is not noticed, nor is a torn
one whose length happens to end where another record does.

Exit code 0: FILE was whole; 4: something was left behind; 1: nothing is left.

Example:
  vynpkt recover packets.dat -o trusted.dat)";

// Of a text in a record behind damage; the unit's own are shorter. Bounds the work for a byte.
constexpr uint32_t kMaxText = 4096;
// How many records in a row show that records start again.
constexpr int kChain = 3;
// Records in front of damage that are looked at once more.
constexpr std::size_t kMaxSuspects = 64;

[[noreturn]] void file_failure(const std::string& name, int error) {
    throw Failure(ExitCode::kFileError, name, std::generic_category().message(error));
}

// A file as memory that the system takes back when it needs it.
class Mapping {
public:
    explicit Mapping(const std::string& path) {
        const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        struct stat status {};
        if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
            file_failure(path, errno);
        }
        if (!S_ISREG(status.st_mode)) {
            throw Failure(ExitCode::kFileError, path, "not a regular file");
        }
        size_ = static_cast<std::size_t>(status.st_size);
        if (static_cast<off_t>(size_) != status.st_size) {
            file_failure(path, EFBIG);
        }
        if (size_ == 0) {
            return;  // cannot be mapped
        }
        data_ = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file.get(), 0);
        if (data_ == MAP_FAILED) {
            file_failure(path, errno);
        }
    }
    ~Mapping() {
        if (size_ > 0) {
            (void)::munmap(data_, size_);
        }
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    Mapping(Mapping&&) = delete;
    Mapping& operator=(Mapping&&) = delete;

    [[nodiscard]] std::string_view bytes() const {
        return {static_cast<const char*>(data_), size_};
    }

private:
    void* data_ = nullptr;
    std::size_t size_ = 0;
};

// The length of a text or a body, which stands in the fewest bytes and fits.
bool skip_text(CodedInputStream& in, uint32_t most) {
    const int start = in.CurrentPosition();
    uint32_t length = 0;
    return in.ReadVarint32(&length) && length > 0 && length <= most &&
           static_cast<std::size_t>(in.CurrentPosition() - start) ==
               CodedOutputStream::VarintSize32(length) &&
           in.Skip(static_cast<int>(length));
}

bool skip_field(CodedInputStream& in, int field) {
    uint64_t number = 0;
    switch (field) {
        case Header::kBodyFieldNumber:
            return skip_text(in, kMaxInMemory);
        case Header::kPacketStatusFieldNumber:
            return in.ReadVarint64(&number) && number > 0 && number < 0x80;
        case Header::kVersionFieldNumber:
        case Header::kSubSystemIdFieldNumber:
        case Header::kMessageTypeFieldNumber:
        case Header::kTtlFieldNumber:
        case Header::kTimeFieldNumber:
            return in.ReadVarint64(&number);
        case Header::kPropertyBagFieldNumber: {
            uint32_t length = 0;
            return in.ReadVarint32(&length) && length <= kMaxText &&
                   in.Skip(static_cast<int>(length));
        }
        default:
            return skip_text(in, kMaxText);
    }
}

bool is_number(int field) {
    return field == Header::kVersionFieldNumber || field == Header::kSubSystemIdFieldNumber ||
           field == Header::kMessageTypeFieldNumber || field == Header::kTtlFieldNumber ||
           field == Header::kTimeFieldNumber || field == Header::kPacketStatusFieldNumber;
}

// Whether these are known fields in the order of their numbers, each at most once, and how many
// bytes stand in front of the body.
bool has_shape(std::string_view packet, std::size_t& before_body) {
    CodedInputStream in(bytes_of(packet), static_cast<int>(packet.size()));
    before_body = packet.size();
    int last = 0;
    while (static_cast<std::size_t>(in.CurrentPosition()) < packet.size()) {
        const auto start = static_cast<std::size_t>(in.CurrentPosition());
        const auto tag = static_cast<unsigned char>(packet[start]);
        const int field = tag >> 3;
        const int wire_type = is_number(field) ? 0 : 2;
        if (field <= last || field > Header::kPacketStatusFieldNumber || (tag & 7) != wire_type) {
            return false;
        }
        if (field >= Header::kBodyFieldNumber) {
            before_body = std::min(before_body, start);
        }
        last = field;
        if (!in.Skip(1) || !skip_field(in, field)) {
            return false;
        }
    }
    return last != 0;
}

bool is_named(const Header& header) {
    return !header.message_id().empty() || header.message_type() != 0;
}

// Whether the library could have written this packet.
bool is_own(std::string_view packet) {
    std::size_t before_body = 0;
    if (!has_shape(packet, before_body)) {
        return false;
    }
    const std::string_view head = packet.substr(0, before_body);
    Header header;
    if (!parse_header(head, header)) {
        return false;
    }
    const google::protobuf::Message& bag = header.property_bag();
    return is_named(header) && bag.GetReflection()->GetUnknownFields(bag).empty() &&
           header.SerializeAsString() == head;
}

struct Record {
    std::size_t begin = 0;
    std::size_t packet = 0;
    std::size_t end = 0;
};

class Recovery {
public:
    Recovery(std::string command, const std::string& name, std::string_view bytes, Output& out)
        : command_(std::move(command)), name_(name), bytes_(bytes), out_(out) {}

    ExitCode run() {
        std::size_t at = 0;
        while (at < bytes_.size()) {
            at = accept(at) ? suspects_.back().end : pass(at);
        }
        out_.write(bytes_.substr(region_, bytes_.size() - region_));
        report();
        return left_ == 0 ? ExitCode::kDone : ExitCode::kLoss;
    }

private:
    [[nodiscard]] std::string_view packet(const Record& record) const {
        return bytes_.substr(record.packet, record.end - record.packet);
    }

    [[nodiscard]] bool read_record(std::size_t at, Record& record) const {
        const Prefix prefix = read_prefix(bytes_.substr(at));
        if (prefix.size == 0 || prefix.length > bytes_.size() - at - prefix.size) {
            return false;
        }
        record = {at, at + prefix.size, at + prefix.size + static_cast<std::size_t>(prefix.length)};
        return true;
    }

    // Zeros from here on that are too many to be empty packets.
    [[nodiscard]] bool is_zero_block(std::size_t at) const {
        const std::string_view run = bytes_.substr(at, kMaxEmptyAtEnd + 1);
        return run.size() > kMaxEmptyAtEnd && run.find_first_not_of('\0') == std::string_view::npos;
    }

    bool accept(std::size_t at) {
        Record record;
        if (is_zero_block(at) || !read_record(at, record) ||
            !parse_header(packet(record), header_)) {
            return false;
        }
        suspects_.push_back(record);
        if (suspects_.size() > kMaxSuspects) {
            suspects_.pop_front();
        }
        ++count_;
        return true;
    }

    [[nodiscard]] bool read_own(std::size_t at, Record& record) const {
        return read_record(at, record) && record.end > record.packet &&
               CodedOutputStream::VarintSize32(static_cast<uint32_t>(record.end - record.packet)) ==
                   record.packet - at &&
               is_own(packet(record));
    }

    // Whether records can be seen to start here.
    [[nodiscard]] bool starts_chain(std::size_t at) const {
        Record record;
        for (int i = 0; i < kChain && (i == 0 || at < bytes_.size()); ++i) {
            if (!read_own(at, record)) {
                return false;
            }
            at = record.end;
        }
        return true;
    }

    [[nodiscard]] std::size_t find_chain(std::size_t at) const {
        while (at < bytes_.size() && !starts_chain(at)) {
            ++at;
        }
        return at;
    }

    // A record that is damaged inside only is passed by its length: packets in its body are none
    // of this file.
    [[nodiscard]] std::size_t resume(std::size_t damage) const {
        Record record;
        std::size_t before_body = 0;
        if (read_record(damage, record) && has_shape(packet(record), before_body) &&
            (record.end == bytes_.size() || starts_chain(record.end))) {
            return record.end;
        }
        return find_chain(damage + 1);
    }

    // Whether a record begins in this one and runs on beyond its end.
    [[nodiscard]] bool is_crossed(const Record& record) const {
        Record inner;
        for (std::size_t at = record.packet + 1; at < record.end; ++at) {
            if (read_record(at, inner) && inner.end > record.end && read_own(at, inner)) {
                return true;
            }
        }
        return false;
    }

    // A damaged length easily makes such records of the bytes behind it.
    [[nodiscard]] bool is_nameless(const Record& record) {
        return !parse_header(packet(record), header_) || !is_named(header_);
    }

    // Forgets the older ones: those up to the last that the library could have written.
    void narrow_suspects() {
        std::size_t keep = 0;
        while (keep < suspects_.size()) {
            ++keep;
            if (is_own(packet(suspects_[suspects_.size() - keep]))) {
                break;
            }
        }
        suspects_.erase(suspects_.begin(), suspects_.end() - static_cast<std::ptrdiff_t>(keep));
    }

    // Leaves the damage behind, with what it makes doubtful. Returns where to go on.
    std::size_t pass(std::size_t damage) {
        narrow_suspects();
        auto first = std::find_if(suspects_.begin(), suspects_.end(),
                                  [&](const Record& record) { return is_crossed(record); });
        std::size_t next = 0;
        if (first != suspects_.end()) {
            next = find_chain(first->begin + 1);
        } else {
            next = resume(damage);
            first = std::find_if(suspects_.begin(), suspects_.end(), [&](const Record& record) {
                std::size_t ignored = 0;
                const auto whole = bytes_.substr(record.packet, next - record.packet);
                return (is_zero_block(record.end) && bytes_[record.end - 1] == '\0') ||
                       (whole.size() <= kMaxInMemory && has_shape(whole, ignored));
            });
        }
        while (first != suspects_.begin() && is_nameless(*(first - 1))) {
            --first;
        }
        const std::size_t cut = first != suspects_.end() ? first->begin : damage;
        count_ -= static_cast<uint64_t>(suspects_.end() - first);
        out_.write(bytes_.substr(region_, cut - region_));
        left_ += next - cut;
        vynpkt::tell(command_, name_ + ": left behind: offset " + std::to_string(cut) +
                                   ", length " + std::to_string(next - cut));
        suspects_.clear();
        region_ = next;
        return next;
    }

    void report() const {
        if (left_ == 0) {
            return;
        }
        if (count_ == 0) {
            throw Failure(ExitCode::kRefused, name_, "nothing could be recovered");
        }
        vynpkt::tell(command_, name_ + ": " + std::to_string(count_) + " records recovered, " +
                                   std::to_string(left_) + " bytes left behind");
    }

    std::string command_;
    const std::string& name_;
    std::string_view bytes_;
    Output& out_;
    Header header_;
    std::deque<Record> suspects_;  // the newest records, all trusted so far
    std::size_t region_ = 0;       // where those began that are not written yet
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
        if (!output().empty() && same_file(input_, output())) {
            throw Failure(ExitCode::kUsage, output(), "would lose what is left behind");
        }
        const Mapping file(input_);
        Output out(output());
        out.refuse_terminal();
        const ExitCode code = Recovery(name(), input_, file.bytes(), out).run();
        out.commit();
        return code;
    }

private:
    std::string input_;
};

}  // namespace

CommandPtr make_recover(CLI::App& program) { return std::make_unique<Recover>(program); }

}  // namespace vynpkt

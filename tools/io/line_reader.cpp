#include "io/line_reader.h"

namespace vynpkt {

LineReader::LineReader(const std::string& path) : input_(path), piece_(kPieceSize) {}

bool LineReader::read_more() {
    unread_ = {piece_.data(), input_.read_some(piece_.data(), piece_.size())};
    return !unread_.empty();
}

void LineReader::skip_rest() {
    while (in_line_ && (!unread_.empty() || read_more())) {
        const std::size_t newline = unread_.find('\n');
        in_line_ = newline == std::string_view::npos;
        unread_.remove_prefix(in_line_ ? unread_.size() : newline + 1);
    }
}

bool LineReader::next(std::string& line) {
    line.clear();
    skip_rest();
    ++number_;
    bool any = false;
    while (!unread_.empty() || read_more()) {
        any = true;
        const std::size_t newline = unread_.find('\n');
        in_line_ = true;
        append_limited(line, unread_.substr(0, newline), place());
        in_line_ = false;
        if (newline != std::string_view::npos) {
            unread_.remove_prefix(newline + 1);
            return true;
        }
        unread_ = {};
    }
    return any;
}

Place LineReader::place() const { return {input_.name(), "line " + std::to_string(number_)}; }

}  // namespace vynpkt

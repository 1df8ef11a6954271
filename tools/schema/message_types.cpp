#include "schema/message_types.h"

#include <algorithm>
#include <charconv>

#include "envelope/message_type.h"
#include "io/line_reader.h"
#include "json/json_text.h"

namespace vynpkt {
namespace {

[[noreturn]] void refuse(const LineReader& lines, const std::string& reason) {
    throw Failure(ExitCode::kRefused, lines.place(), reason);
}

// Some editors put a byte order mark in front of the first line.
std::string_view without_mark(std::string_view line) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return line.substr(line.substr(0, kMark.size()) == kMark ? kMark.size() : 0);
}

std::string_view without_comment(std::string_view line) { return line.substr(0, line.find('#')); }

// Takes the first word off the text.
std::string take_word(std::string_view& text) {
    constexpr char kBlank[] = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(kBlank));
    text.remove_prefix(word.size());
    return std::string(word);
}

uint32_t read_type(const std::string& word, const LineReader& lines) {
    uint32_t type = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, type);
    if (error == std::errc::invalid_argument || stop != end) {
        refuse(lines, "\"" + clipped(word) + "\" is not a number; a line is NUMBER NAME");
    }
    if (error != std::errc() || type > vyn::kTypeMask) {
        refuse(lines, clipped(word) + " is more than the largest message type, " +
                          std::to_string(vyn::kTypeMask));
    }
    return type;
}

const Descriptor& read_message(const std::string& name, const LineReader& lines) {
    try {
        return find_message(name);
    } catch (const Failure& failure) {
        refuse(lines, failure.remark().text);
    }
}

}  // namespace

MessageTypes::MessageTypes(const std::string& path) {
    LineReader lines(path);
    for (std::string line; lines.next(line);) {
        std::string_view text = without_comment(without_mark(line));
        const std::string number = take_word(text);
        if (number.empty()) {
            continue;
        }
        const uint32_t type = read_type(number, lines);
        const std::string name = take_word(text);
        if (name.empty() || !is_blank(text)) {
            refuse(lines, "a line is NUMBER NAME");
        }
        const auto [known, added] = table_.emplace(type, &read_message(name, lines));
        if (!added) {
            refuse(lines, number + " is " + std::string(known->second->full_name()) + " already");
        }
    }
}

const Descriptor* MessageTypes::find(uint32_t type) const {
    const auto found = table_.find(type);
    return found == table_.end() ? nullptr : found->second;
}

}  // namespace vynpkt

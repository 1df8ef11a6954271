#include "cli/report.h"

#include <glib.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <system_error>

#include "cli/progress.h"

namespace vynpkt {
namespace {

bool g_json = false;

std::string as_text(const std::string& command, const Remark& remark) {
    return "vynpkt: " + (command.empty() ? "" : command + ": ") +
           (remark.file.empty() ? "" : remark.file + ": ") + with_code(remark.text, remark.code);
}

std::string json_or_null(const std::string& text) {
    return text.empty() ? "null" : json_text(text);
}

std::string as_json(const std::string& command, const Remark& remark) {
    return "{\"command\":" + json_or_null(command) + ",\"file\":" + json_or_null(remark.file) +
           ",\"text\":" + json_text(remark.text) +
           ",\"code\":" + (remark.code ? std::to_string(*remark.code) : "null") +
           ",\"exit_status\":" + std::to_string(static_cast<int>(remark.exit)) + "}";
}

}  // namespace

Remark::Remark(ExitCode exit_code, const Place& place, const std::string& reason,
               LibraryCode number)
    : exit(exit_code),
      file(place.file),
      text(Place{"", place.part}.within(reason).part),
      code(number) {
    if (exit == ExitCode::kUsage && !file.empty()) {
        text = file + ": " + text;
        file.clear();
    }
}

void file_failure(const std::string& name, int error) {
    throw Failure(ExitCode::kFileError, name, std::generic_category().message(error));
}

std::string with_code(const std::string& reason, LibraryCode code) {
    return code ? reason + " (code " + std::to_string(*code) + ")" : reason;
}

void report_as_json() { g_json = true; }

void report(const std::string& command, const Remark& remark) {
    Progress::wipe();
    std::cerr << (g_json ? as_json(command, remark) : as_text(command, remark)) + "\n";
}

std::string clipped(const std::string& text) {
    constexpr std::size_t kLongest = 40;
    std::string begin = text;
    if (text.size() > kLongest) {
        const char* end = g_utf8_find_prev_char(text.c_str(), text.c_str() + kLongest);
        begin.resize(end == nullptr ? 0 : static_cast<std::size_t>(end - text.c_str()));
        begin += "...";
    }
    std::replace_if(
        begin.begin(), begin.end(), [](unsigned char c) { return c < ' '; }, '?');
    return begin;
}

std::string json_text(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    const std::unique_ptr<char, decltype(&g_free)> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
    std::string json = "\"";
    for (const char c : std::string_view(valid.get())) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (static_cast<unsigned char>(c) < ' ') {
            json += "\\u00";
            json += kDigits[static_cast<unsigned char>(c) >> 4];
            json += kDigits[c & 0xF];
        } else {
            json += c;
        }
    }
    return json + '"';
}

}  // namespace vynpkt

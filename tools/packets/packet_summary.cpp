#include "packets/packet_summary.h"

#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "cli/report.h"

namespace vynpkt {
namespace {

constexpr bool kIsNumber[] = {true, false, false, false, true, true, false, false};
constexpr std::size_t kNameColumn = 1;

// RFC 3339 in UTC; the number itself for a time that has no such form.
std::string time_text(int64_t milliseconds) {
    constexpr int64_t kPerSecond = 1000;
    constexpr int kYearsSince = 1900;
    const int64_t fraction = (milliseconds % kPerSecond + kPerSecond) % kPerSecond;
    const time_t seconds = milliseconds / kPerSecond - (milliseconds < 0 && fraction != 0 ? 1 : 0);
    std::tm parts{};
    if (::gmtime_r(&seconds, &parts) == nullptr || parts.tm_year < -kYearsSince ||
        parts.tm_year > 9999 - kYearsSince) {
        return std::to_string(milliseconds);
    }
    char text[96];
    (void)std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                        parts.tm_year + kYearsSince, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                        parts.tm_min, parts.tm_sec, static_cast<int>(fraction));
    return text;
}

std::string status_text(int status) {
    const auto* value = PacketStatus_descriptor()->FindValueByNumber(status);
    return value == nullptr ? std::to_string(status) : std::string(value->name());
}

// A text of a packet may hold anything, also what would move the cursor.
std::string printable(const std::string& text) {
    const bool plain = std::none_of(text.begin(), text.end(),
                                    [](unsigned char c) { return c < ' ' || c == 0x7F; });
    const std::string json = plain ? "" : json_text(text);
    return plain ? text : json.substr(1, json.size() - 2);
}

std::size_t width_of(const std::string& text) {
    return static_cast<std::size_t>(g_utf8_strlen(text.data(), static_cast<gssize>(text.size())));
}

}  // namespace

// ---- Counting ------------------------------------------------------------------------------------

void PacketSummary::Totals::add(const PacketContents& packet) {
    ++packets;
    bytes += packet.length();
    if (const int64_t time = packet.header().time()) {
        first = std::min(first, time);
        last = std::max(last, time);
    }
}

void PacketSummary::add(const PacketContents& packet) {
    all_.add(packet);
    group_of(packet).add(packet);
}

PacketSummary::Totals& PacketSummary::group_of(const PacketContents& packet) {
    const std::string& device = packet.header().device_id();
    const int status = packet.header().packet_status();
    const auto found =
        groups_.find(std::make_tuple(packet.type(), std::string_view(device), status));
    if (found != groups_.end()) {
        return found->second;
    }
    if (groups_.size() >= kMaxGroups || device.size() > kMaxText - text_size_) {
        return others_;
    }
    text_size_ += device.size();
    return groups_[Key(packet.type(), device, status)];
}

// ---- The table -----------------------------------------------------------------------------------

void PacketSummary::fill_totals(Cells& cells, const Totals& totals) {
    cells[4] = std::to_string(totals.packets);
    cells[5] = std::to_string(totals.bytes);
    cells[6] = totals.has_times() ? time_text(totals.first) : "-";
    cells[7] = totals.has_times() ? time_text(totals.last) : "-";
}

PacketSummary::Cells PacketSummary::cells(const Key& key, const Totals& totals) const {
    const auto& [type, device, status] = key;
    const Descriptor* message = types_.find(type);
    Cells cells{std::to_string(type), message == nullptr ? "-" : std::string(message->full_name()),
                device.empty() ? "-" : printable(device), status_text(status)};
    fill_totals(cells, totals);
    return cells;
}

PacketSummary::Cells PacketSummary::sum_cells(const char* name, const Totals& totals) {
    Cells cells{name};
    fill_totals(cells, totals);
    return cells;
}

void PacketSummary::for_each_row(const std::function<void(const Cells&)>& visit) const {
    visit({"TYPE", "NAME", "DEVICE", "STATUS", "PACKETS", "BYTES", "FIRST", "LAST"});
    for (const auto& [key, totals] : groups_) {
        visit(cells(key, totals));
    }
    if (others_.packets > 0) {
        visit(sum_cells("others", others_));
    }
    visit(sum_cells("total", all_));
}

void PacketSummary::write_table(Output& out) const {
    std::array<std::size_t, kColumns> widths{};
    for_each_row([&](const Cells& cells) {
        for (std::size_t i = 0; i < kColumns; ++i) {
            widths[i] = std::max(widths[i], width_of(cells[i]));
        }
    });
    for_each_row([&](const Cells& cells) {
        std::string line;
        for (std::size_t i = 0; i < kColumns; ++i) {
            if (i == kNameColumn && types_.empty()) {
                continue;
            }
            const std::string blanks(widths[i] - width_of(cells[i]), ' ');
            line += (i > 0 ? "  " : "") + (kIsNumber[i] ? blanks + cells[i] : cells[i] + blanks);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out.append(line + "\n");
    });
}

// ---- JSON ----------------------------------------------------------------------------------------

std::string PacketSummary::json_totals(const Totals& totals) {
    return "\"packets\":" + std::to_string(totals.packets) +
           ",\"bytes\":" + std::to_string(totals.bytes) +
           ",\"first\":" + (totals.has_times() ? json_text(time_text(totals.first)) : "null") +
           ",\"last\":" + (totals.has_times() ? json_text(time_text(totals.last)) : "null");
}

std::string PacketSummary::json_group(const Key& key, const Totals& totals) const {
    const auto& [type, device, status] = key;
    const Descriptor* message = types_.find(type);
    return "{\"type\":" + std::to_string(type) +
           ",\"name\":" + (message == nullptr ? "null" : json_text(message->full_name())) +
           ",\"device_id\":" + json_text(device) + ",\"status\":" + json_text(status_text(status)) +
           "," + json_totals(totals) + "}";
}

void PacketSummary::write_json(Output& out) const {
    out.append("{" + json_totals(all_) + ",\"groups\":[");
    const char* between = "";
    for (const auto& [key, totals] : groups_) {
        out.append(between + json_group(key, totals));
        between = ",";
    }
    out.append("]");
    if (others_.packets > 0) {
        out.append(",\"others\":{" + json_totals(others_) + "}");
    }
    out.append("}\n");
}

}  // namespace vynpkt

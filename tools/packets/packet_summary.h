// How many packets there are of which type, device and status.
#ifndef VYN_TOOLS_PACKETS_PACKET_SUMMARY_H
#define VYN_TOOLS_PACKETS_PACKET_SUMMARY_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "io/output.h"
#include "packets/packet_contents.h"

namespace vynpkt {

// Memory is limited: packets of groups that come when there are too many are counted together.
class PacketSummary {
public:
    explicit PacketSummary(const MessageTypes& types) : types_(types) {}

    void add(const PacketContents& packet);

    // An aligned table for people, or an object for programs.
    void write_table(Output& out) const;
    void write_json(Output& out) const;
    // Packets that are in no group.
    [[nodiscard]] uint64_t left_over() const { return others_.packets; }

private:
    static constexpr std::size_t kMaxGroups = 50000;
    static constexpr std::size_t kMaxText = std::size_t{4} << 20;
    static constexpr std::size_t kColumns = 8;

    using Key = std::tuple<uint32_t, std::string, int>;  // type, device_id, packet_status
    struct Totals {
        uint64_t packets = 0;
        uint64_t bytes = 0;
        int64_t first = INT64_MAX;  // of those that have a time
        int64_t last = INT64_MIN;

        void add(const PacketContents& packet);
        [[nodiscard]] bool has_times() const { return first <= last; }
    };
    using Cells = std::array<std::string, kColumns>;

    [[nodiscard]] Totals& group_of(const PacketContents& packet);
    [[nodiscard]] Cells cells(const Key& key, const Totals& totals) const;
    static Cells sum_cells(const char* name, const Totals& totals);
    static void fill_totals(Cells& cells, const Totals& totals);
    void for_each_row(const std::function<void(const Cells&)>& visit) const;
    [[nodiscard]] std::string json_group(const Key& key, const Totals& totals) const;
    static std::string json_totals(const Totals& totals);

    const MessageTypes& types_;
    std::map<Key, Totals, std::less<>> groups_;
    std::size_t text_size_ = 0;
    Totals all_;
    Totals others_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_SUMMARY_H

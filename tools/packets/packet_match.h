// Which packets of two packet files belong together, by their message_id.
#ifndef VYN_TOOLS_PACKETS_PACKET_MATCH_H
#define VYN_TOOLS_PACKETS_PACKET_MATCH_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vynpkt {

// Packets with the same message_id, or without one, belong together in their order. Takes 24 bytes
// of memory for each packet of A and 16 for each of B, however long their ids are.
class PacketMatch {
public:
    // All packets of A first, in their order.
    void add_a(const std::string& message_id, uint64_t offset);
    void end_a();
    // Then those of B, in their order.
    void add_b(const std::string& message_id);
    void end_b();

    [[nodiscard]] std::size_t size_of_b() const { return partners_.size(); }
    // Where the partner in A of the packet of B begins; none if it has no partner.
    [[nodiscard]] std::optional<uint64_t> partner(std::size_t b) const;
    // Whether the order of the two differs from that of most others.
    [[nodiscard]] bool is_moved(std::size_t b) const { return moved_[b]; }
    // Where the packets of A begin that have no partner, in their order.
    [[nodiscard]] std::vector<uint64_t> without_partner() const;

private:
    struct Known {
        std::array<uint32_t, 3> id;  // 12 bytes of a digest
        uint32_t taken;              // in the first one of an id: how many of it have partners
        uint64_t offset;
    };
    static constexpr uint32_t kNone = UINT32_MAX;

    static std::array<uint32_t, 3> digest(const std::string& message_id);
    void find_moved();

    std::vector<Known> known_;        // sorted by id, then by offset
    std::vector<uint32_t> partners_;  // in known_, of each packet of B
    std::vector<bool> moved_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_MATCH_H

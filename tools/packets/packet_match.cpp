#include "packets/packet_match.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <tuple>

#include "cli/report.h"

namespace vynpkt {

std::array<uint32_t, 3> PacketMatch::digest(const std::string& message_id) {
    const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> sum(
        g_checksum_new(G_CHECKSUM_SHA256), g_checksum_free);
    g_checksum_update(sum.get(), reinterpret_cast<const guchar*>(message_id.data()),
                      static_cast<gssize>(message_id.size()));
    guint8 bytes[32];
    gsize length = sizeof bytes;
    g_checksum_get_digest(sum.get(), bytes, &length);
    std::array<uint32_t, 3> first{};
    std::memcpy(first.data(), bytes, sizeof first);
    return first;
}

void PacketMatch::add_a(const std::string& message_id, uint64_t offset) {
    known_.push_back({digest(message_id), 0, offset});
}

void PacketMatch::end_a() {
    std::sort(known_.begin(), known_.end(), [](const Known& one, const Known& other) {
        return std::tie(one.id, one.offset) < std::tie(other.id, other.offset);
    });
}

void PacketMatch::add_b(const std::string& message_id) {
    const auto id = digest(message_id);
    const auto first =
        std::lower_bound(known_.begin(), known_.end(), id,
                         [](const Known& known, const auto& wanted) { return known.id < wanted; });
    uint32_t partner = kNone;
    if (first != known_.end() && first->id == id) {
        const auto next = first + first->taken;
        if (next < known_.end() && next->id == id) {
            partner = static_cast<uint32_t>(next - known_.begin());
            ++first->taken;
        }
    }
    partners_.push_back(partner);
}

void PacketMatch::end_b() {
    moved_.assign(partners_.size(), false);
    find_moved();
}

// Not moved is the longest sequence of partners in the order of both files. ends[n] is the packet of
// B with which a sequence of n + 1 ends, the one whose partner comes first in A; before[b] is the
// packet in front of b in the longest sequence that ends with b.
void PacketMatch::find_moved() {
    std::vector<uint32_t> ends;
    std::vector<uint32_t> before(partners_.size(), kNone);
    const auto offset = [this](uint32_t b) { return known_[partners_[b]].offset; };
    for (uint32_t b = 0; b < partners_.size(); ++b) {
        if (partners_[b] == kNone) {
            continue;
        }
        moved_[b] = true;
        const auto end = std::lower_bound(
            ends.begin(), ends.end(), offset(b),
            [&](uint32_t other, uint64_t wanted) { return offset(other) < wanted; });
        before[b] = end == ends.begin() ? kNone : *(end - 1);
        if (end == ends.end()) {
            ends.push_back(b);
        } else {
            *end = b;
        }
    }
    for (uint32_t b = ends.empty() ? kNone : ends.back(); b != kNone; b = before[b]) {
        moved_[b] = false;
    }
}

std::optional<uint64_t> PacketMatch::partner(std::size_t b) const {
    return partners_[b] == kNone ? std::nullopt
                                 : std::optional<uint64_t>(known_[partners_[b]].offset);
}

std::vector<uint64_t> PacketMatch::without_partner() const {
    std::vector<uint64_t> offsets;
    for (std::size_t first = 0; first < known_.size();) {
        std::size_t i = first;
        for (; i < known_.size() && known_[i].id == known_[first].id; ++i) {
            if (i - first >= known_[first].taken) {
                offsets.push_back(known_[i].offset);
            }
        }
        first = i;
    }
    std::sort(offsets.begin(), offsets.end());
    return offsets;
}

}  // namespace vynpkt

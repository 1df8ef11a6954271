// What of a JSON envelope does not get into its packet.
#ifndef VYN_TOOLS_JSON_ENVELOPE_LOSSES_H
#define VYN_TOOLS_JSON_ENVELOPE_LOSSES_H

#include <string>
#include <vector>

namespace vynpkt {

// How an envelope is packed, as far as it matters.
struct EnvelopeUse {
    bool own_body = false;     // the body does not come from "body"; then "checksum" travels
    bool bag_is_told = false;  // that the bag is lost is known already
    std::vector<std::string> replaced = {};  // keys that options give another value
};

// Each with its key. An envelope that is no object loses nothing here.
[[nodiscard]] std::vector<std::string> envelope_losses(const std::string& envelope,
                                                       const EnvelopeUse& use);

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_ENVELOPE_LOSSES_H

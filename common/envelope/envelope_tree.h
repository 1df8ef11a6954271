// The work of the envelope functions on parsed trees. Each function writes its own log lines,
// whoever calls it.
#ifndef VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H
#define VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H

#include <cstddef>
#include <cstdint>

#include "utils/owned.h"
#include "vyn_header.h"

namespace vyn {

// Parses an envelope. A text that is not JSON is logged, and gives null.
[[nodiscard]] JsonPtr parse_envelope(const char* json);

// The property bag of an envelope.
struct EnvelopeBag {
    enum class State {
        kAbsent,  // or null, or no object
        kWhole,   // its text fits the header
        kCut      // its text was cut at the end of the header's member, and is no longer JSON
    };
    State state = State::kAbsent;
    json_object* tree = nullptr;  // of a whole bag; belongs to the envelope
};

// Fills the header from an envelope, as get_msg_hdr() promises, and returns the property bag.
EnvelopeBag read_header(json_object* envelope, msg_hdr& hdr);

// The text of "body" when it fits into size bytes; otherwise logs why not, and returns null. The
// text belongs to the envelope and lasts until the envelope changes.
[[nodiscard]] const char* read_body(json_object* envelope, std::size_t size);

// Adds "body", or replaces it. False when the envelope is no object or memory ran out.
[[nodiscard]] bool put_body(json_object* envelope, const char* body);

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H

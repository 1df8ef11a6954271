// The work of the envelope functions on parsed trees. The log lines that belong to a piece of work
// are written here, whoever asks for it.
#ifndef VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H
#define VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H

#include <cstddef>
#include <cstdint>

#include "envelope/record_fields.h"
#include "utils/owned.h"
#include "vyn_header.h"

namespace vyn {

// Parses an envelope; one that is not JSON is logged, and null.
[[nodiscard]] JsonPtr parse_envelope(const char* json);

// Fills the record from an envelope, as get_msg_hdr() promises. Returns the property bag, which
// stays the envelope's, when its text fitted the record whole; null when there is none or it
// was cut, and the record's text tells those two apart.
json_object* read_record(json_object* envelope, msg_hdr& hdr);

// The text of "body" when it fits into size bytes; otherwise logged, and null. It belongs to
// the envelope and lasts until that changes.
[[nodiscard]] const char* read_body(json_object* envelope, std::size_t size);

// Adds "body", or replaces it. False when the envelope is no object or memory ran out.
[[nodiscard]] bool put_body(json_object* envelope, const char* body);

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_ENVELOPE_TREE_H

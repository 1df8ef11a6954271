// The conversions in the plainest way: one step after the other through texts and json-c trees, all
// buffers zeroed, nothing kept from one call to the next. The library must give the same result, output
// and log lines, and is measured against them.
#ifndef VYN_REFERENCE_PLAIN_CHAIN_H
#define VYN_REFERENCE_PLAIN_CHAIN_H

#include <cstddef>
#include <cstdint>

#include "vyn_header.h"
#include "vyn_header_v3.pb.h"

namespace plain_chain {

// False also for a packet that is cut inside its property bag, on every release of protobuf.
bool parse(const uint8_t* bytes, std::size_t size, Header& header);

uint32_t wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out, uint32_t json_out_size);

uint32_t json_to_wire(const char* json, uint8_t* out, uint32_t capacity, uint32_t* length);

uint32_t header_to_wire(const msg_hdr& hdr, const uint8_t* body, uint32_t body_len, uint8_t* out,
                        uint32_t capacity, uint32_t* length);

uint32_t restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t status, uint8_t* out,
                 uint32_t capacity, uint32_t* length);

}  // namespace plain_chain

#endif  // VYN_REFERENCE_PLAIN_CHAIN_H

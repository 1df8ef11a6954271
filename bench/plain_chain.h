// The conversions as one writes them first: one step after the other through texts and json-c
// trees, buffers zeroed, nothing kept from one call to the next. What the library is faster than,
// and what it must equal in result, output and log lines.
#ifndef VYN_BENCH_PLAIN_CHAIN_H
#define VYN_BENCH_PLAIN_CHAIN_H

#include <cstdint>

#include "vyn_header.h"

namespace plain_chain {

uint32_t wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out, uint32_t json_out_size);

uint32_t json_to_wire(const char* json, uint8_t* out, uint32_t capacity, uint32_t* length);

uint32_t record_to_wire(const msg_hdr& hdr, const uint8_t* body, uint32_t body_len, uint8_t* out,
                        uint32_t capacity, uint32_t* length);

uint32_t restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t status, uint8_t* out,
                 uint32_t capacity, uint32_t* length);

}  // namespace plain_chain

#endif  // VYN_BENCH_PLAIN_CHAIN_H

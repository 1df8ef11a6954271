// The conversions of JSON spelled out as chains of public functions. Slow, and what the library's
// own must equal in result, output and log lines.
#ifndef VYN_TESTS_SUPPORT_CHAINS_H
#define VYN_TESTS_SUPPORT_CHAINS_H

#include <cstdint>
#include <string>

namespace vyn_test {

uint32_t chained_json_to_wire(const char* json, uint8_t* out, uint32_t capacity, uint32_t* length);

uint32_t chained_wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                              uint32_t json_out_size);

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_CHAINS_H

// The conversions as one writes them first: public functions chained through their texts, zeroed
// buffers, nothing kept from one call to the next. What the library is faster than.
#ifndef VYN_BENCH_PLAIN_CHAIN_H
#define VYN_BENCH_PLAIN_CHAIN_H

#include "samples.h"

namespace bench::plain_chain {

bool wire_to_json(const Sample& sample, Output& out);
bool json_to_wire(const Sample& sample, Output& out);
bool record_to_wire(const Sample& sample, Output& out);

}  // namespace bench::plain_chain

#endif  // VYN_BENCH_PLAIN_CHAIN_H

// What no way of doing the conversions can leave out, and nothing else: how much there is left to
// gain. Each writes the body alone, in its form on the other side.
#ifndef VYN_BENCH_FLOOR_H
#define VYN_BENCH_FLOOR_H

#include "samples.h"

namespace bench::floor {

bool wire_to_json(const Sample& sample, Output& out);
bool json_to_wire(const Sample& sample, Output& out);
bool record_to_wire(const Sample& sample, Output& out);
bool restamp(const Sample& sample, Output& out);

}  // namespace bench::floor

#endif  // VYN_BENCH_FLOOR_H

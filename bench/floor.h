// The work that every implementation of a conversion must do, and nothing else: it shows how much
// there is left to gain. Each function writes only the body, in the form that it is converted to.
#ifndef VYN_BENCH_FLOOR_H
#define VYN_BENCH_FLOOR_H

#include "samples.h"

namespace bench::floor {

bool wire_to_json(const Sample& sample, Output& out);
bool json_to_wire(const Sample& sample, Output& out);
bool header_to_wire(const Sample& sample, Output& out);
bool restamp(const Sample& sample, Output& out);

}  // namespace bench::floor

#endif  // VYN_BENCH_FLOOR_H

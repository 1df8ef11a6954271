// How often the program has allocated memory.
#ifndef VYN_BENCH_ALLOCATIONS_H
#define VYN_BENCH_ALLOCATIONS_H

#include <cstddef>

namespace bench {

std::size_t allocations();

}  // namespace bench

#endif  // VYN_BENCH_ALLOCATIONS_H

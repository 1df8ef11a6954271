// Storing a packet to a packet file and reading a file of packets, in three ways each: as the
// library does, as one writes it first, and what no way can leave out.
#ifndef VYN_BENCH_PACKET_FILES_H
#define VYN_BENCH_PACKET_FILES_H

#include "samples.h"

namespace bench::packet_files {

// The longest body whose packets are read.
constexpr std::size_t kLongestBody = 8000;

// Each appends the sample's packet.
bool store(const Sample& sample, Output& out);
bool store_plainly(const Sample& sample, Output& out);
bool store_floor(const Sample& sample, Output& out);

// Each reads all packets.
bool read(const Sample& sample, Output& out);
bool read_plainly(const Sample& sample, Output& out);
bool read_floor(const Sample& sample, Output& out);

// Before a series of calls: no file, and one that holds some packets.
void start_storing(const Sample& sample);
void start_reading(const Sample& sample);

// What is in the file.
void look(Output& out);

}  // namespace bench::packet_files

#endif  // VYN_BENCH_PACKET_FILES_H

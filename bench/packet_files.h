// Storing a packet in a packet file and reading a packet file, in three ways each: by the library, in
// the plain way, and the floor, which is only what every way must do.
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

// Prepare a series of calls: remove the file; make one that holds some packets.
void start_storing(const Sample& sample);
void start_reading(const Sample& sample);

// Reads the file into the output.
void look(Output& out);

}  // namespace bench::packet_files

#endif  // VYN_BENCH_PACKET_FILES_H

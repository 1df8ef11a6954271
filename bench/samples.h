// The samples to measure with: the same packet in its three forms, with several bodies.
#ifndef VYN_BENCH_SAMPLES_H
#define VYN_BENCH_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vyn_header.h"

namespace bench {

struct Sample {
    std::string name;       // kind and length of the body
    msg_hdr header{};       // with a property bag
    std::string body;       // what goes with the header
    std::string packet;     // the header with the body
    std::string received;   // the packet, compressed
    std::string json_body;  // the body as the envelope carries it
    std::string envelope;   // JSON, with its body
};

// Room for whatever any conversion of a sample writes; reused, so that no page fault is measured.
struct Output {
    uint8_t bytes[65536];
    uint32_t length;
};

// A variant of a conversion: it reads one form of the sample and writes another into the output. False
// when it failed.
using Conversion = bool (*)(const Sample& sample, Output& out);

// The same samples in every run. Throws when a form cannot be made.
std::vector<Sample> make_samples();

// Writes the text and a NUL; returns the length of the text.
std::size_t encode_base64(const std::string& bytes, char* out);

}  // namespace bench

#endif  // VYN_BENCH_SAMPLES_H

// What the conversions are measured on: the same packet in its three forms, for several bodies.
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
    msg_hdr record{};       // with a property bag
    std::string body;       // what goes with the record
    std::string packet;     // of both
    std::string received;   // the packet, compressed
    std::string json_body;  // the body as the envelope carries it
    std::string envelope;   // JSON, with its body
};

// Room for whatever any conversion of a sample writes; reused, so that no page fault is measured.
struct Output {
    uint8_t bytes[65536];
    uint32_t length;
};

// Every variant of a conversion: the sample's form that it reads into the output. False when it
// failed.
using Conversion = bool (*)(const Sample& sample, Output& out);

// The same ones in every run. Throws when a form cannot be made.
std::vector<Sample> make_samples();

// Writes the text and a NUL; returns the length of the text.
std::size_t encode_base64(const std::string& bytes, char* out);

}  // namespace bench

#endif  // VYN_BENCH_SAMPLES_H

#include "samples.h"

#include <openssl/evp.h>
#include <zstd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>

#include "proto_helper.h"

namespace bench {
namespace {

// std::mt19937 yields the same numbers everywhere, which the distributions of <random> do not.
using Random = std::mt19937;
constexpr Random::result_type kSeed = 20240229;

// Incompressible, as bodies are that were compressed or encrypted before.
std::string binary_body(std::size_t length) {
    Random random(kSeed);
    std::string body;
    while (body.size() < length) {
        body += static_cast<char>(random() & 0xFF);
    }
    return body;
}

// Signals as JSON text: its quotes and slashes are what JSON has to escape.
std::string text_body(std::size_t length) {
    constexpr const char* kPaths[] = {"vehicle/powertrain/speed", "vehicle/battery/hv/soc",
                                      "vehicle/body/door/front_left", "vehicle/cabin/hvac/target",
                                      "vehicle/chassis/tyre/rear_right/pressure"};
    Random random(kSeed);
    std::string body = "[";
    while (body.size() < length) {
        const auto draw = static_cast<unsigned>(random());
        char entry[256];
        std::snprintf(entry, sizeof entry,
                      "{\"signal\":\"%s\",\"value\":%u.%02u,\"unit\":\"%s\",\"time\":%u},",
                      kPaths[draw % std::size(kPaths)], draw % 251, draw % 97,
                      draw % 2 == 0 ? "km/h" : "kPa", 1709200000 + draw % 86399);
        body += entry;
    }
    body.resize(length);
    return body;
}

void require(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

template <std::size_t Size>
void set(char (&member)[Size], const std::string& text) {
    require(text.size() < Size, "a text is too long for its member");
    text.copy(member, Size);
}

msg_hdr make_header(const std::string& body, uint32_t encoding_type) {
    char checksum[65] = "";
    require(calculate_checksum(reinterpret_cast<const uint8_t*>(body.data()),
                               static_cast<uint32_t>(body.size()), checksum, sizeof checksum) == 1,
            "no checksum");
    msg_hdr header{};
    set(header.message_id, "5f0c2f9e-8a34-4c1b-9d5e-2f6b7a10c3d4");
    set(header.correlation_id, "c1b7e2d0-4f6a-4e0b-8a55-90d1e3f2ab67");
    set(header.system_id, "telematics");
    set(header.device_id, "TCU-00A1B2C3D4E5F6");
    set(header.property_bag, std::string(R"({"error_code":5,"checksum":")") + checksum + R"("})");
    header.version = 3;
    header.sub_system_id = 12;
    header.encoding_type = encoding_type;
    header.msg_type = 1021;
    header.time = 1709200000123;
    header.ttl = 86400;
    return header;
}

std::string make_packet(const msg_hdr& header, const std::string& body) {
    std::string packet(VYN_PACKET_CAPACITY, '\0');
    uint32_t length = 0;
    require(cnvrt_hdr_to_protobuf(&header, reinterpret_cast<uint8_t*>(packet.data()),
                                  static_cast<uint32_t>(packet.size()), &length,
                                  reinterpret_cast<const uint8_t*>(body.data()),
                                  static_cast<uint32_t>(body.size())) == VYN_OK,
            "no packet");
    packet.resize(length);
    return packet;
}

std::string compressed(const std::string& packet) {
    std::string frame(ZSTD_compressBound(packet.size()), '\0');
    const std::size_t size = ZSTD_compress(frame.data(), frame.size(), packet.data(), packet.size(),
                                           ZSTD_CLEVEL_DEFAULT);
    require(ZSTD_isError(size) == 0, "no compressed packet");
    frame.resize(size);
    return frame;
}

std::string make_envelope(msg_hdr header, const std::string& json_body) {
    using Text = std::unique_ptr<char, decltype(&std::free)>;
    const Text envelope(convert_hdr_to_json(&header, 0, 0), &std::free);
    const Text whole(add_body_to_message(envelope.get(), json_body.c_str()), &std::free);
    require(whole != nullptr, "no envelope");
    return whole.get();
}

Sample make_sample(const std::string& body, uint32_t encoding_type) {
    const bool binary = encoding_type == MSG_ENCODING_BINARY;
    Sample sample;
    sample.name = (binary ? "binary_" : "text_") + std::to_string(body.size());
    sample.header = make_header(body, encoding_type);
    sample.body = body;
    sample.packet = make_packet(sample.header, body);
    sample.received = compressed(sample.packet);
    sample.json_body = body;
    if (binary) {
        sample.json_body.resize((body.size() + 2) / 3 * 4);
        (void)encode_base64(body, sample.json_body.data());
    }
    sample.envelope = make_envelope(sample.header, sample.json_body);
    return sample;
}

}  // namespace

std::vector<Sample> make_samples() {
    std::vector<Sample> samples;
    for (const std::size_t length : {64U, 1000U, 6000U, 16000U}) {
        samples.push_back(make_sample(binary_body(length), MSG_ENCODING_BINARY));
    }
    for (const std::size_t length : {1000U, 8000U, 20000U}) {
        samples.push_back(make_sample(text_body(length), 0));
    }
    return samples;
}

std::size_t encode_base64(const std::string& bytes, char* out) {
    return static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(out), reinterpret_cast<const unsigned char*>(bytes.data()),
        static_cast<int>(bytes.size())));
}

}  // namespace bench

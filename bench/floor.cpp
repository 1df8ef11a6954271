#include "floor.h"

#include <json-c/json.h>
#include <openssl/evp.h>
#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "proto_helper.h"
#include "vyn_header_v3.pb.h"

namespace bench::floor {
namespace {

struct ContextRelease {
    void operator()(ZSTD_DCtx* context) const { (void)ZSTD_freeDCtx(context); }
};

bool needs_escape(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '"' || c == '\\' || c == '/';
}

// As json-c writes it.
uint8_t* write_escape(char c, uint8_t* out) {
    constexpr char kNamed[] = "\"\\/\b\f\n\r\t";
    constexpr char kNames[] = "\"\\/bfnrt";
    constexpr char kDigits[] = "0123456789abcdef";
    *out++ = '\\';
    if (const auto* named = static_cast<const char*>(std::memchr(kNamed, c, sizeof kNamed - 1))) {
        *out++ = static_cast<uint8_t>(kNames[named - kNamed]);
        return out;
    }
    for (const char letter : {'u', '0', '0'}) {
        *out++ = static_cast<uint8_t>(letter);
    }
    out[0] = static_cast<uint8_t>(kDigits[c >> 4]);
    out[1] = static_cast<uint8_t>(kDigits[c & 0xF]);
    return out + 2;
}

// The runs between two escapes in one piece each.
uint8_t* copy_escaped(const char* text, std::size_t length, uint8_t* out) {
    const char* const end = text + length;
    const char* run = text;
    for (const char* at = text; at != end; ++at) {
        if (needs_escape(*at)) {
            out = std::copy(run, at, out);
            out = write_escape(*at, out);
            run = at + 1;
        }
    }
    return std::copy(run, end, out);
}

uint32_t decode_base64(const char* text, std::size_t length, uint8_t* out) {
    const std::size_t padding = length - std::string_view(text, length).find_last_not_of('=') - 1;
    const int decoded = EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(text),
                                        static_cast<int>(length));
    return static_cast<uint32_t>(static_cast<std::size_t>(decoded) - padding);
}

}  // namespace

bool wire_to_json(const Sample& sample, Output& out) {
    static const std::unique_ptr<ZSTD_DCtx, ContextRelease> context(ZSTD_createDCtx());
    uint8_t packet[VYN_PACKET_CAPACITY];
    const std::size_t packet_length = ZSTD_decompressDCtx(
        context.get(), packet, sizeof packet, sample.received.data(), sample.received.size());
    Header header;
    if (ZSTD_isError(packet_length) != 0 ||
        !header.ParseFromArray(packet, static_cast<int>(packet_length))) {
        return false;
    }
    char base64[VYN_PACKET_CAPACITY];
    const char* body = header.body().data();
    std::size_t length = header.body().size();
    if (sample.header.encoding_type == MSG_ENCODING_BINARY) {
        body = base64;
        length = encode_base64(header.body(), base64);
    }
    out.length = static_cast<uint32_t>(copy_escaped(body, length, out.bytes) - out.bytes);
    return true;
}

bool json_to_wire(const Sample& sample, Output& out) {
    json_object* envelope = json_tokener_parse(sample.envelope.c_str());
    json_object* body = nullptr;
    const bool found = json_object_object_get_ex(envelope, "body", &body) != 0;
    if (found) {
        const char* text = json_object_get_string(body);
        const auto length = static_cast<std::size_t>(json_object_get_string_len(body));
        if (sample.header.encoding_type == MSG_ENCODING_BINARY) {
            out.length = decode_base64(text, length, out.bytes);
        } else {
            std::memcpy(out.bytes, text, length);
            out.length = static_cast<uint32_t>(length);
        }
    }
    (void)json_object_put(envelope);
    return found;
}

bool header_to_wire(const Sample& sample, Output& out) {
    json_object* bag = json_tokener_parse(sample.header.property_bag);
    if (bag == nullptr) {
        return false;
    }
    (void)json_object_put(bag);
    std::memcpy(out.bytes, sample.body.data(), sample.body.size());
    out.length = static_cast<uint32_t>(sample.body.size());
    return true;
}

bool restamp(const Sample& sample, Output& out) {
    std::memcpy(out.bytes, sample.packet.data(), sample.packet.size());
    out.length = static_cast<uint32_t>(sample.packet.size());
    return true;
}

}  // namespace bench::floor

// Stand-in for the unit's utility library: OpenSSL's base64 inside a strict wrapper, and libzstd.
#include "vynutils.h"

#include <openssl/evp.h>
#include <zstd.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>

namespace {

constexpr int kOk = 0;
constexpr int kFailed = -1;

constexpr uint32_t kTextBlock = 4;
constexpr uint32_t kByteBlock = 3;

// The number of bytes that a text of whole blocks stands for, or 0 when its padding is out of
// place. EVP_DecodeBlock() itself reads '=' anywhere as a zero.
uint32_t decoded_length(const char* in, uint32_t in_len) {
    const auto* pad = static_cast<const char*>(std::memchr(in, '=', in_len));
    const auto padding = static_cast<uint32_t>(pad != nullptr ? in + in_len - pad : 0);
    if (padding > 2 || (padding == 2 && in[in_len - 1] != '=')) {
        return 0;
    }
    return in_len / kTextBlock * kByteBlock - padding;
}

// EVP_DecodeBlock() skips white space at both ends; then it decodes fewer bytes than there should be.
bool decode_blocks(const char* in, uint32_t in_len, uint8_t* out) {
    return EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(in),
                           static_cast<int>(in_len)) ==
           static_cast<int>(in_len / kTextBlock * kByteBlock);
}

struct ContextRelease {
    void operator()(ZSTD_DCtx* context) const { (void)ZSTD_freeDCtx(context); }
};

// One for each thread, since making one costs more than decompressing a packet with it.
ZSTD_DCtx* thread_context() {
    thread_local std::unique_ptr<ZSTD_DCtx, ContextRelease> context;
    if (context == nullptr) {
        context.reset(ZSTD_createDCtx());
    }
    return context.get();
}

bool is_one_standard_frame(const uint8_t* in, uint32_t in_len) {
    constexpr uint8_t kMagic[] = {0x28, 0xB5, 0x2F, 0xFD};
    return in_len > sizeof kMagic && std::memcmp(in, kMagic, sizeof kMagic) == 0 &&
           ZSTD_findFrameCompressedSize(in, in_len) == in_len;
}

}  // namespace

int base64_encode(const uint8_t* in, uint32_t in_len, char* out, uint32_t out_size) {
    const uint64_t length = (uint64_t{in_len} + kByteBlock - 1) / kByteBlock * kTextBlock;
    if (length >= out_size || length > INT_MAX) {
        return kFailed;
    }
    (void)EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out), in, static_cast<int>(in_len));
    return kOk;
}

int base64_decode(const char* in, uint32_t in_len, uint8_t* out, uint32_t* out_len,
                  uint32_t out_capacity) {
    if (in_len == 0) {
        *out_len = 0;
        return kOk;
    }
    if (in_len % kTextBlock != 0 || in_len > INT_MAX) {
        return kFailed;
    }
    const uint32_t length = decoded_length(in, in_len);
    if (length == 0 || length > out_capacity) {
        return kFailed;
    }
    // The last block is decoded apart, since it always gives three bytes. Those beyond the length
    // must be zero: otherwise several texts would stand for the same bytes.
    const uint32_t whole = in_len - kTextBlock;
    const uint32_t tail = length - whole / kTextBlock * kByteBlock;
    uint8_t last[kByteBlock];
    if ((whole > 0 && !decode_blocks(in, whole, out)) ||
        !decode_blocks(in + whole, kTextBlock, last)) {
        return kFailed;
    }
    for (uint32_t spare = tail; spare < kByteBlock; ++spare) {
        if (last[spare] != 0) {
            return kFailed;
        }
    }
    std::memcpy(out + (length - tail), last, tail);
    *out_len = length;
    return kOk;
}

int vyn_zstd_decompress(const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_capacity,
                        uint32_t* out_len) {
    ZSTD_DCtx* context = thread_context();
    if (context == nullptr || !is_one_standard_frame(in, in_len)) {
        return kFailed;
    }
    const std::size_t length = ZSTD_decompressDCtx(context, out, out_capacity, in, in_len);
    if (ZSTD_isError(length) != 0) {
        return kFailed;
    }
    *out_len = static_cast<uint32_t>(length);
    return kOk;
}

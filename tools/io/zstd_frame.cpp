#include "io/zstd_frame.h"

#include <zstd.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "io/input.h"
#include "io/output.h"

namespace vynpkt {
namespace {

constexpr std::string_view kMagic = "\x28\xB5\x2F\xFD";
// Skippable frames have sixteen magic numbers, which differ in the lowest four bits.
constexpr std::string_view kSkippableMagicEnd = "\x2A\x4D\x18";
constexpr unsigned char kSkippableMagicStart = 0x50;

// 0 selects the default level of libzstd.
constexpr int kDefaultLevel = 0;

struct ContextRelease {
    void operator()(ZSTD_CCtx* context) const { (void)ZSTD_freeCCtx(context); }
    void operator()(ZSTD_DCtx* context) const { (void)ZSTD_freeDCtx(context); }
};

template <typename Context>
using ContextPtr = std::unique_ptr<Context, ContextRelease>;

template <typename Context>
ContextPtr<Context> owned(Context* context) {
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    return ContextPtr<Context>(context);
}

std::size_t checked(std::size_t result) {
    if (ZSTD_isError(result) != 0) {
        throw FrameError(std::string("zstd: ") + ZSTD_getErrorName(result));
    }
    return result;
}

bool is_skippable(std::string_view bytes) {
    return bytes.size() >= kMagic.size() && (bytes[0] & 0xF0) == kSkippableMagicStart &&
           bytes.substr(1, kSkippableMagicEnd.size()) == kSkippableMagicEnd;
}

void check_start(std::string_view bytes) {
    if (is_frame(bytes)) {
        return;
    }
    throw FrameError(bytes.empty()         ? "empty: not a zstd frame"
                     : is_skippable(bytes) ? "a skippable zstd frame, which holds no content"
                                           : "not a zstd frame");
}

class Decoder {
public:
    using Sink = std::function<void(std::string_view content)>;

    explicit Decoder(Sink sink)
        : sink_(std::move(sink)),
          context_(owned(ZSTD_createDCtx())),
          buffer_(ZSTD_DStreamOutSize()) {}

    // The first piece must have at least four bytes, or be the whole input.
    void feed(std::string_view piece) {
        if (!started_) {
            check_start(piece);
            started_ = true;
        }
        ZSTD_inBuffer in{piece.data(), piece.size(), 0};
        bool more_content = false;
        while (in.pos < in.size || more_content) {
            if (ended_) {
                throw FrameError("bytes behind the end of the zstd frame");
            }
            ZSTD_outBuffer out{buffer_.data(), buffer_.size(), 0};
            ended_ = checked(ZSTD_decompressStream(context_.get(), &out, &in)) == 0;
            sink_({buffer_.data(), out.pos});
            more_content = out.pos == out.size && !ended_;
        }
    }

    void finish() const {
        if (!ended_) {
            throw FrameError("the zstd frame is truncated");
        }
    }

private:
    Sink sink_;
    ContextPtr<ZSTD_DCtx> context_;
    std::vector<char> buffer_;
    bool started_ = false;
    bool ended_ = false;
};

}  // namespace

bool is_frame(std::string_view bytes) {
    return !bytes.empty() && bytes.substr(0, kMagic.size()) == kMagic.substr(0, bytes.size());
}

std::string compressed(std::string_view content) {
    std::string frame(ZSTD_compressBound(content.size()), '\0');
    frame.resize(checked(
        ZSTD_compress(frame.data(), frame.size(), content.data(), content.size(), kDefaultLevel)));
    return frame;
}

std::string decompressed(std::string_view frame) {
    std::string content;
    Decoder decoder([&](std::string_view more) {
        if (more.size() > kMaxInMemory - content.size()) {
            throw FrameError("longer than " + std::to_string(kMaxInMemory >> 20) +
                             " MiB once decompressed");
        }
        content.append(more);
    });
    decoder.feed(frame);
    decoder.finish();
    return content;
}

void compress(Input& content, Output& frame) {
    const auto context = owned(ZSTD_createCCtx());
    std::vector<char> piece(ZSTD_CStreamInSize());
    std::vector<char> buffer(ZSTD_CStreamOutSize());
    bool last = false;
    while (!last) {
        ZSTD_inBuffer in{piece.data(), content.fill(piece), 0};
        // Input that ends within the first piece gets a frame that states its length, as packets
        // need.
        last = in.size < piece.size();
        bool done = false;
        while (!done) {
            ZSTD_outBuffer out{buffer.data(), buffer.size(), 0};
            const std::size_t left = checked(ZSTD_compressStream2(
                context.get(), &out, &in, last ? ZSTD_e_end : ZSTD_e_continue));
            frame.write({buffer.data(), out.pos});
            done = last ? left == 0 : in.pos == in.size;
        }
    }
}

void decompress(Input& frame, Output& content) {
    Decoder decoder([&](std::string_view more) { content.write(more); });
    std::vector<char> piece(ZSTD_DStreamInSize());
    std::size_t got = 0;
    do {
        got = frame.fill(piece);
        decoder.feed({piece.data(), got});
    } while (got == piece.size());
    decoder.finish();
}

}  // namespace vynpkt

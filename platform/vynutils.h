/**
 * @file vynutils.h
 * What the message library needs of the unit's utility library, `libvynutils.so.1`.
 *
 * The unit brings its own. The stand-in built here takes its place on machines that lack it. It has
 * the same soname and the same three functions, so a program that is linked against one runs with the
 * other. Any number of threads
 * may call. Nothing is kept after a call but the stand-in's decompression context, one per thread,
 * released when the thread ends. Pointers must not be null, except input of length 0.
 */
#ifndef VYN_PLATFORM_VYNUTILS_H
#define VYN_PLATFORM_VYNUTILS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Encode bytes as base64 text: standard alphabet, padded, no line breaks.
 *
 * @param[in]  in       The bytes.
 * @param[in]  in_len   Their number.
 * @param[out] out      Receives the text and its NUL; untouched on failure.
 * @param[in]  out_size Size of @p out in bytes; ((in_len + 2) / 3) * 4 + 1 are needed.
 *
 * @return 0 on success; not 0 when the text does not fit.
 */
int base64_encode(const uint8_t* in, uint32_t in_len, char* out, uint32_t out_size);

/**
 * Decode canonical base64 text: standard alphabet, padded, no white space, spare bits zero. Empty
 * text is no bytes.
 *
 * @param[in]  in           The text.
 * @param[in]  in_len       Its length.
 * @param[out] out          Receives the bytes; may hold some of them after a failure.
 * @param[out] out_len      Receives their number; untouched on failure.
 * @param[in]  out_capacity Capacity of @p out; an exact fit is enough.
 *
 * @return 0 on success; not 0 when the text is malformed or the bytes do not fit.
 */
int base64_decode(const char* in, uint32_t in_len, uint8_t* out, uint32_t* out_len,
                  uint32_t out_capacity);

/**
 * Decompress a packet: exactly one standard zstd frame that spans all of the input. Memory is
 * never taken by the size that a frame states.
 *
 * @param[in]  in           The packet.
 * @param[in]  in_len       Its length.
 * @param[out] out          Receives the bytes; may hold some of them after a failure.
 * @param[in]  out_capacity Capacity of @p out; an exact fit is enough.
 * @param[out] out_len      Receives their number; untouched on failure.
 *
 * @return 0 on success; not 0 when the input is anything else, is damaged, or does not fit.
 */
int vyn_zstd_decompress(const uint8_t* in, uint32_t in_len, uint8_t* out, uint32_t out_capacity,
                        uint32_t* out_len);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif /* VYN_PLATFORM_VYNUTILS_H */

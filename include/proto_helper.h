/**
 * @file proto_helper.h
 * Packets: from a header (::msg_hdr) or a JSON envelope, both of vyn_header.h, to the bytes of the
 * protobuf message `Header` and back, packet checksums, packet status, packet files. In C++ also any
 * message of the catalogue as JSON and back.
 *
 * A packet is the serialization of one `Header`. A received one comes compressed, as exactly one
 * zstd frame; everything else here takes and makes plain bytes. Bytes that end within a field, be it
 * one of the property bag, are no packet with any release of protobuf. What else odd input gives can
 * depend on the releases of protobuf and json-c: docs/releases.md lists it.
 *
 * A body is binary when the packet's message-type word shifted right by 14 is exactly
 * ::MSG_ENCODING_BINARY: raw bytes in the packet, base64 text (standard alphabet, padded) in JSON.
 * Every other body is text, which ends at its first NUL. The text fields of a packet must be UTF-8:
 * a packet with another text is written all the same, and protobuf writes a line about it to
 * standard error, but no receiver can read that packet.
 *
 * True of everything here: sizes and lengths are in bytes, pointers stay the caller's and none is
 * kept, any number of threads may call on distinct buffers, and no input makes a function write
 * past a buffer or read past one (but read_proto_msg_from_file() is not told the sizes of its
 * buffers). Working memory is on the stack: 128 KiB are enough for every function, of which
 * cnvrt_protobuf_to_json_hdr() takes about half itself.
 */
#ifndef VYN_PROTO_HELPER_H
#define VYN_PROTO_HELPER_H

#include <stdint.h>

#include "vyn_header.h"

#ifdef __cplusplus
#include <string>

namespace google {
namespace protobuf {
class Message;
}
}  // namespace google
#endif

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Results of the packet functions. "Soft" results come with the output written: the conversion
 * went through, but lost what the function's description says.
 */
enum vyn_result {
    VYN_OK = 0,               /**< Success. */
    VYN_NULL_POINTER = 1,     /**< A required pointer is null; a packet file cannot be read. */
    VYN_DOES_NOT_FIT = 2,     /**< Larger than the buffer; to JSON, soft: a field is too long. */
    VYN_BAD_ENVELOPE = 3,     /**< The envelope is not JSON. */
    VYN_NO_ENVELOPE = 5,      /**< The JSON envelope could not be built. */
    VYN_NO_BODY_ADDED = 6,    /**< The envelope with its body was not built or does not fit. */
    VYN_NOT_SERIALIZED = 7,   /**< Serialization failed; an entry was not stored, or none read. */
    VYN_NOT_A_HEADER = 8,     /**< The bytes are not a `Header`. */
    VYN_BAD_PROPERTY_BAG = 9, /**< The property bag is not JSON; from JSON, soft. */
    VYN_BAD_BODY = 11,        /**< No body, or unfit; soft: not base64. Storing: no `Header`. */
    VYN_FILE_NOT_OPENED = 12, /**< The packet file cannot be opened for appending. */
    VYN_NOT_DECOMPRESSED = 13 /**< The packet is not one zstd frame, or too large. */
};

/** Limits, in bytes but for the last. */
enum {
    VYN_PACKET_CAPACITY = 24576,      /**< Largest received packet once decompressed. */
    VYN_BINARY_BODY_CAPACITY = 18429, /**< Its longest binary body: 24573 as base64 and a NUL. */
    VYN_JSON_BODY_MAX_CHARS = 8191,   /**< Longest "body" that goes from JSON to the wire. */
    VYN_MAX_RECORDS = 13000           /**< Entries that one reading of a packet file returns. */
};

/* ---- To the wire ----------------------------------------------------------------------------- */

/**
 * Turn a header and its body into a packet.
 *
 * Every member of the header travels, `packet_status` included. Of the property bag only an integer
 * "error_code" and a string "checksum" travel, and a header with neither makes a packet without a
 * property bag. The body is taken as it is: nothing is encoded, and NUL bytes are kept.
 *
 * @param[in]  hdr          The header. A text that is unterminated is the whole member, but an
 *                          unterminated `property_bag` is not JSON.
 * @param[out] out_buf      Receives the packet; untouched unless the result is VYN_OK (undefined
 *                          after VYN_NOT_SERIALIZED).
 * @param[in]  out_buf_size Capacity of @p out_buf; an exact fit is enough.
 * @param[out] out_len      Length of the packet, also after VYN_DOES_NOT_FIT, so that the caller
 *                          can come back with more room (4294967295 when it is that or more).
 *                          Untouched by VYN_NULL_POINTER, VYN_BAD_PROPERTY_BAG and, when memory
 *                          ran out, VYN_NOT_SERIALIZED.
 * @param[in]  body         The body; may be null only when @p body_len is 0.
 * @param[in]  body_len     Its length.
 *
 * @retval VYN_OK               @p out_buf holds @p out_len bytes.
 * @retval VYN_NULL_POINTER     @p hdr, @p out_buf or @p out_len is null, or @p body with a length.
 * @retval VYN_DOES_NOT_FIT     The packet is longer than @p out_buf_size, or than the 2147483647
 *                              bytes that a protobuf message can have.
 * @retval VYN_NOT_SERIALIZED   The protobuf runtime failed, as when memory runs out.
 * @retval VYN_BAD_PROPERTY_BAG The header's `property_bag` is not JSON.
 */
uint32_t cnvrt_hdr_to_protobuf(const msg_hdr* hdr, uint8_t* out_buf, uint32_t out_buf_size,
                               uint32_t* out_len, const uint8_t* body, uint32_t body_len);

/**
 * Turn a JSON envelope with its "body" into a packet.
 *
 * The envelope is read as by get_msg_hdr() into an empty header and the body as by
 * get_body_from_message() into ::VYN_JSON_BODY_MAX_CHARS characters, with the same log lines. Of
 * the property bag only an integer "error_code" travels, and the packet has no status. The body of
 * binary type is decoded from base64 (padded, no white space, no stray bits) into the packet.
 *
 * @param[in]  json_hdr     The envelope.
 * @param[out] out_buf      Receives the packet; untouched by every result but VYN_OK and the soft
 *                          ones (undefined after VYN_NOT_SERIALIZED).
 * @param[in]  out_buf_size Capacity of @p out_buf; an exact fit is enough.
 * @param[out] out_len      Length of the packet, also after VYN_DOES_NOT_FIT. Untouched by
 *                          VYN_NULL_POINTER, VYN_BAD_ENVELOPE, a missing or unfit body and, when
 *                          memory ran out, VYN_NOT_SERIALIZED.
 *
 * @retval VYN_OK               @p out_buf holds @p out_len bytes.
 * @retval VYN_NULL_POINTER     @p json_hdr, @p out_buf or @p out_len is null.
 * @retval VYN_DOES_NOT_FIT     The packet is longer than @p out_buf_size.
 * @retval VYN_BAD_ENVELOPE     @p json_hdr is not JSON.
 * @retval VYN_NOT_SERIALIZED   The protobuf runtime failed, as when memory runs out.
 * @retval VYN_BAD_PROPERTY_BAG Soft: the "property_bag" is longer than 255 characters as text; the
 *                              packet is written without one.
 * @retval VYN_BAD_BODY         "body" is missing, neither string nor object, or longer than
 *                              ::VYN_JSON_BODY_MAX_CHARS: nothing is written. Soft: it is not
 *                              base64, and the packet is written with an empty body. Clear
 *                              @p out_len before the call to tell the two apart: a packet that was
 *                              written has a length, since its message type is not 0.
 */
uint32_t cnvrt_json_hdr_to_protobuf(const char* json_hdr, uint8_t* out_buf, uint32_t out_buf_size,
                                    uint32_t* out_len);

/* ---- From the wire --------------------------------------------------------------------------- */

/**
 * Turn a received packet into a JSON envelope with its "body".
 *
 * The envelope is the one that convert_hdr_to_json() makes, the property bag as by
 * construct_property_bag(), then "body". The message-type word travels unchanged; "version" is
 * always 3 and the packet status is not carried. A property bag of more than 255 characters as
 * text is left out, and the result does not tell. A text field that holds a NUL ends there.
 *
 * Mind the order of the arguments: the packet's length comes after the output buffer.
 *
 * @param[in]  pkt           The packet, exactly one zstd frame.
 * @param[out] json_out      Receives the text; untouched by every result but VYN_OK and the soft
 *                           ones.
 * @param[in]  pkt_len       Length of @p pkt.
 * @param[in]  json_out_size Capacity of @p json_out; the text and its NUL fit exactly. A body takes
 *                           up to six times its length in JSON (control characters do).
 *
 * @retval VYN_OK               @p json_out holds the envelope.
 * @retval VYN_NULL_POINTER     @p pkt or @p json_out is null.
 * @retval VYN_DOES_NOT_FIT     Soft: a field or a member of the property bag was too long for its
 *                              slot (see ::msg_hdr and ::msg_property_bag) and is empty in the
 *                              envelope.
 * @retval VYN_NO_ENVELOPE      Not returned by this release, which takes no memory for the envelope;
 *                              others did.
 * @retval VYN_NO_BODY_ADDED    The envelope does not fit.
 * @retval VYN_NOT_A_HEADER     The decompressed bytes are not a `Header`, invalid UTF-8 in a text
 *                              field included, or memory ran out while reading them.
 * @retval VYN_BAD_BODY         Soft: a binary body longer than ::VYN_BINARY_BODY_CAPACITY; it is
 *                              empty in the envelope.
 * @retval VYN_NOT_DECOMPRESSED @p pkt is not exactly one zstd frame, or more than
 *                              ::VYN_PACKET_CAPACITY bytes come out of it.
 *
 * Of two soft results the one found later is returned: fields, then body, then property bag.
 * Each thread that calls this keeps one decompression context until it ends.
 */
uint32_t cnvrt_protobuf_to_json_hdr(const uint8_t* pkt, char* json_out, uint32_t pkt_len,
                                    uint32_t json_out_size);

/* ---- Checksum and status --------------------------------------------------------------------- */

/**
 * Append the SHA-256 of some bytes to a text, as 64 lowercase hexadecimal digits.
 *
 * @param[in]     data      The bytes; may be null only when @p len is 0.
 * @param[in]     len       Their number.
 * @param[in,out] dest      A text; empty it to receive the digest alone. When the room ends, as
 *                          many digits as fit are appended, which is no failure.
 * @param[in]     dest_size Size of @p dest in bytes, its text and NUL included: 65 for a digest.
 *
 * @retval 1 The digest was appended, as far as it fitted.
 * @retval 0 The digest could not be computed, or a pointer is null. @p dest is unchanged.
 */
uint32_t calculate_checksum(const uint8_t* data, uint32_t len, char* dest, uint32_t dest_size);

/**
 * Rewrite a plain packet with another packet status.
 *
 * The new packet is what parsing and serializing would give: fields in the order of their numbers,
 * then those that `Header` does not know. Status 0 (`NONE`) is left off the wire.
 *
 * @param[in]  pkt          The packet, not compressed.
 * @param[in]  pkt_len      Length of @p pkt.
 * @param[out] out_buf      Receives the new packet; may be the buffer of @p pkt. Untouched by
 *                          VYN_NULL_POINTER, VYN_DOES_NOT_FIT and VYN_NOT_A_HEADER.
 * @param[in]  out_buf_size Capacity of @p out_buf; an exact fit is enough.
 * @param[out] out_len      Length of the new packet, also after VYN_DOES_NOT_FIT.
 * @param[in]  new_status   The new status; not checked against `PacketStatus`.
 * @param[out] msg_type_out Message type of the packet, its lower 14 bits; also after
 *                          VYN_DOES_NOT_FIT and VYN_NOT_SERIALIZED.
 *
 * @retval VYN_OK             @p out_buf holds @p out_len bytes.
 * @retval VYN_NULL_POINTER   A pointer is null; nothing is written.
 * @retval VYN_DOES_NOT_FIT   The new packet is longer than @p out_buf_size.
 * @retval VYN_NOT_SERIALIZED The protobuf runtime failed.
 * @retval VYN_NOT_A_HEADER   @p pkt is not a `Header`, is longer than 2147483647 bytes, or memory
 *                            ran out while reading it; nothing is written.
 */
uint32_t deser_nd_alter_pkt_st(const uint8_t* pkt, uint32_t pkt_len, uint8_t* out_buf,
                               uint32_t out_buf_size, uint32_t* out_len, uint32_t new_status,
                               uint32_t* msg_type_out);

/* ---- Packet files ---------------------------------------------------------------------------- */

/**
 * Append a packet to a packet file.
 *
 * The file is a plain sequence of entries, each the length of a serialized `Header` as a protobuf
 * varint, then its bytes. The file is created when it is not there, with mode 0666 less the umask.
 * The packet is stored with its fields in the order of their numbers. An entry is written whole in a
 * single call, so several processes may append to one file. Space for the entry is reserved first
 * where the file system can do that: on a full disk, and beyond RLIMIT_FSIZE, nothing of it is
 * written, unless another writer takes the space at that very moment.
 *
 * @param[in] pkt     The packet, not compressed.
 * @param[in] pkt_len Length of @p pkt.
 * @param[in] path    The packet file.
 *
 * @retval VYN_OK              The entry is in the file. It survives the process, but not a power
 *                             cut: the file is not synced.
 * @retval VYN_NULL_POINTER    A pointer is null.
 * @retval VYN_NOT_SERIALIZED  The entry was not stored: the disk is full, the write failed or
 *                             memory ran out. Logged as an error, except the last.
 * @retval VYN_BAD_BODY        @p pkt is not a `Header`, or @p pkt_len is negative. The file is not
 *                             touched.
 * @retval VYN_FILE_NOT_OPENED The file cannot be opened or created, or is not a regular file.
 */
uint32_t store_proto_msg_to_file(const uint8_t* pkt, int32_t pkt_len, const char* path);

/**
 * Read the packets of a packet file, in the order in which they were stored.
 *
 * Reading ends at the end of the file, after ::VYN_MAX_RECORDS entries, in front of the first entry
 * whose buffer is null, and at damage: an entry that is cut short or is not a `Header`, or more than
 * 8 zero bytes between an entry with contents and the end of the file, as a power cut leaves them.
 * Any other zero byte is an empty packet, so a file of nothing but zero bytes is read as it was
 * stored. Damage is logged as an error with its offset in bytes; the entries in front of it are
 * returned.
 *
 * @param[in,out] bufs         A buffer for each packet; the first must not be null. Their sizes are
 *                             not checked: each must hold the largest packet of the file with its
 *                             fields in order, at most 5 bytes more than it takes there.
 * @param[out]    record_count Receives the number of entries; 0 with every result but VYN_OK, and
 *                             untouched when a pointer is null.
 * @param[out]    lens         Receives the length of each packet; as many elements as @p bufs.
 * @param[in]     path         The packet file.
 *
 * @retval VYN_OK             @p record_count packets were read, at least one.
 * @retval VYN_NULL_POINTER   A pointer or the first buffer is null, or the file cannot be opened or
 *                            is not a regular file.
 * @retval VYN_NOT_SERIALIZED There is no whole entry, reading failed, or memory ran out; buffers
 *                            and lengths may have been written.
 */
uint32_t read_proto_msg_from_file(uint8_t** bufs, uint32_t* record_count, uint32_t* lens,
                                  const char* path);

#ifdef __cplusplus
}

/* ---- JSON of any message, in C++ ------------------------------------------------------------- */

/**
 * Append the JSON text of a message to a string: indented, keys as in the schema, enums as
 * numbers, fields at their default value printed too (protobuf 3.5.1 prints an enum at its default by
 * its name). Bytes of a text that are not UTF-8 are left out, and protobuf writes a line about it to
 * standard error; the result does not tell.
 *
 * Mind the order of the arguments: in both directions the JSON comes before the message.
 *
 * @param[in,out] json    Receives the text at its end; as it was after a failure.
 * @param[in]     message Any message of the catalogue; not changed.
 *
 * @return True on success. Failure is logged. Memory that runs out inside protobuf can end the
 *         process.
 */
bool ProtoToJson(std::string& json, google::protobuf::Message& message);
/** @copydoc ProtoToJson(std::string&, google::protobuf::Message&) */
bool ProtoToJson(std::string& json, const google::protobuf::Message& message);

/**
 * Fill a message from JSON text. Keys that name no field are skipped. An unknown name of an enum
 * leaves the field at 0 with protobuf 3.21, and is a failure with 3.5.1.
 *
 * @param[in]  json    The text.
 * @param[out] message Holds exactly what the text describes; undefined after a failure.
 *
 * @return True on success. Failure is logged: text that is not JSON, a value that does not suit its
 *         field.
 */
bool JsonToProto(const std::string& json, google::protobuf::Message& message);
#endif

#pragma GCC visibility pop

#endif /* VYN_PROTO_HELPER_H */

/**
 * @file vyn_header.h
 * The envelope of a packet as a header and as JSON text.
 *
 * Every packet is one protobuf message `Header`. Services handle it as a struct of fixed size, the
 * header ::msg_hdr, or as a JSON object whose keys are the field names of `Header` and "body". The
 * conversions to and from the bytes on the wire are in proto_helper.h.
 *
 * True of everything here: text is NUL-terminated, a string in JSON ends at its first NUL
 * (`\u0000`), nothing is kept after a call, and any thread may call any function at any time as
 * long as no other thread uses the same buffers. A text that a function returns as new belongs to
 * the caller, who releases it with free(). An unterminated text member of a header or a bag counts
 * with its whole array. Running out of memory is reported like any other failure, as far as json-c
 * reports it (json_helper.h).
 */
#ifndef VYN_VYN_HEADER_H
#define VYN_VYN_HEADER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Sizes of the text members of ::msg_hdr and ::msg_property_bag in bytes, the NUL included. */
enum {
    MSG_HDR_ID_SIZE = 64,         /**< message_id, correlation_id, system_id. */
    MSG_HDR_DEVICE_ID_SIZE = 128, /**< device_id, target_id. */
    MSG_HDR_BAG_SIZE = 256,       /**< property_bag of ::msg_hdr. */
    MSG_BAG_TEXT_SIZE = 256,      /**< checksum, error, file of ::msg_property_bag. */
    MSG_BAG_NAME_SIZE = 64,       /**< target, attempt of ::msg_property_bag. */
    MSG_UUID_SIZE = 37            /**< What get_new_message_uuid() writes. */
};

/** Encoding types that the library knows. A body of any other is text. */
enum {
    MSG_ENCODING_BINARY = 2 /**< A binary body: raw bytes on the wire, base64 text in JSON. */
};

/**
 * The header of a packet. All zero is the empty header; clear a header before you fill it or hand
 * it to get_msg_hdr(). An empty text or a zero means "none" where a member's line says so.
 */
typedef struct msg_hdr {
    char message_id[MSG_HDR_ID_SIZE];       /**< Identifier of the message. */
    char correlation_id[MSG_HDR_ID_SIZE];   /**< Identifier of the message it answers, or none. */
    uint32_t version;                       /**< Version of the envelope. */
    char system_id[MSG_HDR_ID_SIZE];        /**< Identifier of the system. */
    uint32_t sub_system_id;                 /**< Number of the sub-system, or none. */
    char device_id[MSG_HDR_DEVICE_ID_SIZE]; /**< Identifier of the device, or none. */
    char target_id[MSG_HDR_DEVICE_ID_SIZE]; /**< Identifier of the target, or none. */
    char property_bag[MSG_HDR_BAG_SIZE];    /**< Property bag as JSON object text, or none. */
    uint32_t encoding_type;                 /**< How the body is encoded, 0 to 3. */
    uint32_t msg_type;                      /**< Message type, 0 to 16383. */
    int64_t time;                           /**< Milliseconds since the Unix epoch. */
    int64_t ttl;                            /**< Time to live, or none. */
    uint32_t packet_status;                 /**< A `PacketStatus`; JSON does not carry it. */
} msg_hdr;

/** The property bag as a struct. Members that are zero or empty are not set. */
typedef struct msg_property_bag {
    uint32_t error_code;              /**< Error code. */
    uint32_t OTT;                     /**< Travels in JSON only; `Header` has no field for it. */
    uint32_t ack_required;            /**< Acknowledgement request. */
    char checksum[MSG_BAG_TEXT_SIZE]; /**< Checksum as text. */
    char error[MSG_BAG_TEXT_SIZE];    /**< Error text. */
    char target[MSG_BAG_NAME_SIZE];   /**< Target. */
    char file[MSG_BAG_TEXT_SIZE];     /**< File. */
    char attempt[MSG_BAG_NAME_SIZE];  /**< Attempt. */
} msg_property_bag;

/* ---- Header and JSON envelope ---------------------------------------------------------------- */

/**
 * Pack the two halves of the message-type word, as `Header` and the JSON envelope carry it.
 *
 * @param[in] msg_type      Message type; bits above the 14th spill into the encoding type.
 * @param[in] encoding_type Encoding type; bits above the second spill out of the 16-bit word.
 *
 * @return @p msg_type OR (@p encoding_type shifted left by 14), nothing masked.
 */
uint32_t combine_msg_type_encoding_type(uint32_t msg_type, uint32_t encoding_type);

/**
 * Turn a header into a JSON envelope without "body".
 *
 * Keys come in this order: system_id, message_id, correlation_id*, version, sub_system_id*,
 * device_id*, target_id*, message_type, time, ttl*, property_bag*; those with a star only when
 * their member is not empty or zero. "version" is always 3, whatever the header says.
 * "message_type" is the word that combine_msg_type_encoding_type() makes. Numbers of 32 bits are
 * written signed, so 2147483648 and more come out negative, and get_msg_hdr() turns them back.
 * "property_bag" is the parsed value of the header's text; a text that is not JSON is left out, and
 * so is a bag when memory runs out for it: neither is told. `packet_status` does not travel.
 *
 * @param[in,out] hdr       The header. Changed only by @p new_id.
 * @param[in]  new_id       Non-zero: put a fresh UUID into `message_id` first.
 * @param[in]  current_time Non-zero: "time" is the clock in milliseconds, not the header's `time`.
 *
 * @return A new text, to be released with free(); null when @p hdr is null or memory runs out.
 */
char* convert_hdr_to_json(msg_hdr* hdr, int new_id, int current_time);

/**
 * Read a JSON envelope into a header.
 *
 * | Key | JSON type | Key absent or null |
 * |---|---|---|
 * | message_id, system_id | string | member keeps its value, logged |
 * | correlation_id, target_id, device_id | string | member emptied |
 * | message_type (into `msg_type`, `encoding_type`), version | integer | as message_id |
 * | sub_system_id | integer | member set to 0 |
 * | time, ttl | integer, 64 bits | member keeps its value, logged |
 * | property_bag | object, stored as its JSON text | member emptied |
 *
 * A value of another type is logged and the member keeps its value; a boolean is no integer. Texts
 * are cut at the byte to fit their member, which may leave half of a UTF-8 character (a packet
 * made of it cannot be parsed by its receiver) or a property bag that is no longer JSON. Integers
 * outside the signed 32-bit range are clamped to it. `packet_status` is left alone. A document
 * that is not an object reads like an empty one.
 *
 * @param[in]     json The envelope.
 * @param[in,out] hdr  The header; not cleared first.
 *
 * @retval 1 @p json is JSON, whatever its keys hold.
 * @retval 0 @p json is not JSON, which is logged with the text as far as it fits, or an argument is
 *           null. The header is untouched.
 */
int get_msg_hdr(const char* json, msg_hdr* hdr);

/**
 * Add a body to a JSON envelope, or replace the one it has.
 *
 * @param[in] json The envelope.
 * @param[in] body Put under "body" as a JSON string.
 *
 * @return The envelope with its body as a new text, to be released with free(); null when
 *         @p json is not a JSON object, an argument is null or memory runs out.
 */
char* add_body_to_message(const char* json, const char* body);

/**
 * Take the body out of a JSON envelope.
 *
 * @param[in]  json      The envelope. Its "body" is a string, or an object, which is taken as its
 *                       JSON text.
 * @param[out] body      Receives the text; written on success only.
 * @param[in]  body_size Size of @p body in bytes, room for the NUL included.
 *
 * @retval 1 The body was copied.
 * @retval 0 It was not: a pointer is null, @p json is not JSON, there is no "body" or it is of
 *           another type, or it does not fit. All are logged.
 */
int get_body_from_message(const char* json, char* body, uint32_t body_size);

/**
 * Turn a property bag into JSON text: error_code, OTT, ack_required as integers (signed, as
 * in convert_hdr_to_json()), then attempt, checksum, error, target, file as strings.
 *
 * @param[in] bag The bag. Members that are zero or empty are left out.
 *
 * @return A new text, to be released with free(); null when nothing is set, @p bag is null or
 *         memory runs out. It may be longer than the `property_bag` of a ::msg_hdr.
 */
char* construct_property_bag(const msg_property_bag* bag);

/* ---- Message ids ----------------------------------------------------------------------------- */

/**
 * Hand out the next numeric message id: 1, 2, ... 1073741824, then 1 again. Callers on several
 * threads get distinct ones. Every process starts at 1.
 *
 * @return The id; never 0.
 */
uint32_t get_new_message_id(void);

/** @return The id that was handed out last; 0 before the first. */
uint32_t get_current_message_id(void);

/**
 * Write a new UUID in its text form of 36 characters.
 *
 * @param[out] uuid      Receives the text; untouched when there is no room for it.
 * @param[in]  uuid_size Size of @p uuid in bytes; at least ::MSG_UUID_SIZE.
 *
 * A null pointer and a size that is too small are logged as errors.
 */
void get_new_message_uuid(char* uuid, uint32_t uuid_size);

/* ---- Memory and files ------------------------------------------------------------------------ */

/**
 * Copy between two buffers, never more than either holds. Nothing is terminated.
 *
 * @param[out] dest      Receives the bytes.
 * @param[in]  dest_size Size of @p dest in bytes.
 * @param[in]  src       The bytes; must not overlap @p dest.
 * @param[in]  src_size  Size of @p src in bytes.
 *
 * Nothing is checked: both pointers must be valid for the count, unless that is 0.
 *
 * @return How many bytes were copied, the smaller of the two sizes.
 */
uint32_t memscpy(void* dest, uint32_t dest_size, const void* src, uint32_t src_size);

/**
 * Sync the directory that holds a file, so that a file created there, or one replaced by
 * write_to_file_using_mmap_atomic(), is found by its name after a power cut.
 *
 * @param[in] path Path of the file, not of the directory; at most 255 characters. For a name
 *                 without '/' the working directory is synced. Do not let the part before the last
 *                 '/' name a FIFO: opening it would wait for a writer.
 *
 * @retval 0  The directory is on storage.
 * @retval -1 It is not, and errno tells why: EINVAL for a null pointer, ENAMETOOLONG for a longer
 *            path, otherwise the error of open() or fsync(). Do not repeat
 *            a failed sync: the second one would report success.
 *
 * Its start and its outcome are logged at LOG_LEVEL_DEBUG, a directory that cannot be opened only
 * by its start. May be called on any thread.
 */
int fsync_parent_dir(const char* path);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif /* VYN_VYN_HEADER_H */

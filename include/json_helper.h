/**
 * @file json_helper.h
 * One-call operations on JSON documents that are kept as text in fixed-size buffers.
 *
 * True of everything here, unless a function says otherwise:
 *
 * - A document is NUL-terminated JSON text. Key functions want an object at its top and look among
 *   its top-level members only, by exact comparison; array functions want an array. The text
 *   `null` alone is not a document. Whatever the parser of the installed json-c accepts is JSON;
 *   docs/releases.md lists what differs between its releases.
 * - A function that edits writes the document back into its buffer; a function that reads writes
 *   into a destination, which may be the document's own buffer. Sizes are those of that buffer in
 *   bytes, room for the NUL included.
 * - Text fits when its length is at most size - 1. Text that does not fit is not copied at all, and
 *   a line is logged. After every failure (result 0) buffers and results hold what they held.
 * - A null pointer is a failure, as is running out of memory. But json-c does not survive every
 *   allocation that fails inside it: then the process can end, or a text come out shorter.
 * - The text of a value is json-c's: of a string its characters, up to its first NUL (`\u0000`); of
 *   anything else its JSON rendering, with '/' as `\/`; null has none. An edited document is
 *   rendered anew, so spacing is not kept; members keep their order, a new one comes last.
 * - Each call parses its document, so a service that reads many keys does better with json-c and
 *   get_json_value(). Nothing is kept after a call. Any thread may call on distinct buffers.
 *
 * Some functions apply the "nesting rewrite" to the text that they copied. It turns a string that
 * holds JSON into the nested array or object: every backslash is removed, then every quote that
 * stands before '[' or '{' or behind ']' or '}'. It does so all over the document and knows no
 * strings: `\n` becomes n, and text from outside can break the document or add keys to it
 * (`[1],"role":"admin","z":[2]`). Use such a function on text of your own only; for any other,
 * set_generic_key_json() with VYN_JSON_STRING stores exactly the string it is given.
 */
#ifndef VYN_JSON_HELPER_H
#define VYN_JSON_HELPER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct json_object;

/** Type codes, the values of json-c's `json_type`. */
enum vyn_json_type {
    VYN_JSON_NULL = 0,    /**< null, or no such key. */
    VYN_JSON_BOOLEAN = 1, /**< true or false. */
    VYN_JSON_DOUBLE = 2,  /**< A number with a fraction or an exponent. */
    VYN_JSON_INT = 3,     /**< An integral number. */
    VYN_JSON_OBJECT = 4,  /**< An object. */
    VYN_JSON_ARRAY = 5,   /**< An array. */
    VYN_JSON_STRING = 6   /**< A string. */
};

/** What get_json_value() found: only the member of the type that it returns is written. */
typedef struct json_val {
    double dbl_val;      /**< ::VYN_JSON_DOUBLE. */
    int32_t int_val;     /**< ::VYN_JSON_BOOLEAN (0 or 1) and ::VYN_JSON_INT. */
    const char* str_val; /**< ::VYN_JSON_OBJECT and ::VYN_JSON_STRING. Belongs to the tree. */
} json_val;

/* ---- Reading keys ---------------------------------------------------------------------------- */

/**
 * Copy the text of a key's value.
 *
 * @param[in]  json The document.
 * @param[in]  key  The key.
 * @param[out] dest Receives the text.
 * @param[in]  size Size of @p dest.
 *
 * @retval 1 Copied.
 * @retval 0 Not an object, no such key, its value is null, or the text does not fit.
 */
int get_key_json(const char* json, const char* key, char* dest, uint32_t size);

/**
 * Read a key's value, converted to a type.
 *
 * The conversion is json-c's, whatever type the value has: the string "12" reads as the integer
 * 12, null as false, 0.0 or 0, a number beyond the range as the end of the range (json-c 0.12 may
 * give the other end). A string read as a double wants the decimal point of the process's locale:
 * "2.5" is 0.0 where that is a comma.
 *
 * | type | writes to dest |
 * |---|---|
 * | VYN_JSON_BOOLEAN | one byte, 0 or 1 |
 * | VYN_JSON_DOUBLE | a `double` |
 * | VYN_JSON_INT | an `int64_t` when size is 8, with any other size an `int32_t` |
 * | VYN_JSON_STRING | the value's text |
 *
 * @param[in]  json The document.
 * @param[in]  key  The key.
 * @param[out] dest Receives the value; need not be aligned.
 * @param[in]  type One of the types above.
 * @param[in]  size Size of @p dest; looked at for VYN_JSON_INT and VYN_JSON_STRING only.
 *
 * @retval 1 Something was written.
 * @retval 0 Not an object, no such key, another type; for VYN_JSON_STRING also a null value or a
 *           text that does not fit.
 */
int get_generic_key_json(const char* json, const char* key, void* dest, int type, uint32_t size);

/**
 * Read an integer of 64 bits.
 *
 * Mind that the result tells that the key is there, not that its value was an integer: preset
 * @p result to what it shall be otherwise.
 *
 * @param[in]  json   The document.
 * @param[in]  key    The key.
 * @param[out] result Receives the value; untouched unless that is an integer.
 *
 * @retval 1 The key is there. A value that is no integer (null, 1.5, true, "12") is logged.
 * @retval 0 A null pointer, not JSON, not an object or no such key; all are logged.
 */
int get_key_json_int64(const char* json, const char* key, int64_t* result);

/**
 * Tell the type of a key's value.
 *
 * @param[in]  json The document.
 * @param[in]  key  The key.
 * @param[out] type Receives one of ::vyn_json_type.
 *
 * @retval 1 @p type was written.
 * @retval 0 Not an object, or no such key.
 */
int get_json_type(const char* json, const char* key, int* type);

/**
 * Read a key's value out of a tree that the caller parsed with json-c.
 *
 * Integers beyond 32 bits are clamped. The text of an object is rendered, which changes json-c's
 * cache inside the tree: one thread at a time per tree. `str_val` lasts until the tree is changed,
 * rendered or released, is never freed, and is null when memory ran out. Arrays and nulls are
 * logged and write nothing.
 *
 * @param[in]  root   The tree; stays the caller's.
 * @param[in]  key    The key.
 * @param[out] result Receives the value in the member of its type; the others are untouched, so
 *                    clear it first.
 *
 * @return The type of the value; 0 also for a key that is not there, a tree that is no object and
 *         a null pointer.
 */
int get_json_value(struct json_object* root, const char* key, json_val* result);

/* ---- Editing keys ---------------------------------------------------------------------------- */

/**
 * Set a key to a value of a type.
 *
 * | type | value points at |
 * |---|---|
 * | VYN_JSON_BOOLEAN | an `int32_t`; non-zero is true |
 * | VYN_JSON_DOUBLE | a `double`, written with six decimals: 2.5 as 2.500000 |
 * | VYN_JSON_INT | an `int32_t` |
 * | VYN_JSON_STRING | a text |
 *
 * A double is written into 29 characters. From 1e22 on (negative: 1e21) there is no room for all six
 * decimals, which are zeros there, and some are left out. From 1e27 on (negative: 1e26) there is room
 * for none, and the number is written with an exponent. It always reads back equal. The locale does
 * not matter.
 *
 * @param[in,out] json  The document.
 * @param[in]     key   The key.
 * @param[in]     value The value; need not be aligned.
 * @param[in]     type  One of the types above.
 * @param[in]     size  Size of @p json.
 *
 * @retval 1 The document was edited.
 * @retval 0 Not an object, another type, a double that is no number, infinite or of 1e29 and above
 *           (negative: 1e28), or the new document does not fit.
 */
int set_generic_key_json(char* json, const char* key, const void* value, int type, uint32_t size);

/**
 * Set a key to a string, with the nesting rewrite over the whole document: a value that is itself
 * an array or object as text becomes one.
 *
 * @param[in,out] json  The document.
 * @param[in]     key   The key.
 * @param[in]     value The string. Not from outside: see the nesting rewrite above.
 * @param[in]     size  Size of @p json; the document must fit before the rewrite shortens it.
 *
 * @retval 1 The document was edited; the rewrite may have left text that no longer parses.
 * @retval 0 Not an object, or the new document does not fit.
 */
int set_key_json(char* json, const char* key, const char* value, uint32_t size);

/**
 * Set a key to a value that the caller built with json-c, typically an array.
 *
 * @param[in,out] json  The document.
 * @param[in]     key   The key.
 * @param[in]     value The value; null stores null. It belongs to the function from here on and is
 *                      released before it returns, whatever the result, with these exceptions: a
 *                      null @p json or @p key and a document that is not JSON leave it with the
 *                      caller. The result does not tell them apart from other failures.
 * @param[in]     size  Size of @p json.
 *
 * @retval 1 The document was edited.
 * @retval 0 Not JSON (logged), not an object, or the new document does not fit.
 */
int set_array_key_json(char* json, const char* key, struct json_object* value, uint32_t size);

/**
 * Remove a key and copy what is left, with the nesting rewrite over all of it.
 *
 * @param[in]  json The document; not changed, unless it is @p dest as well.
 * @param[in]  key  The key; one that is not there changes nothing.
 * @param[out] dest Receives the document without the key.
 * @param[in]  size Size of @p dest.
 *
 * @retval 1 Copied. (Also when json-c yields no text for lack of memory: @p dest is untouched.)
 * @retval 0 Not an object, or the text does not fit.
 */
int del_json_key(const char* json, const char* key, char* dest, uint32_t size);

/* ---- Arrays ---------------------------------------------------------------------------------- */

/**
 * Count the elements of an array.
 *
 * @param[in] json The document.
 *
 * @return The number of elements; 0 for anything that is not an array.
 */
int get_json_array_length(const char* json);

/**
 * Copy the text of an element, with the nesting rewrite.
 *
 * @param[in]  json  The document.
 * @param[in]  index Index of the element, from 0.
 * @param[out] dest  Receives the text.
 * @param[in]  size  Size of @p dest.
 *
 * @retval 1 Copied.
 * @retval 0 Not an array, no such element, it is null, or its text does not fit.
 */
int copy_array_json(const char* json, int index, char* dest, uint32_t size);

/**
 * Append an element to an array, with the nesting rewrite over all of it. Mind the order of the
 * arguments: the element comes first.
 *
 * @param[in]     element The element, as JSON text other than `null`.
 * @param[in,out] json    The document.
 * @param[in]     size    Size of @p json.
 *
 * @retval 1 The document was edited.
 * @retval 0 One of the two is not JSON, @p json is not an array, or the new array does not fit.
 */
int array_add_json(const char* element, char* json, uint32_t size);

/**
 * Replace an element of an array, with the nesting rewrite over all of it.
 *
 * @param[in,out] json    The document.
 * @param[in]     index   Index of the element. At the end or behind it, the array grows and the gap
 *                        is filled with nulls.
 * @param[in]     element The element, as JSON text other than `null`.
 * @param[in]     size    Size of @p json.
 *
 * @retval 1 The document was edited.
 * @retval 0 One of the two is not JSON, @p json is not an array, @p index is negative, or the new
 *           array does not fit. A gap that can never fit is refused before the array grows.
 */
int replace_array_index_json(char* json, int index, const char* element, uint32_t size);

/* ---- Files ----------------------------------------------------------------------------------- */

/**
 * Read a JSON file, with the nesting rewrite over its text.
 *
 * @param[in]  path The file, a regular one of at most 16 MiB. Any JSON value but null may be at
 *                  its top.
 * @param[out] dest Receives its value as json-c renders it.
 * @param[in]  size Size of @p dest.
 *
 * @retval 1 Copied.
 * @retval 0 The file cannot be read, is not a regular file, too large, empty or not JSON, or its
 *           text does not fit.
 */
int get_json_file(const char* path, char* dest, uint32_t size);

/* Writing files. docs/durability.md compares the three writers. All of them make a file that is
 * not there, replace what it held, keep nothing after the call, and may run on any thread; two
 * threads or processes must not write one path at the same time. A thread that is cancelled in one
 * of them may leave the file half-written, or the temporary file. Only the descriptor of
 * write_to_file(), which is json-c's own, goes to children and is lost when its thread is
 * cancelled. A process that exceeds RLIMIT_FSIZE is sent SIGXFSZ by the system, which ends it
 * unless that is ignored. */

/**
 * Write JSON text to a file, as json-c renders it. Nothing is synced: after a power cut the file
 * can be empty, cut or gone, whatever was returned.
 *
 * @param[in] path The file. A new one gets mode 0644 less the umask.
 * @param[in] json JSON text other than `null`.
 *
 * @retval 1 Written.
 * @retval 0 A pointer is null or @p json is not JSON: the file is untouched. Or it could not be
 *           opened or written, with errno as json-c left it: then it may be empty or cut.
 */
int write_to_file(const char* path, const char* json);

/**
 * Write bytes to a file in place and wait until they are on storage. A power cut or a failure
 * during the call leaves the file empty or cut: where its old contents are still needed, use
 * write_to_file_using_mmap_atomic().
 *
 * @param[in] path   The file. A new one gets mode 0666 less the umask.
 * @param[in] data   The bytes.
 * @param[in] length How many; with 0 the file becomes empty.
 *
 * @retval 1 The bytes are on storage. A file that was created is found after a power cut only once
 *           fsync_parent_dir() was called with its path. (Closing the file may still have failed,
 *           which is logged.)
 * @retval 0 Not written; errno tells why: EINVAL for a null pointer, EIO when writing failed,
 *           whatever the cause, and the system's own error when opening, flushing or syncing did.
 *           Every failure but a null pointer is logged at LOG_LEVEL_DEBUG. After a failed sync
 *           nothing is known of the contents; write all of them again.
 */
int write_to_file_using_fop(const char* path, const void* data, uint32_t length);

/**
 * Replace a file by new contents in one step, so that readers and power cuts find the old contents
 * or the new ones and never a mixture.
 *
 * The bytes go to a temporary file, @p path with ".tmp" appended, are synced, and the temporary
 * file is renamed to @p path. One that a killed process left behind is reused. The directory must
 * be writable for trusted processes only: whoever can write there can plant a file at the
 * temporary name. A symbolic link there is not followed.
 *
 * On success the contents are on storage, the rename perhaps not: a power cut may bring the old
 * contents back until fsync_parent_dir() was called with the same path (it takes 255 characters).
 *
 * Two writers of one path at the same time share the temporary file: when one truncates what the
 * other has mapped, SIGBUS ends the process, or a mixture of both replaces the file and both report
 * success. Serialize them.
 *
 * @param[in] path   The file; at most 4091 characters. The new file has mode 0644 less the umask,
 *                   whatever the old one had; a temporary file that was left behind keeps its own
 *                   mode and owner. A symbolic link at this path is replaced itself.
 * @param[in] data   The bytes.
 * @param[in] length How many, at least 1.
 *
 * @retval 1 Replaced.
 * @retval 0 Not replaced: the file is as it was and the temporary file is gone (a folder of that
 *           name stays). errno tells why: EINVAL for a null pointer or no bytes, ENAMETOOLONG for a
 *           path that is too long, ENOSPC for a full disk, otherwise the error of the call that
 *           failed. Nothing is logged.
 */
int write_to_file_using_mmap_atomic(const char* path, const void* data, uint32_t length);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif /* VYN_JSON_HELPER_H */

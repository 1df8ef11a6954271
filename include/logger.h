/**
 * @file logger.h
 * Logging to syslog through one process-wide threshold, and small services
 * that live beside it: clock, transaction ids, text predicates.
 *
 * True of everything here: text is NUL-terminated, nothing is kept after a call
 * (but see log_file_init()), nothing is allocated that outlives one, and any
 * thread may call any function at any time.
 */
#ifndef VYN_LOGGER_H
#define VYN_LOGGER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Level of a message, and the threshold it is held against: a message is written
 * when its level is at least the threshold. Mind the order: info is below debug,
 * so a threshold of LOG_LEVEL_DEBUG drops info and keeps debug and error.
 */
enum vyn_log_level {
    LOG_LEVEL_INFO = 0,  /**< Written with priority LOG_INFO. */
    LOG_LEVEL_DEBUG = 1, /**< Written with priority LOG_DEBUG: detail, and most failure notes. */
    LOG_LEVEL_ERROR = 2, /**< Written with priority LOG_ERR. */
    LOG_LEVEL_NONE = 3   /**< Never written; as the threshold it silences all of the above. */
};

/** Size of the buffer that a message is formatted into, its NUL included. */
enum { LOG_MESSAGE_SIZE = 2048 };

/* ---- Logging --------------------------------------------------------------------------------- */

/**
 * Open the connection to syslog and set the threshold.
 *
 * Messages carry the process id and go to facility user. LOG() also works without
 * this call: syslog then uses its default identity, and the threshold is 0. To see messages on a
 * terminal too, call openlog() with LOG_PERROR behind it.
 *
 * @param[in] ident    Name that every message carries. syslog keeps the pointer, so the text
 *                     must stay in place as long as the process logs. Null selects syslog's
 *                     default, the program's name.
 * @param[in] reserved Not used; pass 0.
 * @param[in] level    The threshold, stored as by update_log_level().
 *
 * @return Always 1.
 */
int log_file_init(const char* ident, int32_t reserved, uint32_t level);

/** Does nothing: the connection to syslog lives as long as the process. */
void log_file_cleanup(void);

/**
 * Write one message to syslog.
 *
 * A message below the threshold costs a comparison; nothing is formatted. Text beyond
 * 2047 characters is cut. A newline is added when there is room for it, so a cut message
 * has none. A '%' that comes out of an argument is written as it is.
 *
 * @param[in] level  One of ::vyn_log_level. A larger number writes "Incorrect log level" as an
 *                   error in place of the message, as long as it is not below the threshold.
 * @param[in] format printf format; must not come from outside. Null writes nothing.
 *
 * errno is the same after the call as before it, and `%m` in the format shows it (gcc's -pedantic
 * warns of that in C99; strerror() does the same).
 * Blocks while syslog's daemon does not read its socket, so hold no lock that others
 * need. No lock of the library is held across it.
 */
void LOG(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/**
 * Set the threshold, from the next LOG() on; another thread may see it a call later.
 *
 * @param[in] level Any value is stored, also one above LOG_LEVEL_NONE: only messages with a
 *                  level at least as large pass then.
 */
void update_log_level(uint32_t level);

/** @return The threshold as it was last set; 0 when it never was. */
uint32_t get_log_level(void);

/**
 * Write a notice and its error code, as two messages at LOG_LEVEL_ERROR. Nothing else happens:
 * nobody but the log is notified.
 *
 * @param[in] message    Written as it stands, a '%' included. Null is written as "(null)".
 * @param[in] error_code Written as "Error Code : %d".
 */
void notify_IVI_(const char* message, int error_code);

/* ---- Clock and ids --------------------------------------------------------------------------- */

/** @return The wall clock in milliseconds since the Unix epoch. */
uint64_t get_current_timestamp_(void);

/**
 * Hand out the next transaction id.
 *
 * The ids of one process are consecutive numbers that wrap to 0 after 4294967295; callers
 * on several threads get distinct ones. The first is random, between 0 and RAND_MAX, and
 * drawing it calls srand() with the clock's seconds, which reseeds rand() for the whole
 * process. Two processes may hand out the same ids.
 *
 * @return The id.
 */
uint32_t generate_unique_trans_id(void);

/* ---- Text predicates ------------------------------------------------------------------------- */

/**
 * Tell whether a text has any characters; a single blank counts.
 *
 * @param[in] str The text.
 *
 * @return 0 when @p str is null or empty, else 1.
 */
int is_param_not_empty(const char* str);

/**
 * Tell whether a value is one of those allowed.
 *
 * @param[in] value   The text to look for.
 * @param[in] allowed One text, or several with '|' between them. Empty alternatives are skipped,
 *                    so an empty value only matches an empty @p allowed.
 *
 * @retval 1 @p value equals @p allowed or, when that holds a '|', one of its alternatives.
 * @retval 0 It does not, or an argument is null.
 */
int compare_config_data_values(const char* value, const char* allowed);

/**
 * Tell whether a POSIX basic regular expression matches somewhere in a text.
 *
 * @param[in] text    The text to search.
 * @param[in] pattern The expression; case counts, groups are written `\(` and `\)`. It must be the
 *                    service's own: the C library can take any time and memory over one, and with
 *                    hundreds of repetitions in it overflow the stack, which ends the process.
 *
 * @retval 1 It matches.
 * @retval 0 It does not, it is malformed, its groups are nested deeper than 50 (the C library
 *           compiles groups by recursion), or an argument is null.
 */
int find_key_regex(const char* text, const char* pattern);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif /* VYN_LOGGER_H */

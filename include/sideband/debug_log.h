/* SPDX-License-Identifier: Apache-2.0 */
/* The diagnostic log: one printf-style routine, switched at run time by marker files. */
#ifndef SIDEBAND_DEBUG_LOG_H
#define SIDEBAND_DEBUG_LOG_H

#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

/* ---- Paths and limits ------------------------------------------------------------------------ */
/* The paths can be others: whoever builds the library with -DDEBUG_LOG_FILE=..., and so on. */

/** While this file exists, messages go to standard error. */
#ifndef DEBUG_LOG_CONSOLE_MARKER
#define DEBUG_LOG_CONSOLE_MARKER "/nv/ConsoleLogEn"
#endif
/** While this file exists, messages go to the system log and to DEBUG_LOG_FILE. */
#ifndef DEBUG_LOG_FILE_MARKER
#define DEBUG_LOG_FILE_MARKER "/nv/DebugLogEn"
#endif
/**
 * The log file; messages are appended. Created for its owner alone (mode 0600). Anything in its
 * place that is not a regular file, a symbolic link included, takes no message.
 */
#ifndef DEBUG_LOG_FILE
#define DEBUG_LOG_FILE "/nv/debug.log"
#endif
/** The one previous generation of the log file. */
#ifndef DEBUG_LOG_FILE_ROTATED
#define DEBUG_LOG_FILE_ROTATED "/nv/debug.log.0"
#endif
/**
 * The log file is rotated once it is larger than this many bytes: it replaces the generation
 * before it. Of two processes that cross the size at nearly the same moment each may rotate: the
 * one generation that is kept is then the little that was written between the two.
 */
#define DEBUG_LOG_ROTATE_SIZE 0x20000
/** Milliseconds that one message waits for the log file's lock at most. */
#define DEBUG_LOG_LOCK_WAIT_MS 300

/* ---- Messages -------------------------------------------------------------------------------- */

/**
 * Reports one message on every enabled outlet: standard error, the platform's system log, the
 * log file. Nothing is added to the text. Both markers are tested anew on every call.
 *
 * May be called from any thread of any process: the file is written under an exclusive advisory
 * lock. If somebody else keeps the lock for DEBUG_LOG_LOCK_WAIT_MS, the message is written without
 * it, in one piece all the same. No failure reaches the caller; a message that cannot be written to
 * an outlet is lost for that outlet. errno stays as it was.
 *
 * @param format  printf-style format, with its own line end if one is wanted; %m stands for the
 *                caller's errno
 */
SIDEBAND_EXPORT void debug_log(const char* format, ...) SIDEBAND_PRINTF(1, 2);

SIDEBAND_END_DECLS

#endif

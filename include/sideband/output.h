/* SPDX-License-Identifier: Apache-2.0 */
/* Where the library's texts go: standard output and logs, or a function of the caller's. */
#ifndef SIDEBAND_OUTPUT_H
#define SIDEBAND_OUTPUT_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

/** What the library prints to standard output. */
#define SIDEBAND_OUTLET_PRINTED 0x01U
/** What it hands to the platform's console_log(). */
#define SIDEBAND_OUTLET_CONSOLE 0x02U
/** What goes through debug_log(), the caller's own messages too, whatever marker files exist. */
#define SIDEBAND_OUTLET_DEBUG 0x04U

/**
 * Takes a text in the place of an outlet. It is called on the thread that is in the library, with
 * whatever locks that holds: it must not wait long, and must not call the library.
 * @param context  of sideband_set_output()
 * @param outlet   the one of SIDEBAND_OUTLET_... that the text is for
 * @param text     length bytes, which may be part of a line or several lines, just as they would
 *                 have been printed; no NUL ends them. They live until the function returns. A
 *                 message longer than 255 bytes is cut there if memory runs out
 */
typedef void (*sideband_output_op)(void* context, uint32_t outlet, const char* text, size_t length);

/**
 * Leads texts of the library to a function, in the whole process. All that goes to an outlet which
 * is not among outlets goes where it always went: to the stream stdout, to console_log(), and where
 * the marker files of debug_log.h say.
 *
 * There is one function at a time: a call takes the place of the one before. It is for a time when
 * no thread is in the library; the function itself may be called by several threads at once.
 * @param outlets  SIDEBAND_OUTLET_... bits; 0 leads all back
 * @param take     null leads all back
 * @param context  handed to take
 */
SIDEBAND_EXPORT void sideband_set_output(uint32_t outlets, sideband_output_op take, void* context);

SIDEBAND_END_DECLS

#endif

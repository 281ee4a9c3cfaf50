/* SPDX-License-Identifier: Apache-2.0 */
/* C interface of the platform library for a Linux machine. */
#ifndef SIDEBAND_LINUX_LINUX_H
#define SIDEBAND_LINUX_LINUX_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Puts a board under the platform interface of this process. GlobalParaInit() does that by itself
 * with the machine's own board file; who wants another one, or uses the library without that call,
 * calls this first. No call of the library may be under way.
 * @param board_file  path of a board file; null for /etc/sideband/board.json, or without that file
 * a board without devices
 * @return 0; -1 after one line on standard error for each error, for a file that cannot be read or
 *         is malformed. The board before stays in use then
 */
int sideband_linux_open(const char* board_file);

/** Takes the board away again and frees it. No call of the library may be under way. */
void sideband_linux_close(void);

#ifdef __cplusplus
}
#endif

#endif

/* SPDX-License-Identifier: Apache-2.0 */
/* C interface of the simulated board, for a program that links it as its platform library. */
#ifndef SIDEBAND_SIM_SIM_H
#define SIDEBAND_SIM_SIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct mctp_ctx;

/**
 * Puts a simulated board under the platform interface of this process.
 * @param board_file  path of a board file; null for the built-in board
 * @return 0; -1 behind a line on standard error for each thing that is wrong with the file, or for
 * its not being readable
 */
int sideband_sim_open(const char* board_file);

/** Takes the board away again and frees it. */
void sideband_sim_close(void);

/** Lets virtual time pass, in microseconds. */
void sideband_sim_advance(uint64_t microseconds);

#ifdef __cplusplus
}
#endif

#endif

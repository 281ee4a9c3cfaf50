/* SPDX-License-Identifier: Apache-2.0 */
/* What the port to copy asks of a board, led to the one of threads_board.cpp. */
#ifndef SIDEBAND_TESTS_TRANSPORT_THREADS_PORT_H
#define SIDEBAND_TESTS_TRANSPORT_THREADS_PORT_H

int slow_board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length);
int slow_board_read(uint8_t bus, uint8_t* block, size_t room);

enum { kBoardEid = 8, kBoardAddress = 0x20, kBoardReadWaitMs = 1000 };

/* The records are this process's and its children's. */
static const char* board_records_file(void) {
    return "";
}

static int board_start(void) {
    return 0;
}

static int board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length) {
    return slow_board_write(bus, address, bytes, length);
}

static int board_read(uint8_t bus, uint8_t* block, size_t room, int wait_ms) {
    (void)wait_ms; /* what has been asked is answered at once */
    return slow_board_read(bus, block, room);
}

static int board_power(void) {
    return 1;
}

static void board_log(int for_operator, const char* line) {
    fputs(for_operator ? line : "", stderr);
}

#endif

/* SPDX-License-Identifier: Apache-2.0 */
/* A board in memory for the port to copy: on bus 1, at 0x40, a thermometer that speaks PLDM. */
#ifndef TOY_BOARD_H
#define TOY_BOARD_H

enum {
    kBoardEid = 8,
    kBoardAddress = 0x20,
    kBoardReadWaitMs = 100,
    kToyBus = 1,
    kToyAddress = 0x40,
    kToyEid = 29,
    kToyQueue = 64, /* blocks */
    kToyBlock = 80  /* bytes */
};

/* What the slave at kBoardAddress has received and nobody has read. A driver's own queue is filled
 * by its interrupt; here the bus mutex suffices. */
static struct {
    uint8_t bytes[kToyQueue][kToyBlock];
    int length[kToyQueue];
    unsigned first, count;
} toy_queue;

static uint8_t toy_pec(uint8_t address, const uint8_t* bytes, size_t length) {
    uint8_t all[256] = {address};
    memcpy(all + 1, bytes, length);
    return CRC8Gen(all, (uint8_t)(length + 1));
}

/* The device writes a packet to the BMC: DSP0237, figure 1. */
static void toy_send(const uint8_t* packet, size_t length) {
    if (toy_queue.count == kToyQueue) {
        return;
    }
    const unsigned place = (toy_queue.first + toy_queue.count++) % kToyQueue;
    uint8_t* const block = toy_queue.bytes[place];
    block[0] = 0x0F;                  /* command code */
    block[1] = (uint8_t)(length + 1); /* byte count: from the source address to the packet's end */
    block[2] = kToyAddress | 1;
    memcpy(block + 3, packet, length);
    block[3 + length] = toy_pec(kBoardAddress, block, 3 + length);
    toy_queue.length[place] = (int)length + 4;
}

/* Puts the answer to a message behind its type byte. Its length. */
static size_t toy_answer(const uint8_t* request, uint8_t* answer) {
    answer[0] = request[0];                    /* message type */
    answer[1] = (uint8_t)(request[1] & 0x1Fu); /* instance ID, now of an answer */
    answer[2] = request[2];
    answer[3] = request[3];
    if (request[0] == 0x00 && request[2] == 0x02) { /* Get Endpoint ID */
        const uint8_t told[] = {0x00, kToyEid, 0x00, 0x00};
        memcpy(answer + 3, told, sizeof told);
        return 3 + sizeof told;
    }
    if (request[0] == 0x01 && request[2] == 0x02 && request[3] == 0x11) { /* GetSensorReading */
        static uint16_t tenths = 215;
        tenths = (uint16_t)(tenths + 1);
        /* Completion code, uint16, enabled, no events, normal thrice, the reading. */
        const uint8_t told[] = {
            0x00, 0x02, 0x00, 0x00, 0x01, 0x01, 0x01, (uint8_t)tenths, (uint8_t)(tenths >> 8)};
        memcpy(answer + 4, told, sizeof told);
        return 4 + sizeof told;
    }
    const size_t at = request[0] == 0x00 ? 3 : 4;
    answer[at] = 0x05; /* unsupported command */
    return at + 1;
}

/* Nothing has to be opened; the slave is memory, and listens already. */
static int board_start(void) {
    return 0;
}

static const char* board_records_file(void) {
    return "";
}

/* bytes: command code, byte count, the BMC's address, packet, PEC. */
static int board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length) {
    if (bus != kToyBus || address != kToyAddress) {
        return -ENXIO; /* no acknowledge */
    }
    if (length < 11 || toy_pec(address, bytes, length - 1) != bytes[length - 1]) {
        return 0; /* taken, and thrown away */
    }
    const uint8_t* const packet = bytes + 3;
    uint8_t answer[kToyBlock - 4] = {0x01, packet[2], kToyEid, (uint8_t)(0xC0 | (packet[3] & 7))};
    toy_send(answer, 4 + toy_answer(packet + 4, answer + 4));
    return 0;
}

/* An answer is there at once or never comes: a driver waits for wait_ms here. */
static int board_read(uint8_t bus, uint8_t* block, size_t room, int wait_ms) {
    (void)wait_ms;
    if (bus != kToyBus || toy_queue.count == 0) {
        return -ETIMEDOUT;
    }
    const unsigned place = toy_queue.first;
    const int length = toy_queue.length[place];
    if ((size_t)length > room) {
        return -EMSGSIZE;
    }
    memcpy(block, toy_queue.bytes[place], (size_t)length);
    toy_queue.first = (place + 1) % kToyQueue;
    --toy_queue.count;
    return length;
}

static int board_power(void) {
    return 1;
}

static void board_log(int for_operator, const char* line) {
    fputs(for_operator ? line : "", stderr);
}

#endif

// SPDX-License-Identifier: Apache-2.0
// A kernel with MCTP sockets, scripted by the fuzzer's input.
#ifndef SIDEBAND_FUZZ_SOCKETS_H
#define SIDEBAND_FUZZ_SOCKETS_H

#include <sideband/mctp.h>

#include <cstdint>
#include <vector>

namespace fuzz {

/**
 * The socket calls and the monotonic clock of the library. Each wait takes records from the input:
 *
 *   how, [what it asks for], and for a message: how, [address], [length], length, bytes
 *
 * Once the input is used up nobody says anything, and waits take their time.
 */
struct Sockets {
    const mctp_ctx* expected = nullptr;  ///< whose messages the script makes right ones for
    uint8_t failures = 0;                ///< bit n: call n modulo 8 fails that may
    int64_t now = 1000;                  ///< milliseconds
    unsigned calls = 0;                  ///< since begin_call()
    std::vector<int> open;
    bool accepted_wrong = false;  ///< see must_not_pass()
};

Sockets& sockets();

/// A fresh kernel, at a later time; what is open stays so until the library closes it.
void begin_sockets();
/// Calls of the kernel go to the machine again.
void finish_sockets();

/// Whether the message that was read last is none that may pass for the context.
bool must_not_pass(const mctp_ctx& ctx);

// how, of a wait
enum : uint8_t {
    kWaitInterrupted = 0x01,  ///< fails with EINTR, after the next byte in milliseconds
    kWaitFails = 0x02,
    kWaitTakes = 0x04,     ///< the next byte in milliseconds, four times
    kWaitIsEmpty = 0x08,   ///< something is ready, and then it is not
    kWaitListener = 0x10,  ///< the message is a request, if both may come
};

// how, of a message
enum : uint8_t {
    kMessageAddress = 0x01,   ///< the next byte is the address's size, and 12 bytes it
    kMessageClaims = 0x02,    ///< the length that is claimed is the next 16 bits
    kMessageChecked = 0x04,   ///< type bit 7, and an integrity check behind the bytes
    kMessageVanishes = 0x08,  ///< somebody else reads it
    kMessageRequest = 0x10,   ///< tag owner bit, and a tag from the next byte
    kMessageLarge = 0x80,     ///< thirty times the length
};

}  // namespace fuzz

#endif

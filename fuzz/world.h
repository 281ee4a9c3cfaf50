// SPDX-License-Identifier: Apache-2.0
// The platform and the libc calls around a fuzzed exchange, scripted by the fuzzer's input.
#ifndef SIDEBAND_FUZZ_WORLD_H
#define SIDEBAND_FUZZ_WORLD_H

#include <sideband/mctp.h>
#include <sideband/platform.h>
#include <sideband/pldm.h>

#include <cstdint>
#include <span>
#include <vector>

#include "fuzz/input.h"

namespace fuzz {

/**
 * Everything that the library can see beside its arguments. A target calls begin() before it does
 * anything else and end() after each call into the library.
 *
 * The device's answers come from the input, one record each:
 *
 *   flags, length, [what the flags ask for], bytes
 *
 * Once the input is used up the device is silent, or, if endless is set, says the last thing
 * over and over.
 */
struct World {
    Input input;
    bool endless = false;
    bool has_spoken = false;  ///< a block has been read

    // What is made to go wrong, from the environment record.
    unsigned refuse_lock = 0;      ///< the n-th lx_mutex_get() fails; 0: none
    unsigned fail_allocation = 0;  ///< the n-th calloc() or malloc() fails; 0: none
    uint8_t write_failures = 0;    ///< bit n: master write n modulo 8 fails
    bool power = true;
    bool standby_off = false;
    bool mpio_marker = false;
    uint32_t strict = 0;  ///< MCTP_STRICT_... bits of every context that a target makes

    /// Those for contexts that take an EID from the pool: what a strict pool knows to be in use
    /// outlasts an input, so that the same input would come out otherwise the next time.
    uint32_t strict_without_pool() const { return strict & ~MCTP_STRICT_ADDRESSES; }

    // What the platform saw.
    std::vector<const lx_mutex*> held;
    unsigned lock_calls = 0;
    unsigned allocations = 0;
    unsigned writes = 0;
    unsigned reads = 0;
    unsigned sleeps = 0;
    long seconds = 0;        ///< what time() says
    unsigned exchanges = 0;  ///< calls of scripted_xfer() or PltMCTP_WriteRead()
    uint8_t last_tag = 0;
    uint8_t last_instance = 0;
    uint8_t last_command = 0;

    plt_global_var global{};
    plt_global_sec_var secure{};
};

World& world();

/// A fresh world over an input, with its environment record taken from the front.
void begin(const uint8_t* bytes, size_t size);

/// After a call into the library: no lock is held, and the platform was not called without end.
/// @param calls_max  bound on writes, reads and exchanges together
void end(unsigned calls_max);

/// At the end of an input: nothing may be left on the heap.
void finish();

/// Messages of a PLDM exchange at most: see MCTP_STRICT_PLDM.
unsigned strict_messages();

/// The configuration of an endpoint on the scripted bus. Bit 0 of how: the binding with PEC in
/// software; bit 1: without discovery.
mctp_ctx configuration(uint8_t how);

/// Frees what the library took from the heap since begin() and has not given back. Only for the one
/// command that keeps its request on purpose.
void free_kept_blocks();

/// An answer as the scripted operations of an endpoint and the platform make it.
struct Answer {
    int32_t result = -1;  ///< bytes at bytes, or what the device's driver claims
    std::vector<uint8_t> bytes;
};

/// Answer record flags of scripted_xfer().
enum : uint8_t {
    kAnswerFails = 0x01,         ///< a negative result from the next byte
    kAnswerEchoInstance = 0x02,  ///< the request's instance ID goes into byte 0
    kAnswerEchoCommand = 0x04,   ///< the request's command into the given byte
    kAnswerSuccess = 0x08,       ///< the completion code is 0
};

/// The next answer from the script. An answer is a message body, completion code behind the
/// command.
/// @param command_offset  1 for MCTP control, 2 for PLDM
Answer next_answer(size_t command_offset);

// Operations for an endpoint context that take their answers from the script; message type 0 has
// the command in byte 1, every other type in byte 2.
int32_t scripted_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                      const uint8_t* request, uint8_t* response);
int32_t scripted_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t scripted_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);

/// A transfer operation that hands completion codes through, as a caller may install one.
int32_t scripted_transfer(pldm_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                          uint8_t* request, uint8_t* response);

/// A call into the library over a bound terminus, with arguments from the input.
using TerminusCall = void (*)(pldm_ctx&, Input&);

/// Runs an input that is an environment record, a mode byte and then calls, each with its number
/// in front: mode bit 0 puts scripted_transfer() in place of the transfer operation, and all of it
/// is the first instance ID.
/// @param calls_max  bound on the platform's calls in each of them
void run_terminus(const uint8_t* bytes, size_t size, std::span<const TerminusCall> calls,
                  unsigned calls_max);

}  // namespace fuzz

/// One input; what every target defines and every driver calls.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);
/// Takes standard output away: the library prints much.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

#endif

// SPDX-License-Identifier: Apache-2.0
// A simulated board with one replay device, and the library's contexts that reach it.
#ifndef SIDEBAND_TESTS_TRACES_REPLAY_H
#define SIDEBAND_TESTS_TRACES_REPLAY_H

#include <sideband/mctp.h>
#include <sideband/pldm.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "support/bytes.h"

namespace test {

struct Exchange {
    Bytes request;  ///< without the message type byte; its instance ID does not matter
    Bytes response;
};

/// A board in use whose one device answers these requests and no others.
class Replay {
public:
    Replay(uint8_t message_type, const std::vector<Exchange>& exchanges);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// An initialised context of the device, message type set.
    mctp_ctx endpoint() const;
    /// Whether every lock was taken in order and given back.
    bool locks_in_order() const;

private:
    uint8_t message_type_;
    std::unique_ptr<sim::Board> board_;
};

/// A terminus that gives these answers, bound for as long as this lives.
class ReplayTerminus {
public:
    explicit ReplayTerminus(const std::vector<Exchange>& exchanges);

    pldm_ctx ctx{};
    bool locks_in_order() const { return replay_.locks_in_order(); }

private:
    Replay replay_;
    mctp_ctx mctp_;
};

/// Makes a call with the library's standard output kept away from the test's.
int32_t quietly(const std::function<int32_t()>& call);

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// What the buses tell of every packet: to the capture, and to whoever else watches.
#ifndef SIDEBAND_SIM_BOARD_TAP_H
#define SIDEBAND_SIM_BOARD_TAP_H

#include <utility>

#include "sim/board/board.h"
#include "sim/board/capture.h"
#include "sim/board/passing.h"

namespace sim {

class Tap {
public:
    Capture& capture() { return capture_; }
    void observe(PacketObserver observer) { observer_ = std::move(observer); }

    /// What nobody took never reaches the capture: its packets are those that a device sees.
    void packet(const Passing& passing) {
        if (passing.taken) {
            capture_.packet(passing);
        }
        if (observer_) {
            observer_(passing);
        }
    }

private:
    Capture capture_;
    PacketObserver observer_;
};

}  // namespace sim

#endif

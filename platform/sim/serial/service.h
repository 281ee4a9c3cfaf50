// SPDX-License-Identifier: Apache-2.0
// A board behind a serial line, in real time.
#ifndef SIDEBAND_SIM_SERIAL_SERVICE_H
#define SIDEBAND_SIM_SERIAL_SERVICE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "sim/board/bytes.h"
#include "sim/board/real_time.h"
#include "sim/serial/bridge.h"
#include "sim/serial/frame.h"
#include "sim/serial/line.h"

namespace sim {

/// An endpoint as those at the other end of the line find it.
struct ServedEndpoint {
    uint8_t eid = 0;
    EndpointInfo info;
    Bytes message_types;  ///< besides control
};

/// What passed over the line.
struct SerialCounts {
    FrameCounts received;
    uint64_t sent = 0;       ///< frames
    uint64_t discarded = 0;  ///< frames that nobody read, and packets too long for one
};

class SerialService {
public:
    /// @param tty  as in Line::open()
    /// @param eid  the bridge's own EID; those of the devices follow it
    /// @return null with error filled on failure
    static std::unique_ptr<SerialService> open(Board& board, const std::string& tty, uint8_t eid,
                                               std::string& error);

    const std::string& tty() const { return line_->path(); }
    uint8_t eid() const { return bridge_.eid(); }
    /// As they are now: in the order of the board file, without those that got no EID.
    std::vector<ServedEndpoint> endpoints() const;
    SerialCounts counts() const;

    /// Does what there is to do, and waits for it a tenth of a second at most. A signal ends the
    /// wait. The board's clock goes with the real one, from where it was at the beginning.
    /// @return false if the line is lost for good
    bool serve_a_while();

private:
    SerialService(Board& board, std::unique_ptr<Line> line, uint8_t eid);
    void read_line();
    void write_line();
    void send(ByteView packet);

    BoardState& board_;
    std::unique_ptr<Line> line_;
    FrameReader reader_;
    Bridge bridge_;
    Bytes output_;  ///< frames that the line has not taken
    uint64_t sent_ = 0;
    uint64_t discarded_ = 0;
    RealTime time_;
};

}  // namespace sim

#endif

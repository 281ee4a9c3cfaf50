// SPDX-License-Identifier: Apache-2.0
// The client of an NC-SI network controller: the library's commands, with the controller's own
// codes kept for errors.
#ifndef SIDEBAND_TOOLS_NCSI_CLIENT_H
#define SIDEBAND_TOOLS_NCSI_CLIENT_H

#include <sideband/ncsi.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/session.h"

namespace tool {

/// Every failing call throws Failure with the endpoint, the operation and the controller's codes.
class NcsiClient {
public:
    /// Brings up the channels of the first package that answers.
    /// @param session  discovered; lives longer than this object
    explicit NcsiClient(Session& session);
    ~NcsiClient();
    NcsiClient(const NcsiClient&) = delete;
    NcsiClient& operator=(const NcsiClient&) = delete;

    const std::string& name() const { return session_.endpoint().name; }

    /// Numbers of the channels found, at least one.
    const std::vector<unsigned>& numbers() const { return numbers_; }

    /// The package that the channels belong to.
    unsigned package() const;

    ncsi_channel& channel(unsigned number) { return link_.ncsi.channels[number]; }

    /// The number of the channel that is asked for; without a wish the first.
    unsigned choose(std::optional<unsigned> wanted) const;

    /// Runs a command of the library. @return its result, which is no failure
    int32_t call(const std::string& operation, const std::function<int32_t()>& command);

    /// The last response from its header on; empty if there was none.
    std::span<const uint8_t> last_response() const;

private:
    struct Exchange {
        std::array<uint8_t, NCSI_HEADER_SIZE> request;
        std::array<uint8_t, 84> response;
        int32_t length;
        bool made;
    };

    /// The context that the library sees, with the recorder behind it. The library's operation
    /// gets at the first member; record() finds the others from it.
    struct Link {
        ncsi_ctx ncsi;
        ncsi_transfer_op transfer;
        Exchange last;
    };

    static int32_t record(ncsi_channel* channel, uint32_t request_length, int32_t response_capacity,
                          uint8_t* request, uint8_t* response);
    void find_channels();
    int32_t clear_initial_state();
    Failure failure(const std::string& operation) const;

    Session& session_;
    Link link_{};
    std::vector<unsigned> numbers_;
};

/// A sensor of a Mellanox controller, in degrees Celsius.
int32_t read_temperature(NcsiClient& client, unsigned number, uint8_t sensor);

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// A conversation with one endpoint through the library, with the device's own codes kept for
// errors.
#ifndef SIDEBAND_TOOLS_SHELL_SESSION_H
#define SIDEBAND_TOOLS_SHELL_SESSION_H

#include <sideband/mctp.h>
#include <sideband/platform.h>
#include <sideband/pldm.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/cause.h"
#include "tools/shell/failure.h"
#include "tools/shell/port.h"

namespace tool {

/// "completion code 0x80 (INVALID_SENSOR_ID)", and likewise the codes of the other kinds.
std::string code_text(const DeviceCode& code);

/// Comes before every call of the library that sends something: a signal ends the command here,
/// and silence() speaks of what follows.
void before_sending();

/// What Get Endpoint ID answers (DSP0236, clause 12.4).
struct EndpointId {
    uint8_t eid = 0;
    uint8_t endpoint_type = 0;  ///< 0 simple endpoint, 1 bus owner or bridge
    uint8_t eid_type = 0;       ///< 0 dynamic, 1 to 3 static
};

/// One entry of Get Routing Table Entries (DSP0236, clause 12.12).
struct RoutingEntry {
    uint8_t eid_range_size = 0;
    uint8_t starting_eid = 0;
    uint8_t entry_type = 0;  ///< 0 to 3
    uint8_t port = 0;
    bool dynamic_entry = false;
    uint8_t binding_type = 0;  ///< physical transport binding: 1 SMBus, 2 PCIe VDM, ...
    uint8_t media_type = 0;
    std::vector<uint8_t> address;
};

/// Sees each exchange that the library makes, whole.
class ExchangeObserver {
public:
    virtual ~ExchangeObserver() = default;
    /// @param response  empty if none came
    virtual void exchanged(std::span<const uint8_t> request, std::span<const uint8_t> response) = 0;
};

/// Every failing call throws Failure with the endpoint, the operation and the device's code.
class Session {
public:
    /// Largest answer to exchange(): 4096 bytes of data and what NVMe-MI has around them.
    static constexpr int32_t kAnswerRoom = 5120;

    explicit Session(Endpoint endpoint);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// MCTP_STRICT_... bits of every session that is opened from now on.
    static void set_strict(uint32_t bits) { strict_ = bits; }
    static uint32_t strict() { return strict_; }

    const Endpoint& endpoint() const { return endpoint_; }

    /// Finds the endpoint's EID, or gives it one. Comes before everything else. On PCIe the MPIO
    /// is brought up first if the platform wants that. Behind the kernel's MCTP nothing is
    /// asked: the name of the endpoint says its EID.
    void discover();

    /// Has the endpoint, a bus owner, give the BMC an EID; instead of discover().
    /// @return the BMC's EID; eid() is then the owner's
    uint8_t take_eid();

    uint8_t eid() const { return link_.mctp.dest_eid; }

    /// Whether discover() had to assign the EID.
    bool eid_assigned() const { return eid_assigned_; }

    // MCTP control.
    EndpointId endpoint_id();
    std::array<uint8_t, 16> uuid();
    std::vector<uint8_t> message_types();
    std::vector<RoutingEntry> routes();

    /// Whether the endpoint speaks a message type, or does not tell what it speaks.
    bool speaks(uint8_t type);

    /// One message of any type: body out, body in, neither with its type byte.
    std::vector<uint8_t> exchange(uint8_t type, std::span<const uint8_t> body);

    /// The endpoint as a PLDM terminus. The reference stays valid; ask again after MCTP control.
    pldm_ctx& pldm();

    /// The way to the endpoint as pldm_terminus_init() takes it, its EID known already. A PCIe
    /// session in it stays this object's.
    mctp_ctx prototype() const;

    /// Throws unless a PLDM call returned 0.
    void check_pldm(int32_t result, const std::string& operation) const;

    /// The failure of a PLDM call, as far as its last exchange tells.
    Failure pldm_failure(const std::string& operation) const;

    /// Tells somebody of every exchange from now on; null for nobody.
    void observe(ExchangeObserver* observer) { link_.observer = observer; }

    /// The last answer's body, cut to what is kept of it; empty if there was none.
    std::span<const uint8_t> last_answer() const;

private:
    /// The first bytes of the last exchange: codes and headers all lie there.
    struct Exchange {
        std::array<uint8_t, 8> request;
        std::array<uint8_t, 64> response;
        uint32_t request_length;
        int32_t result;
        bool made;
    };

    /// The context that the library sees, with the recorder behind it. The library's operations
    /// get the address of the first member; record() finds the others from it.
    struct Link {
        mctp_ctx mctp;
        mctp_xfer_op xfer;
        Exchange last;
        ExchangeObserver* observer;
    };

    static int32_t record(mctp_ctx* mctp, uint32_t request_length, int32_t response_length,
                          const uint8_t* request, uint8_t* response);
    void fill_context();
    bool is_mpio() const;
    void open_pcie();
    void install_operations();
    void start_recording();
    void bring_up_mpio();
    bool find_eid();
    mctp_ctx& control();
    Failure control_failure(const std::string& operation) const;
    Failure failure(const std::string& operation, const std::string& reason,
                    const sideband_error& error = {}) const;

    inline static uint32_t strict_ = 0;

    Endpoint endpoint_;
    Link link_{};
    pldm_ctx pldm_{};
    plt_pcie_session pcie_{};
    bool eid_assigned_ = false;
};

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// The client of an NVMe drive: the library's commands, with the status values that the drive and
// its controllers give kept for errors.
#ifndef SIDEBAND_TOOLS_NVME_CLIENT_H
#define SIDEBAND_TOOLS_NVME_CLIENT_H

#include <sideband/nvme_mi.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/session.h"

namespace tool {

/// Every failing call throws Failure with the endpoint, the operation and what the drive said.
class NvmeClient {
public:
    /// Brings up the context. Nothing is asked of the drive but which messages it speaks.
    /// @param session  discovered; lives longer than this object
    explicit NvmeClient(Session& session);
    ~NvmeClient() { nvmemi_deinit(&link_.nvme); }
    NvmeClient(const NvmeClient&) = delete;
    NvmeClient& operator=(const NvmeClient&) = delete;

    const std::string& name() const { return session_.endpoint().name; }
    nvmemi_ctx* context() { return &link_.nvme; }

    /// Runs a command of the library.
    void call(const std::string& operation, const std::function<int32_t()>& command);

    /// Runs a command that a drive need not answer. @return whether it did
    bool call_unanswered(const std::string& operation, const std::function<int32_t()>& command);

    /// The controller that is asked for; without a wish the first one of the drive.
    uint16_t choose(std::optional<unsigned> controller);

    /// Read NVMe-MI Data Structure. @param dword0  NVMEMI_DS()
    std::vector<uint8_t> data_structure(const std::string& operation, uint32_t dword0);

    /// IDs of the controllers, in ascending order.
    std::vector<uint16_t> controllers();

    /// Identify and Get Log Page, by commands of at most NVME_ADMIN_DATA_MAX bytes.
    /// @param dword10  CNS and controller ID
    std::vector<uint8_t> identify(uint16_t controller, uint32_t dword10, uint32_t nsid);
    std::vector<uint8_t> log_page(uint16_t controller, uint8_t page, uint32_t length);

    /// The failure of the last command, as far as its exchange tells.
    /// @param addition  what stands behind the reason
    Failure failure(const std::string& operation, const std::string& addition = {}) const;

    /// The last response from behind the message type on, cut to what is kept of it.
    std::span<const uint8_t> last_response() const;

    /// Bytes of the last response, its integrity check among them; 0 if there was none.
    size_t last_length() const;

    /// Asks before each request whether it may go out; one that may not counts as unanswered.
    using Gate = std::function<bool(std::span<const uint8_t> request)>;
    void guard(Gate gate) { gate_ = std::move(gate); }

private:
    struct Exchange {
        uint8_t kind = 0;  ///< first byte of the request
        std::array<uint8_t, NVME_ADMIN_RESPONSE_SIZE> response{};
        int32_t length = 0;
        bool made = false;
    };

    /// The library's operation gets the address of the context; record() finds the drive from it.
    struct Link {
        nvmemi_ctx nvme;
        NvmeClient* client;
    };

    static int32_t record(nvmemi_ctx* nvme, uint32_t request_length, uint32_t response_capacity,
                          uint8_t* request, uint8_t* response);

    Session& session_;
    Link link_{};
    nvmemi_request_op request_ = nullptr;  ///< the library's own
    Exchange last_;
    Gate gate_;
};

/// A drive that an argument names: found, discovered and brought up.
struct FoundDrive {
    FoundDrive(const Port& port, const std::string& endpoint);

    Session session;
    NvmeClient client;
};

/// A little-endian number of at most eight bytes.
uint64_t little_endian_at(std::span<const uint8_t> bytes, size_t at, size_t size);

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// The PCIe VDM binding: one request record per call, handed to the platform (DSP0238).
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstring>

namespace {

/// PltMCTP_WriteRead()'s result for success.
constexpr int kPlatformSuccess = 1;

bool fits_record(int32_t length) {
    return length >= 0 && length <= PLT_PCIE_MESSAGE_SIZE;
}

void fill_addressing(plt_pcie_request& request, const mctp_section& section) {
    request.dest_eid = section.binding_eids[1];
    request.bus = section.pcie_bdf[0];
    request.device = section.pcie_bdf[1];
    request.function = section.pcie_bdf[2];
    request.routing = static_cast<uint8_t>(section.route);
    request.tag = section.pcie_tag;
    request.src_eid = section.binding_eids[0];
    request.param = section.pcie_param;
    request.session = section.pcie_session;
}

void take_addressing(mctp_section& section, const plt_pcie_request& request) {
    section.binding_eids[0] = request.src_eid;
    section.binding_eids[1] = static_cast<uint8_t>(request.dest_eid);
    section.pcie_tag = request.tag;
    section.pcie_bdf[0] = static_cast<uint8_t>(request.bus);
    section.pcie_bdf[1] = static_cast<uint8_t>(request.device);
    section.pcie_bdf[2] = static_cast<uint8_t>(request.function);
}

/// Runs the request; a received length that the record cannot hold is a failure.
bool run(plt_pcie_request& request) {
    return PltMCTP_WriteRead(&request) == kPlatformSuccess &&
           request.length <= PLT_PCIE_MESSAGE_SIZE;
}

int32_t pcie_write(mctp_section* section, int32_t length, uint8_t* message) {
    // A write never fails here; the missing answer shows it. What no record holds is not sent.
    if (!fits_record(length)) {
        return 0;
    }
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE;
    std::memcpy(request.message, message, static_cast<size_t>(length));
    request.length = static_cast<uint32_t>(length);
    fill_addressing(request, *section);
    PltMCTP_WriteRead(&request);
    return 0;
}

/// The caller's length is no bound: the buffer must hold PLT_PCIE_MESSAGE_SIZE bytes.
int32_t pcie_read(mctp_section* section, int32_t length, uint8_t* buffer) {
    (void)length;
    plt_pcie_request request{};
    request.operation = PLT_PCIE_READ;
    request.message[0] = buffer[0];
    fill_addressing(request, *section);
    if (!run(request)) {
        return -1;
    }
    std::memcpy(buffer, request.message, request.length);
    take_addressing(*section, request);
    return static_cast<int32_t>(request.length);
}

int32_t pcie_transfer(mctp_section* section, int32_t request_length, int32_t response_length,
                      const uint8_t* message, uint8_t* response) {
    if (!fits_record(request_length) || response_length < 0) {
        return -1;
    }
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE_READ;
    std::memcpy(request.message, message, static_cast<size_t>(request_length));
    request.length = static_cast<uint32_t>(request_length);
    fill_addressing(request, *section);
    if (!run(request)) {
        return -1;
    }
    const int32_t stored = std::min(response_length, static_cast<int32_t>(request.length));
    std::memcpy(response, request.message, static_cast<size_t>(stored));
    take_addressing(*section, request);
    return stored;
}

}  // namespace

constexpr mctp_binding pcie_mctp_binding{pcie_write, pcie_read, pcie_transfer};

// SPDX-License-Identifier: Apache-2.0
// The PCIe VDM binding: one request record per call, handed to the platform (DSP0238).
#include "transport/pcie_binding.h"

#include <algorithm>
#include <cstring>

#include "common/error.h"

using namespace sideband;

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

int32_t pcie_write(mctp_section* section, int32_t length, uint8_t* message) {
    // A write never fails here; the missing answer shows it. What no record holds is not sent.
    if (!fits_record(length)) {
        return 0;
    }
    plt_pcie_request request{};
    std::memcpy(request.message, message, static_cast<size_t>(length));
    request.length = static_cast<uint32_t>(length);
    write_record(*section, request);
    return 0;
}

/// The caller's length is no bound: the buffer must hold PLT_PCIE_MESSAGE_SIZE bytes.
int32_t pcie_read(mctp_section* section, int32_t length, uint8_t* buffer) {
    (void)length;
    plt_pcie_request request{};
    request.message[0] = buffer[0];
    const int32_t received = read_record(*section, PLT_PCIE_READ, request);
    if (received > 0) {
        std::memcpy(buffer, request.message, static_cast<size_t>(received));
    }
    return received;
}

int32_t pcie_transfer(mctp_section* section, int32_t request_length, int32_t response_length,
                      const uint8_t* message, uint8_t* response) {
    if (!fits_record(request_length) || response_length < 0) {
        return fail(section->last_error, SIDEBAND_CAUSE_ARGUMENT);
    }
    plt_pcie_request request{};
    std::memcpy(request.message, message, static_cast<size_t>(request_length));
    request.length = static_cast<uint32_t>(request_length);
    const int32_t stored =
        std::min(response_length, read_record(*section, PLT_PCIE_WRITE_READ, request));
    if (stored > 0) {
        std::memcpy(response, request.message, static_cast<size_t>(stored));
    }
    return stored;
}

}  // namespace

void sideband::write_record(const mctp_section& section, plt_pcie_request& record) {
    record.operation = PLT_PCIE_WRITE;
    fill_addressing(record, section);
    PltMCTP_WriteRead(&record);
}

int32_t sideband::read_record(mctp_section& section, uint32_t operation, plt_pcie_request& record) {
    record.operation = operation;
    fill_addressing(record, section);
    const int result = PltMCTP_WriteRead(&record);
    if (result != kPlatformSuccess) {
        return fail_by_platform(section.last_error, result, SIDEBAND_CAUSE_NO_ANSWER);
    }
    // A received length that the record cannot hold is a failure.
    if (record.length > PLT_PCIE_MESSAGE_SIZE) {
        return fail(section.last_error, SIDEBAND_CAUSE_MALFORMED);
    }
    take_addressing(section, record);
    return static_cast<int32_t>(record.length);
}

constexpr mctp_binding pcie_mctp_binding{pcie_write, pcie_read, pcie_transfer};

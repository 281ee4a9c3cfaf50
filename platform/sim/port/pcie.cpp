// SPDX-License-Identifier: Apache-2.0
// Platform interface: MCTP messages over PCIe VDM.
#include <sideband/platform.h>

#include <algorithm>
#include <cerrno>

#include "sim/board/in_use.h"

namespace {

constexpr int kSuccess = 1;
constexpr int kFailure = 0;
constexpr uint64_t kDefaultAnswerMs = 1000;

/// What the record asks to be sent; nothing for a record that makes no sense.
std::optional<sim::PcieMessage> outgoing_of(const plt_pcie_request& request) {
    const bool addressable = request.bus <= 0xFF && request.device <= 0x1F &&
                             request.function <= 7 && request.dest_eid <= 0xFF;
    if (!addressable || request.length < 1 || request.length > sizeof request.message) {
        return std::nullopt;
    }
    sim::PcieMessage out;
    if (request.routing == PLT_PCIE_ROUTE_BY_ID) {
        out.bdf = {static_cast<uint8_t>(request.bus), static_cast<uint8_t>(request.device),
                   static_cast<uint8_t>(request.function)};
    } else if (request.routing == PLT_PCIE_ROUTE_TO_ROOT_COMPLEX) {
        out.bdf = sim::PcieBus::kRootComplex;
    } else {
        return std::nullopt;
    }
    out.message.type = request.message[0];
    out.message.body.assign(request.message + 1, request.message + request.length);
    out.message.source_eid = request.src_eid;
    out.message.destination_eid = static_cast<uint8_t>(request.dest_eid);
    out.message.tag = request.tag;
    return out;
}

/// Puts a received message into the record. @return false if it has no room for it
bool store(const sim::PcieMessage& received, plt_pcie_request& request) {
    const sim::Bytes& body = received.message.body;
    if (body.size() >= sizeof request.message) {
        return false;
    }
    request.message[0] = received.message.type;
    std::ranges::copy(body, request.message + 1);
    request.length = static_cast<uint32_t>(body.size() + 1);
    request.dest_eid = received.message.destination_eid;
    request.src_eid = received.message.source_eid;
    request.bus = received.bdf[0];
    request.device = received.bdf[1];
    request.function = received.bdf[2];
    request.tag = received.message.tag;
    return true;
}

int transact(sim::PcieBus& pcie, plt_pcie_request& request) {
    const uint64_t wait_ms =
        (request.param & 0xFFFF) != 0 ? request.param & 0xFFFF : kDefaultAnswerMs;
    std::optional<sim::PcieMessage> received;
    if (request.operation == PLT_PCIE_READ) {
        received = pcie.read(wait_ms * sim::kNsPerMs);
        return received && store(*received, request) ? kSuccess : kFailure;
    }
    std::optional<sim::PcieMessage> outgoing = outgoing_of(request);
    if (!outgoing) {
        return kFailure;
    }
    if (request.operation == PLT_PCIE_WRITE) {
        pcie.write(std::move(*outgoing));
        return kSuccess;
    }
    if (request.operation != PLT_PCIE_WRITE_READ) {
        return kFailure;
    }
    received = pcie.exchange(std::move(*outgoing), wait_ms * sim::kNsPerMs);
    return received && store(*received, request) ? kSuccess : kFailure;
}

}  // namespace

int PltMCTP_WriteRead(plt_pcie_request* request) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || request == nullptr) {
        return kFailure;
    }
    // Without a session the board's only one is meant.
    if (request->session != nullptr && request->session != &board->pcie) {
        return kFailure;
    }
    std::lock_guard guard(board->mutex);
    return board->pcie.devices().empty() ? -ENODEV : transact(board->pcie, *request);
}

// The driver is there on every board, with or without devices behind it.
int libmctp_pcie_open(plt_pcie_session* session) {
    sim::BoardState* board = sim::in_use();
    if (session == nullptr) {
        return -EINVAL;
    }
    session->handle = nullptr;
    if (board == nullptr) {
        return -ENODEV;
    }
    std::lock_guard guard(board->mutex);
    if (board->pcie_open_fails) {
        ++board->pcie_sessions.refused;
        return -EIO;
    }
    session->handle = &board->pcie;
    ++board->pcie_sessions.opened;
    ++board->pcie_sessions.open;
    return 0;
}

void libmctp_pcie_close(plt_pcie_session* session) {
    if (session == nullptr) {
        return;
    }
    sim::BoardState* board = sim::in_use();
    if (board != nullptr) {
        std::lock_guard guard(board->mutex);
        if (session->handle == &board->pcie && board->pcie_sessions.open > 0) {
            --board->pcie_sessions.open;
        } else {
            ++board->pcie_sessions.stray_closes;
        }
    }
    session->handle = nullptr;
}

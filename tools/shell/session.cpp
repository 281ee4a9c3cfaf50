// SPDX-License-Identifier: Apache-2.0
// A conversation with one endpoint through the library, with the device's own codes kept for
// errors.
#include "tools/shell/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include "tools/shell/codes.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"
#include "tools/shell/wire_watch.h"

namespace tool {
namespace {

constexpr uint8_t kSetEndpointId = 0x01;
constexpr uint8_t kGetMessageTypeSupport = 0x05;
constexpr uint8_t kLastRoutingHandle = 0xFF;
/// Entry handles are 8-bit: a table that needs more reads than this goes round in circles.
constexpr int kRoutingReadsMax = 256;

/// The entries of one answer; an entry that does not fit the answer ends them.
void append_entries(std::span<const uint8_t> answer, std::vector<RoutingEntry>& entries) {
    constexpr size_t kFirstEntry = 5;
    constexpr size_t kFixedPart = 6;
    if (answer.size() < kFirstEntry) {
        return;
    }
    size_t at = kFirstEntry;
    for (int left = answer[4]; left > 0 && at + kFixedPart <= answer.size(); --left) {
        const std::span<const uint8_t> raw = answer.subspan(at);
        const size_t address_size = raw[5];
        if (kFixedPart + address_size > raw.size()) {
            return;
        }
        RoutingEntry entry{.eid_range_size = raw[0],
                           .starting_eid = raw[1],
                           .entry_type = static_cast<uint8_t>(raw[2] >> 6),
                           .port = static_cast<uint8_t>(raw[2] & 0x1F),
                           .dynamic_entry = (raw[2] & 0x20) != 0,
                           .binding_type = raw[3],
                           .media_type = raw[4],
                           .address = {}};
        entry.address.assign(raw.begin() + kFixedPart,
                             raw.begin() + static_cast<ptrdiff_t>(kFixedPart + address_size));
        entries.push_back(std::move(entry));
        at += kFixedPart + address_size;
    }
}

}  // namespace

std::string code_text(const DeviceCode& code) {
    const uint16_t reason = code.reason.value_or(0);
    switch (code.kind) {
        case DeviceCode::Kind::kNcsi:
            return fmt::format("response code 0x{:04x} ({}), reason code 0x{:04x} ({})", code.code,
                               code.name, reason, code.reason_name);
        case DeviceCode::Kind::kNvmeMi:
            return fmt::format(
                "status 0x{:02x} ({}){}", code.code, code.name,
                code.reason ? fmt::format(" at request byte {}, bit {}", reason >> 8, reason & 7)
                            : "");
        case DeviceCode::Kind::kNvme:
            return fmt::format("status code type {} ({}), status code 0x{:02x} ({})", reason,
                               code.reason_name, code.code, code.name);
        default:
            return fmt::format("completion code 0x{:02x} ({})", code.code, code.name);
    }
}

void before_sending() {
    SignalWatch::check();
    WireWatch::forget();
}

Session::Session(Endpoint endpoint) : endpoint_(std::move(endpoint)) {
    fill_context();
}

Session::~Session() {
    if (pcie_.handle != nullptr) {
        libmctp_pcie_close(&pcie_);
    }
}

void Session::fill_context() {
    mctp_ctx& mctp = link_.mctp;
    plt_parameters parameters{};
    if (GlobalParaInit(&parameters) != 0) {
        mctp.src_eid = parameters.bmc_eid;
    }
    mctp.strict = strict_;
    mctp.binding_kind = endpoint_.binding_kind;
    mctp.bus = endpoint_.bus;
    mctp.slave_addr = endpoint_.address;
    std::copy(endpoint_.mux.begin(), endpoint_.mux.end(), mctp.mux);
    std::copy(endpoint_.bdf.begin(), endpoint_.bdf.end(), mctp.pcie_bdf);
    mctp.route = endpoint_.route;
    mctp.unit_size = endpoint_.unit_size;
    mctp.i2c_delay_us = endpoint_.i2c_delay_us;
    mctp.pcie_param = endpoint_.pcie_param;
    if (endpoint_.transport == Transport::kMctp) {
        mctp.pcie_param = endpoint_.net;
        mctp.dest_eid = endpoint_.eid;
    }
}

void Session::open_pcie() {
    if (endpoint_.transport == Transport::kPcie && pcie_.handle == nullptr) {
        if (libmctp_pcie_open(&pcie_) != 0) {
            throw Failure(endpoint_.name, "opening the PCIe session", "the platform has none",
                          std::nullopt, cause_word(SIDEBAND_CAUSE_SYSTEM));
        }
        link_.mctp.pcie_session = pcie_.handle;
    }
}

void Session::start_recording() {
    link_.xfer = link_.mctp.xfer;
    link_.mctp.xfer = record;
}

/// Operations first and discovery apart, so that discovery goes through the recorder too.
void Session::install_operations() {
    mctp_ctx& mctp = link_.mctp;
    mctp.skip_discovery = 1;
    if (mctp_init2(&mctp) != 0) {
        throw failure("bringing up the endpoint",
                      mctp.binding_kind == MCTP_BINDING_KIND_SOCKET
                          ? "the library was built without the kernel's MCTP"
                          : fmt::format("unknown binding kind {}", mctp.binding_kind));
    }
    start_recording();
    mctp.skip_discovery = 0;
}

bool Session::is_mpio() const {
    return endpoint_.transport == Transport::kPcie && endpoint_.bdf == std::array<uint8_t, 3>{};
}

/// Does nothing if the MPIO has been brought up already, or the platform wants none.
void Session::bring_up_mpio() {
    mctp_ctx& mpio = link_.mctp;
    _init_amd_mpio_ctx(&mpio);
    start_recording();
    if (init_amd_mpio_if_need(&control()) != 0) {
        throw control_failure("the bring-up of the MPIO");
    }
    eid_assigned_ = link_.last.made;
}

/// The MPIO and bus owners tell their EID themselves: no routing table lists them.
bool Session::find_eid() {
    const bool owns_bus = endpoint_.transport == Transport::kPcie && endpoint_.type == "bus_owner";
    return is_mpio() || owns_bus ? mctp_get_endpoint_id(&control()) >= 0
                                 : mctp_discovery(&control()) == 0;
}

void Session::discover() {
    open_pcie();
    if (endpoint_.transport == Transport::kMctp) {
        install_operations();
        return;
    }
    if (is_mpio()) {
        bring_up_mpio();
    } else {
        if (endpoint_.transport == Transport::kPcie) {
            Endpoint mpio;
            mpio.name = endpoint_.name;
            mpio.transport = Transport::kPcie;
            Session(mpio).bring_up_mpio();
        }
        install_operations();
    }
    if (!find_eid()) {
        if (endpoint_.transport == Transport::kPcie && !link_.last.made) {
            TimeLimit::check(endpoint_.name, "discovery");
            throw failure("discovery", "the MPIO's routing table does not list it",
                          link_.mctp.last_error);
        }
        throw control_failure(link_.last.made ? control_command_name(link_.last.request[1])
                                              : "discovery");
    }
    eid_assigned_ |= link_.last.made && link_.last.request[1] == kSetEndpointId;
}

uint8_t Session::take_eid() {
    open_pcie();
    install_operations();
    // The responder wants the type byte, which the stock receive strips.
    link_.mctp.recv = endpoint_.transport == Transport::kPcie ? mctp_pcie_recv_with_type
                                                              : mctp_smbus_recv_with_type;
    if (get_bmc_by_owner(&control()) != 1) {
        const std::string operation = "taking an EID from the bus owner";
        throw last_answer().empty() ? control_failure(operation)
                                    : failure(operation, "it assigned none");
    }
    install_operations();
    return link_.mctp.src_eid;
}

int32_t Session::record(mctp_ctx* mctp, uint32_t request_length, int32_t response_length,
                        const uint8_t* request, uint8_t* response) {
    static_assert(std::is_standard_layout_v<Link> && offsetof(Link, mctp) == 0);
    Link* link = reinterpret_cast<Link*>(mctp);
    if (SignalWatch::signal() != 0) {
        return -1;
    }
    TimeLimit::put_on(*mctp);
    const int32_t result = link->xfer(mctp, request_length, response_length, request, response);
    Exchange& last = link->last;
    last = {};
    last.made = true;
    last.result = result;
    last.request_length = request_length;
    std::copy_n(request, std::min<size_t>(request_length, last.request.size()),
                last.request.begin());
    if (result > 0) {
        std::copy_n(response, std::min<size_t>(static_cast<size_t>(result), last.response.size()),
                    last.response.begin());
    }
    if (link->observer != nullptr) {
        link->observer->exchanged({request, request_length},
                                  {response, result > 0 ? static_cast<size_t>(result) : 0});
    }
    return result;
}

std::span<const uint8_t> Session::last_answer() const {
    const Exchange& last = link_.last;
    const size_t length = last.made && last.result > 0 ? static_cast<size_t>(last.result) : 0;
    return std::span(last.response).first(std::min(length, last.response.size()));
}

Failure Session::failure(const std::string& operation, const std::string& reason,
                         const sideband_error& error) const {
    return {endpoint_.name, operation, reason, std::nullopt, cause_name(error)};
}

mctp_ctx& Session::control() {
    before_sending();
    TimeLimit::put_on(link_.mctp);
    link_.mctp.msg_type = MCTP_MSG_TYPE_CONTROL;
    link_.last = {};
    return link_.mctp;
}

Failure Session::control_failure(const std::string& operation) const {
    const Exchange& last = link_.last;
    const sideband_error& error = link_.mctp.last_error;
    const std::span<const uint8_t> answer = last_answer();
    if (!last.made) {
        return failure(operation, unsent(error), error);
    }
    if (answer.empty()) {
        return failure(operation, silence(error) + endpoint_.hint, error);
    }
    if (answer.size() < 3) {
        return failure(operation, fmt::format("the answer has {} bytes only", answer.size()),
                       error);
    }
    if (answer[2] != 0) {
        DeviceCode code{answer[2], control_code_name(answer[2])};
        return {endpoint_.name, operation, code_text(code), code, cause_name(error)};
    }
    return failure(operation, unfit(error), error);
}

EndpointId Session::endpoint_id() {
    const std::string operation = "Get Endpoint ID";
    if (mctp_get_endpoint_id(&control()) < 0) {
        throw control_failure(operation);
    }
    const std::span<const uint8_t> answer = last_answer();
    if (answer.size() < 5) {
        throw failure(operation, fmt::format("the answer has {} bytes only", answer.size()));
    }
    return {.eid = answer[3],
            .endpoint_type = static_cast<uint8_t>((answer[4] >> 4) & 3),
            .eid_type = static_cast<uint8_t>(answer[4] & 3)};
}

std::array<uint8_t, 16> Session::uuid() {
    if (mctp_get_endpoint_uuid(&control()) != 0) {
        throw control_failure("Get Endpoint UUID");
    }
    std::array<uint8_t, 16> uuid;
    std::copy_n(link_.mctp.uuid, uuid.size(), uuid.begin());
    return uuid;
}

std::vector<uint8_t> Session::message_types() {
    mctp_ctx& mctp = control();
    const uint8_t instance = mctp.instance_id++ & 0x1F;
    const std::array<uint8_t, 2> request{static_cast<uint8_t>(0x80 | instance),
                                         kGetMessageTypeSupport};
    const std::vector<uint8_t> answer = exchange(MCTP_MSG_TYPE_CONTROL, request);
    const bool ours = answer.size() >= 4 && answer[2] == 0 && answer[1] == kGetMessageTypeSupport &&
                      (answer[0] & 0x1F) == instance && answer.size() >= 4U + answer[3];
    if (!ours) {
        throw control_failure("Get Message Type Support");
    }
    return {answer.begin() + 4, answer.begin() + 4 + answer[3]};
}

bool Session::speaks(uint8_t type) {
    try {
        const std::vector<uint8_t> types = message_types();
        return std::find(types.begin(), types.end(), type) != types.end();
    } catch (const Failure& failure) {
        if (!failure.code()) {
            throw;
        }
        return true;
    }
}

std::vector<RoutingEntry> Session::routes() {
    std::vector<RoutingEntry> entries;
    uint8_t handle = 0;
    for (int reads = 0; reads < kRoutingReadsMax; ++reads) {
        std::array<uint8_t, MCTP_ROUTING_TABLE_RESPONSE_SIZE> table{};
        if (mctp_get_routing_table_entries(&control(), handle, table.data()) != 0) {
            throw control_failure("Get Routing Table Entries");
        }
        append_entries(std::span(table).first(last_answer().size()), entries);
        handle = table[3];
        if (handle == kLastRoutingHandle) {
            return entries;
        }
    }
    throw failure("Get Routing Table Entries", "the table has no end");
}

std::vector<uint8_t> Session::exchange(uint8_t type, std::span<const uint8_t> body) {
    before_sending();
    TimeLimit::put_on(link_.mctp);
    link_.last = {};
    link_.mctp.msg_type = type;
    std::vector<uint8_t> answer(kAnswerRoom);
    const int32_t length = link_.mctp.xfer(&link_.mctp, static_cast<uint32_t>(body.size()),
                                           kAnswerRoom, body.data(), answer.data());
    if (length < 0) {
        throw failure(type == MCTP_MSG_TYPE_CONTROL && body.size() >= 2
                          ? control_command_name(body[1])
                          : fmt::format("the exchange of message type 0x{:02x}", type),
                      silence(link_.mctp.last_error), link_.mctp.last_error);
    }
    answer.resize(static_cast<size_t>(length));
    return answer;
}

pldm_ctx& Session::pldm() {
    before_sending();
    TimeLimit::put_on(link_.mctp);
    if (pldm_.mctp == nullptr) {
        mctp_pldm_register(&link_.mctp, &pldm_);
    }
    link_.mctp.msg_type = MCTP_MSG_TYPE_PLDM;
    link_.last = {};
    return pldm_;
}

mctp_ctx Session::prototype() const {
    mctp_ctx way = link_.mctp;
    way.skip_discovery = 1;
    TimeLimit::put_on(way);
    return way;
}

void Session::check_pldm(int32_t result, const std::string& operation) const {
    if (result != 0) {
        throw pldm_failure(operation);
    }
}

Failure Session::pldm_failure(const std::string& operation) const {
    const Exchange& last = link_.last;
    const sideband_error& error = *pldm_last_error(&pldm_);
    const std::span<const uint8_t> answer = last_answer();
    if (!last.made) {
        return failure(operation, unsent(error), error);
    }
    if (answer.empty()) {
        return failure(operation, silence(error), error);
    }
    if (answer.size() < PLDM_RESPONSE_HEADER_SIZE) {
        return failure(operation, fmt::format("the answer has {} bytes only", answer.size()),
                       error);
    }
    if (answer[3] != PLDM_CC_SUCCESS) {
        const uint8_t type = last.request[1] & 0x3F;
        DeviceCode code{answer[3], pldm_code_name(type, last.request[2], answer[3])};
        return {endpoint_.name, operation, code_text(code), code, cause_name(error)};
    }
    return failure(operation, unfit(error), error);
}

}  // namespace tool

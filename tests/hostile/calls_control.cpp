// SPDX-License-Identifier: Apache-2.0
// The calls of MCTP: control messages, discovery, the bus owner's questions, messages of one's own.
#include <sideband/platform.h>

#include <array>

#include "case.h"
#include "room.h"

namespace hostile {

namespace {

/// A "not ready" answer is asked again twice.
constexpr uint32_t kAttempts = 3;
constexpr uint32_t kRoutingRequests = 255;

int32_t begin_control(Case& at) {
    at.endpoint.msg_type = MCTP_MSG_TYPE_CONTROL;
    return 0;
}

int32_t negative_or_0(int32_t result) {
    return result < 0 ? result : 0;
}

int32_t init(Case& at) {
    mctp_ctx made = at.config;
    made.skip_discovery = 0;
    const int32_t result = at.way == Way::kSocket ? begin_control(at) : mctp_init2(&made);
    at.error = made.last_error;
    return result;
}

int32_t init_with_delay(Case& at) {
    mctp_ctx made = at.config;
    made.skip_discovery = 0;
    made.binding_kind = MCTP_BINDING_KIND_SMBUS;
    const int32_t result = at.way != Way::kSmbus ? 0 : mctp_init2_with_i2c_delay(&made);
    at.error = made.last_error;
    return result;
}

int32_t get_eid(Case& at) {
    begin_control(at);
    const int32_t eid = mctp_get_endpoint_id(&at.endpoint);
    at.expect(eid >= -1 && eid <= 255, "an EID of more than a byte");
    return negative_or_0(eid);
}

int32_t set_eid(Case& at) {
    begin_control(at);
    const auto before = at.endpoint.dest_eid;
    const auto eid = static_cast<uint8_t>(at.random.one_of(4) ? at.random.byte() : before);
    const int32_t result = mctp_set_endpoint_id(&at.endpoint, eid);
    at.expect(at.endpoint.dest_eid == (result == 0 ? eid : before), "dest_eid after Set EID");
    return result;
}

int32_t get_uuid(Case& at) {
    begin_control(at);
    return mctp_get_endpoint_uuid(&at.endpoint);
}

int32_t allocate(Case& at) {
    begin_control(at);
    return mctp_allocate_endpoint_ids(&at.endpoint, at.random.byte() & 3, at.random.byte(),
                                      at.random.byte());
}

int32_t routing_table(Case& at) {
    begin_control(at);
    Room table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    const int32_t result =
        mctp_get_routing_table_entries(&at.endpoint, at.random.byte(), table.data());
    return result;
}

int32_t look_up(Case& at) {
    begin_control(at);
    mctp_ctx target = at.config;
    return get_eid_from_routing_table(&at.endpoint, &target);
}

int32_t prepare(Case& at) {
    begin_control(at);
    return mctp_prepare_for_endpoint_discovery(&at.endpoint);
}

int32_t discover(Case& at) {
    begin_control(at);
    return mctp_endpoint_discovery(&at.endpoint);
}

int32_t assign(Case& at) {
    begin_control(at);
    const int32_t eid = mctp_assign_eid(&at.endpoint);
    at.expect(eid == -1 || (eid >= 1 && eid <= 255), "an EID that is none");
    return negative_or_0(eid);
}

int32_t bring_mpio_up(Case& at) {
    mctp_ctx mpio{};
    mpio.strict = at.config.strict;
    _init_amd_mpio_ctx(&mpio);
    const int32_t result = at.way == Way::kPcie ? init_amd_mpio_if_need(&mpio) : 0;
    at.error = mpio.last_error;
    return result;
}

int32_t ask_mpio(Case& at) {
    mctp_ctx target = at.config;
    const int32_t result = at.way == Way::kPcie ? get_eid_from_mpio(&target) : 0;
    at.error = target.last_error;
    return result;
}

/// A message of the caller's own, and the raw operations.
int32_t exchange(Case& at) {
    const std::array<uint8_t, 4> types{MCTP_MSG_TYPE_CONTROL, MCTP_MSG_TYPE_PLDM,
                                       MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK, 0x7E};
    at.endpoint.msg_type = types[at.random.below(types.size())];
    const std::array<uint8_t, 3> request{0x80, at.random.one_of(2) ? uint8_t{0} : uint8_t{2}, 2};
    Room room(1 + at.random.below(300));
    const int32_t result =
        at.endpoint.xfer(&at.endpoint, request.size(), static_cast<int32_t>(room.size()),
                         request.data(), room.data());
    at.expect(result <= static_cast<int32_t>(room.size()), "more bytes than there is room for");
    at.expect(
        result < 0 || room.untouched_from(static_cast<size_t>(result)) || at.way == Way::kPcie,
        "bytes behind what the result counts");
    at.endpoint.msg_type = MCTP_MSG_TYPE_CONTROL;
    return negative_or_0(result);
}

int32_t receive(Case& at) {
    at.endpoint.msg_type = MCTP_MSG_TYPE_CONTROL;
    Room room(1 + at.random.below(300));
    const int32_t result =
        at.endpoint.recv(&at.endpoint, static_cast<int32_t>(room.size()), room.data());
    at.expect(result <= static_cast<int32_t>(room.size()), "more bytes than there is room for");
    return negative_or_0(result);
}

/// The BMC as an endpoint: an owner that goes on asking keeps the call for ever.
int32_t ask_owner(Case& at) {
    mctp_ctx made = at.config;
    made.skip_discovery = 1;
    if (mctp_init2(&made) != 0) {
        at.error = made.last_error;
        return -1;
    }
    made.msg_type = MCTP_MSG_TYPE_CONTROL;
    made.recv = at.way == Way::kPcie ? mctp_pcie_recv_with_type : mctp_smbus_recv_with_type;
    at.limit(made);
    const int32_t result = get_bmc_by_owner(&made);
    at.expect(result == 0 || result == 1, "neither 0 nor 1");
    at.expect(result == 0 || made.src_eid != 0, "an assignment without an EID");
    at.error = made.last_error;
    return result == 1 ? 0 : -1;
}

constexpr Call kControlCalls[] = {
    {"mctp_init2", 4, 6 + (kRoutingRequests + 2) * kAttempts, init},
    {"mctp_init2_with_i2c_delay", 1, 6, init_with_delay},
    {"mctp_get_endpoint_id", 4, kAttempts, get_eid},
    {"mctp_set_endpoint_id", 4, kAttempts, set_eid},
    {"mctp_get_endpoint_uuid", 4, kAttempts, get_uuid},
    {"mctp_allocate_endpoint_ids", 4, kAttempts, allocate},
    {"mctp_get_routing_table_entries", 4, kAttempts, routing_table},
    {"get_eid_from_routing_table", 4, kRoutingRequests* kAttempts, look_up},
    {"mctp_prepare_for_endpoint_discovery", 2, kAttempts, prepare},
    {"mctp_endpoint_discovery", 2, kAttempts, discover},
    {"mctp_assign_eid", 4, kAttempts, assign},
    {"init_amd_mpio_if_need", 1, 4 * kAttempts, bring_mpio_up},
    {"get_eid_from_mpio", 2, (kRoutingRequests + 1) * kAttempts, ask_mpio},
    {"mctp_ctx.xfer", 8, 1, exchange},
    {"mctp_ctx.recv", 1, 0, receive},
};

/// Each request of an owner has an answer; how many it asks in that time is its own affair.
constexpr Call kOwnerCalls[] = {
    {"get_bmc_by_owner", 1, 10'000'000, ask_owner, kWithDeadline},
};

bool begin(Case& at) {
    at.endpoint = at.config;
    at.endpoint.skip_discovery = 1;
    return mctp_init2(&at.endpoint) == 0;
}

void end(Case& /*at*/) {}

const sideband_error& error_of_control(const Case& at) {
    return at.error.cause != SIDEBAND_CAUSE_NONE ? at.error : at.endpoint.last_error;
}

}  // namespace

// The MPIO answers all control messages, a routing table among them.
const Protocol kControlProtocol{"control", "", kControlCalls, begin, end, error_of_control};
const Protocol kOwnerProtocol{"owner", "bus_owner", kOwnerCalls, begin, end, error_of_control};

}  // namespace hostile

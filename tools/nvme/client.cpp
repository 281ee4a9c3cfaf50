// SPDX-License-Identifier: Apache-2.0
// The client of an NVMe drive: the library's commands, with the status values that the drive and
// its controllers give kept for errors.
#include "tools/nvme/client.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "tools/nvme/codes.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

// Offsets in a response (NVMe-MI, Response Message).
constexpr size_t kResponseStatus = 3;
constexpr size_t kErrorLocation = 4;
constexpr size_t kCompletionDword3 = 15;
/// Bits 6 to 3 of a message's first byte: an admin command.
constexpr uint8_t kMessageTypeBits = 0x78;
constexpr uint8_t kAdminMessage = 2 << 3;

DeviceCode message_code(std::span<const uint8_t> answer) {
    const uint8_t status = answer[kResponseStatus];
    DeviceCode code{
        .code = status, .name = nvmemi_status_name(status), .kind = DeviceCode::Kind::kNvmeMi};
    if (status == NVMEMI_STATUS_INVALID_PARAMETER && answer.size() >= kErrorLocation + 2) {
        // The location has 24 bits; no request is so long that its upper byte of offset counts.
        code.reason = static_cast<uint16_t>(little_endian_at(answer, kErrorLocation, 2));
    }
    return code;
}

Session& discovered(Session& session) {
    session.discover();
    return session;
}

DeviceCode completion_code(uint32_t dword3) {
    const auto type = static_cast<uint8_t>(NVME_COMPLETION_SCT(dword3));
    const auto code = static_cast<uint8_t>(NVME_COMPLETION_SC(dword3));
    return {.code = code,
            .name = nvme_status_name(type, code),
            .reason = type,
            .reason_name = nvme_status_type_name(type),
            .kind = DeviceCode::Kind::kNvme};
}

}  // namespace

NvmeClient::NvmeClient(Session& session) : session_(session) {
    const std::string operation = "the bring-up of NVMe-MI";
    if (!session.speaks(MCTP_MSG_TYPE_NVME_MI)) {
        throw Failure(name(), operation, "the device does not speak NVMe-MI");
    }
    nvmemi_ctx& nvme = link_.nvme;
    const mctp_ctx way = session_.prototype();
    // A pause between request and response is for drives that want the bus free meanwhile.
    const bool slow = way.i2c_delay_us != 0 && way.binding_kind == MCTP_BINDING_KIND_SMBUS;
    if ((slow ? nvmemi_init_for_MARV : nvmemi_init)(&nvme, &way) != 0) {
        const sideband_error error = *nvmemi_last_error(&nvme);
        nvmemi_deinit(&nvme);
        throw Failure(name(), operation, "the endpoint cannot be brought up: " + unsent(error), {},
                      cause_name(error));
    }
    link_.client = this;
    request_ = std::exchange(nvme.mi_request, record);
}

int32_t NvmeClient::record(nvmemi_ctx* nvme, uint32_t request_length, uint32_t response_capacity,
                           uint8_t* request, uint8_t* response) {
    static_assert(std::is_standard_layout_v<Link> && offsetof(Link, nvme) == 0);
    NvmeClient& client = *reinterpret_cast<Link*>(nvme)->client;
    Exchange& last = client.last_;
    last = {};
    const bool stopped = SignalWatch::signal() != 0;
    if (stopped || (client.gate_ && !client.gate_({request, request_length}))) {
        return -1;
    }
    TimeLimit::put_on(*nvme->mctp);
    last.made = true;
    last.kind = request[0];
    last.length = client.request_(nvme, request_length, response_capacity, request, response);
    if (last.length > 0) {
        std::copy_n(response,
                    std::min<size_t>(static_cast<size_t>(last.length), last.response.size()),
                    last.response.begin());
    }
    return last.length;
}

void NvmeClient::call(const std::string& operation, const std::function<int32_t()>& command) {
    before_sending();
    TimeLimit::put_on(*link_.nvme.mctp);
    last_ = {};
    if (command() != 0) {
        throw failure(operation);
    }
}

bool NvmeClient::call_unanswered(const std::string& operation,
                                 const std::function<int32_t()>& command) {
    before_sending();
    TimeLimit::put_on(*link_.nvme.mctp);
    last_ = {};
    const bool failed = command() != 0;
    if (failed && (!last_.made || last_length() != 0)) {
        throw failure(operation);
    }
    return !failed;
}

size_t NvmeClient::last_length() const {
    return last_.made && last_.length > 0 ? static_cast<size_t>(last_.length) : 0;
}

std::span<const uint8_t> NvmeClient::last_response() const {
    return std::span(last_.response).first(std::min(last_length(), last_.response.size()));
}

Failure NvmeClient::failure(const std::string& operation, const std::string& addition) const {
    const std::span<const uint8_t> answer = last_response();
    const sideband_error& error = *nvmemi_last_error(&link_.nvme);
    const auto plain = [&](const std::string& reason) {
        return Failure(name(), operation, reason + addition, std::nullopt, cause_name(error));
    };
    const auto coded = [&](const DeviceCode& code) {
        return Failure(name(), operation, code_text(code) + addition, code, cause_name(error));
    };
    const bool admin = (last_.kind & kMessageTypeBits) == kAdminMessage;
    const bool whole = answer.size() >= NVME_ADMIN_RESPONSE_SIZE;
    if (!last_.made) {
        return plain(unsent(error));
    }
    if (answer.empty()) {
        return plain(silence(error));
    }
    if (answer.size() > kResponseStatus && answer[kResponseStatus] != NVMEMI_STATUS_SUCCESS) {
        return coded(message_code(answer));
    }
    if (answer.size() <= kResponseStatus || (admin && !whole)) {
        return plain(fmt::format("the answer has {} bytes only", last_length()));
    }
    const auto dword3 =
        static_cast<uint32_t>(admin ? little_endian_at(answer, kCompletionDword3, 4) : 0);
    if (NVME_COMPLETION_SC(dword3) != 0) {
        return coded(completion_code(dword3));
    }
    return plain(unfit(error));
}

std::vector<uint8_t> NvmeClient::data_structure(const std::string& operation, uint32_t dword0) {
    std::vector<uint8_t> data(NVMEMI_RESPONSE_MAX);
    uint16_t length = 0;
    call(operation, [&] {
        return nvmemi_read_nvmemi_data_structure(&link_.nvme, &dword0, data.data(),
                                                 static_cast<uint32_t>(data.size()), &length);
    });
    data.resize(length);
    return data;
}

std::vector<uint16_t> NvmeClient::controllers() {
    const std::string operation = "reading the controller list";
    const std::vector<uint8_t> list =
        data_structure(operation, NVMEMI_DS(NVMEMI_DTYP_CONTROLLER_LIST, 0, 0));
    const size_t count = list.size() >= 2 ? little_endian_at(list, 0, 2) : 0;
    if (list.size() < 2 + 2 * count) {
        throw Failure(name(), operation,
                      fmt::format("{} bytes do not hold {} controllers", list.size(), count));
    }
    std::vector<uint16_t> ids;
    for (size_t i = 0; i < count; ++i) {
        ids.push_back(static_cast<uint16_t>(little_endian_at(list, 2 + 2 * i, 2)));
    }
    return ids;
}

uint16_t NvmeClient::choose(std::optional<unsigned> controller) {
    if (controller) {
        return static_cast<uint16_t>(*controller);
    }
    const std::vector<uint16_t> ids = controllers();
    if (ids.empty()) {
        throw Failure(ExitStatus::kFailed, name() + ": the drive lists no controller");
    }
    return ids.front();
}

std::vector<uint8_t> NvmeClient::identify(uint16_t controller, uint32_t dword10, uint32_t nsid) {
    const std::string operation = fmt::format("Identify (CNS 0x{:02x})", dword10 & 0xFF);
    std::vector<uint8_t> data(NVME_ADMIN_DATA_MAX);
    nvme_admin_req request{};
    request.ctx = &link_.nvme;
    request.cntlid = controller;
    request.nsid = nsid;
    request.cdw10 = dword10;
    uint32_t received = 0;
    call(operation,
         [&] { return nvme_identify(&request, NVME_ADMIN_DATA_MAX, 0, data.data(), &received); });
    if (received != data.size()) {
        throw Failure(name(), operation, fmt::format("{} of {} bytes came", received, data.size()));
    }
    return data;
}

std::vector<uint8_t> NvmeClient::log_page(uint16_t controller, uint8_t page, uint32_t length) {
    constexpr uint32_t kWholeDrive = 0xFFFFFFFF;
    const std::string operation = fmt::format("Get Log Page (0x{:02x})", page);
    const uint32_t dwords = length / 4 - 1;
    std::vector<uint8_t> data(length);
    for (uint32_t at = 0; at < length; at += NVME_ADMIN_DATA_MAX) {
        const uint32_t wanted = std::min<uint32_t>(length - at, NVME_ADMIN_DATA_MAX);
        nvme_admin_req request{};
        request.ctx = &link_.nvme;
        request.nsid = kWholeDrive;
        request.dofst = at;
        request.cdw10 = (dwords & 0xFFFF) << 16 | page;
        request.cdw11 = dwords >> 16;
        uint32_t received = 0;
        call(operation, [&] {
            return nvme_get_log_page(&request, controller, wanted, 0, data.data() + at, &received);
        });
        if (received != wanted) {
            throw Failure(name(), operation, fmt::format("{} of {} bytes came", received, wanted));
        }
    }
    return data;
}

FoundDrive::FoundDrive(const Port& port, const std::string& endpoint)
    : session(find_endpoint(port, endpoint)), client(discovered(session)) {}

uint64_t little_endian_at(std::span<const uint8_t> bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = value << 8 | bytes[at + i - 1];
    }
    return value;
}

}  // namespace tool

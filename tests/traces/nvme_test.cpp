// SPDX-License-Identifier: Apache-2.0
// Recorded NVMe-MI messages: each recorded request with its integrity check, through the context's
// own operation; then the library's command, if it sends the same one.
//
// Most records hold the request alone. The device knows no other, so that an answer means that it
// was sent as recorded; the answer is put together here. One record holds a response alone, which
// answers the request that the library sends.
#include <gtest/gtest.h>
#include <sideband/nvme_mi.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "support/numbers.h"
#include "traces/record.h"
#include "traces/replay.h"

namespace {

using test::Bytes;
using test::expect_number;
using test::hex;
using test::le32;
using test::le32_at;
using test::quietly;
using test::Record;
using test::Replay;
using tool::Json;
using test::operator+;

constexpr uint8_t kMessageType = 0x84;
constexpr size_t kCheckSize = 4;

/// A body with the integrity check behind it.
Bytes checked(const Bytes& body) {
    return body + le32(test::crc32c(Bytes{kMessageType} + body));
}

/// A successful response: to an admin command with its completion, to another one without.
Bytes success(bool admin, const Bytes& data = {}) {
    return checked(hex(admin ? "90 00 00 00 00 00 00" : "88 00 00 00 00 00 00") +
                   Bytes(admin ? 12 : 0) + data);
}

bool is_admin(const Record& record) {
    return record.command.starts_with("Admin: ");
}

/// What the record says that the request's bytes mean.
void expect_reading(const Json& says, const Bytes& request) {
    const Bytes body(request.begin(), request.end() - kCheckSize);
    expect_number(says, "ror", request.at(0) >> 7);
    expect_number(says, "nmimt", request.at(0) >> 3 & 0x0F);
    expect_number(says, "opcode", request.at(3));
    EXPECT_EQ(says.at("mic"), "good");
    EXPECT_EQ(request, checked(body));
    if (says.contains("nmd0")) {
        expect_number(says, "nmd0", le32_at(request, 7));
        expect_number(says, "nmd1", le32_at(request, 11));
    }
    if (says.contains("sqe_dw1")) {
        expect_number(says, "cflgs", request.at(4));
        expect_number(says, "controller_id", request.at(5) | unsigned{request.at(6)} << 8);
        expect_number(says, "sqe_dw1", le32_at(request, 7));
        expect_number(says, "data_offset", le32_at(request, 27));
        expect_number(says, "data_length", le32_at(request, 31));
        expect_number(says, "sqe_dw10", le32_at(request, 43));
        expect_number(says, "sqe_dw11", le32_at(request, 47));
        expect_number(says, "request_data_bytes", static_cast<unsigned>(body.size() - 67));
    }
}

/// The recorded request, its integrity check computed anew, and what comes back.
void exchange_as_recorded(const Record& record) {
    const Bytes response = record.response.empty() ? success(is_admin(record)) : record.response;
    const Replay replay(kMessageType, {{record.request, response}});
    mctp_ctx ctx = replay.endpoint();
    test::Guarded room(response.size() + 8, 0xEE);
    const auto length = static_cast<uint32_t>(record.request.size() - kCheckSize);
    EXPECT_EQ(quietly([&] {
                  return ctx.xfer(&ctx, length, static_cast<int32_t>(room.size()),
                                  record.request.data(), room.data());
              }),
              static_cast<int32_t>(response.size()));
    EXPECT_EQ(room.head(response.size()), response);
    EXPECT_TRUE(room.untouched_from(response.size()));
    EXPECT_TRUE(room.intact());
    EXPECT_TRUE(replay.locks_in_order());
    expect_reading(record.request_says, record.request);
}

/// A drive that answers one request, and the library's context of it.
struct Drive {
    Drive(const Bytes& request, const Bytes& response)
        : replay(kMessageType, {{request, response}}) {
        const mctp_ctx config = replay.endpoint();
        EXPECT_EQ(nvmemi_init(&ctx, &config), 0);
    }
    ~Drive() {
        EXPECT_EQ(nvmemi_deinit(&ctx), 0);
        EXPECT_TRUE(replay.locks_in_order());
    }
    Drive(const Drive&) = delete;
    Drive& operator=(const Drive&) = delete;

    Replay replay;
    nvmemi_ctx ctx{};
};

// ---- Management commands ----

void health_status_poll(const Record& record) {
    Drive drive(record.request, success(false, hex("38 ff 2a 07 34 12 00 00")));
    const uint32_t nmd1 = record.request_says.at("nmd1").get<uint32_t>();
    nvme_subsystem_health health{};
    EXPECT_EQ(quietly([&] {
                  return nvmemi_nvm_subsystem_health_status_poll(&drive.ctx, &nmd1, &health);
              }),
              0);
    EXPECT_EQ(health.nss, 0x38);
    EXPECT_EQ(health.smart_warnings, 0xFF);
    EXPECT_EQ(health.ctemp, 42);
    EXPECT_EQ(health.pdlu, 7);
    EXPECT_EQ(health.ccs, 0x1234);
}

void configuration_set(const Record& record) {
    const uint32_t nmd0 = record.request_says.at("nmd0").get<uint32_t>();
    const uint32_t size = record.request_says.at("nmd1").get<uint32_t>();
    EXPECT_EQ(nmd0 & 0xFF, 3u);  // MCTP transmission unit size
    Drive drive(record.request, record.response.empty() ? success(false) : record.response);
    EXPECT_EQ(quietly([&] {
                  return nvmemi_config_set_mctp_tx_unit_size(
                      &drive.ctx, static_cast<uint8_t>(nmd0 >> 24), static_cast<uint16_t>(size));
              }),
              0);
    if (!record.response.empty()) {
        expect_number(record.response_says, "status", 0);
        expect_number(record.response_says, "ror", 1);
        EXPECT_EQ(record.response_says.at("nmresp"), "000000");
    }
}

void configuration_get(const Record& record) {
    const uint32_t nmd0 = record.request_says.at("nmd0").get<uint32_t>();
    EXPECT_EQ(nmd0 & 0xFF, 3u);
    Drive drive(record.request, checked(hex("88 00 00 00 fa 00 00")));
    uint16_t size = 0;
    EXPECT_EQ(quietly([&] {
                  return nvmemi_config_get_mctp_tx_unit_size(
                      &drive.ctx, static_cast<uint8_t>(nmd0 >> 24), &size);
              }),
              0);
    EXPECT_EQ(size, 250);
}

void read_data_structure(const Record& record) {
    const uint32_t nmd0 = record.request_says.at("nmd0").get<uint32_t>();
    const bool fixed = nmd0 >> 24 < NVMEMI_DTYP_CONTROLLER_LIST;
    const Bytes structure = fixed ? test::counting(32, 0x61) : hex("02 00 05 00 06 00");
    const auto size = static_cast<uint8_t>(structure.size());
    Drive drive(record.request, checked(hex("88 00 00 00") + Bytes{size, 0, 0} + structure));
    test::Guarded room(64, 0xEE);
    uint16_t length = 0;
    EXPECT_EQ(quietly([&] {
                  return nvmemi_read_nvmemi_data_structure(&drive.ctx, &nmd0, room.data(), 64,
                                                           &length);
              }),
              0);
    EXPECT_EQ(length, structure.size());
    EXPECT_EQ(room.head(structure.size()), structure);
    EXPECT_TRUE(room.untouched_from(structure.size()));
}

/// The recorded request is an NVMe admin command by its message type, which VPD Read is not.
void vpd_read(const Record& record) {
    expect_number(record.request_says, "nmimt", 2);
    Drive drive(record.request, success(true));
    uint8_t data[4] = {};
    EXPECT_EQ(quietly([&] { return nvmemi_vpd_read(&drive.ctx, 0, 4, data); }), -1);
}

// ---- Admin commands ----

nvme_admin_req request_of(nvmemi_ctx* ctx, const Json& says) {
    nvme_admin_req req{};
    req.ctx = ctx;
    req.cntlid = says.at("controller_id").get<uint16_t>();
    req.nsid = says.at("sqe_dw1").get<uint32_t>();
    req.dofst = says.at("data_offset").get<uint32_t>();
    req.cdw10 = says.at("sqe_dw10").get<uint32_t>();
    req.cdw11 = says.at("sqe_dw11").get<uint32_t>();
    return req;
}

/// Identify and Get Log Page: the data that were asked for come back.
void read_data(const Record& record) {
    const uint32_t length = record.request_says.at("data_length").get<uint32_t>();
    const Bytes page = test::counting(length, 0x20);
    Drive drive(record.request, success(true, page));
    nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    test::Guarded room(length, 0xEE);
    uint32_t received = 0;
    const bool identify = record.command == "Admin: Identify";
    EXPECT_EQ(quietly([&] {
                  return identify ? nvme_identify(&req, length, 0, room.data(), &received)
                                  : nvme_get_log_page(&req, req.cntlid, length, 0, room.data(),
                                                      &received);
              }),
              0);
    EXPECT_EQ(received, length);
    EXPECT_EQ(room.head(length), page);
    EXPECT_TRUE(room.intact());
}

/// The recorded response: 20 bytes of the controller's data structure, from its serial number on.
void identify_serial_number(const Record& record) {
    constexpr uint32_t kSerialNumber = 4;
    const Json& says = record.response_says;
    const uint32_t length = says.at("data_bytes").get<uint32_t>();
    const Bytes request = hex("10 00 00 06 03 00 00") + Bytes(20) + le32(kSerialNumber) +
                          le32(length) + Bytes(8) + le32(1) + Bytes(20);
    Drive drive(checked(request), checked(record.response));
    nvme_admin_req req{};
    req.ctx = &drive.ctx;
    req.dofst = kSerialNumber;
    req.cdw10 = 1;
    std::string serial(length, '\0');
    uint32_t received = 0;
    EXPECT_EQ(quietly([&] {
                  return nvme_identify(&req, length, 0, reinterpret_cast<uint8_t*>(serial.data()),
                                       &received);
              }),
              0);
    EXPECT_EQ(received, length);
    EXPECT_EQ(serial, says.at("serial_number").get<std::string>());
    expect_number(says, "status", record.response.at(3));
    expect_number(says, "nmimt", record.response.at(0) >> 3 & 0x0F);
}

void identify(const Record& record) {
    record.request.empty() ? identify_serial_number(record) : read_data(record);
}

void namespace_delete(const Record& record) {
    Drive drive(record.request, success(true));
    const nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    EXPECT_EQ(req.cdw10, 1u);
    EXPECT_EQ(nvme_namespace_mgmt_delete(&drive.ctx, req.cntlid, req.nsid), 0);
}

void format_nvm(const Record& record) {
    Drive drive(record.request, success(true));
    const nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    EXPECT_EQ(nvme_format_nvm(&drive.ctx, req.cntlid, req.nsid, &req.cdw10), 0);
}

void sanitize(const Record& record) {
    Drive drive(record.request, success(true));
    const nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    const nvme_sanitize_param param{&drive.ctx, req.cntlid, req.nsid,
                                    NVME_SANITIZE_SANACT(NVME_SANACT_BLOCK_ERASE), req.cdw11};
    EXPECT_EQ(nvme_sanitize_set(&param), 0);
}

void firmware_commit(const Record& record) {
    Drive drive(record.request, success(true));
    const nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    EXPECT_EQ(nvme_fw_image_commit(&drive.ctx, req.cntlid, req.cdw10 & 7, req.cdw10 >> 3 & 7), 0);
}

void firmware_image_download(const Record& record) {
    const Bytes image(record.request.begin() + 67, record.request.end() - kCheckSize);
    std::string path = std::filesystem::temp_directory_path() / "sideband-trace-XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()),
               static_cast<std::streamsize>(image.size()));
    Drive drive(record.request, success(true));
    EXPECT_EQ(
        nvme_fw_image_download(&drive.ctx, 0, path.c_str(), static_cast<uint32_t>(image.size()), 1),
        0);
    std::filesystem::remove(path);
}

/// The recorded request has a controller list, which the library does not send.
void namespace_attachment(const Record& record) {
    Drive drive(record.request, success(true));
    const nvme_admin_req req = request_of(&drive.ctx, record.request_says);
    EXPECT_EQ(nvme_namespace_mgmt_attachment(&drive.ctx, req.cntlid, req.nsid, 0), -1);
    Bytes bare(record.request.begin(), record.request.begin() + 67);
    bare[4] = 0;
    std::fill_n(bare.begin() + 31, 4, uint8_t{0});
    Drive without_list(checked(bare), success(true));
    EXPECT_EQ(nvme_namespace_mgmt_attachment(&without_list.ctx, req.cntlid, req.nsid, 0), 0);
}

using Command = void (*)(const Record&);
const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> kAll = {
        {"NVM Subsystem Health Status Poll", health_status_poll},
        {"Configuration Set", configuration_set},
        {"Configuration Get", configuration_get},
        {"Read NVMe-MI Data Structure", read_data_structure},
        {"VPD Read", vpd_read},
        {"Admin: Identify", identify},
        {"Admin: Get Log Page", read_data},
        {"Admin: Namespace Management", namespace_delete},
        {"Admin: Namespace Attachment", namespace_attachment},
        {"Admin: Format NVM", format_nvm},
        {"Admin: Sanitize", sanitize},
        {"Admin: Firmware Commit", firmware_commit},
        {"Admin: Firmware Image Download", firmware_image_download},
    };
    return kAll;
}

/// @return whether anything was compared
bool exercise(const Record& record) {
    if (!record.request.empty()) {
        exchange_as_recorded(record);
    }
    const auto command = commands().find(record.command);
    if (command == commands().end()) {
        return false;
    }
    command->second(record);
    return true;
}

class NvmeTrace : public testing::TestWithParam<Record> {};
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(NvmeTrace);

TEST_P(NvmeTrace, IsSentAsRecordedAndAnswered) {
    EXPECT_TRUE(exercise(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Recorded, NvmeTrace, testing::ValuesIn(test::records_of("NVMe-MI")),
                         test::test_name);

TEST(NvmeTraces, NoRecordIsLeftOut) {
    if (!test::have_records()) {
        GTEST_SKIP() << test::absence();
    }
    test::Counts exercised;
    for (const Record& record : test::records_of("NVMe-MI")) {
        exercised[record.command] += exercise(record) ? 1 : 0;
    }
    test::expect_all_exercised("NVMe-MI", exercised,
                               {{"Admin: Firmware Commit", 2},
                                {"Admin: Firmware Image Download", 1},
                                {"Admin: Format NVM", 1},
                                {"Admin: Get Log Page", 3},
                                {"Admin: Identify", 5},
                                {"Admin: Namespace Attachment", 1},
                                {"Admin: Namespace Management", 1},
                                {"Admin: Sanitize", 1},
                                {"Configuration Get", 1},
                                {"Configuration Set", 2},
                                {"NVM Subsystem Health Status Poll", 2},
                                {"Read NVMe-MI Data Structure", 3},
                                {"VPD Read", 1}});
}

}  // namespace

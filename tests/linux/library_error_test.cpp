// SPDX-License-Identifier: Apache-2.0
// Why a call of the library failed, as its context remembers it: each cause as a Linux machine
// makes it, on an I2C bus, through PCIe operations, over the kernel's sockets.
#include <sideband/mctp.h>
#include <sideband/ncsi.h>
#include <sideband/nvme_mi.h>
#include <sideband/output.h>
#include <sideband/pldm.h>
#include <sideband/pldm_fw_update.h>
#include <sideband/pldm_monitor.h>

#include <cerrno>
#include <functional>
#include <tuple>

#include "fake_i2c.h"
#include "fake_kernel.h"
#include "machine_test.h"
#include "tests/support/bytes.h"
#include "tests/support/errors.h"
#include "tests/support/no_memory.h"

namespace {

using machine_test::Bytes;
using machine_test::FakeI2c;
using machine_test::FakeKernel;
using machine_test::I2cWrite;
using machine_test::mctp_address;
using machine_test::MctpMessage;
using test::hex;
using test::said;

constexpr uint8_t kBus = 3;
constexpr uint8_t kGpu = 0x9E;
constexpr uint8_t kEid = 9;
constexpr uint32_t kNet = 2;
constexpr uint32_t kWaitMs = 60;
constexpr uint32_t kLimitMs = 200;
constexpr const char* kAdapter = "/dev/i2c-3";
constexpr const char* kQueue = "/sys/bus/i2c/devices/3-1010/slave-mqueue";

/// A device whose answers have the body that a test gives, on whatever way it is asked.
class LibraryOnLinux : public machine_test::MachineTest {
protected:
    using Answer = std::function<Bytes(const Bytes& request)>;

    void SetUp() override {
        MachineTest::SetUp();
        i2c.add_adapter(kAdapter);
        i2c.add_queue(kQueue);
        i2c.on_write = [this](const I2cWrite& write) { answer_on_bus(write); };
        kernel.on_send = [this](int fd, const MctpMessage& sent) { answer_in_kernel(fd, sent); };
        use({});
        // What it prints of failures is tested elsewhere.
        sideband_set_output(
            SIDEBAND_OUTLET_PRINTED, [](void*, uint32_t, const char*, size_t) {}, nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
        sideband_set_output(0, nullptr, nullptr);
        MachineTest::TearDown();
    }

    /// A board whose locks are in a folder of the test's own, if need be one that cannot be.
    void use(const machine::PowerSource& power, const std::string& run_folder = "") {
        machine::Board described = board();
        described.power = power;
        described.pcie_net = kNet;
        if (!run_folder.empty()) {
            described.run_folder = run_folder;
        }
        machine::use(described);
    }

    static mctp_ctx way(uint8_t kind) {
        mctp_ctx ctx{};
        ctx.binding_kind = kind;
        ctx.bus = kBus;
        ctx.slave_addr = kGpu;
        ctx.src_eid = 8;
        ctx.dest_eid = kEid;
        ctx.skip_discovery = 1;
        ctx.route = kWaitMs;
        ctx.pcie_param = kind == MCTP_BINDING_KIND_PCIE ? kNet << 16 | kWaitMs : kNet;
        return ctx;
    }
    void set_up(uint8_t kind) {
        const mctp_ctx config = way(kind);
        ASSERT_EQ(pldm_terminus_init(&terminus, &config), 0) << said(terminus.last_error);
    }
    /// Asks the terminus for its TID, which fails. @return why
    std::string ask() {
        EXPECT_NE(pldm_get_tid(&terminus), 0);
        return said(*pldm_last_error(&terminus));
    }
    void answer(const char* body) {
        body_for = [bytes = hex(body)](const Bytes&) { return bytes; };
    }

    FakeI2c i2c;
    FakeKernel kernel;
    Answer body_for;           ///< empty: nobody answers
    uint8_t tag_differs = 0;   ///< bits of the answer's tag that are wrong
    uint8_t pec_differs = 0;   ///< bits of its PEC
    size_t cut_to = SIZE_MAX;  ///< bytes of its block that come, with a PEC that is right
    pldm_ctx terminus{};

private:
    /// Behind the last packet of a request, in one.
    void answer_on_bus(const I2cWrite& write) {
        constexpr size_t kFlags = 6;
        constexpr size_t kBody = 8;
        const uint8_t flags = write.bytes.size() > kBody ? write.bytes[kFlags] : uint8_t{0};
        if ((flags & test::kSom) != 0) {
            type_ = write.bytes[kBody - 1];
            asked_.assign(write.bytes.begin() + kBody, write.bytes.end() - 1);
        }
        if (!body_for || (flags & test::kEom) == 0) {
            return;
        }
        const auto answered = static_cast<uint8_t>(test::kSom | test::kEom | (flags & 7));
        Bytes message{type_};
        for (const uint8_t byte : body_for(asked_)) {
            message.push_back(byte);
        }
        const Bytes packet = test::packet(8, kEid, answered ^ tag_differs, message);
        Bytes block = test::block(packet, write.address);
        if (block.size() > cut_to) {
            block.resize(cut_to);
            Bytes checked{0x20};
            checked.insert(checked.end(), block.begin(), block.end());
            block.push_back(test::pec(checked));
        }
        block.back() ^= pec_differs;
        i2c.deliver(block);
    }
    void answer_in_kernel(int fd, const MctpMessage& sent) {
        if (!body_for) {
            return;
        }
        const sockaddr_mctp from =
            mctp_address(sent.address.smctp_network, kEid, sent.address.smctp_type, tag_differs);
        kernel.deliver(fd, {from, body_for(sent.body)});
    }

    uint8_t type_ = 0;
    Bytes asked_;
};

// ---- On an I2C bus ----

class OnI2c : public LibraryOnLinux {
public:
    void refuse_writes(int error) { i2c.write_results.assign(3, -error); }
    void without(const char* path) { i2c.paths[path].open_errno = ENOENT; }
    void without_power() {
        use({.kind = machine::PowerSource::Kind::kFile, .text = folder.at("none"), .on = "1"});
    }
    /// What is no folder cannot have the file of the locks.
    void without_locks() {
        machine_test::write_file(folder.at("file"), "");
        use({}, folder.at("file"));
    }
    void answers(const char* body) { answer(body); }
    void with_wrong_tag() { tag_differs = 2; }
    void with_wrong_pec() { pec_differs = 0x10; }
    void cut(size_t size) { cut_to = size; }
    pldm_ctx& asked() { return terminus; }
};

constexpr const char* kTid = "00 00 02 00 05";

struct Case {
    const char* name;
    std::function<void(OnI2c&)> arrange;
    const char* text;
    uint16_t detail;
};

const Case kCases[] = {
    {"Argument", [](OnI2c& on) { on.asked().mctp->unit_size = 121; }, "wrong argument", 0},
    {"Lock", [](OnI2c& on) { on.without_locks(); }, "lock refused", 0},
    {"NoPower", [](OnI2c& on) { on.without_power(); }, "no power", 0},
    {"NoAdapter", [](OnI2c& on) { on.without(kAdapter); }, "no such bus", ENODEV},
    {"NoSlaveQueue", [](OnI2c& on) { on.without(kQueue); }, "no such bus", ENODEV},
    {"NotAcknowledged", [](OnI2c& on) { on.refuse_writes(ENXIO); }, "not acknowledged", ENXIO},
    {"NotAcknowledgedByAnotherDriver", [](OnI2c& on) { on.refuse_writes(EREMOTEIO); },
     "not acknowledged", EREMOTEIO},
    {"NothingCame", [](OnI2c&) {}, "no answer", ETIMEDOUT},
    {"WrongTag",
     [](OnI2c& on) {
         on.answers(kTid);
         on.with_wrong_tag();
     },
     "only answers to something else came", 0},
    {"WrongPec",
     [](OnI2c& on) {
         on.answers(kTid);
         on.with_wrong_pec();
     },
     "wrong checksum", EBADMSG},
    {"BlockThatIsNoPacket",
     [](OnI2c& on) {
         on.answers(kTid);
         on.cut(3);
     },
     "malformed answer", 0},
    {"AnswerWithoutCode", [](OnI2c& on) { on.answers("00 00 02"); }, "malformed answer", 0},
    {"Code", [](OnI2c& on) { on.answers("00 00 02 05"); },
     "refused by the device: PLDM completion code 0x05", 0},
};

class OnI2cFails : public OnI2c, public ::testing::WithParamInterface<std::tuple<Case, uint8_t>> {};

TEST_P(OnI2cFails, AndSaysWhy) {
    const auto& [one, kind] = GetParam();
    set_up(kind);
    one.arrange(*this);
    EXPECT_EQ(ask(), std::string(one.text) + ", in PLDM command 0x02");
    EXPECT_EQ(terminus.last_error.detail, one.detail);
}

INSTANTIATE_TEST_SUITE_P(
    All, OnI2cFails,
    ::testing::Combine(::testing::ValuesIn(kCases),
                       ::testing::Values(uint8_t{MCTP_BINDING_KIND_SMBUS},
                                         uint8_t{MCTP_BINDING_KIND_SL8_SMBUS})),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) +
               (std::get<1>(info.param) == MCTP_BINDING_KIND_SMBUS ? "" : "Sl8");
    });

TEST_F(OnI2c, ASuccessLeavesNoFailure) {
    set_up(MCTP_BINDING_KIND_SMBUS);
    EXPECT_EQ(ask(), "no answer, in PLDM command 0x02");
    answer(kTid);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(said(*pldm_last_error(&terminus)), "no failure");
}

TEST_F(OnI2c, MemoryThatRanOutIsToldFromAMachineThatIsWrong) {
    const mctp_ctx config = way(MCTP_BINDING_KIND_SMBUS);
    const test::NoMemory none;
    EXPECT_EQ(pldm_terminus_init(&terminus, &config), -112);
    EXPECT_EQ(said(terminus.last_error), "out of memory, in setting up the endpoint");
}

TEST_F(OnI2c, ATimeLimitIsToldFromSilence) {
    set_up(MCTP_BINDING_KIND_SMBUS);
    terminus.mctp->route = 2 * kLimitMs;
    mctp_set_deadline(terminus.mctp, kLimitMs);
    EXPECT_EQ(ask(), "no answer, in PLDM command 0x02") << "the wait that has begun ends first";
    EXPECT_EQ(i2c.sent.size(), 1U);
    EXPECT_EQ(ask(), "deadline passed, in PLDM command 0x02");
    EXPECT_EQ(i2c.sent.size(), 1U) << "nothing is sent behind it";
    answer(kTid);
    mctp_set_deadline(terminus.mctp, 60000);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
}

TEST_F(OnI2c, ADeviceThatSaysThatItDoesNotTakeItsEidIsToldFromACode) {
    set_up(MCTP_BINDING_KIND_SMBUS);
    mctp_ctx& endpoint = *terminus.mctp;
    endpoint.msg_type = MCTP_MSG_TYPE_CONTROL;
    endpoint.strict = MCTP_STRICT_ADDRESSES;
    const auto reply = [this](const char* rest) {
        body_for = [bytes = hex(rest)](const Bytes& request) {
            Bytes body{static_cast<uint8_t>(request[0] & 0x1F), request[1]};
            body.insert(body.end(), bytes.begin(), bytes.end());
            return body;
        };
    };
    reply("00 10 09 00");
    EXPECT_EQ(mctp_set_endpoint_id(&endpoint, 0x20), -1);
    EXPECT_EQ(said(endpoint.last_error), "not done by the device, in MCTP control command 0x01");
    reply("05");
    EXPECT_EQ(mctp_get_endpoint_uuid(&endpoint), -1);
    EXPECT_EQ(said(endpoint.last_error),
              "refused by the device: MCTP completion code 0x05, in MCTP control command 0x03");
}

TEST_F(OnI2c, AFileIsToldFromTheDeviceThatItIsFor) {
    pldm_fw_update_ctx update{};
    EXPECT_EQ(pldm_parse_file(folder.at("none").c_str(), &update), -1);
    EXPECT_EQ(said(*pldm_fw_update_last_error(&update)), "bad file, in the file");
    EXPECT_EQ(pldm_free_ua_resource(&update), 0);
    nvmemi_ctx drive{};
    const mctp_ctx config = way(MCTP_BINDING_KIND_SMBUS);
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    EXPECT_EQ(nvme_fw_image_download(&drive, 1, folder.at("none").c_str(), 4096, 0), -1);
    EXPECT_EQ(said(*nvmemi_last_error(&drive)), "bad file, in the file");
    EXPECT_EQ(nvmemi_deinit(&drive), 0);
    EXPECT_TRUE(i2c.sent.empty());
}

TEST_F(OnI2c, TheStatusOfADriveAndTheCodesOfAControllerAreTheirOwn) {
    const mctp_ctx config = way(MCTP_BINDING_KIND_SMBUS);
    nvmemi_ctx drive{};
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    answer("88 00 00 03 00 00 00");
    const uint32_t nmd1 = 0;
    nvme_subsystem_health health{};
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&drive, &nmd1, &health), 3);
    EXPECT_EQ(said(*nvmemi_last_error(&drive)),
              "refused by the device: NVMe-MI status 0x03, in NVMe-MI command 0x01");
    // Status code 2, type 1, in dword 3 of the completion.
    answer("90 00 00 00 00 00 00  00 00 00 00  00 00 00 00  00 00 04 02");
    const uint32_t cdw10 = 0;
    EXPECT_EQ(nvme_format_nvm(&drive, 1, 1, &cdw10), 0x02040000);
    EXPECT_EQ(said(*nvmemi_last_error(&drive)),
              "refused by the device: NVMe status 0x102, in NVMe command 0x80");
    EXPECT_EQ(nvmemi_deinit(&drive), 0);

    ncsi_ctx controller{};
    mctp_ctx lent = config;
    lent.msg_type = MCTP_MSG_TYPE_NCSI;
    ASSERT_EQ(ncsi_oem_init(&controller, &lent), 0);
    answer("00 01 00 01 8A 00 00 04 00 00 00 00 00 00 00 00  00 03 7F FF  00 00 00 00");
    EXPECT_EQ(ncsi_get_link_status(&controller.channels[0]), -1);
    EXPECT_EQ(said(*ncsi_last_error(&controller)),
              "refused by the device: NC-SI response code 0x03, reason code 0x7fff, in NC-SI "
              "command 0x0a");
    without_locks();
    EXPECT_EQ(ncsi_get_link_status(&controller.channels[0]), -1);
    EXPECT_EQ(said(*ncsi_last_error(&controller)), "lock refused, in NC-SI command 0x0a");
}

// ---- Through PCIe operations ----

class OnPcie : public LibraryOnLinux {};

TEST_F(OnPcie, SilenceIsToldFromAnswersThatAreNone) {
    set_up(MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ask(), "no answer, in PLDM command 0x02");
    answer("00 00 02");
    EXPECT_EQ(ask(), "malformed answer, in PLDM command 0x02");
    answer("00 00 02 05");
    EXPECT_EQ(ask(), "refused by the device: PLDM completion code 0x05, in PLDM command 0x02");
    mctp_set_deadline(terminus.mctp, 1);
    body_for = nullptr;
    ask();
    const size_t sent = kernel.sent.size();
    EXPECT_EQ(ask(), "deadline passed, in PLDM command 0x02");
    EXPECT_EQ(kernel.sent.size(), sent);
}

TEST_F(OnPcie, AnEndpointThatNoRoutingTableListsIsNotFound) {
    mctp_ctx owner = way(MCTP_BINDING_KIND_PCIE);
    ASSERT_EQ(mctp_init2(&owner), 0);
    owner.msg_type = MCTP_MSG_TYPE_CONTROL;
    mctp_ctx target{};
    target.pcie_bdf[0] = 0x47;
    body_for = [](const Bytes& request) {
        return Bytes{static_cast<uint8_t>(request[0] & 0x1F), 0x0A, 0x00, 0xFF, 0x00};
    };
    EXPECT_EQ(get_eid_from_routing_table(&owner, &target), -1);
    EXPECT_EQ(said(target.last_error), "not found, in MCTP control command 0x0a");
}

// ---- Over the kernel's sockets ----

class OnSockets : public LibraryOnLinux {
protected:
    void SetUp() override {
        LibraryOnLinux::SetUp();
        set_up(MCTP_BINDING_KIND_SOCKET);
    }
};

TEST_F(OnSockets, WhatTheKernelSaysIsRemembered) {
    const struct {
        int error;
        const char* text;
    } failures[] = {
        {EHOSTUNREACH, "no such bus"},  {ENETUNREACH, "no such bus"},
        {ENODEV, "no such bus"},        {ENOMEM, "out of memory"},
        {EOPNOTSUPP, "wrong argument"}, {ENOBUFS, "refused by the system"},
    };
    for (const auto& failure : failures) {
        kernel.send_errno = failure.error;
        EXPECT_EQ(ask(), std::string(failure.text) + ", in PLDM command 0x02");
        EXPECT_EQ(terminus.last_error.detail, failure.error);
    }
    kernel.socket_errno[AF_MCTP] = EAFNOSUPPORT;
    EXPECT_EQ(ask(), "refused by the system, in PLDM command 0x02");
    EXPECT_EQ(terminus.last_error.detail, EAFNOSUPPORT);
}

TEST_F(OnSockets, SilenceAnswersToSomethingElseAndCodesAreToldApart) {
    EXPECT_EQ(ask(), "no answer, in PLDM command 0x02");
    answer(kTid);
    tag_differs = MCTP_TAG_OWNER;
    EXPECT_EQ(ask(), "only answers to something else came, in PLDM command 0x02");
    tag_differs = 0;
    answer("00 00 02");
    EXPECT_EQ(ask(), "malformed answer, in PLDM command 0x02");
    answer("00 00 02 05");
    EXPECT_EQ(ask(), "refused by the device: PLDM completion code 0x05, in PLDM command 0x02");
    answer(kTid);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(said(*pldm_last_error(&terminus)), "no failure");
}

TEST_F(OnSockets, AWrongIntegrityCheckIsToldFromAnswersToSomethingElse) {
    nvmemi_ctx drive{};
    const mctp_ctx config = way(MCTP_BINDING_KIND_SOCKET);
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    drive.mctp->route = kWaitMs;
    answer("88 00 00 00 00 00 00 00 00 00 00 00 00 00 00 AA BB CC DD");
    const uint32_t nmd1 = 0;
    nvme_subsystem_health health{};
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&drive, &nmd1, &health), -1);
    EXPECT_EQ(said(*nvmemi_last_error(&drive)), "wrong checksum, in NVMe-MI command 0x01");
    EXPECT_EQ(nvmemi_deinit(&drive), 0);
}

TEST_F(OnSockets, ATimeLimitCutsTheWait) {
    terminus.mctp->route = 50 * kLimitMs;
    mctp_set_deadline(terminus.mctp, kLimitMs);
    EXPECT_EQ(ask(), "deadline passed, in PLDM command 0x02");
    EXPECT_EQ(kernel.sent.size(), 1U);
    EXPECT_EQ(ask(), "deadline passed, in PLDM command 0x02");
    EXPECT_EQ(kernel.sent.size(), 1U);
}

}  // namespace

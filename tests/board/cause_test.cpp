// SPDX-License-Identifier: Apache-2.0
// Why a call failed, as its context remembers it, for what no fault on a bus brings about: the
// BMC's own side, devices that refuse, each kind of code.
#include <sideband/ncsi.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>
#include <sideband/pldm_fw_update.h>

#include <string>

#include "support/errors.h"
#include "support/no_memory.h"
#include "update_fixture.h"

namespace {

using board_test::Binding;
using board_test::board_with;
using board_test::BoardRun;
using board_test::UpdateReport;
using board_test::UpdateRun;
using test::said;
using Kind = sim::PldmFirmwareFault::Kind;

// ---- The BMC's side ----

class BmcsCause : public BoardRun {
protected:
    void SetUp() override {
        open(board_with("", R"({"name": "gpu0", "type": "pldm", "bus": 2, "address": "0x9e",
                                "eid": 20})"));
        mctp = context_of("gpu0");
    }
    std::string ask() {
        EXPECT_NE(pldm_get_tid(&terminus), 0);
        return said(*pldm_last_error(&terminus));
    }

    mctp_ctx mctp{};
    pldm_ctx terminus{};
};

TEST_F(BmcsCause, AnArgumentIsWrong) {
    EXPECT_EQ(pldm_terminus_init(&terminus, nullptr), -112);
    EXPECT_EQ(said(terminus.last_error), "wrong argument");
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0);
    terminus.mctp->unit_size = 121;
    EXPECT_EQ(ask(), "wrong argument, in PLDM command 0x02");
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

TEST_F(BmcsCause, MemoryRanOut) {
    {
        const test::NoMemory none;
        EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -112);
    }
    EXPECT_EQ(said(terminus.last_error), "out of memory, in setting up the endpoint");
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0) << said(terminus.last_error);
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

/// The board records who asks for a lock that its thread has already, and does not grant it.
class RefusedLock : public BmcsCause {
protected:
    void TearDown() override {
        EXPECT_EQ(board->lock_report().held, std::vector<std::string>{});
        EXPECT_EQ(board->lock_report().violations.size(), 1U);
        sim::Board::use(nullptr);
    }
};

TEST_F(RefusedLock, IsToldFromSilence) {
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0);
    lx_mutex& bus = at_p_St_GlobalVar->bus_mutex[mctp.bus];
    ASSERT_EQ(lx_mutex_get(&bus, 0), 0);
    EXPECT_EQ(ask(), "lock refused, in PLDM command 0x02");
    ASSERT_EQ(lx_mutex_put(&bus), 0);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(said(*pldm_last_error(&terminus)), "no failure");
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

// ---- What devices say ----

class DevicesCause : public BoardRun {
protected:
    void open_device(const std::string& keys) {
        open(board_with(
            "", R"({"name": "dev0", "bus": 2, "address": "0x64", "eid": 9, )" + keys + "}"));
        config = context_of("dev0");
    }

    mctp_ctx config{};
};

TEST_F(DevicesCause, AnAnswerThatIsCutIsMalformed) {
    open_device(R"("type": "pldm")");
    pldm_ctx terminus{};
    ASSERT_EQ(pldm_terminus_init(&terminus, &config), 0);
    sim::BoardError error;
    ASSERT_TRUE(board->add_fault("dev0", R"({"kind": "truncate", "bytes": 2})", error));
    EXPECT_NE(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(said(*pldm_last_error(&terminus)), "malformed answer, in PLDM command 0x02");
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

TEST_F(DevicesCause, AnEidThatIsNotTakenIsToldFromACode) {
    // Set Endpoint ID 0x10: "rejected", with success.
    open_device(R"("type": "replay", "exchanges": [
        {"message_type": 0, "request": "80010010", "response": "000100100900"}])");
    config.strict = MCTP_STRICT_ADDRESSES;
    config.dest_eid = 9;
    config.skip_discovery = 1;
    ASSERT_EQ(mctp_init2(&config), 0);
    EXPECT_EQ(mctp_set_endpoint_id(&config, 0x10), -1);
    EXPECT_EQ(said(config.last_error), "not done by the device, in MCTP control command 0x01");
}

TEST_F(DevicesCause, TheCodesOfANetworkControllerAreItsOwn) {
    open_device(R"("type": "ncsi", "controller": {
        "packages": [{"id": 0, "channels": [{"id": 0}]}],
        "faults": [{"kind": "codes", "command": "get_link_status", "response": 1,
                    "reason": 2566}]})");
    ncsi_ctx controller{};
    ASSERT_EQ(ncsi_init(&controller, &config), 0);
    EXPECT_EQ(ncsi_get_link_status(&controller.channels[0]), -1);
    EXPECT_EQ(said(*ncsi_last_error(&controller)),
              "refused by the device: NC-SI response code 0x01, reason code 0x0a06, in NC-SI "
              "command 0x0a");
    EXPECT_EQ(ncsi_deinit(&controller), 0);
}

TEST_F(DevicesCause, TheStatusesOfADriveAreThoseOfItsEndpointAndOfItsController) {
    open_device(R"("type": "nvme", "drive": {"model": "M", "serial": "S",
        "firmware": {"slots": ["FW1", ""]}})");
    nvmemi_ctx drive{};
    ASSERT_EQ(nvmemi_init(&drive, &config), 0);
    uint8_t frequency = 0;
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&drive, 9, &frequency), 4) << "no such port";
    EXPECT_EQ(said(*nvmemi_last_error(&drive)),
              "refused by the device: NVMe-MI status 0x04, in NVMe-MI command 0x04");
    const uint32_t cdw10 = 9;
    EXPECT_NE(nvme_format_nvm(&drive, 0, 1, &cdw10), 0) << "no such format";
    EXPECT_EQ(said(*nvmemi_last_error(&drive)),
              "refused by the device: NVMe status 0x10a, in NVMe command 0x80");
    EXPECT_EQ(nvmemi_deinit(&drive), 0);
}

// ---- Files, updates ----

class UpdatesCause : public UpdateRun {
protected:
    std::string why(const std::vector<sim::PldmFirmwareFault>& faults = {}) {
        device->set_faults(faults);
        return said(update().error);
    }
};

TEST_F(UpdatesCause, IsTheFileTheSystemOrTheResultThatTheDeviceReports) {
    open_card(Binding::kSmbus);
    provide(board_test::card_package());
    EXPECT_EQ(why({{Kind::kResult, 0x17, 1, 1, 3, 0, 0}}),
              "refused by the device: result 0x03, in the device's request 0x17");
    board->set_pcie_open_fails(true);
    EXPECT_EQ(why(), "refused by the system, in setting up the endpoint");
    board->set_pcie_open_fails(false);
    provide_bytes({1, 2, 3});
    EXPECT_EQ(why(), "bad file, in the file");
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// The cards that can be updated: the device tables, and whether a device is ready for an update.
#include <gtest/gtest.h>

#include "pldm/pldm_fixture.h"
#include "pldm/update/card.h"

namespace {

using test::Outcome;
using test::port;
using Texts = std::vector<std::string>;

// ---- The tables ----

void expect_row(const pldm_fw_device& row, uint16_t vendor_id, uint8_t setup_parameter,
                uint32_t pcie_size, pldm_binding_setup pcie, uint32_t smbus_size,
                pldm_binding_setup smbus) {
    EXPECT_EQ(row.vendor_id, vendor_id);
    EXPECT_EQ(row.setup_parameter, setup_parameter);
    EXPECT_EQ(row.reserved, 0);
    EXPECT_EQ(row.pcie_transfer_size, pcie_size);
    EXPECT_EQ(row.pcie_binding, pcie);
    EXPECT_EQ(row.smbus_transfer_size, smbus_size);
    EXPECT_EQ(row.smbus_binding, smbus);
}

TEST(PldmDeviceTable, OfNetworkCardsHasFourRows) {
    ASSERT_EQ(pldm_nic_fw_table_num, 4u);
    expect_row(pldm_nic_fw_table[0], 0x15B3, 100, 128, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS);
    expect_row(pldm_nic_fw_table[1], 0x14E4, 100, 128, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS);
    expect_row(pldm_nic_fw_table[2], 0x8086, 100, 256, MCTP_binding_PCIE, 56, MCTP_binding_SMBUS);
    expect_row(pldm_nic_fw_table[3], 0x10DF, 100, 128, MCTP_binding_PCIE, 0, nullptr);
}

TEST(PldmDeviceTable, OfGraphicsCardsHasOneRow) {
    ASSERT_EQ(pldm_gpu_fw_table_num, 1u);
    expect_row(pldm_gpu_fw_table[0], 0x8086, 206, 0, nullptr, 32, MCTP_binding_SMBUS);
}

TEST(PldmDeviceTable, RowsHaveTwentyBytesWhereAPointerHasFour) {
    constexpr size_t kPointer = sizeof(void*);
    EXPECT_EQ(sizeof(pldm_fw_device), kPointer == 4 ? 20u : 32u);
    EXPECT_EQ(offsetof(pldm_fw_device, vendor_id), 0u);
    EXPECT_EQ(offsetof(pldm_fw_device, setup_parameter), 2u);
    EXPECT_EQ(offsetof(pldm_fw_device, reserved), 3u);
    EXPECT_EQ(offsetof(pldm_fw_device, pcie_transfer_size), 4u);
    EXPECT_EQ(offsetof(pldm_fw_device, pcie_binding), 8u);
    EXPECT_EQ(offsetof(pldm_fw_device, smbus_transfer_size), 8 + kPointer);
    EXPECT_EQ(offsetof(pldm_fw_device, smbus_binding), kPointer == 4 ? 16u : 24u);
    EXPECT_EQ(reinterpret_cast<const char*>(&pldm_nic_fw_table[3]) -
                  reinterpret_cast<const char*>(&pldm_nic_fw_table[0]),
              static_cast<ptrdiff_t>(3 * sizeof(pldm_fw_device)));
}

TEST(PldmDeviceTable, NetworkCardsAreFoundByTheirVendor) {
    EXPECT_EQ(pldm_get_nic_fw_index(0x15B3), 0);
    EXPECT_EQ(pldm_get_nic_fw_index(0x14E4), 1);
    EXPECT_EQ(pldm_get_nic_fw_index(0x8086), 2);
    EXPECT_EQ(pldm_get_nic_fw_index(0x10DF), 3);
    for (const int vendor_id : {0, 0xB315, 0x15B2, 0x15B4, 0x8687, 0xFFFF}) {
        EXPECT_EQ(pldm_get_nic_fw_index(static_cast<uint16_t>(vendor_id)), -1) << vendor_id;
    }
}

TEST(PldmDeviceTable, TheGraphicsCardIsFoundByItsVendor) {
    EXPECT_EQ(pldm_get_gpu_fw_index(0x8086), 0);
    for (const int vendor_id : {0, 0x15B3, 0x14E4, 0x10DF, 0x8680, 0xFFFF}) {
        EXPECT_EQ(pldm_get_gpu_fw_index(static_cast<uint16_t>(vendor_id)), -1) << vendor_id;
    }
}

TEST(PldmDeviceTable, Vendor8086IsInBothTablesWithOtherTransferSizes) {
    const pldm_fw_device& nic = pldm_nic_fw_table[pldm_get_nic_fw_index(0x8086)];
    const pldm_fw_device& gpu = pldm_gpu_fw_table[pldm_get_gpu_fw_index(0x8086)];
    EXPECT_EQ(nic.vendor_id, gpu.vendor_id);
    EXPECT_NE(nic.pcie_transfer_size, gpu.pcie_transfer_size);
    EXPECT_NE(nic.smbus_transfer_size, gpu.smbus_transfer_size);
}

TEST(PldmDeviceTable, TheOtherObjectsStartAsZero) {
    EXPECT_EQ(pldm_force_update_flag, 0);
    EXPECT_EQ(file_buf, nullptr);
}

// ---- Readiness ----

class PldmFwUpdateInit : public test::CardTest {
protected:
    PldmFwUpdateInit() {
        ctx.state = 3;
        config.skip_discovery = 1;
    }

    /// @return the result; what was logged is in port().syslog
    int32_t init() {
        port().syslog.clear();
        return test::run([&] { return pldm_fw_update_init(&ctx, &config); }).result;
    }

    mctp_ctx config = test::smbus_context();
};

TEST_F(PldmFwUpdateInit, BindsTheTerminusOfADeviceThatCanBeUpdated) {
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(ctx.state, 0);
    EXPECT_EQ(ctx.pldm.tid, 5);
    EXPECT_EQ(ctx.pldm.pldm_types[0], 0x21);
    EXPECT_NE(ctx.pldm.mctp, nullptr);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_EQ(asked, (Texts{"80 00 02", "81 00 04"}));
    EXPECT_EQ(port().syslog, Texts{"pldm_get_type, PLDM type support list: 0x21\n"});
}

TEST_F(PldmFwUpdateInit, NullArgumentsAreRefusedWithAMessage) {
    EXPECT_EQ(pldm_fw_update_init(nullptr, &config), -112);
    EXPECT_EQ(pldm_fw_update_init(&ctx, nullptr), -112);
    EXPECT_EQ(port().syslog, (Texts(2, "pldm_fw_update_init, invalid parameters\n")));
    EXPECT_EQ(ctx.state, 3);
    EXPECT_EQ(asked, Texts());
}

TEST_F(PldmFwUpdateInit, ATerminusThatCannotBeBroughtUpLeavesMark51) {
    config.binding_kind = 1;
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x51);
    EXPECT_EQ(ctx.state, 0);
    EXPECT_EQ(port().syslog, (Texts{"pldm_terminus_init, mctp_initial() fail\n",
                                    "pldm_fw_update_init, pldm_terminus_init() fail\n"}));
    EXPECT_EQ(ctx.pldm.mctp, nullptr);
}

TEST_F(PldmFwUpdateInit, WithoutMemoryForTheTerminusItsResultAndMark51) {
    libc.fail_allocation(1);
    EXPECT_EQ(init(), -112);
    EXPECT_EQ(ctx.pldm.completion_code, 0x51);
    EXPECT_EQ(port().syslog.back(), "pldm_fw_update_init, pldm_terminus_init() fail\n");
}

TEST_F(PldmFwUpdateInit, ADeviceThatDoesNotAnswerLeavesMark51) {
    for (const int command : {0x02, 0x04}) {
        answers[{0, command}] = "";
        EXPECT_EQ(init(), -1);
        EXPECT_EQ(ctx.pldm.completion_code, 0x51);
        EXPECT_EQ(port().syslog.back(), "pldm_fw_update_init, pldm_discovery() fail\n");
        EXPECT_NE(ctx.pldm.mctp, nullptr);
        EXPECT_EQ(pldm_terminus_deinit(&ctx.pldm), 0);
        answers[{0, 0x02}] = "00 00 02 00 05";
    }
}

TEST_F(PldmFwUpdateInit, ADeviceThatRefusesLeavesMark51) {
    answers[{0, 0x04}] = "00 00 04 05";
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x51);
}

TEST_F(PldmFwUpdateInit, ADeviceWithoutType5LeavesMark52) {
    for (const char* types : {"00", "df", "1f"}) {
        answers[{0, 0x04}] = std::string("00 00 04 00 ") + types + " 20 20 20 20 20 20 20";
        EXPECT_EQ(init(), -112) << types;
        EXPECT_EQ(ctx.pldm.completion_code, 0x52);
        EXPECT_EQ(port().syslog.back(), "pldm_fw_update_init, not support fw update\n");
        EXPECT_EQ(pldm_terminus_deinit(&ctx.pldm), 0);
    }
}

TEST_F(PldmFwUpdateInit, EachPlatformCallAndAllocationThatFailsEndsItCleanly) {
    EXPECT_EQ(init(), 0);
    const int calls = port().result_calls;
    EXPECT_GT(calls, 0);
    for (int call = 1; call <= calls; call++) {
        pldm_free_ua_resource(&ctx);
        port().result_calls = 0;
        port().fail_call = call;
        const int32_t result = init();
        EXPECT_TRUE(result == 0 || result == -1) << result;
        EXPECT_EQ(ctx.pldm.completion_code, result == 0 ? 0 : 0x51);
        EXPECT_EQ(port().held, Texts());
    }
    port().fail_call = 0;
    const int allocations = libc.allocations();
    pldm_free_ua_resource(&ctx);
    init();
    for (int n = libc.allocations() - allocations; n > 0; n--) {
        pldm_free_ua_resource(&ctx);
        EXPECT_EQ(libc.live_blocks(), 0u);
        libc.fail_allocation(n);
        EXPECT_LT(init(), 0);
        EXPECT_EQ(ctx.pldm.completion_code, 0x51);
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Why an NVMe-MI or NVMe admin command failed, as its context remembers it.
#include <cerrno>
#include <string>

#include "NVMeMI/nvme_fixture.h"
#include "support/errors.h"

namespace {

using test::admin_response;
using test::hex;
using test::MctpAnswer;
using test::port;
using test::said;
using test::status_response;

class NvmeError : public test::NvmeTest {
protected:
    std::string why() const { return said(*nvmemi_last_error(&ctx)); }
    int32_t poll() {
        const uint32_t nmd1 = 0;
        nvme_subsystem_health health{};
        return nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, &health);
    }
    int32_t format() {
        const uint32_t cdw10 = 0;
        return nvme_format_nvm(&ctx, 1, 1, &cdw10);
    }
};

TEST_F(NvmeError, TransportAndSilence) {
    endpoint.on_call = [this] { endpoint.last_error.cause = SIDEBAND_CAUSE_LOCK; };
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "lock refused, in NVMe-MI command 0x01");
    endpoint.on_call = nullptr;
    EXPECT_EQ(format(), -1);
    EXPECT_EQ(why(), "no answer, in NVMe command 0x80");
    endpoint.answers = {MctpAnswer::of({}), MctpAnswer::of({}), MctpAnswer::of({})};
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x01");
}

TEST_F(NvmeError, AnEndpointWithoutOperations) {
    endpoint.xfer = nullptr;
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "wrong argument, in NVMe-MI command 0x01");
    EXPECT_EQ(format(), -1);
    EXPECT_EQ(why(), "wrong argument, in NVMe command 0x80");
    uint8_t data[8] = {};
    nvme_admin_req identify{};
    identify.ctx = &ctx;
    EXPECT_EQ(nvme_identify(&identify, sizeof data, 0, data, nullptr), -1);
    EXPECT_EQ(why(), "wrong argument, in NVMe command 0x06");
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(NvmeError, TheStatusOfTheEndpointAndThatOfTheController) {
    answer({status_response(0x03)});
    EXPECT_EQ(poll(), 3);
    EXPECT_EQ(why(), "refused by the device: NVMe-MI status 0x03, in NVMe-MI command 0x01");
    EXPECT_EQ(ctx.last_error.detail, 0);
    answer({status_response(0x04, hex("05 0D 00"), 0x90)});
    EXPECT_EQ(format(), 4);
    EXPECT_EQ(why(), "refused by the device: NVMe-MI status 0x04, in NVMe command 0x80");
    EXPECT_EQ(ctx.last_error.detail, 0x0D05) << "request byte 13, bit 5";
    answer({admin_response({}, 1u << 25 | 0x0Au << 17)});
    EXPECT_EQ(format(), 0x02140000);
    EXPECT_EQ(why(), "refused by the device: NVMe status 0x10a, in NVMe command 0x80");
    EXPECT_EQ(ctx.last_error.kind, SIDEBAND_CODE_NVME);
}

TEST_F(NvmeError, AnswersThatAreNotWhole) {
    answer({hex("88 00 00")});
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x01");
    answer({hex("88 00 00 00 00")});
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x01");
    answer({hex("90 00 00 00 00 00 00")});
    EXPECT_EQ(format(), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe command 0x80");
    endpoint.strict = MCTP_STRICT_NVME_MI;
    answer({status_response(0, hex("00 00 00"), 0x80)});
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "only answers to something else came, in NVMe-MI command 0x01");
}

TEST_F(NvmeError, AnswersWhoseContentDoesNotFitSayWhichCommandTheyAreTo) {
    uint8_t data[64];
    uint16_t length = 0;
    const uint32_t port_0 = NVMEMI_DS(NVMEMI_DTYP_PORT, 0, 0);
    answer({test::mi_response(hex("1F 00 00"), test::Bytes(31))});
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, &port_0, data, sizeof data, &length), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x00") << "of another size";
    answer({test::mi_response(hex("20 00 00"), test::Bytes(31))});
    EXPECT_EQ(nvmemi_read_nvmemi_data_structure(&ctx, &port_0, data, sizeof data, &length), -1);
    EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x00") << "a byte is missing";
    const uint32_t dword = 0;
    uint8_t count = 0;
    nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX];
    for (const char* reported : {"00 00 03", "00 00 02"}) {  // too many, and more than come
        answer({test::mi_response(hex(reported), test::Bytes(16))});
        EXPECT_EQ(nvmemi_controller_health_status_poll(&ctx, &dword, &dword, &count, entries), -1);
        EXPECT_EQ(why(), "malformed answer, in NVMe-MI command 0x02") << reported;
    }
}

TEST_F(NvmeError, ASuccessClearsItAndAnArgumentIsToldFromSilence) {
    EXPECT_EQ(format(), -1);
    answer({admin_response()});
    EXPECT_EQ(format(), 0);
    EXPECT_EQ(why(), "no failure");
    EXPECT_EQ(nvme_format_nvm(&ctx, 1, 1, nullptr), -1);
    EXPECT_EQ(why(), "wrong argument");
    answer({admin_response()});
    EXPECT_EQ(format(), 0);
    EXPECT_EQ(nvmemi_config_set_smbus_freq(&ctx, 0, 9), -1);
    EXPECT_EQ(why(), "wrong argument");
    uint8_t vpd[4];
    libc.fail_allocation(1);
    EXPECT_EQ(nvmemi_vpd_read(&ctx, 0, 4, vpd), -1);
    EXPECT_EQ(why(), "out of memory");
    libc.fail_allocation(1);
    EXPECT_EQ(nvmemi_vpd_write(&ctx, vpd, 0, 4), -1);
    EXPECT_EQ(why(), "out of memory");
    ctx.mctp = nullptr;
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "wrong argument");
    EXPECT_EQ(said(*nvmemi_last_error(nullptr)), "wrong argument");
}

TEST_F(NvmeError, ADownloadTellsItsFileFromItsDrive) {
    EXPECT_EQ(nvme_fw_image_download(&ctx, 1, "/nv/absent", 4096, 0), -1);
    EXPECT_EQ(why(), "bad file, in the file");
    EXPECT_EQ(nvme_fw_image_download(&ctx, 1, "/nv/absent", 0, 0), -1);
    EXPECT_EQ(why(), "wrong argument, in the file");
    EXPECT_EQ(nvme_fw_image_download(nullptr, 1, nullptr, 4096, 0), -1);
}

TEST_F(NvmeError, WhatFailedInFrontOfTheEndpointIsRemembered) {
    nvmemi_ctx fresh{};
    mctp_ctx config = test::smbus_context();
    EXPECT_EQ(nvmemi_init(&fresh, nullptr), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument");
    libc.fail_allocation(1);
    EXPECT_EQ(nvmemi_init(&fresh, &config), -1);
    EXPECT_EQ(said(fresh.last_error), "out of memory, in setting up the endpoint");
    config.binding_kind = 9;
    EXPECT_EQ(nvmemi_init(&fresh, &config), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument, in setting up the endpoint");
    EXPECT_EQ(nvmemi_init_for_MARV(&fresh, &config), -1);
    EXPECT_EQ(said(fresh.last_error), "wrong argument, in setting up the endpoint");
    EXPECT_EQ(nvmemi_deinit(&fresh), 0);
    EXPECT_EQ(said(fresh.last_error), "wrong argument, in setting up the endpoint");
    config.binding_kind = MCTP_BINDING_KIND_SMBUS;
    EXPECT_EQ(nvmemi_init(&fresh, &config), 0);
    EXPECT_EQ(said(fresh.last_error), "no failure");
    EXPECT_EQ(fresh.last_error.step, SIDEBAND_STEP_NONE);
    EXPECT_EQ(nvmemi_deinit(&fresh), 0);
}

class NvmeSmbusError : public test::NvmeSmbusTest {};

TEST_F(NvmeSmbusError, ADriveThatIsBusyAndThenSilentSaysThatNothingCame) {
    nvme_subsystem_health health{};
    const uint32_t nmd1 = 0;
    const test::Outcome outcome = exchange({status_response(0x01)}, [&] {
        return nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, &health);
    });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(said(*nvmemi_last_error(&ctx)), "no answer, in NVMe-MI command 0x01");
    port().write_results.assign(9, -ENXIO);
    EXPECT_EQ(nvmemi_nvm_subsystem_health_status_poll(&ctx, &nmd1, &health), -1);
    EXPECT_EQ(said(*nvmemi_last_error(&ctx)), "not acknowledged, in NVMe-MI command 0x01");
}

TEST_F(NvmeError, BehindTheTimeLimitADriveThatAsksForMoreTimeIsNotWaitedFor) {
    answer({status_response(0x01)});
    mctp_set_deadline(&endpoint, 1000);
    endpoint.on_call = [this] { libc.later_ms += 2000; };
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(why(), "deadline passed, in NVMe-MI command 0x01");
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_TRUE(libc.sleeps.empty());
    endpoint.on_call = nullptr;
    mctp_set_deadline(&endpoint, 60000);
    answer({status_response(0x01), test::mi_response(test::Bytes(3), test::Bytes(8))});
    EXPECT_EQ(poll(), 0) << "there is time";
}

}  // namespace

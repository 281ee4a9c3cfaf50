// SPDX-License-Identifier: Apache-2.0
// Sanitize: what runs, what it may be asked meanwhile, how it fails (NVMe, Sanitize command).
#include "admin_fixture.h"

namespace {

using namespace sim_test;
using sim::Bytes;

class NvmeSanitize : public NvmeAdmin {
protected:
    std::string sanitize(uint32_t dword10) { return admin({.opcode = 0x84, .dword10 = dword10}); }
    /// Progress, status and command of the log page.
    std::string status() {
        const Bytes page = log(0x81, 512);
        return hex({page.begin(), page.begin() + 8});
    }
};

TEST_F(NvmeSanitize, ProgressIsInItsLogPage) {
    open_drive(R"("sanitize_s": 100, "namespaces": [{"id": 1, "blocks": 8, "used": 3}])");
    EXPECT_EQ(status(), "ff ff 00 00 00 00 00 00");
    EXPECT_EQ(sanitize(2), ended(0));
    EXPECT_EQ(status().substr(3), "00 02 00 02 00 00 00");
    board->advance_us(50'000'000);
    EXPECT_EQ(status().substr(3), "80 02 00 02 00 00 00") << "one half";
    const std::string busy = ended(0x40000000 | 0x1D << 17);
    EXPECT_EQ(sanitize(4), busy);
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), busy);
    EXPECT_EQ(admin({.opcode = 0x10, .dword10 = 0x09}), busy);
    EXPECT_EQ(identify(1).size(), 4096u);
    board->advance_us(50'000'000);
    EXPECT_EQ(status(), "ff ff 01 01 02 00 00 00");
    EXPECT_EQ(drive->namespaces().find(1)->used, 0u);
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(sim::le32(log(0x81, 32), 12), 100u) << "estimate of a block erase";
}

TEST_F(NvmeSanitize, OverwriteCountsItsPasses) {
    open_drive(R"("sanitize_s": 40)");
    EXPECT_EQ(sanitize(0x43), ended(0));
    board->advance_us(21'000'000);
    EXPECT_EQ(status().substr(6, 5), "12 00") << "two of four";
    board->advance_us(20'000'000);
    EXPECT_EQ(status(), "ff ff 21 01 43 00 00 00");
}

TEST_F(NvmeSanitize, FailureHasToBeEnded) {
    open_drive(R"("sanitize_s": 1, "sanitize_fails": true)");
    EXPECT_EQ(sanitize(0x0C), ended(0)) << "unrestricted";
    board->advance_us(1'000'000);
    EXPECT_EQ(status(), "ff ff 03 00 0c 00 00 00");
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), failed(0, 0x1C));
    EXPECT_EQ(sanitize(1), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(sanitize(4), ended(0)) << "restricted";
    board->advance_us(1'000'000);
    EXPECT_EQ(sanitize(1), failed(0, 0x1C));
    EXPECT_EQ(sanitize(0x0C), failed(0, 0x1C));
    drive->settings().sanitize_fails = false;
    EXPECT_EQ(sanitize(4), ended(0));
    board->advance_us(1'000'000);
    EXPECT_EQ(status(), "ff ff 01 01 04 00 00 00");
    EXPECT_EQ(sanitize(0), failed(0, 0x02));
    EXPECT_EQ(sanitize(5), failed(0, 0x02));
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// A simulated NVMe drive through the library: new firmware from the file to the slot, and how the
// drive tells of it.
#include <gtest/gtest.h>
#include <sideband/nvme_mi.h>
#include <sideband/platform.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "fixture.h"
#include "sim/nvme/drive.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

constexpr uint16_t kController = 0;
constexpr uint8_t kIdentifyController = 1;
constexpr uint8_t kFirmwareSlotLog = 3;
constexpr uint8_t kReplaceAndActivate = 1;

/// An image of the simulated drive: magic, revision, and then bytes that no piece repeats.
std::vector<uint8_t> image_of(const std::string& revision, size_t size) {
    std::string head(sim::NvmeFirmware::kMagic);
    head += revision;
    head.resize(16, ' ');
    std::vector<uint8_t> image(head.begin(), head.end());
    image.resize(size);
    uint32_t state = 1;
    for (size_t i = head.size(); i < size; ++i) {
        state = state * 1664525 + 1013904223;
        image[i] = static_cast<uint8_t>(state >> 24);
    }
    return image;
}

class NvmeOnBoard : public BoardRun {
protected:
    ~NvmeOnBoard() override {
        nvmemi_deinit(&ctx);
        std::remove(path.c_str());
    }

    void open_drive(const std::string& device_keys = "", const std::string& drive_keys = "") {
        open(board_with("", R"({"name": "nvme0", "type": "nvme", "bus": 2, "address": "0x3a",
            "eid": 9, )" + device_keys +
                                R"("drive": {"model": "M", "serial": "S", )" + drive_keys +
                                R"("firmware": {"slots": ["FW1", ""]}}})"));
        ASSERT_TRUE(board);
        drive = board->nvme("nvme0");
        ASSERT_NE(drive, nullptr);
        const mctp_ctx config = context_of("nvme0");
        ASSERT_EQ(nvmemi_init(&ctx, &config), 0);
        watched = this;
        own_request = ctx.mi_request;
        ctx.mi_request = watch;
    }

    void write_image(const std::vector<uint8_t>& image) {
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
        ASSERT_TRUE(file.flush());
    }

    /// Notes the update status, as another service would read it meanwhile.
    static int32_t watch(nvmemi_ctx* ctx, uint32_t request_length, uint32_t capacity,
                         uint8_t* request, uint8_t* response) {
        watched->statuses.push_back(at_p_St_GlobalVar->nvme_fw_update_status);
        if (watched->when_asked) {
            watched->when_asked();
        }
        return watched->own_request(ctx, request_length, capacity, request, response);
    }

    /// Text of a field, without what fills it up.
    static std::string text_of(const uint8_t* field, size_t size) {
        std::string text(field, field + size);
        text.erase(text.find_last_not_of(std::string(" \0", 2)) + 1);
        return text;
    }

    std::string identified_revision() {
        constexpr size_t kFirmwareRevision = 64;
        std::vector<uint8_t> data(NVME_ADMIN_DATA_MAX);
        nvme_admin_req request{};
        request.ctx = &ctx;
        request.cntlid = kController;
        request.cdw10 = kIdentifyController;
        uint32_t received = 0;
        test::Capture out(1);
        EXPECT_EQ(nvme_identify(&request, NVME_ADMIN_DATA_MAX, 0, data.data(), &received), 0);
        EXPECT_EQ(received, data.size());
        return text_of(&data[kFirmwareRevision], 8);
    }

    /// Active slot and the revisions of the first two.
    std::string slot_log() {
        constexpr uint32_t kSize = 512;
        constexpr unsigned kDwordsShift = 16;
        std::array<uint8_t, kSize> log{};
        nvme_admin_req request{};
        request.ctx = &ctx;
        request.cdw10 = kFirmwareSlotLog | (kSize / 4 - 1) << kDwordsShift;
        test::Capture out(1);
        EXPECT_EQ(nvme_get_log_page(&request, kController, kSize, 0, log.data(), nullptr), 0);
        return std::to_string(log[0] & 7) + " [" + text_of(&log[8], 8) + "] [" +
               text_of(&log[16], 8) + "]";
    }

    int32_t download(uint32_t chunk_size) {
        statuses.clear();
        return nvme_fw_image_download(&ctx, kController, path.c_str(), chunk_size, 5);
    }

    /// Commits to slot 2 and resets the drive.
    void activate() {
        EXPECT_EQ(nvme_fw_image_commit(&ctx, kController, 2, kReplaceAndActivate), 0);
        EXPECT_EQ(identified_revision(), "FW1") << "not before the reset";
        test::Capture out(1);
        EXPECT_EQ(nvmemi_reset(&ctx), -1) << "nobody answers";
        EXPECT_NE(out.text().find("send reset command; no response as expected"),
                  std::string::npos);
    }

    static inline NvmeOnBoard* watched;
    nvmemi_request_op own_request = nullptr;
    std::vector<uint8_t> statuses;
    std::function<void()> when_asked;
    nvmemi_ctx ctx{};
    sim::NvmeDrive* drive = nullptr;
    std::string path = testing::TempDir() + "sideband-image-" + std::to_string(getpid());
};

TEST_F(NvmeOnBoard, NewFirmwareOf3MebibytesGoesFromTheFileToIdentify) {
    open_drive();
    const std::vector<uint8_t> image = image_of("FW2", 3 << 20);
    write_image(image);
    EXPECT_EQ(identified_revision(), "FW1");
    EXPECT_EQ(slot_log(), "1 [FW1] []");

    ASSERT_EQ(download(4096), 0);
    const sim::ByteView arrived = drive->firmware().downloaded();
    ASSERT_EQ(arrived.size(), image.size());
    EXPECT_TRUE(std::equal(arrived.begin(), arrived.end(), image.begin())) << "byte for byte";
    ASSERT_EQ(statuses.size(), 768u);
    for (size_t i = 1; i < statuses.size(); ++i) {
        ASSERT_EQ(statuses[i], 100 * (i - 1) / 768) << "behind piece " << i - 1;
    }
    EXPECT_EQ(board->task_percent().at(5), 100);
    EXPECT_EQ(at_p_St_GlobalVar->nvme_fw_update_status, 100);

    activate();
    EXPECT_EQ(identified_revision(), "FW2");
    EXPECT_EQ(slot_log(), "2 [FW1] [FW2]");
    ASSERT_NE(drive->firmware().slot(2), nullptr);
    EXPECT_TRUE(drive->firmware().slot(2)->image == sim::Bytes(image.begin(), image.end()));
    EXPECT_EQ(drive->bad_checks(), 0u);
    EXPECT_EQ(drive->malformed(), 0u);
}

TEST_F(NvmeOnBoard, PiecesWhoseLastPacketIsFullArriveAsWell) {
    open_drive();
    // 1 + 67 + 4088 + 4 bytes: 65 packets of 64, the last of them without EOM.
    const std::vector<uint8_t> image = image_of("FW3", 4 * 4088 + 100);
    write_image(image);
    ASSERT_EQ(download(4088), 0);
    const sim::ByteView arrived = drive->firmware().downloaded();
    EXPECT_TRUE(std::equal(arrived.begin(), arrived.end(), image.begin(), image.end()));
    activate();
    EXPECT_EQ(identified_revision(), "FW3");
}

TEST_F(NvmeOnBoard, AnImageThatIsNoneIsRefusedAtTheCommit) {
    open_drive();
    constexpr uint32_t kInvalidImage = 0x07;
    write_image(std::vector<uint8_t>(4096, 0xEE));
    ASSERT_EQ(download(4096), 0);
    const int32_t result = nvme_fw_image_commit(&ctx, kController, 2, kReplaceAndActivate);
    EXPECT_EQ(NVME_COMPLETION_SC(result), kInvalidImage);
    EXPECT_EQ(NVME_COMPLETION_SCT(result), 1u);
    EXPECT_EQ(slot_log(), "1 [FW1] []");
}

TEST_F(NvmeOnBoard, ADriveThatNeedsTimeForEachPieceGetsIt) {
    open_drive();
    drive->settings().more_processing = 1;
    const std::vector<uint8_t> image = image_of("FW4", 20000);
    write_image(image);
    ASSERT_EQ(download(4096), 0);
    const sim::ByteView arrived = drive->firmware().downloaded();
    EXPECT_TRUE(std::equal(arrived.begin(), arrived.end(), image.begin(), image.end()));
}

TEST_F(NvmeOnBoard, AnImageThatIsRewrittenMeanwhileEndsTheDownload) {
    open_drive();
    write_image(image_of("FW6", 20000));
    when_asked = [&] {
        if (statuses.size() == 3) {
            // File times go in steps of a few milliseconds.
            usleep(30000);
            write_image(image_of("FW7", 20000));
        }
    };
    EXPECT_EQ(download(4096), -1);
    EXPECT_EQ(at_p_St_GlobalVar->nvme_fw_update_status, NVME_FW_DOWNLOAD_UNREADABLE);
    EXPECT_EQ(drive->count(sim::NvmeCommandSet::kAdmin, 0x11), 3u);
    EXPECT_EQ(board->task_percent().at(5), 40);
}

TEST_F(NvmeOnBoard, ADriveThatFallsSilentEndsTheDownload) {
    open_drive();
    sim::NvmeFault silence;
    silence.kind = sim::NvmeFault::Kind::kNoAnswer;
    silence.set = sim::NvmeCommandSet::kAdmin;
    silence.opcode = 0x11;
    silence.at = 3;
    silence.count = 0;
    drive->set_faults({silence});
    write_image(image_of("FW5", 20000));
    EXPECT_EQ(download(4096), -1);
    EXPECT_EQ(at_p_St_GlobalVar->nvme_fw_update_status, NVME_FW_DOWNLOAD_EXCHANGE);
    EXPECT_EQ(drive->count(sim::NvmeCommandSet::kAdmin, 0x11), 5u) << "three tries of the third";
    EXPECT_EQ(board->task_percent().at(5), 20);
}

}  // namespace

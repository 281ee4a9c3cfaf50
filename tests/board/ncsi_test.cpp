// SPDX-License-Identifier: Apache-2.0
// NC-SI from the simulated network controller through the library: discovery, links, OEM settings.
#include <sideband/ncsi.h>

#include <algorithm>
#include <functional>

#include "fixture.h"
#include "sim/ncsi/controller.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;
using sim::NcsiCommand;

class NcsiOnBoard : public BoardRun {
protected:
    ~NcsiOnBoard() override { ncsi_deinit(&ctx); }

    /// A board with one controller, of these packages.
    void open_controller(const std::string& packages, const std::string& keys = "") {
        open(board_with("", R"({"name": "nc", "type": "ncsi", "bus": 2, "address": "0x64", "eid": 9,
            "controller": {"packages": [)" +
                                packages + "]" + keys + "}}"));
        ASSERT_TRUE(board);
        controller = board->ncsi("nc");
        ASSERT_NE(controller, nullptr);
    }

    /// ncsi_init() without what it prints.
    int32_t discover(const mctp_ctx& config) {
        const test::Capture out(1);
        return ncsi_init(&ctx, &config);
    }
    int32_t discover() {
        mctp_ctx config = context_of("nc");
        config.skip_discovery = 0;
        return discover(config);
    }

    /// The IDs of the channels that were found.
    std::vector<int> found() const {
        std::vector<int> ids;
        for (const ncsi_channel& channel : ctx.channels) {
            if (channel.channel_id != kNone) {
                ids.push_back(channel.channel_id);
            }
        }
        return ids;
    }

    static constexpr uint8_t kNone = 0xFF;
    ncsi_ctx ctx = [] {
        ncsi_ctx fresh{};
        for (ncsi_channel& channel : fresh.channels) {
            channel.channel_id = kNone;
        }
        return fresh;
    }();
    sim::NcsiController* controller = nullptr;
};

// ---- Discovery ----

TEST_F(NcsiOnBoard, WhereThereIsNoDeviceNothingIsFound) {
    open_controller(R"({"id": 0, "channels": [{"id": 0}]})");
    mctp_ctx config = context_of("nc");
    config.slave_addr = 0x66;
    config.dest_eid = 9;
    config.skip_discovery = 1;
    EXPECT_EQ(discover(config), -1);
    EXPECT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(ctx.iid, 65) << "64 attempts";
    EXPECT_EQ(ctx.channel_num, 0);
    EXPECT_EQ(found(), std::vector<int>());
    EXPECT_EQ(controller->count(NcsiCommand::kClearInitialState), 0u);
}

TEST_F(NcsiOnBoard, OneChannelIsFound) {
    open_controller(R"({"id": 0, "channels": [{"id": 4}]})");
    EXPECT_EQ(discover(), 0);
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(found(), std::vector<int>{0x04});
}

TEST_F(NcsiOnBoard, TheLastChannelOfTheLastPackageIsFound) {
    open_controller(R"({"id": 7, "channels": [{"id": 7}]})");
    EXPECT_EQ(discover(), 0);
    EXPECT_EQ(ctx.iid, 65) << "the last of 64 attempts";
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(found(), std::vector<int>{0xE7});
}

TEST_F(NcsiOnBoard, OfAll64ChannelsThoseOfTheFirstPackageAreFound) {
    std::string packages;
    for (int package = 0; package < NCSI_PACKAGES; ++package) {
        packages += (package == 0 ? "{\"id\": " : ", {\"id\": ") + std::to_string(package) +
                    R"(, "channels": [)";
        for (int number = 0; number < NCSI_CHANNELS; ++number) {
            packages += (number == 0 ? "{\"id\": " : ", {\"id\": ") + std::to_string(number) + "}";
        }
        packages += "]}";
    }
    open_controller(packages);
    EXPECT_EQ(discover(), 0);
    EXPECT_EQ(ctx.channel_num, 8);
    EXPECT_EQ(found(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(controller->count(NcsiCommand::kClearInitialState), 8u);
}

// ---- Commands ----

TEST_F(NcsiOnBoard, PackagesAreSelectedAndDeselected) {
    open_controller(R"({"id": 2, "channels": [{"id": 1}]})");
    ASSERT_EQ(discover(), 0);
    EXPECT_EQ(ncsi_select_package(&ctx.channels[1], 2), 0);
    EXPECT_TRUE(controller->package(2)->selected);
    EXPECT_EQ(ncsi_deselect_package(&ctx.channels[1], 2), 0);
    EXPECT_FALSE(controller->package(2)->selected);
}

TEST_F(NcsiOnBoard, LinksAreReadChannelByChannel) {
    open_controller(R"({"id": 0, "channels": [
        {"id": 0, "link": true, "speed": 10, "autoneg": true},
        {"id": 1, "link": false}]})");
    ASSERT_EQ(discover(), 0);
    EXPECT_EQ(ncsi_get_link_status(&ctx.channels[0]), 0);
    EXPECT_EQ(ctx.channels[0].link_up, 1);
    EXPECT_EQ(ctx.channels[0].speed, 10);
    EXPECT_EQ(ctx.channels[0].autoneg_done, 1);
    EXPECT_EQ(ncsi_get_link_status(&ctx.channels[1]), 0);
    EXPECT_EQ(ctx.channels[1].link_up, 0);
}

/// Every setting that a controller may have beside flag and value: a set gives the new ones to the
/// next get and leaves the rest to the controller, which watches it.
TEST_F(NcsiOnBoard, ASetIsSeenByTheNextGetAndTouchesNothingElse) {
    for (int value = 0; value < 256; ++value) {
        char preboot[9];
        std::snprintf(preboot, sizeof preboot, "%02x00%02x%02x", value, value, 255 - value);
        char tlv[11];
        std::snprintf(tlv, sizeof tlv, "%02x%02x%02x0000", value & 0xF1, value & 0x67, value);
        open_controller(R"({"id": 0, "card_tlv": ")" + std::string(tlv) +
                        R"(", "channels": [{"id": 0, "preboot_config": ")" + preboot + "\"}]}");
        ctx = {};
        ASSERT_EQ(discover(), 0) << value;
        ncsi_channel& channel = ctx.channels[0];
        using Handler = int32_t (*)(ncsi_channel*);
        const std::pair<Handler, Handler> settings[] = {
            {ncsi_oem_brcm_get_preboot_server_config, ncsi_oem_brcm_set_preboot_server_config},
            {ncsi_oem_mx_get_card_tlv_info, ncsi_oem_mx_set_card_tlv_info}};
        for (const auto& [get, set] : settings) {
            channel.oem_flag = value % 2;
            channel.oem_value = static_cast<uint16_t>(value * 13);
            EXPECT_EQ(set(&channel), 0) << value;
            channel.oem_flag = 0xEE;
            channel.oem_value = 0xEEEE;
            EXPECT_EQ(get(&channel), 0) << value;
            EXPECT_EQ(channel.oem_flag, value % 2);
            EXPECT_EQ(channel.oem_value, value * 13);
        }
        EXPECT_TRUE(controller->foreign_changes().empty()) << value;
        ncsi_deinit(&ctx);
    }
}

TEST_F(NcsiOnBoard, TemperaturesAreTheBoards) {
    open_controller(R"({"id": 0, "channels": [{"id": 0}]})",
                    R"(, "temperatures": [
                        {"id": 2, "waveform": {"shape": "constant", "value": 61}}])");
    ASSERT_EQ(discover(), 0);
    ctx.channels[0].sensor_index = 2;
    EXPECT_EQ(ncsi_oem_mx_get_temperature(&ctx.channels[0]), 61);
}

// ---- Over an endpoint that is lent ----

TEST_F(NcsiOnBoard, AnEndpointThatIsLentReachesEveryCommand) {
    open_controller(R"({"id": 0, "card_tlv": "0000000000", "channels": [
                        {"id": 0, "link": true, "speed": 10, "preboot_config": "00000000"}]})",
                    R"(, "temperatures": [
                        {"id": 2, "waveform": {"shape": "constant", "value": 61}}])");
    mctp_ctx lent = context_of("nc");
    lent.msg_type = MCTP_MSG_TYPE_NCSI;
    ASSERT_EQ(ncsi_oem_init(&ctx, &lent), 0);
    EXPECT_EQ(ncsi_oem_discovery(&ctx), 0);
    ncsi_channel& channel = ctx.channels[0];
    channel.channel_id = 0;
    EXPECT_EQ(ncsi_select_package(&channel, 0), 0);
    EXPECT_TRUE(controller->package(0)->selected);
    EXPECT_EQ(ncsi_get_link_status(&channel), 0);
    EXPECT_EQ(channel.link_up, 1);
    EXPECT_EQ(channel.speed, 10);
    channel.oem_flag = 1;
    channel.oem_value = 0xABC;
    EXPECT_EQ(ncsi_oem_brcm_entry(&channel, 1), 0);
    channel.oem_value = 0;
    EXPECT_EQ(ncsi_oem_brcm_entry(&channel, 0), 0);
    EXPECT_EQ(channel.oem_value, 0xABC);
    EXPECT_EQ(ncsi_oem_mx_entry(&channel, 0), 0);
    channel.sensor_index = 2;
    EXPECT_EQ(ncsi_oem_mx_entry(&channel, 3), 61);
    ctx.mctp = nullptr;
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Firmware updates end to end: a card on the board takes packages over SMBus and over PCIe.
#include <gtest/gtest.h>

#include <algorithm>

#include "update_fixture.h"

namespace {

using board_test::Binding;
using board_test::card_package;
using board_test::image_of;
using board_test::UpdateReport;
using board_test::UpdateRun;
using sim::PldmFirmwareState;

std::vector<uint8_t> bytes_of(sim::ByteView bytes) {
    return {bytes.begin(), bytes.end()};
}

class Update : public UpdateRun, public ::testing::WithParamInterface<Binding> {
protected:
    void open_device(const std::string& firmware_keys = "") {
        open_card(GetParam(), firmware_keys);
    }

    /// Expects that the card runs the package and got its images byte for byte.
    void expect_updated(const UpdateReport& report) {
        EXPECT_EQ(report.check, 0) << report.log;
        EXPECT_EQ(report.update, 0) << report.out;
        EXPECT_EQ(report.state, 6);
        EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
        EXPECT_EQ(device->reason(), sim::kFwActivated);
        EXPECT_EQ(device->active().text, "NEW");
        EXPECT_EQ(component_version(0), "new-1");
        EXPECT_EQ(component_version(1), "new-2");
        EXPECT_EQ(bytes_of(device->image(0)), image_of(1, 300));
        EXPECT_EQ(bytes_of(device->image(1)), image_of(2, 200));
        EXPECT_EQ(board->task_percent()[7], 98);
    }
};

TEST_P(Update, ImagesArriveByteForByteAndTheirVersionsRun) {
    open_device();
    provide(card_package());
    const UpdateReport report = update();
    expect_updated(report);
    EXPECT_EQ(report.mark, 0);
    EXPECT_NE(report.out.find("1th Record pass\n"), std::string::npos);
    EXPECT_EQ(board->pcie_sessions().opened, 1U);
}

TEST_P(Update, PiecesAreOfTheSizeThatTheDeviceTableHas) {
    open_device();
    provide(card_package());
    update();
    // 300 and 200 bytes in pieces of 56 over SMBus, of 128 over PCIe.
    const uint64_t pieces = GetParam() == Binding::kSmbus ? 6 + 4 : 3 + 2;
    EXPECT_EQ(device->count(sim::kFwRequestFirmwareData), pieces);
}

TEST_P(Update, SecondPackageReplacesTheFirst) {
    open_device();
    provide(card_package());
    expect_updated(update());
    tool::Package next = card_package();
    next.records[0].version = "NEWER";
    next.components[0].version = "newer-1";
    provide(next);
    EXPECT_EQ(update().update, 0);
    EXPECT_EQ(device->active().text, "NEWER");
    EXPECT_EQ(component_version(0), "newer-1");
}

TEST_P(Update, PiecesMayComeInAnyOrder) {
    for (const char* order : {"descending", "interleaved", "random"}) {
        SCOPED_TRACE(order);
        open_device(R"(, "seed": 5, "transfer_size": 40, "order": ")" + std::string(order) + '"');
        provide(card_package());
        expect_updated(update());
    }
}

TEST_P(Update, LastPieceMayPassTheEndOfTheImage) {
    open_device(R"(, "last_piece": "full")");
    provide(card_package());
    expect_updated(update());
}

TEST_P(Update, PackageDataReachTheDevice) {
    open_device(R"(, "get_package_data": true)");
    tool::Package package = card_package();
    package.records[0].package_data = image_of(9, 333);
    provide(package);
    expect_updated(update());
    EXPECT_EQ(bytes_of(device->package_data()), image_of(9, 333));
}

TEST_P(Update, MetadataOfTheDeviceIsFetchedInParts) {
    open_device(R"(, "metadata": "000102030405060708090a0b0c0d0e0f", "metadata_part_size": 6)");
    provide(card_package());
    expect_updated(update());
    EXPECT_EQ(device->count(sim::kFwGetDeviceMetaData), 3U);
}

TEST_P(Update, DeviceOfAnotherKindIsFoundOut) {
    open_device();
    tool::Package package = card_package();
    package.records[0].descriptors[1].value = {0x1E, 0x10};
    provide(package);
    const UpdateReport report = update();
    EXPECT_EQ(report.check, -1);
    EXPECT_NE(report.out.find("-------------non match desc----------\n"), std::string::npos);
    EXPECT_NE(report.log.find("1th record don't match\n"), std::string::npos);
    EXPECT_EQ(device->count(sim::kFwRequestUpdate), 0U);
}

TEST_P(Update, ThirdOfThreeRecordsMatches) {
    open_device();
    tool::Package package = card_package();
    tool::PackageRecord other = package.records[0];
    other.descriptors[1].value = {0x1E, 0x10};
    other.version = "OTHER";
    package.records.insert(package.records.begin(), 2, other);
    provide(package);
    const UpdateReport report = update();
    EXPECT_NE(report.out.find("3th Record pass\n"), std::string::npos);
    EXPECT_EQ(report.check, 0);
    EXPECT_EQ(report.update, 0);
    EXPECT_EQ(component_version(0), "new-1");
    // The request names the first record's image set, whichever record matched.
    EXPECT_EQ(device->active().text, "OTHER");
}

TEST_P(Update, QueryChangesNothing) {
    open_device();
    provide(card_package());
    const UpdateReport report = update(PLDM_FW_FLAG_QUERY | PLDM_FW_FLAG_SHOW_IMAGE);
    EXPECT_EQ(report.check, 0);
    EXPECT_EQ(report.update, -1);
    EXPECT_EQ(report.mark, 0);
    EXPECT_NE(report.out.find("FD active component version : OLD\n"
                              "FD pending component version : \n"
                              "Image component version : PKG\n"),
              std::string::npos);
    EXPECT_EQ(device->count(sim::kFwRequestUpdate), 0U);
    EXPECT_EQ(device->active().text, "OLD");
}

TEST_P(Update, OnlyNewerDeviceIsForced) {
    open_device(R"(, "only_newer": true)");
    tool::Package package = card_package();
    for (tool::PackageComponent& each : package.components) {
        each.comparison_stamp = 16;
    }
    provide(package);
    const UpdateReport refused = update();
    EXPECT_EQ(refused.update, 0);
    EXPECT_EQ(refused.mark, 0x8B);  // nothing to activate
    EXPECT_NE(refused.out.find("Component will no be updated, response code: 0x1,\n"),
              std::string::npos);
    EXPECT_EQ(device->active().text, "OLD");
    EXPECT_EQ(device->state(), PldmFirmwareState::kReadyXfer);
    // The device is in update mode still: the next update makes it leave that, and ends there.
    EXPECT_EQ(update(PLDM_FW_FLAG_FORCE).update, -1);
    EXPECT_EQ(device->state(), PldmFirmwareState::kIdle);
    expect_updated(update(PLDM_FW_FLAG_FORCE));
}

TEST_P(Update, ComponentThatIsNotForTheDeviceIsLeftOut) {
    open_device();
    tool::Package package = card_package();
    package.records[0].components = {1};
    provide(package);
    const UpdateReport report = update();
    EXPECT_EQ(report.update, 0);
    EXPECT_EQ(report.state, 6);
    EXPECT_EQ(component_version(0), "old-1");
    EXPECT_EQ(component_version(1), "new-2");
    EXPECT_EQ(device->count(sim::kFwPassComponentTable), 1U);
}

TEST_P(Update, ImageThatIsCutOffIsSentWithZerosInItsPlace) {
    open_device(R"(, "transfer_size": 50)");
    const tool::Package package = card_package();
    std::vector<uint8_t> bytes = tool::build_package(package);
    // Half of the last piece of the last component is missing.
    bytes.resize(bytes.size() - 25);
    provide_bytes(bytes);
    const UpdateReport report = update();
    EXPECT_EQ(report.update, 0);
    std::vector<uint8_t> expected = image_of(2, 200);
    ASSERT_EQ(device->image(1).size(), 200U);
    EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + 175, device->image(1).begin()));
    for (size_t i = 175; i < 200; ++i) {
        EXPECT_EQ(device->image(1)[i], 0) << i;
    }
}

TEST_P(Update, PackageThatCannotBeParsedTouchesNoDevice) {
    open_device();
    std::vector<uint8_t> bytes = tool::build_package(card_package());
    bytes[0] ^= 1;
    provide_bytes(bytes);
    const UpdateReport report = update();
    EXPECT_EQ(report.check, -1);
    EXPECT_NE(report.log.find("NIC FW image parse fail\n"), std::string::npos);
    EXPECT_EQ(device->count(sim::kFwQueryDeviceIdentifiers), 0U);
}

TEST_P(Update, WithoutPcieSessionThereIsNone) {
    open_device();
    provide(card_package());
    board->set_pcie_open_fails(true);
    const UpdateReport report = update();
    EXPECT_EQ(report.check, 0);
    EXPECT_EQ(report.update, -1);
    EXPECT_NE(report.out.find("failed to open libmctp_qbex_ctx\n"), std::string::npos);
    EXPECT_EQ(device->count(sim::kFwRequestUpdate), 0U);
}

TEST_P(Update, PowerIsNeeded) {
    open_device();
    provide(card_package());
    board->set_main_power(false);
    const UpdateReport report = update();
    EXPECT_EQ(report.check, -1);
    EXPECT_NE(report.log.find("power status should be on.\n"), std::string::npos);
}

class GraphicsCard : public UpdateRun {
protected:
    void SetUp() override {
        UpdateRun::SetUp();
        open_graphics_card();
        package.records[0].descriptors[0].value = {0x86, 0x80};
    }

    tool::Package package = card_package();
};

TEST_F(GraphicsCard, IsUpdatedInPiecesOf32Bytes) {
    provide(package);
    const UpdateReport report = update(0, pldm_check_GPU_firmware_image);
    EXPECT_EQ(report.check, 0) << report.log;
    EXPECT_EQ(report.update, 0);
    EXPECT_EQ(report.state, 6);
    EXPECT_EQ(device->active().text, "NEW");
    EXPECT_EQ(bytes_of(device->image(0)), image_of(1, 300));
    EXPECT_EQ(bytes_of(device->image(1)), image_of(2, 200));
    EXPECT_EQ(device->count(sim::kFwRequestFirmwareData), 10U + 7U);
}

TEST_F(GraphicsCard, EachFailureOfTheCheckHasAResultOfItsOwn) {
    provide(package);
    board->set_main_power(false);
    EXPECT_EQ(update(0, pldm_check_GPU_firmware_image).check, -2);
    board->set_main_power(true);
    device->set_faults({{sim::PldmFirmwareFault::Kind::kNoAnswer, 0x01, 1, 1, 0, 0, 0}});
    EXPECT_EQ(update(0, pldm_check_GPU_firmware_image).check, -7);
    package.identifier[0] = 0;
    provide(package);
    EXPECT_EQ(update(0, pldm_check_GPU_firmware_image).check, -6);
}

std::string binding_name(Binding binding) {
    return binding == Binding::kSmbus ? "Smbus" : "Pcie";
}

INSTANTIATE_TEST_SUITE_P(Card, Update, ::testing::Values(Binding::kSmbus, Binding::kPcie),
                         [](const auto& info) { return binding_name(info.param); });

}  // namespace

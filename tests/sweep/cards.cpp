// SPDX-License-Identifier: Apache-2.0
// Add-in cards on the board, and how far an update of them has got.
#include "cards.h"

#include <cstdlib>

#include "support/bytes.h"
#include "testing/package_builder.h"

namespace sweep {
namespace {

using test::Bytes;
using test::hex;

constexpr uint32_t kTransferSize = 64;
const std::string kTalkative = R"(, "get_package_data": true, "metadata": "0102030405")";

std::string card_with(const std::string& place, const std::string& firmware_keys = "") {
    return R"({"name": "dev", "type": "pldm", "tid": 5, )" + place +
           R"(, "firmware": {"descriptors": [{"type": "pci_vendor_id", "hex": "b315"},
                                             {"type": "pci_device_id", "hex": "1d10"}],
                "active": "OLD", "components": [{"identifier": 1, "activation_methods": 2,
                                                 "active": {"text": "old-1", "stamp": 16}}])" +
           firmware_keys + "}}";
}
tool::Package package(bool with_data = false) {
    tool::PackageComponent component;
    component.comparison_stamp = 0x20;
    component.activation_method = 2;
    component.version = "new-1";
    component.image = test::counting(kTransferSize);
    tool::PackageRecord record;
    record.version = "NEW";
    record.components = {0};
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_DEVICE_ID, {0x1D, 0x10}, {}});
    if (with_data) {
        record.package_data = test::counting(40);
    }
    tool::Package made;
    made.version = "PKG";
    made.records.push_back(record);
    made.components.push_back(component);
    return made;
}

/// A card that is bound, and a package that is not parsed.
void ready_card(World& world, const std::string& place, const std::string& firmware_keys) {
    ready_device(world, card_with(place, firmware_keys));
    bind_endpoint(world);
    provide(world, !firmware_keys.empty());
}
/// A message of the agent, that the scenario itself has written.
void say(World& world, const Bytes& request) {
    Bytes message = request;
    std::array<uint8_t, 256> answer{};
    pldm_ctx& pldm = world.update.pldm;
    pldm.transfer_op(&pldm, static_cast<uint32_t>(message.size()), answer.size(), message.data(),
                     answer.data());
}

}  // namespace

void provide(World& world, bool with_data) {
    world.update.package_file = world.file(tool::build_package(package(with_data)));
}

void bind_endpoint(World& world) {
    mctp_pldm_register(&world.endpoint, &world.update.pldm);
    world.update.max_transfer_size = kTransferSize;
}

void open_card(World& world, const std::string& place) {
    world.open(board_of(card_with(place)));
    world.card = world.board->card("dev").value();
    world.endpoint = world.context_of("dev");
    provide(world, false);
}

void ready_on_smbus(World& world) {
    ready_card(world, kOnSmbus, "");
}
void ready_on_pcie(World& world) {
    ready_card(world, kOnPcie, "");
}
void ready_talkative(World& world) {
    ready_card(world, kOnSmbus, kTalkative);
}

/// What the commands of an update need of the package and of the card.
static void load(World& world) {
    pldm_fw_update_ctx& update = world.update;
    pldm_parse_file(update.package_file, &update);
    pldm_get_firmware_parameters(&update);
    update.matched_record = update.records;
    update.update_list = static_cast<pldm_update_component*>(
        std::calloc(update.component_num, sizeof(pldm_update_component)));
    update.update_list[0].image = update.component_images[0];
}
void ready_loaded(World& world) {
    ready_on_smbus(world);
    load(world);
}
void ready_talkative_loaded(World& world) {
    ready_talkative(world);
    load(world);
}

void free_context(World& world) {
    pldm_free_ctx_resource(&world.update);
}
void free_all(World& world) {
    pldm_free_ua_resource(&world.update);
}

void forget_failures(World& world) {
    world.update.last_error = {};
    world.update.pldm.last_error = {};
    world.update.pldm.completion_code = 0;
    world.update.component_index = 0;
    world.update.last_percentage = 0;
}

void leave_update(World& world) {
    say(world, hex("80 05 1d"));
}

void begin_update(World& world) {
    leave_update(world);
    say(world, hex("80 05 10 40000000 0100 01 0000 01 03 4e4557"));
    forget_failures(world);
    world.update.state = 1;
}
void pass_component(World& world) {
    begin_update(world);
    say(world, hex("80 05 13 05 0a00 0100 00 20000000 01 05 6e65772d31"));
    forget_failures(world);
    world.update.state = 2;
}
void offer_component(World& world) {
    pass_component(world);
    say(world, hex("80 05 14 0a00 0100 00 20000000 40000000 00000000 01 05 6e65772d31"));
    forget_failures(world);
    world.update.state = 3;
}
void ready_to_activate(World& world) {
    ready_device(world, R"({"name": "dev", "type": "replay", "bus": 2, "address": "0x64", "eid": 9,
        "exchanges": [{"message_type": 1, "request": "80051a02", "response": "00051a000500"}]})");
    bind_endpoint(world);
    provide(world, false);
    load(world);
}

}  // namespace sweep

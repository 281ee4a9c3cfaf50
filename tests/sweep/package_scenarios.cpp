// SPDX-License-Identifier: Apache-2.0
// Firmware packages: files, descriptors, what is printed of them.
#include "cards.h"
#include "scenario.h"

namespace sweep {
namespace {

std::string stored_package(const World& world) {
    const pldm_fw_update_ctx& update = world.update;
    return listed(update.device_record_num, update.component_num,
                  update.records != nullptr && update.component_images != nullptr);
}
int64_t parse_file(World& world) {
    return pldm_parse_file(world.update.package_file, &world.update);
}

int64_t open_file(World& world) {
    world.descriptor = open_pldm_file(world.update.package_file, &world.address, &world.size);
    return world.descriptor < 0 ? -1 : 0;
}
void close_file(World& world) {
    if (world.descriptor >= 0) {
        close_pldm_file(world.descriptor, world.address, world.size);
    }
    world.descriptor = -1;
    world.size = 0;
}

/// A descriptor as it lies in a package.
constexpr std::array<uint8_t, 6> kDescriptor{0, 0, 2, 0, 0xB3, 0x15};
constexpr std::array<uint8_t, PLDM_COMPONENT_IMAGE_SIZE + 1> kEntry{};

}  // namespace

std::vector<Scenario> package_scenarios() {
    return {
        {.function = "open_pldm_file",
         .set_up = [](World& world) { provide(world, false); },
         .call = open_file,
         .stored = [](const World& world) { return listed(world.size); },
         .again = close_file,
         .release = close_file,
         .failures = {-1}},
        {.function = "close_pldm_file",
         .set_up =
             [](World& world) {
                 provide(world, false);
                 open_file(world);
             },
         .call = [](World& world) -> int64_t {
             close_file(world);
             return 0;
         },
         .again = [](World& world) { open_file(world); },
         .release = close_file},
        {.function = "pldm_parse_file",
         .set_up = [](World& world) { provide(world, true); },
         .call = parse_file,
         .stored = stored_package,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1},
         .keeps_parts = true,
         .owns = true,
         // The package's version and data: an update does without.
         .does_without = {"malloc"}},
        {.function = "pldm_parse_file",
         .way = "strict",
         .set_up =
             [](World& world) {
                 provide(world, false);
                 world.update.strict = MCTP_STRICT_ALL;
             },
         .call = parse_file,
         .stored = stored_package,
         .release = free_context,
         .record = record_of_update,
         .failures = {-1},
         .keeps_parts = true,
         .owns = true,
         .does_without = {"malloc"}},
        {.function = "pldm_free_ctx_resource",
         .set_up = ready_loaded,
         .call = [](World& world) -> int64_t { return pldm_free_ctx_resource(&world.update); }},
        {.function = "pldm_fw_update_last_error",
         .call = [](World& world) -> int64_t {
             return pldm_fw_update_last_error(&world.update)->cause;
         }},
        {.function = "CRC32",
         .call = [](World& world) -> int64_t { return CRC32(0, world.room.data(), 64); }},
        {.function = "pldm_parse_component_image",
         .call = [](World&) -> int64_t {
             return pldm_parse_component_image(nullptr, kEntry.data());
         }},
        {.function = "show_desc_id_string",
         .call = [](World&) -> int64_t { return show_desc_id_string(0)[0]; }},
        {.function = "pldm_parse_record_descriptors",
         .call = [](World&) -> int64_t {
             return pldm_parse_record_descriptors(kDescriptor.data());
         }},
        {.function = "plds_show_descriptot",
         .call = [](World&) -> int64_t {
             plds_show_descriptot(kDescriptor.data(), kDescriptor.data(), nullptr);
             return 0;
         }},
        {.function = "pldm_compare_descriptors",
         .call = [](World&) -> int64_t {
             return pldm_compare_descriptors(kDescriptor.data(), kDescriptor.data());
         }},
        {.function = "pldm_get_nic_fw_index",
         .call = [](World&) -> int64_t { return pldm_get_nic_fw_index(0x15B3); }},
        {.function = "pldm_get_gpu_fw_index",
         .call = [](World&) -> int64_t { return pldm_get_gpu_fw_index(0x8086); }},
    };
}

}  // namespace sweep

// SPDX-License-Identifier: Apache-2.0
// Fuzzes the device's side of a firmware update: its answers, its requests and its silence, with a
// package of the input's shape.
#include <sideband/pldm_fw_update.h>
#include <unistd.h>

#include <cstring>

#include "fuzz/check.h"
#include "fuzz/file.h"
#include "fuzz/world.h"
#include "testing/package_builder.h"

namespace {

using fuzz::Input;
using fuzz::require;

/// Shape of the package, the byte behind the environment record.
enum : uint8_t {
    kComponents = 0x03,   ///< how many
    kRecords = 0x0C,      ///< how many, times 4
    kPackageData = 0x10,  ///< the records have some
    kOutside = 0x20,      ///< the first component claims to reach behind the end of the file
    kSelfContained = 0x40,
    kSomeOnly = 0x80,  ///< the records leave the first component out
};

constexpr size_t kImageSizeMax = 0x800;

/// The devices of this world: what it takes to match record 0 is "vendor 0x15B3".
tool::PackageRecord make_record(uint8_t shape, size_t index) {
    tool::PackageRecord record;
    record.version = "set " + std::to_string(index);
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    for (size_t i = (shape & kSomeOnly) != 0 ? 1 : 0; i < (shape & kComponents); ++i) {
        record.components.push_back(i);
    }
    if ((shape & kPackageData) != 0) {
        // Each longer than the one before, which is what the first record is asked for.
        record.package_data.assign(100 + 50 * index, 0xDA);
    }
    return record;
}

std::vector<uint8_t> make_package(uint8_t shape, size_t image_size) {
    tool::Package package;
    package.version = "fuzzed";
    for (size_t i = 0; i < (shape & kComponents); ++i) {
        tool::PackageComponent component;
        component.identifier = static_cast<uint16_t>(i + 1);
        component.activation_method = (shape & kSelfContained) != 0 ? 2 : 0;
        component.version = "v";
        component.image.assign(image_size, static_cast<uint8_t>(0xC0 + i));
        if (i == 0 && (shape & kOutside) != 0) {
            component.size = UINT32_MAX;
        }
        package.components.push_back(component);
    }
    for (size_t i = 0; i < (shape & kRecords) >> 2; ++i) {
        package.records.push_back(make_record(shape, i));
    }
    return tool::build_package(package);
}

/// A terminus whose endpoint is the library's to release.
bool bind(pldm_fw_update_ctx& ctx, uint8_t mode) {
    mctp_ctx config{};
    config.skip_discovery = 1;
    config.strict = fuzz::world().strict;
    if (pldm_terminus_init(&ctx.pldm, &config) != 0) {
        return false;  // an allocation that was made to fail
    }
    mctp_ctx* const endpoint = ctx.pldm.mctp;
    endpoint->xfer = fuzz::scripted_xfer;
    endpoint->send = fuzz::scripted_send;
    endpoint->recv = fuzz::scripted_recv;
    if ((mode & 0x01) != 0) {
        ctx.pldm.transfer_op = fuzz::scripted_transfer;
    }
    return true;
}

void require_result(int32_t result) {
    require(result <= 0, "an undocumented result");
}

void update(pldm_fw_update_ctx& ctx, Input& input, const char* path) {
    const uint32_t flags = input.u8();
    const int32_t result = pldm_nic_update(path, &ctx, nullptr, flags);
    require_result(result);
    require(ctx.pldm.mctp == nullptr && ctx.records == nullptr && ctx.update_list == nullptr &&
                ctx.fd_component_params == nullptr && ctx.pcie_session == nullptr,
            "an update left something");
    require((flags & PLDM_FW_FLAG_QUERY) == 0 || result == -1, "a query requested an update");
}

void inventory(pldm_fw_update_ctx& ctx, Input& input, const char* path) {
    if (pldm_parse_file(path, &ctx) == 0 && ctx.device_record_num > 0) {
        require_result(
            pldm_query_device_identifiers(&ctx, &ctx.records[input.u8() % ctx.device_record_num]));
    }
    const int32_t result = pldm_get_firmware_parameters(&ctx);
    require_result(result);
    require(result < 0 || fuzz::world().fail_allocation != 0 ||
                (ctx.active_version_string != nullptr && ctx.pending_version_string != nullptr),
            "a device without versions");
}

void command(pldm_fw_update_ctx& ctx, Input& input, const char* /*path*/) {
    constexpr int32_t (*kCommands[])(pldm_fw_update_ctx*) = {
        pldm_request_firmware_update, pldm_activate_firmware, pldm_get_status,
        pldm_cancel_update_component, pldm_cancel_update,
    };
    const size_t which = input.u8() % (std::size(kCommands) + 2);
    if (which < std::size(kCommands)) {
        require_result(kCommands[which](&ctx));
    } else if (which == std::size(kCommands)) {
        require_result(pldm_get_device_metadata(&ctx, input.u16()));
    } else {
        fuzz::GuardedBuffer room(input.u16() % 1024);
        require_result(pldm_get_meta_data(&ctx, room.data(), static_cast<uint16_t>(room.size())));
        room.check();
    }
}

/// A request of the device out of its turn.
void answer(pldm_fw_update_ctx& ctx, Input& input, const char* /*path*/) {
    constexpr int32_t (*kAnswers[])(pldm_fw_update_ctx*, const uint8_t*) = {
        pldm_get_package_data, pldm_request_fw_data, pldm_transfer_complete,
        pldm_verify_complete,  pldm_apply_complete,
    };
    const size_t which = input.u8() % std::size(kAnswers);
    ctx.fd_will_send_pkg_data = input.u8();
    uint8_t request[PLDM_FW_UPDATE_REQUEST_SIZE] = {};
    input.fill(request);
    const int32_t result = kAnswers[which](&ctx, request);
    require(result <= (which == 0 ? 1 : 0), "an undocumented result");
}

/// The machine, put into any state.
void act(pldm_fw_update_ctx& ctx, Input& input, const char* /*path*/) {
    ctx.state = input.u8();
    ctx.component_index = input.u8();
    ctx.fd_metadata_len = input.u8();
    const uint8_t record = input.u8();
    // A package that could not be read to its end leaves the count without the records.
    const bool known = ctx.records != nullptr && record < ctx.device_record_num;
    ctx.matched_record = known ? &ctx.records[record] : nullptr;
    require(fw_update_state_fn(&ctx) == 0, "an undocumented result");
}

/// The whole stack: over SMBus packets, on a board without cards.
void check(pldm_fw_update_ctx& /*ctx*/, Input& input, const char* path) {
    pldm_fw_update_ctx ctx{};
    ctx.strict = fuzz::world().strict;
    const pldm_card_location location{1, 0};
    mctp_ctx endpoint;
    plt_card_info card{};
    card.vendor_id = 0x15B3;
    card.flags = input.u32();
    require_result(pldm_check_firmware_image(path, &ctx, &location, &endpoint, &card));
    require(pldm_free_ua_resource(&ctx) == 0, "not released");
    card.vendor_id = 0x8086;
    const int32_t result = pldm_check_GPU_firmware_image(path, &ctx, &location, &endpoint, &card);
    require(result <= 0 && result >= -7, "an undocumented result");
    require(pldm_free_ua_resource(&ctx) == 0, "not released");
}

constexpr void (*kOperations[])(pldm_fw_update_ctx&, Input&, const char*) = {
    update, inventory, command, answer, act, check,
};

/// The descriptor that would be opened next: a lower one that is still open shows in it.
int next_descriptor() {
    const int descriptor = dup(0);
    close(descriptor);
    return descriptor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr int kCallsMax = 8;
    // Some loops of some thousand requests, each read and answered.
    constexpr unsigned kPlatformCallsMax = 400000;
    fuzz::begin(bytes, size);
    Input& input = fuzz::world().input;
    const uint8_t mode = input.u8();
    const uint8_t shape = input.u8();
    const fuzz::File package(make_package(shape, input.u16() % kImageSizeMax));
    pldm_fw_update_ctx ctx{};
    ctx.strict = fuzz::world().strict;
    ctx.max_transfer_size = input.u16();
    const int descriptor = next_descriptor();
    for (int i = 0; i < kCallsMax && (i == 0 || !input.empty()); ++i) {
        if (ctx.pldm.mctp == nullptr && !bind(ctx, mode)) {
            continue;
        }
        kOperations[input.u8() % std::size(kOperations)](ctx, input, package.path());
        fuzz::end(kPlatformCallsMax);
        require(next_descriptor() == descriptor, "a file is still open");
    }
    require(pldm_free_ua_resource(&ctx) == 0, "not released");
    fuzz::finish();
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// Fuzzes descriptions of firmware update packages: how many images there are in the first byte, and
// the text behind it. What is taken makes a package that the library takes at its strictest.
#include <sideband/mctp.h>
#include <sideband/pldm_fw_update.h>

#include "fuzz/board_text.h"
#include "fuzz/file.h"
#include "fuzz/input.h"
#include "fuzz/world.h"
#include "tools/shell/failure.h"
#include "tools/update/metadata.h"

using fuzz::require;

namespace {

/// The package with images of one byte each, as long as its header can be told.
void require_readable(tool::Package& package) {
    for (tool::PackageComponent& component : package.components) {
        component.image.assign(1, 0xC0);
    }
    const std::vector<uint8_t> bytes = tool::build_package(package);
    if (bytes.size() - package.components.size() > UINT16_MAX) {
        return;
    }
    const fuzz::File file(bytes);
    pldm_fw_update_ctx ctx{};
    ctx.strict = MCTP_STRICT_PACKAGE;
    require(pldm_parse_file(file.path(), &ctx) == 0, "the library refuses what was described");
    require(ctx.component_num == package.components.size() &&
                ctx.device_record_num == package.records.size(),
            "another package than the one described");
    pldm_free_ctx_resource(&ctx);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    fuzz::Input input(bytes, size);
    const size_t images = input.u8();
    const fuzz::File file(input.take(size));
    try {
        tool::Package package = tool::read_metadata(file.path(), images);
        require(package.components.size() == images, "another count of components");
        require_readable(package);
    } catch (const tool::Failure& failure) {
        fuzz::require_shown(failure.what());
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// What a firmware update context holds on the heap, and its release.
#include <gtest/gtest.h>

#include <cstdlib>

#include "pldm/update/package_fixture.h"

namespace {

using test::sample_package;
using FwUpdateContext = test::PackageTest;

TEST_F(FwUpdateContext, ReleaseSetsEveryPointerToNull) {
    ASSERT_EQ(parse(sample_package()), 0);
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
    EXPECT_EQ(ctx.records, nullptr);
    EXPECT_EQ(ctx.component_images, nullptr);
    EXPECT_EQ(ctx.package_version_string, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
}

TEST_F(FwUpdateContext, ReleaseTakesTheDevicesDataToo) {
    const auto text = [] { return static_cast<char*>(std::calloc(1, 4)); };
    ctx.active_version_string = text();
    ctx.pending_version_string = text();
    ctx.fd_components_num = 2;
    ctx.fd_component_params = static_cast<uint8_t**>(std::calloc(2, sizeof(uint8_t*)));
    ctx.fd_component_params[0] = static_cast<uint8_t*>(std::calloc(1, 39));
    ctx.update_list = static_cast<pldm_update_component*>(std::calloc(1, sizeof *ctx.update_list));
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
    EXPECT_EQ(ctx.active_version_string, nullptr);
    EXPECT_EQ(ctx.pending_version_string, nullptr);
    EXPECT_EQ(ctx.fd_component_params, nullptr);
    EXPECT_EQ(ctx.update_list, nullptr);
}

TEST_F(FwUpdateContext, ReleaseOfNothingIsNoFailure) {
    EXPECT_EQ(pldm_free_ctx_resource(nullptr), 0);
    EXPECT_EQ(pldm_free_ctx_resource(&ctx), 0);
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// The life of an NVMe-MI context: what it copies, owns and frees, and how its two forms differ.
#include <gtest/gtest.h>

#include "NVMeMI/nvme_fixture.h"

namespace {

TEST(NvmeContext, DeinitOfNullIsHarmless) {
    EXPECT_EQ(nvmemi_deinit(nullptr), 0);
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Packages whose header or file ends inside a component's entry, and what is no file at all.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "pldm/update/package_fixture.h"
#include "support/capture.h"

namespace {

using test::Bytes;
using test::kBoundary;
using test::sample_package;
using test::small_package;
using tool::build_package;
using tool::Package;
using tool::PackageLayout;

class FwPackageEdges : public test::PackageTest {};

void set_header_size(Bytes& bytes, size_t size) {
    bytes[17] = static_cast<uint8_t>(size);
    bytes[18] = static_cast<uint8_t>(size >> 8);
}

// ---- Entries ----

TEST_F(FwPackageEdges, AHeaderThatEndsInsideTheFirstEntryNamesItAndKeepsIt) {
    PackageLayout layout;
    Bytes bytes = build_package(small_package(), &layout);
    const size_t end = layout.components[0] + PLDM_COMPONENT_IMAGE_SIZE + 1;
    ASSERT_EQ(end, layout.checksum);
    for (size_t limit = layout.component_count + 1; limit < end; limit++) {
        set_header_size(bytes, limit + 4);
        expect_refused(bytes, kBoundary);
        EXPECT_TRUE(
            printed("component image count 1\n"
                    "+++++++++++++++component image 0++++++++\nboundary check failed\n"))
            << limit << out;
        EXPECT_EQ(ctx.component_num, 1);
        ASSERT_NE(ctx.component_images, nullptr);
        ASSERT_NE(ctx.component_images[0], nullptr);
        EXPECT_STREQ(reinterpret_cast<char*>(ctx.component_images[0] + 22), "c");
    }
}

TEST_F(FwPackageEdges, AFileThatEndsInsideTheFirstEntryNamesItAndKeepsNothingOfIt) {
    PackageLayout layout;
    const Bytes bytes = build_package(small_package(), &layout);
    for (size_t size = layout.components[0]; size < layout.checksum; size++) {
        expect_refused(Bytes(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)),
                       kBoundary);
        EXPECT_TRUE(printed("component image 0++++++++\nboundary check failed\n")) << out;
        EXPECT_EQ(ctx.component_num, 1);
        ASSERT_NE(ctx.component_images, nullptr);
        EXPECT_EQ(ctx.component_images[0], nullptr);
    }
}

TEST_F(FwPackageEdges, WithoutEntriesTheEndOfTheHeaderIsLookedAtOnce) {
    Package package = small_package();
    package.components.clear();
    package.records[0].components.clear();
    PackageLayout layout;
    Bytes bytes = build_package(package, &layout);
    set_header_size(bytes, layout.component_count + 1 + 4);
    expect_refused(bytes, kBoundary);
    EXPECT_TRUE(printed("component image count 0\nboundary check failed\n")) << out;
}

// ---- Files ----

TEST_F(FwPackageEdges, WhatIsNoRegularFileIsRefusedAtOnce) {
    const std::string target = path + ".target";
    ASSERT_EQ(mkfifo(target.c_str(), 0600), 0);
    const std::string targets[] = {target, "/dev/zero", "/dev/null", libc.root};
    for (const std::string& other : targets) {
        unlink(path.c_str());
        ASSERT_EQ(symlink(other.c_str(), path.c_str()), 0);
        alarm(10);
        EXPECT_EQ(parse_again(), -1) << other;
        alarm(0);
        EXPECT_EQ(out, "can't map the file " + path + "\nopen_file_fail\n") << other;
        void* address = nullptr;
        size_t length = 0;
        test::Capture capture;
        EXPECT_EQ(open_pldm_file(path.c_str(), &address, &length), -1) << other;
    }
    EXPECT_EQ(libc.calls["mmap"], 0) << "refused before anything is mapped";
}

TEST_F(FwPackageEdges, ASymbolicLinkToAPackageIsFollowed) {
    const std::string target = path + ".target";
    write_file(build_package(sample_package()));
    ASSERT_EQ(rename(path.c_str(), target.c_str()), 0);
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    EXPECT_EQ(parse_again(), 0);
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Tests of firmware update packages: a package on disk, a context, and what must not be left over.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_PACKAGE_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_UPDATE_PACKAGE_FIXTURE_H

#include <sideband/pldm_fw_update.h>

#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/scripted_platform.h"
#include "testing/package_builder.h"

namespace test {

/// Two records and three components; every field has a value of its own.
tool::Package sample_package();

/// The smallest package that has all its parts: one record without descriptors, one component.
tool::Package small_package();

class PackageTest : public PlatformTest {
protected:
    PackageTest();
    ~PackageTest() override;

    /// Releases the context; nothing may be left on the heap, open or mapped then.
    void TearDown() override;

    /// Writes the file and parses it into ctx. What was printed is in out, what was logged in
    /// port().console.
    int32_t parse(const Bytes& bytes);
    int32_t parse(const tool::Package& package) { return parse(tool::build_package(package)); }
    /// Parses what is in the file already.
    int32_t parse_again();

    /// Expects that a package is refused with this text on standard output, and only this one.
    void expect_refused(const Bytes& bytes, const std::string& text);
    void expect_refused(const tool::Package& package, const std::string& text) {
        expect_refused(tool::build_package(package), text);
    }
    /// Expects that the last parse logged the result, and that it printed one text of refusal.
    void expect_result(int32_t result, const std::string& text) const;

    bool printed(const std::string& part) const { return out.find(part) != std::string::npos; }

    void write_file(const Bytes& bytes) const;

    pldm_fw_update_ctx ctx{};
    std::string path;
    std::string out;
};

/// The texts by which a package is refused on standard output.
inline const std::string kBoundary = "boundary check failed\n";
inline const std::string kChecksum = "checksum checking failed.\n";

/// How the library logs the end of a parse.
std::string result_line(int32_t result);

/// Bytes behind a pointer of the context.
inline Bytes bytes_at(const void* at, size_t count) {
    const auto* first = static_cast<const uint8_t*>(at);
    return Bytes(first, first + count);
}

}  // namespace test

#endif

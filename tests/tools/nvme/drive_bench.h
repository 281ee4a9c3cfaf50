// SPDX-License-Identifier: Apache-2.0
// A board with an NVMe drive, and what the tests of its commands share.
#ifndef SIDEBAND_TESTS_TOOLS_NVME_DRIVE_BENCH_H
#define SIDEBAND_TESTS_TOOLS_NVME_DRIVE_BENCH_H

#include "tests/tools/tool_runner.h"

namespace tool_test {

/// A board with a drive of two controllers, a PLDM terminus and a silent device.
class DriveBench {
public:
    DriveBench();

    Json& drive() { return drive_; }
    DriveBench& fault(const std::string& text);

    std::string board() const;
    Outcome run(const std::vector<std::string>& arguments) const;

private:
    Json drive_;
};

/// The document of a run that succeeded.
Json expect_document(const Outcome& run);

/// An image as the simulated drive takes it.
std::string image_of(const std::string& revision, size_t size);

}  // namespace tool_test

#endif

// SPDX-License-Identifier: Apache-2.0
// A PLDM terminus over an endpoint without MCTP.
#ifndef SIDEBAND_TESTS_PLDM_PLDM_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_PLDM_FIXTURE_H

#include <sideband/pldm.h>

#include "support/fake_endpoint.h"
#include "support/scripted_platform.h"

namespace test {

/// Fixture: a terminus bound to a fake endpoint.
class PldmTest : public PlatformTest {
protected:
    PldmTest();

    /// Puts an operation in place of pldm_transfer that hands this response over, whatever its
    /// completion code, with this result.
    void pass_through(int32_t result, const Bytes& response);

    FakeEndpoint endpoint;
    pldm_ctx ctx{};
    static MctpAnswer handed_over;  ///< what pass_through() set
    static int32_t asked_capacity;  ///< room for the response in its last call
};

}  // namespace test

#endif

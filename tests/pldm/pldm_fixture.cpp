// SPDX-License-Identifier: Apache-2.0
// A PLDM terminus over an endpoint without MCTP.
#include "pldm/pldm_fixture.h"

#include <algorithm>

namespace test {

MctpAnswer PldmTest::handed_over;
int32_t PldmTest::asked_capacity;

void PldmTest::pass_through(int32_t result, const Bytes& response) {
    handed_over = {result, response};
    ctx.transfer_op = [](pldm_ctx*, uint32_t, int32_t capacity, uint8_t*, uint8_t* room) {
        const Bytes& bytes = handed_over.bytes;
        std::copy_n(bytes.begin(), std::min(bytes.size(), static_cast<size_t>(capacity)), room);
        asked_capacity = capacity;
        return handed_over.result;
    };
}

PldmTest::PldmTest() {
    EXPECT_EQ(mctp_pldm_register(&endpoint, &ctx), 0);
}

}  // namespace test

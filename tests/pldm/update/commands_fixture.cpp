// SPDX-License-Identifier: Apache-2.0
// Tests of single requests of the update agent: see commands_fixture.h.
#include "pldm/update/commands_fixture.h"

#include <gtest/gtest.h>

#include <string>

namespace test {

Outcome FwCommandTest::answered(Call call, std::string_view answer) {
    endpoint.answers.push_back(MctpAnswer::of(hex(answer)));
    return run([&] { return call(&ctx); });
}

void FwCommandTest::expect_whole_answer_needed(Call call, std::string_view answer,
                                               const char* function) {
    const Bytes whole = hex(answer);
    for (size_t part = 4; part < whole.size(); part++) {
        endpoint.answers.push_back(
            MctpAnswer::of(Bytes(whole.begin(), whole.begin() + static_cast<long>(part))));
        ctx.state = 0x77;
        port().syslog.clear();
        EXPECT_EQ(run([&] { return call(&ctx); }).result, -1) << part;
        EXPECT_EQ(port().syslog, Texts{std::string(function) + ", response of " +
                                       std::to_string(part) + " bytes is too short\n"});
        EXPECT_EQ(ctx.state, 0x77);
        EXPECT_TRUE(machine.empty());
    }
}

void FwCommandTest::expect_unusable_contexts_refused(Call call) {
    ctx.pldm.transfer_op = nullptr;
    for (pldm_fw_update_ctx* target : {static_cast<pldm_fw_update_ctx*>(nullptr), &ctx}) {
        const Outcome outcome = run([&] { return call(target); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace test

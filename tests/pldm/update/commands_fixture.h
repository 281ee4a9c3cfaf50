// SPDX-License-Identifier: Apache-2.0
// Tests of single requests of the update agent: a call with its answer, and what every call holds
// to.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_COMMANDS_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_UPDATE_COMMANDS_FIXTURE_H

#include <string_view>

#include "pldm/update/agent_fixture.h"

namespace test {

class FwCommandTest : public FwUpdateTest {
protected:
    using Call = int32_t (*)(pldm_fw_update_ctx*);

    /// A call that gets this answer.
    Outcome answered(Call call, std::string_view answer);

    /// Expects that only a whole answer is taken; what is shorter gives -1 and leaves the state.
    void expect_whole_answer_needed(Call call, std::string_view answer, const char* function);

    void expect_unusable_contexts_refused(Call call);
};

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// Tests of what a session says of failures that no command of the tool brings about by itself: each
// cause in its line and to programs.
#include <gtest/gtest.h>
#include <sideband/mctp.h>
#include <sideband/pldm.h>

#include <memory>
#include <set>
#include <string>

#include "sim/board/board.h"
#include "tests/support/no_memory.h"
#include "tools/shell/output.h"
#include "tools/shell/session.h"

namespace {

using tool::Failure;
using tool::Json;
using tool::Session;

class SessionCause : public ::testing::Test {
protected:
    SessionCause() {
        sim::BoardError error;
        board_ = sim::Board::parse(R"({"name": "bench", "buses": [{"bus": 1}], "devices": [
            {"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 7}]})",
                                   error);
        sim::Board::use(board_.get());
        tool::Endpoint endpoint;
        endpoint.name = "dev0";
        endpoint.binding_kind = MCTP_BINDING_KIND_SMBUS;
        endpoint.bus = 1;
        endpoint.address = 0x40;
        session_ = std::make_unique<Session>(endpoint);
        session_->discover();
    }
    ~SessionCause() override { sim::Board::use(nullptr); }

    /// Asks for the TID, which fails.
    Failure ask() {
        EXPECT_NE(pldm_get_tid(&session_->pldm()), 0);
        return session_->pldm_failure("GetTID");
    }
    void add_fault(const char* fault) {
        sim::BoardError error;
        ASSERT_TRUE(board_->add_fault("dev0", fault, error));
    }

    std::unique_ptr<sim::Board> board_;
    std::unique_ptr<Session> session_;
};

TEST_F(SessionCause, OfALockIsThatItWasRefused) {
    lx_mutex& bus = at_p_St_GlobalVar->bus_mutex[1];
    ASSERT_EQ(lx_mutex_get(&bus, 0), 0);  // the board grants no thread a lock twice
    const Failure failure = ask();
    EXPECT_STREQ(failure.what(), "dev0: GetTID failed: a lock was refused");
    EXPECT_EQ(failure_json(failure)["cause"], "lock-refused");
    ASSERT_EQ(lx_mutex_put(&bus), 0);
    EXPECT_EQ(pldm_get_tid(&session_->pldm()), 0);
}

TEST_F(SessionCause, OfMemoryIsAWordForPrograms) {
    pldm_ctx& terminus = session_->pldm();
    int32_t result = 0;
    {
        const test::NoMemory none;
        result = pldm_get_version(&terminus, 0);
    }
    ASSERT_NE(result, 0);
    const Failure failure = session_->pldm_failure("GetPLDMVersion");
    EXPECT_EQ(failure_json(failure)["cause"], "memory");
    EXPECT_FALSE(failure.code());
}

TEST_F(SessionCause, OfAnAnswerThatIsCutIsItsLength) {
    add_fault(R"({"kind": "truncate", "bytes": 2})");
    const Failure failure = ask();
    EXPECT_STREQ(failure.what(), "dev0: GetTID failed: the answer has 3 bytes only");
    EXPECT_EQ(failure_json(failure)["cause"], "malformed-answer");
}

/// Every cause has a word of its own, by which programs tell them apart.
TEST(CauseNames, AreAWordForEachCause) {
    std::set<std::string> words;
    for (uint8_t cause = SIDEBAND_CAUSE_ARGUMENT; cause <= SIDEBAND_CAUSE_SYSTEM; ++cause) {
        sideband_error error{};
        error.cause = cause;
        const std::string word = tool::cause_name(error);
        EXPECT_FALSE(word.empty()) << int{cause};
        EXPECT_EQ(word.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string::npos) << word;
        words.insert(word);
    }
    EXPECT_EQ(words.size(), size_t{SIDEBAND_CAUSE_SYSTEM});
    EXPECT_EQ(tool::cause_name({}), "");
}

}  // namespace

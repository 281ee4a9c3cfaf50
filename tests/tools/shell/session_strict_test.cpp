// SPDX-License-Identifier: Apache-2.0
// Tests of how strict the contexts of a session are.
#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include "sim/board/board.h"
#include "tools/shell/session.h"

namespace {

using tool::Endpoint;
using tool::Session;

/// An SMBus device on a board, and how strict sessions with it are.
class SessionStrict : public ::testing::Test {
protected:
    SessionStrict() {
        sim::BoardError error;
        board_ = sim::Board::parse(R"({"name": "bench", "buses": [{"bus": 1}], "devices": [
            {"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 7}]})",
                                   error);
        sim::Board::use(board_.get());
        endpoint_.name = "dev0";
        endpoint_.binding_kind = MCTP_BINDING_KIND_SMBUS;
        endpoint_.bus = 1;
        endpoint_.address = 0x40;
    }
    ~SessionStrict() override {
        Session::set_strict(0);
        sim::Board::use(nullptr);
    }

    std::unique_ptr<sim::Board> board_;
    Endpoint endpoint_;
};

TEST_F(SessionStrict, IsLaxUnlessSaidOtherwise) {
    Session session(endpoint_);
    session.discover();
    EXPECT_EQ(session.prototype().strict, 0U);
    EXPECT_EQ(session.pldm().mctp->strict, 0U);
}

TEST_F(SessionStrict, KeepsItsBitsThroughDiscoveryAndInTheContextsAbove) {
    Session::set_strict(MCTP_STRICT_ALL);
    Session session(endpoint_);
    EXPECT_EQ(session.prototype().strict, MCTP_STRICT_ALL);
    session.discover();
    EXPECT_EQ(session.prototype().strict, MCTP_STRICT_ALL);
    EXPECT_EQ(session.pldm().mctp->strict, MCTP_STRICT_ALL);
}

}  // namespace

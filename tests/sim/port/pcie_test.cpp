// SPDX-License-Identifier: Apache-2.0
// PCIe calls of a board without PCIe, and sessions of its driver.
#include <cerrno>

#include "port_fixture.h"

namespace {

using namespace sim_test;

TEST_F(Port, BoardWithoutPcieFailsPcieCalls) {
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE_READ;
    request.length = 3;
    EXPECT_EQ(PltMCTP_WriteRead(&request), -ENODEV);
    EXPECT_EQ(request.length, 3u);
    // The driver is there all the same: services open a session for any update.
    plt_pcie_session session{};
    EXPECT_EQ(libmctp_pcie_open(&session), 0);
    request.session = session.handle;
    EXPECT_EQ(PltMCTP_WriteRead(&request), -ENODEV);
    libmctp_pcie_close(&session);
}

TEST_F(Port, SessionsAreCounted) {
    plt_pcie_session first{};
    plt_pcie_session second{};
    EXPECT_EQ(libmctp_pcie_open(&first), 0);
    EXPECT_EQ(libmctp_pcie_open(&second), 0);
    EXPECT_NE(second.handle, nullptr);
    EXPECT_EQ(board->pcie_sessions().open, 2u);
    libmctp_pcie_close(&second);
    EXPECT_EQ(second.handle, nullptr);
    libmctp_pcie_close(&second);
    EXPECT_EQ(board->pcie_sessions().open, 1u);
    EXPECT_EQ(board->pcie_sessions().stray_closes, 1u);
    libmctp_pcie_close(&first);
    libmctp_pcie_close(nullptr);
    EXPECT_EQ(board->pcie_sessions().open, 0u);
    EXPECT_EQ(board->pcie_sessions().opened, 2u);
}

TEST_F(Port, SessionCanBeRefused) {
    plt_pcie_session session{&session};
    board->set_pcie_open_fails(true);
    EXPECT_NE(libmctp_pcie_open(&session), 0);
    EXPECT_EQ(session.handle, nullptr);
    EXPECT_EQ(board->pcie_sessions().refused, 1u);
    board->set_pcie_open_fails(false);
    EXPECT_EQ(libmctp_pcie_open(&session), 0);
    libmctp_pcie_close(&session);
    open(R"({"name": "t", "buses": [{"bus": 7}], "platform": {"pcie_open_fails": true}})");
    EXPECT_NE(libmctp_pcie_open(&session), 0);
}

}  // namespace

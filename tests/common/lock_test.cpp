// SPDX-License-Identifier: Apache-2.0
// The guards of platform mutexes: what they hold, and what they give back.
#include "common/lock.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/scripted_platform.h"

namespace {

using sideband::ChannelGuard;
using sideband::MutexGuard;
using test::port;
using Lines = std::vector<std::string>;

class Lock : public test::PlatformTest {
protected:
    lx_mutex& bus = port().global.bus_mutex[3];
};

TEST_F(Lock, AMutexIsHeldForItsScope) {
    {
        const MutexGuard guard(bus);
        EXPECT_TRUE(guard);
        EXPECT_EQ(port().held, Lines{"bus 3"});
    }
    EXPECT_EQ(port().trace, (Lines{"lock bus 3", "unlock bus 3"}));
}

TEST_F(Lock, AMutexThatIsRefusedIsNotGivenBack) {
    port().refused_locks = {"bus 3"};
    {
        const MutexGuard guard(bus);
        EXPECT_FALSE(guard);
    }
    EXPECT_EQ(port().trace_of({"unlock"}), Lines());
}

TEST_F(Lock, AChannelIsHeldForItsScope) {
    {
        const ChannelGuard guard(5);
        EXPECT_TRUE(guard);
        EXPECT_EQ(port().held, Lines{"channel 5"});
    }
    EXPECT_EQ(port().trace, (Lines{"lock channel 5", "unlock channel 5"}));
}

TEST_F(Lock, AChannelThatIsRefusedIsNotGivenBack) {
    port().refused_locks = {"channel 5"};
    {
        const ChannelGuard guard(5);
        EXPECT_FALSE(guard);
    }
    EXPECT_EQ(port().trace_of({"unlock"}), Lines());
}

TEST_F(Lock, AChannelThatIsNotWantedIsAsGoodAsHeld) {
    {
        const ChannelGuard guard(5, false);
        EXPECT_TRUE(guard);
    }
    EXPECT_EQ(port().trace, Lines());
}

}  // namespace

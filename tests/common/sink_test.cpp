// SPDX-License-Identifier: Apache-2.0
// Texts of the library that are led to a function, outlet by outlet, and where they go without it.
#include <sideband/debug_log.h>
#include <sideband/mctp.h>
#include <sideband/output.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/scripted_platform.h"

namespace {

using test::port;
using Lines = std::vector<std::string>;

/// Takes texts for as long as it stands: "outlet text".
class Taken {
public:
    explicit Taken(uint32_t outlets) { sideband_set_output(outlets, take, this); }
    ~Taken() { sideband_set_output(0, nullptr, nullptr); }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;

    std::string of(uint32_t outlet) const {
        std::string all;
        for (const auto& [from, text] : texts_) {
            all += from == outlet ? text : "";
        }
        return all;
    }

private:
    static void take(void* self, uint32_t outlet, const char* text, size_t length) {
        static_cast<Taken*>(self)->texts_.emplace_back(outlet, std::string(text, length));
    }

    std::vector<std::pair<uint32_t, std::string>> texts_;
};

constexpr char kDump[] =
    "[transport/mctp:42] Dumping Packets....\n===== mctp payload packets(len: 2)=====\n 01 ff\n"
    "===========================";

class Sink : public test::PlatformTest {
protected:
    /// Says something on each outlet.
    std::string speak() {
        test::Capture out(1);
        const uint8_t bytes[] = {0x01, 0xFF};
        dump_packets(2, bytes);
        debug_log("%s %d\n", "debug", 7);
        mctp_ctx ctx{};
        EXPECT_EQ(mctp_get_endpoint_uuid(&ctx), -1);
        return out.text();
    }
};

TEST_F(Sink, WithoutItTextsGoWhereTheyAlwaysWent) {
    EXPECT_EQ(speak(), kDump);
    EXPECT_EQ(port().syslog, Lines{"debug 7\n"});
    EXPECT_EQ(port().console, Lines{"fail to get mctp UUID\n"});
}

TEST_F(Sink, TakesAllOutlets) {
    const Taken taken(SIDEBAND_OUTLET_PRINTED | SIDEBAND_OUTLET_CONSOLE | SIDEBAND_OUTLET_DEBUG);
    EXPECT_EQ(speak(), "");
    EXPECT_EQ(port().syslog, Lines());
    EXPECT_EQ(port().console, Lines());
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_PRINTED), kDump);
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_CONSOLE), "fail to get mctp UUID\n");
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_DEBUG), "debug 7\n");
}

TEST_F(Sink, TakesOneOutletAndLeavesTheOthers) {
    {
        const Taken taken(SIDEBAND_OUTLET_CONSOLE);
        EXPECT_EQ(speak(), kDump);
        EXPECT_EQ(port().syslog, Lines{"debug 7\n"});
        EXPECT_EQ(port().console, Lines());
        EXPECT_EQ(taken.of(SIDEBAND_OUTLET_CONSOLE), "fail to get mctp UUID\n");
        EXPECT_EQ(taken.of(SIDEBAND_OUTLET_PRINTED), "");
    }
    EXPECT_EQ(speak(), kDump) << "led back";
    EXPECT_EQ(port().console, Lines{"fail to get mctp UUID\n"});
}

TEST_F(Sink, TakesTheDebugLogWhateverTheMarkersSay) {
    libc.present.clear();
    const Taken taken(SIDEBAND_OUTLET_DEBUG);
    const char* format = "%s%m";  // ISO C has no %m: the compiler must not look at it
    errno = ENOENT;
    debug_log(format, "");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_DEBUG), "No such file or directory");
    EXPECT_EQ(libc.calls["access"], 0);
}

TEST_F(Sink, AMessageThatHasNoBytesIsNotTaken) {
    const Taken taken(SIDEBAND_OUTLET_DEBUG);
    errno = ENOENT;
    debug_log("%ls\n", L"\U0010FFFF");  // no character of the locale "C"
    EXPECT_EQ(errno, ENOENT);
    debug_log("taken");
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_DEBUG), "taken");
}

TEST_F(Sink, TakesAMessageOfAnyLengthAndCutsItIfMemoryIsOut) {
    const std::string text(1000, 'x');
    {
        const Taken taken(SIDEBAND_OUTLET_DEBUG);
        debug_log("%s", text.c_str());
        EXPECT_EQ(taken.of(SIDEBAND_OUTLET_DEBUG), text);
    }
    const Taken taken(SIDEBAND_OUTLET_DEBUG);
    libc.fail_allocation(1);
    debug_log("%s", text.c_str());
    EXPECT_EQ(taken.of(SIDEBAND_OUTLET_DEBUG), text.substr(0, 255));
}

}  // namespace

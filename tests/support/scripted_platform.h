// SPDX-License-Identifier: Apache-2.0
// A platform library that does what a test wrote down, and writes down what was done to it.
#ifndef SIDEBAND_TESTS_SUPPORT_SCRIPTED_PLATFORM_H
#define SIDEBAND_TESTS_SUPPORT_SCRIPTED_PLATFORM_H

#include <gtest/gtest.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <deque>
#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/libc_patch.h"

namespace test {

/// One master write as it reached the platform.
struct WriteRecord {
    bool controller_pec = false;  ///< PltMCTPI2C_MasterWriteWithPEC_NoMutex, not the plain one
    plt_i2c_request request{};    ///< write_data is stale after the call: see bytes
    Bytes bytes;                  ///< write_length bytes from write_data
};

/// One slave read as it reached the platform.
struct ReadRecord {
    plt_i2c_request request{};
    uint32_t param = 0;
    bool buffer_was_zero = false;  ///< all PLT_I2C_READ_BUFFER_SIZE bytes
};

/**
 * What a slave read gives: bytes go to the buffer (at most its 1024), result to the caller. The
 * two need not agree.
 */
struct SlaveRead {
    int32_t result = -1;
    Bytes bytes;

    /// An honest block.
    static SlaveRead of(Bytes block_bytes);
    /// A failure.
    static SlaveRead failure(int32_t result = -1) { return {result, {}}; }
};

struct MuxRecord {
    plt_i2c_request request{};
    Bytes setting;  ///< the 48 bytes
};

/**
 * The platform of the test process; there is one, port(). Everything is a plain member: a test
 * writes the script before and reads the records after the call under test.
 *
 * Every call appends to trace: "lock bus 3", "unlock bus 3", "power", "standby policy", "address",
 * "mux", "write", "read", "pcie", "sleep 100000", "system cat ...", "shell ...", "channel lock 3",
 * "channel unlock 3", "progress", "attach", "card 65 2", "binding smbus 100", "open", "close". A
 * call that was made to fail has " fails" behind it.
 */
class ScriptedPlatform {
public:
    // ---- Script ----
    std::deque<int> write_results;  ///< next master writes; 0 once empty
    std::deque<SlaveRead> reads;    ///< next slave reads; on_read, then read_when_empty, once empty
    SlaveRead read_when_empty;      ///< default: -1
    std::function<void(const WriteRecord&)> on_write;      ///< sees each successful write
    std::function<SlaveRead(const ReadRecord&)> on_read;   ///< answers when reads is empty
    std::function<int(plt_pcie_request&)> on_pcie;         ///< default: returns 0
    std::function<uint8_t(const uint8_t*, uint8_t)> crc8;  ///< replaces the right CRC-8
    std::optional<uint8_t> bmc_address;   ///< GetBMCCtrAdd stores it; empty: leaves it alone
    std::optional<uint8_t> binding_kind;  ///< what the binding set-up chooses; empty: its own
    uint8_t i2c_channel = 3;              ///< GlobalParaInit
    uint8_t main_power = 1;
    int standby_policy_off = 0;           ///< GetS5stByPwrConfig
    std::set<std::string> refused_locks;  ///< names as in trace: "bus 3", "eid", "channel 3"
    int fail_call = 0;            ///< the n-th platform call that has a result fails; 0: none
    bool fail_following = false;  ///< ... and all calls behind it

    // ---- Records ----
    std::vector<std::string> trace;
    std::vector<WriteRecord> writes;
    std::vector<ReadRecord> slave_reads;
    std::vector<MuxRecord> muxes;
    std::vector<plt_pcie_request> pcie_requests;
    std::vector<std::vector<uint32_t>> register_reads;  ///< base, group, offset
    std::vector<std::string> syslog;
    std::vector<std::string> console;
    std::vector<std::string> shell_commands;
    std::vector<std::pair<uint32_t, unsigned>> progress;
    std::vector<std::string> held;        ///< locks held now, in the order taken
    std::vector<std::string> violations;  ///< wrong order, taken twice, released by a stranger
    int result_calls = 0;                 ///< platform calls that have a result, so far
    std::string failed_call;  ///< the first that was made to fail: "lock", "write", "mux", ...

    plt_global_var global{};
    plt_global_sec_var secure{};

    /// Back to an empty script and empty records, power on, all locks free.
    void reset();

    /// The trace entries that begin with one of the words.
    std::vector<std::string> trace_of(std::initializer_list<std::string_view> words) const;

    /// The MCTP packets that were written (SMBus header and software PEC taken off).
    std::vector<Bytes> written_packets() const;

    /// Queues MCTP packets as honest blocks from a device.
    void queue(const std::vector<Bytes>& packets);

    // ---- Platform functions only ----
    bool call_fails(const char* what);
    std::string name_of(const lx_mutex* mutex) const;
    int take(const std::string& name, const char* verb);
    int release(const std::string& name, const char* verb);
};

/// The platform of the process.
ScriptedPlatform& port();

/**
 * Fixture: a fresh port and a patched libc for each test, with the debug log switched on for the
 * system log (port().syslog). Afterwards no lock may be held nor any locking rule be broken.
 */
class PlatformTest : public ::testing::Test {
protected:
    PlatformTest();
    ~PlatformTest() override;

    void TearDown() override;

    /// Makes a temporary directory, with nv/ in it, stand for / in the library's file calls.
    const std::string& use_directory();

    LibcPatch libc;

private:
    std::string directory_;
};

/// A context for an SMBus endpoint, zeroed and filled: bus 3, address 0x64, src 8, dest 0x1D.
mctp_ctx smbus_context(uint8_t binding_kind = MCTP_BINDING_KIND_SMBUS);

/// A prototype whose every configuration member differs from zero.
mctp_ctx whole_configuration();

/// Expects an endpoint with the configuration of a prototype. Unit size, route and whether the
/// discovery is skipped are left to the caller: initialisers set them.
void expect_configured(const mctp_ctx& made, const mctp_ctx& config);

/// The same, initialised without discovery.
mctp_ctx ready_context(uint8_t binding_kind = MCTP_BINDING_KIND_SMBUS, uint8_t msg_type = 0);

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// The diagnostic log against other local processes: its lock held, something else in its place.
#include <fcntl.h>
#include <sideband/debug_log.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "common/debug_log_fixture.h"

namespace {

namespace fs = std::filesystem;
using test::DebugLog;
using Lines = std::vector<std::string>;

/// Logs a message. If that does not come to an end, release() must free it, and it is a failure.
void expect_to_end(const std::function<void()>& release) {
    using namespace std::chrono_literals;
    std::mutex mutex;
    std::condition_variable over;
    bool has_ended = false;
    std::thread logging([&] {
        debug_log("message\n");
        const std::lock_guard guard(mutex);
        has_ended = true;
        over.notify_one();
    });
    std::unique_lock lock(mutex);
    const bool in_time = over.wait_for(lock, 5s, [&] { return has_ended; });
    lock.unlock();
    if (!in_time) {
        release();
    }
    logging.join();
    EXPECT_TRUE(in_time);
}

class DebugLogIntruder : public DebugLog {
protected:
    void SetUp() override {
        DebugLog::SetUp();
        touch(DEBUG_LOG_FILE_MARKER);
    }
    void TearDown() override {
        if (descriptor >= 0) {
            close(descriptor);
        }
        EXPECT_EQ(libc.open_streams(), 0u);
        EXPECT_EQ(libc.open_descriptors(), 0u);
        DebugLog::TearDown();
    }

    /// Locks the log as another process would.
    void hold_lock() {
        descriptor = open(path(DEBUG_LOG_FILE).c_str(), O_RDONLY);
        ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    }

    void expect_only_in_system_log() const {
        EXPECT_EQ(test::port().syslog, (Lines{"message\n"}));
        EXPECT_EQ(libc.calls.count("fdopen"), 0u);
    }

    int descriptor = -1;  ///< of the test's own
};

TEST_F(DebugLogIntruder, ALockThatIsNeverReleasedIsGivenUpAndTheMessageWrittenAndRotated) {
    make_log(131072);
    hold_lock();
    const auto start = std::chrono::steady_clock::now();
    expect_to_end([this] { flock(descriptor, LOCK_UN); });
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(DEBUG_LOG_LOCK_WAIT_MS - 1));
    EXPECT_EQ(contents(DEBUG_LOG_FILE_ROTATED), std::string(131072, 'x') + "message\n");
    EXPECT_EQ(libc.calls["usleep"], 0) << "a wait that tests of sleeping would count";
    EXPECT_LE(libc.calls["flock"], DEBUG_LOG_LOCK_WAIT_MS + 10)
        << "a millisecond between two tries";
}

TEST_F(DebugLogIntruder, ALockThatIsReleasedInTimeIsTaken) {
    make_log(0);
    hold_lock();
    int tries = 0;
    libc.before["flock"] = [&] {
        EXPECT_TRUE(tries == 2 || contents(DEBUG_LOG_FILE).empty());
        if (++tries == 2) {
            flock(descriptor, LOCK_UN);
        }
    };
    expect_to_end([this] { flock(descriptor, LOCK_UN); });
    EXPECT_EQ(contents(DEBUG_LOG_FILE), "message\n");
    EXPECT_EQ(tries, 3) << "two tries, and the release";
}

/// Write calls of this process so far; empty if the system does not count them.
std::optional<long> write_calls() {
    std::ifstream counters("/proc/self/io");
    for (std::string line; std::getline(counters, line);) {
        if (line.starts_with("syscw: ")) {
            return std::stol(line.substr(7));
        }
    }
    return {};
}

TEST_F(DebugLogIntruder, AMessageOfAnyLengthIsOneWriteSoThatItNeedsNoLockToStayWhole) {
    if (!write_calls()) {
        GTEST_SKIP() << "the system does not count write calls";
    }
    for (const size_t length : {10u, 4999u, 20000u}) {
        const std::string text(length, 'a');
        long before = 0;
        long after = 0;
        libc.before["flock"] = [&] { before = before == 0 ? *write_calls() : before; };
        libc.before["fflush"] = [&] { after = *write_calls(); };
        debug_log("%s", text.c_str());
        EXPECT_EQ(after - before, 1) << length;
        EXPECT_TRUE(contents(DEBUG_LOG_FILE).ends_with(text));
    }
}

TEST_F(DebugLogIntruder, AFifoIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path(DEBUG_LOG_FILE).c_str(), 0600), 0);
    expect_to_end([this] { descriptor = open(path(DEBUG_LOG_FILE).c_str(), O_RDWR); });
    expect_only_in_system_log();
}

TEST_F(DebugLogIntruder, AFifoWithAReaderGetsNothing) {
    ASSERT_EQ(mkfifo(path(DEBUG_LOG_FILE).c_str(), 0600), 0);
    descriptor = open(path(DEBUG_LOG_FILE).c_str(), O_RDWR | O_NONBLOCK);
    debug_log("message\n");
    char byte = 0;
    EXPECT_EQ(read(descriptor, &byte, 1), -1);
    expect_only_in_system_log();
}

TEST_F(DebugLogIntruder, ASymbolicLinkIsNotFollowed) {
    std::ofstream(path("/nv/victim")) << "mine";
    fs::create_symlink(path("/nv/victim"), path(DEBUG_LOG_FILE));
    debug_log("message\n");
    EXPECT_EQ(contents("/nv/victim"), "mine");
    fs::remove(path("/nv/victim"));
    test::port().syslog.clear();
    debug_log("message\n");
    EXPECT_FALSE(exists("/nv/victim"));
    expect_only_in_system_log();
}

TEST_F(DebugLogIntruder, TheLogIsCreatedForItsOwnerAlone) {
    const mode_t former = umask(0);
    debug_log("message\n");
    umask(former);
    EXPECT_EQ(fs::status(path(DEBUG_LOG_FILE)).permissions(), fs::perms(0600));
}

TEST_F(DebugLogIntruder, TheLogIsClosedOnExec) {
    int seen = 0;
    libc.before["fflush"] = [&] {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            if (fs::read_symlink(entry, ignored) == path(DEBUG_LOG_FILE)) {
                const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
                EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC);
                ++seen;
            }
        }
    };
    debug_log("message\n");
    EXPECT_EQ(seen, 1);
}

}  // namespace

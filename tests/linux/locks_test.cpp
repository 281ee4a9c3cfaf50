// SPDX-License-Identifier: Apache-2.0
// Locks of a Linux machine: between threads, between processes, and of a process that was killed.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "machine_test.h"
#include "tests/support/robust_locks.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Calls of posix_fallocate() that a signal is to interrupt, and those that were.
int to_interrupt = 0;
int interrupted = 0;

}  // namespace

/// Stands in front of libc's.
extern "C" int posix_fallocate(int file, off_t offset, off_t length) {
    if (to_interrupt > 0) {
        --to_interrupt;
        ++interrupted;
        return EINTR;
    }
    using Function = int (*)(int, off_t, off_t);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, "posix_fallocate64"))(file, offset, length);
}

namespace {

class LinuxLocks : public machine_test::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        machine::use(board());
        ASSERT_TRUE(machine::in_use()->records.shared()) << machine::in_use()->records.trouble();
    }

    lx_mutex* bus(int number) { return &at_p_St_GlobalVar->bus_mutex[number]; }
};

int take(lx_mutex* mutex, int wait_ms = LX_MUTEX_WAIT_FOREVER) {
    return lx_mutex_get(mutex, wait_ms);
}

/// Runs a part of a test in a process of its own, which has opened the board by itself.
template <typename Part>
pid_t start_process(const machine::Board& board, Part part) {
    const pid_t child = fork();
    if (child == 0) {
        machine::use(board);
        part();
        _exit(0);
    }
    return child;
}

/// A pipe over which one process tells another that it has got somewhere.
class Signal {
public:
    Signal() { EXPECT_EQ(pipe(ends_), 0); }
    ~Signal() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    void give() { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
    void await() {
        char byte = 0;
        EXPECT_EQ(read(ends_[0], &byte, 1), 1);
    }

private:
    int ends_[2] = {-1, -1};
};

int status_of(pid_t child) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST_F(LinuxLocks, EveryOneCanBeTakenAndReleased) {
    const std::vector<lx_mutex*> outer{
        &at_p_St_GlobalVar->global_lock, &at_p_St_GlobalVar->ncsi_lock,
        &at_p_St_GlobalSecVar->mpio_mutex, &at_p_St_GlobalSecVar->eid_mutex};
    for (lx_mutex* mutex : outer) {
        EXPECT_EQ(take(mutex), 0);
    }
    for (int number = 0; number < PLT_I2C_BUS_COUNT; ++number) {
        EXPECT_EQ(take(bus(number)), 0);
        EXPECT_EQ(lx_mutex_put(bus(number)), 0);
    }
    for (lx_mutex* mutex : outer) {
        EXPECT_EQ(lx_mutex_put(mutex), 0);
    }
    for (int channel = 0; channel < PLT_I2C_BUS_COUNT; ++channel) {
        EXPECT_EQ(i2c_chnl_mutex_get(static_cast<uint8_t>(channel), 0), 0);
        EXPECT_EQ(i2c_chnl_mutex_put(static_cast<uint8_t>(channel)), 0);
    }
}

TEST_F(LinuxLocks, OneThatItsOwnThreadHoldsIsRefused) {
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_NE(take(bus(2)), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_NE(lx_mutex_put(bus(2)), 0) << "released twice";
}

TEST_F(LinuxLocks, OnlyItsOwnerReleasesOne) {
    EXPECT_EQ(take(bus(2)), 0);
    std::thread([this] { EXPECT_NE(lx_mutex_put(bus(2)), 0); }).join();
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

TEST_F(LinuxLocks, AWaitEndsAtItsTime) {
    EXPECT_EQ(take(bus(2)), 0);
    std::thread([this] {
        const Clock::time_point begin = Clock::now();
        EXPECT_NE(take(bus(2), 1050), 0);
        EXPECT_GE(Clock::now() - begin, milliseconds(1050));
        EXPECT_NE(take(bus(2), 0), 0);
    }).join();
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

TEST_F(LinuxLocks, ThreadsTakeTurns) {
    int inside = 0;
    std::atomic<int> most{0};
    const auto turns = [&] {
        for (int i = 0; i < 500; ++i) {
            ASSERT_EQ(take(bus(7)), 0);
            most = std::max(most.load(), ++inside);
            std::this_thread::yield();
            --inside;
            ASSERT_EQ(lx_mutex_put(bus(7)), 0);
        }
    };
    std::thread one(turns);
    std::thread other(turns);
    one.join();
    other.join();
    EXPECT_EQ(most, 1);
}

TEST_F(LinuxLocks, AnotherProcessWaits) {
    Signal waiting;
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(i2c_chnl_mutex_get(2, 0), 0);
    const pid_t child = start_process(board(), [&] {
        if (take(bus(2), 0) == 0 || i2c_chnl_mutex_get(2, 0) == 0 || take(bus(3), 0) != 0) {
            _exit(1);
        }
        waiting.give();
        _exit(take(bus(2)) == 0 && lx_mutex_put(bus(2)) == 0 ? 0 : 2);
    });
    waiting.await();
    EXPECT_EQ(i2c_chnl_mutex_put(2), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_EQ(status_of(child), 0);
}

TEST_F(LinuxLocks, OneOfAKilledProcessIsFreeAgain) {
    if (!test::frees_locks()) {
        GTEST_SKIP() << "an emulator without get_robust_list()";
    }
    Signal holding;
    const pid_t child = start_process(board(), [&] {
        if (take(bus(2)) == 0 && i2c_chnl_mutex_get(4, 0) == 0) {
            holding.give();
        }
        pause();
    });
    holding.await();
    EXPECT_NE(take(bus(2), 0), 0);
    EXPECT_EQ(kill(child, SIGKILL), 0);
    EXPECT_EQ(status_of(child), SIGKILL);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(take(bus(2), 0), 0);
        EXPECT_EQ(i2c_chnl_mutex_get(4, 0), 0);
        EXPECT_EQ(i2c_chnl_mutex_put(4), 0);
        EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    }
}

TEST_F(LinuxLocks, OneOfAProcessThatEndedIsFreeAgain) {
    if (!test::frees_locks()) {
        GTEST_SKIP() << "an emulator without get_robust_list()";
    }
    const pid_t child = start_process(board(), [&] { _exit(take(bus(2)) == 0 ? 0 : 1); });
    EXPECT_EQ(status_of(child), 0);
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

TEST_F(LinuxLocks, OneThatIsWaitedForPassesOnWhenItsOwnerIsKilled) {
    if (!test::frees_locks()) {
        GTEST_SKIP() << "an emulator without get_robust_list()";
    }
    Signal holding;
    const pid_t child = start_process(board(), [&] {
        if (take(&at_p_St_GlobalSecVar->eid_mutex) == 0) {
            holding.give();
        }
        pause();
    });
    holding.await();
    std::thread killer([child] {
        std::this_thread::sleep_for(milliseconds(50));
        kill(child, SIGKILL);
    });
    EXPECT_EQ(take(&at_p_St_GlobalSecVar->eid_mutex), 0);
    killer.join();
    EXPECT_EQ(status_of(child), SIGKILL);
    EXPECT_EQ(lx_mutex_put(&at_p_St_GlobalSecVar->eid_mutex), 0);
}

TEST_F(LinuxLocks, OneOfAThreadThatEndedIsFreeAgain) {
    if (!test::frees_locks()) {
        GTEST_SKIP() << "an emulator without get_robust_list()";
    }
    std::thread([this] { EXPECT_EQ(take(bus(2)), 0); }).join();
    EXPECT_EQ(take(bus(2), 0), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

/// Takes and releases all that an exchange and an assignment take, until it is killed.
[[noreturn]] void take_turns() {
    for (;;) {
        lx_mutex* const mutexes[] = {&at_p_St_GlobalVar->global_lock,
                                     &at_p_St_GlobalSecVar->eid_mutex,
                                     &at_p_St_GlobalVar->bus_mutex[2]};
        for (lx_mutex* mutex : mutexes) {
            if (take(mutex) != 0) {
                _exit(1);
            }
        }
        for (lx_mutex* mutex : {mutexes[2], mutexes[1], mutexes[0]}) {
            if (lx_mutex_put(mutex) != 0) {
                _exit(2);
            }
        }
    }
}

TEST_F(LinuxLocks, ThoseOfProcessesThatAreKilledAtAnyMomentCanBeTaken) {
    if (!test::frees_locks()) {
        GTEST_SKIP() << "an emulator without get_robust_list()";
    }
    constexpr unsigned kSeed = 20261122;
    std::mt19937 random(kSeed);
    std::vector<pid_t> children(4);
    for (pid_t& child : children) {
        child = start_process(board(), take_turns);
    }
    for (int kills = 0; kills < 100; ++kills) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        pid_t& child = children[random() % children.size()];
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(status_of(child), SIGKILL) << "seed " << kSeed << ", kill " << kills;
        child = start_process(board(), take_turns);
    }
    for (const pid_t child : children) {
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(status_of(child), SIGKILL);
    }
    for (lx_mutex* mutex : {&at_p_St_GlobalVar->global_lock, &at_p_St_GlobalSecVar->eid_mutex,
                            &at_p_St_GlobalVar->bus_mutex[2]}) {
        EXPECT_EQ(take(mutex, 0), 0);
        EXPECT_EQ(lx_mutex_put(mutex), 0);
    }
}

/// Whoever makes the lock file may be killed before it is whole: the next one makes it.
TEST_F(LinuxLocks, OfAFileWhoseMakersAreKilledCanBeTaken) {
    constexpr unsigned kSeed = 20261122;
    std::mt19937 random(kSeed);
    for (int round = 0; round < 40; ++round) {
        machine_test::Folder fresh;
        machine::Board other = board();
        other.run_folder = fresh.at("run");
        Signal begun;
        const pid_t child = fork();
        if (child == 0) {
            begun.give();
            machine::use(other);
            pause();
        }
        begun.await();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(status_of(child), SIGKILL);
        machine::use(other);
        EXPECT_TRUE(machine::in_use()->records.shared()) << machine::in_use()->records.trouble();
        for (lx_mutex* mutex : {&at_p_St_GlobalVar->global_lock, bus(0), bus(255)}) {
            EXPECT_EQ(take(mutex, 0), 0) << "seed " << kSeed << ", round " << round;
            EXPECT_EQ(lx_mutex_put(mutex), 0);
        }
    }
}

TEST_F(LinuxLocks, OfAFileAreForAGroupWhateverTheUmask) {
    machine_test::Folder fresh;
    machine::Board other = board();
    other.run_folder = fresh.at("run");
    const mode_t before = umask(0077);
    machine::use(other);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(fresh.at("run/locks").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660U);
    // Who comes later leaves it as its owner wants it.
    ASSERT_EQ(chmod(fresh.at("run/locks").c_str(), 0600), 0);
    machine::use(other);
    ASSERT_EQ(stat(fresh.at("run/locks").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(LinuxLocks, OfAFileThatThereIsNoRoomForCannotBeTaken) {
    machine_test::Folder fresh;
    machine::Board other = board();
    other.run_folder = fresh.path();
    const pid_t child = fork();
    if (child == 0) {
        if (!machine_test::mount_own(fresh.path(), "size=8k")) {
            _exit(machine_test::kNoMount);
        }
        machine::use(other);
        const bool refused = !machine::in_use()->records.shared() &&
                             machine::in_use()->records.trouble() ==
                                 fresh.at("locks") + ": No space left on device" &&
                             take(bus(2), 0) != 0;
        _exit(refused ? 0 : 1);
    }
    const int status = status_of(child);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) == machine_test::kNoMount) {
        GTEST_SKIP() << "nothing can be mounted here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

/// A signal comes while another process makes the file.
TEST_F(LinuxLocks, AreThereThoughASignalCameMeanwhile) {
    machine_test::Folder fresh;
    machine::Board other = board();
    other.run_folder = fresh.path();
    const int file = open(fresh.at("locks").c_str(), O_RDWR | O_CREAT, 0660);
    ASSERT_GE(file, 0);
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    struct sigaction handled {};
    struct sigaction before {};
    handled.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &handled, &before), 0);
    const pthread_t waits = pthread_self();
    std::thread other_process([&] {
        for (int i = 0; i < 5; ++i) {
            std::this_thread::sleep_for(milliseconds(20));
            pthread_kill(waits, SIGUSR1);
        }
        close(file);
    });
    machine::use(other);
    other_process.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_TRUE(machine::in_use()->records.shared()) << machine::in_use()->records.trouble();
}

/// A signal comes while the file system makes room for the file.
TEST_F(LinuxLocks, AreThereThoughASignalInterruptedTheFilesMaking) {
    machine_test::Folder fresh;
    machine::Board other = board();
    other.run_folder = fresh.path();
    interrupted = 0;
    to_interrupt = 2;
    machine::use(other);
    EXPECT_EQ(interrupted, 2);
    EXPECT_TRUE(machine::in_use()->records.shared()) << machine::in_use()->records.trouble();
}

TEST_F(LinuxLocks, OnlyThoseOfTheRecordsAreTaken) {
    lx_mutex own{};
    EXPECT_NE(take(&own), 0);
    EXPECT_NE(lx_mutex_put(&own), 0);
    EXPECT_NE(take(nullptr), 0);
    auto* const askew = reinterpret_cast<lx_mutex*>(reinterpret_cast<char*>(bus(2)) + 8);
    EXPECT_NE(take(askew), 0);
    machine::use_none();
    EXPECT_NE(i2c_chnl_mutex_get(2, 0), 0);
    EXPECT_NE(take(&at_p_St_GlobalVar->global_lock), 0);
}

TEST_F(LinuxLocks, ProcessesShareTheRecords) {
    at_p_St_GlobalVar->next_eid = 77;
    const pid_t child = start_process(board(), [] {
        const bool seen = at_p_St_GlobalVar->next_eid == 77;
        at_p_St_GlobalVar->nvme_fw_update_status = 42;
        _exit(seen ? 0 : 1);
    });
    EXPECT_EQ(status_of(child), 0);
    EXPECT_EQ(at_p_St_GlobalVar->nvme_fw_update_status, 42);
}

TEST_F(LinuxLocks, ManyProcessesMayOpenAtOnce) {
    machine_test::Folder fresh;
    machine::Board other = board();
    other.run_folder = fresh.at("run");
    std::vector<pid_t> children;
    for (int i = 0; i < 8; ++i) {
        children.push_back(start_process(other, [] {
            for (int round = 0; round < 50; ++round) {
                if (take(&at_p_St_GlobalVar->global_lock) != 0) {
                    _exit(1);
                }
                ++at_p_St_GlobalVar->next_eid;
                lx_mutex_put(&at_p_St_GlobalVar->global_lock);
            }
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(status_of(child), 0);
    }
    machine::use(other);
    EXPECT_EQ(at_p_St_GlobalVar->next_eid, static_cast<uint8_t>(8 * 50));
}

class LockFile : public machine_test::MachineTest {
protected:
    /// What the first lock says that is wanted.
    std::string trouble() {
        machine::use(board());
        EXPECT_FALSE(machine::in_use()->records.shared());
        EXPECT_NE(take(&at_p_St_GlobalVar->global_lock), 0);
        EXPECT_NE(i2c_chnl_mutex_get(0, 0), 0);
        EXPECT_EQ(console.size(), 1U) << "told once";
        return console.empty() ? "" : console.front();
    }
};

TEST_F(LockFile, OfAnotherVersionIsNotUsed) {
    std::filesystem::create_directory(folder.at("run"));
    machine_test::write_file(folder.at("run/locks"), std::string(sizeof(machine::Records), 'x'));
    EXPECT_EQ(trouble(),
              "locks: " + folder.at("run/locks") + ": is not the lock file of this version");
    EXPECT_EQ(machine_test::content_of(folder.at("run/locks")),
              std::string(sizeof(machine::Records), 'x'));
}

TEST_F(LockFile, OfAnotherSizeIsNotUsed) {
    std::filesystem::create_directory(folder.at("run"));
    machine_test::write_file(folder.at("run/locks"), "text");
    EXPECT_EQ(trouble(),
              "locks: " + folder.at("run/locks") + ": is not the lock file of this version");
}

TEST_F(LockFile, ThatSomebodyBeganAndDidNotFinishIsMadeAnew) {
    std::filesystem::create_directory(folder.at("run"));
    machine_test::write_file(folder.at("run/locks"), std::string(sizeof(machine::Records), '\0'));
    machine::use(board());
    EXPECT_TRUE(machine::in_use()->records.shared());
    EXPECT_EQ(take(&at_p_St_GlobalVar->global_lock), 0);
    EXPECT_EQ(lx_mutex_put(&at_p_St_GlobalVar->global_lock), 0);
}

TEST_F(LockFile, IsNoLink) {
    std::filesystem::create_directory(folder.at("run"));
    std::filesystem::create_symlink(folder.at("elsewhere"), folder.at("run/locks"));
    EXPECT_EQ(trouble(),
              "locks: " + folder.at("run/locks") + ": Too many levels of symbolic links");
    EXPECT_FALSE(std::filesystem::exists(folder.at("elsewhere")));
}

TEST_F(LockFile, WithoutItsFolderThereAreNoLocksButRecords) {
    machine_test::write_file(folder.at("run"), "a file");
    EXPECT_EQ(trouble(), "locks: " + folder.at("run/locks") + ": Not a directory");
    at_p_St_GlobalVar->next_eid = 9;
    EXPECT_EQ(at_p_St_GlobalVar->next_eid, 9);
}

TEST_F(LockFile, IsWhereTheEnvironmentSaysIfItDoes) {
    setenv(machine::kRunFolderVariable, folder.at("other").c_str(), 1);
    machine::use(board());
    unsetenv(machine::kRunFolderVariable);
    EXPECT_TRUE(std::filesystem::exists(folder.at("other/locks")));
    EXPECT_FALSE(std::filesystem::exists(folder.at("run")));
}

}  // namespace

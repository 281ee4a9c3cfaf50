// SPDX-License-Identifier: Apache-2.0
// Threads and processes of services on the port to copy: buses side by side, owners that are
// killed.
#include <gtest/gtest.h>
#include <sideband/output.h>
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "support/robust_locks.h"
#include "threads_board.h"

namespace {

using test::kSlowBuses;
using test::kSlowEndpoints;
using test::slow_board;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Nobody reads what the library says of every packet.
void keep_quiet() {
    sideband_set_output(
        SIDEBAND_OUTLET_PRINTED, [](void*, uint32_t, const char*, size_t) {}, nullptr);
}

class SlowBuses : public ::testing::Test {
protected:
    void SetUp() override {
        plt_parameters parameters{};
        ASSERT_NE(GlobalParaInit(&parameters), 0);
        keep_quiet();
        slow_board().transfer_us = 0;
        slow_board().stuck_bus = 0xFFFF;
        slow_board().stuck = 0;
        slow_board().collisions = 0;
        for (auto& bus : slow_board().eids) {
            std::fill(bus.begin(), bus.end(), 0);
        }
        at_p_St_GlobalVar->next_eid = 0;
    }
    void TearDown() override { sideband_set_output(0, nullptr, nullptr); }
};

using Throughput = SlowBuses;
using Processes = SlowBuses;

class KilledProcesses : public SlowBuses {
protected:
    void SetUp() override {
        SlowBuses::SetUp();
        if (!test::frees_locks()) {
            GTEST_SKIP() << "an emulator without get_robust_list()";
        }
    }
};

/// Reads sensors of one endpoint, each once. @return how many readings were wrong
int poll(size_t bus, size_t endpoint, int readings) {
    const mctp_ctx config = test::slow_context(bus, endpoint);
    pldm_ctx terminus{};
    if (pldm_terminus_init(&terminus, &config) != 0) {
        return readings;
    }
    int wrong = 0;
    for (int i = 0; i < readings; ++i) {
        const auto sensor = static_cast<uint16_t>(i + 1);
        uint32_t reading = 0;
        const bool right = pldm_get_sensor_reading(&terminus, sensor, &reading) == 0 &&
                           reading == test::slow_reading(config.bus, config.slave_addr, sensor);
        wrong += right ? 0 : 1;
    }
    pldm_terminus_deinit(&terminus);
    return wrong;
}

/// Runs a part in so many threads. @return the sum of what they give
template <typename Part>
int run_threads(size_t count, Part part) {
    std::vector<int> results(count, 0);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] { results[i] = part(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    int sum = 0;
    for (const int result : results) {
        sum += result;
    }
    return sum;
}

// ---- Throughput ----

constexpr int kReadings = 96;

/// How long it takes to read so many sensors, by so many threads on so many buses.
double seconds_for(size_t buses, size_t threads) {
    std::vector<pldm_ctx> termini(threads);
    for (size_t i = 0; i < threads; ++i) {
        const mctp_ctx config = test::slow_context(i % buses, i / buses);
        EXPECT_EQ(pldm_terminus_init(&termini[i], &config), 0);
    }
    const Clock::time_point begin = Clock::now();
    const int wrong = run_threads(threads, [&](size_t i) {
        int failed = 0;
        for (size_t n = 0; n < kReadings / threads; ++n) {
            uint32_t reading = 0;
            failed += pldm_get_sensor_reading(&termini[i], 1, &reading) == 0 ? 0 : 1;
        }
        return failed;
    });
    const std::chrono::duration<double> taken = Clock::now() - begin;
    EXPECT_EQ(wrong, 0);
    for (pldm_ctx& terminus : termini) {
        pldm_terminus_deinit(&terminus);
    }
    return taken.count();
}

/// A millisecond; more where sixteen threads take long to start, as under an emulator: a turn of
/// theirs is twelve transfers, and may take half as long again.
uint32_t transfer_us() {
    slow_board().transfer_us = 0;
    const double start_us = 1e6 * seconds_for(16, 16);
    return static_cast<uint32_t>(std::clamp(start_us / 3, 1000.0, 20000.0));
}

TEST_F(Throughput, GrowsWithTheBuses) {
    const uint32_t transfer = transfer_us();
    slow_board().transfer_us = transfer;
    const double one_bus_s = 2e-6 * transfer * kReadings;  // a reading is a write and a read
    std::map<size_t, double> best;
    const auto in_time = [&](size_t buses) {
        return best[buses] <= 1.5 * one_bus_s / static_cast<double>(buses);
    };
    for (const size_t buses : {1U, 2U, 4U, 8U, 16U}) {
        best[buses] = seconds_for(buses, buses);
        // Where a machine has other things to do a turn takes longer. One that has not, does not.
        for (int again = 0; again < 40 && !in_time(buses); ++again) {
            best[buses] = std::min(best[buses], seconds_for(buses, buses));
        }
        std::printf("%2zu buses, %u us a transfer: %6.0f readings/s\n", buses, transfer,
                    kReadings / best[buses]);
        EXPECT_TRUE(in_time(buses)) << buses << " buses: " << best[buses] << " s";
        EXPECT_GE(best[buses], one_bus_s / static_cast<double>(buses)) << "faster than the wire";
    }
    EXPECT_EQ(slow_board().collisions, 0U);
}

TEST_F(Throughput, OfOneBusIsWhatItsWireCarries) {
    const uint32_t transfer = transfer_us();
    slow_board().transfer_us = transfer;
    for (const size_t threads : {1U, 4U, 8U}) {
        const double taken = seconds_for(1, threads);
        EXPECT_GE(taken, 2e-6 * transfer * kReadings) << threads << " threads";
    }
    EXPECT_EQ(slow_board().collisions, 0U);
}

/// Without a wire to wait for: what the machine has, for whoever reads the figures.
TEST_F(Throughput, WithoutAWireIsTheProcessors) {
    constexpr int kEach = 2000;
    for (const size_t buses : {1U, 2U, 4U, 8U, 16U}) {
        const Clock::time_point begin = Clock::now();
        EXPECT_EQ(run_threads(buses, [](size_t bus) { return poll(bus, 0, kEach); }), 0);
        const std::chrono::duration<double> taken = Clock::now() - begin;
        std::printf("%2zu buses, no wire: %8.0f readings/s\n", buses,
                    static_cast<double>(kEach * buses) / taken.count());
    }
}

// ---- Processes ----

/// A process of its own that ends with the result of a part of the test.
template <typename Part>
pid_t start_process(Part part) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        _exit(part() == 0 ? 0 : 1);
    }
    return child;
}

int status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

TEST_F(Processes, AndThreadsShareBusesWithoutMixingAnswers) {
    slow_board().transfer_us = 20;
    std::vector<pid_t> children;
    for (size_t process = 0; process < 4; ++process) {
        children.push_back(start_process([process] {
            return run_threads(8, [&](size_t bus) { return poll(bus, (process + bus) % 2, 100); });
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(status_of(child), 0);
    }
    EXPECT_EQ(slow_board().collisions, 0U);
}

TEST_F(Processes, AssigningAtOnceGiveNoEidTwice) {
    slow_board().transfer_us = 20;
    std::vector<pid_t> children;
    for (size_t process = 0; process < 4; ++process) {
        children.push_back(start_process([process] {
            return run_threads(8, [&](size_t thread) {
                int failed = 0;
                for (const size_t bus : {thread, thread + 8}) {
                    mctp_ctx context = test::slow_context(bus, process);
                    failed += mctp_init2(&context) == 0 ? 0 : 1;
                }
                return failed;
            });
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(status_of(child), 0);
    }
    std::multiset<int> eids;
    for (size_t bus = 0; bus < kSlowBuses; ++bus) {
        for (size_t endpoint = 0; endpoint < 4; ++endpoint) {
            eids.insert(slow_board().eids[bus][endpoint]);
        }
    }
    EXPECT_EQ(std::set<int>(eids.begin(), eids.end()).size(), 4 * kSlowBuses);
    EXPECT_EQ(*eids.begin(), 16);
    EXPECT_EQ(*eids.rbegin(), 16 + 4 * static_cast<int>(kSlowBuses) - 1);
    EXPECT_EQ(slow_board().collisions, 0U);
}

/// Waits until a process is in the middle of a transfer.
void wait_for_transfer() {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(60);
    while (slow_board().stuck == 0 && Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    ASSERT_EQ(slow_board().stuck, 1);
}

void kill_in_transfer(pid_t child) {
    EXPECT_EQ(slow_board().stuck, 1) << "nobody else";
    slow_board().stuck_bus = 0xFFFF;
    EXPECT_EQ(kill(child, SIGKILL), 0);
}

TEST_F(KilledProcesses, InATransferLeaveTheirBusToTheOthers) {
    slow_board().stuck_bus = 3;
    const pid_t child = start_process([] { return poll(3, 0, 1); });
    ASSERT_NO_FATAL_FAILURE(wait_for_transfer());
    std::thread waiting([] { EXPECT_EQ(poll(3, 1, 20), 0); });
    std::thread elsewhere([] { EXPECT_EQ(poll(4, 1, 20), 0) << "no wait for another bus"; });
    elsewhere.join();
    kill_in_transfer(child);
    EXPECT_EQ(status_of(child), SIGKILL);
    waiting.join();
    EXPECT_EQ(poll(3, 0, 20), 0);
    EXPECT_EQ(lx_mutex_get(&at_p_St_GlobalVar->bus_mutex[3], 0), 0);
    EXPECT_EQ(lx_mutex_put(&at_p_St_GlobalVar->bus_mutex[3]), 0);
}

TEST_F(KilledProcesses, InAnAssignmentLeaveThePoolToTheOthers) {
    mctp_ctx early = test::slow_context(1, 0);
    ASSERT_EQ(mctp_init2(&early), 0);
    slow_board().stuck_bus = 5;
    const pid_t child = start_process([] {
        mctp_ctx context = test::slow_context(5, 0);
        context.skip_discovery = 1;
        return mctp_init2(&context) != 0 || mctp_assign_eid(&context) < 0;
    });
    ASSERT_NO_FATAL_FAILURE(wait_for_transfer());
    kill_in_transfer(child);
    EXPECT_EQ(status_of(child), SIGKILL);
    const int failed = run_threads(8, [](size_t bus) {
        mctp_ctx context = test::slow_context(bus, 1);
        return mctp_init2(&context) == 0 ? 0 : 1;
    });
    EXPECT_EQ(failed, 0);
    std::set<int> eids{slow_board().eids[1][0]};
    for (size_t bus = 0; bus < 8; ++bus) {
        eids.insert(slow_board().eids[bus][1]);
    }
    EXPECT_EQ(eids.size(), 9U);
}

/// Children that ask everybody, and are killed wherever they are, beside one that is not.
TEST_F(KilledProcesses, AtAnyMomentHinderNobody) {
    constexpr unsigned kSeed = 20261122;
    constexpr int kKills = 60;
    std::mt19937 random(kSeed);
    slow_board().transfer_us = 50;
    const auto everybody = [] {
        return run_threads(8, [](size_t bus) { return poll(bus, bus % kSlowEndpoints, 1000000); });
    };
    std::vector<pid_t> children{start_process(everybody), start_process(everybody)};
    for (int kills = 0; kills < kKills; ++kills) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        pid_t& child = children[random() % children.size()];
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(status_of(child), SIGKILL) << "it had not ended by itself";
        child = start_process(everybody);
        ASSERT_EQ(poll(random() % 8, 7, 1), 0) << "behind kill " << kills << ", seed " << kSeed;
    }
    for (const pid_t child : children) {
        EXPECT_EQ(kill(child, SIGKILL), 0);
        EXPECT_EQ(status_of(child), SIGKILL);
    }
    for (size_t bus = 0; bus < 8; ++bus) {
        EXPECT_EQ(poll(bus, 0, 10), 0);
        EXPECT_EQ(lx_mutex_get(&at_p_St_GlobalVar->bus_mutex[bus], 0), 0);
        EXPECT_EQ(lx_mutex_put(&at_p_St_GlobalVar->bus_mutex[bus]), 0);
    }
    EXPECT_EQ(lx_mutex_get(&at_p_St_GlobalSecVar->eid_mutex, 0), 0);
    EXPECT_EQ(lx_mutex_put(&at_p_St_GlobalSecVar->eid_mutex), 0);
}

}  // namespace

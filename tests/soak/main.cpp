// SPDX-License-Identifier: Apache-2.0
// The soak test: services at work on a board of a hundred endpoints for a day of virtual time.
#include <malloc.h>
#include <sideband/output.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "services.h"

namespace {

using soak::Options;
using soak::Services;
using soak::Tally;

constexpr const char* kUsage =
    "usage: soak [--hours H] [--seed N] [--update-every SECONDS] [--as-deployed]\n"
    "  --as-deployed  contexts without the strict bits: wrong readings are counted and nothing "
    "more\n";

/// What of the process must not grow.
struct Footprint {
    size_t heap = 0;  ///< bytes allocated and not freed; 0 under a sanitizer, which does not say
    size_t resident_kib = 0;
    size_t descriptors = 0;
};

Footprint footprint() {
    Footprint now;
    now.heap = mallinfo2().uordblks;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            now.resident_kib = std::strtoul(line.c_str() + std::strlen("VmRSS:"), nullptr, 10);
        }
    }
    const std::filesystem::directory_iterator all("/proc/self/fd");
    now.descriptors = static_cast<size_t>(std::distance(begin(all), end(all)));
    return now;
}

void print(const char* what, const Tally& tally) {
    std::printf(
        "%-9s %8llu right, %llu failed with a cause, %llu wrong, %llu failed without a "
        "cause, %llu failed without a fault\n",
        what, static_cast<unsigned long long>(tally.right),
        static_cast<unsigned long long>(tally.failed), static_cast<unsigned long long>(tally.wrong),
        static_cast<unsigned long long>(tally.without_cause),
        static_cast<unsigned long long>(tally.without_a_fault));
    for (const auto& [cause, count] : tally.causes) {
        sideband_error error{};
        error.cause = static_cast<uint8_t>(cause);
        char text[128] = "";
        sideband_error_text(&error, text, sizeof text);
        std::printf("          %llu: %s\n", static_cast<unsigned long long>(count), text);
    }
}

void print(const char* when, const Footprint& at) {
    const std::string heap = at.heap != 0 ? std::to_string(at.heap) + " bytes" : "not known";
    std::printf("%-22s heap %s, resident %zu KiB, %zu descriptors\n", when, heap.c_str(),
                at.resident_kib, at.descriptors);
}

/// @return whether the process is as large as it was when everything had happened
bool flat(const Footprint& warm, const Footprint& end) {
    constexpr size_t kHeapSlack = 4096;
    constexpr size_t kResidentSlackKib = 2048;
    const bool heap_known = warm.heap != 0;
    return (!heap_known || end.heap <= warm.heap + kHeapSlack) &&
           (!heap_known || end.resident_kib <= warm.resident_kib + kResidentSlackKib) &&
           end.descriptors == warm.descriptors;
}

bool read_options(int count, char** arguments, Options& options) {
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name == "--as-deployed") {
            options.as_deployed = true;
            continue;
        }
        if (i + 1 == count) {
            return false;
        }
        char* end = nullptr;
        const double value = std::strtod(arguments[++i], &end);
        if (*end != '\0' || end == arguments[i] || value < 0) {
            return false;
        }
        if (name == "--hours") {
            options.hours = value;
        } else if (name == "--seed") {
            options.seed = static_cast<unsigned>(value);
        } else if (name == "--update-every") {
            options.update_every_s = static_cast<unsigned>(value);
        } else {
            return false;
        }
    }
    return options.update_every_s > 0;
}

/// Every virtual second, from the first to the last; one that is late begins at once.
/// @return the footprint when each drive has its second image, or of the start if none comes so far
Footprint run(sim::Board& board, Services& services, const Options& options) {
    constexpr uint64_t kSecondUs = 1'000'000;
    constexpr uint64_t kWarmUpdates = 2 * soak::kDrives;
    const auto seconds = static_cast<uint64_t>(options.hours * 3600);
    const uint64_t begin_us = board.now_us();
    Footprint warm = footprint();
    for (uint64_t second = 0; second < seconds; ++second) {
        const uint64_t due_us = begin_us + second * kSecondUs;
        if (board.now_us() < due_us) {
            board.advance_us(due_us - board.now_us());
        }
        services.read_sensors();
        if (second % 60 == 30) {
            services.poll_drives();
        }
        if (second % options.update_every_s == options.update_every_s - 1) {
            services.update();
            if (services.updates.all() == kWarmUpdates) {
                warm = footprint();
            }
        }
    }
    return warm;
}

bool judge(const sim::Board& board, const Services& services, const Options& options) {
    print("readings", services.readings);
    print("polls", services.polls);
    print("updates", services.updates);
    std::printf("faults    %llu, seed %u\n", static_cast<unsigned long long>(services.faults),
                options.seed);
    const sim::LockReport locks = board.lock_report();
    std::printf("locks     %zu held, %zu misused\n", locks.held.size(), locks.violations.size());
    const bool all_good =
        services.readings.good() && services.polls.good() && services.updates.good();
    return (all_good || options.as_deployed) && locks.held.empty() && locks.violations.empty() &&
           services.readings.right != 0 && services.polls.right != 0 && services.updates.right != 0;
}

}  // namespace

int main(int count, char** arguments) {
    Options options;
    if (!read_options(count, arguments, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    sim::BoardError error;
    const std::unique_ptr<sim::Board> board = sim::Board::parse(soak::board_text(), error);
    if (board == nullptr) {
        std::fprintf(stderr, "%s\n", error.message("board").c_str());
        return 2;
    }
    sim::Board::use(board.get());
    // What the library prints of every packet would take longer than the packets.
    sideband_set_output(
        SIDEBAND_OUTLET_PRINTED | SIDEBAND_OUTLET_CONSOLE,
        [](void*, uint32_t, const char*, size_t) {}, nullptr);
    bool good = false;
    {
        Services services(*board, options);
        if (!services.start()) {
            std::fprintf(stderr, "an endpoint does not come up\n");
            return 1;
        }
        const auto begin = std::chrono::steady_clock::now();
        const Footprint warm = run(*board, services, options);
        const Footprint end = footprint();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        good = judge(*board, services, options) && flat(warm, end);
        print("after the warm-up:", warm);
        print("at the end:", end);
        std::printf("%.2f virtual hours in %.1f s; %.2f us a reading, everything else included\n",
                    static_cast<double>(board->now_us()) / 3.6e9, taken.count(),
                    1e6 * taken.count() / static_cast<double>(services.readings.all()));
    }
    sim::Board::use(nullptr);
    std::puts(good ? "soak: good" : "soak: NOT good");
    return good ? 0 : 1;
}

// SPDX-License-Identifier: Apache-2.0
// What belongs to no protocol: the log, the outlets, texts of failures, the version.
#include <sideband/debug_log.h>
#include <sideband/output.h>
#include <sideband/version.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "faults.h"
#include "scenario.h"

namespace sweep {
namespace {

const std::string kDevice = R"({"name": "dev", "type": "pldm", "bus": 2, "address": "0x64"})";

std::filesystem::path log_file() {
    return std::filesystem::path(own_nv()) / "debug.log";
}
std::filesystem::path former_log_file() {
    return std::filesystem::path(own_nv()) / "debug.log.0";
}

/// The last line of the log file, or of the one before if it has just been rotated.
std::string last_line(const World&) {
    for (const auto& path : {log_file(), former_log_file()}) {
        std::ifstream file(path);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!text.empty()) {
            const std::string whole = text.substr(0, text.size() - 1);
            return whole.substr(whole.rfind('\n') + 1);
        }
    }
    return "";
}

void fill_log(size_t size) {
    std::filesystem::remove(log_file());
    std::filesystem::remove(former_log_file());
    std::ofstream(log_file()) << std::string(size, 'x') << "\n";
}

void open_with_markers(World& world) {
    open_device(world, kDevice);
    run_shellcmd("touch /nv/ConsoleLogEn");
    run_shellcmd("touch /nv/DebugLogEn");
    fill_log(10);
}
void empty_log(World&) {
    fill_log(10);
}
void busy_log(World&) {
    fill_log(10);
    Faults::keep_lock_busy(1);
}
void open_with_busy_log(World& world) {
    open_with_markers(world);
    busy_log(world);
}
void full_log(World&) {
    fill_log(DEBUG_LOG_ROTATE_SIZE);
}
void open_with_full_log(World& world) {
    open_with_markers(world);
    fill_log(DEBUG_LOG_ROTATE_SIZE);
}

int64_t log_shortly(World&) {
    debug_log("%s\n", "a message");
    return 0;
}
int64_t log_at_length(World&) {
    debug_log("%s\n", std::string(400, 'y').c_str());
    return 0;
}

/// A message that cannot be written is lost, and nobody is told. Of a long one the beginning stays.
Scenario logging(const char* way, void (*set_up)(World&), int64_t (*call)(World&),
                 void (*again)(World&)) {
    return {.function = "debug_log",
            .way = way,
            .set_up = set_up,
            .call = call,
            .stored = last_line,
            .again = again,
            .failures = {0},
            .keeps_parts = true,
            // The size, without which it is not rotated.
            .does_without = {"fstat"},
            .leaves_stream = true};
}

std::string taken;
void take(void* /*context*/, uint32_t /*outlet*/, const char* text, size_t length) {
    taken.append(text, length);
}

int64_t lead_and_log(World&) {
    taken.clear();
    sideband_set_output(SIDEBAND_OUTLET_DEBUG, take, nullptr);
    debug_log("%s\n", std::string(400, 'y').c_str());
    sideband_set_output(0, nullptr, nullptr);
    return 0;
}

constexpr sideband_error kError{
    SIDEBAND_CAUSE_DEVICE, SIDEBAND_CODE_NCSI, SIDEBAND_STEP_NCSI, 1, 3, 4};

/// @return 0; 1 if no NUL ends the text
int64_t text_of_error(World& world) {
    constexpr size_t kSize = 128;
    char* const text = reinterpret_cast<char*>(world.room.data());
    std::fill_n(text, kSize, 'z');
    sideband_error_text(&kError, text, kSize);
    return strnlen(text, kSize) < kSize ? 0 : 1;
}

}  // namespace

std::vector<Scenario> text_scenarios() {
    return {
        logging("a short message", open_with_markers, log_shortly, empty_log),
        logging("a long message", open_with_markers, log_at_length, empty_log),
        logging("locked by others", open_with_busy_log, log_shortly, busy_log),
        logging("rotated", open_with_full_log, log_shortly, full_log),
        {.function = "sideband_set_output",
         .call = lead_and_log,
         .stored = [](const World&) { return taken; },
         .again = [](World&) { taken.clear(); },
         .failures = {0},
         .keeps_parts = true},
        {.function = "sideband_error_text",
         .call = text_of_error,
         .stored =
             [](const World& world) {
                 return std::string(reinterpret_cast<const char*>(world.room.data()));
             },
         .failures = {0},
         .keeps_parts = true},
        {.function = "sideband_version",
         .call = [](World&) -> int64_t { return sideband_version()[0]; }},
    };
}

}  // namespace sweep

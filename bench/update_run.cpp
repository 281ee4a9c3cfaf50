// SPDX-License-Identifier: Apache-2.0
// What a firmware update costs: updates of a device on the simulated board, each in a process of
// its own, and a table of processor time, memory, system calls and bus time.
#include <sideband/pldm_fw_update.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "sim/board/board.h"
#include "sim/pldm/firmware.h"
#include "testing/package_builder.h"

namespace {

constexpr uint32_t kMebibyte = 1u << 20;
constexpr uint32_t kWhole = 16 * kMebibyte;
constexpr uint32_t kTransferSizes[] = {32, 56, 128, 256};
constexpr const char* kAddress = "0x64";

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "bench-update: %s\n", what);
    std::_Exit(1);
}

void require(bool condition, const char* what) {
    if (!condition) {
        fail(what);
    }
}

/// Puts a package with one component into a file.
void write_package(const std::string& path, uint32_t size) {
    tool::Package package;
    package.version = "bench";
    tool::PackageComponent component;
    component.activation_method = 2;
    component.version = "new";
    component.image.resize(size);
    for (size_t i = 0; i < size; ++i) {
        component.image[i] = static_cast<uint8_t>(i * 7 + (i >> 8));
    }
    package.components.push_back(std::move(component));
    tool::PackageRecord record;
    record.version = "new";
    record.components = {0};
    record.descriptors.push_back({PLDM_DESCRIPTOR_PCI_VENDOR_ID, {0xB3, 0x15}, {}});
    package.records.push_back(record);
    const std::vector<uint8_t> bytes = tool::build_package(package);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    require(file.flush().good(), "the package cannot be written");
}

/// Makes a package in a process of its own, so that its images leave nothing in this one.
std::string make_package(uint32_t size) {
    std::string path = "/tmp/bench-update-XXXXXX";
    const int descriptor = mkstemp(path.data());
    require(descriptor >= 0, "no temporary file");
    close(descriptor);
    const pid_t child = fork();
    require(child >= 0, "no process");
    if (child == 0) {
        write_package(path, size);
        std::_Exit(0);
    }
    int status = 0;
    require(waitpid(child, &status, 0) == child && status == 0, "no package");
    return path;
}

/// Where the only image of a package begins: its size from the end.
uint64_t image_offset(const std::string& package, uint32_t size) {
    return static_cast<uint64_t>(std::ifstream(package, std::ios::ate).tellg()) - size;
}

struct Run {
    double cpu_ms = 0;
    long resident_kib = 0;
    uint64_t requests = 0;
    uint64_t bytes = 0;    ///< on the bus
    uint64_t packets = 0;  ///< MCTP packets on the bus
    uint64_t busy_ns = 0;
    uint64_t system_calls = 0;  ///< counted by the parent
};

/// Updates the device. Runs in a child: what it takes is the whole process's.
Run update(const std::string& package, uint32_t size, uint32_t transfer_size) {
    require(std::freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null");
    sim::BoardError error;
    // The device compares the image with the file, a window at a time, and keeps nothing of it.
    const auto board = sim::Board::parse(
        R"({"name": "bench", "buses": [{"bus": 2, "clock_hz": 400000}], "devices": [
            {"name": "nic0", "type": "pldm", "bus": 2, "address": ")" +
            std::string(kAddress) +
            R"(", "firmware": {"active": "old", "keep_image": false,
             "descriptors": [{"type": "pci_vendor_id", "hex": "b315"}],
             "components": [{"identifier": 1, "active": "old", "activation_methods": 2,
              "expect_file": ")" +
            package + R"(", "expect_offset": )" + std::to_string(image_offset(package, size)) +
            R"(, "expect_size": )" + std::to_string(size) + "}]}}]}",
        error);
    require(board != nullptr, "the board is malformed");
    sim::Board::use(board.get());
    mctp_ctx endpoint{};
    endpoint.bus = 2;
    endpoint.slave_addr = 0x64;
    endpoint.src_eid = 8;
    pldm_fw_update_ctx ctx{};
    require(pldm_fw_update_init(&ctx, &endpoint) == 0, "the device cannot be updated");
    ctx.max_transfer_size = transfer_size;
    require(pldm_nic_update(package.c_str(), &ctx, nullptr, 0) == 0, "the update failed");
    sim::PldmFirmware& device = *board->firmware("nic0");
    require(device.active().text == "new" && !device.first_difference(0), "a wrong image");

    Run run;
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    run.cpu_ms = ms(usage.ru_utime) + ms(usage.ru_stime);
    run.resident_kib = usage.ru_maxrss;
    run.requests = device.count(sim::kFwRequestFirmwareData);
    const sim::BusStatistics bus = board->bus_statistics().at(0);
    run.bytes = bus.bytes;
    run.packets = bus.packets;
    run.busy_ns = bus.busy_ns;
    sim::Board::use(nullptr);
    return run;
}

/// Lets a stopped child run to its end. @return its system calls
uint64_t count_system_calls(pid_t child) {
    constexpr int kSystemCall = SIGTRAP | 0x80;
    uint64_t stops = 0;
    int status = 0;
    require(waitpid(child, &status, 0) == child && WIFSTOPPED(status), "the child does not stop");
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD);
    for (;;) {
        require(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0, "the child cannot be traced");
        require(waitpid(child, &status, 0) == child, "the child is gone");
        if (!WIFSTOPPED(status)) {
            return stops / 2;  // each call stops where it begins and where it ends
        }
        stops += WSTOPSIG(status) == kSystemCall ? 1 : 0;
    }
}

/// Updates in a child. @param traced  count its system calls, which costs it much time
Run run_apart(uint32_t size, uint32_t transfer_size, bool traced) {
    const std::string package = make_package(size);
    int ends[2];
    require(pipe(ends) == 0, "no pipe");
    const pid_t child = fork();
    require(child >= 0, "no process");
    if (child == 0) {
        if (traced) {
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            raise(SIGSTOP);
        }
        const Run run = update(package, size, transfer_size);
        const bool told = write(ends[1], &run, sizeof run) == static_cast<ssize_t>(sizeof run);
        std::_Exit(told ? 0 : 1);
    }
    close(ends[1]);
    const uint64_t system_calls = traced ? count_system_calls(child) : 0;
    Run run;
    const bool told = read(ends[0], &run, sizeof run) == static_cast<ssize_t>(sizeof run);
    close(ends[0]);
    if (!traced) {
        waitpid(child, nullptr, 0);
    }
    std::remove(package.c_str());
    require(told, "an update did not come to its end");
    run.system_calls = system_calls;
    return run;
}

/// Bytes of a message that go over the bus beside its body: in each packet destination and source
/// address, command code, byte count and PEC (DSP0237) and the transport header (DSP0236); the type
/// byte once.
uint64_t framing(uint64_t body) {
    constexpr uint64_t kUnit = MCTP_UNIT_SIZE_DEFAULT;
    constexpr uint64_t kPacket = 5 + 4;
    return (body + 1 + kUnit - 1) / kUnit * kPacket + 1;
}

/// What one piece of an image takes, beside its bytes, if nothing is sent twice or in vain.
uint64_t standard_bytes(uint32_t piece) {
    constexpr uint64_t kRequest = 3 + 4 + 4;  // PLDM header, offset, length (DSP0267)
    constexpr uint64_t kResponse = 3 + 1;     // PLDM header, completion code
    return framing(kRequest) + kRequest + framing(kResponse + piece) + kResponse;
}

void measure(uint32_t transfer_size) {
    const Run small = run_apart(kMebibyte, transfer_size, false);
    const Run whole = run_apart(kWhole, transfer_size, false);
    const Run few = run_apart(kMebibyte / 4, transfer_size, true);
    const Run many = run_apart(kMebibyte / 2, transfer_size, true);
    // Differences, so that what comes before and after the image does not count.
    const uint64_t requests = whole.requests - small.requests;
    const double payload = kWhole - kMebibyte;
    const auto bytes = static_cast<double>(whole.bytes - small.bytes);
    const double standard = static_cast<double>(requests * standard_bytes(transfer_size));
    const double percent = 100 / bytes;
    std::printf("| %u | %llu | %.1f | %ld | %ld | %.2f | %.0f | %.1f | %.1f | %.1f |\n",
                transfer_size, static_cast<unsigned long long>(whole.requests),
                (whole.cpu_ms - small.cpu_ms) / (payload / kMebibyte), small.resident_kib,
                whole.resident_kib,
                static_cast<double>(many.system_calls - few.system_calls) /
                    static_cast<double>(many.requests - few.requests),
                static_cast<double>(whole.busy_ns) / 1e9, payload * percent, standard * percent,
                (bytes - payload - standard) * percent);
    std::fflush(stdout);
}

}  // namespace

int main() {
    std::puts(
        "| transfer size | requests | CPU ms a MiB | resident KiB, 1 MiB | resident KiB, 16 MiB "
        "| system calls a request | bus s | payload % | standards % | library % |");
    std::puts("|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|");
    std::fflush(stdout);
    for (const uint32_t transfer_size : kTransferSizes) {
        measure(transfer_size);
    }
    return 0;
}

// SPDX-License-Identifier: Apache-2.0
// The tool's platform where it is linked with the platform library for a Linux machine.
#include <fmt/format.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/linux/kernel_network.h"
#include "platform/linux/mctp_socket.h"
#include "platform/linux/progress.h"
#include "platform/linux/state.h"
#include "platform/linux/tap.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/port.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using Way = machine::Device::Way;

Endpoint endpoint_at(uint32_t net, uint8_t eid) {
    Endpoint endpoint;
    endpoint.transport = Transport::kMctp;
    endpoint.binding_kind = MCTP_BINDING_KIND_SOCKET;
    endpoint.net = net;
    endpoint.eid = eid;
    endpoint.name = endpoint_location(endpoint);
    return endpoint;
}

Endpoint endpoint_of(const machine::Device& device) {
    Endpoint endpoint;
    if (device.way == Way::kMctp) {
        endpoint = endpoint_at(device.net, device.eid);
    } else {
        endpoint.binding_kind =
            device.software_pec ? MCTP_BINDING_KIND_SL8_SMBUS : MCTP_BINDING_KIND_SMBUS;
        endpoint.bus = device.bus;
        endpoint.address = device.address;
        endpoint.unit_size = device.unit_size;
        endpoint.i2c_delay_us = device.i2c_delay_us;
        endpoint.mux = device.mux;
    }
    endpoint.route = device.read_timeout_ms;
    endpoint.name = device.name;
    return endpoint;
}

/// The last lines that the platform library had for an operator. Whoever calls the library from
/// another thread finds them in order.
class ConsoleLines {
public:
    void add(std::string_view line) {
        const std::lock_guard guard(mutex_);
        lines_.emplace_back(line);
        last_ = line;
        if (lines_.size() > kMostLines) {
            lines_.pop_front();
        }
    }
    std::vector<std::string> all() const {
        const std::lock_guard guard(mutex_);
        return {lines_.begin(), lines_.end()};
    }
    std::string last() const {
        const std::lock_guard guard(mutex_);
        return last_;
    }
    void forget_last() {
        const std::lock_guard guard(mutex_);
        last_.clear();
    }

private:
    static constexpr size_t kMostLines = 1000;
    mutable std::mutex mutex_;
    std::deque<std::string> lines_;
    std::string last_;  ///< since forget_last()
};

class LinuxPort final : public Port {
public:
    explicit LinuxPort(machine::Board board) : name_(board.name), described_(board.described) {
        for (const machine::Device& device : board.devices) {
            endpoints_.push_back(endpoint_of(device));
        }
        machine::lead_console([this](std::string_view line) { lines_.add(line); });
        machine::use(std::move(board));
    }
    ~LinuxPort() override {
        machine::use_none();
        machine::lead_console({});
    }

    std::string board_name() const override { return name_; }
    const std::vector<Endpoint>& endpoints() const override { return endpoints_; }
    std::vector<Endpoint> present_endpoints() const override;
    std::string objection(const Endpoint& endpoint) const override;
    std::string complaint() const override { return lines_.last(); }
    void forget_complaint() override { lines_.forget_last(); }
    uint64_t now_us() const override;
    void wait_us(uint64_t microseconds) override;
    void start_capture(const std::string& path) override;
    void finish_capture() override;
    uint8_t task_percentage(uint32_t task_id) const override {
        return machine::task_percentage(task_id);
    }
    std::vector<std::string> log_lines() const override { return lines_.all(); }

    // The kernel does not count by bus, nor does it show packets without rights.
    std::vector<BusUse> bus_use() const override { return {}; }
    PcieUse pcie_use() const override { return {}; }
    void observe(PacketObserver* observer) override { (void)observer; }

    // What only a simulator can do or knows.
    std::vector<OwnerQuestion> owner_questions(const std::string&) const override { return {}; }
    bool set_main_power(bool) override { return false; }
    bool add_fault(const std::string&, std::string_view) override { return false; }
    void clear_faults(const std::string&) override {}
    std::vector<uint8_t> drive_image(const std::string&, size_t) const override { return {}; }
    std::unique_ptr<Service> start_service(const std::string&, uint8_t) override { return nullptr; }
    std::vector<std::string> lock_complaints() const override { return {}; }

private:
    std::string name_;
    bool described_;  ///< by a board file
    std::vector<Endpoint> endpoints_;
    ConsoleLines lines_;
    machine::Tap tap_;
    std::string capture_path_;
};

std::vector<Endpoint> LinuxPort::present_endpoints() const {
    if (described_) {
        return endpoints_;
    }
    std::string error;
    const std::optional<std::vector<machine::Reachable>> known = machine::ask_kernel(error);
    if (!known) {
        throw Failure(ExitStatus::kFailed, "the kernel does not tell who is there: " + error);
    }
    std::vector<Endpoint> found;
    for (const machine::Reachable& one : *known) {
        found.push_back(endpoint_at(one.net, one.eid));
    }
    return found;
}

std::string LinuxPort::objection(const Endpoint& endpoint) const {
    if (endpoint.transport == Transport::kI2c) {
        return machine::in_use()->i2c.at(endpoint.bus).objection();
    }
    return machine::mctp_objection();
}

uint64_t LinuxPort::now_us() const {
    using std::chrono::duration_cast;
    return static_cast<uint64_t>(duration_cast<std::chrono::microseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

/// In short pieces, so that a signal ends the command, or the pause alone if the command ends by
/// itself.
void LinuxPort::wait_us(uint64_t microseconds) {
    constexpr uint64_t kPiece = 100'000;
    const uint64_t end = now_us() + microseconds;
    for (uint64_t now = now_us(); now < end; now = now_us()) {
        SignalWatch::check();
        if (InterruptGuard::pending()) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(std::min(kPiece, end - now)));
    }
}

void LinuxPort::start_capture(const std::string& path) {
    std::string error;
    if (!tap_.start(path, error)) {
        throw Failure(ExitStatus::kFailed, "the capture cannot be written: " + error);
    }
    capture_path_ = path;
}

void LinuxPort::finish_capture() {
    std::string error;
    if (!tap_.stop(error)) {
        throw Failure(ExitStatus::kFailed,
                      fmt::format("the capture is incomplete: {}: {}", capture_path_, error));
    }
}

}  // namespace

std::string_view Port::program_name() {
    return "sideband";
}

std::string_view Port::own_board() {
    return machine::kOwnBoardFile;
}

bool Port::is_simulated() {
    return false;
}

BoardSummary Port::check_board(const std::string& board_file) {
    throw Failure(ExitStatus::kFailed, board_file + ": no simulated board is here to check it");
}

bool Port::is_strict() {
    return true;
}

std::unique_ptr<Port> Port::open(const std::string& board_file) {
    board_file::BoardError error;
    const std::string path = board_file.empty() ? machine::kOwnBoardFile : board_file;
    std::optional<machine::Board> board = machine::load_board(board_file, error);
    if (!board) {
        throw Failure(ExitStatus::kInput, lines_of(error.message(path)));
    }
    return std::make_unique<LinuxPort>(std::move(*board));
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The simulated board as the tool and the tests see it.
#include "sim/board/board.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "sim/board/in_use.h"
#include "sim/board/state.h"

namespace sim {

Board::Board(std::unique_ptr<BoardState> state) : state_(std::move(state)) {}

Board::~Board() {
    if (current() == this) {
        use(nullptr);
    }
}

std::unique_ptr<Board> Board::parse(std::string_view text, BoardError& error) {
    std::unique_ptr<BoardState> state;
    if (!board_file::read_text(text, error, [&](const Place& root) { state = read_board(root); })) {
        return nullptr;
    }
    return std::unique_ptr<Board>(new Board(std::move(state)));
}

std::unique_ptr<Board> Board::load(const std::string& path, BoardError& error) {
    std::string text;
    if (const std::optional<std::string> reason = board_file::read_file(path, text)) {
        error = {"", 0, *reason};
        return nullptr;
    }
    return parse(text, error);
}

std::string Board::name() const {
    return state_->name;
}

const std::vector<EndpointInfo>& Board::endpoints() const {
    return state_->endpoints;
}

uint64_t Board::now_us() const {
    std::lock_guard guard(state_->mutex);
    return state_->clock.now_us();
}

void Board::advance_us(uint64_t microseconds) {
    std::lock_guard guard(state_->mutex);
    state_->clock.advance_to(state_->clock.now_ns() + microseconds * 1000);
}

std::vector<BusStatistics> Board::bus_statistics() const {
    std::lock_guard guard(state_->mutex);
    std::vector<BusStatistics> all;
    for (const auto& bus : state_->buses) {
        all.push_back(bus->statistics());
    }
    return all;
}

bool OwnerReport::faultless() const {
    return complete &&
           std::ranges::all_of(steps, [](const OwnerStep& step) { return step.complaint.empty(); });
}

PcieStatistics Board::pcie_statistics() const {
    std::lock_guard guard(state_->mutex);
    return state_->pcie.statistics();
}

OwnerReport Board::owner_report(const std::string& device) const {
    std::lock_guard guard(state_->mutex);
    const Device* found = state_->find_device(device);
    return found != nullptr ? found->owner_report() : OwnerReport{};
}

uint32_t Board::mpio_state() const {
    return __atomic_load_n(&state_->global_sec_var.mpio_state, __ATOMIC_ACQUIRE);
}

bool Board::has_file(const std::string& path) const {
    std::lock_guard guard(state_->mutex);
    return state_->files.contains(path);
}

LockReport Board::lock_report() const {
    return state_->locks.report();
}

PcieSessions Board::pcie_sessions() const {
    std::lock_guard guard(state_->mutex);
    return state_->pcie_sessions;
}

void Board::set_pcie_open_fails(bool fails) {
    std::lock_guard guard(state_->mutex);
    state_->pcie_open_fails = fails;
}

PldmFirmware* Board::firmware(const std::string& device) {
    std::lock_guard guard(state_->mutex);
    Device* found = state_->find_device(device);
    return found != nullptr ? found->firmware() : nullptr;
}

NcsiController* Board::ncsi(const std::string& device) {
    std::lock_guard guard(state_->mutex);
    Device* found = state_->find_device(device);
    return found != nullptr ? found->ncsi() : nullptr;
}

NvmeDrive* Board::nvme(const std::string& device) {
    std::lock_guard guard(state_->mutex);
    Device* found = state_->find_device(device);
    return found != nullptr ? found->nvme() : nullptr;
}

std::optional<plt_card_info> Board::card(const std::string& device) const {
    std::lock_guard guard(state_->mutex);
    const Device* found = state_->find_device(device);
    if (found == nullptr || !found->card()) {
        return std::nullopt;
    }
    plt_card_info info{};
    info.flags = found->card()->flags;
    info.vendor_id = found->card()->vendor_id;
    info.bus = found->card()->bus;
    info.device = found->card()->device;
    info.slot = found->card()->slot;
    return info;
}

void Board::set_main_power(bool on) {
    std::lock_guard guard(state_->mutex);
    if (state_->main_power && !on) {
        for (const auto& device : state_->devices) {
            if (!device->standby()) {
                device->reset();
            }
        }
    }
    state_->main_power = on;
}

void Board::set_standby(uint8_t option, uint8_t override_byte, bool policy_off) {
    std::lock_guard guard(state_->mutex);
    state_->platform_record.standby_option = option;
    state_->global_var.standby_override = override_byte;
    state_->policy_off = policy_off;
    publish_records(*this);
}

std::vector<std::string> Board::syslog() const {
    std::lock_guard guard(state_->mutex);
    return state_->syslog.lines();
}

std::vector<std::string> Board::console() const {
    std::lock_guard guard(state_->mutex);
    return state_->console.lines();
}

std::vector<std::string> Board::shell_commands() const {
    std::lock_guard guard(state_->mutex);
    return state_->shell_commands.lines();
}

std::map<uint32_t, uint8_t> Board::task_percent() const {
    std::lock_guard guard(state_->mutex);
    return state_->task_percent;
}

bool Board::add_fault(const std::string& device, std::string_view fault_json, BoardError& error) {
    std::lock_guard guard(state_->mutex);
    Device* found = state_->find_device(device);
    if (found == nullptr) {
        error = {"", 0, "the board has no device " + device};
        return false;
    }
    Fault fault;
    if (!board_file::read_text(fault_json, error,
                               [&](const Place& root) { fault = read_fault(root); })) {
        return false;
    }
    found->faults().add(fault);
    return true;
}

void Board::clear_faults(const std::string& device) {
    std::lock_guard guard(state_->mutex);
    if (Device* found = state_->find_device(device)) {
        found->faults().clear();
    }
}

bool Board::start_capture(const std::string& path, std::string& error) {
    std::lock_guard guard(state_->mutex);
    std::vector<CaptureBus> buses;
    for (const auto& bus : state_->buses) {
        buses.push_back({bus->number(), bus->statistics().clock_hz, Transport::kI2c});
    }
    if (!state_->pcie.devices().empty()) {
        buses.push_back({0, 0, Transport::kPcie});
    }
    return state_->tap.capture().start(path, buses, error);
}

bool Board::stop_capture() {
    std::lock_guard guard(state_->mutex);
    return state_->tap.capture().stop();
}

void Board::observe_packets(PacketObserver observer) {
    std::lock_guard guard(state_->mutex);
    state_->tap.observe(std::move(observer));
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The simulated board as the tool and the tests see it.
#include "board.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "in_use.h"
#include "state.h"

namespace sim {

namespace {

/// The text of a whole file. @return an empty string and errno where it cannot be read
bool read_file(const std::string& path, std::string& text) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                         &std::fclose);
    if (!file)
        return false;
    char buffer[4096];
    while (size_t got = std::fread(buffer, 1, sizeof buffer, file.get()))
        text.append(buffer, got);
    return std::ferror(file.get()) == 0;
}

}  // namespace

std::string BoardError::message(std::string_view file) const {
    std::string out(file);
    if (line > 0)
        out += ":" + std::to_string(line);
    if (!key.empty())
        out += ": " + key;
    return out + ": " + text;
}

Board::Board(std::unique_ptr<BoardState> state) : state_(std::move(state)) {}

Board::~Board() {
    if (current() == this)
        use(nullptr);
}

std::unique_ptr<Board> Board::parse(std::string_view text, BoardError& error) {
    try {
        return std::unique_ptr<Board>(new Board(read_board(parse_json(text))));
    } catch (const FileError& failure) {
        error = failure.error;
        return nullptr;
    }
}

std::unique_ptr<Board> Board::load(const std::string& path, BoardError& error) {
    std::string text;
    errno = 0;
    if (!read_file(path, text)) {
        error = {"", 0, std::strerror(errno)};
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
    for (const auto& bus : state_->buses)
        all.push_back(bus->statistics());
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

Firmware* Board::firmware(const std::string& device) {
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
    if (found == nullptr || !found->card())
        return std::nullopt;
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
    if (state_->main_power && !on)
        for (const auto& device : state_->devices)
            if (!device->standby())
                device->reset();
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
    try {
        const Node root = parse_json(fault_json);
        found->faults().add(read_fault(Place{&root, ""}));
        return true;
    } catch (const FileError& failure) {
        error = failure.error;
        return false;
    }
}

void Board::clear_faults(const std::string& device) {
    std::lock_guard guard(state_->mutex);
    if (Device* found = state_->find_device(device))
        found->faults().clear();
}

bool Board::start_capture(const std::string& path, std::string& error) {
    std::lock_guard guard(state_->mutex);
    std::vector<CaptureBus> buses;
    for (const auto& bus : state_->buses)
        buses.push_back({bus->number(), bus->statistics().clock_hz, Transport::i2c});
    if (!state_->pcie.devices().empty())
        buses.push_back({0, 0, Transport::pcie});
    return state_->capture.start(path, buses, error);
}

bool Board::stop_capture() {
    std::lock_guard guard(state_->mutex);
    return state_->capture.stop();
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// The simulated board as the tool and the tests see it.
#include "sim/board/board.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "sim/board/error_list.h"
#include "sim/board/in_use.h"
#include "sim/board/state.h"

namespace sim {

namespace {

constexpr size_t kLongestName = 1000;

/// A descriptor that closes itself.
class File {
public:
    /// A FIFO without a writer would keep an open() that waits.
    explicit File(const std::string& path)
        : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~File() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int fd() const { return fd_; }

private:
    int fd_;
};

/// Why a file is not even looked into; nothing if it can be.
std::optional<std::string> objection(const File& file) {
    struct stat status {};
    if (file.fd() < 0 || fstat(file.fd(), &status) != 0) {
        return std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return std::strerror(EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file";
    }
    return std::nullopt;
}

/// @return why the text could not be read whole; nothing if it was
std::optional<std::string> read_file(const std::string& path, std::string& text) {
    const File file(path);
    if (std::optional<std::string> reason = objection(file)) {
        return reason;
    }
    char buffer[4096];
    ssize_t got = 0;
    while ((got = read(file.fd(), buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(got));
        if (text.size() > Board::kLongestFile) {
            return "is longer than " + std::to_string(Board::kLongestFile) +
                   " bytes, the most that a board file may have";
        }
    }
    return got < 0 ? std::optional<std::string>(std::strerror(errno)) : std::nullopt;
}

std::string line_of(const BoardError& error, const std::string& file) {
    std::string out = file;
    if (error.line > 0) {
        out += ":" + std::to_string(error.line);
    }
    if (!error.key.empty()) {
        out += ": " + error.key;
    }
    return out + ": " + error.text;
}

}  // namespace

std::string BoardError::message(std::string_view file) const {
    const std::string name = shown(file, kLongestName);
    std::string out = line_of(*this, name);
    for (const BoardError& other : others) {
        out += "\n" + line_of(other, name);
    }
    if (left_out > 0) {
        out += "\n" + name + ": " + "at least " + std::to_string(left_out) + " more errors";
    }
    return out;
}

Board::Board(std::unique_ptr<BoardState> state) : state_(std::move(state)) {}

Board::~Board() {
    if (current() == this) {
        use(nullptr);
    }
}

std::unique_ptr<Board> Board::parse(std::string_view text, BoardError& error) {
    ErrorList errors;
    std::unique_ptr<BoardState> state;
    attempt([&] {
        const Node root = parse_json(text, errors);
        state = read_board(Place{&root, "", &errors});
    });
    if (!errors.empty()) {
        error = errors.take();
        return nullptr;
    }
    return std::unique_ptr<Board>(new Board(std::move(state)));
}

std::unique_ptr<Board> Board::load(const std::string& path, BoardError& error) {
    std::string text;
    if (const std::optional<std::string> reason = read_file(path, text)) {
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
    ErrorList errors;
    attempt([&] {
        const Node root = parse_json(fault_json, errors);
        const Fault fault = read_fault(Place{&root, "", &errors});
        if (errors.empty()) {
            found->faults().add(fault);
        }
    });
    if (errors.empty()) {
        return true;
    }
    error = errors.take();
    return false;
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

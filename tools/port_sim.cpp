// SPDX-License-Identifier: Apache-2.0
// The tool's platform when it is linked with the simulated board.
#include <fmt/format.h>
#include <sideband/platform.h>

#include "sim/board/board.h"
#include "sim/board/passing.h"
#include "sim/cuse/service.h"
#include "sim/nvme/firmware.h"
#include "sim/serial/service.h"
#include "tools/shell/failure.h"
#include "tools/shell/port.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

Sensor sensor_of(const sim::SensorInfo& info) {
    Sensor sensor;
    sensor.id = info.id;
    sensor.numeric = info.kind == sim::SensorInfo::Kind::kNumeric;
    sensor.name = info.name;
    sensor.unit = info.unit;
    sensor.resolution = info.resolution;
    if (!sensor.numeric) {
        sensor.state_sets.push_back(info.state_set);
    }
    return sensor;
}

Transport transport_of(sim::Transport transport) {
    switch (transport) {
        case sim::Transport::kPcie:
            return Transport::kPcie;
        case sim::Transport::kSerial:
            return Transport::kSerial;
        default:
            return Transport::kI2c;
    }
}

Endpoint endpoint_of(const sim::EndpointInfo& info) {
    Endpoint endpoint{.name = info.name,
                      .type = info.type,
                      .transport = transport_of(info.transport),
                      .binding_kind = info.binding_kind,
                      .bus = info.bus,
                      .address = info.address,
                      .mux = info.mux,
                      .bdf = info.bdf,
                      .net = 0,
                      .eid = 0,
                      .route = info.route,
                      .unit_size = info.unit_size,
                      .i2c_delay_us = info.i2c_delay_us,
                      .pcie_param = info.pcie_param,
                      .sensors = {},
                      .hint = {}};
    for (const sim::SensorInfo& sensor : info.sensors) {
        endpoint.sensors.push_back(sensor_of(sensor));
    }
    return endpoint;
}

Packet packet_of(const sim::Passing& passing) {
    return {.transport = transport_of(passing.transport),
            .bus = passing.bus,
            .address = passing.address,
            .bdf = passing.bdf,
            .sent = passing.direction == sim::Direction::kFromBmc,
            .at_ns = passing.at_ns,
            .bytes = passing.packet,
            .pec_good = passing.pec_good,
            .taken = passing.taken};
}

class SerialLine final : public Service {
public:
    explicit SerialLine(std::unique_ptr<sim::SerialService> service)
        : service_(std::move(service)) {}

    const std::string& tty() const override { return service_->tty(); }
    uint8_t eid() const override { return service_->eid(); }
    std::vector<ServedEndpoint> endpoints() const override;
    ServiceUse use() const override;
    void serve_a_while() override;

private:
    std::unique_ptr<sim::SerialService> service_;
};

std::vector<ServedEndpoint> SerialLine::endpoints() const {
    std::vector<ServedEndpoint> all;
    for (const sim::ServedEndpoint& served : service_->endpoints()) {
        all.push_back({.eid = served.eid,
                       .endpoint = endpoint_of(served.info),
                       .message_types = served.message_types});
    }
    return all;
}

ServiceUse SerialLine::use() const {
    const sim::SerialCounts counts = service_->counts();
    return {.received = counts.received.good,
            .refused = counts.received.refused,
            .sent = counts.sent,
            .discarded = counts.discarded};
}

void SerialLine::serve_a_while() {
    if (!service_->serve_a_while()) {
        throw Failure(ExitStatus::kFailed, service_->tty() + ": the other end is gone");
    }
}

class Buses final : public BusService {
public:
    explicit Buses(std::unique_ptr<sim::BusService> service) : service_(std::move(service)) {}

    std::vector<ServedBus> buses() const override;
    BusTraffic traffic() const override;
    void serve_a_while() override;

private:
    std::unique_ptr<sim::BusService> service_;
};

std::vector<ServedBus> Buses::buses() const {
    std::vector<ServedBus> all;
    for (const sim::ServedBus& bus : service_->buses()) {
        all.push_back({.bus = bus.bus, .device = bus.device, .slave_queue = bus.slave_queue});
    }
    return all;
}

BusTraffic Buses::traffic() const {
    const sim::BusTraffic sum = service_->traffic();
    return {
        .written = sum.written, .refused = sum.refused, .read = sum.read, .dropped = sum.dropped};
}

void Buses::serve_a_while() {
    if (!service_->serve_a_while()) {
        throw Failure(ExitStatus::kFailed, "the kernel has taken a bus away");
    }
}

class SimulatedPort final : public Port {
public:
    SimulatedPort(std::unique_ptr<sim::Board> board, std::string text)
        : board_(std::move(board)), text_(std::move(text)) {
        for (const sim::EndpointInfo& info : board_->endpoints()) {
            endpoints_.push_back(endpoint_of(info));
        }
        sim::Board::use(board_.get());
    }
    ~SimulatedPort() override { sim::Board::use(nullptr); }

    std::string board_name() const override { return board_->name(); }
    std::string board_text() const override { return text_; }
    const std::vector<Endpoint>& endpoints() const override { return endpoints_; }
    std::string objection(const Endpoint& endpoint) const override {
        return endpoint.transport == Transport::kMctp
                   ? "a simulated board is not behind the kernel's MCTP"
                   : "";
    }
    uint64_t now_us() const override { return board_->now_us(); }
    void wait_us(uint64_t microseconds) override { board_->advance_us(microseconds); }
    std::vector<BusUse> bus_use() const override;
    PcieUse pcie_use() const override;
    std::vector<OwnerQuestion> owner_questions(const std::string& endpoint) const override;
    void start_capture(const std::string& path) override;
    void finish_capture() override;
    void observe(PacketObserver* observer) override;
    bool set_main_power(bool on) override;
    bool add_fault(const std::string& endpoint, std::string_view fault_json) override;
    void clear_faults(const std::string& endpoint) override { board_->clear_faults(endpoint); }
    uint8_t task_percentage(uint32_t task_id) const override;
    std::vector<uint8_t> drive_image(const std::string& revision, size_t size) const override;
    std::unique_ptr<Service> start_service(const std::string& tty, uint8_t eid) override;
    std::unique_ptr<BusService> start_bus_service() override;
    std::vector<std::string> lock_complaints() const override;
    std::vector<std::string> log_lines() const override;

private:
    std::unique_ptr<sim::Board> board_;
    std::string text_;
    std::vector<Endpoint> endpoints_;
    std::string capture_path_;
};

std::vector<BusUse> SimulatedPort::bus_use() const {
    std::vector<BusUse> uses;
    for (const sim::BusStatistics& bus : board_->bus_statistics()) {
        uses.push_back({.bus = bus.bus,
                        .clock_hz = bus.clock_hz,
                        .packets = bus.packets,
                        .bytes = bus.bytes,
                        .payload_bytes = bus.payload_bytes,
                        .busy_ns = bus.busy_ns});
    }
    return uses;
}

PcieUse SimulatedPort::pcie_use() const {
    const sim::PcieStatistics use = board_->pcie_statistics();
    return {.messages = use.messages, .packets = use.packets, .payload_bytes = use.payload_bytes};
}

std::vector<OwnerQuestion> SimulatedPort::owner_questions(const std::string& endpoint) const {
    std::vector<OwnerQuestion> questions;
    for (const sim::OwnerStep& step : board_->owner_report(endpoint).steps) {
        questions.push_back(
            {.name = step.name, .answer = step.answer, .complaint = step.complaint});
    }
    return questions;
}

void SimulatedPort::start_capture(const std::string& path) {
    std::string error;
    if (!board_->start_capture(path, error)) {
        throw Failure(ExitStatus::kFailed, "the capture cannot be written: " + error);
    }
    capture_path_ = path;
}

void SimulatedPort::finish_capture() {
    if (!board_->stop_capture()) {
        throw Failure(ExitStatus::kFailed, "the capture is incomplete: " + capture_path_);
    }
}

void SimulatedPort::observe(PacketObserver* observer) {
    if (observer == nullptr) {
        board_->observe_packets(nullptr);
        return;
    }
    board_->observe_packets(
        [observer](const sim::Passing& passing) { observer->passed(packet_of(passing)); });
}

bool SimulatedPort::set_main_power(bool on) {
    board_->set_main_power(on);
    // Standby option 0: no device behind the BMC has power while the host is off.
    board_->set_standby(0, 0, false);
    return true;
}

bool SimulatedPort::add_fault(const std::string& endpoint, std::string_view fault_json) {
    sim::BoardError error;
    if (!board_->add_fault(endpoint, fault_json, error)) {
        const std::string key = error.key.empty() ? "" : error.key + ": ";
        throw Failure(ExitStatus::kFailed,
                      fmt::format("{}: the fault is refused: {}{}", endpoint, key, error.text));
    }
    return true;
}

uint8_t SimulatedPort::task_percentage(uint32_t task_id) const {
    const std::map<uint32_t, uint8_t> percent = board_->task_percent();
    const auto found = percent.find(task_id);
    return found != percent.end() ? found->second : 0;
}

std::vector<uint8_t> SimulatedPort::drive_image(const std::string& revision, size_t size) const {
    const std::string head =
        fmt::format("{}{:8.8}", std::string_view(sim::NvmeFirmware::kMagic), revision);
    std::vector<uint8_t> image(head.begin(), head.end());
    while (image.size() < size) {
        image.push_back(static_cast<uint8_t>(image.size() ^ image.size() >> 8));
    }
    return image;
}

std::unique_ptr<Service> SimulatedPort::start_service(const std::string& tty, uint8_t eid) {
    std::string error;
    std::unique_ptr<sim::SerialService> service =
        sim::SerialService::open(*board_, tty, eid, error);
    if (service == nullptr) {
        throw Failure(ExitStatus::kFailed, error);
    }
    return std::make_unique<SerialLine>(std::move(service));
}

std::unique_ptr<BusService> SimulatedPort::start_bus_service() {
    std::string error;
    std::unique_ptr<sim::BusService> service = sim::BusService::open(*board_, error);
    if (service == nullptr) {
        throw Failure(ExitStatus::kFailed, error);
    }
    return std::make_unique<Buses>(std::move(service));
}

std::vector<std::string> SimulatedPort::lock_complaints() const {
    sim::LockReport report = board_->lock_report();
    std::vector<std::string> complaints = report.violations;
    for (const std::string& lock : report.held) {
        complaints.push_back(lock + " is still held");
    }
    return complaints;
}

std::vector<std::string> SimulatedPort::log_lines() const {
    std::vector<std::string> lines = board_->syslog();
    const std::vector<std::string> console = board_->console();
    lines.insert(lines.end(), console.begin(), console.end());
    return lines;
}

/// The text of a board file. Throws Failure.
std::string read_board_text(const std::string& path) {
    std::string text;
    if (const std::optional<std::string> reason = board_file::read_file(path, text)) {
        throw Failure(ExitStatus::kInput, lines_of(sim::BoardError{"", 0, *reason}.message(path)));
    }
    return text;
}

/// @param name  of the file, as errors show it
std::unique_ptr<sim::Board> read_board(const std::string& name, const std::string& text) {
    sim::BoardError error;
    std::unique_ptr<sim::Board> board = sim::Board::parse(text, error);
    if (board == nullptr) {
        throw Failure(ExitStatus::kInput, lines_of(error.message(name)));
    }
    return board;
}

}  // namespace

std::string_view Port::program_name() {
    return "sideband-sim";
}

std::string_view Port::own_board() {
    return "built in";
}

bool Port::is_simulated() {
    return true;
}

bool Port::is_strict() {
    return false;
}

BoardSummary Port::check_board(const std::string& board_file) {
    const std::unique_ptr<sim::Board> board = read_board(board_file, read_board_text(board_file));
    return {.name = board->name(), .devices = board->endpoints().size()};
}

std::unique_ptr<Port> Port::open(const std::string& board_file) {
    std::string text =
        board_file.empty() ? std::string(sim::Board::built_in_file()) : read_board_text(board_file);
    const std::string shown = board_file.empty() ? "the built-in board" : board_file;
    std::unique_ptr<sim::Board> board = read_board(shown, text);
    return std::make_unique<SimulatedPort>(std::move(board), std::move(text));
}

}  // namespace tool

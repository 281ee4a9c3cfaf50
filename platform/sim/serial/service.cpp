// SPDX-License-Identifier: Apache-2.0
// A board behind a serial line, in real time.
#include "sim/serial/service.h"

#include <mutex>
#include <utility>

namespace sim {

namespace {

constexpr size_t kReadSize = 4096;
/// With so much to write nothing more is read: who does not take answers gets no more of them.
constexpr size_t kMuchOutput = size_t{64} << 10;
/// With so much to write, what the devices still send is lost.
constexpr size_t kMostOutput = size_t{1} << 20;

}  // namespace

std::unique_ptr<SerialService> SerialService::open(Board& board, const std::string& tty,
                                                   uint8_t eid, std::string& error) {
    std::unique_ptr<Line> line = Line::open(tty, error);
    if (line == nullptr) {
        return nullptr;
    }
    std::lock_guard guard(board.state().mutex);
    return std::unique_ptr<SerialService>(new SerialService(board, std::move(line), eid));
}

SerialService::SerialService(Board& board, std::unique_ptr<Line> line, uint8_t eid)
    : board_(board.state()),
      line_(std::move(line)),
      bridge_(board_, eid, [this](ByteView packet) { send(packet); }),
      time_(board_.clock) {}

std::vector<ServedEndpoint> SerialService::endpoints() const {
    std::lock_guard guard(board_.mutex);
    std::vector<ServedEndpoint> all;
    for (const auto& device : board_.devices) {
        if (device->eid() != 0) {
            const ByteView types = device->message_types();
            all.push_back({device->eid(), device->info(), {types.begin(), types.end()}});
        }
    }
    return all;
}

SerialCounts SerialService::counts() const {
    return {reader_.counts(), sent_, discarded_};
}

bool SerialService::serve_a_while() {
    uint64_t limit_ns = 0;
    {
        std::lock_guard guard(board_.mutex);
        limit_ns = time_.time_to_wait({bridge_.next_due()});
    }
    line_->wait(output_.size() < kMuchOutput, !output_.empty(), limit_ns);
    std::lock_guard guard(board_.mutex);
    if (time_.follow()) {
        bridge_.let_devices_act();
        board_.tap.capture().flush();
    }
    if (output_.size() < kMuchOutput || line_->is_hung_up()) {
        read_line();
    }
    bridge_.send_due();
    write_line();
    return !line_->is_dead();
}

void SerialService::read_line() {
    const Bytes bytes = line_->read(kReadSize);
    reader_.take(bytes, [this](ByteView packet) { bridge_.receive(packet); });
    if (bytes.empty() && line_->is_idle()) {
        reader_.reset();
        output_.clear();
    }
}

void SerialService::write_line() {
    const size_t taken = output_.empty() ? 0 : line_->write(output_);
    output_.erase(output_.begin(), output_.begin() + static_cast<std::ptrdiff_t>(taken));
}

void SerialService::send(ByteView packet) {
    const bool sendable = !packet.empty() && packet.size() <= kLongestFramedPacket;
    if (!sendable || line_->is_idle() || output_.size() >= kMostOutput) {
        ++discarded_;
        return;
    }
    append(output_, frame_of(packet));
    ++sent_;
}

}  // namespace sim

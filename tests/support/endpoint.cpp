// SPDX-License-Identifier: Apache-2.0
// A device for tests that are not about packets: answers whole messages, with the right tag.
#include "support/endpoint.h"

#include <memory>
#include <utility>

#include "support/scripted_platform.h"

namespace test {

Endpoint::Endpoint(Handler handler) : handler_(std::move(handler)) {
    attach();
}

Endpoint::Endpoint(std::vector<Bytes> answers, bool copy_instance) {
    auto queue = std::make_shared<std::deque<Bytes>>(answers.begin(), answers.end());
    handler_ = [queue, copy_instance](uint8_t, const Bytes& request) -> std::optional<Bytes> {
        if (queue->empty()) {
            return std::nullopt;
        }
        Bytes body = std::move(queue->front());
        queue->pop_front();
        if (copy_instance && !body.empty() && !request.empty()) {
            body[0] = static_cast<uint8_t>((body[0] & 0xE0) | (request[0] & 0x1F));
        }
        return body;
    };
    attach();
}

Endpoint::~Endpoint() {
    port().on_write = nullptr;
    port().on_read = nullptr;
}

void Endpoint::attach() {
    port().on_write = [this](const WriteRecord& write) {
        size_t end = write.bytes.size() - (write.controller_pec ? 0 : 1);
        receive(Bytes(write.bytes.begin() + 4, write.bytes.begin() + static_cast<ptrdiff_t>(end)));
    };
    port().on_read = [this](const ReadRecord&) {
        if (pending_) {
            answer();
        }
        if (outgoing_.empty()) {
            return SlaveRead::failure();
        }
        Bytes next = std::move(outgoing_.front());
        outgoing_.pop_front();
        return SlaveRead::of(block(next));
    };
}

void Endpoint::receive(const Bytes& mctp_packet) {
    if ((mctp_packet[3] & kSom) != 0) {
        if (pending_) {
            answer();
        }
        message_.clear();
        outgoing_.clear();
        header_.assign(mctp_packet.begin(), mctp_packet.begin() + 4);
    }
    message_.insert(message_.end(), mctp_packet.begin() + 4, mctp_packet.end());
    // Not by EOM: the last packet of a message that fills its packets carries none.
    pending_ = true;
}

void Endpoint::answer() {
    pending_ = false;
    Bytes request(message_.begin() + 1, message_.end());
    requests.push_back(request);
    types.push_back(message_[0]);
    std::optional<Bytes> body = handler_(message_[0], request);
    if (!body) {
        return;
    }
    auto tag = static_cast<uint8_t>(header_[3] & 7);
    for (Bytes& one : split(Bytes{message_[0]} + *body, header_[2], header_[1], tag, unit)) {
        outgoing_.push_back(std::move(one));
    }
}

}  // namespace test

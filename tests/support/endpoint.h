// SPDX-License-Identifier: Apache-2.0
// A device for tests that are not about packets: answers whole messages, with the right tag.
#ifndef SIDEBAND_TESTS_SUPPORT_ENDPOINT_H
#define SIDEBAND_TESTS_SUPPORT_ENDPOINT_H

#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "support/bytes.h"

namespace test {

/**
 * Attaches itself to the port of the process until it is destroyed or the port is reset. Each
 * message that the library writes is put together and recorded; when the library reads, the
 * handler's answer goes out in packets with the request's tag and TO clear. No answer: the read
 * fails with -1.
 */
class Endpoint {
public:
    /// Takes a message without its type byte; gives the answer without it, or nothing.
    using Handler = std::function<std::optional<Bytes>(uint8_t type, const Bytes& request)>;

    explicit Endpoint(Handler handler);
    /// Gives these answers in turn, then none. A response's first byte gets the request's low five
    /// bits (the instance ID of control and PLDM messages) if copy_instance is set.
    explicit Endpoint(std::vector<Bytes> answers, bool copy_instance = true);
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    std::vector<Bytes> requests;  ///< messages received, without the type byte
    std::vector<uint8_t> types;   ///< their type bytes
    size_t unit = 64;             ///< bytes a packet of the answers

private:
    void attach();
    void receive(const Bytes& mctp_packet);
    void answer();

    Handler handler_;
    Bytes message_;
    Bytes header_;
    bool pending_ = false;
    std::deque<Bytes> outgoing_;
};

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// metrics --listen of the tests' own board, and its clients.
#ifndef SIDEBAND_TESTS_TOOLS_METRICS_METRICS_CLIENT_H
#define SIDEBAND_TESTS_TOOLS_METRICS_METRICS_CLIENT_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/tools/tool_runner.h"

namespace tool_test {

inline const std::string kGet = "GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n";

/// The port in what is printed once it is listened on.
inline uint16_t port_in(const std::string& printed) {
    return static_cast<uint16_t>(std::atoi(printed.c_str() + printed.rfind(':') + 1));
}

class MetricsServer : public OwnBoard {
protected:
    MetricsServer() {
        const std::string printed = tool_.printed_until("/metrics\n");
        EXPECT_TRUE(printed.starts_with("metrics on http://127.0.0.1:")) << printed;
        port_ = port_in(printed);
    }

    uint16_t port() const { return port_; }
    RunningTool& tool() { return tool_; }

private:
    RunningTool tool_{{"metrics", "dev0", "--listen", "127.0.0.1:0", "--board", board_.path()}};
    uint16_t port_ = 0;
};

/// A connection to the server.
class Connection {
public:
    explicit Connection(uint16_t port, in_addr_t host = INADDR_LOOPBACK)
        : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(host);
        if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            close(socket_);
            throw std::runtime_error("nobody listens");
        }
    }
    ~Connection() { close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// @return whether the server still takes it
    bool say(const std::string& text) const {
        return send(socket_, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
    void hang_up() const { shutdown(socket_, SHUT_WR); }

    /// Whether there is something to hear, be it the end.
    bool is_answered() const {
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        return poll(&waiting, 1, 0) > 0;
    }

    /// All that the server says until it closes; it must do so in time.
    std::string heard() const {
        constexpr int kLongest = 30000;
        std::string text;
        char block[4096];
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        while (poll(&waiting, 1, kLongest) > 0) {
            const ssize_t got = recv(socket_, block, sizeof block, 0);
            if (got <= 0) {
                return text;
            }
            text.append(block, static_cast<size_t>(got));
        }
        ADD_FAILURE() << "the server has forgotten its client";
        return text;
    }

private:
    int socket_;
};

inline std::string asked(uint16_t port, const std::string& request) {
    const Connection connection(port);
    connection.say(request);
    return connection.heard();
}

}  // namespace tool_test

#endif

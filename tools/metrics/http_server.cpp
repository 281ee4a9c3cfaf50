// SPDX-License-Identifier: Apache-2.0
// A web server with one page, for one client at a time, none of which can keep it for long.
#include "tools/metrics/http_server.h"

#include <fmt/format.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <system_error>

#include "tools/shell/failure.h"
#include "tools/shell/interrupt.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kUsualPort = "9823";
constexpr std::chrono::seconds kRequestTime{5};
constexpr std::chrono::seconds kAnswerTime{10};
/// For a client that has been answered to close its end.
constexpr std::chrono::seconds kFarewellTime{1};

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolve(const HttpAddress& address) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), address.port.c_str(), &wanted, &found) != 0) {
        found = nullptr;
    }
    return {found, &freeaddrinfo};
}

std::string url_host(const HttpAddress& address) {
    return address.is_ipv6 ? "[" + address.host + "]" : address.host;
}

/// The port that the kernel has chosen, or the one that was asked for.
std::string port_of(int socket) {
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    std::array<char, NI_MAXSERV> port{};
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&own), size, nullptr, 0, port.data(), port.size(),
                    NI_NUMERICSERV) != 0) {
        return "?";
    }
    return port.data();
}

/// A client, from its first byte to its farewell.
class Client {
public:
    explicit Client(int socket) : socket_(socket) {}
    ~Client() { close(socket_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void answer(const HttpPage& page) {
        limit_ = Clock::now() + kRequestTime;
        const std::string said = reply(page);
        limit_ = Clock::now() + kAnswerTime;
        if (!said.empty() && send_all(said)) {
            part();
        }
    }

private:
    /// The answer; empty for a client that has gone.
    std::string reply(const HttpPage& page) {
        constexpr int kTooSlow = 408;
        constexpr int kTooLong = 431;
        std::string received;
        for (;;) {
            std::array<char, 1024> block{};
            const ssize_t got = receive(block.data(), block.size());
            if (got <= 0) {
                const bool late = got < 0 && Clock::now() >= limit_;
                return late ? http_refusal(kTooSlow) : "";
            }
            received.append(block.data(), static_cast<size_t>(got));
            const size_t size = http_head_size(received);
            if (size > kHttpHeadMax || (size == 0 && received.size() > kHttpHeadMax)) {
                return http_refusal(kTooLong);
            }
            if (size != 0) {
                return http_answer(read_http_request({received.data(), size}), page);
            }
        }
    }

    /// Until something is to be done, the time is over or a signal has come.
    bool wait(short events) const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit_ - Clock::now());
        return left.count() > 0 &&
               InterruptGuard::wait_until_ready(socket_, events, static_cast<int>(left.count()));
    }

    /// @return bytes, 0 at the end of what the client says, -1 if nothing comes any more
    ssize_t receive(char* into, size_t room) const {
        while (wait(POLLIN)) {
            const ssize_t got = recv(socket_, into, room, 0);
            if (got >= 0 || (errno != EAGAIN && errno != EINTR)) {
                return got;
            }
        }
        return -1;
    }

    bool send_all(std::string_view text) const {
        while (!text.empty() && wait(POLLOUT)) {
            const ssize_t sent = send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EAGAIN && errno != EINTR) {
                return false;
            }
            text.remove_prefix(sent < 0 ? 0 : static_cast<size_t>(sent));
        }
        return text.empty();
    }

    /// What the client still says is taken: a socket that is closed with bytes unread throws away
    /// the answer that is on its way.
    void part() {
        constexpr size_t kMost = 65536;
        shutdown(socket_, SHUT_WR);
        limit_ = Clock::now() + kFarewellTime;
        std::array<char, 4096> block{};
        for (size_t taken = 0; taken < kMost;) {
            const ssize_t got = receive(block.data(), block.size());
            if (got <= 0) {
                return;
            }
            taken += static_cast<size_t>(got);
        }
    }

    int socket_;
    Clock::time_point limit_;
};

}  // namespace

HttpAddress parse_http_address(const std::string& text) {
    const bool bracketed = text.starts_with('[') && text.find(']') != std::string::npos;
    const size_t colon = text.rfind(':');
    const bool bare_ipv6 = !bracketed && colon != text.find(':');
    HttpAddress address;
    address.host = text;
    if (bracketed) {
        address.host = text.substr(1, text.find(']') - 1);
    } else if (!bare_ipv6 && colon != std::string::npos) {
        address.host = text.substr(0, colon);
    }
    const std::string rest = bracketed   ? text.substr(text.find(']') + 1)
                             : bare_ipv6 ? ""
                                         : text.substr(std::min(colon, text.size()));
    address.port = rest.empty() ? kUsualPort : rest.substr(1);
    if (address.host.empty() || address.host == "localhost") {
        address.host = kLoopback;
    }
    address.is_ipv6 = address.host.find(':') != std::string::npos;
    const bool port_good = (rest.empty() || rest[0] == ':') &&
                           parse_number(address.port, 65535).has_value() &&
                           !address.port.starts_with("0x") && !address.port.starts_with("0X");
    if (!port_good || resolve(address) == nullptr) {
        throw Failure(ExitStatus::kUsage,
                      text + ": an address to listen on is given as 127.0.0.1:" + kUsualPort +
                          " or [::1]:" + kUsualPort);
    }
    return address;
}

HttpServer::HttpServer(const HttpAddress& address) {
    constexpr int kWaiting = 8;
    constexpr int kOn = 1;
    const AddressList found = resolve(address);
    if (found != nullptr) {
        socket_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    }
    if (socket_ >= 0) {
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    }
    if (socket_ < 0 || bind(socket_, found->ai_addr, found->ai_addrlen) != 0 ||
        listen(socket_, kWaiting) != 0) {
        const std::string reason = std::system_category().message(errno);
        if (socket_ >= 0) {
            close(socket_);
        }
        throw Failure(ExitStatus::kFailed, fmt::format("{}:{}: nobody can listen there: {}",
                                                       url_host(address), address.port, reason));
    }
    url_ = fmt::format("http://{}:{}/metrics", url_host(address), port_of(socket_));
}

HttpServer::~HttpServer() {
    close(socket_);
}

void HttpServer::serve(const HttpPage& page) const {
    constexpr int kAWhile = 60000;
    while (!InterruptGuard::pending()) {
        if (!InterruptGuard::wait_until_ready(socket_, POLLIN, kAWhile)) {
            continue;
        }
        const int client = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client >= 0) {
            Client(client).answer(page);
        }
    }
}

}  // namespace tool

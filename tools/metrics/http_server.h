// SPDX-License-Identifier: Apache-2.0
// A web server with one page, for one client at a time, none of which can keep it for long.
#ifndef SIDEBAND_TOOLS_METRICS_HTTP_SERVER_H
#define SIDEBAND_TOOLS_METRICS_HTTP_SERVER_H

#include <string>

#include "tools/metrics/http_message.h"

namespace tool {

/// Where a server listens.
struct HttpAddress {
    std::string host;  ///< numeric
    std::string port;
    bool is_ipv6 = false;
};

/// "127.0.0.1", "127.0.0.1:9823", ":9823", "localhost:9823", "[::1]:9823", "::1". Throws Failure
/// for wrong usage.
HttpAddress parse_http_address(const std::string& text);

/// Needs an InterruptGuard around it, which tells it when to end.
class HttpServer {
public:
    /// Throws Failure if nobody can listen there.
    explicit HttpServer(const HttpAddress& address);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Where the page is: "http://127.0.0.1:9823/metrics".
    const std::string& url() const { return url_; }

    /// Answers clients, one after the other, until a signal comes.
    void serve(const HttpPage& page) const;

private:
    int socket_ = -1;
    std::string url_;
};

}  // namespace tool

#endif

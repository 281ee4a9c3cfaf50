// SPDX-License-Identifier: Apache-2.0
// What a web server that has one page is asked, and what it answers (RFC 9110, RFC 9112).
#ifndef SIDEBAND_TOOLS_METRICS_HTTP_MESSAGE_H
#define SIDEBAND_TOOLS_METRICS_HTTP_MESSAGE_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace tool {

/// Bytes that a request's head has at most: its first line and its fields.
inline constexpr size_t kHttpHeadMax = 8192;

/// What a client asks for. Nothing else of its request matters to the one page.
struct HttpRequest {
    int problem = 0;  ///< the status with which it is refused; 0 if it is asked well
    bool is_get = false;
    bool is_head = false;
    bool open_metrics = false;  ///< the client takes application/openmetrics-text
    std::string path;           ///< without query
};

/// Bytes of a head that is there as a whole, its empty line included; 0 for one that is not.
size_t http_head_size(std::string_view received);

/// Reads a head that is there as a whole.
HttpRequest read_http_request(std::string_view head);

/// The page when it is asked for. What is thrown as Failure becomes status 503.
using HttpPage = std::function<std::string()>;

/// The whole answer to a request: head and, unless it is HEAD, body.
std::string http_answer(const HttpRequest& request, const HttpPage& page);

/// The answer to somebody whose request cannot be had.
std::string http_refusal(int status);

}  // namespace tool

#endif

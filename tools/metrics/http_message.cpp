// SPDX-License-Identifier: Apache-2.0
// What a web server that has one page is asked, and what it answers (RFC 9110, RFC 9112).
#include "tools/metrics/http_message.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/shell/failure.h"
#include "tools/shell/name_table.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr std::string_view kPath = "/metrics";
constexpr const char* kPlain = "text/plain; charset=utf-8";

constexpr Name kReasons[] = {
    {200, "OK"},
    {400, "Bad Request"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {431, "Request Header Fields Too Large"},
    {503, "Service Unavailable"},
    {505, "HTTP Version Not Supported"},
};

std::string reason_of(int status) {
    return find_name(kReasons, static_cast<uint16_t>(status), "");
}

bool is_token_character(char c) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return letter || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool is_token(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_token_character);
}

/// Text without control characters other than the tabulator.
bool is_plain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<uint8_t>(c);
        return (byte >= 0x20 || c == '\t') && byte != 0x7F;
    });
}

std::string lower(std::string_view text) {
    std::string small(text);
    std::transform(small.begin(), small.end(), small.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 0x20) : c; });
    return small;
}

/// Takes the first line off a text, without its end, which is CR LF or LF alone.
std::string_view take_line(std::string_view& text) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

/// The path of a target, which a proxy gets with scheme and authority in front.
std::string path_of(std::string_view target) {
    const size_t scheme = target.find("://");
    if (!target.starts_with('/') && scheme != std::string_view::npos) {
        const size_t slash = target.find('/', scheme + 3);
        target = slash == std::string_view::npos ? "/" : target.substr(slash);
    }
    return std::string(target.substr(0, target.find_first_of("?#")));
}

/// @return the status of a first line that is wrong, else 0
int read_first_line(std::string_view line, HttpRequest& request) {
    constexpr int kBad = 400;
    constexpr int kOtherVersion = 505;
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last || !is_plain(line)) {
        return kBad;
    }
    const std::string_view method = line.substr(0, first);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    const std::string_view version = line.substr(last + 1);
    const bool is_http = version.size() == 8 && version.starts_with("HTTP/") && version[6] == '.';
    if (!is_token(method) || target.empty() || target.find(' ') != std::string_view::npos ||
        !is_http) {
        return kBad;
    }
    if (version != "HTTP/1.1" && version != "HTTP/1.0") {
        return kOtherVersion;
    }
    request.is_get = method == "GET";
    request.is_head = method == "HEAD";
    request.path = path_of(target);
    return 0;
}

/// @return whether a line has a field's form; notes what the client takes
bool read_field(std::string_view line, HttpRequest& request) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || !is_token(line.substr(0, colon)) || !is_plain(line)) {
        return false;
    }
    const std::string value = lower(line.substr(colon + 1));
    request.open_metrics |= lower(line.substr(0, colon)) == "accept" &&
                            value.find("application/openmetrics-text") != std::string::npos;
    return true;
}

std::string answer_text(int status, const std::string& type, std::string_view body, bool head) {
    std::string text = fmt::format("HTTP/1.1 {} {}\r\n", status, reason_of(status));
    text += fmt::format("Content-Type: {}\r\nContent-Length: {}\r\n", type, body.size());
    text += status == 405 ? "Allow: GET, HEAD\r\n" : "";
    text += "Connection: close\r\n\r\n";
    text += head ? "" : body;
    return text;
}

std::string plain_answer(int status, const std::string& words, bool head) {
    return answer_text(status, kPlain, words + "\n", head);
}

}  // namespace

size_t http_head_size(std::string_view received) {
    // A line may end in LF alone (RFC 9112, clause 2.2), so the empty one may too.
    size_t at = 0;
    while ((at = received.find('\n', at)) != std::string_view::npos) {
        const std::string_view rest = received.substr(at + 1);
        if (rest.starts_with('\n')) {
            return at + 2;
        }
        if (rest.starts_with("\r\n")) {
            return at + 3;
        }
        ++at;
    }
    return 0;
}

HttpRequest read_http_request(std::string_view head) {
    constexpr int kBad = 400;
    HttpRequest request;
    request.problem = read_first_line(take_line(head), request);
    for (std::string_view line = take_line(head); request.problem == 0 && !line.empty();
         line = take_line(head)) {
        request.problem = read_field(line, request) ? 0 : kBad;
    }
    return request;
}

std::string http_answer(const HttpRequest& request, const HttpPage& page) {
    if (request.problem != 0) {
        return http_refusal(request.problem);
    }
    if (!request.is_get && !request.is_head) {
        return plain_answer(405, "GET and HEAD alone", false);
    }
    if (request.path != kPath) {
        return plain_answer(404, "there is " + std::string(kPath) + " alone", request.is_head);
    }
    try {
        return answer_text(200,
                           request.open_metrics
                               ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                               : "text/plain; version=0.0.4; charset=utf-8",
                           page(), request.is_head);
    } catch (const Failure& failure) {
        return plain_answer(503, printable(failure.what()), request.is_head);
    }
}

std::string http_refusal(int status) {
    return plain_answer(status, reason_of(status), false);
}

}  // namespace tool

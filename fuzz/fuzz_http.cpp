// SPDX-License-Identifier: Apache-2.0
// Fuzzes what clients ask of the page of metrics.
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "fuzz/world.h"
#include "tools/metrics/http_message.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    constexpr std::string_view kPage = "a 1\n";
    const std::string received(bytes, bytes + size);
    const size_t head = tool::http_head_size(received);
    require(head <= size, "a head that is longer than what came");
    if (head == 0) {
        return 0;
    }
    // A copy of that size, so that a sanitizer sees where it ends.
    const tool::HttpRequest request = tool::read_http_request(std::string(received, 0, head));
    const std::string answer = tool::http_answer(request, [&] { return std::string(kPage); });
    require(answer.starts_with("HTTP/1.1 "), "no answer");
    const size_t end = tool::http_head_size(answer);
    require(end != 0, "an answer without an end of its head");
    require((request.problem == 0) ==
                (answer.compare(9, 3, "400") != 0 && answer.compare(9, 3, "505") != 0),
            "a refusal without a reason, or the other way round");
    const std::string_view body = std::string_view(answer).substr(end);
    require(!request.is_head || request.problem != 0 || body.empty(), "a body for HEAD");
    require(body != kPage || (request.is_get && request.path == "/metrics"),
            "the page for whoever did not ask for it");
    return 0;
}

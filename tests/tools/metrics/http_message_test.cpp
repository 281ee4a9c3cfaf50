// SPDX-License-Identifier: Apache-2.0
// Tests of what the web server makes of requests.
#include "tools/metrics/http_message.h"

#include <gtest/gtest.h>

#include "tools/shell/failure.h"

namespace {

using tool::http_answer;
using tool::http_head_size;
using tool::read_http_request;

const std::string kGood = "GET /metrics HTTP/1.1\r\nHost: bmc\r\nAccept: */*\r\n\r\n";

std::string page() {
    return "x 1\n";
}

std::string answer_to(const std::string& head) {
    return http_answer(read_http_request(head), page);
}

/// The status of an answer.
std::string status_of(const std::string& head) {
    const std::string answer = answer_to(head);
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 ")) << answer;
    return answer.substr(9, 3);
}

TEST(HttpMessage, AnswersTheOnePage) {
    EXPECT_EQ(answer_to(kGood),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
              "Content-Length: 4\r\nConnection: close\r\n\r\nx 1\n");
    EXPECT_EQ(answer_to("HEAD /metrics HTTP/1.0\r\n\r\n"),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
              "Content-Length: 4\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(answer_to("GET /metrics HTTP/1.1\r\naccept: text/plain;q=0.5, "
                          "Application/OpenMetrics-Text; version=1.0.0\r\n\r\n")
                    .find("\r\nContent-Type: application/openmetrics-text; version=1.0.0; "
                          "charset=utf-8\r\n") != std::string::npos);
}

TEST(HttpMessage, TakesEveryFormOfTheTarget) {
    for (const char* target :
         {"/metrics", "/metrics?a=b", "http://bmc:9823/metrics", "/metrics#a"}) {
        EXPECT_EQ(status_of("GET " + std::string(target) + " HTTP/1.1\r\nHost: x\r\n\r\n"), "200")
            << target;
    }
    for (const char* target : {"/", "/metrics/", "/Metrics", "*", "http://metrics", "//metrics",
                               "/%6detrics", "metrics", "?/metrics"}) {
        EXPECT_EQ(status_of("GET " + std::string(target) + " HTTP/1.1\r\nHost: x\r\n\r\n"), "404")
            << target;
    }
}

TEST(HttpMessage, OtherMethodsAreToldWhichThereAre) {
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "get", "GETS"}) {
        const std::string answer = answer_to(std::string(method) + " /metrics HTTP/1.1\r\n\r\n");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 405 Method Not Allowed\r\n")) << method;
        EXPECT_TRUE(answer.find("\r\nAllow: GET, HEAD\r\n") != std::string::npos) << method;
    }
}

TEST(HttpMessage, RefusesWhatIsNoRequest) {
    for (const char* head :
         {"\r\n\r\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", "GET  HTTP/1.1\r\n\r\n",
          "GET /a b HTTP/1.1\r\n\r\n", "G@T /metrics HTTP/1.1\r\n\r\n",
          "GET /metrics FTP/1.1x\r\n\r\n", "GET /\x01 HTTP/1.1\r\n\r\n",
          "GET /metrics HTTP/1.1\r\nno field\r\n\r\n", "GET /metrics HTTP/1.1\r\n: x\r\n\r\n",
          "GET /metrics HTTP/1.1\r\nHost : x\r\n\r\n", "GET /metrics HTTP/1.1\r\n a: x\r\n\r\n",
          "GET /metrics HTTP/1.1\r\na: \x1b[0m\r\n\r\n"}) {
        EXPECT_EQ(status_of(head), "400") << head;
    }
    EXPECT_EQ(status_of("GET /metrics HTTP/2.0\r\n\r\n"), "505");
    EXPECT_EQ(status_of("GET /metrics HTTP/1.9\r\n\r\n"), "505");
}

TEST(HttpMessage, AHeadEndsWithItsEmptyLine) {
    for (size_t size = 0; size < kGood.size(); ++size) {
        EXPECT_EQ(http_head_size(kGood.substr(0, size)), 0U) << size;
    }
    EXPECT_EQ(http_head_size(kGood), kGood.size());
    EXPECT_EQ(http_head_size(kGood + "body"), kGood.size());
    EXPECT_EQ(http_head_size("GET / HTTP/1.1\n\nx"), 16U);
    EXPECT_EQ(http_head_size("a\n\r"), 0U);
}

TEST(HttpMessage, EveryFlippedBitHasAnAnswer) {
    size_t answered = 0;
    for (size_t bit = 0; bit < kGood.size() * 8; ++bit) {
        std::string head = kGood;
        head[bit / 8] = static_cast<char>(head[bit / 8] ^ 1 << bit % 8);
        const std::string status = status_of(head);
        answered += status == "200" || status == "400" || status == "404" || status == "405" ||
                            status == "505"
                        ? 1
                        : 0;
    }
    EXPECT_EQ(answered, kGood.size() * 8);
}

TEST(HttpMessage, APageThatCannotBeHadSaysWhy) {
    const std::string answer = http_answer(read_http_request(kGood), []() -> std::string {
        throw tool::Failure(tool::ExitStatus::kFailed, "no bus\x1b");
    });
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 503 Service Unavailable\r\n")) << answer;
    EXPECT_TRUE(answer.ends_with("\r\n\r\nno bus\\x1b\n")) << answer;
}

}  // namespace

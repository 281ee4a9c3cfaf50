// SPDX-License-Identifier: Apache-2.0
// A simulated board with one replay device, and the library's contexts that reach it.
#include "traces/replay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "support/capture.h"
#include "support/json.h"

namespace test {

namespace {

using tool::Json;

constexpr uint8_t kDeviceEid = 0x0C;

std::string digits(const Bytes& bytes) {
    std::string text = to_hex(bytes);
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

std::string board_file(uint8_t message_type, const std::vector<Exchange>& exchanges) {
    Json list = Json::array();
    for (const Exchange& exchange : exchanges) {
        list.push_back({{"message_type", message_type},
                        {"request", digits(exchange.request)},
                        {"response", digits(exchange.response)}});
    }
    const Json device = {{"name", "rec0"},    {"type", "replay"},  {"bus", 5},
                         {"address", "0x30"}, {"eid", kDeviceEid}, {"exchanges", list}};
    const Json board = {{"name", "recorded"},
                        {"bmc", {{"eid", 8}, {"address", "0x20"}}},
                        {"buses", Json::array({{{"bus", 5}}})},
                        {"devices", Json::array({device})}};
    return board.dump(1);
}

}  // namespace

Replay::Replay(uint8_t message_type, const std::vector<Exchange>& exchanges)
    : message_type_(message_type) {
    sim::BoardError error;
    const std::string text = board_file(message_type, exchanges);
    board_ = sim::Board::parse(text, error);
    if (board_ == nullptr) {
        throw std::runtime_error(error.message("board") + "\n" + text);
    }
    sim::Board::use(board_.get());
}

Replay::~Replay() {
    sim::Board::use(nullptr);
}

mctp_ctx Replay::endpoint() const {
    const sim::EndpointInfo& info = board_->endpoints().at(0);
    mctp_ctx ctx{};
    ctx.binding_kind = info.binding_kind;
    ctx.bus = info.bus;
    ctx.slave_addr = info.address;
    std::copy(info.mux.begin(), info.mux.end(), ctx.mux);
    ctx.route = info.route;
    ctx.unit_size = info.unit_size;
    ctx.src_eid = 8;
    ctx.dest_eid = kDeviceEid;
    ctx.skip_discovery = 1;
    if (mctp_init2(&ctx) != 0) {
        throw std::runtime_error("the context could not be initialised");
    }
    ctx.msg_type = message_type_;
    return ctx;
}

bool Replay::locks_in_order() const {
    const sim::LockReport report = board_->lock_report();
    return report.violations.empty() && report.held.empty();
}

ReplayTerminus::ReplayTerminus(const std::vector<Exchange>& exchanges)
    : replay_(MCTP_MSG_TYPE_PLDM, exchanges), mctp_(replay_.endpoint()) {
    EXPECT_EQ(mctp_pldm_register(&mctp_, &ctx), 0);
}

int32_t quietly(const std::function<int32_t()>& call) {
    Capture out(1);
    return call();
}

}  // namespace test

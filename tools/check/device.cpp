// SPDX-License-Identifier: Apache-2.0
// The device as the rules see it: questions, what it is known to speak, and the ends of a rule.
#include "tools/check/device.h"

#include <fmt/format.h>
#include <sideband/mctp.h>

#include <optional>

namespace tool::check {
namespace {

/// Bytes of answers that are kept to spare a question.
constexpr size_t kMostRemembered = 4u << 20;

/// Where a message of a type has its instance ID, and in which bits of that byte.
struct InstanceId {
    size_t place;
    uint8_t bits;
};

std::optional<InstanceId> instance_id(uint8_t type) {
    switch (type) {
        case MCTP_MSG_TYPE_CONTROL:
        case MCTP_MSG_TYPE_PLDM:
            return InstanceId{0, 0x1F};
        case MCTP_MSG_TYPE_NCSI:
            return InstanceId{3, 0xFF};
        default:
            return std::nullopt;
    }
}

Result try_rule(Device& device, const Rule& rule, bool may_write) {
    if (rule.writes && !may_write) {
        return {&rule, Outcome::kNotApplicable, "it changes the device: only with --write", {}};
    }
    try {
        device.begin_rule();
        rule.judge(device);
        return {&rule, Outcome::kPassed, {}, {}};
    } catch (const Finding& finding) {
        return {&rule, finding.applies ? Outcome::kFailed : Outcome::kNotApplicable, finding.text,
                finding.evidence};
    }
}

}  // namespace

std::vector<Result> judge(Device& device, std::span<const Rule* const> rules, bool may_write) {
    std::vector<Result> results;
    for (const Rule* rule : rules) {
        results.push_back(try_rule(device, *rule, may_write));
    }
    return results;
}

void Device::begin_rule() {
    exchanges_ = 0;
    begun_us_ = channel_.now_us();
}

Exchange Device::send(uint8_t type, Bytes body) {
    Exchange exchange = channel_.exchange(type, body);
    if (++exchanges_ > kMostExchanges) {
        fail(exchange, fmt::format("an end after at most {} exchanges", kMostExchanges));
    }
    if (channel_.now_us() - begun_us_ > kLongestRuleUs) {
        fail(exchange, fmt::format("an end within {} seconds", kLongestRuleUs / 1'000'000));
    }
    return exchange;
}

Exchange Device::ask(uint8_t type, Bytes body) {
    const std::optional<InstanceId> where = instance_id(type);
    if (where && body.size() > where->place) {
        // 0 is left out: NC-SI keeps it for what the controller sends by itself.
        instance_ = static_cast<uint8_t>(instance_ % 0x1F + 1);
        uint8_t& byte = body[where->place];
        byte = static_cast<uint8_t>((byte & ~where->bits) | (instance_ & where->bits));
    }
    return send(type, std::move(body));
}

Exchange Device::recall(uint8_t type, const Bytes& body) {
    const auto found = recalled_.find({type, body});
    if (found != recalled_.end()) {
        return found->second;
    }
    Exchange exchange = ask(type, body);
    remembered_ += body.size() + response_of(exchange).size();
    if (remembered_ <= kMostRemembered) {
        recalled_[{type, body}] = exchange;
    }
    return exchange;
}

void fail(const Exchange& exchange, const std::string& expected) {
    fail(std::vector<Exchange>{exchange}, expected);
}

void fail(std::vector<Exchange> evidence, const std::string& expected) {
    for (Exchange& exchange : evidence) {
        exchange.packets.clear();
    }
    throw Finding{true, expected, std::move(evidence)};
}

void not_applicable(const std::string& why) {
    throw Finding{false, why, {}};
}

std::span<const uint8_t> response_of(const Exchange& exchange) {
    return exchange.response ? std::span<const uint8_t>(*exchange.response)
                             : std::span<const uint8_t>();
}

}  // namespace tool::check

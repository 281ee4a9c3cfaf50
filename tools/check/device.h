// SPDX-License-Identifier: Apache-2.0
// The device as the rules see it: questions, what it is known to speak, and the ends of a rule.
#ifndef SIDEBAND_TOOLS_CHECK_DEVICE_H
#define SIDEBAND_TOOLS_CHECK_DEVICE_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "tools/check/rule.h"

namespace tool::check {

/// A rule that has made so many exchanges, or has taken so long by the device's clock, fails: a
/// device that never comes to an end must not keep the check from its own.
inline constexpr uint32_t kMostExchanges = 20'000;
inline constexpr uint64_t kLongestRuleUs = 300'000'000;

class Device {
public:
    explicit Device(Channel& channel) : channel_(channel) {}

    Channel& channel() { return channel_; }

    /// Before each rule.
    void begin_rule();

    /// Sends a message as it stands.
    Exchange send(uint8_t type, Bytes body);

    /// Sends a message as a new one: in MCTP control, PLDM and NC-SI with the next instance ID.
    Exchange ask(uint8_t type, Bytes body);

    /// As ask(), but what was asked in this way before is not asked again.
    Exchange recall(uint8_t type, const Bytes& body);

    /// Something that takes many questions to know and is found out once.
    template <typename Known>
    const Known& once(Known (*find_out)(Device&)) {
        std::shared_ptr<void>& kept = known_[reinterpret_cast<void (*)()>(find_out)];
        if (kept == nullptr) {
            kept = std::make_shared<Known>(find_out(*this));
        }
        return *static_cast<const Known*>(kept.get());
    }

private:
    Channel& channel_;
    uint8_t instance_ = 0;
    uint32_t exchanges_ = 0;  ///< of the rule
    uint64_t begun_us_ = 0;   ///< when the rule was
    size_t remembered_ = 0;   ///< bytes in recalled_
    std::map<std::pair<uint8_t, Bytes>, Exchange> recalled_;
    std::map<void (*)(), std::shared_ptr<void>, std::less<>> known_;
};

/// Ends the rule: it does not hold. The messages are the evidence, without their packets.
/// @param expected  what should have come, in words
[[noreturn]] void fail(const Exchange& exchange, const std::string& expected);
[[noreturn]] void fail(std::vector<Exchange> evidence, const std::string& expected);

/// Ends the rule unless something holds.
inline void expect(bool holds, const Exchange& exchange, const char* expected) {
    if (!holds) {
        fail(exchange, expected);
    }
}

/// Ends the rule: it does not apply to the device.
[[noreturn]] void not_applicable(const std::string& why);

/// What an answer holds; for no answer nothing.
std::span<const uint8_t> response_of(const Exchange& exchange);

}  // namespace tool::check

#endif

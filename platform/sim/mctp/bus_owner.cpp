// SPDX-License-Identifier: Apache-2.0
// A bus owner that discovers the BMC and gives it an EID, and checks every answer (DSP0236).
#include <algorithm>
#include <utility>

#include "sim/device/device.h"
#include "sim/device/message.h"
#include "sim/mctp/control.h"

namespace sim {

namespace {

constexpr int64_t kLongestPauseUs = 60'000'000;

/// One request to the BMC.
struct Question {
    const char* name;
    Bytes request;  ///< command code and data
    /// Completion code and data; behind them nothing but zeros may follow. Empty: no answer may
    /// come.
    Bytes answer;
    bool may_use_new_eid = false;  ///< the answer may come from the EID that was just assigned
};

/// What is asked in turn (DSP0236, clauses 12.3, 12.4, 12.8, 12.13 and 12.14).
std::vector<Question> questions(uint8_t eid) {
    return {
        {"Prepare for Endpoint Discovery", {0x0B}, {0x00}},
        {"Endpoint Discovery", {0x0C}, {0x00}},
        {"Endpoint Discovery, again", {0x0C}, {}},
        {"Get Endpoint ID", {0x02}, {0x00, 0x00, 0x10, 0x00}},
        {"Get Vendor Defined Message Support",
         {0x06, 0x00},
         {0x00, 0xFF, 0x00, 0x03, 0x1A, 0x00, 0x01}},
        {"Get Vendor Defined Message Support, another set", {0x06, 0x01}, {0x02}},
        {"Set Endpoint ID to 0", {0x01, 0x00, 0x00}, {0x02}},
        {"Set Endpoint ID", {0x01, 0x00, eid}, {0x00, 0x00, eid, 0x00}, true},
    };
}

class BusOwner : public Device {
public:
    BusOwner(ObjectReader& reader, const DeviceConfig& config, const Clock& clock)
        : Device(config, clock, {}),
          assign_(static_cast<uint8_t>(reader.whole("assign", 8, 254))),
          pause_us_(static_cast<uint64_t>(reader.whole("pause_us", 1, kLongestPauseUs, 2000))),
          silence_us_(
              static_cast<uint64_t>(reader.whole("silence_us", 1, kLongestPauseUs, 100'000))),
          questions_(questions(assign_)) {}

    void reset() override {
        Device::reset();
        report_ = {};
        asked_ = 0;
    }

    OwnerReport owner_report() const override { return report_; }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        if (type != kControlType || request.size() < 2) {
            return std::nullopt;
        }
        if (request[1] != kControlDiscoveryNotify) {
            return answer_control(request);
        }
        report_ = {};
        report_.notified = true;
        asked_ = 0;
        ask(response_us() + pause_us_);
        return Bytes{static_cast<uint8_t>(request[0] & kInstanceBits), kControlDiscoveryNotify,
                     kControlSuccess};
    }

    void heard(const Message& response) override {
        // The tag is the number of the question.
        const size_t number = response.tag;
        if (number >= report_.steps.size() || response.type != kControlType) {
            return;
        }
        OwnerStep& step = report_.steps[number];
        step.complaint =
            step.answer.empty() ? complaint_about(number, response) : "answered more than once";
        step.answer = to_hex(response.body);
        if (number + 1 != asked_) {
            return;
        }
        if (asked_ < questions_.size()) {
            ask(pause_us_);
            return;
        }
        report_.complete = true;
        if (step.complaint.empty()) {
            report_.assigned_eid = assign_;
        }
    }

private:
    /// Sends the next question, and the one after it if nobody may answer the first.
    void ask(uint64_t delay_us) {
        const Question& question = questions_[asked_];
        Message request;
        request.type = kControlType;
        request.body = {static_cast<uint8_t>(kRequestBit | (asked_ & kInstanceBits))};
        append(request.body, question.request);
        request.tag = static_cast<uint8_t>(asked_);
        report_.steps.push_back({question.name, to_hex(request.body), "", ""});
        initiate(std::move(request), delay_us);
        ++asked_;
        if (question.answer.empty()) {
            ask(delay_us + silence_us_);
        }
    }

    std::string complaint_about(size_t number, const Message& response) const {
        const Question& question = questions_[number];
        if (question.answer.empty()) {
            return "no answer was expected";
        }
        if (response.destination_eid != 0 && response.destination_eid != eid()) {
            return "the destination EID is " + hex_byte(response.destination_eid);
        }
        if (response.source_eid != 0 &&
            !(question.may_use_new_eid && response.source_eid == assign_)) {
            return "the source EID is " + hex_byte(response.source_eid);
        }
        Bytes expected{static_cast<uint8_t>(number & kInstanceBits), question.request[0]};
        append(expected, question.answer);
        const Bytes& body = response.body;
        const bool fits = body.size() >= expected.size() &&
                          std::ranges::equal(ByteView(body).first(expected.size()), expected) &&
                          std::all_of(body.begin() + static_cast<std::ptrdiff_t>(expected.size()),
                                      body.end(), [](uint8_t byte) { return byte == 0; });
        return fits ? "" : "expected " + to_hex(expected);
    }

    uint8_t assign_;
    uint64_t pause_us_;
    uint64_t silence_us_;
    std::vector<Question> questions_;
    size_t asked_ = 0;  ///< how many questions were asked
    OwnerReport report_;
};

}  // namespace

std::unique_ptr<Device> make_bus_owner(ObjectReader& reader, DeviceConfig config,
                                       const Clock& clock) {
    if (config.eid == 0) {
        reader.complain("eid", "must not be 0 for a bus_owner");
    }
    config.bus_owner = true;
    return std::make_unique<BusOwner>(reader, config, clock);
}

}  // namespace sim

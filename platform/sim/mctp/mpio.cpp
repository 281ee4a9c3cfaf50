// SPDX-License-Identifier: Apache-2.0
// The MPIO: bus owner and bridge of the PCIe functions, with EID pool and routing table (DSP0236).
#include <algorithm>
#include <set>
#include <utility>

#include "sim/device/device.h"
#include "sim/device/message.h"
#include "sim/mctp/control.h"
#include "sim/mctp/eid_pool.h"

namespace sim {

namespace {

const std::vector<std::string> kStepNames = {"set_endpoint_id",
                                             "get_endpoint_id",
                                             "allocate_endpoint_ids",
                                             "get_routing_table_entries",
                                             "prepare_for_endpoint_discovery",
                                             "endpoint_discovery"};
constexpr uint8_t kStepCommands[] = {kControlSetEndpointId,       kControlGetEndpointId,
                                     kControlAllocateEndpointIds, kControlGetRoutingTableEntries,
                                     kControlPrepareForDiscovery, kControlEndpointDiscovery};

constexpr int64_t kLongestDelayUs = 60'000'000;

/// How the device answers one command, instead of properly.
struct Step {
    enum class Outcome { kNormal, kRefused, kNotReady, kNoAnswer };
    uint8_t command = 0;
    Outcome outcome = Outcome::kNormal;
    uint8_t completion_code = 1;
    uint64_t delay_us = 0;
    uint64_t after = 0;
    uint64_t count = 0;
    uint64_t seen = 0;
};

Step read_step(const Place& place) {
    ObjectReader reader(place);
    Step step;
    step.command = kStepCommands[reader.choice("command", kStepNames)];
    step.outcome = static_cast<Step::Outcome>(
        reader.choice("outcome", {"normal", "refused", "not_ready", "no_answer"}, 0));
    if (step.outcome == Step::Outcome::kRefused) {
        step.completion_code = static_cast<uint8_t>(reader.whole("completion_code", 1, 255, 1));
    }
    step.delay_us = static_cast<uint64_t>(reader.whole("delay_us", 0, kLongestDelayUs, 0));
    step.after = static_cast<uint64_t>(reader.whole("after", 0, kMostTimes, 0));
    step.count = static_cast<uint64_t>(reader.whole("count", 0, kMostTimes, 0));
    reader.finish();
    return step;
}

class Mpio : public Device {
public:
    Mpio(ObjectReader& reader, const DeviceConfig& config, const Clock& clock)
        : Device(config, clock, {}),
          entries_per_part_(static_cast<size_t>(reader.whole("entries_per_part", 1, 7, 7))) {
        reader.each("steps", [&](const Place& step) { steps_.push_back(read_step(step)); });
    }

    void join(const std::vector<Device*>& everybody) override { everybody_ = &everybody; }

    void reset() override {
        Device::reset();
        pool_.reset();
        pooled_.clear();
    }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        if (type != kControlType || request.size() < 2) {
            return std::nullopt;
        }
        const Step step = strike(request[1]);
        delay_answer(step.delay_us);
        if (step.outcome == Step::Outcome::kNoAnswer) {
            return std::nullopt;
        }
        Bytes out{static_cast<uint8_t>(request[0] & kInstanceBits), request[1]};
        if (step.outcome == Step::Outcome::kNotReady) {
            out.push_back(kControlNotReady);
            return out;
        }
        if (step.outcome == Step::Outcome::kRefused) {
            out.push_back(step.completion_code);
            return out;
        }
        if (request[1] == kControlAllocateEndpointIds) {
            append(out, allocate(request.subspan(2)));
            return out;
        }
        if (request[1] == kControlGetRoutingTableEntries) {
            append(out, routing_table_part(request.subspan(2), table(), entries_per_part_));
            return out;
        }
        return pool_.with_wish(answer_control(request), functions().size());
    }

private:
    Step strike(uint8_t command) {
        for (Step& step : steps_) {
            if (step.command != command) {
                continue;
            }
            const uint64_t occasion = step.seen++;
            if (occasion >= step.after && (step.count == 0 || occasion < step.after + step.count)) {
                return step;
            }
        }
        return {};
    }

    /// The functions behind the MPIO: all but those that own a bus themselves.
    std::vector<Device*> functions() const {
        std::vector<Device*> all;
        std::ranges::copy_if(*everybody_, std::back_inserter(all),
                             [](const Device* device) { return !device->owns_bus(); });
        return all;
    }

    /// Allocate Endpoint IDs: hands the pool to the functions.
    Bytes allocate(ByteView data) {
        bool granted = false;
        Bytes out = pool_.allocate(data, granted);
        if (granted) {
            hand_out();
        }
        return out;
    }

    /// A function with an EID of its own keeps it, and so do the MPIO and bus owners.
    void hand_out() {
        unsigned next = pool_.first();
        const unsigned end = next + pool_.size();
        for (Device* device : functions()) {
            if (device->eid() != 0 && !pooled_.contains(device)) {
                continue;
            }
            pooled_.insert(device);
            while (taken(next)) {
                ++next;
            }
            device->set_eid(next < end ? static_cast<uint8_t>(next++) : 0);
        }
    }

    /// Whether somebody has an EID that is not from the pool.
    bool taken(unsigned eid) const {
        return std::ranges::any_of(*everybody_, [&](const Device* device) {
            return device->eid() == eid && !pooled_.contains(device);
        });
    }

    std::vector<Bytes> table() const {
        std::vector<Bytes> entries;
        if (eid() != 0) {
            entries.push_back(entry(*this, RouteType::kBridge));
        }
        for (const Device* device : functions()) {
            if (device->eid() != 0) {
                entries.push_back(entry(*device, RouteType::kEndpoint));
            }
        }
        return entries;
    }

    static Bytes entry(const Device& device, RouteType type) {
        return pcie_routing_entry(device.eid(), type, 0, device.info().bdf);
    }

    size_t entries_per_part_;
    std::vector<Step> steps_;
    const std::vector<Device*>* everybody_ = nullptr;
    std::set<const Device*> pooled_;  ///< who has its EID from the pool
    EidPool pool_;
};

}  // namespace

std::unique_ptr<Device> make_mpio(ObjectReader& reader, DeviceConfig config, const Clock& clock) {
    if (config.where.transport != Transport::kPcie) {
        reader.complain("transport", "must be pcie for an mpio");
    }
    if (config.where.bdf != std::array<uint8_t, 3>{}) {
        reader.complain("bdf", "must be 00:00.0 for an mpio");
    }
    config.bus_owner = true;
    return std::make_unique<Mpio>(reader, config, clock);
}

}  // namespace sim

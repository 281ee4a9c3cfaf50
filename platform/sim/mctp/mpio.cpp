// SPDX-License-Identifier: Apache-2.0
// The MPIO: bus owner and bridge of the PCIe functions, with EID pool and routing table (DSP0236).
#include <algorithm>
#include <set>
#include <utility>

#include "sim/device/device.h"
#include "sim/mctp/control.h"

namespace sim {

namespace {

constexpr uint8_t kControl = 0x00;
constexpr uint8_t kInstance = 0x1F;

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
constexpr int64_t kManyTimes = 1'000'000'000;
constexpr uint8_t kLastHandle = 0xFF;

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
    step.after = static_cast<uint64_t>(reader.whole("after", 0, kManyTimes, 0));
    step.count = static_cast<uint64_t>(reader.whole("count", 0, kManyTimes, 0));
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
        pool_size_ = 0;
        pooled_.clear();
    }

protected:
    std::optional<Bytes> answer(uint8_t type, ByteView request) override {
        if (type != kControl || request.size() < 2) {
            return std::nullopt;
        }
        const Step step = strike(request[1]);
        delay_answer(step.delay_us);
        if (step.outcome == Step::Outcome::kNoAnswer) {
            return std::nullopt;
        }
        Bytes out{static_cast<uint8_t>(request[0] & kInstance), request[1]};
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
            append(out, routing_table(request.subspan(2)));
            return out;
        }
        return with_pool_wish(answer_control(request));
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

    /// A bridge adds to its answer to Set Endpoint ID that it wants a pool (DSP0236, table 14).
    std::optional<Bytes> with_pool_wish(std::optional<Bytes> out) const {
        if (out && out->size() == 6 && (*out)[1] == kControlSetEndpointId) {
            (*out)[3] |= pool_size_ == 0 ? 0x01 : 0x02;
            (*out)[5] = static_cast<uint8_t>(functions().size());
        }
        return out;
    }

    /// The functions behind the MPIO: all but those that own a bus themselves.
    std::vector<Device*> functions() const {
        std::vector<Device*> all;
        std::ranges::copy_if(*everybody_, std::back_inserter(all),
                             [](const Device* device) { return !device->owns_bus(); });
        return all;
    }

    /// Allocate Endpoint IDs (DSP0236, clause 12.10): hands the pool to the functions.
    Bytes allocate(ByteView data) {
        enum Operation : uint8_t { kAllocatePool = 0, kForce = 1, kInformation = 2 };
        if (data.size() != 3) {
            return {kControlInvalidLength};
        }
        const uint8_t operation = data[0] & 3;
        if (operation > kInformation) {
            return {kControlInvalidData};
        }
        if (operation != kInformation) {
            const unsigned last = data[2] + data[1] - 1u;
            if (data[1] == 0 || data[2] < 8 || last > 254) {
                return {kControlInvalidData};
            }
            pool_size_ = data[1];
            first_eid_ = data[2];
            hand_out();
        }
        return {kControlSuccess, 0x00, pool_size_, first_eid_};
    }

    /// A function with an EID of its own keeps it, and so do the MPIO and bus owners.
    void hand_out() {
        unsigned next = first_eid_;
        const unsigned end = next + pool_size_;
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

    /// Get Routing Table Entries (DSP0236, clause 12.12); the handle is the number of the entry.
    Bytes routing_table(ByteView data) const {
        if (data.size() != 1) {
            return {kControlInvalidLength};
        }
        const std::vector<Bytes> entries = table();
        const size_t begin = data[0];
        if (begin != 0 && begin >= entries.size()) {
            return {kControlInvalidData};
        }
        const size_t end = std::min(begin + entries_per_part_, entries.size());
        const bool is_last = end == entries.size();
        Bytes out{kControlSuccess, is_last ? kLastHandle : static_cast<uint8_t>(end),
                  static_cast<uint8_t>(end - begin)};
        for (size_t i = begin; i < end; ++i) {
            append(out, entries[i]);
        }
        return out;
    }

    std::vector<Bytes> table() const {
        constexpr uint8_t kSingleEndpoint = 0x00;
        constexpr uint8_t kBridge = 0x80;
        std::vector<Bytes> entries;
        if (eid() != 0) {
            entries.push_back(entry(*this, kBridge));
        }
        for (const Device* device : functions()) {
            if (device->eid() != 0) {
                entries.push_back(entry(*device, kSingleEndpoint));
            }
        }
        return entries;
    }

    static Bytes entry(const Device& device, uint8_t type) {
        constexpr uint8_t kPcieVdm = 0x02;  // physical transport binding, DSP0239
        constexpr uint8_t kPcie4 = 0x0C;    // physical medium, DSP0239
        const auto& bdf = device.info().bdf;
        return {1,      device.eid(),
                type,   kPcieVdm,
                kPcie4, 2,
                bdf[0], static_cast<uint8_t>(bdf[1] << 3 | bdf[2])};
    }

    size_t entries_per_part_;
    std::vector<Step> steps_;
    const std::vector<Device*>* everybody_ = nullptr;
    std::set<const Device*> pooled_;  ///< who has its EID from the pool
    uint8_t pool_size_ = 0;
    uint8_t first_eid_ = 0;
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

// SPDX-License-Identifier: Apache-2.0
// The frame of the demo: numbered steps, each shown while it runs, and the summary of all.
#include "tools/demo/tour.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/shell/text.h"

namespace tool {
namespace {

/// Bytes on the wire that are no MCTP message bytes: addresses, counts, headers, PECs.
double overhead_percent(const BusUse& use) {
    if (use.bytes == 0) {
        return 0.0;
    }
    return 100.0 * static_cast<double>(use.bytes - std::min(use.payload_bytes, use.bytes)) /
           static_cast<double>(use.bytes);
}

}  // namespace

void Tour::Step::say(std::string_view line) const {
    output.text(fmt::format("   {}\n", printable(line)));
}

void Tour::Step::skip(std::string_view why) {
    skipped = true;
    result = why;
    say(why);
}

void Tour::step(const std::string& title, const std::string& explanation,
                const std::string& endpoint, const std::function<void(Step&)>& action) {
    context_.output.text(fmt::format("\n{}. {} ({})\n   {}\n\n", steps_.size() + 1, title,
                                     printable(endpoint), explanation));
    Step step{.output = context_.output, .result = {}, .details = {}};
    std::string outcome = "ok";
    try {
        action(step);
        outcome = step.skipped ? "skipped" : "ok";
    } catch (const Failure& failure) {
        outcome = "failed";
        step.result = failure.what();
        step.say("FAILED: " + step.result);
        failures_.push_back(failure);
    }
    steps_.push_back({.endpoint = endpoint,
                      .title = title,
                      .outcome = outcome,
                      .result = step.result,
                      .end_us = context_.port.now_us(),
                      .details = step.details});
}

Table Tour::summary() const {
    constexpr size_t kOutcome = 3;
    Table table({{"", true}, {"STEP"}, {"ENDPOINT"}, {"OUTCOME"}, {"RESULT"}, {"TIME", true}});
    for (size_t i = 0; i < steps_.size(); ++i) {
        const Done& done = steps_[i];
        table.add({std::to_string(i + 1), done.title, done.endpoint, done.outcome, done.result,
                   seconds_text(done.end_us)});
        table.tint(kOutcome, done.outcome == "failed"    ? Tone::kBad
                             : done.outcome == "skipped" ? Tone::kFaint
                                                         : Tone::kGood);
    }
    return table;
}

std::string Tour::buses_text() const {
    Table table({{"BUS", true},
                 {"CLOCK", true},
                 {"PACKETS", true},
                 {"BYTES", true},
                 {"ON THE WIRE", true},
                 {"NOT PAYLOAD", true}});
    for (const BusUse& use : context_.port.bus_use()) {
        table.add({std::to_string(use.bus), fmt::format("{} kHz", use.clock_hz / 1000),
                   std::to_string(use.packets), std::to_string(use.bytes),
                   fmt::format("{:.3f} ms", static_cast<double>(use.busy_ns) / 1e6),
                   fmt::format("{:.1f} %", overhead_percent(use))});
    }
    return table.text();
}

/// A line on PCIe, if anything passed there.
std::string Tour::pcie_text() const {
    const PcieUse use = context_.port.pcie_use();
    if (use.packets == 0) {
        return {};
    }
    return fmt::format("\nPCIe: {} in {}, {} message bytes.\n", counted(use.messages, "message"),
                       counted(use.packets, "packet"), use.payload_bytes);
}

Json Tour::steps_json() const {
    Json list = Json::array();
    for (size_t i = 0; i < steps_.size(); ++i) {
        const Done& done = steps_[i];
        Json json{
            {"step", i + 1},           {"title", done.title},   {"endpoint", done.endpoint},
            {"outcome", done.outcome}, {"result", done.result}, {"virtual_time_us", done.end_us}};
        if (!done.details.is_null()) {
            json["details"] = done.details;
        }
        list.push_back(json);
    }
    return list;
}

Json Tour::buses_json() const {
    Json list = Json::array();
    for (const BusUse& use : context_.port.bus_use()) {
        list.push_back({{"bus", use.bus},
                        {"clock_hz", use.clock_hz},
                        {"packets", use.packets},
                        {"bytes", use.bytes},
                        {"payload_bytes", use.payload_bytes},
                        {"busy_ns", use.busy_ns}});
    }
    return list;
}

void Tour::finish() {
    const size_t skipped = static_cast<size_t>(std::count_if(
        steps_.begin(), steps_.end(), [](const Done& done) { return done.outcome == "skipped"; }));
    const size_t ok = steps_.size() - skipped - failures_.size();
    context_.output.text("\nSummary\n\n");
    context_.output.table(summary());
    context_.output.text("\nThe buses\n\n" + buses_text() + pcie_text());
    context_.output.text(fmt::format(
        "\n{} steps: {} ok, {} failed, {} skipped, in {} of the board's time.\n", steps_.size(), ok,
        failures_.size(), skipped, seconds_text(context_.port.now_us())));
    const PcieUse pcie = context_.port.pcie_use();
    context_.output.document({{"board", context_.port.board_name()},
                              {"steps", steps_json()},
                              {"buses", buses_json()},
                              {"pcie",
                               {{"messages", pcie.messages},
                                {"packets", pcie.packets},
                                {"payload_bytes", pcie.payload_bytes}}},
                              {"ok", ok},
                              {"failed", failures_.size()},
                              {"skipped", skipped},
                              {"virtual_time_us", context_.port.now_us()}});
    for (const Failure& failure : failures_) {
        context_.report(failure);
    }
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The demo's second half: power off, faults on the bus, questions that a device refuses.
#include <fmt/format.h>

#include "tools/demo/demo.h"
#include "tools/nvme/firmware_update.h"
#include "tools/pldm/sensor_reading.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// Takes the faults of an endpoint away again, however a step ends.
class FaultGuard {
public:
    FaultGuard(Port& port, const std::string& endpoint) : port_(port), endpoint_(endpoint) {}
    ~FaultGuard() { port_.clear_faults(endpoint_); }
    FaultGuard(const FaultGuard&) = delete;
    FaultGuard& operator=(const FaultGuard&) = delete;

private:
    Port& port_;
    std::string endpoint_;
};

/// Sessions that are opened while this lives are as strict as it says.
class StrictGuard {
public:
    explicit StrictGuard(uint32_t bits) : before_(Session::strict()) { Session::set_strict(bits); }
    ~StrictGuard() { Session::set_strict(before_); }
    StrictGuard(const StrictGuard&) = delete;
    StrictGuard& operator=(const StrictGuard&) = delete;

private:
    uint32_t before_;
};

/// Switches the power on again, however a step ends.
class PowerGuard {
public:
    explicit PowerGuard(Port& port) : port_(port) {}
    ~PowerGuard() { port_.set_main_power(true); }
    PowerGuard(const PowerGuard&) = delete;
    PowerGuard& operator=(const PowerGuard&) = delete;

private:
    Port& port_;
};

/// What the steps of this half work with: one terminus, one of its sensors.
struct Subject {
    Port& port;
    const Endpoint& endpoint;
    const Sensor& sensor;

    std::string read(Session& session) const {
        return value_text(sensor, read_numeric(session, sensor.id)) + " " + sensor.unit;
    }

    /// The failure of a reading that has to fail.
    Failure failed_read(Session& session, uint16_t sensor_id) const {
        try {
            read_numeric(session, sensor_id);
        } catch (const Failure& failure) {
            return failure;
        }
        throw Failure(endpoint.name, fmt::format("the check of sensor {}", sensor_id),
                      "it was read, and should not have been");
    }
};

void show_power_off(Tour::Step& step, const Subject& subject) {
    Session session(subject.endpoint);
    session.discover();
    step.say("power on:   " + subject.read(session));
    const PowerGuard guard(subject.port);
    if (!subject.port.set_main_power(false)) {
        step.skip("this platform cannot switch the power");
        return;
    }
    const Failure refusal = subject.failed_read(session, subject.sensor.id);
    step.say(fmt::format("power off:  {}", refusal.what()));
    subject.port.set_main_power(true);
    step.say("power on:   " + subject.read(session));
    step.details = {{"refusal", refusal.what()}};
    step.result = "refused while off, answered again";
}

/// A fault that the library gets over by itself: the reading succeeds all the same.
void show_survived(Tour::Step& step, const Subject& subject, std::string_view fault) {
    Session session(subject.endpoint);
    session.discover();
    const FaultGuard guard(subject.port, subject.endpoint.name);
    step.say(fmt::format("fault:    {}", fault));
    if (!subject.port.add_fault(subject.endpoint.name, fault)) {
        step.skip("this platform cannot make devices misbehave");
        return;
    }
    const uint64_t begin = subject.port.now_us();
    step.say("reading:  " + subject.read(session));
    const uint64_t taken = subject.port.now_us() - begin;
    step.say("took:     " + seconds_text(taken));
    step.details = {{"fault", Json::parse(fault)}, {"duration_us", taken}};
    step.result = "survived";
}

/// A fault that costs one reading and nothing after it.
void show_lost(Tour::Step& step, const Subject& subject, std::string_view fault) {
    Session session(subject.endpoint);
    session.discover();
    const FaultGuard guard(subject.port, subject.endpoint.name);
    step.say(fmt::format("fault:  {}", fault));
    if (!subject.port.add_fault(subject.endpoint.name, fault)) {
        step.skip("this platform cannot make devices misbehave");
        return;
    }
    const Failure failure = subject.failed_read(session, subject.sensor.id);
    step.say(fmt::format("first:  {}", failure.what()));
    step.say("again:  " + subject.read(session));
    step.details = {{"fault", Json::parse(fault)}, {"failure", failure.what()}};
    step.result = "one reading failed, the next came";
}

void show_refusal(Tour::Step& step, const Subject& subject) {
    constexpr uint16_t kNoSuchSensor = 0xFFF0;
    Session session(subject.endpoint);
    session.discover();
    const Failure refusal = subject.failed_read(session, kNoSuchSensor);
    step.say(refusal.what());
    if (!refusal.code()) {
        throw Failure(refusal);
    }
    step.details = failure_json(refusal);
    step.result = "refused with " + refusal.code()->name;
}

/// What became of an exchange that a fault was part of.
struct Struck {
    std::string revision;  ///< of the drive, out of its Identify data; empty if there are no faults
    uint64_t took_us = 0;
};

Struck identify_struck(Port& port, const Endpoint& drive, std::string_view fault, uint32_t strict) {
    const StrictGuard strictness(strict);
    Session session(drive);
    session.discover();
    NvmeClient client(session);
    const uint16_t controller = client.choose({});
    const FaultGuard guard(port, drive.name);
    if (!port.add_fault(drive.name, fault)) {
        return {};
    }
    const uint64_t begin = port.now_us();
    const std::string revision = firmware_revision(client, controller);
    return {.revision = revision, .took_us = port.now_us() - begin};
}

/// Identify data are 65 packets. The library asks a drive again if no answer came.
void show_standard(Tour::Step& step, Port& port, const Endpoint& drive) {
    constexpr std::string_view kFault = R"({"kind": "wrong_sequence", "after": 64, "count": 1})";
    step.say(fmt::format("fault:   {}", kFault));
    const Struck lax = identify_struck(port, drive, kFault, 0);
    if (lax.revision.empty()) {
        step.skip("this platform cannot make devices misbehave");
        return;
    }
    const Struck strict = identify_struck(port, drive, kFault, MCTP_STRICT_ALL);
    step.say(
        fmt::format("lax:     took the answer, {} in {}", lax.revision, seconds_text(lax.took_us)));
    step.say(fmt::format("strict:  refused it and asked again, {} in {}", strict.revision,
                         seconds_text(strict.took_us)));
    step.details = {{"fault", Json::parse(kFault)},
                    {"lax_duration_us", lax.took_us},
                    {"strict_duration_us", strict.took_us}};
    if (strict.took_us < 2 * lax.took_us) {
        throw Failure(drive.name, "the strict context", "it took an answer out of sequence");
    }
    step.result = "noticed by the strict context alone";
}

void show_locks(Tour::Step& step, const Port& port) {
    const std::vector<std::string> complaints = port.lock_complaints();
    for (const std::string& complaint : complaints) {
        step.say(complaint);
    }
    if (!complaints.empty()) {
        throw Failure(ExitStatus::kFailed, "locks: " + complaints.front());
    }
    step.say("none is held, none was taken twice or in the wrong order");
    step.result = "all given back";
}

}  // namespace

void show_trouble(Tour& tour, Port& port, const Endpoint& endpoint, const Sensor& sensor) {
    const Subject subject{.port = port, .endpoint = endpoint, .sensor = sensor};
    tour.step("Power off", "With the host off nothing is sent to a device that has no power.",
              endpoint.name, [&](Tour::Step& step) { show_power_off(step, subject); });
    tour.step("No acknowledge", "A busy device leaves two writes unanswered; the third one counts.",
              endpoint.name, [&](Tour::Step& step) {
                  show_survived(step, subject, R"({"kind": "no_ack", "count": 2})");
              });
    tour.step("A doubled packet", "A packet of the answer comes twice; the copy does no harm.",
              endpoint.name, [&](Tour::Step& step) {
                  show_survived(step, subject, R"({"kind": "duplicate", "count": 1})");
              });
    tour.step("A lost answer", "The answer never comes: the call ends, the bus is free again.",
              endpoint.name, [&](Tour::Step& step) {
                  show_lost(step, subject, R"({"kind": "lost", "count": 1})");
              });
    tour.step("A question refused", "The device's own code arrives with its name.", endpoint.name,
              [&](Tour::Step& step) { show_refusal(step, subject); });
    tour.step("Locks", "The board has watched every lock that the library took.", "all",
              [&](Tour::Step& step) { show_locks(step, port); });
}

void show_strictness(Tour& tour, Port& port, const Endpoint& drive) {
    tour.step(
        "To the letter",
        "The last packet carries a wrong number. Firmware in the field does that: only a strict "
        "context minds.",
        drive.name, [&](Tour::Step& step) { show_standard(step, port, drive); });
}

}  // namespace tool

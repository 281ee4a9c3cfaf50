// SPDX-License-Identifier: Apache-2.0
// Rules of an I2C bus on which nobody answers.
#include "porttest/aside.h"
#include "porttest/raw_bus.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

constexpr int kAbsentMs = 2000;
constexpr int kForeignMax = 32;
/// Ends a rule in which a call does: the rest is only late.
constexpr int kLastMs = 20'000;

std::optional<Place> some_bus(const Subject& subject) {
    return subject.options.device ? subject.options.device : subject.options.absent;
}

/// Waits for a block that nobody sends.
Verdict read_nothing(const Subject& subject, const std::function<Verdict(int, int)>& rule) {
    const std::optional<Place> place = some_bus(subject);
    if (!place) {
        return not_applicable("needs --device or --absent");
    }
    for (int i = 0; i < kForeignMax; ++i) {
        int result = 0;
        const std::optional<int> taken = duration_of(subject.options.wait_limit_ms + kLastMs, [&] {
            result = RawBus(subject, place->bus).read().result;
        });
        if (!taken) {
            return rule(result, subject.options.wait_limit_ms + kLastMs);
        }
        if (result < 4) {
            return rule(result, *taken);
        }
    }
    return not_applicable("others write to the BMC all the time");
}

Verdict read_ends(const Subject& subject) {
    return read_nothing(subject, [&](int, int taken) {
        return taken <= subject.options.wait_limit_ms
                   ? passed()
                   : failed(
                         text("PltMCTPI2C_SlaveReadWithPEC_NoMutex() takes %d ms or more", taken));
    });
}

Verdict read_negative(const Subject& subject) {
    return read_nothing(subject, [](int result, int) {
        return result < 0 ? passed()
                          : failed(text("PltMCTPI2C_SlaveReadWithPEC_NoMutex() returns %d when "
                                        "nothing comes",
                                        result));
    });
}

Verdict absent(const Subject& subject, RawBus::Pec pec) {
    if (!subject.options.absent) {
        return not_applicable("needs --absent");
    }
    const Place place = *subject.options.absent;
    int result = 0;
    const std::optional<int> taken = duration_of(kLastMs, [&] {
        RawBus bus(subject, place.bus);
        result = bus.request(place, pec);
    });
    if (!taken || *taken > kAbsentMs) {
        return failed(text("the write takes %d ms or more", taken.value_or(kLastMs)));
    }
    return result != 0 ? passed() : failed("the write succeeds, and nobody is there");
}

Verdict absent_with_pec(const Subject& subject) {
    return absent(subject, RawBus::Pec::kByPort);
}

Verdict absent_as_given(const Subject& subject) {
    return absent(subject, RawBus::Pec::kAsGiven);
}

constexpr Rule kRules[] = {
    {"absent-with-pec", "locks-granted",
     "PltMCTPI2C_MasterWriteWithPEC_NoMutex() to an address where nobody is fails, within 2 s",
     "the missing acknowledge (ENXIO), and whether the driver tries again for long",
     absent_with_pec},
    {"absent-as-given", "locks-granted",
     "PltMCTPI2C_MasterWrite_NoMutex() to an address where nobody is fails, within 2 s",
     "the missing acknowledge (ENXIO), and whether the driver tries again for long",
     absent_as_given},
    {"read-ends", "locks-granted", "a slave read to which nothing comes ends within --wait-limit",
     "a poll() without a time limit: param 0 is the port's own, 1 s is recommended", read_ends},
    {"read-negative", "read-ends", "a slave read to which nothing comes returns less than 0",
     "the result for a time-out: -ETIMEDOUT, not 0 and not the number of zeroed bytes",
     read_negative},
};

}  // namespace

std::span<const Rule> bus_rules() {
    return kRules;
}

}  // namespace porttest

// SPDX-License-Identifier: Apache-2.0
// Rules of the power state, which the library reads before every write on SMBus.
#include "porttest/aside.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

constexpr int kReadings = 20;
constexpr int kReadingsMs = 200;
constexpr int kLongMs = 10'000;

bool register_on(const Subject& subject) {
    uint8_t value = 0;
    subject.port.gpio_read(PLT_MAIN_POWER_REGISTER, 0, 0, &value);
    return value != 0;
}

Verdict agree(const Subject& subject) {
    const bool on = subject.port.power_status() == 1;
    return register_on(subject) == on
               ? passed()
               : failed(text("PltCHASSIS_PowerStatus() says %s, the register %s", on ? "on" : "off",
                             on ? "off" : "on"));
}

/// As the library decides whether it writes.
Verdict lets_write(const Subject& subject) {
    const bool on = register_on(subject);
    const bool standby = subject.port.board->standby_option == 1 &&
                         (subject.global_var().standby_override != 0 ||
                          (subject.port.board->flags & PLT_FLAG_STANDBY_DEVICES) != 0 ||
                          subject.port.standby_off() == 0);
    if (on || standby) {
        return passed();
    }
    return subject.options.device
               ? failed(
                     "main power is off and standby access is not allowed: the library writes "
                     "nothing to the bus")
               : not_applicable("main power is off, and no --device is to be reached");
}

Verdict quick(const Subject& subject) {
    register_on(subject);  // the first one may have to open something
    const std::optional<int> taken = duration_of(kLongMs, [&] {
        for (int i = 0; i < kReadings; ++i) {
            register_on(subject);
        }
    });
    return taken && *taken <= kReadingsMs
               ? passed()
               : failed(text("%d readings take %d ms or more", kReadings, taken.value_or(kLongMs)));
}

constexpr Rule kRules[] = {
    {"power-agrees", "attach",
     "_PltGPIO_RegRead() of PLT_MAIN_POWER_REGISTER tells what PltCHASSIS_PowerStatus() tells",
     "_PltGPIO_RegRead(): value is preset to 0 and has to be written; 1 is on for both", agree},
    {"power-allows", "attach", "the library may write: main power is on, or standby is allowed",
     "_PltGPIO_RegRead(), plt_platform.standby_option and what goes with it", lets_write},
    {"power-quick", "attach", "_PltGPIO_RegRead() takes less than 10 ms: it precedes every write",
     "a shell command or a sleep in _PltGPIO_RegRead(): keep the value for a while", quick},
};

}  // namespace

std::span<const Rule> power_rules() {
    return kRules;
}

}  // namespace porttest

// SPDX-License-Identifier: Apache-2.0
// Rules of the global records and of what a service learns when it attaches to them.
#include "porttest/raw_bus.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

Verdict attach(const Subject& subject) {
    if (subject.attached == 0) {
        return failed("GlobalParaInit() returns 0, which is failure");
    }
    if (*subject.port.global_var == nullptr || *subject.port.global_sec_var == nullptr) {
        return failed("at_p_St_GlobalVar or at_p_St_GlobalSecVar is null");
    }
    return passed();
}

Verdict bmc_eid(const Subject& subject) {
    const unsigned eid = subject.parameters.bmc_eid;
    const bool reserved = (eid >= 1 && eid <= 7) || eid == 0xFF;
    return reserved ? failed(text("GlobalParaInit() tells the EID %u", eid)) : passed();
}

Verdict mpio_state(const Subject& subject) {
    const uint32_t state = subject.global_sec_var().mpio_state;
    const bool is_eid = state >= 8 && state <= 254;
    return state == PLT_MPIO_NONE || state == PLT_MPIO_WANTED || is_eid
               ? passed()
               : failed(text("mpio_state is 0x%x", state));
}

Verdict bmc_address(const Subject& subject) {
    uint8_t address = 0x20;
    subject.port.bmc_address(&address);
    return address % 2 == 0 && address >= 0x10 && address <= 0xEE
               ? passed()
               : failed(text("GetBMCCtrAdd() tells 0x%02x", address));
}

Verdict checksum(const Subject& subject) {
    constexpr uint8_t kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    constexpr uint8_t kDigitsCrc = 0xF4;
    const uint8_t found = subject.port.crc8(kDigits, sizeof kDigits);
    if (found != kDigitsCrc) {
        return failed(text("CRC8Gen() makes 0x%02x of \"123456789\", not 0xf4", found));
    }
    uint8_t bytes[UINT8_MAX];
    for (size_t i = 0; i < sizeof bytes; ++i) {
        bytes[i] = static_cast<uint8_t>(7 * i + 1);
    }
    for (size_t length = 0; length <= sizeof bytes; ++length) {
        if (subject.port.crc8(bytes, static_cast<uint8_t>(length)) != smbus_crc8(bytes, length)) {
            return failed(text("CRC8Gen() is wrong for %zu bytes", length));
        }
    }
    return passed();
}

constexpr Rule kRules[] = {
    {"attach", "", "GlobalParaInit() returns another value than 0, and both records are there",
     "GlobalParaInit(): 0 is failure there; at_p_St_GlobalVar and at_p_St_GlobalSecVar", attach},
    {"bmc-eid", "attach", "the BMC's EID is 0 (none) or 8 to 254 (DSP0236, table 2)",
     "plt_parameters.bmc_eid, filled by GlobalParaInit()", bmc_eid},
    {"mpio-state", "attach", "plt_global_sec_var.mpio_state is 0, 0xFF or an EID",
     "the start value of mpio_state: 0 for a board without MPIO", mpio_state},
    {"bmc-address", "attach", "the BMC's slave address is even: the 8-bit form, 0x10 to 0xEE",
     "GetBMCCtrAdd(): a 7-bit address has to be shifted, and bit 0 is clear", bmc_address},
    {"crc8", "attach", "CRC8Gen() is the SMBus CRC-8: polynomial 0x07, start 0, no reflection",
     "the start value, the direction of the shift, the table", checksum},
};

}  // namespace

std::span<const Rule> record_rules() {
    return kRules;
}

}  // namespace porttest

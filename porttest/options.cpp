// SPDX-License-Identifier: Apache-2.0
// What the judge is told: where the port is, and what is on the board.
#include "porttest/options.h"

#include <cstdlib>
#include <cstring>

namespace porttest {

const char* const kUsage =
    R"(usage: sideband-porttest [OPTION...] [PORT]

Checks from outside what sideband/platform.h demands of a platform library. PORT is the path of a
shared library; without it, the port linked with this program is judged.

  --open NAME[=ARGUMENT]  first call int NAME(const char*), which gets the port ready; 0 is success
  --device i2c:BUS:ADDRESS[:MUX]
                          a device that speaks MCTP over SMBus: bus, 8-bit address, and in hex the
                          first bytes of what SetI2CMux() gets
  --other i2c:...         a second one, behind another channel of the same bus
  --absent i2c:BUS:ADDRESS
                          a place where no device is
  --eid EID               the BMC's own EID, instead of what GlobalParaInit() tells
  --wait-limit MS         how long a slave read without a time limit may take (5000)
  --rounds N              exchanges of the storm (200)
  --shared                services share the records: lock between processes
  --shell                 the port runs shell commands, which only boards with an MPIO need
  --library PATH          libsideband (libsideband.so.0)
  --only RULE             this rule and those that it needs; may be repeated
  --list                  print the rules, and judge nothing
  --json                  one JSON document
  --verbose               show what port and library print, on standard error

Exit status: 0 no rule failed, 1 a rule failed, 2 wrong usage or no port.
)";

namespace {

std::optional<long> number(const std::string& text, long least, long most) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    const bool is_number = !text.empty() && *end == '\0' && value >= least && value <= most;
    return is_number ? std::optional(value) : std::nullopt;
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char each : text) {
        if (each == ':') {
            parts.emplace_back();
        } else {
            parts.back() += each;
        }
    }
    return parts;
}

bool read_hex(const std::string& text, std::array<uint8_t, MCTP_MUX_SIZE>& bytes) {
    if (text.size() % 2 != 0 || text.size() / 2 > bytes.size() ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    for (size_t i = 0; i < text.size() / 2; ++i) {
        bytes[i] = static_cast<uint8_t>(std::strtol(text.substr(2 * i, 2).c_str(), nullptr, 16));
    }
    return true;
}

std::optional<Place> place(const std::string& text) {
    const std::vector<std::string> parts = split(text);
    if (parts.size() < 3 || parts.size() > 4 || parts[0] != "i2c") {
        return std::nullopt;
    }
    const auto bus = number(parts[1], 0, UINT8_MAX);
    const auto address = number(parts[2], 0x10, 0xEE);
    Place found;
    if (!bus || !address || *address % 2 != 0 ||
        (parts.size() == 4 && !read_hex(parts[3], found.mux))) {
        return std::nullopt;
    }
    found.bus = static_cast<uint8_t>(*bus);
    found.address = static_cast<uint8_t>(*address);
    return found;
}

bool take_flag(Options& options, const std::string& name) {
    struct Flag {
        const char* name;
        bool Options::*member;
    };
    constexpr Flag kFlags[] = {{"--shared", &Options::shared},   {"--shell", &Options::shell},
                               {"--json", &Options::json},       {"--list", &Options::list},
                               {"--verbose", &Options::verbose}, {"--help", &Options::help},
                               {"--hold", &Options::hold}};
    for (const Flag& flag : kFlags) {
        if (name == flag.name) {
            options.*flag.member = true;
            return true;
        }
    }
    return false;
}

bool take_place(std::optional<Place>& to, const std::string& value) {
    to = place(value);
    return to.has_value();
}

/// A million rounds, or milliseconds, have room in an int as milliseconds four times over.
bool take_number(int& to, const std::string& value) {
    constexpr int kMost = 1'000'000;
    const auto found = number(value, 1, kMost);
    to = static_cast<int>(found.value_or(to));
    return found.has_value();
}

bool take_eid(Options& options, const std::string& value) {
    const auto eid = number(value, 0, UINT8_MAX);
    options.eid = static_cast<uint8_t>(eid.value_or(0));
    return eid.has_value();
}

/// @return nothing for an option that does not exist, else whether its value is right
std::optional<bool> take_value(Options& options, const std::string& name,
                               const std::string& value) {
    if (name == "--open" || name == "--library") {
        (name == "--open" ? options.open : options.library) = value;
        return !value.empty();
    }
    if (name == "--only") {
        options.only.push_back(value);
        return true;
    }
    if (name == "--device") {
        return take_place(options.device, value);
    }
    if (name == "--other") {
        return take_place(options.other, value);
    }
    if (name == "--absent") {
        return take_place(options.absent, value);
    }
    if (name == "--eid") {
        return take_eid(options, value);
    }
    if (name == "--wait-limit") {
        return take_number(options.wait_limit_ms, value);
    }
    if (name == "--rounds") {
        return take_number(options.rounds, value);
    }
    return std::nullopt;
}

}  // namespace

std::optional<Options> parse(int count, char** arguments, std::string& error) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string name = arguments[i];
        if (name.empty() || name[0] != '-') {
            if (!options.port.empty()) {
                error = "more than one port: " + name;
                return std::nullopt;
            }
            options.port = name;
            continue;
        }
        if (take_flag(options, name)) {
            continue;
        }
        const std::string value = i + 1 < count ? arguments[i + 1] : "";
        const std::optional<bool> taken = take_value(options, name, value);
        if (!taken || !*taken) {
            error = !taken ? "unknown option " + name
                           : std::string(name).append(" does not take '").append(value).append("'");
            return std::nullopt;
        }
        ++i;
    }
    return options;
}

}  // namespace porttest

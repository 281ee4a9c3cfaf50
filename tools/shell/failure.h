// SPDX-License-Identifier: Apache-2.0
// How a command of the tool fails: exit status, text, and the device's own code if it gave one.
#ifndef SIDEBAND_TOOLS_SHELL_FAILURE_H
#define SIDEBAND_TOOLS_SHELL_FAILURE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

/// Exit statuses of the tool, for every command.
enum class ExitStatus : int {
    kDone = 0,
    kFailed = 1,  ///< the device or the transport failed
    kUsage = 2,   ///< wrong usage
    kInput = 3,   ///< an input file is bad
};

/// What a device answered instead of success.
struct DeviceCode {
    enum class Kind {
        kCompletion,  ///< completion code of MCTP control or PLDM
        kNcsi,        ///< response code, and the reason code
        kNvmeMi,      ///< status of an NVMe-MI response, and where the invalid parameter is
        kNvme,        ///< status code of an NVMe completion, and its type
    };

    uint16_t code = 0;
    std::string name;  ///< as the standard names it
    /// The second number that a kind has. Of an NVMe-MI status, if it is known: the byte of the
    /// request in bits 15 to 8, the bit in bits 2 to 0.
    std::optional<uint16_t> reason = std::nullopt;
    std::string reason_name = {};
    Kind kind = Kind::kCompletion;
};

/// Ends a command. what() is one line without the name of the program or of the command.
/// Copies share what they tell, so that copying cannot throw.
class Failure : public std::runtime_error {
public:
    /// @param cause  of cause_name(), if the library has a word for it
    Failure(ExitStatus status, const std::string& text, const std::string& cause = {})
        : std::runtime_error(text),
          details_(std::make_shared<Details>(Details{status, {}, {}, {}, {}, cause})) {}

    /// Several things are wrong at once: each has a line, of which what() is the first.
    /// @param lines  at least one
    Failure(ExitStatus status, const std::vector<std::string>& lines)
        : std::runtime_error(lines.front()),
          details_(std::make_shared<Details>(
              Details{status, {}, {}, {}, {lines.begin() + 1, lines.end()}, {}})) {}

    /// A device or its transport failed: "ENDPOINT: OPERATION failed: REASON".
    /// @param cause  of cause_name(), if the library knows one
    Failure(const std::string& endpoint, const std::string& operation, const std::string& reason,
            const std::optional<DeviceCode>& code = std::nullopt, const std::string& cause = {})
        : std::runtime_error(endpoint + ": " + operation + " failed: " + reason),
          details_(std::make_shared<Details>(
              Details{ExitStatus::kFailed, endpoint, operation, code, {}, cause})) {}

    ExitStatus status() const { return details_->status; }

    /// Empty if the failure is not that of an endpoint.
    const std::string& endpoint() const { return details_->endpoint; }
    const std::string& operation() const { return details_->operation; }

    /// Empty if no answer with a code came.
    const std::optional<DeviceCode>& code() const { return details_->code; }

    /// What the library has to say of it, as a word; empty if nothing.
    const std::string& cause() const { return details_->cause; }

    /// What else is wrong, a line each.
    const std::vector<std::string>& more() const { return details_->more; }

private:
    struct Details {
        ExitStatus status;
        std::string endpoint;
        std::string operation;
        std::optional<DeviceCode> code;
        std::vector<std::string> more;
        std::string cause;
    };

    std::shared_ptr<const Details> details_;
};

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// How a command of the tool fails: exit status, text, and the device's own code where it gave one.
#ifndef SIDEBAND_TOOLS_FAILURE_H
#define SIDEBAND_TOOLS_FAILURE_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace tool {

/// Exit statuses of the tool, for every command.
enum class ExitStatus : int {
    done = 0,
    failed = 1,  ///< the device or the transport failed
    usage = 2,   ///< wrong usage
    input = 3,   ///< an input file is bad
};

/// What a device answered instead of success.
struct DeviceCode {
    uint8_t code = 0;
    std::string name;  ///< as the standard names it
};

/// Ends a command. what() is one line without the name of the program or of the command.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exit_status, const std::string& text)
        : std::runtime_error(text), status(exit_status) {}

    /// A device or its transport failed: "ENDPOINT: OPERATION failed: REASON".
    Failure(std::string endpoint_name, std::string operation_name, const std::string& reason,
            std::optional<DeviceCode> device_code = std::nullopt)
        : std::runtime_error(endpoint_name + ": " + operation_name + " failed: " + reason),
          status(ExitStatus::failed),
          endpoint(std::move(endpoint_name)),
          operation(std::move(operation_name)),
          code(std::move(device_code)) {}

    ExitStatus status;
    std::string endpoint;
    std::string operation;
    std::optional<DeviceCode> code;  ///< empty where no answer with a code came
};

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// Every tunnelled admin command: how a test calls it, what goes out then, what it prints.
#ifndef SIDEBAND_TESTS_NVMEMI_ADMIN_COMMANDS_H
#define SIDEBAND_TESTS_NVMEMI_ADMIN_COMMANDS_H

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>

#include "NVMeMI/nvme_fixture.h"

namespace test {

/// What nothing has been written to.
constexpr uint32_t kUntouched = 0xEEEEEEEE;
/// Bytes of data that the reading commands ask for.
constexpr uint32_t kWanted = 0x50;

/// What the commands are called with, each field with a value of its own, and what they fill.
struct AdminRoom {
    explicit AdminRoom(nvmemi_ctx* ctx);

    /// Whether a call has left alone all that it may fill, and the bounds of the room.
    bool untouched() const;

    nvme_admin_req req;
    Guarded data{kWanted};
    uint32_t received = kUntouched;
    nvme_feature_result feature;  ///< into data
    uint32_t nsid = kUntouched;
    Bytes structure;  ///< of a namespace to be created
};

struct AdminCommand {
    const char* name;
    int32_t (*call)(AdminRoom& room);
    int32_t capacity;    ///< room for the response
    const char* head;    ///< message type byte to namespace ID; 16 bytes of zeros follow
    const char* data;    ///< data offset and length, reserved bytes
    const char* dwords;  ///< submission queue entry dwords 10 to 15
    const char* check;   ///< integrity check of it all, and of the data that follow the request
    const char* logged = "";  ///< in front of everything else, the line taken out
    const char* done = "";    ///< printed after a response of 19 bytes
    const char* failed = "";  ///< printed after a status code of 2, type 1
    const char* lost = "";    ///< printed if there was no usable response
    bool sends_structure = false;
};

/// For the test runner's messages.
void PrintTo(const AdminCommand& command, std::ostream* stream);
std::string name_of(const testing::TestParamInfo<AdminCommand>& info);

/// All of them but the image download.
std::span<const AdminCommand> admin_commands();

/// The whole message that a command must send, message type byte and integrity check included.
Bytes message_of(const AdminCommand& command, const AdminRoom& room);

/// Texts with "[name:123]" made "[name]": the line may change, the name may not.
Texts without_line(Texts texts, std::string_view name);

/// What the console got, without the line numbers of the library's own places.
Texts console();

/// Completion queue entry dword 3.
constexpr uint32_t completion(uint32_t code, uint32_t type = 0, uint32_t more = 0) {
    return more | type << 25 | code << 17;
}
constexpr uint32_t kMore = 1u << 30;
constexpr uint32_t kDoNotRetry = 1u << 31;

/// "Command error (SCT:0x1, SC:0x2)\n"
std::string command_error(uint32_t type, uint32_t code);

}  // namespace test

#endif

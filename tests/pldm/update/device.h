// SPDX-License-Identifier: Apache-2.0
// A firmware device that answers and asks as a test wrote down, and updates of it by the library.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_DEVICE_H
#define SIDEBAND_TESTS_PLDM_UPDATE_DEVICE_H

#include <sideband/pldm_fw_update.h>

#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "pldm/pldm_fixture.h"
#include "pldm/update/package_fixture.h"

namespace test {

using Texts = std::vector<std::string>;

/**
 * Takes the place of an endpoint's three operations; one at a time. Messages are hex. The dialogue
 * has a line for each: "> " a request of the agent, "< " one of the device, "= " the agent's
 * answer to that; "..." for any number of receives that ended without a message.
 */
class FwDevice {
public:
    explicit FwDevice(LibcPatch& libc);
    ~FwDevice();
    FwDevice(const FwDevice&) = delete;
    FwDevice& operator=(const FwDevice&) = delete;

    void attach(mctp_ctx& endpoint);

    /// The next answers by command code, then those of usual. Empty: none.
    std::map<uint8_t, std::deque<std::string>> answers;
    std::map<uint8_t, std::string> usual;
    /// The next requests of the device, then silence. Empty: one receive without a message.
    std::deque<std::string> asks;
    /// What it asks after each UpdateComponent that it takes, in place of asks.
    std::deque<Texts> loads;
    std::function<std::string()> asks_always;  ///< if set, gives its requests once asks is empty
    int64_t wait = 60;                         ///< seconds of a receive without a message
    int failing_send = 0;                      ///< the n-th answer from now cannot be sent
    std::function<void()> on_receive;          ///< runs at the start of each receive
    bool keeps_dialogue = true;
    bool knows_instance_ids = false;  ///< its answers get those of the requests

    Texts dialogue;
    int messages = 0;                 ///< of the device
    std::vector<int32_t> capacity;    ///< room of each receive
    std::map<uint8_t, int32_t> room;  ///< for the last response, by command code
    int max_blocks = 0;               ///< most heap blocks of the library during a receive

    /// The lines of the dialogue that begin so.
    Texts dialogue_of(std::initializer_list<const char*> starts) const;

private:
    void note(const char* mark, const Bytes& bytes);
    int32_t exchange(const Bytes& request, int32_t space, uint8_t* response);
    int32_t receive(int32_t space, uint8_t* buffer);
    int32_t send(const Bytes& message, uint8_t tag_owner);

    LibcPatch& libc_;
};

/// RequestFirmwareData.
std::string piece(uint32_t offset, uint32_t length);

/// What a device asks for a component of up to 64 bytes that it takes.
Texts load(uint32_t length = 32);

/// What a device says of one component in its parameters.
struct Known {
    uint16_t classification;
    uint16_t identifier;
    uint8_t index;
};

/// A GetFirmwareParameters response; both versions of the device have one character.
Bytes parameters(const std::vector<Known>& components);

/// One record for all the components, which are known as {10, i + 1, i + 1} and have 40 bytes each.
tool::Package update_package(size_t components);
std::vector<Known> known(size_t components);

/// Fixture: a terminus of the library's own, bound to a device; the time stands still otherwise.
class FwMachineTest : public PackageTest {
protected:
    FwMachineTest();
    void TearDown() override;

    /// Brings the terminus up and puts the device behind it.
    void bind();
    /// Parses a package of so many components, which the device knows, and matches its record.
    void prepare(size_t components);
    void prepare(const tool::Package& package, const std::vector<Known>& components);
    /// A state of the machine.
    Outcome act(uint8_t state);
    /// Makes exchanges of a command end with this result, without a message.
    void fail_exchanges_of(uint8_t command, int32_t result);
    /// Has 10 % printed, since it is the process that keeps what was printed last.
    void print_ten_percent() const;
    /// Percentages that were reported, all of them for the task of the context.
    std::vector<unsigned> progress() const;

    FwDevice device{libc};

private:
    static uint8_t failing_command_;
    static int32_t failing_result_;
};

}  // namespace test

#endif

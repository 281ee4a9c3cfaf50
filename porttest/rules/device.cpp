// SPDX-License-Identifier: Apache-2.0
// Rules of an I2C bus with a device that speaks MCTP, looked at block by block.
#include <unistd.h>

#include "porttest/raw_bus.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

/// In which a device has answered, and its block has arrived at the BMC.
constexpr unsigned kAnsweredUs = 300'000;
constexpr int kSwitches = 5;

const char* const kNoDevice = "needs --device";
const char* const kNoAnswer = "the write is acknowledged, and no answer comes";

Verdict refused(int result) {
    return failed(text("the write returns %d, and the device is there", result));
}

Verdict answered(const Subject& subject, RawBus::Pec pec) {
    if (!subject.options.device) {
        return not_applicable(kNoDevice);
    }
    RawBus bus(subject, subject.options.device->bus);
    if (const int result = bus.request(*subject.options.device, pec); result != 0) {
        return refused(result);
    }
    return bus.answer_block() ? passed() : failed(kNoAnswer);
}

Verdict with_pec(const Subject& subject) {
    return answered(subject, RawBus::Pec::kByPort);
}

Verdict as_given(const Subject& subject) {
    return answered(subject, RawBus::Pec::kAsGiven);
}

/// The block of an answer. The rules of writing have seen that one comes.
std::optional<Block> block_of(const Subject& subject, uint8_t read_length) {
    RawBus bus(subject, subject.options.device->bus);
    bus.request(*subject.options.device, RawBus::Pec::kAsGiven);
    return bus.answer_block(0, read_length);
}

/// @return nothing, or what is wrong with a block
std::string complaint(const Subject& subject, const Block& block) {
    constexpr int kAroundCount = 3;  // command code, the count itself, PEC
    constexpr uint8_t kCommandCode = 0x0F;
    const int length = block.length();
    if (block.overrun || block.result > PLT_I2C_READ_BUFFER_SIZE) {
        return "more is stored than the buffer holds";
    }
    if (block.bytes[0] != kCommandCode) {
        return text("the first byte is 0x%02x, not the command code 0x0f", block.bytes[0]);
    }
    if (length != block.bytes[1] + kAroundCount) {
        return text("%d bytes are stored, and the byte count is %u: it has to be %d more", length,
                    block.bytes[1], kAroundCount);
    }
    uint8_t address = 0x20;
    subject.port.bmc_address(&address);
    Bytes covered{address};
    covered.insert(covered.end(), block.bytes.begin(), block.bytes.begin() + length - 1);
    const uint8_t pec = smbus_crc8(covered.data(), covered.size());
    const uint8_t last = block.bytes[static_cast<size_t>(length) - 1];
    return pec == last ? ""
                       : text(
                             "the last byte is 0x%02x, and the PEC over the BMC's address and the "
                             "rest is 0x%02x",
                             last, pec);
}

Verdict judge_block(const Subject& subject, uint8_t read_length) {
    const std::optional<Block> block = block_of(subject, read_length);
    if (!block) {
        return failed("no answer comes");
    }
    const std::string wrong = complaint(subject, *block);
    return wrong.empty() ? passed() : failed(wrong);
}

Verdict block_form(const Subject& subject) {
    return judge_block(subject, RawBus::kReadLength);
}

/// The library asks for no more than it has room for, and cuts by itself.
Verdict block_whole(const Subject& subject) {
    constexpr uint8_t kFew = 3 + 4 + 1;
    return judge_block(subject, kFew);
}

Verdict kept(const Subject& subject) {
    RawBus bus(subject, subject.options.device->bus);
    bus.request(*subject.options.device, RawBus::Pec::kAsGiven);
    usleep(kAnsweredUs);
    return bus.answer_block() ? passed() : failed("an answer that came before the read is lost");
}

Verdict both_kept(const Subject& subject) {
    RawBus bus(subject, subject.options.device->bus);
    for (int i = 0; i < 2; ++i) {
        bus.request(*subject.options.device, RawBus::Pec::kAsGiven);
        usleep(kAnsweredUs);
    }
    if (!bus.answer_block(1)) {
        return failed("of two answers that came before the read the first is lost");
    }
    return bus.answer_block()
               ? passed()
               : failed("of two answers that came before the read the second is lost");
}

/// Two devices in turns, told apart by their UUIDs (DSP0236, clause 12.5).
Verdict switches(const Subject& subject) {
    if (!subject.options.other) {
        return not_applicable("needs --other");
    }
    const Place places[] = {*subject.options.device, *subject.options.other};
    if (places[0].bus != places[1].bus) {
        return not_applicable("--device and --other are on different buses");
    }
    constexpr size_t kUuidSize = 16;
    Bytes uuids[2];
    RawBus bus(subject, places[0].bus);
    for (int i = 0; i < 2 * kSwitches; ++i) {
        const Place& place = places[i % 2];
        const int result = bus.request(place, RawBus::Pec::kAsGiven, RawBus::kGetEndpointUuid);
        const std::optional<Bytes> answer = result == 0 ? bus.answer() : std::nullopt;
        if (!answer) {
            return failed(text("%s does not answer", i % 2 == 0 ? "--device" : "--other"));
        }
        if (answer->size() != kUuidSize) {
            return not_applicable("a device that tells no UUID cannot be told from another one");
        }
        Bytes& uuid = uuids[i % 2];
        if (!uuid.empty() && uuid != *answer) {
            return failed("a device answers in the place of the other one");
        }
        uuid = *answer;
    }
    return uuids[0] != uuids[1] ? passed() : failed("one device answers for both");
}

constexpr Rule kRules[] = {
    {"write-with-pec", "locks-granted bmc-address bmc-eid",
     "PltMCTPI2C_MasterWriteWithPEC_NoMutex() writes write_length bytes and appends the PEC",
     "the PEC: over all of write_data, the destination address in it", with_pec},
    {"write-as-given", "locks-granted bmc-address bmc-eid",
     "PltMCTPI2C_MasterWrite_NoMutex() writes write_length bytes and nothing else",
     "a controller that appends a PEC of its own to what has one already", as_given},
    {"read-block", "write-as-given",
     "a slave read stores command code, byte count, source address, packet and PEC",
     "a driver that stores the BMC's address in front, or leaves out the PEC", block_form},
    {"read-whole", "read-block", "a slave read stores the whole block, whatever read_length is",
     "a copy of read_length bytes: packets of a device may be longer than what is left to read",
     block_whole},
    {"read-kept", "write-as-given",
     "a block that arrives between the write and the read is kept for the read",
     "a slave that listens, or a queue that is emptied, only when the read is called", kept},
    {"read-queue", "read-kept", "blocks that arrive before a read are kept in their order",
     "a slave queue with room for one block", both_kept},
    {"mux-switches", "write-as-given",
     "SetI2CMux() leads the bus to the device that the request and the setting name",
     "SetI2CMux(): each call has to route anew, and other channels have to be closed", switches},
};

}  // namespace

std::span<const Rule> device_rules() {
    return kRules;
}

}  // namespace porttest

// SPDX-License-Identifier: Apache-2.0
// The platform interface of a Linux machine: I2C, through an adapter's device and a slave queue.
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "fake_i2c.h"
#include "machine_test.h"

namespace {

using machine_test::FakeI2c;
using machine_test::I2cWrite;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr uint8_t kBus = 3;
constexpr uint8_t kGpu = 0x9E;
constexpr uint8_t kMux = 0xE0;
constexpr const char* kAdapter = "/dev/i2c-3";
constexpr const char* kQueue = "/sys/bus/i2c/devices/3-1010/slave-mqueue";

// Get Endpoint ID to EID 0, tag 1: the frame, and its PEC as in recorded traffic of the simulator.
const Bytes kFrame{0x9E, 0x0F, 0x08, 0x21, 0x01, 0x00, 0x08, 0xC9, 0x00, 0x80, 0x02};
// An answer from 0x64, with the BMC's address in front and the PEC behind.
const Bytes kBlock{0x20, 0x0F, 0x0C, 0x65, 0x01, 0x08, 0x09, 0xC1,
                   0x00, 0x00, 0x02, 0x00, 0x09, 0x02, 0x00, 0x78};

Bytes behind_address(const Bytes& message) {
    return {message.begin() + 1, message.end()};
}

/// A block of so many bytes from the command code on, with its PEC.
Bytes block_of(size_t size) {
    Bytes message{0x20, 0x0F};
    while (message.size() < size) {
        message.push_back(static_cast<uint8_t>(message.size()));
    }
    message.push_back(machine::smbus_pec(message));
    return message;
}

class LinuxI2c : public machine_test::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        i2c.add_adapter(kAdapter);
        i2c.add_queue(kQueue);
        machine::use(board());
    }
    void TearDown() override { MachineTest::TearDown(); }

    static int write(bool with_pec, const Bytes& frame = kFrame) {
        plt_i2c_request request{};
        request.bus = kBus;
        request.slave_addr = kGpu;
        request.write_length = static_cast<uint8_t>(frame.size());
        request.write_data = frame.data();
        return with_pec ? PltMCTPI2C_MasterWriteWithPEC_NoMutex(request)
                        : PltMCTPI2C_MasterWrite_NoMutex(request);
    }
    int read(uint32_t wait_ms = 5000) {
        plt_i2c_request request{};
        request.bus = kBus;
        request.slave_addr = kGpu;
        request.read_length = 255;
        request.read_buffer = room.data();
        return PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, wait_ms);
    }
    static int route(const machine::MuxSetting& setting, bool writes) {
        plt_i2c_request request{};
        request.bus = kBus;
        request.write_data = writes ? kFrame.data() : nullptr;
        return SetI2CMux(&request, setting.data());
    }
    Bytes stored(int length) const { return {room.begin(), room.begin() + length}; }
    std::string told() const { return console.empty() ? "" : console.back(); }

    FakeI2c i2c;
    Bytes room = Bytes(PLT_I2C_READ_BUFFER_SIZE);
};

TEST_F(LinuxI2c, AppendsThePec) {
    EXPECT_EQ(write(true), 0);
    Bytes expected = behind_address(kFrame);
    expected.push_back(CRC8Gen(kFrame.data(), static_cast<uint8_t>(kFrame.size())));
    EXPECT_EQ(i2c.sent, (std::vector<I2cWrite>{{kGpu, expected}}));
    EXPECT_TRUE(console.empty());
}

TEST_F(LinuxI2c, AppendsThePecToTheLongestFrame) {
    Bytes frame(255, 0x5A);
    frame[0] = kGpu;
    EXPECT_EQ(write(true, frame), 0);
    ASSERT_EQ(i2c.sent.size(), 1U);
    EXPECT_EQ(i2c.sent[0].bytes.size(), 255U);
    EXPECT_EQ(i2c.sent[0].bytes.back(), machine::smbus_pec(frame));
}

TEST_F(LinuxI2c, WritesAFrameAsItIs) {
    EXPECT_EQ(write(false), 0);
    EXPECT_EQ(i2c.sent, (std::vector<I2cWrite>{{kGpu, behind_address(kFrame)}}));
}

TEST_F(LinuxI2c, RefusesWhatIsNoFrameForTheDevice) {
    for (const bool with_pec : {true, false}) {
        EXPECT_EQ(write(with_pec, Bytes{0x40, 0x0F}), -EINVAL);
        EXPECT_EQ(write(with_pec, Bytes{}), -EINVAL);
        machine::use_none();
        EXPECT_EQ(write(with_pec), -EINVAL);
        machine::use(board());
    }
    plt_i2c_request request{};
    request.write_length = 4;
    EXPECT_EQ(PltMCTPI2C_MasterWrite_NoMutex(request), -EINVAL);
    EXPECT_EQ(PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, 1), -EINVAL);
    EXPECT_EQ(SetI2CMux(&request, nullptr), -EINVAL);
    EXPECT_EQ(SetI2CMux(nullptr, kFrame.data()), -EINVAL);
    EXPECT_TRUE(i2c.sent.empty());
}

TEST_F(LinuxI2c, TellsWhyAWriteFailed) {
    const struct {
        int error;
        const char* line;
    } failures[] = {
        {ENXIO, "I2C bus 3: no acknowledge from 0x9e"},
        {EREMOTEIO, "I2C bus 3: no acknowledge from 0x9e"},
        {ETIMEDOUT, "I2C bus 3: writing to 0x9e took too long: the bus may be stuck"},
        {EBUSY, "I2C bus 3: the bus is stuck: it does not become free"},
        {EOPNOTSUPP, "I2C bus 3: /dev/i2c-3 takes no plain I2C messages"},
        {EIO, "I2C bus 3: writing to 0x9e: Input/output error"},
        {EINTR, "I2C bus 3: writing to 0x9e: Interrupted system call"},
    };
    for (const auto& failure : failures) {
        i2c.write_results = {-failure.error};
        console.clear();
        EXPECT_EQ(write(true), -failure.error);
        EXPECT_EQ(console, std::vector<std::string>{failure.line});
        EXPECT_EQ(write(true), 0) << "nothing of it stays";
    }
}

TEST_F(LinuxI2c, WriteOfWhichNothingWasSentFailed) {
    i2c.write_results = {0};
    EXPECT_EQ(write(true), -EIO);
    EXPECT_EQ(told(), "I2C bus 3: writing to 0x9e: Input/output error");
}

TEST_F(LinuxI2c, TriesAgainWhenAnotherMasterWasFirst) {
    i2c.write_results = {-EAGAIN, -EAGAIN};
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(i2c.sent.size(), 3U);
    EXPECT_TRUE(console.empty());
    i2c.write_results = {-EAGAIN, -EAGAIN, -EAGAIN};
    EXPECT_EQ(write(true), -EAGAIN);
    EXPECT_EQ(i2c.sent.size(), 6U);
    EXPECT_EQ(told(), "I2C bus 3: arbitration lost while writing to 0x9e");
}

TEST_F(LinuxI2c, TellsOfABusThatIsNotThere) {
    for (const int error : {ENOENT, ENXIO, ENODEV}) {
        i2c.paths[kAdapter].open_errno = error;
        EXPECT_EQ(write(false), -ENODEV);
        EXPECT_EQ(told(), "I2C bus 3: no such bus: /dev/i2c-3 is not there");
    }
    i2c.paths[kAdapter].open_errno = EACCES;
    EXPECT_EQ(write(true), -ENODEV);
    EXPECT_EQ(told(), "I2C bus 3: no such bus: /dev/i2c-3: Permission denied");
    EXPECT_EQ(machine::in_use()->i2c.at(kBus).objection(),
              "no such bus: /dev/i2c-3: Permission denied");
    i2c.paths[kAdapter].open_errno = 0;
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(machine::in_use()->i2c.at(kBus).objection(), "");
}

TEST_F(LinuxI2c, OpensABusAnewThatWentAway) {
    EXPECT_EQ(write(true), 0);
    const size_t opened = i2c.opened;
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(i2c.opened, opened) << "open files stay open";
    i2c.write_results = {-ENODEV};
    EXPECT_EQ(write(true), -ENODEV);
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(i2c.opened, opened + 1);
}

// Whoever cannot hear the answer does not ask.
TEST_F(LinuxI2c, WritesNothingWithoutASlaveQueue) {
    i2c.paths[kQueue].open_errno = ENOENT;
    for (const bool with_pec : {true, false}) {
        EXPECT_EQ(write(with_pec), -ENODEV) << "no such bus";
        EXPECT_EQ(told(), std::string("I2C bus 3: no slave queue: ") + kQueue + " is not there");
    }
    EXPECT_EQ(read(), -ENOENT);
    EXPECT_TRUE(i2c.sent.empty());
    EXPECT_EQ(machine::in_use()->i2c.at(kBus).objection(),
              std::string("no slave queue: ") + kQueue + " is not there");
    i2c.paths[kQueue].open_errno = EACCES;
    EXPECT_EQ(write(true), -ENODEV);
    EXPECT_EQ(told(), std::string("I2C bus 3: no slave queue: ") + kQueue + ": Permission denied");
}

TEST_F(LinuxI2c, FindsTheQueueThatTheLibraryLooksFor) {
    i2c.paths[kQueue].open_errno = ENOENT;
    i2c.add_queue("/sys/bus/i2c/devices/3-0010/mctp-slave-mqueue");
    i2c.deliver(kBlock);
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
}

// One that may not be opened is there all the same.
TEST_F(LinuxI2c, DoesNotPassOverAQueueThatItMayNotOpen) {
    i2c.paths[kQueue].open_errno = EACCES;
    i2c.add_queue("/sys/bus/i2c/devices/3-0010/mctp-slave-mqueue");
    EXPECT_EQ(read(), -EACCES);
    EXPECT_EQ(told(), std::string("I2C bus 3: no slave queue: ") + kQueue + ": Permission denied");
}

TEST_F(LinuxI2c, ReadsABlockWithAndWithoutTheAddressInFront) {
    i2c.deliver(kBlock);
    i2c.deliver(behind_address(kBlock));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
        EXPECT_EQ(stored(static_cast<int>(kBlock.size()) - 1), behind_address(kBlock));
    }
    EXPECT_TRUE(console.empty());
}

TEST_F(LinuxI2c, ReadsTheShortestAndTheLongestBlock) {
    for (const size_t size : {size_t{2}, size_t{258}}) {
        const Bytes message = block_of(size);
        i2c.deliver(message);
        EXPECT_EQ(read(), static_cast<int>(size)) << told();
        EXPECT_EQ(stored(static_cast<int>(size)), behind_address(message));
    }
}

TEST_F(LinuxI2c, RefusesABlockThatIsTooLong) {
    for (const size_t size : {size_t{259}, size_t{1000}}) {
        i2c.deliver(block_of(size));
        EXPECT_EQ(read(), -EMSGSIZE);
        EXPECT_EQ(told(), "I2C bus 3: a block of " + std::to_string(size) +
                              " bytes has come, which is too long for SMBus");
    }
    EXPECT_EQ(room, Bytes(PLT_I2C_READ_BUFFER_SIZE)) << "nothing of it is stored";
}

TEST_F(LinuxI2c, RefusesABlockWhosePecIsWrong) {
    for (size_t bit = 0; bit < kBlock.size() * 8; ++bit) {
        Bytes wrong = kBlock;
        wrong[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        i2c.deliver(wrong);
        EXPECT_EQ(read(), -EBADMSG) << bit;
        EXPECT_EQ(told(), "I2C bus 3: a block has come whose PEC is wrong");
    }
    for (const Bytes& shortest : {Bytes{0x20}, Bytes{0x0F}, Bytes{0x20, 0x0F}, Bytes{0x00, 0x00}}) {
        i2c.deliver(shortest);
        EXPECT_EQ(read(), -EBADMSG);
    }
    EXPECT_EQ(room, Bytes(PLT_I2C_READ_BUFFER_SIZE));
}

TEST_F(LinuxI2c, WaitsForABlockAsLongAsItIsTold) {
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(read(50), -ETIMEDOUT);
    const auto took = Clock::now() - begin;
    EXPECT_GE(took, std::chrono::milliseconds(50));
    EXPECT_LT(took, std::chrono::milliseconds(900));
    EXPECT_TRUE(console.empty()) << "that nothing came is nothing of the bus";
    // The lower half of the parameter is the time, 0 for a second.
    EXPECT_EQ(read(0x10032), -ETIMEDOUT);
    const Clock::time_point again = Clock::now();
    EXPECT_EQ(read(0x10000), -ETIMEDOUT);
    EXPECT_GE(Clock::now() - again, std::chrono::milliseconds(1000));
}

TEST_F(LinuxI2c, TakesABlockThatComesWhileItWaits) {
    std::thread device([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        i2c.deliver(kBlock);
    });
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
    device.join();
}

TEST_F(LinuxI2c, ReadsAnAttributeOfSysfsFromItsBeginning) {
    i2c.add_queue(kQueue, FakeI2c::Kind::kAttribute);
    EXPECT_EQ(read(50), -ETIMEDOUT);
    EXPECT_EQ(i2c.polls, 1U) << "that it is readable means nothing";
    std::thread device([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        i2c.deliver(kBlock);
        i2c.deliver(kBlock);
    });
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
    device.join();
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
    i2c.told_always = true;
    EXPECT_EQ(read(50), -ETIMEDOUT) << "somebody else has read it";
}

TEST_F(LinuxI2c, EmptyQueueMayEndWithEagain) {
    i2c.read_errnos = {EAGAIN, EINTR};
    i2c.deliver(kBlock);
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
}

TEST_F(LinuxI2c, TellsOfAQueueThatVanishes) {
    i2c.read_errnos = {ENODEV};
    EXPECT_EQ(read(), -ENODEV);
    EXPECT_EQ(told(), std::string("I2C bus 3: no slave queue: ") + kQueue + " is not there");
    i2c.read_errnos = {EIO};
    EXPECT_EQ(read(), -EIO);
    EXPECT_EQ(told(), std::string("I2C bus 3: no slave queue: ") + kQueue + ": Input/output error");
    // It is opened again when it is back.
    i2c.deliver(kBlock);
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
    EXPECT_EQ(i2c.opened, 3U);
}

TEST_F(LinuxI2c, TellsOfAQueueThatEnds) {
    for (const short hangup : {POLLHUP, POLLERR}) {
        i2c.hangup = hangup;
        EXPECT_EQ(read(), -EPIPE);
        EXPECT_EQ(told(), std::string("I2C bus 3: ") + kQueue + " has ended");
    }
    i2c.hangup = POLLIN | POLLHUP;  // something is left
    i2c.deliver(kBlock);
    EXPECT_EQ(read(), static_cast<int>(kBlock.size()) - 1);
}

// A driver that says "ready" all the time must not take the processor.
TEST_F(LinuxI2c, DoesNotSpinOnAMessageThatIsNotThere) {
    i2c.told_always = true;
    i2c.read_errnos.assign(1000, 0);
    EXPECT_EQ(read(50), -ETIMEDOUT);
    EXPECT_GT(i2c.read_errnos.size(), 900U);
}

TEST_F(LinuxI2c, StaleBlocksGoBeforeAWriteWithHardwarePec) {
    for (int i = 0; i < 40; ++i) {
        i2c.deliver(kBlock);
    }
    EXPECT_EQ(write(false), 0);
    EXPECT_EQ(i2c.waiting(), 40U) << "with the PEC in software nothing is emptied";
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(i2c.waiting(), 0U);
    i2c.read_errnos = {EIO};
    EXPECT_EQ(write(true), -EIO);
    EXPECT_EQ(i2c.sent.size(), 2U) << "a queue that cannot be emptied is no queue";
}

TEST_F(LinuxI2c, QueueThatNeverEndsIsLeft) {
    i2c.on_write = nullptr;
    for (int i = 0; i < 5000; ++i) {
        i2c.messages.push_back({1});
    }
    EXPECT_EQ(write(true), 0);
    EXPECT_EQ(i2c.waiting(), 5000U - 4096);
}

TEST_F(LinuxI2c, KeepsABlockThatComesBetweenWriteAndRead) {
    for (const bool with_pec : {true, false}) {
        i2c.on_write = [this](const I2cWrite&) { i2c.deliver(kBlock); };
        EXPECT_EQ(write(with_pec), 0);
        EXPECT_EQ(read(1), static_cast<int>(kBlock.size()) - 1);
    }
}

// Mux 0xe0 to channel 1, that of 0xe2 off.
constexpr machine::MuxSetting kSetting{2, 0xE2, 0, kMux, 2};

TEST_F(LinuxI2c, SwitchesMultiplexersBeforeEachWrite) {
    for (int i = 0; i < 2; ++i) {
        i2c.sent.clear();
        EXPECT_EQ(route(kSetting, true), 0);
        EXPECT_EQ(write(false), 0);
        EXPECT_EQ(i2c.sent, (std::vector<I2cWrite>{
                                {0xE2, {0}}, {kMux, {2}}, {kGpu, behind_address(kFrame)}}));
    }
}

TEST_F(LinuxI2c, SwitchesBeforeAReadOnlyWhatAnotherOneHasSwitched) {
    route(kSetting, true);
    i2c.sent.clear();
    route(kSetting, false);
    EXPECT_TRUE(i2c.sent.empty());
    machine::in_use()->records.get().router[kBus] = 1;  // another process
    route(kSetting, false);
    EXPECT_EQ(i2c.sent.size(), 2U);
    i2c.sent.clear();
    machine::MuxSetting other = kSetting;
    other[4] = 4;
    route(other, false);
    EXPECT_EQ(i2c.sent, (std::vector<I2cWrite>{{0xE2, {0}}, {kMux, {4}}}));
}

// Else the frame could reach another device of the same address.
TEST_F(LinuxI2c, WritesToNobodyBehindAMultiplexerThatFailed) {
    i2c.write_results = {-ENXIO};
    EXPECT_EQ(route(kSetting, true), 0);
    EXPECT_EQ(told(), "I2C bus 3: the multiplexer is not switched: no acknowledge from 0xe2");
    EXPECT_EQ(write(true), -EIO);
    EXPECT_EQ(write(false), -EIO);
    EXPECT_EQ(read(), -EIO);
    EXPECT_EQ(i2c.sent.size(), 1U);
    EXPECT_EQ(console.size(), 1U) << "once is enough";
    route(kSetting, true);
    EXPECT_EQ(write(true), 0);
}

TEST_F(LinuxI2c, SettingThatIsNoneSwitchesNothing) {
    machine::MuxSetting setting{};
    setting.fill(0xFF);
    EXPECT_EQ(route(setting, true), 0);
    EXPECT_EQ(route(machine::MuxSetting{}, true), 0);
    EXPECT_TRUE(i2c.sent.empty());
    EXPECT_EQ(write(true), 0);
}

TEST_F(LinuxI2c, BoardSaysWhereABusIs) {
    machine::Board other = board();
    other.bmc_address = 0x24;
    other.i2c = {.device = "/dev/other-{bus}", .slave_queue = "/q/{bus}/{address}"};
    // A channel of a multiplexer with a bus number of its own: its answers come in on the bus
    // before.
    other.buses.push_back({.bus = kBus,
                           .paths = {.device = "/dev/channel", .slave_queue = "/q/1/{address}"},
                           .muxes = {}});
    machine::use(other);
    i2c.paths.clear();
    for (const char* path : {"/dev/other-4", "/dev/channel"}) {
        i2c.add_adapter(path);
    }
    for (const char* path : {"/q/4/12", "/q/1/12"}) {
        i2c.add_queue(path);
    }
    EXPECT_EQ(machine::in_use()->i2c.at(3).objection(), "");
    EXPECT_EQ(machine::in_use()->i2c.at(4).objection(), "");
    EXPECT_EQ(machine::in_use()->i2c.at(5).objection(), "no such bus: /dev/other-5 is not there");
    EXPECT_EQ(write(true), 0);
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// A simulated bus as /dev/i2c-N and a slave queue: the calls of i2c-dev as a program makes them,
// and as none should.
#include "sim/cuse/adapter.h"

#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <poll.h>

#include <cerrno>
#include <map>

#include "sim/board/board_fixture.h"
#include "sim/board/state.h"
#include "sim/cuse/fake_cuse.h"

namespace {

using namespace sim_test;
using cuse_test::FakeCuse;
using cuse_test::record;
using cuse_test::record_at;
using cuse_test::Round;
using sim::Bytes;

// Get Endpoint ID to EID 0, with its PEC, and the answer.
constexpr const char* kGetEid = "0f 08 21 01 00 08 c9 00 80 02 d8";
constexpr const char* kEidAnswer = "20 0f 0c 65 01 08 09 c1 00 00 02 00 09 02 00 78";

/// A program that calls ioctl(): its memory, and the kernel's rounds over it.
class Program {
public:
    Program(FakeCuse& kernel, sim::CuseDevice& device, uint64_t opening)
        : kernel_(kernel), device_(device), opening_(opening) {}

    /// Puts something at a place of its own. @return its address
    uint64_t put(const Bytes& bytes) {
        const uint64_t address = next_;
        next_ += 0x10000;
        memory_[address] = bytes;
        return address;
    }
    void* pointer(const Bytes& bytes) {
        return reinterpret_cast<void*>(static_cast<uintptr_t>(put(bytes)));
    }
    const Bytes& at(const void* pointer) {
        return memory_.at(reinterpret_cast<uintptr_t>(pointer));
    }
    const Bytes& at(uint64_t address) { return memory_.at(address); }

    int ioctl(uint32_t command, uint64_t argument) {
        Bytes came;
        size_t room = 0;
        for (rounds = 1; rounds < 10; ++rounds) {
            const Round round = kernel_.ioctl(device_, command, argument, came, room, opening_);
            if (!round.again) {
                scatter(round.bytes);
                return round.result;
            }
            came.clear();
            for (const auto& [address, size] : round.in) {
                if (!memory_.contains(address) || memory_[address].size() < size) {
                    return -EFAULT;
                }
                const Bytes& from = memory_[address];
                came.insert(came.end(), from.begin(), from.begin() + static_cast<ptrdiff_t>(size));
            }
            out_ = round.out;
            room = 0;
            for (const auto& [address, size] : out_) {
                room += size;
            }
        }
        return -ELOOP;
    }
    int rounds = 0;

private:
    void scatter(const Bytes& bytes) {
        size_t at = 0;
        for (const auto& [address, size] : out_) {
            const size_t length = std::min<size_t>(size, bytes.size() - at);
            std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(at), length,
                        memory_.at(address).begin());
            at += length;
        }
        out_.clear();
    }

    FakeCuse& kernel_;
    sim::CuseDevice& device_;
    uint64_t opening_;
    uint64_t next_ = 0x10000;
    std::map<uint64_t, Bytes> memory_;
    cuse_test::Ranges out_;
};

class I2cAdapter : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "a", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9,
             "response_us": 100}
        )"));
        sim::I2cBus& bus = *board->state().find_bus(2);
        adapter.emplace(bus, traffic);
        queue.emplace(bus, traffic);
        device.emplace(kernel.device_end(), "i2c-2", *adapter);
        queue_device.emplace(queue_kernel.device_end(), "queue", *queue);
        program.emplace(kernel, *device, 1);
    }
    i2c_msg message_to(uint8_t address, uint16_t flags, Bytes bytes) {
        i2c_msg message{};
        message.addr = address >> 1;
        message.flags = flags;
        message.len = static_cast<uint16_t>(bytes.size());
        message.buf = static_cast<uint8_t*>(program->pointer(bytes));
        return message;
    }
    int transfer(const std::vector<i2c_msg>& messages) {
        Bytes table;
        for (const i2c_msg& message : messages) {
            sim::append(table, record(message));
        }
        i2c_rdwr_ioctl_data all{};
        all.nmsgs = static_cast<uint32_t>(messages.size());
        all.msgs = static_cast<i2c_msg*>(program->pointer(table));
        return program->ioctl(I2C_RDWR, program->put(record(all)));
    }
    int smbus(uint8_t direction, uint8_t command, uint32_t size, const Bytes& data = {}) {
        i2c_smbus_ioctl_data call{};
        call.read_write = direction;
        call.command = command;
        call.size = size;
        answer = data.empty() ? nullptr : program->pointer(data);
        call.data = static_cast<i2c_smbus_data*>(answer);
        return program->ioctl(I2C_SMBUS, program->put(record(call)));
    }
    Bytes from_queue(uint32_t size = 300) {
        const Bytes got =
            queue_kernel.ask(*queue_device, FUSE_READ, record(fuse_read_in{.size = size}));
        const auto head = record_at<fuse_out_header>(got);
        return head.error != 0 ? Bytes{static_cast<uint8_t>(-head.error)}
                               : Bytes(got.begin() + sizeof head, got.end());
    }
    uint32_t look(bool waits) {
        const fuse_poll_in poll{.fh = 1, .kh = 5, .flags = waits ? FUSE_POLL_SCHEDULE_NOTIFY : 0u};
        return record_at<fuse_poll_out>(queue_kernel.ask(*queue_device, FUSE_POLL, record(poll)),
                                        sizeof(fuse_out_header))
            .revents;
    }

    FakeCuse kernel;
    FakeCuse queue_kernel;
    sim::BusTraffic traffic;
    std::optional<sim::I2cAdapter> adapter;
    std::optional<sim::SlaveQueue> queue;
    std::optional<sim::CuseDevice> device;
    std::optional<sim::CuseDevice> queue_device;
    std::optional<Program> program;
    void* answer = nullptr;
};

TEST_F(I2cAdapter, TellsWhatItCan) {
    const uint64_t place = program->put(Bytes(sizeof(unsigned long)));
    EXPECT_EQ(program->ioctl(I2C_FUNCS, place), 0);
    const auto functions = record_at<unsigned long>(program->at(place));
    EXPECT_EQ(functions & (I2C_FUNC_I2C | I2C_FUNC_SMBUS_PEC | I2C_FUNC_SMBUS_QUICK),
              I2C_FUNC_I2C | I2C_FUNC_SMBUS_PEC | I2C_FUNC_SMBUS_QUICK);
    EXPECT_EQ(functions & (I2C_FUNC_10BIT_ADDR | I2C_FUNC_SMBUS_READ_BLOCK_DATA), 0u);
}

TEST_F(I2cAdapter, WritesABlockAndTheQueueHasTheAnswer) {
    EXPECT_EQ(from_queue(), Bytes{});
    EXPECT_EQ(look(false), 0u);
    EXPECT_EQ(transfer({message_to(0x64, 0, bytes(kGetEid))}), 1);
    EXPECT_EQ(program->rounds, 4) << "record, table, bytes, and then all of them";
    board->advance_us(100'000);
    EXPECT_EQ(look(false), static_cast<uint32_t>(POLLIN | POLLRDNORM | POLLPRI));
    EXPECT_EQ(hex(from_queue()), kEidAnswer);
    EXPECT_EQ(from_queue(), Bytes{});
    EXPECT_EQ(traffic.written, 1u);
    EXPECT_EQ(traffic.read, 1u);
}

TEST_F(I2cAdapter, QueueDropsWhatItsReaderHasNoRoomFor) {
    EXPECT_EQ(transfer({message_to(0x64, 0, bytes(kGetEid))}), 1);
    board->advance_us(100'000);
    EXPECT_EQ(from_queue(15), Bytes{EOVERFLOW});
    EXPECT_EQ(from_queue(), Bytes{});
    EXPECT_EQ(traffic.dropped, 1u);
}

TEST_F(I2cAdapter, TransfersSeveralMessages) {
    const i2c_msg first = message_to(0xE0, I2C_M_RD, Bytes(1, 0x55));
    const i2c_msg second = message_to(0xE0, 0, {0x03});
    const i2c_msg third = message_to(0xE0, I2C_M_RD, Bytes(2, 0x55));
    const i2c_msg fourth = message_to(0x64, 0, {});
    EXPECT_EQ(transfer({first, second, third, fourth}), 4);
    EXPECT_EQ(program->at(first.buf), Bytes{0x00});
    EXPECT_EQ(program->at(third.buf), (Bytes{0x03, 0x03}));
    EXPECT_EQ(traffic.written, 4u);
}

TEST_F(I2cAdapter, TellsWhatFailed) {
    EXPECT_EQ(transfer({message_to(0x70, 0, {1})}), -ENXIO);
    EXPECT_EQ(transfer({message_to(0x70, I2C_M_RD, {1})}), -ENXIO);
    EXPECT_EQ(transfer({message_to(0x64, 0, {1})}), -EIO) << "no PEC";
    EXPECT_EQ(traffic.refused, 3u);
    EXPECT_EQ(transfer({}), -EINVAL);
    i2c_rdwr_ioctl_data all{};
    for (const uint32_t count : {43u, 0xFFFFFFFFu}) {
        all.nmsgs = count;
        EXPECT_EQ(program->ioctl(I2C_RDWR, program->put(record(all))), -EINVAL);
    }
    EXPECT_EQ(transfer({message_to(0x64, I2C_M_TEN, {1})}), -EOPNOTSUPP);
    i2c_msg message = message_to(0x64, 0, Bytes(8193));
    EXPECT_EQ(transfer({message}), -EINVAL);
    message = message_to(0x64, 0, {1});
    message.addr = 0x80;
    EXPECT_EQ(transfer({message}), -EINVAL);
    message = message_to(0x64, 0, {1, 2});
    message.buf = nullptr;
    EXPECT_EQ(transfer({message}), -EFAULT);
    EXPECT_EQ(program->ioctl(0x0799, 0), -ENOTTY);
    EXPECT_EQ(program->ioctl(I2C_TENBIT, 1), -EINVAL);
    for (const uint32_t command : {I2C_TENBIT, I2C_RETRIES, I2C_TIMEOUT}) {
        EXPECT_EQ(program->ioctl(command, 0), 0);
    }
    EXPECT_EQ(traffic.refused, 3u) << "none of them reached the bus";
}

TEST_F(I2cAdapter, TakesTheMostMessagesAndTheLongest) {
    std::vector<i2c_msg> messages;
    for (int i = 0; i < 42; ++i) {
        messages.push_back(message_to(0xE0, 0, {static_cast<uint8_t>(i)}));
    }
    EXPECT_EQ(transfer(messages), 42);
    EXPECT_EQ(transfer({message_to(0xE0, 0, Bytes(8192, 1))}), 1);
    EXPECT_EQ(transfer({message_to(0xE0, I2C_M_RD, Bytes(8192))}), 1);
}

TEST_F(I2cAdapter, FindsDevicesAsI2cdetectDoes) {
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x32), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_QUICK), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, Bytes(34)), 0);
    EXPECT_EQ(program->at(answer)[0], 0xFF);
    EXPECT_EQ(program->ioctl(I2C_SLAVE_FORCE, 0x33), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK), -ENXIO);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, Bytes(34)), -ENXIO);
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x80), -EINVAL);
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x70), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 2, I2C_SMBUS_BYTE), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 9, I2C_SMBUS_BYTE_DATA, Bytes(34)), 0);
    EXPECT_EQ(program->at(answer)[0], 9) << "the command is the control byte";
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 9, I2C_SMBUS_BYTE_DATA, Bytes(34, 4)), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, Bytes(34)), 0);
    EXPECT_EQ(program->at(answer)[0], 4);
}

TEST_F(I2cAdapter, WritesASmbusBlockWithItsPec) {
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x32), 0);
    Bytes block = bytes("08 21 01 00 08 c9 00 80 02");
    block.resize(33);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0x0F, I2C_SMBUS_BLOCK_DATA, block), -EIO) << "no PEC";
    EXPECT_EQ(program->ioctl(I2C_PEC, 1), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0x0F, I2C_SMBUS_BLOCK_DATA, block), 0);
    board->advance_us(100'000);
    EXPECT_EQ(hex(from_queue()), kEidAnswer);
    block[0] = 33;
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0x0F, I2C_SMBUS_BLOCK_DATA, block), -EINVAL);
    EXPECT_EQ(smbus(I2C_SMBUS_READ, 0x0F, I2C_SMBUS_BLOCK_DATA, block), -EOPNOTSUPP);
    for (const uint32_t size : {3u, 4u, 7u, 8u, 9u, 0xFFFFFFFFu}) {
        EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0, size, block), -EOPNOTSUPP);
    }
}

// Address and PEC belong to an open file, not to the device.
TEST_F(I2cAdapter, KeepsTheSettingsOfEachOpening) {
    Program other(kernel, *device, 2);
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x32), 0);
    EXPECT_EQ(other.ioctl(I2C_SLAVE, 0x10), 0);
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK), 0);
    kernel.ask(*device, FUSE_RELEASE, record(fuse_release_in{.fh = 1}));
    EXPECT_EQ(smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK), -ENXIO);
}

TEST_F(I2cAdapter, TakesAPlainWriteToTheAddressThatWasSet) {
    EXPECT_EQ(program->ioctl(I2C_SLAVE, 0x32), 0);
    Bytes request = record(fuse_write_in{.fh = 1, .size = 11});
    sim::append(request, bytes(kGetEid));
    EXPECT_EQ(record_at<fuse_out_header>(kernel.ask(*device, FUSE_WRITE, request)).error, 0);
    board->advance_us(100'000);
    EXPECT_EQ(hex(from_queue()), kEidAnswer);
    EXPECT_EQ(
        record_at<fuse_out_header>(kernel.ask(*device, FUSE_READ, record(fuse_read_in{.size = 4})))
            .error,
        -EOPNOTSUPP);
}

/// Half of a request of two full packets; neither of them is marked as its end.
Bytes half_of_a_request(uint8_t flags, const Bytes& begin) {
    Bytes block{0x0F, 0x45, 0x21, 0x01, 0x00, 0x08, flags};
    sim::append(block, begin);
    block.resize(3 + 4 + 64);
    Bytes frame{0x64};
    sim::append(frame, block);
    block.push_back(sim::smbus_pec(frame));
    return block;
}

// Who only looks, as before a write, does not wait; who waits completes such a request.
TEST_F(I2cAdapter, WaitingCompletesARequestWithoutItsEnd) {
    EXPECT_EQ(transfer({message_to(0x64, 0, half_of_a_request(0x89, {0x01, 0x80, 0x00, 0x02}))}),
              1);
    EXPECT_EQ(from_queue(), Bytes{});
    EXPECT_EQ(look(false), 0u);
    EXPECT_EQ(transfer({message_to(0x64, 0, half_of_a_request(0x19, {}))}), 1);
    EXPECT_EQ(from_queue(), Bytes{});
    EXPECT_EQ(look(false), 0u);
    board->advance_us(100'000);
    EXPECT_EQ(look(false), 0u);
    EXPECT_EQ(look(true), 0u);
    board->advance_us(100'000);
    EXPECT_NE(look(true), 0u);
    EXPECT_EQ(statistics(2).missing_ends, 1u);
}

// The kernel brings what it wants: whatever it is, the device answers once and stays alive.
TEST_F(I2cAdapter, BearsAnyMemory) {
    for (const uint32_t command : {I2C_RDWR, I2C_SMBUS, I2C_FUNCS}) {
        for (size_t size = 0; size < 200; ++size) {
            for (const uint8_t fill : {0x00, 0x01, 0x2A, 0x7F, 0xFF}) {
                const Round round =
                    kernel.ioctl(*device, command, 0x1000, Bytes(size, fill), size % 40);
                EXPECT_TRUE(round.again || round.result <= 42);
            }
        }
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// A character device by CUSE: the kernel's requests, its answers to them, and requests as no kernel
// makes them.
#include "sim/cuse/device.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "sim/cuse/fake_cuse.h"

namespace {

using namespace cuse_test;
using sim::Bytes;
using sim::ByteView;

/// Says what it is told, and is told what it says.
class Echo final : public sim::DeviceNode {
public:
    int read(size_t size, Bytes& out) override {
        out.assign(std::min(size, content.size()), 0x41);
        return result;
    }
    int write(uint64_t opening, ByteView bytes) override {
        written = {bytes.begin(), bytes.end()};
        last_opening = opening;
        return result;
    }
    sim::IoctlAnswer ioctl(uint64_t, uint32_t command, uint64_t argument,
                           sim::CallerMemory& memory) override {
        if (command != 7) {
            return {.result = -ENOTTY, .bytes = {}};
        }
        ++calls;
        const std::optional<ByteView> size = memory.read(argument, 1);
        if (!size) {
            return {};
        }
        const std::optional<ByteView> text = memory.read(argument + 8, (*size)[0]);
        memory.reserve(argument + 100, (*size)[0]);
        if (!memory.whole()) {
            return {};
        }
        return {.result = 5, .bytes = {text->begin(), text->end()}};
    }
    uint32_t events(bool waits) override {
        waited += waits ? 1 : 0;
        return ready ? POLLIN : 0;
    }
    void closed(uint64_t opening) override { last_closed = opening; }

    Bytes content = Bytes(6000);
    Bytes written;
    int result = 0;
    int calls = 0;
    int waited = 0;
    bool ready = false;
    uint64_t last_opening = 0;
    uint64_t last_closed = 0;
};

class CuseDevice : public ::testing::Test {
protected:
    Bytes ask(uint32_t opcode, const Bytes& body) { return kernel.ask(device, opcode, body); }
    int result_of(uint32_t opcode, const Bytes& body) {
        return record_at<fuse_out_header>(ask(opcode, body)).error;
    }

    FakeCuse kernel;
    Echo node;
    sim::CuseDevice device{kernel.device_end(), "thing", node};
};

TEST_F(CuseDevice, TellsTheKernelItsName) {
    EXPECT_FALSE(device.is_made());
    const Bytes answer = ask(CUSE_INIT, record(cuse_init_in{.major = 7, .minor = 36}));
    const auto head = record_at<fuse_out_header>(answer);
    EXPECT_EQ(head.len, answer.size());
    EXPECT_EQ(head.unique, FakeCuse::kUnique);
    EXPECT_EQ(head.error, 0);
    const auto init = record_at<cuse_init_out>(answer, sizeof head);
    EXPECT_EQ(init.major, 7u);
    EXPECT_EQ(init.flags, static_cast<uint32_t>(CUSE_UNRESTRICTED_IOCTL));
    const std::string info(answer.begin() + sizeof head + sizeof init, answer.end());
    EXPECT_EQ(info, std::string("DEVNAME=thing") + '\0');
    EXPECT_TRUE(device.is_made());
}

TEST_F(CuseDevice, GivesEachOpeningANumber) {
    for (uint64_t i = 1; i < 3; ++i) {
        const Bytes answer = ask(FUSE_OPEN, record(fuse_open_in{}));
        EXPECT_EQ(record_at<fuse_open_out>(answer, sizeof(fuse_out_header)).fh, i);
    }
    EXPECT_EQ(result_of(FUSE_RELEASE, record(fuse_release_in{.fh = 2})), 0);
    EXPECT_EQ(node.last_closed, 2u);
}

TEST_F(CuseDevice, ReadsAndWrites) {
    const Bytes answer = ask(FUSE_READ, record(fuse_read_in{.fh = 1, .offset = 9, .size = 100}));
    EXPECT_EQ(answer.size(), sizeof(fuse_out_header) + 100);
    EXPECT_EQ(ask(FUSE_READ, record(fuse_read_in{.size = 0xFFFFFFFF})).size(),
              sizeof(fuse_out_header) + 4096);
    Bytes request = record(fuse_write_in{.fh = 3, .size = 2});
    request.insert(request.end(), {0xAB, 0xCD, 0xEF});
    const Bytes written = ask(FUSE_WRITE, request);
    EXPECT_EQ(record_at<fuse_write_out>(written, sizeof(fuse_out_header)).size, 2u);
    EXPECT_EQ(node.written, (Bytes{0xAB, 0xCD}));
    EXPECT_EQ(node.last_opening, 3u);
    node.result = -EIO;
    for (const auto& [opcode, body] :
         {std::pair{FUSE_WRITE, request}, {FUSE_READ, record(fuse_read_in{.size = 10})}}) {
        const Bytes refused = ask(opcode, body);
        EXPECT_EQ(refused.size(), sizeof(fuse_out_header)) << "an error has nothing behind it";
        EXPECT_EQ(record_at<fuse_out_header>(refused).error, -EIO);
    }
}

// The memory of a caller comes in rounds: what is there says what else is needed.
TEST_F(CuseDevice, FetchesTheMemoryOfACaller) {
    Round round = kernel.ioctl(device, 7, 0x1000, {}, 0);
    EXPECT_TRUE(round.again);
    EXPECT_EQ(round.in, (Ranges{{0x1000, 1}}));
    EXPECT_TRUE(round.out.empty());
    round = kernel.ioctl(device, 7, 0x1000, {3}, 0);
    EXPECT_TRUE(round.again);
    EXPECT_EQ(round.in, (Ranges{{0x1000, 1}, {0x1008, 3}}));
    EXPECT_EQ(round.out, (Ranges{{0x1064, 3}}));
    round = kernel.ioctl(device, 7, 0x1000, {3, 'a', 'b', 'c'}, 2);
    EXPECT_TRUE(round.again) << "without room there is no answer";
    round = kernel.ioctl(device, 7, 0x1000, {3, 'a', 'b', 'c'}, 3);
    EXPECT_FALSE(round.again);
    EXPECT_EQ(round.result, 5);
    EXPECT_EQ(round.bytes, (Bytes{'a', 'b', 'c'}));
    // Nothing at all is no range.
    EXPECT_EQ(kernel.ioctl(device, 7, 0x1000, {0}, 0).result, 5);
    EXPECT_EQ(kernel.ioctl(device, 8, 0x1000, {}, 0).result, -ENOTTY);
    EXPECT_FALSE(kernel.ioctl(device, 8, 0x1000, {}, 0).again);
}

TEST_F(CuseDevice, KnowsNoCallersOfAnotherWordSize) {
    fuse_ioctl_in call{};
    call.cmd = 7;
    call.flags = FUSE_IOCTL_COMPAT;
    EXPECT_EQ(result_of(FUSE_IOCTL, record(call)), -ENOTTY);
    EXPECT_EQ(node.calls, 0);
}

TEST_F(CuseDevice, WakesThoseWhoWait) {
    fuse_poll_in wait{.fh = 1, .kh = 77, .flags = FUSE_POLL_SCHEDULE_NOTIFY};
    EXPECT_EQ(
        record_at<fuse_poll_out>(ask(FUSE_POLL, record(wait)), sizeof(fuse_out_header)).revents,
        0u);
    EXPECT_EQ(node.waited, 1);
    wait.fh = 2;
    wait.kh = 78;
    ask(FUSE_POLL, record(wait));
    ask(FUSE_POLL, record(fuse_poll_in{.fh = 3, .kh = 79}));  // looks only
    ask(FUSE_RELEASE, record(fuse_release_in{.fh = 2}));
    device.wake();
    const Bytes notice = kernel.next();
    const auto head = record_at<fuse_out_header>(notice);
    EXPECT_EQ(head.unique, 0u);
    EXPECT_EQ(head.error, FUSE_NOTIFY_POLL);
    EXPECT_EQ(record_at<fuse_notify_poll_wakeup_out>(notice, sizeof head).kh, 77u);
    EXPECT_TRUE(kernel.next().empty()) << "who closed has gone, who only looked does not wait";
    device.wake();
    EXPECT_TRUE(kernel.next().empty()) << "once";
    node.ready = true;
    EXPECT_EQ(
        record_at<fuse_poll_out>(ask(FUSE_POLL, record(wait)), sizeof(fuse_out_header)).revents,
        static_cast<uint32_t>(POLLIN));
}

TEST_F(CuseDevice, HasNoAnswerToWhatWantsNone) {
    EXPECT_TRUE(ask(FUSE_INTERRUPT, record(fuse_interrupt_in{})).empty());
    EXPECT_TRUE(ask(FUSE_FORGET, record(fuse_forget_in{})).empty());
    for (const uint32_t opcode : {uint32_t{FUSE_FLUSH}, uint32_t{FUSE_LOOKUP}, 0u, 0xFFFFFFFFu}) {
        EXPECT_EQ(result_of(opcode, {}), -ENOSYS);
    }
}

TEST_F(CuseDevice, BearsRequestsThatAreCutShort) {
    const std::pair<uint32_t, Bytes> whole[] = {
        {FUSE_READ, record(fuse_read_in{})},       {FUSE_WRITE, record(fuse_write_in{.size = 1})},
        {FUSE_IOCTL, record(fuse_ioctl_in{})},     {FUSE_POLL, record(fuse_poll_in{})},
        {FUSE_RELEASE, record(fuse_release_in{})}, {FUSE_OPEN, record(fuse_open_in{})},
        {CUSE_INIT, record(cuse_init_in{})},
    };
    for (const auto& [opcode, body] : whole) {
        for (size_t length = 0; length < body.size(); ++length) {
            const Bytes answer =
                ask(opcode, {body.begin(), body.begin() + static_cast<ptrdiff_t>(length)});
            EXPECT_GE(answer.size(), sizeof(fuse_out_header));
        }
    }
    EXPECT_EQ(result_of(FUSE_WRITE, record(fuse_write_in{.size = 1})), -EINVAL);
    EXPECT_EQ(result_of(FUSE_WRITE, record(fuse_write_in{.size = 0xFFFFFFFF})), -EINVAL);
    EXPECT_EQ(node.written, Bytes{});
    // A header alone that is none.
    for (size_t length = 1; length < sizeof(fuse_in_header); ++length) {
        kernel.put(Bytes(length));
        EXPECT_TRUE(device.serve());
        EXPECT_TRUE(kernel.next().empty());
    }
}

// The size that it tells of what it brings is the kernel's word, what is there is what counts.
TEST_F(CuseDevice, BelievesNoSizeBeyondTheRequest) {
    fuse_ioctl_in call{};
    call.cmd = 7;
    call.arg = 0x1000;
    call.in_size = 0xFFFFFFFF;
    call.out_size = 0xFFFFFFFF;
    const Bytes answer = ask(FUSE_IOCTL, record(call));
    EXPECT_EQ(record_at<fuse_ioctl_out>(answer, sizeof(fuse_out_header)).flags,
              static_cast<uint32_t>(FUSE_IOCTL_RETRY));
}

/// More ranges than the kernel takes.
class Greedy final : public sim::DeviceNode {
public:
    sim::IoctlAnswer ioctl(uint64_t, uint32_t, uint64_t, sim::CallerMemory& memory) override {
        for (uint64_t i = 0; i < 257; ++i) {
            memory.read(i, 1);
        }
        return {};
    }
};

TEST_F(CuseDevice, AsksForNoMoreRangesThanTheKernelTakes) {
    FakeCuse other;
    Greedy greedy;
    sim::CuseDevice greedy_device(other.device_end(), "greedy", greedy);
    const Bytes answer = other.ask(greedy_device, FUSE_IOCTL, record(fuse_ioctl_in{}));
    EXPECT_EQ(record_at<fuse_out_header>(answer).error, -EINVAL);
}

TEST_F(CuseDevice, EndsWithTheKernelsEnd) {
    EXPECT_TRUE(device.serve());
    kernel.hang_up();
    EXPECT_FALSE(device.serve());
}

TEST(CuseNode, RefusesWhatItHasNot) {
    sim::DeviceNode node;
    Bytes bytes;
    sim::CallerMemory memory({}, 0);
    EXPECT_EQ(node.read(10, bytes), -EINVAL);
    EXPECT_EQ(node.write(1, bytes), -EINVAL);
    EXPECT_EQ(node.ioctl(1, 2, 3, memory).result, -ENOTTY);
    EXPECT_EQ(node.events(false), static_cast<uint32_t>(POLLIN | POLLOUT));
    node.closed(1);
}

// Here nobody may make a device, or its name is taken.
TEST(CuseMake, SaysWhatFailed) {
    Echo node;
    std::string error;
    EXPECT_EQ(sim::CuseDevice::make("null", node, error), nullptr);
    EXPECT_EQ(error, "/dev/null is there already");
    if (access("/dev/cuse", F_OK) != 0) {
        EXPECT_EQ(sim::CuseDevice::make("sideband-test", node, error), nullptr);
        EXPECT_EQ(error, "/dev/cuse: No such file or directory");
    }
}

}  // namespace

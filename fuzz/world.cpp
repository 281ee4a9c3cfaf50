// SPDX-License-Identifier: Apache-2.0
// The world's life cycle, its libc calls and the scripted operations.
#include "fuzz/world.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fuzz/check.h"

namespace fuzz {
namespace {

World the_world;
std::vector<void*> blocks;
Answer last_answer;
bool recording;
unsigned printed;

}  // namespace

World& world() {
    return the_world;
}

void begin(const uint8_t* bytes, size_t size) {
    the_world = World{};
    last_answer = Answer{};
    blocks.clear();
    printed = 0;
    platform = plt_platform{};
    at_p_St_GlobalVar = &the_world.global;
    at_p_St_GlobalSecVar = &the_world.secure;

    Input input(bytes, size);
    const uint8_t switches = input.u8();
    the_world.endless = (switches & 0x01) != 0;
    the_world.power = (switches & 0x02) == 0;
    platform.standby_option = (switches & 0x04) != 0 ? 1 : 0;
    the_world.global.standby_override = (switches & 0x08) != 0 ? 1 : 0;
    the_world.standby_off = (switches & 0x10) != 0;
    platform.flags = (switches & 0x20) != 0 ? PLT_FLAG_STANDBY_DEVICES : 0;
    the_world.mpio_marker = (switches & 0x40) != 0;
    platform.identifier = (switches & 0x80) != 0 ? PLT_IDENTIFIER_TURIN : 0;
    const uint8_t faults = input.u8();
    the_world.refuse_lock = faults & 0x0F;
    the_world.fail_allocation = faults >> 4;
    the_world.write_failures = input.u8();
    the_world.global.next_eid = input.u8();
    the_world.secure.mpio_state = input.u8();
    the_world.strict = input.u8();
    the_world.input = input;
    recording = true;
}

void end(unsigned calls_max) {
    require(the_world.held.empty(), "a lock is still held");
    require(the_world.writes + the_world.reads + the_world.exchanges <= calls_max,
            "too many platform calls");
    the_world.writes = the_world.reads = the_world.exchanges = 0;
}

mctp_ctx configuration(uint8_t how) {
    mctp_ctx config{};
    config.bus = 5;
    config.slave_addr = 0x30;
    config.binding_kind = (how & 0x01) != 0 ? MCTP_BINDING_KIND_SL8_SMBUS : MCTP_BINDING_KIND_SMBUS;
    config.skip_discovery = how >> 1 & 1;
    config.strict = config.skip_discovery != 0 ? the_world.strict : the_world.strict_without_pool();
    return config;
}

unsigned strict_messages() {
    // The request, 31 messages that are not its answer, and that.
    constexpr unsigned kOfAnExchange = 33;
    return (the_world.strict & MCTP_STRICT_PLDM) != 0 ? kOfAnExchange : 1;
}

void free_kept_blocks() {
    while (!blocks.empty()) {
        std::free(blocks.back());
    }
}

void finish() {
    recording = false;
    require(blocks.empty(), "memory was not given back");
}

Answer next_answer(size_t command_offset) {
    World& at = the_world;
    if (at.input.empty()) {
        if (!at.endless) {
            last_answer = Answer{};
        }
        return last_answer;
    }
    const uint8_t flags = at.input.u8();
    Answer answer;
    if ((flags & kAnswerFails) != 0) {
        answer.result = -1 - (at.input.u8() & 0x7F);
        return last_answer = answer;
    }
    const size_t length = at.input.u8() * ((flags & 0x80) != 0 ? size_t{5} : size_t{1});
    const std::span<const uint8_t> bytes = at.input.take(length);
    answer.bytes.assign(bytes.begin(), bytes.end());
    answer.result = static_cast<int32_t>(bytes.size());
    const auto put = [&](size_t offset, uint8_t keep, uint8_t value) {
        if (offset < answer.bytes.size()) {
            answer.bytes[offset] = static_cast<uint8_t>((answer.bytes[offset] & keep) | value);
        }
    };
    if ((flags & kAnswerEchoInstance) != 0) {
        put(0, 0xE0, at.last_instance);
    }
    if ((flags & kAnswerEchoCommand) != 0) {
        put(command_offset, 0, at.last_command);
    }
    if ((flags & kAnswerSuccess) != 0) {
        put(command_offset + 1, 0, 0);
    }
    return last_answer = answer;
}

int32_t scripted_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                      const uint8_t* request, uint8_t* response) {
    World& at = the_world;
    ++at.exchanges;
    const size_t command_offset = ctx->msg_type == MCTP_MSG_TYPE_CONTROL ? 1 : 2;
    require(request != nullptr && request_length > command_offset, "a request without a command");
    at.last_instance = request[0] & 0x1F;
    at.last_command = request[command_offset];
    const Answer answer = next_answer(command_offset);
    if (answer.result < 0 || response_length < 1) {
        return std::min(answer.result, 0);
    }
    const int32_t stored = std::min(answer.result, response_length);
    std::copy_n(answer.bytes.begin(), stored, response);
    return stored;
}

int32_t scripted_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner) {
    World& at = the_world;
    ++at.writes;
    require(ctx != nullptr && body != nullptr && length != 0 && tag_owner <= 1, "an odd send");
    return (at.write_failures >> (at.writes % 8) & 1) != 0 ? -1 : 0;
}

int32_t scripted_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer) {
    World& at = the_world;
    ++at.reads;
    constexpr long kSilence = 100;
    const bool control = ctx->msg_type == MCTP_MSG_TYPE_CONTROL;
    // Who waits for control requests waits for ever: there the script has an end.
    const bool silent = at.input.empty() && (control || !at.endless);
    const Answer answer = silent ? Answer{} : next_answer(control ? 1 : 2);
    if (answer.result < 0) {
        at.seconds += kSilence;
        return answer.result;
    }
    const int32_t stored = std::min(answer.result, length);
    std::copy_n(answer.bytes.begin(), std::max(stored, 0), buffer);
    ctx->binding_eids[0] = at.last_instance;
    return stored;
}

int32_t scripted_transfer(pldm_ctx* ctx, uint32_t request_length, int32_t response_capacity,
                          uint8_t* request, uint8_t* response) {
    return std::min(scripted_xfer(ctx->mctp, request_length, response_capacity, request, response),
                    0);
}

void run_terminus(const uint8_t* bytes, size_t size, std::span<const TerminusCall> calls,
                  unsigned calls_max) {
    constexpr int kCalls = 16;
    begin(bytes, size);
    calls_max *= strict_messages();
    Input& input = the_world.input;
    mctp_ctx endpoint{};
    endpoint.xfer = scripted_xfer;
    endpoint.send = scripted_send;
    endpoint.recv = scripted_recv;
    endpoint.strict = the_world.strict;
    pldm_ctx ctx{};
    require(mctp_pldm_register(&endpoint, &ctx) == 0, "not registered");
    const uint8_t mode = input.u8();
    if ((mode & 0x01) != 0) {
        ctx.transfer_op = scripted_transfer;
    }
    ctx.instance_id = mode;
    for (int i = 0; i < kCalls && (i == 0 || !input.empty()); ++i) {
        calls[input.u8() % calls.size()](ctx, input);
        end(calls_max);
    }
    finish();
}

}  // namespace fuzz

// Time costs nothing, nothing is run, and no file exists unless the input says so.

extern "C" int usleep(useconds_t /*microseconds*/) {
    ++fuzz::world().sleeps;
    return 0;
}

extern "C" time_t time(time_t* /*result*/) noexcept {
    return fuzz::world().seconds;
}

extern "C" int access(const char* path, int /*mode*/) noexcept {
    const bool there = std::strcmp(path, MCTP_MPIO_READY_MARKER) == 0 && fuzz::world().mpio_marker;
    errno = there ? errno : ENOENT;
    return there ? 0 : -1;
}

extern "C" int system(const char* /*command*/) {
    fuzz::fail("a shell command without a slave queue");
}

// The library's ways to the heap; the linker routes them through here.
extern "C" void* __real_calloc(size_t count, size_t size);
extern "C" void* __real_malloc(size_t size);
extern "C" void __real_free(void* block);

namespace {

/// An allocation as the library sees it: noted, or refused when its turn has come.
template <typename Allocate>
void* allocate(Allocate real) {
    if (!fuzz::recording) {
        return real();
    }
    fuzz::World& at = fuzz::world();
    ++at.allocations;
    if (at.allocations == at.fail_allocation) {
        return nullptr;
    }
    void* const block = real();
    fuzz::blocks.push_back(block);
    return block;
}

}  // namespace

extern "C" void* __wrap_calloc(size_t count, size_t size) {
    return allocate([&] { return __real_calloc(count, size); });
}

extern "C" void* __wrap_malloc(size_t size) {
    return allocate([&] { return __real_malloc(size); });
}

extern "C" void __wrap_free(void* block) {
    std::erase(fuzz::blocks, block);
    __real_free(block);
}

// A device that sends nothing but rubbish makes the library print a hundred thousand times; that
// would be all that a fuzzer gets done. The first lines are formatted, the rest is not.
extern "C" int __wrap_vprintf(const char* format, va_list arguments) {
    constexpr unsigned kFormatted = 500;
    if (++fuzz::printed > kFormatted) {
        return 0;
    }
    char line[256];
    return std::vsnprintf(line, sizeof line, format, arguments);
}

extern "C" int __wrap_printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = __wrap_vprintf(format, arguments);
    va_end(arguments);
    return length;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::require(std::freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null");
    return 0;
}

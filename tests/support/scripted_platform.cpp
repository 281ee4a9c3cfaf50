// SPDX-License-Identifier: Apache-2.0
// A platform library that does what a test wrote down, and writes down what was done to it.
#include "support/scripted_platform.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

plt_platform platform;
plt_global_var* at_p_St_GlobalVar = &test::port().global;
plt_global_sec_var* at_p_St_GlobalSecVar = &test::port().secure;

namespace test {

namespace {

/// Position in the order in which locks must be taken: first smaller, then larger.
int rank(const std::string& name) {
    static constexpr const char* kOrder[] = {"channel", "global", "ncsi", "mpio", "eid", "bus"};
    for (int i = 0; i < 6; i++) {
        if (name.starts_with(kOrder[i])) {
            return i == 2 ? 1 : i;
        }
    }
    return -1;
}

std::string format_text(const char* format, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

}  // namespace

ScriptedPlatform& port() {
    static ScriptedPlatform instance;
    return instance;
}

SlaveRead SlaveRead::of(Bytes block_bytes) {
    auto length = static_cast<int32_t>(block_bytes.size());
    return {length, std::move(block_bytes)};
}

void ScriptedPlatform::reset() {
    *this = ScriptedPlatform();
    platform = plt_platform{};
}

std::vector<std::string> ScriptedPlatform::trace_of(
    std::initializer_list<std::string_view> words) const {
    std::vector<std::string> found;
    for (const std::string& event : trace) {
        bool wanted = std::any_of(words.begin(), words.end(), [&](std::string_view word) {
            return event == word || event.starts_with(std::string(word) + " ");
        });
        if (wanted) {
            found.push_back(event);
        }
    }
    return found;
}

std::vector<Bytes> ScriptedPlatform::written_packets() const {
    std::vector<Bytes> packets;
    for (const WriteRecord& write : writes) {
        size_t end = write.bytes.size() - (write.controller_pec ? 0 : 1);
        packets.emplace_back(write.bytes.begin() + 4,
                             write.bytes.begin() + static_cast<ptrdiff_t>(end));
    }
    return packets;
}

void ScriptedPlatform::queue(const std::vector<Bytes>& packets) {
    for (const Bytes& one : packets) {
        reads.push_back(SlaveRead::of(block(one)));
    }
}

bool ScriptedPlatform::call_fails(const char* what) {
    result_calls++;
    const bool fails =
        fail_call > 0 && (fail_following ? result_calls >= fail_call : result_calls == fail_call);
    if (fails && failed_call.empty()) {
        failed_call = what;
    }
    return fails;
}

std::string ScriptedPlatform::name_of(const lx_mutex* mutex) const {
    if (mutex >= global.bus_mutex && mutex < global.bus_mutex + PLT_I2C_BUS_COUNT) {
        return "bus " + std::to_string(mutex - global.bus_mutex);
    }
    if (mutex == &global.global_lock) {
        return "global";
    }
    if (mutex == &global.ncsi_lock) {
        return "ncsi";
    }
    if (mutex == &secure.eid_mutex) {
        return "eid";
    }
    return mutex == &secure.mpio_mutex ? "mpio" : "unknown";
}

int ScriptedPlatform::take(const std::string& name, const char* verb) {
    bool fails = call_fails(verb);
    bool refused = refused_locks.contains(name) || fails;
    trace.push_back(std::string(verb) + " " + name + (refused ? " fails" : ""));
    if (refused) {
        return -1;
    }
    if (std::find(held.begin(), held.end(), name) != held.end()) {
        violations.push_back("taken twice: " + name);
        return -1;
    }
    if (!held.empty() && rank(held.back()) >= rank(name)) {
        violations.push_back("wrong order: " + name + " inside " + held.back());
    }
    held.push_back(name);
    return 0;
}

int ScriptedPlatform::release(const std::string& name, const char* verb) {
    trace.push_back(std::string(verb) + " " + name);
    auto found = std::find(held.begin(), held.end(), name);
    if (found == held.end()) {
        violations.push_back("released but not held: " + name);
        return -1;
    }
    held.erase(found);
    return 0;
}

PlatformTest::PlatformTest() {
    port().reset();
    libc.present.insert("/nv/DebugLogEn");
}

PlatformTest::~PlatformTest() {
    if (!directory_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
}

void PlatformTest::TearDown() {
    EXPECT_EQ(port().held, std::vector<std::string>());
    EXPECT_EQ(port().violations, std::vector<std::string>());
}

const std::string& PlatformTest::use_directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sideband-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    directory_ = pattern;
    std::filesystem::create_directories(directory_ + "/nv");
    libc.root = directory_;
    return directory_;
}

mctp_ctx smbus_context(uint8_t binding_kind) {
    mctp_ctx ctx{};
    ctx.src_eid = 0x08;
    ctx.dest_eid = 0x1D;
    ctx.bus = 3;
    ctx.slave_addr = 0x64;
    ctx.binding_kind = binding_kind;
    for (size_t i = 0; i < sizeof ctx.mux; i++) {
        ctx.mux[i] = static_cast<uint8_t>(0xC0 + i);
    }
    return ctx;
}

mctp_ctx whole_configuration() {
    static char session;
    mctp_ctx config = smbus_context();
    config.unit_size = 64;
    config.i2c_delay_us = 1234;
    config.route = 0x01020304;
    config.pcie_param = 77;
    config.pcie_session = &session;
    std::memcpy(config.pcie_bdf, "\x01\x02\x03", 3);
    return config;
}

void expect_configured(const mctp_ctx& made, const mctp_ctx& config) {
    EXPECT_NE(&made, &config);
    EXPECT_EQ(made.src_eid, config.src_eid);
    EXPECT_EQ(made.dest_eid, config.dest_eid);
    EXPECT_EQ(made.bus, config.bus);
    EXPECT_EQ(made.slave_addr, config.slave_addr);
    EXPECT_EQ(std::memcmp(made.mux, config.mux, sizeof made.mux), 0);
    EXPECT_EQ(std::memcmp(made.pcie_bdf, config.pcie_bdf, sizeof made.pcie_bdf), 0);
    EXPECT_EQ(made.binding_kind, config.binding_kind);
    EXPECT_EQ(made.i2c_delay_us, config.i2c_delay_us);
    EXPECT_EQ(made.pcie_param, config.pcie_param);
    EXPECT_EQ(made.pcie_session, config.pcie_session);
}

mctp_ctx ready_context(uint8_t binding_kind, uint8_t msg_type) {
    mctp_ctx ctx = smbus_context(binding_kind);
    ctx.skip_discovery = 1;
    EXPECT_EQ(mctp_init2(&ctx), 0);
    ctx.msg_type = msg_type;
    return ctx;
}

}  // namespace test

using test::port;

// ---- platform.h ----

int lx_mutex_get(lx_mutex* mutex, int wait_ms) {
    if (wait_ms != LX_MUTEX_WAIT_FOREVER) {
        port().violations.push_back("a lock was not waited for without end");
    }
    return port().take(port().name_of(mutex), "lock");
}

int lx_mutex_put(lx_mutex* mutex) {
    return port().release(port().name_of(mutex), "unlock");
}

int i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    if (wait_ms != LX_MUTEX_WAIT_FOREVER) {
        port().violations.push_back("a channel was not waited for without end");
    }
    return port().take("channel " + std::to_string(channel), "lock");
}

int i2c_chnl_mutex_put(uint8_t channel) {
    return port().release("channel " + std::to_string(channel), "unlock");
}

int GlobalParaInit(plt_parameters* parameters) {
    port().trace.push_back("attach");
    if (port().call_fails("attach")) {
        return 0;
    }
    parameters->i2c_channel = port().i2c_channel;
    parameters->bmc_eid = 8;
    return 1;
}

static int master_write(const plt_i2c_request& request, bool controller_pec) {
    bool fails = port().call_fails("write");
    test::WriteRecord record{controller_pec, request, {}};
    record.bytes.assign(request.write_data, request.write_data + request.write_length);
    port().writes.push_back(record);
    int result = fails ? -1 : 0;
    if (!fails && !port().write_results.empty()) {
        result = port().write_results.front();
        port().write_results.pop_front();
    }
    port().trace.push_back(result == 0 ? "write" : "write fails");
    if (result == 0 && port().on_write) {
        port().on_write(record);
    }
    return result;
}

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    return master_write(request, true);
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    return master_write(request, false);
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param) {
    bool fails = port().call_fails("read");
    const uint8_t* buffer = request.read_buffer;
    test::ReadRecord record{request, param, false};
    record.buffer_was_zero = std::all_of(buffer, buffer + PLT_I2C_READ_BUFFER_SIZE,
                                         [](uint8_t byte) { return byte == 0; });
    port().slave_reads.push_back(record);
    test::SlaveRead answer = port().read_when_empty;
    if (fails) {
        answer = test::SlaveRead::failure();
    } else if (!port().reads.empty()) {
        answer = std::move(port().reads.front());
        port().reads.pop_front();
    } else if (port().on_read) {
        answer = port().on_read(record);
    }
    port().trace.push_back(answer.result < 0 ? "read fails" : "read");
    size_t count = std::min<size_t>(answer.bytes.size(), PLT_I2C_READ_BUFFER_SIZE);
    std::copy_n(answer.bytes.begin(), count, request.read_buffer);
    return answer.result;
}

int SetI2CMux(const plt_i2c_request* request, const void* mux) {
    port().trace.push_back("mux");
    auto* bytes = static_cast<const uint8_t*>(mux);
    port().muxes.push_back({*request, test::Bytes(bytes, bytes + MCTP_MUX_SIZE)});
    return port().call_fails("mux") ? -1 : 0;
}

int GetBMCCtrAdd(uint8_t* address) {
    port().trace.push_back("address");
    if (port().call_fails("address")) {
        return -1;
    }
    if (*address != 0x20) {
        port().violations.push_back("the BMC's address was not preset");
    }
    *address = port().bmc_address.value_or(*address);
    return 0;
}

uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    return port().crc8 ? port().crc8(data, length) : test::pec({data, length});
}

int PltMCTP_WriteRead(plt_pcie_request* request) {
    bool fails = port().call_fails("pcie");
    port().trace.push_back(fails ? "pcie fails" : "pcie");
    port().pcie_requests.push_back(*request);
    if (fails) {
        return -1;
    }
    return port().on_pcie ? port().on_pcie(*request) : 0;
}

int libmctp_pcie_open(plt_pcie_session* session) {
    port().trace.push_back("open");
    if (session->handle != nullptr) {
        port().violations.push_back("a session was opened twice");
    }
    if (port().call_fails("open")) {
        return -1;
    }
    session->handle = &port();
    return 0;
}

void libmctp_pcie_close(plt_pcie_session* session) {
    port().trace.push_back("close");
    if (session->handle != &port()) {
        port().violations.push_back("a session was closed that was not open");
    }
    session->handle = nullptr;
}

int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card) {
    port().trace.push_back("card " + std::to_string(bus) + " " + std::to_string(device));
    if (port().call_fails("card")) {
        return -1;
    }
    card->i2c_channel = 3;
    card->slave_addr = 0x64;
    return 0;
}

void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    port().trace.push_back("binding smbus " + std::to_string(setup_parameter));
    ctx->binding_kind = port().binding_kind.value_or(MCTP_BINDING_KIND_SMBUS);
    ctx->bus = card->i2c_channel;
    ctx->slave_addr = card->slave_addr;
    std::copy_n(card->mux, sizeof card->mux, ctx->mux);
}

void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    port().trace.push_back("binding pcie " + std::to_string(setup_parameter));
    ctx->binding_kind = port().binding_kind.value_or(MCTP_BINDING_KIND_PCIE);
    ctx->pcie_bdf[0] = card->bus;
    ctx->pcie_bdf[1] = card->device;
}

int PltCHASSIS_PowerStatus(void) {
    return port().main_power != 0 ? 1 : 0;
}

int GetS5stByPwrConfig(void) {
    port().trace.push_back("standby policy");
    return port().standby_policy_off;
}

int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value) {
    port().trace.push_back("power");
    port().register_reads.push_back({base, group, offset});
    if (port().call_fails("power")) {
        return -1;
    }
    if (*value != 0) {
        port().violations.push_back("the power byte was not preset to off");
    }
    *value = port().main_power;
    return 0;
}

int run_shellcmd(const char* command) {
    port().trace.push_back(std::string("shell ") + command);
    port().shell_commands.emplace_back(command);
    return port().call_fails("shell") ? -1 : 0;
}

void ipmi_syslog(const char* format, ...) {
    static std::mutex mutex;
    va_list arguments;
    va_start(arguments, format);
    std::string text = test::format_text(format, arguments);
    va_end(arguments);
    std::scoped_lock guard(mutex);  // any thread may log
    port().syslog.push_back(std::move(text));
}

void console_log(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    port().console.push_back(test::format_text(format, arguments));
    va_end(arguments);
}

void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent) {
    port().trace.push_back("progress");
    port().progress.emplace_back(task_id, percent);
}

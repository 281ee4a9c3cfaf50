// SPDX-License-Identifier: Apache-2.0
// The port to copy, over a board in memory, and in front of it what breaks the rule that the
// environment variable SIDEBAND_BROKEN names: that rule and no other.
#include <pthread.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>

// What is wrapped is the template's by another name.
#define GlobalParaInit whole_GlobalParaInit
#define lx_mutex_get whole_lx_mutex_get
#define lx_mutex_put whole_lx_mutex_put
#define i2c_chnl_mutex_get whole_i2c_chnl_mutex_get
#define i2c_chnl_mutex_put whole_i2c_chnl_mutex_put
#define CRC8Gen whole_CRC8Gen
#define PltMCTPI2C_MasterWrite_NoMutex whole_MasterWrite
#define PltMCTPI2C_MasterWriteWithPEC_NoMutex whole_MasterWriteWithPEC
#define PltMCTPI2C_SlaveReadWithPEC_NoMutex whole_SlaveRead
#define SetI2CMux whole_SetI2CMux
#define GetBMCCtrAdd whole_GetBMCCtrAdd
#define PltMCTP_WriteRead whole_PltMCTP_WriteRead
#define libmctp_pcie_open whole_libmctp_pcie_open
#define libmctp_pcie_close whole_libmctp_pcie_close
#define PCIEDeviceMux whole_PCIEDeviceMux
#define MCTP_binding_SMBUS whole_MCTP_binding_SMBUS
#define MCTP_binding_PCIE whole_MCTP_binding_PCIE
#define PltCHASSIS_PowerStatus whole_PltCHASSIS_PowerStatus
#define _PltGPIO_RegRead whole_PltGPIO_RegRead
#define run_shellcmd whole_run_shellcmd
#define TaskServiceUpdateTaskPercentage whole_TaskServiceUpdateTaskPercentage

uint8_t CRC8Gen(const uint8_t* data, uint8_t length);
int lx_mutex_get(lx_mutex* mutex, int wait_ms);
int lx_mutex_put(lx_mutex* mutex);

#undef PTHREAD_MUTEX_ROBUST
#define PTHREAD_MUTEX_ROBUST \
    (broken::breaks("processes-killed") ? PTHREAD_MUTEX_STALLED : PTHREAD_MUTEX_ROBUST)
#define PORT_BOARD "tests/porttest/broken_board.h"
#include "platform/template/port.c"

#undef GlobalParaInit
#undef lx_mutex_get
#undef lx_mutex_put
#undef i2c_chnl_mutex_get
#undef i2c_chnl_mutex_put
#undef CRC8Gen
#undef PltMCTPI2C_MasterWrite_NoMutex
#undef PltMCTPI2C_MasterWriteWithPEC_NoMutex
#undef PltMCTPI2C_SlaveReadWithPEC_NoMutex
#undef SetI2CMux
#undef GetBMCCtrAdd
#undef PltMCTP_WriteRead
#undef libmctp_pcie_open
#undef libmctp_pcie_close
#undef PCIEDeviceMux
#undef MCTP_binding_SMBUS
#undef MCTP_binding_PCIE
#undef PltCHASSIS_PowerStatus
#undef _PltGPIO_RegRead
#undef run_shellcmd
#undef TaskServiceUpdateTaskPercentage

using broken::breaks;

namespace {

constexpr int kRefused = -1;
constexpr uint8_t kChannel = 200;
constexpr uint8_t kNextChannel = 201;
constexpr uint8_t kRareNumber = 130;
constexpr int kMostWaiting = 3;
constexpr int kStormEnds = 150;
constexpr int kTooLong = 500;

std::thread::id attached_on;

bool is_bus(const lx_mutex* mutex, int number) {
    return mutex == &at_p_St_GlobalVar->bus_mutex[number];
}

/// How often this thread holds a mutex that is broken.
int& held(const lx_mutex* mutex) {
    thread_local std::map<const lx_mutex*, int> counts;
    return counts[mutex];
}

int get_recursively(lx_mutex* mutex, int wait_ms) {
    int& count = held(mutex);
    const int result = count > 0 ? 0 : whole_lx_mutex_get(mutex, wait_ms);
    count += result == 0 ? 1 : 0;
    return result;
}

int put_recursively(lx_mutex* mutex) {
    int& count = held(mutex);
    return --count > 0 ? 0 : whole_lx_mutex_put(mutex);
}

/// A lock that each thread has for itself.
int get_alone(const lx_mutex* mutex) {
    int& count = held(mutex);
    return count > 0 ? kRefused : (count = 1, 0);
}

int get_impatiently(lx_mutex* mutex, int wait_ms) {
    static std::atomic<int> waiting{0};
    const bool crowded = ++waiting > kMostWaiting;
    const int result = crowded ? kRefused : whole_lx_mutex_get(mutex, wait_ms);
    --waiting;
    return result;
}

}  // namespace

int GlobalParaInit(plt_parameters* parameters) {
    static std::atomic<int> times{0};
    const int result = whole_GlobalParaInit(parameters);
    attached_on = std::this_thread::get_id();
    while (breaks("ending")) {  // no rule: it never comes back
        pause();
    }
    if (breaks("bmc-eid")) {
        parameters->bmc_eid = 3;
    }
    if (breaks("mpio-state")) {
        at_p_St_GlobalSecVar->mpio_state = 0x100;
    }
    if (++times == 2 && breaks("attach-again")) {
        static plt_global_var moved;
        at_p_St_GlobalVar = &moved;
    }
    return breaks("attach") ? 0 : result;
}

int lx_mutex_get(lx_mutex* mutex, int wait_ms) {
    plt_global_var& var = *at_p_St_GlobalVar;
    if (breaks("locks-granted") && is_bus(mutex, kRareNumber)) {
        return kRefused;
    }
    if (breaks("locks-apart") && is_bus(mutex, 77)) {
        return whole_lx_mutex_get(&var.bus_mutex[76], wait_ms);
    }
    if (breaks("locks-exclusive") && mutex == &var.ncsi_lock) {
        return get_alone(mutex);
    }
    if (breaks("locks-not-recursive") && mutex == &at_p_St_GlobalSecVar->eid_mutex) {
        return get_recursively(mutex, wait_ms);
    }
    if (breaks("locks-contended")) {
        return get_impatiently(mutex, wait_ms);
    }
    if (breaks("locks-wait")) {
        wait_ms = LX_MUTEX_WAIT_FOREVER;
    }
    if (breaks("locks-wait, a little") && wait_ms >= 0) {
        wait_ms += kTooLong;
    }
    return whole_lx_mutex_get(mutex, wait_ms);
}

int lx_mutex_put(lx_mutex* mutex) {
    plt_global_var& var = *at_p_St_GlobalVar;
    if (breaks("locks-apart") && is_bus(mutex, 77)) {
        return whole_lx_mutex_put(&var.bus_mutex[76]);
    }
    if (breaks("locks-exclusive") && mutex == &var.ncsi_lock) {
        held(mutex) = 0;
        return 0;
    }
    if (breaks("locks-not-recursive") && mutex == &at_p_St_GlobalSecVar->eid_mutex) {
        return put_recursively(mutex);
    }
    if (breaks("locks-handed-on") && mutex == &var.global_lock) {
        return 0;
    }
    return whole_lx_mutex_put(mutex);
}

int i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    if (breaks("channels-granted") && channel == kRareNumber) {
        return kRefused;
    }
    if (breaks("channels-apart") && channel == kNextChannel) {
        return whole_i2c_chnl_mutex_get(kChannel, wait_ms);
    }
    if (breaks("channels-exclusive")) {
        return 0;
    }
    if (breaks("locks-nest")) {
        return whole_lx_mutex_get(&at_p_St_GlobalVar->bus_mutex[channel], wait_ms);
    }
    return whole_i2c_chnl_mutex_get(channel,
                                    breaks("channels-wait") ? LX_MUTEX_WAIT_FOREVER : wait_ms);
}

int i2c_chnl_mutex_put(uint8_t channel) {
    if (breaks("channels-exclusive") || breaks("channels-handed-on")) {
        return 0;
    }
    if (breaks("locks-nest")) {
        return whole_lx_mutex_put(&at_p_St_GlobalVar->bus_mutex[channel]);
    }
    const bool same = breaks("channels-apart") && channel == kNextChannel;
    return whole_i2c_chnl_mutex_put(same ? kChannel : channel);
}

uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    const uint8_t crc = whole_CRC8Gen(data, length);
    return breaks("crc8") ? static_cast<uint8_t>(crc ^ 0x55) : crc;
}

int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    if (breaks("write-as-given")) {
        return whole_MasterWriteWithPEC(request);
    }
    const int result = whole_MasterWrite(request);
    return result != 0 && breaks("absent-as-given") ? 0 : result;
}

int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    if (breaks("write-with-pec")) {
        return whole_MasterWrite(request);
    }
    if (breaks("threads") && std::this_thread::get_id() != attached_on) {
        return kRefused;
    }
    const int result = whole_MasterWriteWithPEC(request);
    return result != 0 && breaks("absent-with-pec") ? 0 : result;
}

int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param) {
    static std::atomic<int> reads{0};
    if (breaks("storm") && ++reads > kStormEnds) {
        return kRefused;
    }
    int length = whole_SlaveRead(request, param);
    if (length < 0) {
        return breaks("read-negative") ? 0 : length;
    }
    if (breaks("read-block")) {
        std::memmove(request.read_buffer + 1, request.read_buffer, static_cast<size_t>(length));
        request.read_buffer[0] = kBoardAddress;
        return length + 1;
    }
    return breaks("read-whole") ? std::min<int>(length, request.read_length) : length;
}

int SetI2CMux(const plt_i2c_request*, const void* mux) {
    if (!breaks("mux-switches")) {
        std::memcpy(&broken::channel, mux, sizeof broken::channel);
    }
    return 0;
}

int GetBMCCtrAdd(uint8_t* address) {
    whole_GetBMCCtrAdd(address);
    *address = static_cast<uint8_t>(*address | (breaks("bmc-address") ? 1 : 0));
    return 0;
}

int PltMCTP_WriteRead(plt_pcie_request* request) {
    return breaks("pcie-nobody") ? 1 : whole_PltMCTP_WriteRead(request);
}

int libmctp_pcie_open(plt_pcie_session* session) {
    static int something;
    session->handle = &something;
    return 0;
}

void libmctp_pcie_close(plt_pcie_session* session) {
    if (!breaks("pcie-session")) {
        whole_libmctp_pcie_close(session);
    }
}

int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card) {
    return breaks("card-unknown") ? 0 : whole_PCIEDeviceMux(bus, device, card);
}

void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    whole_MCTP_binding_SMBUS(ctx, setup_parameter, card);
    if (breaks("card-smbus")) {
        std::memset(ctx->mux, 0, sizeof ctx->mux);
    }
}

void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    whole_MCTP_binding_PCIE(ctx, setup_parameter, card);
    if (breaks("card-pcie")) {
        ctx->pcie_bdf[1] = 0;
    }
}

int PltCHASSIS_PowerStatus() {
    return breaks("power-agrees") ? 0 : whole_PltCHASSIS_PowerStatus();
}

int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value) {
    if (breaks("power-quick")) {
        broken::pause_ms(15);
    }
    return whole_PltGPIO_RegRead(base, group, offset, value);
}

int run_shellcmd(const char* command) {
    const std::string line = std::string("{ ") + command + "; } &";
    return whole_run_shellcmd(breaks("shell") ? line.c_str() : command);
}

void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent) {
    static uint8_t last = 0;
    if (breaks("progress") && percent < last) {
        std::abort();
    }
    last = percent;
    whole_TaskServiceUpdateTaskPercentage(task_id, percent);
}

// SPDX-License-Identifier: Apache-2.0
// The part of a platform library that message exchanges do not depend on: it is there and idle.
#include <sideband/platform.h>

namespace {

plt_global_var global_var;
plt_global_sec_var global_sec_var;

}  // namespace

plt_platform platform;
plt_global_var* at_p_St_GlobalVar = &global_var;
plt_global_sec_var* at_p_St_GlobalSecVar = &global_sec_var;

int GlobalParaInit(plt_parameters* /*parameters*/) {
    return 1;
}

int i2c_chnl_mutex_get(uint8_t /*channel*/, int /*wait_ms*/) {
    return 0;
}

int i2c_chnl_mutex_put(uint8_t /*channel*/) {
    return 0;
}

int SetI2CMux(const plt_i2c_request* /*request*/, const void* /*mux*/) {
    return 0;
}

int GetBMCCtrAdd(uint8_t* /*address*/) {
    return 0;  // the default address stands
}

int libmctp_pcie_open(plt_pcie_session* /*session*/) {
    return 0;
}

void libmctp_pcie_close(plt_pcie_session* /*session*/) {}

int PCIEDeviceMux(uint8_t /*bus*/, uint8_t /*device*/, plt_card_info* /*card*/) {
    return -1;
}

void MCTP_binding_SMBUS(mctp_ctx* /*ctx*/, uint8_t /*setup_parameter*/,
                        const plt_card_info* /*card*/) {}

void MCTP_binding_PCIE(mctp_ctx* /*ctx*/, uint8_t /*setup_parameter*/,
                       const plt_card_info* /*card*/) {}

int PltCHASSIS_PowerStatus() {
    return 1;
}

int run_shellcmd(const char* /*command*/) {
    return 0;
}

void ipmi_syslog(const char* /*format*/, ...) {}

void console_log(const char* /*format*/, ...) {}

void TaskServiceUpdateTaskPercentage(uint32_t /*task_id*/, uint8_t /*percent*/) {}

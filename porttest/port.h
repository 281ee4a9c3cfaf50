// SPDX-License-Identifier: Apache-2.0
// The port under judgement, by its names: loaded from a file, or linked into the program itself.
#ifndef SIDEBAND_PORTTEST_PORT_H
#define SIDEBAND_PORTTEST_PORT_H

#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <string>

namespace porttest {

/// What a port supplies.
struct Port {
    plt_platform* board = nullptr;
    plt_global_var** global_var = nullptr;
    plt_global_sec_var** global_sec_var = nullptr;
    decltype(&::GlobalParaInit) attach = nullptr;
    decltype(&::lx_mutex_get) mutex_get = nullptr;
    decltype(&::lx_mutex_put) mutex_put = nullptr;
    decltype(&::i2c_chnl_mutex_get) channel_get = nullptr;
    decltype(&::i2c_chnl_mutex_put) channel_put = nullptr;
    decltype(&::PltMCTPI2C_MasterWriteWithPEC_NoMutex) write_with_pec = nullptr;
    decltype(&::PltMCTPI2C_MasterWrite_NoMutex) write_as_given = nullptr;
    decltype(&::PltMCTPI2C_SlaveReadWithPEC_NoMutex) slave_read = nullptr;
    decltype(&::SetI2CMux) set_mux = nullptr;
    decltype(&::GetBMCCtrAdd) bmc_address = nullptr;
    decltype(&::CRC8Gen) crc8 = nullptr;
    decltype(&::PltMCTP_WriteRead) pcie = nullptr;
    decltype(&::libmctp_pcie_open) pcie_open = nullptr;
    decltype(&::libmctp_pcie_close) pcie_close = nullptr;
    decltype(&::PCIEDeviceMux) card_mux = nullptr;
    decltype(&::MCTP_binding_SMBUS) card_smbus = nullptr;
    decltype(&::MCTP_binding_PCIE) card_pcie = nullptr;
    decltype(&::PltCHASSIS_PowerStatus) power_status = nullptr;
    decltype(&::GetS5stByPwrConfig) standby_off = nullptr;
    decltype(&::_PltGPIO_RegRead) gpio_read = nullptr;
    decltype(&::run_shellcmd) shell = nullptr;
    decltype(&::ipmi_syslog) syslog = nullptr;
    decltype(&::console_log) console = nullptr;
    decltype(&::TaskServiceUpdateTaskPercentage) progress = nullptr;
};

/// What of the library goes over the port.
struct Library {
    decltype(&::mctp_init2) init = nullptr;
    decltype(&::mctp_get_endpoint_id) get_endpoint_id = nullptr;
};

/// Loads a port.
/// @param path  empty: the program itself has it
/// @param open  NAME or NAME=ARGUMENT of a function int NAME(const char*) that gets the port ready,
///              0 being success; empty for none
/// @return nothing, or what is wrong, one line for each trouble
std::string load(const std::string& path, const std::string& open, Port& port);

/// Loads libsideband over the port that load() has loaded.
/// @return nothing, or what is wrong
std::string load_library(const std::string& path, Library& library);

}  // namespace porttest

#endif

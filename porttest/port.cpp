// SPDX-License-Identifier: Apache-2.0
// The port under judgement, by its names: loaded from a file, or linked into the program itself.
#include "porttest/port.h"

#include <dlfcn.h>

namespace porttest {

namespace {

/// Looks names up and remembers those that are not there.
class Names {
public:
    explicit Names(void* handle) : handle_(handle) {}

    template <typename Named>
    void find(const char* name, Named*& to) {
        to = reinterpret_cast<Named*>(dlsym(handle_, name));
        if (to == nullptr) {
            missing_ += std::string(missing_.empty() ? "" : "\n") + "does not define " + name;
        }
    }

    const std::string& missing() const { return missing_; }

private:
    void* handle_;
    std::string missing_;
};

void find_records_and_locks(Names& names, Port& port) {
    names.find("platform", port.board);
    names.find("at_p_St_GlobalVar", port.global_var);
    names.find("at_p_St_GlobalSecVar", port.global_sec_var);
    names.find("GlobalParaInit", port.attach);
    names.find("lx_mutex_get", port.mutex_get);
    names.find("lx_mutex_put", port.mutex_put);
    names.find("i2c_chnl_mutex_get", port.channel_get);
    names.find("i2c_chnl_mutex_put", port.channel_put);
}

void find_buses(Names& names, Port& port) {
    names.find("PltMCTPI2C_MasterWriteWithPEC_NoMutex", port.write_with_pec);
    names.find("PltMCTPI2C_MasterWrite_NoMutex", port.write_as_given);
    names.find("PltMCTPI2C_SlaveReadWithPEC_NoMutex", port.slave_read);
    names.find("SetI2CMux", port.set_mux);
    names.find("GetBMCCtrAdd", port.bmc_address);
    names.find("CRC8Gen", port.crc8);
    names.find("PltMCTP_WriteRead", port.pcie);
    names.find("libmctp_pcie_open", port.pcie_open);
    names.find("libmctp_pcie_close", port.pcie_close);
    names.find("PCIEDeviceMux", port.card_mux);
    names.find("MCTP_binding_SMBUS", port.card_smbus);
    names.find("MCTP_binding_PCIE", port.card_pcie);
}

void find_surroundings(Names& names, Port& port) {
    names.find("PltCHASSIS_PowerStatus", port.power_status);
    names.find("GetS5stByPwrConfig", port.standby_off);
    names.find("_PltGPIO_RegRead", port.gpio_read);
    names.find("run_shellcmd", port.shell);
    names.find("ipmi_syslog", port.syslog);
    names.find("console_log", port.console);
    names.find("TaskServiceUpdateTaskPercentage", port.progress);
}

std::string open_port(void* handle, const std::string& open) {
    const size_t equals = open.find('=');
    const std::string name = open.substr(0, equals);
    Names names(handle);
    int (*function)(const char*) = nullptr;
    names.find(name.c_str(), function);
    if (function == nullptr) {
        return names.missing();
    }
    const std::string argument = equals != std::string::npos ? open.substr(equals + 1) : "";
    const int result = function(equals != std::string::npos ? argument.c_str() : nullptr);
    return result == 0 ? "" : name + "() returns " + std::to_string(result);
}

}  // namespace

std::string load(const std::string& path, const std::string& open, Port& port) {
    // For the library too, whose names are then found in it; and lazily, in case the port calls it.
    void* const handle = dlopen(path.empty() ? nullptr : path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (handle == nullptr) {
        return dlerror();
    }
    Names names(handle);
    find_records_and_locks(names, port);
    find_buses(names, port);
    find_surroundings(names, port);
    if (!names.missing().empty() || open.empty()) {
        return names.missing();
    }
    return open_port(handle, open);
}

std::string load_library(const std::string& path, Library& library) {
    void* const handle = dlopen(path.c_str(), RTLD_NOW);
    if (handle == nullptr) {
        return dlerror();
    }
    Names names(handle);
    names.find("mctp_init2", library.init);
    names.find("mctp_get_endpoint_id", library.get_endpoint_id);
    return names.missing();
}

}  // namespace porttest

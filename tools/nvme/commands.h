// SPDX-License-Identifier: Apache-2.0
// The commands nvme, and what each is to do.
#ifndef SIDEBAND_TOOLS_NVME_COMMANDS_H
#define SIDEBAND_TOOLS_NVME_COMMANDS_H

#include <sideband/nvme_mi.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_nvme_commands(const Commands& commands);

/// Whom a command is for.
struct NvmeTarget : EndpointArguments {
    std::optional<unsigned> controller;  ///< controller ID; nothing for the first of the drive
    uint32_t nsid = 0;                   ///< namespace ID, of the commands that have one
};

// ---- What a drive says ----

void run_nvme_health(Context& context, const NvmeTarget& target);
void run_nvme_identify_controller(Context& context, const NvmeTarget& target);
void run_nvme_identify_namespace(Context& context, const NvmeTarget& target);
void run_nvme_identify_list(Context& context, const NvmeTarget& target);
void run_nvme_log_smart(Context& context, const NvmeTarget& target);
void run_nvme_log_firmware(Context& context, const NvmeTarget& target);
/// @param entries  that are read, the newest first
void run_nvme_log_error(Context& context, const NvmeTarget& target, uint32_t entries);
void run_nvme_log_sanitize(Context& context, const NvmeTarget& target);

/// Data structures of NVMe-MI. @param id  of the port or of the controller
void run_nvme_ds_subsystem(Context& context, const std::string& endpoint);
void run_nvme_ds_port(Context& context, const std::string& endpoint, uint32_t id);
void run_nvme_ds_controllers(Context& context, const std::string& endpoint);
void run_nvme_ds_controller(Context& context, const std::string& endpoint, uint32_t id);
void run_nvme_ds_commands(Context& context, const std::string& endpoint);

// ---- Settings ----

struct NvmeFeatureWish {
    uint8_t feature = 0;
    uint8_t select = 0;   ///< NVME_FEATURE_...
    uint32_t length = 0;  ///< bytes of data that the feature has
    uint32_t value = 0;
    bool save = false;
};

void run_nvme_feature_get(Context& context, const NvmeTarget& target, const NvmeFeatureWish& wish);
void run_nvme_feature_set(Context& context, const NvmeTarget& target, const NvmeFeatureWish& wish);

struct NvmeConfigWish {
    std::optional<unsigned> port;  ///< nothing: every port
    std::optional<unsigned> frequency_khz;
    std::optional<unsigned> unit_size;
    std::optional<uint32_t> clear;  ///< bits of the health status change
};

void run_nvme_config_get(Context& context, const std::string& endpoint, const NvmeConfigWish& wish);
void run_nvme_config_set(Context& context, const std::string& endpoint, const NvmeConfigWish& wish);

struct NvmeVpdWish {
    uint32_t offset = 0;
    uint32_t length = 256;
    std::vector<std::string> pieces;  ///< data to be written, in hex
};

void run_nvme_vpd_read(Context& context, const std::string& endpoint, const NvmeVpdWish& wish);
void run_nvme_vpd_write(Context& context, const std::string& endpoint, const NvmeVpdWish& wish);

void run_nvme_reset(Context& context, const std::string& endpoint);

struct NvmeLockdownWish {
    uint8_t scope = 0;                        ///< NVME_LOCKDOWN_...
    uint8_t interfaces = NVME_LOCKDOWN_BOTH;  ///< likewise
    uint8_t identifier = 0;
    bool allow = false;
};

void run_nvme_lockdown(Context& context, const NvmeTarget& target, const NvmeLockdownWish& wish);

// ---- Firmware ----

struct NvmeFirmwareWish {
    std::string path;
    uint32_t chunk_size = NVME_ADMIN_DATA_MAX;
    uint8_t slot = 0;               ///< 0: the controller chooses
    std::optional<uint8_t> action;  ///< commit action; nothing: no commit
    bool reset = false;             ///< reset the drive behind the commit
};

void run_nvme_fw_download(Context& context, const NvmeTarget& target, const NvmeFirmwareWish& wish);
void run_nvme_fw_commit(Context& context, const NvmeTarget& target, const NvmeFirmwareWish& wish);

// ---- Namespaces and media: what destroys data asks first ----

struct NvmeNamespaceWish {
    uint64_t blocks = 0;
    uint8_t format = 0;  ///< index of the LBA format
    bool shared = false;
};

void run_nvme_ns_list(Context& context, const NvmeTarget& target);
void run_nvme_ns_create(Context& context, const NvmeTarget& target, const NvmeNamespaceWish& wish);
void run_nvme_ns_delete(Context& context, const NvmeTarget& target, bool yes);
/// @param attach  false to detach
void run_nvme_ns_attach(Context& context, const NvmeTarget& target, bool attach);

struct NvmeFormatWish {
    std::optional<unsigned> format;  ///< index of the LBA format; nothing: as it is
    uint8_t erase = 0;               ///< secure erase settings
    bool yes = false;
};

void run_nvme_format(Context& context, const NvmeTarget& target, const NvmeFormatWish& wish);

struct NvmeSanitizeWish {
    uint8_t action = 0;  ///< NVME_SANACT_...
    uint8_t passes = 0;  ///< of an overwrite; 0: 16
    uint32_t pattern = 0;
    bool invert = false;
    bool unrestricted = false;
    bool no_deallocate = false;
    bool wait = false;  ///< until the operation has ended
    bool yes = false;
};

void run_nvme_sanitize(Context& context, const NvmeTarget& target, const NvmeSanitizeWish& wish);

}  // namespace tool

#endif

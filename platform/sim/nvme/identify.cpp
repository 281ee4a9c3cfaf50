// SPDX-License-Identifier: Apache-2.0
// What an NVMe drive says of itself, its controllers and its namespaces (NVMe, Identify).
#include "sim/nvme/drive.h"

namespace sim {

namespace {

constexpr size_t kIdentifySize = 4096;
constexpr uint32_t kVersion = 0x00020000;

/// Controller or namespace structure.
enum Structure : uint8_t {
    kIdentifyNamespace = 0x00,
    kIdentifyController = 0x01,
    kActiveList = 0x02,
    kDescriptorList = 0x03,
    kAllocatedList = 0x10,
    kAllocatedStructure = 0x11,
    kAttachedControllers = 0x12,
    kControllerList = 0x13,
};

// Optional admin command support.
constexpr uint16_t kFormatSupported = 1u << 1;
constexpr uint16_t kFirmware = 1u << 2;
constexpr uint16_t kNamespaceManagement = 1u << 3;
constexpr uint16_t kLockdown = 1u << 10;

Bytes list_of(const std::vector<uint32_t>& ids) {
    Bytes out;
    for (uint32_t id : ids) {
        append_le32(out, id);
    }
    out.resize(kIdentifySize);
    return out;
}

/// An identifier of a namespace that nobody else has.
Bytes eui64(const NvmeConfig& config, uint32_t id) {
    Bytes out(config.ieee.begin(), config.ieee.end());
    const uint32_t drive = crc32(Bytes(config.serial.begin(), config.serial.end()));
    append_be32(out, drive);
    out.push_back(static_cast<uint8_t>(id));
    return out;
}

/// Management endpoint capabilities.
uint8_t endpoints_of(const std::vector<NvmePort>& ports) {
    constexpr uint8_t kSmbus = 0x01;
    constexpr uint8_t kPcie = 0x02;
    uint8_t out = 0;
    for (const NvmePort& port : ports) {
        out |= port.type == NvmePortType::kPcie    ? kPcie
               : port.type == NvmePortType::kSmbus ? kSmbus
                                                   : 0;
    }
    return out;
}

}  // namespace

NvmeCompletion NvmeDrive::identify(const NvmeAdminCommand& command) {
    const auto structure = static_cast<uint8_t>(command.dwords[10]);
    const auto from = static_cast<uint16_t>(command.dwords[10] >> 16);
    const uint32_t id = command.namespace_id();
    const bool lists = structure == kActiveList || structure == kAllocatedList;
    if (lists && id >= kNvmeEveryNamespace - 1) {
        return NvmeStatus::kInvalidNamespace;
    }
    Bytes out;
    switch (structure) {
        case kIdentifyNamespace:
        case kAllocatedStructure:
        case kDescriptorList:
            return identify_namespace(command, structure == kAllocatedStructure);
        case kIdentifyController:
            out = identify_controller(command.controller);
            break;
        case kActiveList:
            out = list_of(namespaces_.list(id, command.controller));
            break;
        case kAllocatedList:
            out = list_of(namespaces_.list(id, std::nullopt));
            break;
        case kAttachedControllers:
            if (!namespaces_.names(id)) {
                return NvmeStatus::kInvalidNamespace;
            }
            out = list_controllers(from, id);
            break;
        case kControllerList:
            out = list_controllers(from, 0);
            break;
        default:
            return NvmeStatus::kInvalidField;
    }
    out.resize(kIdentifySize);
    return {std::move(out), kIdentifySize};
}

/// @param allocated  whether the namespace need not be attached
NvmeCompletion NvmeDrive::identify_namespace(const NvmeAdminCommand& command, bool allocated) {
    constexpr uint8_t kEui64Type = 1;
    constexpr uint8_t kEui64Size = 8;
    const uint32_t id = command.namespace_id();
    const bool descriptors = (command.dwords[10] & 0xFF) == kDescriptorList;
    if (id == kNvmeEveryNamespace && !descriptors) {
        return {describe(id, {}), kIdentifySize};
    }
    if (!namespaces_.names(id)) {
        return NvmeStatus::kInvalidNamespace;
    }
    const NvmeNamespace* space = namespaces_.find(id);
    const bool there =
        space != nullptr && (allocated || space->controllers.contains(command.controller));
    if (!there) {
        return descriptors ? NvmeCompletion(NvmeStatus::kInvalidField)
                           : NvmeCompletion({}, kIdentifySize);
    }
    if (!descriptors) {
        return {describe(id, *space), kIdentifySize};
    }
    Bytes out{kEui64Type, kEui64Size, 0, 0};
    append(out, eui64(config_, id));
    return {std::move(out), kIdentifySize};
}

/// @param id  every namespace: what they have in common
Bytes NvmeDrive::describe(uint32_t id, const NvmeNamespace& space) const {
    constexpr size_t kFormats = 128;
    Bytes out(kIdentifySize);
    put_le(out, 0, space.blocks, 8);
    put_le(out, 8, space.blocks, 8);
    put_le(out, 16, space.used, 8);
    out[25] = kNvmeFormats.size() - 1;
    out[26] = space.format;
    out[30] = space.sharing;
    put_le(out, 48, space.bytes(), 8);
    for (size_t i = 0; i < kNvmeFormats.size(); ++i) {
        out[kFormats + 4 * i + 2] = kNvmeFormats[i];
    }
    if (id != kNvmeEveryNamespace) {
        const Bytes name = eui64(config_, id);
        for (size_t i = 0; i < name.size(); ++i) {
            out[120 + i] = name[i];
        }
    }
    return out;
}

Bytes NvmeDrive::identify_controller(uint16_t controller) const {
    constexpr double kCelsiusToKelvin = 273;
    constexpr uint8_t kErrorEntries = 63;
    constexpr uint32_t kEverySanitize = 7;
    constexpr uint32_t kMediaNotModified = 1u << 30;  // behind a sanitize operation
    constexpr size_t kNqn = 768;
    Bytes out(kIdentifySize);
    put_le(out, 0, config_.vendor_id, 2);
    put_le(out, 2, config_.subsystem_vendor_id, 2);
    put_text(out, 4, config_.serial, 20);
    put_text(out, 24, config_.model, 40);
    put_text(out, 64, firmware_.revision(), 8);
    for (size_t i = 0; i < config_.ieee.size(); ++i) {
        out[73 + i] = config_.ieee[config_.ieee.size() - 1 - i];
    }
    out[76] = config_.controllers.size() > 1 ? 0x02 : 0x00;  // several controllers
    put_le(out, 78, controller, 2);
    put_le(out, 80, kVersion, 4);
    out[111] = 1;  // an I/O controller
    out[253] = 1;  // a storage device
    out[255] = endpoints_of(config_.ports);
    put_le(out, 256, kFormatSupported | kFirmware | kNamespaceManagement | kLockdown, 2);
    out[260] = firmware_.capabilities();
    out[261] = 0x05;  // the SMART log of a namespace, extended data of log pages
    out[262] = kErrorEntries;
    put_le(out, 266, static_cast<uint64_t>(settings_.warning_temperature + kCelsiusToKelvin), 2);
    put_le(out, 268, static_cast<uint64_t>(settings_.critical_temperature + kCelsiusToKelvin), 2);
    put_le(out, 280, config_.capacity, 8);
    put_le(out, 296, namespaces_.unallocated(), 8);
    out[319] = 0xFF;  // firmware update granularity: none
    put_le(out, 328, kEverySanitize | kMediaNotModified, 4);
    out[512] = 0x66;
    out[513] = 0x44;
    put_le(out, 516, namespaces_.most(), 4);
    put_le(out, 520, 0x001C, 2);  // optional commands: dataset management, write zeroes, save
    out[524] = 0x04;              // Format NVM can erase cryptographically
    out[525] = 0x07;              // volatile write cache, flushed for all namespaces at once too
    for (size_t i = 0; i < config_.nqn.size(); ++i) {
        out[kNqn + i] = static_cast<uint8_t>(config_.nqn[i]);
    }
    return out;
}

/// A controller list. @param attached_to  of those that have this namespace; 0: of all
Bytes NvmeDrive::list_controllers(uint16_t from, uint32_t attached_to) const {
    Bytes out;
    uint16_t count = 0;
    const auto space = namespaces_.all().find(attached_to);
    for (const auto& [id, controller] : config_.controllers) {
        const bool listed = attached_to == 0 || (space != namespaces_.all().end() &&
                                                 space->second.controllers.contains(id));
        if (id < from || !listed) {
            continue;
        }
        append_le16(out, id);
        ++count;
    }
    out.insert(out.begin(), {static_cast<uint8_t>(count), static_cast<uint8_t>(count >> 8)});
    return out;
}

}  // namespace sim

// SPDX-License-Identifier: Apache-2.0
// Namespaces of an NVMe drive: created, attached, detached, formatted, deleted.
#include "sim/nvme/namespaces.h"

#include <utility>

namespace sim {

namespace {

constexpr size_t kDataSize = 4096;

// Namespace Management, data of a creation (NVMe, host software specified fields).
constexpr size_t kSizePlace = 0;
constexpr size_t kCapacity = 8;
constexpr size_t kFormatPlace = 26;
constexpr size_t kProtection = 29;
constexpr size_t kSharing = 30;

constexpr uint32_t kSelect = 0x0F;

/// A format index from its lower four bits and, as of NVMe 2.0, two upper ones elsewhere.
uint8_t format_index(uint32_t lower, uint32_t upper) {
    return static_cast<uint8_t>((lower & 0x0F) | (upper & 0x03) << 4);
}

/// A list of controllers (NVMe, controller list). Nothing if it is none.
std::optional<std::set<uint16_t>> read_list(ByteView data) {
    constexpr uint16_t kMost = 2047;
    const uint16_t count = le16(data, 0);
    if (count == 0 || count > kMost) {
        return std::nullopt;
    }
    std::set<uint16_t> list;
    for (size_t i = 0; i < count; ++i) {
        list.insert(le16(data, 2 + 2 * i));
    }
    return list;
}

}  // namespace

NvmeNamespaces::NvmeNamespaces(const NvmeConfig& config)
    : namespaces_(config.namespaces), capacity_(config.capacity), most_(config.most_namespaces) {
    for (const auto& [id, controller] : config.controllers) {
        controllers_.insert(id);
    }
}

NvmeNamespace* NvmeNamespaces::find(uint32_t id) {
    const auto found = namespaces_.find(id);
    return found != namespaces_.end() ? &found->second : nullptr;
}

uint64_t NvmeNamespaces::unallocated() const {
    uint64_t left = capacity_;
    for (const auto& [id, space] : namespaces_) {
        left -= space.bytes();
    }
    return left;
}

std::vector<uint32_t> NvmeNamespaces::list(uint32_t above,
                                           std::optional<uint16_t> controller) const {
    std::vector<uint32_t> ids;
    for (const auto& [id, space] : namespaces_) {
        if (id > above && (!controller || space.controllers.contains(*controller))) {
            ids.push_back(id);
        }
    }
    return ids;
}

NvmeCompletion NvmeNamespaces::manage(const NvmeAdminCommand& command) {
    enum Select : uint32_t { kSelectCreate = 0, kSelectDelete = 1 };
    switch (command.dwords[10] & kSelect) {
        case kSelectCreate:
            return create(command.data);
        case kSelectDelete:
            return remove(command.namespace_id());
        default:
            return NvmeStatus::kInvalidField;
    }
}

NvmeCompletion NvmeNamespaces::create(ByteView data) {
    if (data.size() != kDataSize) {
        return NvmeStatus::kInvalidField;
    }
    NvmeNamespace space;
    space.blocks = le64(data, kSizePlace);
    space.format = format_index(data[kFormatPlace], data[kFormatPlace] >> 5);
    space.sharing = data[kSharing] & 1;
    if (space.format >= kNvmeFormats.size()) {
        return NvmeStatus::kInvalidFormat;
    }
    if (le64(data, kCapacity) < space.blocks) {
        return NvmeStatus::kThinProvisioningNotSupported;
    }
    // Protection needs metadata, which no format has.
    if (space.blocks == 0 || le64(data, kCapacity) != space.blocks || data[kProtection] != 0) {
        return NvmeStatus::kInvalidField;
    }
    if (space.blocks > unallocated() >> kNvmeFormats[space.format]) {
        return NvmeStatus::kInsufficientCapacity;
    }
    for (uint32_t id = 1; id <= most_; ++id) {
        if (namespaces_.emplace(id, space).second) {
            NvmeCompletion completion;
            completion.dword0 = id;
            return completion;
        }
    }
    return NvmeStatus::kNamespaceIdUnavailable;
}

NvmeStatus NvmeNamespaces::remove(uint32_t id) {
    if (id == kNvmeEveryNamespace) {
        for (const auto& [each, space] : namespaces_) {
            changed_.insert(space.controllers.begin(), space.controllers.end());
        }
        namespaces_.clear();
        return NvmeStatus::kSuccess;
    }
    const NvmeNamespace* space = find(id);
    if (space == nullptr) {
        return names(id) ? NvmeStatus::kInvalidField : NvmeStatus::kInvalidNamespace;
    }
    changed_.insert(space->controllers.begin(), space->controllers.end());
    namespaces_.erase(id);
    return NvmeStatus::kSuccess;
}

NvmeStatus NvmeNamespaces::attach(const NvmeAdminCommand& command) {
    enum Select : uint32_t { kSelectAttach = 0, kSelectDetach = 1 };
    const uint32_t select = command.dwords[10] & kSelect;
    NvmeNamespace* space = find(command.namespace_id());
    if (space == nullptr) {
        return names(command.namespace_id()) ? NvmeStatus::kInvalidField
                                             : NvmeStatus::kInvalidNamespace;
    }
    if (select > kSelectDetach || (!command.data.empty() && command.data.size() != kDataSize)) {
        return NvmeStatus::kInvalidField;
    }
    // Requesters exist that send no list; they mean the controller that they talk to.
    const std::optional<std::set<uint16_t>> list =
        command.data.empty() ? std::set<uint16_t>{command.controller} : read_list(command.data);
    if (!list) {
        return NvmeStatus::kControllerListInvalid;
    }
    for (uint16_t id : *list) {
        if (!controllers_.contains(id)) {
            return NvmeStatus::kControllerListInvalid;
        }
        if (space->controllers.contains(id) != (select == kSelectDetach)) {
            return select == kSelectDetach ? NvmeStatus::kNotAttached
                                           : NvmeStatus::kAlreadyAttached;
        }
    }
    const bool shared = space->controllers.size() + list->size() > 1;
    if (select == kSelectAttach && shared && !space->sharing) {
        return NvmeStatus::kNamespaceIsPrivate;
    }
    for (uint16_t id : *list) {
        if (select == kSelectAttach) {
            space->controllers.insert(id);
        } else {
            space->controllers.erase(id);
        }
        changed_.insert(id);
    }
    return NvmeStatus::kSuccess;
}

NvmeStatus NvmeNamespaces::format(const NvmeAdminCommand& command) {
    constexpr uint32_t kMetadataAndProtection = 0x1F0;
    constexpr uint32_t kLastErase = 2;
    const uint32_t settings = command.dwords[10];
    const uint8_t format = format_index(settings, settings >> 12);
    if (format >= kNvmeFormats.size() || (settings & kMetadataAndProtection) != 0) {
        return NvmeStatus::kInvalidFormat;
    }
    if ((settings >> 9 & 7) > kLastErase) {
        return NvmeStatus::kInvalidField;
    }
    const uint32_t id = command.namespace_id();
    if (id != kNvmeEveryNamespace && find(id) == nullptr) {
        return names(id) ? NvmeStatus::kInvalidField : NvmeStatus::kInvalidNamespace;
    }
    for (auto& [each, space] : namespaces_) {
        if (id != kNvmeEveryNamespace && id != each) {
            continue;
        }
        space.blocks = space.bytes() >> kNvmeFormats[format];
        space.format = format;
        space.used = 0;
        changed_.insert(space.controllers.begin(), space.controllers.end());
    }
    return NvmeStatus::kSuccess;
}

void NvmeNamespaces::erase() {
    for (auto& [id, space] : namespaces_) {
        space.used = 0;
    }
}

std::set<uint16_t> NvmeNamespaces::take_changed() {
    return std::exchange(changed_, {});
}

}  // namespace sim

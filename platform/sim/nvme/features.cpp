// SPDX-License-Identifier: Apache-2.0
// The features of an NVMe drive (NVMe, Get Features and Set Features).
#include "sim/nvme/drive.h"

namespace sim {

namespace {
enum Select : uint32_t {
    kSelectCurrent = 0,
    kSelectDefault = 1,
    kSelectSaved = 2,
    kSelectCapabilities = 3
};
constexpr uint32_t kSave = 1u << 31;
}  // namespace

const NvmeFeature* NvmeDrive::feature(uint8_t id) const {
    const auto found = config_.features.find(id);
    return found != config_.features.end() ? &found->second : nullptr;
}

NvmeCompletion NvmeDrive::get_features(const NvmeAdminCommand& command) const {
    const NvmeFeature* found = feature(static_cast<uint8_t>(command.dwords[10]));
    const uint32_t select = command.dwords[10] >> 8 & 7;
    if (found == nullptr || select > kSelectCapabilities) {
        return NvmeStatus::kInvalidField;
    }
    if (select == kSelectCapabilities) {
        constexpr uint32_t kSaveable = 1u << 0;
        constexpr uint32_t kChangeable = 1u << 2;
        NvmeCompletion completion;
        completion.dword0 =
            (found->saveable ? kSaveable : 0) | (found->changeable ? kChangeable : 0);
        return completion;
    }
    const NvmeFeatureValue* value = &found->initial;
    if (select == kSelectCurrent) {
        value = &found->current;
    } else if (select == kSelectSaved && found->saved) {
        value = &*found->saved;
    }
    NvmeCompletion completion(value->data, value->data.size());
    completion.dword0 = value->value;
    return completion;
}

NvmeCompletion NvmeDrive::set_features(const NvmeAdminCommand& command) {
    const auto found = config_.features.find(static_cast<uint8_t>(command.dwords[10]));
    if (found == config_.features.end()) {
        return NvmeStatus::kInvalidField;
    }
    NvmeFeature& feature = found->second;
    const bool save = (command.dwords[10] & kSave) != 0;
    if (!feature.changeable) {
        return NvmeStatus::kFeatureNotChangeable;
    }
    if (save && !feature.saveable) {
        return NvmeStatus::kFeatureNotSaveable;
    }
    if (command.data.size() != feature.initial.data.size()) {
        return NvmeStatus::kInvalidField;
    }
    // A feature that is data has no value in its command dword.
    feature.current = {feature.initial.data.empty() ? command.dwords[11] : feature.initial.value,
                       Bytes(command.data.begin(), command.data.end())};
    if (save) {
        feature.saved = feature.current;
    }
    return {};
}

}  // namespace sim

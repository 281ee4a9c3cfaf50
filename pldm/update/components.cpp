// SPDX-License-Identifier: Apache-2.0
// Which components an update has, in which order, and telling the device of them (DSP0267,
// PassComponentTable command).
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/output.h"
#include "pldm/update/message.h"

using namespace sideband;

namespace {

/// Component parameter table entry in front of what is of no use here.
constexpr size_t kIdentitySize = 5;

/// Finds the classification index that the device has reported for a component.
bool find_classification_index(const pldm_fw_update_ctx& ctx, const Component& component,
                               uint32_t& index) {
    for (unsigned i = 0; ctx.fd_component_params != nullptr && i < ctx.fd_components_num; ++i) {
        const uint8_t* entry = ctx.fd_component_params[i];
        if (entry == nullptr) {
            continue;  // the device's table ended early
        }
        WireReader reader({entry, kIdentitySize});
        if (reader.le16() == component.classification && reader.le16() == component.identifier) {
            index = reader.u8();
            return true;
        }
    }
    return false;
}

bool fill_update_list(pldm_fw_update_ctx& ctx) {
    const unsigned marked = std::min<unsigned>(ctx.component_num, PLDM_APPLICABLE_COMPONENTS_MAX);
    for (unsigned i = 0; i < marked; ++i) {
        if ((ctx.matched_record->applicable_components >> i & 1) == 0 ||
            ctx.component_images[i] == nullptr) {
            continue;
        }
        pldm_update_component& element = ctx.update_list[i];
        element.image = ctx.component_images[i];
        const Component component(element.image);
        if (!find_classification_index(ctx, component, element.classification_index)) {
            print_formatted("can't find the classification index!. (%d,%d)\n",
                            component.classification, component.identifier);
            return false;
        }
    }
    return true;
}

/// Orders by classification index, in the way that deployed agents do: the list does not get fully
/// sorted and its last element stays where it is. Devices have been updated in this order.
void order(std::span<pldm_update_component> list) {
    uint32_t lowest = list[0].classification_index;
    size_t position = 0;
    for (size_t start = 0; start < list.size(); ++start) {
        for (size_t j = start; j + 1 < list.size(); ++j) {
            if (list[j].classification_index < lowest) {
                std::swap(list[position], list[j]);
                lowest = list[j].classification_index;
                position = j;
            }
        }
    }
}

// ---- PassComponentTable ----

/// @return whether the device has accepted the component
bool pass_component(pldm_fw_update_ctx& ctx, const pldm_update_component& element, uint8_t flag) {
    const Component component(element.image);
    PldmRequest request(PLDM_TYPE_FW_UPDATE, kPassComponentTable);
    request.fields.u8(flag)
        .le16(component.classification)
        .le16(component.identifier)
        .u8(static_cast<uint8_t>(element.classification_index))
        .le32(component.comparison_stamp);
    request.add_string(component.version_type, component.version_length, component.version);
    std::array<uint8_t, 6> room{};
    const PldmAnswer answer = exchange(ctx.pldm, request, room);
    if (answer.header.completion == kNotInUpdateMode) {
        return false;
    }
    if (answer.result < 0) {
        leave_mark(ctx, PLDM_FW_MARK_PASS_COMPONENT_TABLE, SIDEBAND_CAUSE_MALFORMED);
    }
    // What the device thinks of the component it says again in UpdateComponent, which counts.
    return answer.result != -1;
}

}  // namespace

namespace sideband {

bool build_update_list(pldm_fw_update_ctx& ctx) {
    if (ctx.matched_record == nullptr || ctx.component_images == nullptr ||
        ctx.component_num == 0 || ctx.component_num > PLDM_FW_COMPONENTS_MAX) {
        return false;
    }
    std::free(ctx.update_list);  // of an earlier record
    ctx.update_list = static_cast<pldm_update_component*>(
        std::calloc(ctx.component_num, sizeof(pldm_update_component)));
    if (ctx.update_list == nullptr) {
        fail_request(ctx, kPassComponentTable, SIDEBAND_CAUSE_MEMORY);
        return false;
    }
    if (!fill_update_list(ctx)) {
        return false;
    }
    order({ctx.update_list, ctx.component_num});
    return true;
}

bool pass_component_table(pldm_fw_update_ctx& ctx) {
    // Components that are not for the device have no image; the flags count those that have one.
    const std::span<const pldm_update_component> list(ctx.update_list, ctx.component_num);
    const auto has_image = [](const pldm_update_component& element) {
        return element.image != nullptr;
    };
    const auto count = std::count_if(list.begin(), list.end(), has_image);
    bool accepted = false;
    std::ptrdiff_t passed = 0;
    for (const pldm_update_component& element : list) {
        if (!has_image(element)) {
            continue;
        }
        const uint8_t flag = transfer_flag(passed == 0, passed + 1 == count);
        ++passed;
        if (pass_component(ctx, element, flag)) {
            accepted = true;
        }
    }
    return accepted;
}

}  // namespace sideband

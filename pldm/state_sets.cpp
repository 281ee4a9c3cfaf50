// SPDX-License-Identifier: Apache-2.0
// The names of state sets (DSP0249).
#include <sideband/pldm_monitor.h>

#include <cstring>

pldm_state_set STATE_TABLE[PLDM_STATE_SETS] = {
    {1, "HEALTH_STATE"},
    {2, "AVALIABILITY"},  // misspelt for long: consoles and scripts know it so
    {3, "PREDICTIVE_CONDITION"},
    {15, "CONFIGURATION_STATE"},
    {16, "CHANGED_CONFIGURATION"},
    {18, "VERSION"},
    {21, "THERMAL_TRIP"},
    {257, "DEVICE_POWER_STATE"},
};

const uint32_t pldm_state_state_num = PLDM_STATE_SETS;

void lookup_state_set_string(uint16_t state_set_id, char* dst) {
    if (dst == nullptr) {
        return;
    }
    std::memset(dst, 0, PLDM_STATE_SET_NAME_SIZE);
    for (const pldm_state_set& set : STATE_TABLE) {
        if (set.id == state_set_id) {
            // A service may have filled all bytes of a name: the last one is not copied.
            std::memcpy(dst, set.name, strnlen(set.name, PLDM_STATE_SET_NAME_SIZE - 1));
            return;
        }
    }
}

// SPDX-License-Identifier: Apache-2.0
// One exported function in one setting, and what its failure has to look like.
#ifndef SIDEBAND_TESTS_SWEEP_SCENARIO_H
#define SIDEBAND_TESTS_SWEEP_SCENARIO_H

#include <sideband/error.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "world.h"

namespace sweep {

struct Scenario {
    const char* function;  ///< as it is exported
    const char* way = "";  ///< what tells several scenarios of a function apart
    /// What is done beforehand, by the library too: not counted.
    void (*set_up)(World&) = nullptr;
    /// The call alone. A function without result gives 0.
    int64_t (*call)(World&);
    /// What it has stored, as text.
    std::string (*stored)(const World&) = nullptr;
    /// What its arguments need before it is called once more.
    void (*again)(World&) = nullptr;
    /// Gives back what the calls have left to the caller.
    void (*release)(World&) = nullptr;
    /// Where it leaves why it failed.
    const sideband_error& (*record)(const World&) = nullptr;

    std::set<int64_t> failures{};  ///< results that are documented for a failure
    bool keeps_parts = false;      ///< a failure may leave a part of what is stored
    bool owns = false;             ///< what a failure has allocated stays with the context
    /// Names of functions whose failure it can do without although others cannot, each for the
    /// reason that its documentation gives.
    std::set<std::string> does_without{};
    /// Causes beside those of the function that failed, by its name.
    std::vector<std::pair<std::string, uint8_t>> also_causes{};
    /// Some failures are documented to give the result of a success: the record may tell of them.
    bool succeeds_anyway = false;
    size_t never_freed = 0;        ///< blocks of each call that are documented to stay
    bool gives_codes = false;      ///< the device's own code is a result too
    bool fails_by_itself = false;  ///< what the call does is known by its failure
    bool over_sockets = false;
    bool leaves_stream = false;  ///< fileno() of a stream that has no descriptor: it stays open
};

std::vector<Scenario> mctp_scenarios();
std::vector<Scenario> mpio_scenarios();
std::vector<Scenario> pldm_scenarios();
std::vector<Scenario> monitor_scenarios();
std::vector<Scenario> fru_scenarios();
std::vector<Scenario> package_scenarios();
std::vector<Scenario> update_scenarios();
std::vector<Scenario> ncsi_scenarios();
std::vector<Scenario> nvme_scenarios();
std::vector<Scenario> text_scenarios();

inline const sideband_error& record_of_endpoint(const World& world) {
    return world.endpoint.last_error;
}
inline const sideband_error& record_of_terminus(const World& world) {
    return *pldm_last_error(&world.pldm);
}
inline const sideband_error& record_of_update(const World& world) {
    return *pldm_fw_update_last_error(&world.update);
}

}  // namespace sweep

#endif

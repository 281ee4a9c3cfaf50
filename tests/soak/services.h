// SPDX-License-Identifier: Apache-2.0
// What services do to the board for days: readings, health polls, updates; and what became of it.
#ifndef SIDEBAND_TESTS_SOAK_SERVICES_H
#define SIDEBAND_TESTS_SOAK_SERVICES_H

#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "sim/board/board.h"
#include "soak_board.h"

namespace soak {

struct Options {
    double hours = 24;
    unsigned seed = 1;
    unsigned update_every_s = 3600;
    bool as_deployed = false;  ///< contexts without the strict bits
};

/// Of one kind of work. What is right and what failed for a reason is all that may happen.
struct Tally {
    uint64_t right = 0;
    uint64_t failed = 0;           ///< with a cause in the context, and a fault or one before it
    uint64_t wrong = 0;            ///< success that told another value than the device has
    uint64_t without_cause = 0;    ///< failures whose context does not say why
    uint64_t without_a_fault = 0;  ///< failures although nothing was wrong with the device
    std::map<int, uint64_t> causes;

    bool good() const { return wrong == 0 && without_cause == 0 && without_a_fault == 0; }
    uint64_t all() const { return right + failed + wrong + without_cause + without_a_fault; }
};

class Services {
public:
    Services(sim::Board& board, const Options& options);
    ~Services();
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    /// Brings up every endpoint. @return whether all came
    bool start();

    /// Reads every sensor once.
    void read_sensors();
    void poll_drives();
    /// Updates the network card and a drive in turn, each to a version that is new.
    void update();

    Tally readings;
    Tally polls;
    Tally updates;
    uint64_t faults = 0;

private:
    mctp_ctx context_of(const std::string& name) const;
    bool strike(const std::string& name);
    void settle(const std::string& name);
    void note(Tally& tally, bool success, bool right, bool struck, const sideband_error& error);
    void read_sensor(size_t number);
    bool write_file(const std::vector<uint8_t>& bytes) const;
    bool update_card();
    bool update_drive(size_t number);
    std::string new_version();

    sim::Board& board_;
    const Options options_;
    std::mt19937 random_;
    std::array<pldm_ctx, kSensors> termini_{};
    std::array<nvmemi_ctx, kDrives> drives_{};
    std::string path_;  ///< of packages and images
    unsigned version_ = 0;
    sideband_error update_error_{};
};

}  // namespace soak

#endif

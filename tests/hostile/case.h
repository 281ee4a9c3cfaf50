// SPDX-License-Identifier: Apache-2.0
// One case of the campaign: a board with a hostile device, and calls of the library on it.
#ifndef SIDEBAND_TESTS_HOSTILE_CASE_H
#define SIDEBAND_TESTS_HOSTILE_CASE_H

#include <sideband/mctp.h>
#include <sideband/ncsi.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>
#include <sideband/pldm_fw_update.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "random.h"
#include "sim/board/board.h"

namespace hostile {

enum class Way { kSmbus, kPcie, kSocket };

/// The files that updates and downloads read.
struct Files {
    std::string folder;
    std::vector<std::string> packages;
    std::string image;  ///< of a drive
};

/// A deadline within a minute of virtual time.
constexpr uint32_t kLongestDeadlineMs = 30'000;

/// What a case has. Whoever calls the library looks after its results with expect().
struct Case {
    Random random;
    sim::Board& board;
    const Files& files;
    Way way = Way::kSmbus;
    const sim::EndpointInfo* device = nullptr;
    mctp_ctx config{};  ///< how the device is reached

    // What the protocol of the case uses.
    mctp_ctx endpoint{};
    pldm_ctx pldm{};
    ncsi_ctx ncsi{};
    nvmemi_ctx nvme{};
    pldm_fw_update_ctx update{};

    /// Why a call has failed that used none of the above.
    sideband_error error{};
    uint32_t deadline_ms = 0;  ///< that the last call has had
    std::string complaint{};   ///< the first thing that does not hold

    void expect(bool holds, const std::string& what) {
        if (!holds && complaint.empty()) {
            complaint = what;
        }
    }
    /// Sets a time limit to what goes over an endpoint.
    void limit(mctp_ctx& limited) {
        deadline_ms = 1 + random.below(kLongestDeadlineMs);
        mctp_set_deadline(&limited, deadline_ms);
    }
    bool strict(uint32_t bit) const { return (config.strict & bit) != 0; }
};

/// Calls that have no bound of their own that anybody could wait for get a deadline; they say so.
constexpr bool kWithDeadline = true;

struct Call {
    const char* name;
    /// How often, beside the others of the protocol.
    unsigned weight;
    /// Messages that the library may send in one such call.
    uint32_t most_messages;
    /// @return 0 for success, below 0 for failure, above it for a code of the device's
    int32_t (*run)(Case& at);
    bool deadline = false;
};

/// A protocol, and how one begins and ends to speak it.
struct Protocol {
    const char* name;
    const char* device_type;
    std::span<const Call> calls;
    /// @return false if the device could not be had at all
    bool (*begin)(Case& at);
    void (*end)(Case& at);
    /// Why the last call has failed.
    const sideband_error& (*error)(const Case& at);
};

extern const Protocol kControlProtocol;
extern const Protocol kOwnerProtocol;
extern const Protocol kPldmProtocol;
extern const Protocol kUpdateProtocol;
extern const Protocol kNcsiProtocol;
extern const Protocol kNvmeProtocol;

/// All of them, in an order that does not change.
std::span<const Protocol* const> protocols();

/// What came of a call.
enum class Outcome { kTaken, kCode, kRefused, kSilence, kDeadline, kOther };
constexpr size_t kOutcomes = 6;

/// What calls have come to.
struct CallTally {
    uint64_t calls = 0;
    uint64_t messages = 0;  ///< that the library has sent
    uint64_t outcomes[kOutcomes] = {};
    uint64_t most_messages = 0;
    uint64_t longest_us = 0;  ///< virtual
};

constexpr size_t kMostCalls = 160;

/// In memory that processes share.
struct Tally {
    uint64_t cases = 0;
    uint64_t ways[3] = {};
    uint64_t lax = 0;
    uint64_t packets = 0;  ///< that devices have sent
    CallTally calls[kMostCalls] = {};
    uint64_t current = 0;      ///< the case that is being run
    char last_call[64] = {};   ///< in it
    char complaint[512] = {};  ///< what did not hold
};

/// The boards that cases begin with.
struct Boards {
    std::unique_ptr<sim::Board> board;
    Files files;
};

/// Makes the board and the files. @return null, with a line on standard error, on failure
std::unique_ptr<Boards> make_boards();
void remove_files(const Files& files);

/// Runs one case in a process of its own: what it changes in the board and in the library stays.
/// @param told  each call and each packet goes to standard output
/// @return whether everything holds
bool run_case(Boards& boards, uint64_t seed, uint64_t index, Tally& tally, bool told);

}  // namespace hostile

#endif

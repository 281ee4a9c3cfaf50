// SPDX-License-Identifier: Apache-2.0
// What sanitize operations do to an NVMe drive, and how far they are (NVMe, Sanitize).
#ifndef SIDEBAND_SIM_NVME_MEDIA_H
#define SIDEBAND_SIM_NVME_MEDIA_H

#include "sim/nvme/completion.h"

namespace sim {

class NvmeMedia {
public:
    enum class State : uint8_t { kNever = 0, kDone = 1, kInProgress = 2, kFailed = 3 };

    State state(double seconds) const;
    /// Whether the drive may be sanitized, formatted and updated.
    NvmeStatus gate(double seconds) const;

    /// A Sanitize command. @param duration  how long it takes  @param fails  at its end
    NvmeStatus sanitize(const NvmeAdminCommand& command, double seconds, double duration,
                        bool fails);
    /// The sanitize status log page. @param duration  what it would take
    Bytes log(double seconds, double duration) const;

private:
    double progress(double seconds) const;

    bool started_ = false;
    uint32_t command_ = 0;  ///< dword 10 of the last one
    double start_ = 0;
    double duration_ = 0;
    bool fails_ = false;
};

}  // namespace sim

#endif

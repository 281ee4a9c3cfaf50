// SPDX-License-Identifier: Apache-2.0
// Firmware of an NVMe drive: its slots, an image on its way in, what is active (NVMe, Firmware
// Image Download and Firmware Commit).
#ifndef SIDEBAND_SIM_NVME_FIRMWARE_H
#define SIDEBAND_SIM_NVME_FIRMWARE_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/nvme/completion.h"
#include "sim/nvme/config.h"

namespace sim {

class NvmeFirmware {
public:
    struct Slot {
        std::optional<std::string> revision;  ///< nothing: empty
        Bytes image;                          ///< as it was downloaded; empty if it was not
    };

    /// An image begins with these eight characters and its revision in eight more.
    static constexpr std::string_view kMagic = "SIMDRIVE";
    static constexpr size_t kRevisionSize = 8;

    explicit NvmeFirmware(NvmeFirmwareConfig config);

    // ---- For tests --------------------------------------------------------------------------

    /// @param number  from 1; null if there is none
    const Slot* slot(uint8_t number) const;
    uint8_t active() const { return active_; }
    /// The slot that will be active after a reset; 0: the same as now.
    uint8_t next() const { return next_; }
    /// The image on its way in, as far as it has come.
    ByteView downloaded() const { return download_; }
    /// Replaces what images have to be.
    void expect(ExpectedImage image) { expected_ = std::move(image); }

    // ---- For the drive ----------------------------------------------------------------------

    size_t slots() const { return slots_.size(); }
    /// The revision that runs. Its slot may have another image meanwhile.
    const std::string& revision() const { return running_; }
    /// Firmware updates field of Identify Controller.
    uint8_t capabilities() const;
    /// The firmware slot information log page.
    Bytes log() const;

    NvmeStatus download(uint64_t offset, ByteView data);
    NvmeStatus commit(uint8_t slot, uint8_t action);
    /// @return whether another revision runs now
    bool reset();

private:
    bool overlaps(uint64_t offset, ByteView data) const;
    std::optional<std::string> revision_of_download();
    uint8_t choose_slot() const;
    NvmeStatus replace(uint8_t number);
    void activate(uint8_t number);

    std::vector<Slot> slots_;
    uint8_t active_;
    uint8_t next_ = 0;
    std::string running_;
    bool first_read_only_;
    bool immediate_;
    ExpectedImage expected_;
    Bytes download_;
    std::map<uint64_t, uint64_t> pieces_;  ///< of the download that have come: from, to
};

}  // namespace sim

#endif

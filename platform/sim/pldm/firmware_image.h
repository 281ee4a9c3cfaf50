// SPDX-License-Identifier: Apache-2.0
// A firmware image on its way into a device: which pieces it asks for, what it should be, what
// came.
#ifndef SIDEBAND_SIM_PLDM_FIRMWARE_IMAGE_H
#define SIDEBAND_SIM_PLDM_FIRMWARE_IMAGE_H

#include <optional>
#include <string>

#include "sim/board/bytes.h"

namespace sim {

/// Which piece of an image comes when.
enum class PieceOrder { kAscending, kDescending, kInterleaved, kRandom };

/// The pieces that an image is asked for in; costs the same for one and for a million of them.
class PiecePlan {
public:
    struct Piece {
        uint32_t offset = 0;
        uint32_t length = 0;
        bool operator==(const Piece&) const = default;
    };

    /// The shortest piece that may be asked for (DSP0267: the baseline transfer size).
    static constexpr uint32_t kShortest = 32;

    PiecePlan() = default;
    /// @param piece      bytes in each piece, at least kShortest
    /// @param full_last  the last piece is as long as the others and passes the end of the image
    PiecePlan(uint32_t size, uint32_t piece, PieceOrder order, uint32_t seed, bool full_last);

    uint32_t count() const { return count_; }
    /// @param turn  from 0, below count()
    Piece at(uint32_t turn) const;

private:
    uint32_t position(uint32_t turn) const;

    uint32_t size_ = 0;
    uint32_t piece_ = kShortest;
    uint32_t count_ = 0;
    PieceOrder order_ = PieceOrder::kAscending;
    bool full_last_ = false;
    uint64_t stride_ = 1;  ///< random: a step without a common divisor with the count
    uint64_t start_ = 0;
};

/// What an image should be: bytes, or a part of a file of which no more than a window is held.
class ExpectedImage {
public:
    ExpectedImage() = default;
    explicit ExpectedImage(Bytes content);
    /// @param size  bytes of the image; 0: all from the offset on
    /// The file is opened whenever a part of it is needed, and closed at once.
    static ExpectedImage file(const std::string& path, uint64_t offset, uint32_t size);

    bool given() const { return given_; }
    /// Bytes of the image; 0 if the file cannot be read.
    uint64_t size() const;
    /// A file may have been written since the last image: what is held of it counts no longer.
    void look_again();
    /// @param at  where the data stand in the image
    /// @return how many bytes of the data are right; nothing if all are
    std::optional<size_t> difference(uint64_t at, ByteView data);

private:
    bool load(uint64_t at);

    bool given_ = false;
    std::string path_;      ///< empty: window_ is all there is
    uint64_t in_file_ = 0;  ///< where the image begins in the file
    uint32_t size_ = 0;     ///< of an image in a file, 0 = to its end
    Bytes window_;
    uint64_t window_at_ = 0;  ///< where the window stands in the image
};

/// The image of one component as it came.
class ReceivedImage {
public:
    /// @param keep  hold the bytes; otherwise they are compared and dropped
    void start(uint32_t size, bool keep);
    /// Takes a piece. What passes the end of the image is padding.
    void take(uint32_t offset, ByteView data, ExpectedImage& expected);

    uint32_t size() const { return size_; }
    /// Empty if the bytes are not held.
    ByteView bytes() const { return bytes_; }
    /// The lowest offset at which a byte was not as expected.
    std::optional<uint64_t> first_difference() const { return first_difference_; }

private:
    uint32_t size_ = 0;
    bool keep_ = true;
    Bytes bytes_;
    std::optional<uint64_t> first_difference_;
};

}  // namespace sim

#endif

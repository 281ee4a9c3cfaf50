// SPDX-License-Identifier: Apache-2.0
// A firmware image on its way into a device: which pieces it asks for, what it should be, what
// came.
#include "sim/pldm/firmware_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numeric>
#include <utility>

namespace sim {

namespace {

constexpr size_t kWindow = 65'536;
/// A larger image is not held, whatever was asked for: its size is what an agent claims.
constexpr uint32_t kMostKept = 64u << 20;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A regular file; null for anything else, which is not waited for.
File open_file(const std::string& path) {
    File none(nullptr, &std::fclose);
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return none;
    }
    struct stat status {};
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        return {fdopen(fd, "rb"), &std::fclose};
    }
    close(fd);
    return none;
}

}  // namespace

PiecePlan::PiecePlan(uint32_t size, uint32_t piece, PieceOrder order, uint32_t seed, bool full_last)
    : size_(size),
      piece_(std::max(piece, kShortest)),
      count_(size / piece_ + (size % piece_ != 0 ? 1 : 0)),
      order_(order),
      full_last_(full_last) {
    if (order_ != PieceOrder::kRandom || count_ == 0) {
        return;
    }
    // Multiplying spreads small seeds over the whole range.
    const uint64_t mixed = (seed + 1ull) * 0x9E3779B97F4A7C15u;
    start_ = (mixed >> 32) % count_;
    stride_ = (mixed & 0xFFFFFFFF) % count_;
    while (std::gcd(stride_, uint64_t{count_}) != 1) {
        ++stride_;
    }
}

uint32_t PiecePlan::position(uint32_t turn) const {
    switch (order_) {
        case PieceOrder::kDescending:
            return count_ - 1 - turn;
        case PieceOrder::kInterleaved: {
            const uint32_t even = count_ - count_ / 2;
            return turn < even ? 2 * turn : 2 * (turn - even) + 1;
        }
        case PieceOrder::kRandom:
            return static_cast<uint32_t>((start_ + turn * stride_) % count_);
        case PieceOrder::kAscending:
            break;
    }
    return turn;
}

PiecePlan::Piece PiecePlan::at(uint32_t turn) const {
    const uint32_t offset = position(turn) * piece_;
    const uint32_t rest = size_ - offset;
    if (full_last_ || rest >= piece_) {
        return {offset, piece_};
    }
    return {offset, std::max(rest, kShortest)};
}

ExpectedImage::ExpectedImage(Bytes content) : given_(true), window_(std::move(content)) {}

ExpectedImage ExpectedImage::file(const std::string& path, uint64_t offset, uint32_t size) {
    ExpectedImage image;
    image.given_ = true;
    image.path_ = path;
    image.in_file_ = offset;
    image.size_ = size;
    return image;
}

uint64_t ExpectedImage::size() const {
    if (path_.empty() || size_ != 0) {
        return path_.empty() ? window_.size() : size_;
    }
    const File file = open_file(path_);
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0) {
        return 0;
    }
    const long end = std::ftell(file.get());
    return end < 0 ? 0 : static_cast<uint64_t>(end) - std::min<uint64_t>(in_file_, end);
}

void ExpectedImage::look_again() {
    if (!path_.empty()) {
        window_.clear();
    }
}

bool ExpectedImage::load(uint64_t at) {
    if (path_.empty()) {
        return at < window_.size();
    }
    if (at >= window_at_ && at - window_at_ < window_.size()) {
        return true;
    }
    const File file = open_file(path_);
    if (!file || std::fseek(file.get(), static_cast<long>(in_file_ + at), SEEK_SET) != 0) {
        return false;
    }
    window_.resize(kWindow);
    window_.resize(std::fread(window_.data(), 1, window_.size(), file.get()));
    window_at_ = at;
    return !window_.empty();
}

std::optional<size_t> ExpectedImage::difference(uint64_t at, ByteView data) {
    size_t done = 0;
    while (done < data.size()) {
        if (!load(at + done)) {
            return done;
        }
        const ByteView there = ByteView(window_).subspan(at + done - window_at_);
        const size_t count = std::min(there.size(), data.size() - done);
        const auto [mine, theirs] =
            std::mismatch(there.begin(), there.begin() + static_cast<std::ptrdiff_t>(count),
                          data.begin() + static_cast<std::ptrdiff_t>(done));
        if (theirs != data.begin() + static_cast<std::ptrdiff_t>(done + count)) {
            return static_cast<size_t>(theirs - data.begin());
        }
        done += count;
    }
    return std::nullopt;
}

void ReceivedImage::start(uint32_t size, bool keep) {
    size_ = size;
    keep_ = keep && size <= kMostKept;
    bytes_ = {};
    first_difference_.reset();
}

void ReceivedImage::take(uint32_t offset, ByteView data, ExpectedImage& expected) {
    if (offset >= size_) {
        return;
    }
    data = data.first(std::min<size_t>(data.size(), size_ - offset));
    if (expected.given()) {
        if (const std::optional<size_t> right = expected.difference(offset, data)) {
            first_difference_ =
                std::min<uint64_t>(offset + *right, first_difference_.value_or(~0ull));
        }
    }
    if (!keep_) {
        return;
    }
    if (bytes_.size() < offset + data.size()) {
        bytes_.reserve(size_);
        bytes_.resize(offset + data.size());
    }
    std::ranges::copy(data, bytes_.begin() + offset);
}

}  // namespace sim

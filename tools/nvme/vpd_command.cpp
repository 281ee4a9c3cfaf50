// SPDX-License-Identifier: Apache-2.0
// The commands nvme vpd and nvme reset.
#include <fmt/format.h>

#include <algorithm>

#include "tools/nvme/client.h"
#include "tools/nvme/commands.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

constexpr size_t kVpdLine = 16;

/// Offset, bytes, and what they are as text.
std::string vpd_dump(std::span<const uint8_t> bytes, uint32_t offset) {
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += kVpdLine) {
        const auto line = bytes.subspan(at, std::min(kVpdLine, bytes.size() - at));
        std::string shown(line.begin(), line.end());
        std::replace_if(
            shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
        text += fmt::format("{:04x}  {:47}  {}\n", offset + at,
                            fmt::format("{:02x}", fmt::join(line, " ")), shown);
    }
    return text;
}

std::vector<uint8_t> bytes_of(const std::vector<std::string>& pieces) {
    std::vector<uint8_t> bytes;
    for (const std::string& piece : pieces) {
        const std::optional<std::vector<uint8_t>> part = parse_hex(piece);
        if (!part) {
            throw Failure(ExitStatus::kUsage,
                          piece + ": the data are given as pairs of hex digits");
        }
        bytes.insert(bytes.end(), part->begin(), part->end());
    }
    return bytes;
}

}  // namespace

void run_nvme_vpd_read(Context& context, const std::string& endpoint, const NvmeVpdWish& wish) {
    FoundDrive found(context.port, endpoint);
    std::vector<uint8_t> data(wish.length);
    found.client.call(fmt::format("VPD Read of {} bytes at {}", wish.length, wish.offset), [&] {
        return nvmemi_vpd_read(found.client.context(), static_cast<uint16_t>(wish.offset),
                               static_cast<uint16_t>(wish.length), data.data());
    });
    context.output.text(vpd_dump(data, wish.offset));
    context.output.document({{"endpoint", endpoint},
                             {"dofst", wish.offset},
                             {"dlen", wish.length},
                             {"data", hex(data)}});
}

void run_nvme_vpd_write(Context& context, const std::string& endpoint, const NvmeVpdWish& wish) {
    const std::vector<uint8_t> data = bytes_of(wish.pieces);
    constexpr size_t kMostVpd = 65536;  // a first byte is named in 16 bits
    if (data.empty()) {
        throw Failure(ExitStatus::kUsage, "there are no data to write");
    }
    if (wish.offset + data.size() > kMostVpd) {
        throw Failure(ExitStatus::kUsage, "the data do not fit the VPD");
    }
    FoundDrive found(context.port, endpoint);
    for (size_t at = 0; at < data.size(); at += NVMEMI_VPD_WRITE_MAX) {
        const size_t length = std::min<size_t>(data.size() - at, NVMEMI_VPD_WRITE_MAX);
        const size_t offset = wish.offset + at;
        found.client.call(fmt::format("VPD Write of {} bytes at {}", length, offset), [&] {
            return nvmemi_vpd_write(found.client.context(), data.data() + at,
                                    static_cast<uint16_t>(offset), static_cast<uint16_t>(length));
        });
    }
    context.output.text(
        fmt::format("{} written at {}\n", counted(data.size(), "byte"), wish.offset));
    context.output.document(
        {{"endpoint", endpoint}, {"dofst", wish.offset}, {"dlen", data.size()}});
}

void run_nvme_reset(Context& context, const std::string& endpoint) {
    FoundDrive found(context.port, endpoint);
    const bool answered =
        found.client.call_unanswered("Reset", [&] { return nvmemi_reset(found.client.context()); });
    context.output.text(answered ? "the drive has taken the reset\n"
                                 : "the reset was sent; a drive that resets does not answer\n");
    context.output.document({{"endpoint", endpoint}, {"answered", answered}});
}

}  // namespace tool

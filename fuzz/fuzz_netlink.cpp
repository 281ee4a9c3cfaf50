// SPDX-License-Identifier: Apache-2.0
// Fuzzes what the kernel answers about its MCTP network: datagrams, each behind its length.
#include "fuzz/check.h"
#include "fuzz/world.h"
#include "platform/linux/netlink.h"

using fuzz::require;

namespace {

constexpr uint32_t kSequence = 1;
constexpr uint8_t kFirstEid = 8;
constexpr uint8_t kLastEid = 254;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using Progress = machine::NetworkTables::Progress;
    fuzz::Input input(data, size);
    machine::NetworkTables tables;
    while (!input.empty()) {
        const std::span<const uint8_t> bytes = input.take(input.u16());
        // A copy of that size, so that a sanitizer sees where it ends.
        const std::vector<uint8_t> datagram(bytes.begin(), bytes.end());
        const Progress progress = tables.read(datagram, kSequence);
        require(progress != Progress::kRefused || tables.error() > 0, "refused without an error");
    }
    const std::vector<machine::Reachable> found = tables.reachable();
    for (size_t i = 0; i < found.size(); ++i) {
        require(found[i].eid >= kFirstEid && found[i].eid <= kLastEid, "an EID that nobody has");
        require(i == 0 || found[i - 1] < found[i], "told twice, or out of order");
    }
    return 0;
}

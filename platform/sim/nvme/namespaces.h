// SPDX-License-Identifier: Apache-2.0
// Namespaces of an NVMe drive: created, attached, detached, formatted, deleted (NVMe, Namespace
// Management and Namespace Attachment).
#ifndef SIDEBAND_SIM_NVME_NAMESPACES_H
#define SIDEBAND_SIM_NVME_NAMESPACES_H

#include <functional>
#include <map>
#include <vector>

#include "sim/nvme/completion.h"
#include "sim/nvme/config.h"

namespace sim {

class NvmeNamespaces {
public:
    explicit NvmeNamespaces(const NvmeConfig& config);

    /// Null if no namespace has the ID.
    NvmeNamespace* find(uint32_t id);
    const std::map<uint32_t, NvmeNamespace>& all() const { return namespaces_; }
    uint32_t most() const { return most_; }
    /// Bytes that no namespace has.
    uint64_t unallocated() const;

    /// Whether a namespace may be named so; all of them at once may not.
    bool names(uint32_t id) const { return id >= 1 && id <= most_; }
    /// Identifiers above one, in order. @param controller  those attached to it; nothing: all
    std::vector<uint32_t> list(uint32_t above, std::optional<uint16_t> controller) const;

    NvmeCompletion manage(const NvmeAdminCommand& command);
    NvmeStatus attach(const NvmeAdminCommand& command);
    NvmeStatus format(const NvmeAdminCommand& command);
    /// Nothing is stored any more.
    void erase();

    /// The controllers whose namespaces have changed since this was asked.
    std::set<uint16_t> take_changed();

private:
    NvmeCompletion create(ByteView data);
    NvmeStatus remove(uint32_t id);

    std::map<uint32_t, NvmeNamespace> namespaces_;
    std::set<uint16_t> controllers_;
    std::set<uint16_t> changed_;
    uint64_t capacity_;
    uint32_t most_;
};

}  // namespace sim

#endif

// SPDX-License-Identifier: Apache-2.0
// What the kernel answers over rtnetlink about its MCTP: interfaces, addresses, routes, neighbours.
// The bytes are taken for a stranger's: every length is checked, and the tables have a bound.
#ifndef SIDEBAND_LINUX_NETLINK_H
#define SIDEBAND_LINUX_NETLINK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace machine {

/// An endpoint that the kernel has a way to.
struct Reachable {
    uint32_t net = 0;
    uint8_t eid = 0;
    bool operator==(const Reachable&) const = default;
    bool operator<(const Reachable& other) const {
        return net != other.net ? net < other.net : eid < other.eid;
    }
};

/// The kernel's tables, as far as they have been read.
class NetworkTables {
public:
    /// More entries of one kind than a machine has; those behind are left out, and full() says so.
    static constexpr size_t kMostEntries = 4096;

    /// How far the answer to a question has come.
    enum class Progress : uint8_t {
        kMore,       ///< there is another datagram
        kDone,       ///< the answer is complete
        kRefused,    ///< the kernel has answered with an error, see error()
        kMalformed,  ///< these bytes are no answer
    };

    /// Reads one datagram. Messages that answer another question are passed over, and so is what
    /// does not concern MCTP.
    /// @param sequence  of the question
    Progress read(std::span<const uint8_t> datagram, uint32_t sequence);

    /// The kernel's errno behind Progress::kRefused.
    int error() const { return error_; }
    bool full() const { return full_; }

    /// Whoever has a route or is a neighbour, without the machine's own addresses; in order.
    std::vector<Reachable> reachable() const;

private:
    /// EIDs behind an interface, or in a network where the kernel names one.
    struct Range {
        int32_t link = 0;
        std::optional<uint32_t> net;
        uint8_t first = 0;
        uint8_t last = 0;
    };

    class Attributes;

    Progress read_message(uint16_t type, std::span<const uint8_t> body);
    Progress read_code(std::span<const uint8_t> body);
    void read_link(std::span<const uint8_t> body);
    void read_address(std::span<const uint8_t> body);
    void read_route(std::span<const uint8_t> body);
    void read_neighbour(std::span<const uint8_t> body);
    void add(std::vector<Range>& ranges, const Range& range);
    void collect(const std::vector<Range>& ranges, std::set<Reachable>& found) const;

    std::map<int32_t, uint32_t> nets_;  ///< by interface
    std::vector<Range> own_;
    std::vector<Range> others_;
    int error_ = 0;
    bool full_ = false;
};

}  // namespace machine

#endif

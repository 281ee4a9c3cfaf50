// SPDX-License-Identifier: Apache-2.0
// What the kernel answers over rtnetlink about its MCTP: interfaces, addresses, routes, neighbours.
#include "platform/linux/netlink.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace machine {

namespace {

constexpr uint8_t kFirstEid = 8;
constexpr uint8_t kLastEid = 254;
constexpr uint16_t kNetOfLink = 1;  // IFLA_MCTP_NET
constexpr size_t kAlignment = 4;

/// A record in the machine's byte order at the front of some bytes; nothing if they are too few.
template <typename Record>
std::optional<Record> front(std::span<const uint8_t> bytes) {
    Record record{};
    if (bytes.size() < sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

/// What is left behind so many bytes and their padding.
std::span<const uint8_t> behind(std::span<const uint8_t> bytes, size_t length) {
    const size_t padded = (length + kAlignment - 1) / kAlignment * kAlignment;
    return bytes.subspan(std::min(padded, bytes.size()));
}

}  // namespace

/// The attributes behind a header; the last of several of one type counts. One whose length does
/// not fit ends them.
class NetworkTables::Attributes {
public:
    explicit Attributes(std::span<const uint8_t> bytes) {
        while (const std::optional<rtattr> head = front<rtattr>(bytes)) {
            if (head->rta_len < sizeof *head || head->rta_len > bytes.size()) {
                return;
            }
            found_[head->rta_type & NLA_TYPE_MASK] =
                bytes.first(head->rta_len).subspan(sizeof *head);
            bytes = behind(bytes, head->rta_len);
        }
    }

    std::span<const uint8_t> bytes(uint16_t type) const {
        const auto found = found_.find(type);
        return found != found_.end() ? found->second : std::span<const uint8_t>{};
    }
    template <typename Value>
    std::optional<Value> value(uint16_t type) const {
        return front<Value>(bytes(type));
    }

private:
    std::map<uint16_t, std::span<const uint8_t>> found_;
};

NetworkTables::Progress NetworkTables::read(std::span<const uint8_t> datagram, uint32_t sequence) {
    if (datagram.empty()) {
        return Progress::kMalformed;
    }
    while (!datagram.empty()) {
        const std::optional<nlmsghdr> head = front<nlmsghdr>(datagram);
        if (!head || head->nlmsg_len < sizeof *head || head->nlmsg_len > datagram.size()) {
            return Progress::kMalformed;
        }
        if (head->nlmsg_seq == sequence && (head->nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
            error_ = EAGAIN;  // The tables changed while they were told.
            return Progress::kRefused;
        }
        if (head->nlmsg_seq == sequence) {
            const Progress progress = read_message(
                head->nlmsg_type, datagram.first(head->nlmsg_len).subspan(sizeof *head));
            if (progress != Progress::kMore) {
                return progress;
            }
        }
        datagram = behind(datagram, head->nlmsg_len);
    }
    return Progress::kMore;
}

NetworkTables::Progress NetworkTables::read_code(std::span<const uint8_t> body) {
    const std::optional<int32_t> code = front<int32_t>(body);
    if (!code || *code > 0) {
        return Progress::kMalformed;
    }
    error_ = *code != INT32_MIN ? -*code : INT32_MAX;
    return error_ == 0 ? Progress::kDone : Progress::kRefused;
}

NetworkTables::Progress NetworkTables::read_message(uint16_t type, std::span<const uint8_t> body) {
    switch (type) {
        case NLMSG_DONE:
            // Its code, which old kernels leave out, says whether the dump is whole.
            return body.empty() ? Progress::kDone : read_code(body);
        case NLMSG_ERROR:
            return read_code(body);
        case RTM_NEWLINK:
            read_link(body);
            break;
        case RTM_NEWADDR:
            read_address(body);
            break;
        case RTM_NEWROUTE:
            read_route(body);
            break;
        case RTM_NEWNEIGH:
            read_neighbour(body);
            break;
        default:
            break;
    }
    return Progress::kMore;
}

void NetworkTables::read_link(std::span<const uint8_t> body) {
    const std::optional<ifinfomsg> head = front<ifinfomsg>(body);
    if (!head) {
        return;
    }
    const Attributes all(behind(body, sizeof *head));
    const Attributes families(all.bytes(IFLA_AF_SPEC));
    const Attributes mctp(families.bytes(AF_MCTP));
    const std::optional<uint32_t> net = mctp.value<uint32_t>(kNetOfLink);
    if (!net) {
        return;
    }
    if (nets_.size() >= kMostEntries && !nets_.contains(head->ifi_index)) {
        full_ = true;
        return;
    }
    nets_[head->ifi_index] = *net;
}

void NetworkTables::read_address(std::span<const uint8_t> body) {
    const std::optional<ifaddrmsg> head = front<ifaddrmsg>(body);
    if (!head || head->ifa_family != AF_MCTP) {
        return;
    }
    const Attributes all(behind(body, sizeof *head));
    if (const std::optional<uint8_t> eid = all.value<uint8_t>(IFA_LOCAL)) {
        add(own_, {.link = static_cast<int32_t>(head->ifa_index),
                   .net = std::nullopt,
                   .first = *eid,
                   .last = *eid});
    }
}

/// The length of the destination is that of a range here: the last EID less the first one.
void NetworkTables::read_route(std::span<const uint8_t> body) {
    /// RTA_GATEWAY: the bridge that a range is behind, with its network (struct mctp_fq_addr).
    struct Gateway {
        uint32_t net;
        uint8_t eid;
        uint8_t padding[3];
    };
    const std::optional<rtmsg> head = front<rtmsg>(body);
    if (!head || head->rtm_family != AF_MCTP || head->rtm_type != RTN_UNICAST) {
        return;
    }
    const Attributes all(behind(body, sizeof *head));
    const std::optional<uint8_t> first = all.value<uint8_t>(RTA_DST);
    if (!first) {
        return;
    }
    Range range{.link = all.value<int32_t>(RTA_OIF).value_or(0),
                .net = std::nullopt,
                .first = *first,
                .last = static_cast<uint8_t>(std::min(0xFF, *first + head->rtm_dst_len))};
    if (const std::optional<Gateway> gateway = all.value<Gateway>(RTA_GATEWAY)) {
        range.net = gateway->net;
    }
    add(others_, range);
}

void NetworkTables::read_neighbour(std::span<const uint8_t> body) {
    const std::optional<ndmsg> head = front<ndmsg>(body);
    if (!head || head->ndm_family != AF_MCTP) {
        return;
    }
    const Attributes all(behind(body, sizeof *head));
    if (const std::optional<uint8_t> eid = all.value<uint8_t>(NDA_DST)) {
        add(others_, {.link = head->ndm_ifindex, .net = std::nullopt, .first = *eid, .last = *eid});
    }
}

void NetworkTables::add(std::vector<Range>& ranges, const Range& range) {
    if (ranges.size() < kMostEntries) {
        ranges.push_back(range);
    } else {
        full_ = true;
    }
}

void NetworkTables::collect(const std::vector<Range>& ranges, std::set<Reachable>& found) const {
    for (const Range& range : ranges) {
        const auto link = nets_.find(range.link);
        if (!range.net && link == nets_.end()) {
            continue;
        }
        const uint32_t net = range.net ? *range.net : link->second;
        const int last = std::min(range.last, kLastEid);
        for (int eid = std::max(range.first, kFirstEid); eid <= last; ++eid) {
            found.insert({.net = net, .eid = static_cast<uint8_t>(eid)});
        }
    }
}

std::vector<Reachable> NetworkTables::reachable() const {
    std::set<Reachable> own;
    std::set<Reachable> others;
    collect(own_, own);
    collect(others_, others);
    std::vector<Reachable> list;
    std::set_difference(others.begin(), others.end(), own.begin(), own.end(),
                        std::back_inserter(list));
    return list;
}

}  // namespace machine

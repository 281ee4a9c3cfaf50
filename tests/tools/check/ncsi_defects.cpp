// SPDX-License-Identifier: Apache-2.0
// Devices that break one of the rules on NC-SI.
#include <sideband/mctp.h>

#include "tests/tools/check/defects.h"

namespace check_test {
namespace {

using namespace tool::check;

enum PacketType : uint8_t { kClear = 0x00, kSelect = 0x01, kLink = 0x0A, kNone = 0x7D };

Match link() {
    return ncsi(kLink);
}

/// The checksum says nothing any more.
Change unsummed(Change change) {
    return [=](Exchange& exchange) {
        if (exchange.response && exchange.response->size() >= 4) {
            change(exchange);
            std::fill(exchange.response->end() - 4, exchange.response->end(), 0);
        }
    };
}

/// Response and reason code.
Change codes(uint8_t response, uint8_t reason_high, uint8_t reason) {
    return unsummed([=](Exchange& exchange) {
        put(16, 0)(exchange);
        put(17, response)(exchange);
        put(18, reason_high)(exchange);
        put(19, reason)(exchange);
    });
}

/// Any packet from the first Clear Initial State on.
Match when_ready(Match match) {
    return [=, ready = false](const Exchange& exchange) mutable {
        ready = ready || ncsi(kClear)(exchange);
        return ready && match(exchange);
    };
}

/// Any packet in front of it.
Match before_ready(Match match) {
    return [=, ready = false](const Exchange& exchange) mutable {
        ready = ready || ncsi(kClear)(exchange);
        return !ready && match(exchange);
    };
}

}  // namespace

std::vector<Defect> ncsi_defects() {
    return {
        {"ncsi.answer", "ncsi0", link(), silent()},
        {"ncsi.header.revision", "ncsi0", link(), unsummed(put(1, 2))},
        {"ncsi.header.reserved", "ncsi0", link(), unsummed(put(2, 1))},
        {"ncsi.header.reserved", "ncsi0", link(), unsummed(put(6, 0x10))},
        {"ncsi.header.reserved", "ncsi0", link(), unsummed(put(15, 1))},
        {"ncsi.header.mc-id", "ncsi0", link(), unsummed(put(0, 0))},
        {"ncsi.header.instance-id", "ncsi0", link(), unsummed(flip(3, 0x80))},
        {"ncsi.header.type", "ncsi0", link(), unsummed(put(4, kLink))},
        {"ncsi.header.channel", "ncsi0", link(), unsummed(put(5, 0x21))},
        {"ncsi.payload.length", "ncsi0", before_ready(link()), unsummed(lengthen(4))},
        {"ncsi.checksum", "ncsi0", link(), flip(23, 0x01)},
        {"ncsi.checksum.request", "ncsi0", with(link(), 16, 0x12),
         [](Exchange& exchange) { exchange.response = Bytes(24); }},
        {"ncsi.codes", "ncsi0", before_ready(link()), codes(0x00, 0x00, 0x01)},
        {"ncsi.codes", "ncsi0", before_ready(link()), codes(0x05, 0x00, 0x00)},
        {"ncsi.repeat", "ncsi0",
         [before = 0](const Exchange& exchange) mutable {
             return exchange.type == MCTP_MSG_TYPE_NCSI &&
                    std::exchange(before, exchange.request[3]) == 0x31 &&
                    exchange.request[3] == 0x31;
         },
         codes(0x02, 0x00, 0x00)},
        {"ncsi.unknown-command", "ncsi0", before_ready(ncsi(kNone)), codes(0x01, 0x00, 0x02)},
        {"ncsi.select", "ncsi0", ncsi(kSelect), codes(0x01, 0x00, 0x02)},
        {"ncsi.clear-initial-state", "ncsi0", ncsi(kClear), codes(0x01, 0x00, 0x02)},
        {"ncsi.link.length", "ncsi0", when_ready(sized(link(), 20)), codes(0x01, 0x00, 0x02)},
        {"ncsi.link.length", "ncsi0", when_ready(sized(link(), 20)), unsummed(put(7, 8))},
        {"ncsi.link.length", "ncsi0", when_ready(sized(link(), 20)), shorten(3)},
        {"ncsi.link.payload-length", "ncsi0", when_ready(sized(link(), 24)),
         codes(0x00, 0x00, 0x00)},
        {"ncsi.ready.unknown-command", "ncsi0", when_ready(ncsi(kNone)), codes(0x03, 0x00, 0x00)},
    };
}

}  // namespace check_test

// SPDX-License-Identifier: Apache-2.0
// Devices that are right but for one thing, for the tests of the rules.
#include "tests/tools/check/defects.h"

#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <filesystem>
#include <memory>

#include "tests/tools/tool_runner.h"
#include "tools/check/session_channel.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/wire_watch.h"

namespace check_test {
namespace {

using namespace tool;
using namespace tool::check;

/// Devices that the built-in board has not: what they have comes in parts.
constexpr const char* kOwnBoard = R"({"name": "parts", "buses": [{"bus": 1}],
    "platform": {"mpio_state": "wanted"},
    "devices": [
      {"name": "parts0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 9, "eid": 30,
       "pdr_part_size": 9,
       "fru": {"part_size": 8, "records": [{"fields": [
         {"type": "model", "text": "in parts"}, {"type": "version", "text": "1.0"}]}]},
       "sensors": [{"kind": "numeric", "id": 1, "data_size": 1,
                    "waveform": {"shape": "constant", "value": 20}}]},
      {"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"},
      {"name": "drive0", "type": "nvme", "transport": "pcie", "bdf": "41:00.0",
       "drive": {"temperature": {"shape": "constant", "value": 30},
                 "vpd": "01000000000000ff"}}]})";

bool is_on_own_board(const std::string& device) {
    return device == "parts0" || device == "drive0";
}

/// A device that is right, with a defect in front of it.
class SpoiltChannel final : public Channel {
public:
    SpoiltChannel(Channel& channel, Match match, Change change)
        : channel_(channel), match_(std::move(match)), change_(std::move(change)) {}

    Exchange exchange(uint8_t type, std::span<const uint8_t> body) override {
        Exchange exchange = channel_.exchange(type, body);
        if (match_ && match_(exchange)) {
            change_(exchange);
        }
        return exchange;
    }
    uint64_t now_us() const override { return channel_.now_us(); }
    uint8_t eid() const override { return channel_.eid(); }
    bool appends_check() const override { return channel_.appends_check(); }

private:
    Channel& channel_;
    Match match_;
    Change change_;
};

/// A board of its own for each run: nothing is left of another one.
std::vector<Result> run(const std::string& device, const Match& match, const Change& change,
                        bool may_write) {
    const tool_test::TemporaryFile board(kOwnBoard);
    const std::unique_ptr<Port> port =
        Port::open(is_on_own_board(device) ? board.path() : std::string());
    const WireWatch watch(*port, nullptr);
    Session session(find_endpoint(*port, device));
    session.discover();
    SessionChannel right(*port, session);
    SpoiltChannel spoilt(right, match, change);
    Device judged(spoilt);
    return judge(judged, rules_named(""), may_write);
}

size_t header_of(const Exchange& exchange) {
    return exchange.type == MCTP_MSG_TYPE_CONTROL ? kControlHeader : kPldmHeader;
}

/// The header that a right answer to the request has.
Bytes answer_header(const Exchange& exchange) {
    Bytes header(exchange.request.begin(),
                 exchange.request.begin() + static_cast<ptrdiff_t>(header_of(exchange)));
    header[0] &= kInstanceBits;
    return header;
}

bool has(const Exchange& exchange, size_t place, uint8_t value) {
    return exchange.request.size() > place && exchange.request[place] == value;
}

}  // namespace

Match any(uint8_t message_type) {
    return [=](const Exchange& exchange) { return (exchange.type & 0x7F) == message_type; };
}

Match with(Match match, size_t place, uint8_t value) {
    return [=](const Exchange& exchange) { return match(exchange) && has(exchange, place, value); };
}

Match sized(Match match, size_t size) {
    return [=](const Exchange& exchange) {
        return match(exchange) && exchange.request.size() == size;
    };
}

Match second(Match match) {
    return [=, turn = 0](const Exchange& exchange) mutable {
        return match(exchange) && turn++ % 2 == 1;
    };
}

Match from_on(Match match, int nth) {
    return [=, turn = 0](const Exchange& exchange) mutable {
        return match(exchange) && ++turn >= nth;
    };
}

Match control(uint8_t command) {
    return with(any(MCTP_MSG_TYPE_CONTROL), 1, command);
}

Match pldm(uint8_t type, uint8_t command) {
    return with(with(any(MCTP_MSG_TYPE_PLDM), 1, type), 2, command);
}

Match ncsi(uint8_t packet_type) {
    return with(any(MCTP_MSG_TYPE_NCSI), 4, packet_type);
}

Match nvme(uint8_t opcode) {
    return with(any(MCTP_MSG_TYPE_NVME_MI), 3, opcode);
}

Change flip(size_t place, uint8_t bits) {
    return [=](Exchange& exchange) {
        if (exchange.response && exchange.response->size() > place) {
            (*exchange.response)[place] ^= bits;
        }
    };
}

Change put(size_t place, uint8_t value) {
    return [=](Exchange& exchange) {
        if (exchange.response && exchange.response->size() > place) {
            (*exchange.response)[place] = value;
        }
    };
}

Change shorten(size_t bytes) {
    return [=](Exchange& exchange) {
        if (exchange.response) {
            exchange.response->resize(exchange.response->size() -
                                      std::min(bytes, exchange.response->size()));
        }
    };
}

Change lengthen(size_t bytes) {
    return [=](Exchange& exchange) {
        if (exchange.response) {
            exchange.response->resize(exchange.response->size() + bytes);
        }
    };
}

Change silent() {
    return [](Exchange& exchange) { exchange.response.reset(); };
}

Change code(uint8_t value) {
    return [=](Exchange& exchange) {
        exchange.response = answer_header(exchange);
        exchange.response->push_back(value);
    };
}

Change success(const Bytes& data) {
    return [=](Exchange& exchange) {
        code(kSuccess)(exchange);
        exchange.response->insert(exchange.response->end(), data.begin(), data.end());
    };
}

Change checked(Change change) {
    return [=](Exchange& exchange) {
        if (!exchange.response || exchange.response->size() < 4) {
            return;
        }
        shorten(4)(exchange);
        change(exchange);
        const Bytes covered = Body()
                                  .u8(MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK)
                                  .bytes(*exchange.response);
        exchange.response = Body().bytes(*exchange.response).le32(crc32c_of(covered));
    };
}

Change packet(size_t place, uint8_t bits) {
    return [=](Exchange& exchange) {
        for (SeenPacket& seen : exchange.packets) {
            if (!seen.sent && seen.bytes.size() > place) {
                seen.bytes[place] ^= bits;
                return;
            }
        }
    };
}

std::set<std::string> failing(const std::string& device, const Match& match, const Change& change) {
    std::set<std::string> names;
    for (const Result& result : run(device, match, change, true)) {
        if (result.outcome == Outcome::kFailed) {
            names.insert(result.rule->name);
        }
    }
    return names;
}

std::vector<Result> results_of(const std::string& device, bool may_write, const Match& seen) {
    return run(
        device, seen, [](Exchange&) {}, may_write);
}

void expect_broken(const std::vector<Defect>& defects) {
    for (const Defect& defect : defects) {
        std::set<std::string> expected = defect.followers;
        expected.insert(defect.rule);
        EXPECT_EQ(failing(defect.device, defect.match, defect.change), expected) << defect.rule;
    }
}

}  // namespace check_test

// SPDX-License-Identifier: Apache-2.0
// Tests of check on devices that lie, and on those that never come to an end.
#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <functional>
#include <random>

#include "tests/tools/check/defects.h"

namespace {

using namespace check_test;
using namespace tool::check;

/// The data behind the completion code; none for a device that keeps silent.
using Answer = std::function<std::optional<Bytes>(uint8_t type, uint8_t command, const Bytes&)>;

/// A PLDM terminus that names every type and command, and answers the rest as it likes.
class HostileTerminus final : public Channel {
public:
    explicit HostileTerminus(Answer answer, uint64_t pace_us = 1)
        : answer_(std::move(answer)), pace_us_(pace_us) {}

    Exchange exchange(uint8_t type, std::span<const uint8_t> body) override {
        ++exchanges;
        now_us_ += pace_us_;
        Exchange exchange{type, Bytes(body.begin(), body.end()), std::nullopt, {}};
        if (type == MCTP_MSG_TYPE_CONTROL && body.size() > 1) {
            exchange.response = Body().u8(body[0] & 0x1F).u8(body[1]).u8(0).u8(1).u8(1);
        } else if (type == MCTP_MSG_TYPE_PLDM && body.size() > 2) {
            answer_pldm(exchange);
        }
        return exchange;
    }
    uint64_t now_us() const override { return now_us_; }
    uint8_t eid() const override { return 9; }
    bool appends_check() const override { return false; }

    size_t exchanges = 0;

private:
    void answer_pldm(Exchange& exchange) {
        const Bytes& request = exchange.request;
        std::optional<Bytes> data;
        if (request[1] == kBase && request[2] == kGetPldmTypes) {
            data = Bytes(8, 0xFF);
        } else if (request[1] == kBase && request[2] == kGetPldmVersion) {
            const Bytes version{0x00, 0xF0, 0xF1, 0xF1};
            data = Body().le32(0).u8(kOnlyPart).bytes(version).le32(crc32_of(version));
        } else if (request[1] == kBase && request[2] == kGetPldmCommands) {
            data = Bytes(32, 0xFF);
        } else {
            data = answer_(request[1], request[2], request);
        }
        if (data) {
            exchange.response =
                Body().u8(request[0] & 0x1F).u8(request[1]).u8(request[2]).u8(0).bytes(*data);
        }
    }

    Answer answer_;
    uint64_t pace_us_;
    uint64_t now_us_ = 0;
};

/// Names of the rules that fail.
std::set<std::string> judged(HostileTerminus& terminus) {
    Device device(terminus);
    std::set<std::string> names;
    for (const Result& result : judge(device, rules_named(""), true)) {
        if (result.outcome == Outcome::kFailed) {
            names.insert(result.rule->name);
        }
    }
    return names;
}

// With a device that answers whatever is asked every rule has come to its end behind so many.
constexpr size_t kMostInAll = 30'000;

uint32_t number_of(const Bytes& request, size_t place) {
    sideband::WireReader reader(request);
    reader.skip(place);
    return reader.le32();
}

/// An answer to GetPDR with a record, or a part of one.
Bytes pdr(uint32_t next, uint8_t flag, const Bytes& record) {
    return Body()
        .le32(next)
        .le32(1)
        .u8(flag)
        .le16(static_cast<uint16_t>(record.size()))
        .bytes(record);
}

Bytes record(uint32_t handle) {
    return Body().le32(handle).u8(1).u8(0).le16(0).le16(0);
}

TEST(HostileCheck, ARepositoryWithoutEndIsReported) {
    HostileTerminus terminus([](uint8_t type, uint8_t command, const Bytes& request) {
        const uint32_t handle = type == kMonitoring && command == 0x51 ? number_of(request, 3) : 0;
        return pdr(handle + 1, kOnlyPart, record(handle + 1000));
    });
    EXPECT_TRUE(judged(terminus).contains("monitor.walk.end"));
    EXPECT_GT(terminus.exchanges, 4000U);
    EXPECT_LT(terminus.exchanges, kMostInAll);
}

TEST(HostileCheck, ARecordWithoutEndIsReported) {
    for (const size_t size : {1, 512}) {
        HostileTerminus terminus(
            [size](uint8_t, uint8_t, const Bytes&) { return pdr(1, 1, Bytes(size, 0x55)); });
        EXPECT_TRUE(judged(terminus).contains("monitor.walk.end"));
        EXPECT_LT(terminus.exchanges, kMostInAll);
    }
}

TEST(HostileCheck, ARecordWithEmptyPartsIsReported) {
    HostileTerminus terminus([](uint8_t, uint8_t, const Bytes&) { return pdr(1, 1, {}); });
    EXPECT_TRUE(judged(terminus).contains("monitor.walk.end"));
    EXPECT_LT(terminus.exchanges, 6000U);
}

TEST(HostileCheck, RecordsInACircleAreReported) {
    HostileTerminus terminus([](uint8_t, uint8_t, const Bytes& request) {
        const uint32_t handle = number_of(request, 3) % 5;
        return pdr(handle % 4 + 1, kOnlyPart, record(handle));
    });
    EXPECT_TRUE(judged(terminus).contains("monitor.walk.end"));
    EXPECT_LT(terminus.exchanges, kMostInAll);
}

TEST(HostileCheck, ATableWithoutEndIsReported) {
    HostileTerminus terminus([](uint8_t type, uint8_t command, const Bytes&) {
        const bool table = type == kFru && command == 0x02;
        return table ? std::optional<Bytes>(Body().le32(7).u8(2).bytes(Bytes(1024))) : std::nullopt;
    });
    EXPECT_TRUE(judged(terminus).contains("fru.table.end"));
    EXPECT_LT(terminus.exchanges, kMostInAll);
}

TEST(HostileCheck, LengthsThatLieAreReported) {
    const auto lie = [](uint8_t type, uint8_t command, const Bytes&) -> Bytes {
        if (type == kMonitoring && command == 0x51) {
            return Body().le32(0).le32(0).u8(5).le16(0xFFFF).le32(1);
        }
        if (type == kFru && command == 0x01) {
            return Bytes(18, 0xFF);
        }
        return Bytes(40, 0xFF);
    };
    HostileTerminus terminus(lie);
    const std::set<std::string> failed = judged(terminus);
    for (const char* rule : {"monitor.walk.end", "update.identifiers.length",
                             "update.parameters.length", "monitor.info.state"}) {
        EXPECT_TRUE(failed.contains(rule)) << rule;
    }
    EXPECT_LT(terminus.exchanges, kMostInAll);
}

TEST(HostileCheck, ADeviceThatTakesTooLongIsReported) {
    constexpr uint64_t kMinuteUs = 60'000'000;
    HostileTerminus terminus(
        [](uint8_t, uint8_t, const Bytes& request) {
            const uint32_t handle = number_of(request, 3);
            return pdr(handle + 1, kOnlyPart, record(handle + 1));
        },
        kMinuteUs);
    Device device(terminus);
    const std::vector<const Rule*> walk = rules_named("monitor.walk.end");
    const std::vector<Result> results = judge(device, walk, false);
    EXPECT_EQ(results.at(0).outcome, Outcome::kFailed);
    EXPECT_EQ(results.at(0).text, "an end within 300 seconds");
    EXPECT_LT(terminus.exchanges, 20U);
}

TEST(HostileCheck, AnswersThatAreCutAnywhereAreBorne) {
    for (const char* device : {"gpu0", "ncsi0", "nvme0", "mpio0"}) {
        for (size_t size = 0; size < 40; size += device[0] == 'g' ? 1 : 3) {
            bool hit = false;
            const auto cut = [&](Exchange& exchange) {
                if (exchange.response && exchange.response->size() > size) {
                    exchange.response->resize(size);
                    hit = true;
                }
            };
            const auto always = [](const Exchange&) { return true; };
            EXPECT_EQ(!failing(device, always, cut).empty(), hit) << device << " at " << size;
        }
    }
}

TEST(HostileCheck, AnswersAtRandomAreBorne) {
    for (unsigned seed = 0; seed < 20; ++seed) {
        std::mt19937 random(seed);
        HostileTerminus terminus([&](uint8_t, uint8_t, const Bytes&) {
            Bytes data(random() % 64);
            for (uint8_t& byte : data) {
                byte = static_cast<uint8_t>(random() % 4 == 0 ? random() : random() % 6);
            }
            return data;
        });
        EXPECT_FALSE(judged(terminus).empty());
        EXPECT_LT(terminus.exchanges, kMostInAll) << seed;
    }
}

}  // namespace

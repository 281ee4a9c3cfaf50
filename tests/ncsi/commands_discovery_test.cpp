// SPDX-License-Identifier: Apache-2.0
// Looking for the channels of a controller with Clear Initial State.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "ncsi/ncsi_fixture.h"

namespace {

using test::MctpAnswer;
using test::ncsi_response;
using test::Outcome;
using test::port;
using test::Texts;

std::string formatted(const char* format, unsigned first, unsigned second = 0) {
    char text[128];
    std::snprintf(text, sizeof text, format, first, second);
    return text;
}

std::string found(unsigned number, unsigned id) {
    return formatted("discovery ncsi channel[%u], channel_id:%02x\n", number, id);
}

std::string failed(unsigned id) {
    return formatted("clear init state failed. channel_id:%02x\n", id);
}

/// Clear Initial State as it goes out.
std::string request(unsigned iid, unsigned id) {
    return formatted("00 01 00 %02x 00 %02x 00 00 00 00 00 00 00 00 00 00 00 00 00 00", iid, id);
}

uint8_t id_of(unsigned package, unsigned number) {
    return static_cast<uint8_t>(package << 5 | number);
}

class NcsiDiscovery : public test::NcsiTest {
protected:
    NcsiDiscovery() {
        for (ncsi_channel& record : ctx.channels) {
            record.channel_id = 0xEE;
            record.link_up = 1;
            record.sensor_index = 9;
        }
    }

    /// Discovery on a board on which these channels answer.
    Outcome discover(const std::set<uint8_t>& present) {
        start_over();
        for (unsigned package = 0; package < 8; package++) {
            for (unsigned number = 0; number < 8; number++) {
                const uint8_t id = id_of(package, number);
                endpoint.answers.push_back(present.contains(id)
                                               ? MctpAnswer::of(ncsi_response(0x00, id))
                                               : MctpAnswer::failure());
            }
        }
        return test::run([&] { return ncsi_discovery(&ctx); });
    }

    /// What was asked and printed, up to and with a package, if these channels answer.
    void expect_sweep(const Outcome& outcome, unsigned last_package,
                      const std::set<uint8_t>& present) {
        Texts requests;
        std::string texts;
        unsigned iid = 0;
        for (unsigned package = 0; package <= last_package; package++) {
            for (unsigned number = 0; number < 8; number++) {
                const uint8_t id = id_of(package, number);
                requests.push_back(request(++iid, id));
                texts += present.contains(id) ? found(number, id) : failed(id);
            }
        }
        EXPECT_EQ(endpoint.messages(), requests);
        EXPECT_EQ(outcome.out, texts);
        for (const test::MctpCall& call : endpoint.calls) {
            EXPECT_EQ(call.capacity, 24);
        }
    }

    /// Channel IDs of all records.
    std::vector<unsigned> recorded() const {
        std::vector<unsigned> ids;
        for (const ncsi_channel& record : ctx.channels) {
            ids.push_back(record.channel_id);
        }
        return ids;
    }
};

using Ids = std::vector<unsigned>;

TEST_F(NcsiDiscovery, WithoutADeviceItMakes64Attempts) {
    const Outcome outcome = discover({});
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(endpoint.calls.size(), 64u);
    expect_sweep(outcome, 7, {});
    EXPECT_EQ(ctx.channel_num, 0);
    EXPECT_EQ(ctx.iid, 65);
    EXPECT_EQ(recorded(), Ids(8, 0xEE));
}

TEST_F(NcsiDiscovery, OneChannelIsFound) {
    const Outcome outcome = discover({0x43});
    EXPECT_EQ(outcome.result, 0);
    expect_sweep(outcome, 2, {0x43});
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(recorded(), (Ids{0xEE, 0xEE, 0xEE, 0x43, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST_F(NcsiDiscovery, EachChannelAloneIsFound) {
    for (unsigned package = 0; package < 8; package++) {
        for (unsigned number = 0; number < 8; number++) {
            const uint8_t id = id_of(package, number);
            SCOPED_TRACE(id);
            ctx.iid = 0;
            ctx.channel_num = 0;
            for (ncsi_channel& record : ctx.channels) {
                record.channel_id = 0xEE;
            }
            const Outcome outcome = discover({id});
            EXPECT_EQ(outcome.result, 0);
            expect_sweep(outcome, package, {id});
            Ids expected(8, 0xEE);
            expected[number] = id;
            EXPECT_EQ(recorded(), expected);
            EXPECT_EQ(ctx.channel_num, 1);
        }
    }
}

TEST_F(NcsiDiscovery, TheLastChannelOfTheLastPackageIsFound) {
    const Outcome outcome = discover({0xE7});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.calls.size(), 64u);
    expect_sweep(outcome, 7, {0xE7});
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(recorded(), (Ids{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xE7}));
}

TEST_F(NcsiDiscovery, ItStopsBehindTheFirstPackageThatAnswers) {
    std::set<uint8_t> all;
    for (unsigned id = 0; id < 64; id++) {
        all.insert(id_of(id / 8, id % 8));
    }
    const Outcome outcome = discover(all);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.calls.size(), 8u);
    expect_sweep(outcome, 0, all);
    EXPECT_EQ(ctx.channel_num, 8);
    EXPECT_EQ(recorded(), (Ids{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(NcsiDiscovery, ChannelsThatDoNotAnswerKeepTheirRecords) {
    const Outcome outcome = discover({0x21, 0x26, 0x40});
    EXPECT_EQ(outcome.result, 0);
    expect_sweep(outcome, 1, {0x21, 0x26});
    EXPECT_EQ(recorded(), (Ids{0xEE, 0x21, 0xEE, 0xEE, 0xEE, 0xEE, 0x26, 0xEE}));
    for (const ncsi_channel& record : ctx.channels) {
        EXPECT_EQ(record.link_up, 1);
        EXPECT_EQ(record.sensor_index, 9);
        EXPECT_EQ(record.ctx, &ctx);
    }
}

TEST_F(NcsiDiscovery, FoundChannelsAddUp) {
    EXPECT_EQ(discover({0x00, 0x07}).result, 0);
    EXPECT_EQ(ctx.channel_num, 2);
    EXPECT_EQ(discover({0x00, 0x07}).result, 0);
    EXPECT_EQ(ctx.channel_num, 4);
}

TEST_F(NcsiDiscovery, AChannelThatRefusesIsNotFound) {
    endpoint.answers = {MctpAnswer::of(ncsi_response(0x00, 0x00, {}, 0x0001, 0x0002)),
                        MctpAnswer::of(ncsi_response(0x00, 0x01))};
    const Outcome outcome = test::run([&] { return ncsi_discovery(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, test::not_successful(1, 2, 24) + failed(0) + found(1, 1) + failed(2) +
                               failed(3) + failed(4) + failed(5) + failed(6) + failed(7));
    EXPECT_EQ(ctx.channel_num, 1);
}

TEST_F(NcsiDiscovery, AContextWithoutTransferIsRefused) {
    ctx.transfer = nullptr;
    EXPECT_EQ(ncsi_discovery(&ctx), -1);
    EXPECT_EQ(ncsi_discovery(nullptr), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- Over a borrowed endpoint ----

TEST_F(NcsiDiscovery, ARecordWithoutContextHasNoChannel) {
    ctx.channels[0].ctx = nullptr;
    ncsi_ctx former{};  // as after a copy: its records belong to another context, which is cleared
    ctx.channels[2].ctx = &former;
    start_over();
    endpoint.answers.assign(1, MctpAnswer::of(ncsi_response(0x00, 0x01)));
    const Outcome outcome = test::run([&] { return ncsi_discovery(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.calls.size(), 6u) << "two have nothing to go out by";
    EXPECT_EQ(endpoint.messages()[0], request(1, 0x01));
    EXPECT_TRUE(outcome.out.starts_with(failed(0x00) + found(1, 0x01) + failed(0x02)))
        << outcome.out;
    EXPECT_EQ(ctx.channel_num, 1);
}

TEST_F(NcsiDiscovery, WithoutARecordThatHasAContextItFails) {
    for (ncsi_channel& record : ctx.channels) {
        record.ctx = nullptr;
    }
    EXPECT_EQ(test::run([&] { return ncsi_discovery(&ctx); }).result, -1);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_ARGUMENT);
}

class NcsiOemDiscovery : public NcsiDiscovery {
protected:
    /// Discovery on a board on which this channel of package 0 answers; 8: none.
    Outcome oem_discover(uint8_t first) {
        start_over();
        endpoint.answers.assign(first, MctpAnswer::failure());
        endpoint.answers.push_back(MctpAnswer::of(ncsi_response(0x00, first)));
        return test::run([&] { return ncsi_oem_discovery(&ctx); });
    }
};

TEST_F(NcsiOemDiscovery, ItEndsWithTheFirstChannelThatAnswersAndRecordsNothing) {
    Texts requests;
    std::string texts;
    for (uint8_t first = 0; first < 8; first++) {
        SCOPED_TRACE(first);
        const Outcome outcome = oem_discover(first);
        EXPECT_EQ(outcome.result, 0);
        requests.push_back(request(1, first));
        EXPECT_EQ(endpoint.messages(), requests);
        EXPECT_EQ(endpoint.calls.back().capacity, 24);
        EXPECT_EQ(outcome.out, texts);
        texts += "clear init state failed.\n";
        EXPECT_EQ(recorded(), Ids(8, 0xEE));
        EXPECT_EQ(ctx.channel_num, 0);
    }
}

TEST_F(NcsiOemDiscovery, ItFailsAfterEightFailures) {
    const Outcome outcome = oem_discover(8);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(endpoint.calls.size(), 8u);
    std::string texts;
    for (int i = 0; i < 8; i++) {
        texts += "clear init state failed.\n";
    }
    EXPECT_EQ(outcome.out, texts);
    EXPECT_EQ(port().trace.size(), 8u * 4);
}

TEST_F(NcsiOemDiscovery, AnOperationOfTheCallersOwnThatAnswersLeavesNoFailure) {
    static int failures;
    failures = 3;
    ctx.oem_transfer = [](ncsi_ctx*, uint32_t, int32_t, uint8_t*, uint8_t*) -> int32_t {
        return --failures >= 0 ? -1 : 0;
    };
    EXPECT_EQ(test::run([&] { return ncsi_oem_discovery(&ctx); }).result, 0);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_NONE);
    failures = 8;
    EXPECT_EQ(test::run([&] { return ncsi_oem_discovery(&ctx); }).result, -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_NO_ANSWER);
    EXPECT_EQ(ctx.last_error.step, SIDEBAND_STEP_NCSI);
}

TEST_F(NcsiOemDiscovery, AContextWithoutTransferIsRefused) {
    ctx.oem_transfer = nullptr;
    EXPECT_EQ(ncsi_oem_discovery(&ctx), -1);
    EXPECT_EQ(ncsi_oem_discovery(nullptr), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace

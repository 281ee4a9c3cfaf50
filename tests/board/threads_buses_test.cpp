// SPDX-License-Identifier: Apache-2.0
// Sixteen threads on sixteen endpoints of eight buses: whose answer is whose, and who gets which
// EID.
#include <sideband/output.h>
#include <sideband/pldm_fru.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fixture.h"

namespace {

using board_test::BoardRun;

constexpr size_t kThreads = 16;
constexpr size_t kBuses = 8;

/// What only this endpoint says: both of one bus differ as much as those of different buses.
constexpr uint32_t reading_of(size_t endpoint, uint16_t sensor) {
    return static_cast<uint32_t>(1000 * (endpoint + 1) + sensor);
}

std::string serial_of(size_t endpoint) {
    // Of different lengths, and in several packets.
    return "SN" + std::to_string(endpoint) +
           std::string(60 + 7 * endpoint, static_cast<char>('a' + endpoint));
}

std::string name_of(size_t endpoint) {
    return "dev" + std::to_string(endpoint);
}

/// Two endpoints of a bus have their own addresses or, on the even buses, one address behind two
/// channels of a multiplexer.
std::string place_of(size_t endpoint) {
    const size_t bus = endpoint % kBuses;
    const size_t second = endpoint / kBuses;
    const std::string place = "\"bus\": " + std::to_string(bus);
    if (bus % 2 == 0) {
        return place + R"(, "address": "0x64", "mux": {"address": "0xe0", "channel": )" +
               std::to_string(second) + "}";
    }
    return place + ", \"address\": " + std::to_string(0x64 + 2 * second);
}

std::string device_of(size_t endpoint) {
    std::string text = R"({"name": ")" + name_of(endpoint) + R"(", "type": "pldm", )" +
                       place_of(endpoint) + ", \"tid\": " + std::to_string(endpoint + 1) +
                       (endpoint % 3 == 0 ? R"(, "pec": "software")" : "") + R"(, "sensors": [)";
    for (const uint16_t sensor : {1, 2}) {
        text +=
            (sensor == 1 ? R"({"kind": "numeric", "id": )" : R"(, {"kind": "numeric", "id": )") +
            std::to_string(sensor) + R"(, "waveform": {"shape": "constant", "value": )" +
            std::to_string(reading_of(endpoint, sensor)) + "}}";
    }
    return text + R"(], "fru": {"records": [{"fields": [{"type": "serial_number", "text": ")" +
           serial_of(endpoint) + R"("}]}]}})";
}

std::string board_of_sixteen() {
    std::string buses;
    std::string devices;
    for (size_t bus = 0; bus < kBuses; ++bus) {
        buses += (bus == 0 ? "" : ", ") + std::string("{\"bus\": ") + std::to_string(bus) +
                 R"(, "muxes": [{"address": "0xe0", "channels": 4}]})";
    }
    for (size_t endpoint = 0; endpoint < kThreads; ++endpoint) {
        devices += (endpoint == 0 ? "" : ", ") + device_of(endpoint);
    }
    return R"({"name": "sixteen", "buses": [)" + buses + R"(], "devices": [)" + devices + "]}";
}

/// The traces of sixteen threads are nobody's reading.
class BusThreads : public BoardRun {
protected:
    void SetUp() override {
        sideband_set_output(
            SIDEBAND_OUTLET_PRINTED, [](void*, uint32_t, const char*, size_t) {}, nullptr);
        open(board_of_sixteen());
    }
    void TearDown() override {
        sideband_set_output(SIDEBAND_OUTLET_PRINTED, nullptr, nullptr);
        BoardRun::TearDown();
    }

    /// Runs a part of a test for each endpoint, in threads that begin together.
    template <typename Part>
    static void run_all(Part part) {
        std::barrier start(kThreads);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                part(i);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
};

/// Whether the FRU table has the serial number, and nothing of another endpoint's.
bool says_serial(pldm_ctx& terminus, const std::string& serial) {
    uint32_t length = 0;
    if (pldm_get_FRU_record_table_metadata(&terminus, &length) != 0) {
        return false;
    }
    std::vector<uint8_t> table(length);
    return pldm_get_FRU_record_table(&terminus, table.data(), length) == 0 &&
           std::search(table.begin(), table.end(), serial.begin(), serial.end()) != table.end();
}

/// One round of questions. @return how many answers were wrong
int ask(pldm_ctx& terminus, size_t endpoint) {
    int wrong = pldm_get_tid(&terminus) != 0 || terminus.tid != endpoint + 1 ? 1 : 0;
    for (const uint16_t sensor : {1, 2}) {
        uint32_t reading = 0;
        const bool right = pldm_get_sensor_reading(&terminus, sensor, &reading) == 0 &&
                           reading == reading_of(endpoint, sensor);
        wrong += right ? 0 : 1;
    }
    return wrong + (says_serial(terminus, serial_of(endpoint)) ? 0 : 1);
}

TEST_F(BusThreads, SixteenOfThemPollSixteenEndpointsAndEachGetsItsOwnAnswers) {
    constexpr int kRounds = 50;
    std::array<int, kThreads> wrong{};
    run_all([&](size_t endpoint) {
        const mctp_ctx config = context_of(name_of(endpoint));
        pldm_ctx terminus{};
        wrong[endpoint] = pldm_terminus_init(&terminus, &config) != 0 ? 1 : 0;
        for (int round = 0; round < kRounds && wrong[endpoint] == 0; ++round) {
            wrong[endpoint] += ask(terminus, endpoint);
        }
        pldm_terminus_deinit(&terminus);
    });
    EXPECT_EQ(wrong, (std::array<int, kThreads>{}));
}

/// Two threads that ask one and the same endpoint, each over a context of its own.
TEST_F(BusThreads, SixteenOfThemPollOneEndpointWithDifferentQuestions) {
    constexpr int kRounds = 100;
    mctp_ctx config = context_of(name_of(0));
    ASSERT_EQ(mctp_init2(&config), 0);
    config.skip_discovery = 1;
    std::array<int, kThreads> wrong{};
    run_all([&](size_t thread) {
        mctp_ctx own = config;
        pldm_ctx terminus{};
        wrong[thread] = mctp_init2(&own) != 0 || mctp_pldm_register(&own, &terminus) != 0 ? 1 : 0;
        const uint16_t sensor = thread % 2 == 0 ? 1 : 2;
        for (int round = 0; round < kRounds; ++round) {
            uint32_t reading = 0;
            const bool right = pldm_get_sensor_reading(&terminus, sensor, &reading) == 0 &&
                               reading == reading_of(0, sensor);
            wrong[thread] += right ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, (std::array<int, kThreads>{}));
}

/// EIDs that the endpoints themselves say they have, asked from new contexts.
std::multiset<int> eids_of_all(const std::vector<mctp_ctx>& contexts) {
    std::multiset<int> eids;
    for (mctp_ctx context : contexts) {
        eids.insert(mctp_get_endpoint_id(&context));
    }
    return eids;
}

class EidThreads : public BusThreads, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(EidThreads, DiscoveringAtOnceGiveNoEidTwice) {
    std::vector<mctp_ctx> contexts;
    for (size_t i = 0; i < kThreads; ++i) {
        contexts.push_back(context_of(name_of(i)));
        contexts.back().strict = GetParam();
    }
    std::array<int32_t, kThreads> results{};
    run_all([&](size_t i) { results[i] = mctp_init2(&contexts[i]); });
    EXPECT_EQ(results, (std::array<int32_t, kThreads>{}));
    std::multiset<int> noted;
    for (const mctp_ctx& context : contexts) {
        noted.insert(context.dest_eid);
    }
    EXPECT_EQ(std::set<int>(noted.begin(), noted.end()).size(), kThreads);
    EXPECT_GT(*noted.begin(), 7);
    EXPECT_EQ(eids_of_all(contexts), noted) << "the endpoints have what the contexts say";
}

/// Over and over, so that many orders of events come about.
TEST_P(EidThreads, AssigningOverAndOverGiveNoEidTwice) {
    constexpr size_t kEach = 8;
    std::array<std::vector<int32_t>, kThreads> given;
    std::vector<mctp_ctx> contexts;
    for (size_t i = 0; i < kThreads; ++i) {
        contexts.push_back(context_of(name_of(i)));
        ASSERT_EQ(mctp_init2(&contexts.back()), 0);
    }
    at_p_St_GlobalVar->next_eid = 100;
    run_all([&](size_t i) {
        contexts[i].strict = GetParam();
        for (size_t round = 0; round < kEach; ++round) {
            given[i].push_back(mctp_assign_eid(&contexts[i]));
        }
    });
    std::multiset<int> last;
    std::set<int> all;
    for (const std::vector<int32_t>& eids : given) {
        last.insert(eids.back());
        all.insert(eids.begin(), eids.end());
    }
    EXPECT_EQ(std::set<int>(last.begin(), last.end()).size(), kThreads);
    EXPECT_EQ(eids_of_all(contexts), last) << "the last one that each was given";
    // With the pool's notes an endpoint gets its own again.
    EXPECT_EQ(all.size(), GetParam() == 0 ? kThreads * kEach : kThreads);
}

INSTANTIATE_TEST_SUITE_P(Contexts, EidThreads, ::testing::Values(0, MCTP_STRICT_ALL),
                         [](const auto& info) {
                             return info.param == 0 ? "AsDeployed" : "Strict";
                         });

}  // namespace

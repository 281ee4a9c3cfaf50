// SPDX-License-Identifier: Apache-2.0
// Updates of a device whose messages are cut, bent or made up: each ends and releases everything.
#include <gtest/gtest.h>

#include <random>

#include "pldm/update/nic_fixture.h"

namespace {

using test::Bytes;
using test::load;
using test::Texts;

class PldmNicHostile : public test::NicUpdateTest {
protected:
    void SetUp() override {
        tool::Package package = test::update_package(2);
        package.records[0].package_data = test::counting(70, 1);
        package.records[0].descriptors = {{0x0000, {3, 0x15}, {}}};
        write_file(tool::build_package(package));
        device.usual[0x02] = test::to_hex(test::parameters(test::known(2)));
        device.usual[0x10] = "00 05 10 00 04 00 01";
        device.usual[0x12] = "00 05 12 00 00 00 00 00 05 d0 d1 d2 d3";
        device.keeps_dialogue = false;
        device.wait = 1'000'000;
    }

    static Texts package_data() { return {"80 05 11 00 00 00 00 01", "81 05 11 01 00 00 00 00"}; }

    /// An update with what the test has set up; the terminus is bound again behind it.
    void run_update() {
        ctx.component_index = 0;
        device.messages = 0;
        const int32_t result = update().result;
        EXPECT_TRUE(result == 0 || result == -1 || result == -2) << result;
        EXPECT_LE(device.messages, 20000);
        EXPECT_EQ(sessions(), (Texts{"open", "close"}));
        test::port().trace.clear();
        ctx.pldm = {};
        bind();
    }

    void run_with_answer(uint8_t command, const Bytes& answer) {
        const std::string good = device.usual[command];
        device.usual[command] = test::to_hex(answer);
        const Texts data = package_data();
        device.asks.assign(data.begin(), data.end());
        device.loads = {load(), load()};
        run_update();
        device.usual[command] = good;
    }

    void run_with_requests(const Texts& in_front, const Texts& component) {
        device.asks.assign(in_front.begin(), in_front.end());
        device.loads = {component, load(), load()};
        run_update();
    }

    /// Calls with the message cut at each byte, then with each of its bits flipped.
    template <typename Call>
    static void for_each_bent(const Bytes& good, const Call& call) {
        for (size_t part = 0; part < good.size(); part++) {
            call(Bytes(good.begin(), good.begin() + static_cast<long>(part)));
        }
        for (size_t bit = 0; bit < good.size() * 8; bit++) {
            Bytes bent = good;
            bent[bit / 8] = static_cast<uint8_t>(bent[bit / 8] ^ (1u << (bit % 8)));
            call(bent);
        }
    }
};

TEST_F(PldmNicHostile, TheGoodMessagesMakeAnUpdate) {
    device.keeps_dialogue = true;
    const Texts data = package_data();
    device.asks.assign(data.begin(), data.end());
    device.loads = {load(), load()};
    EXPECT_EQ(update().result, 0);
    EXPECT_EQ(commands(), "01 02 10 12 13 13 14 14 1a");
    EXPECT_EQ(ctx.pldm.completion_code, 0);
}

class PldmNicHostileAnswer : public PldmNicHostile, public ::testing::WithParamInterface<int> {};

TEST_P(PldmNicHostileAnswer, CutAtEveryByteAndWithEachBitFlipped) {
    const auto command = static_cast<uint8_t>(GetParam());
    for_each_bent(test::hex(device.usual[command]),
                  [&](const Bytes& answer) { run_with_answer(command, answer); });
}

INSTANTIATE_TEST_SUITE_P(Commands, PldmNicHostileAnswer,
                         ::testing::Values(0x01, 0x02, 0x10, 0x12, 0x13, 0x14, 0x1A));

TEST_F(PldmNicHostile, RequestsOfTheDeviceCutAtEveryByteAndWithEachBitFlipped) {
    const Texts good = load();
    for (size_t i = 0; i < good.size(); i++) {
        for_each_bent(test::hex(good[i]), [&](const Bytes& request) {
            Texts bent = good;
            bent[i] = test::to_hex(request);
            run_with_requests(package_data(), bent);
        });
    }
}

TEST_F(PldmNicHostile, RequestsForPackageDataCutAtEveryByteAndWithEachBitFlipped) {
    const Texts good = package_data();
    for (size_t i = 0; i < good.size(); i++) {
        for_each_bent(test::hex(good[i]), [&](const Bytes& request) {
            Texts bent = good;
            bent[i] = test::to_hex(request);
            run_with_requests(bent, load());
        });
    }
}

TEST_F(PldmNicHostile, AComponentThatIsReportedInsteadOfPackageDataDoesNoHarm) {
    run_with_requests({"80 05 16 00", "81 05 17 00", "82 05 18 00 00 00"}, load());
    run_with_requests({"80 05 16 02"}, load());
    run_with_requests({test::piece(0, 32)}, load());
    run_with_requests({"80 05 16 00", "81 05 17 02"}, load());
}

TEST_F(PldmNicHostile, RequestsAndAnswersAtRandom) {
    std::mt19937 random(6);
    const Texts requests{"80 05 11 00 00 00 00 01",
                         "81 05 11 01 00 00 00 00",
                         test::piece(0, 32),
                         test::piece(32, 64),
                         "80 05 16 00",
                         "80 05 16 09",
                         "80 05 17 00",
                         "80 05 17 01",
                         "80 05 18 00 00 00",
                         "80 05 18 05 00 00",
                         "80 05 12",
                         ""};
    for (int round = 0; round < 200; round++) {
        device.answers.clear();
        for (const int command : {0x10, 0x13, 0x14, 0x1C, 0x1D}) {
            const auto code = static_cast<uint8_t>(command);
            for (int i = 0; i < 3; i++) {
                Bytes answer = test::hex(device.usual[code]);
                answer[3] = static_cast<uint8_t>(random() % 3 == 0 ? 0x80 + random() % 16 : 0);
                device.answers[code].push_back(test::to_hex(answer));
            }
        }
        device.loads.clear();
        device.asks.clear();
        int left = static_cast<int>(random() % 40);
        device.asks_always = [&] {
            return left-- > 0 ? requests[random() % requests.size()] : std::string();
        };
        run_update();
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// A firmware device that answers and asks at random: nothing is read outside, lost or left open.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>

#include "pldm/update/agent_fixture.h"

namespace {

using test::Bytes;
using test::kComponent;
using test::MctpAnswer;

/// One of the agent's requests and an answer that it takes.
struct Command {
    const char* name;
    const char* good;
    int32_t (*call)(pldm_fw_update_ctx*);
};

const Command kCommands[] = {
    {"RequestUpdate", "00 05 10 00 34 12 01", pldm_request_firmware_update},
    {"GetDeviceMetaData", "00 05 12 00 00 00 00 00 05 a0 a1 a2 a3",
     [](pldm_fw_update_ctx* ctx) { return pldm_get_device_metadata(ctx, 4); }},
    {"UpdateComponent", "00 05 14 00 00 00 00 00 00 00 2c 01",
     [](pldm_fw_update_ctx* ctx) { return pldm_update_component_table(ctx, 0); }},
    {"GetMetaData", "00 05 19 00 01 02 03 04",
     [](pldm_fw_update_ctx* ctx) {
         const auto room = std::make_unique<uint8_t[]>(8);
         return pldm_get_meta_data(ctx, room.get(), 8);
     }},
    {"ActivateFirmware", "00 05 1a 00 2c 01", pldm_activate_firmware},
    {"GetStatus", "00 05 1b 00 03 02 01 0a 64 c8 81 02 03 04", pldm_get_status},
    {"CancelUpdateComponent", "00 05 1c 00", pldm_cancel_update_component},
    {"CancelUpdate", "00 05 1d 00 00 00 00 00 00 00 00 00 00", pldm_cancel_update},
};

class PldmFwHostileAnswer : public test::FwUpdateTest,
                            public ::testing::WithParamInterface<Command> {
protected:
    PldmFwHostileAnswer() {
        add_record(1, "22.41");
        set_components({kComponent});
    }

    /// The command when this is all that ever comes.
    int32_t offer(const MctpAnswer& answer) {
        endpoint.answers.assign(10, answer);
        ctx.component_index = 0;
        ctx.pldm.instance_id = 0;
        const size_t blocks = libc.live_blocks();
        const int32_t result = test::run([&] { return GetParam().call(&ctx); }).result;
        EXPECT_TRUE(result == 0 || result == -1 || result == -2) << result;
        EXPECT_EQ(libc.live_blocks(), blocks);
        EXPECT_LE(machine.size(), 1u);
        machine.clear();
        return result;
    }
};

TEST_P(PldmFwHostileAnswer, TheGoodOneIsTaken) {
    EXPECT_EQ(offer(MctpAnswer::of(test::hex(GetParam().good))), 0);
}

TEST_P(PldmFwHostileAnswer, CutAtEveryByte) {
    const Bytes good = test::hex(GetParam().good);
    for (size_t part = 0; part < good.size(); part++) {
        offer(MctpAnswer::of(Bytes(good.begin(), good.begin() + static_cast<long>(part))));
    }
}

TEST_P(PldmFwHostileAnswer, WithEachBitFlipped) {
    const Bytes good = test::hex(GetParam().good);
    for (size_t bit = 0; bit < good.size() * 8; bit++) {
        Bytes bent = good;
        bent[bit / 8] = static_cast<uint8_t>(bent[bit / 8] ^ (1u << (bit % 8)));
        offer(MctpAnswer::of(bent));
    }
}

TEST_P(PldmFwHostileAnswer, OfEveryCompletionCodeAndLengthsThatLie) {
    for (unsigned code = 0; code < 256; code++) {
        Bytes bent = test::hex(GetParam().good);
        bent[3] = static_cast<uint8_t>(code);
        offer(MctpAnswer::of(bent));
        offer({INT32_MAX, bent});
        offer({-1, bent});
        offer({INT32_MIN, bent});
    }
}

INSTANTIATE_TEST_SUITE_P(Commands, PldmFwHostileAnswer, ::testing::ValuesIn(kCommands),
                         [](const auto& tested) { return std::string(tested.param.name); });

class PldmFwHostileRequest : public test::FwUpdateTest {
protected:
    void SetUp() override {
        write_file(test::counting(300));
        ctx.package_file = path.c_str();
        ctx.fd_will_send_pkg_data = 1;
        add_record(1, "v", test::counting(90));
        set_components({kComponent});
    }

    /// Gives the request to the answer function of its command code, in a block of its own.
    void ask(const Bytes& request) {
        const auto exact = std::make_unique<uint8_t[]>(PLDM_FW_UPDATE_REQUEST_SIZE);
        std::memcpy(exact.get(), request.data(), PLDM_FW_UPDATE_REQUEST_SIZE);
        endpoint.calls.clear();
        endpoint.answers.clear();
        accept_sends();
        const size_t blocks = libc.live_blocks();
        const int32_t result = test::run([&] { return dispatch(exact.get()); }).result;
        EXPECT_TRUE(result == 0 || result == -1 || result == 1) << result;
        EXPECT_EQ(libc.live_blocks(), blocks);
        EXPECT_EQ(libc.open_descriptors(), 0u);
        EXPECT_EQ(libc.live_mappings(), 0u);
        ASSERT_FALSE(endpoint.calls.empty());
        const Bytes& answer = endpoint.calls.front().bytes;
        EXPECT_EQ(answer[0], request[0] & 0x1F);
        EXPECT_EQ(answer[2], request[2]);
        EXPECT_LE(answer.size(), 9 + ctx.max_transfer_size);
    }

    int32_t dispatch(const uint8_t* request) {
        switch (request[2]) {
            case 0x11:
                return pldm_get_package_data(&ctx, request);
            case 0x15:
                ctx.component_index = 0;
                return pldm_request_fw_data(&ctx, request);
            case 0x16:
                return pldm_transfer_complete(&ctx, request);
            case 0x17:
                return pldm_verify_complete(&ctx, request);
            default:
                return pldm_apply_complete(&ctx, request);
        }
    }
};

TEST_F(PldmFwHostileRequest, EachBitFlipped) {
    for (const char* good : {"80 05 11 00 00 00 00 01 00 00 00", "80 05 15 00 00 00 00 20 00 00 00",
                             "80 05 16 00 00 00 00 00 00 00 00", "80 05 17 00 00 00 00 00 00 00 00",
                             "80 05 18 00 00 00 00 00 00 00 00"}) {
        const Bytes request = test::hex(good);
        for (size_t bit = 0; bit < request.size() * 8; bit++) {
            Bytes bent = request;
            bent[bit / 8] = static_cast<uint8_t>(bent[bit / 8] ^ (1u << (bit % 8)));
            ask(bent);
        }
    }
}

TEST_F(PldmFwHostileRequest, AskedForEverAndOutOfOrder) {
    std::mt19937 random(5);
    constexpr uint8_t kCodes[] = {0x11, 0x15, 0x16, 0x17, 0x18};
    for (int i = 0; i < 500; i++) {
        Bytes request(PLDM_FW_UPDATE_REQUEST_SIZE);
        for (uint8_t& byte : request) {
            byte = static_cast<uint8_t>(random() % 4 == 0 ? random() : 0);
        }
        request[2] = kCodes[random() % std::size(kCodes)];
        if (random() % 2 == 0) {
            request[7] = static_cast<uint8_t>(random() % 80);
        }
        ask(request);
    }
}

}  // namespace

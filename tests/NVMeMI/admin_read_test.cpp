// SPDX-License-Identifier: Apache-2.0
// Admin commands that read data: Get Log Page, Identify, the vendor's commands, passed through or
// not.
#include <gtest/gtest.h>

#include <string>

#include "NVMeMI/admin_commands.h"

namespace {

using test::admin_response;
using test::AdminRoom;
using test::Bytes;
using test::completion;
using test::console;
using test::counting;
using test::Guarded;
using test::kMore;
using test::kUntouched;
using test::kWanted;
using test::Outcome;
using test::port;
using test::Texts;

/// A reading command with the length and the place of its data.
struct Reader {
    const char* name;
    int32_t (*read)(nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received);
    bool whole_area;      ///< the response may have 4096 bytes of data, whatever was asked for
    const char* printed;  ///< in front of the number of bytes that came
    bool prints_length;
    const char* lost = "";  ///< printed if nothing was exchanged
};

constexpr Reader kReaders[] = {
    {"LogPage",
     [](nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received) {
         return nvme_get_log_page(req, 1, length, 0, data, received);
     },
     true, "MORE=0\n", false},
    {"LogPagePassthrough",
     [](nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received) {
         return nvme_get_log_page(req, 1, length, 0xFF, data, received);
     },
     true, "MORE=0\n", false},
    {"Identify",
     [](nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received) {
         return nvme_identify(req, length, 0, data, received);
     },
     false, "M:0, read_len=", true},
    {"IdentifyPassthrough",
     [](nvme_admin_req* req, uint32_t length, uint8_t* data, uint32_t* received) {
         return nvme_identify(req, length, 0xFF, data, received);
     },
     false, "M:0, read_len=", true},
    {"PdInfo", nvme_get_pd_info, false, "", false},
    {"MrvlRead", nvme_mrvl_read_cmd, false, "", false, "fail to nvme_admin_cmd\n"},
};

void PrintTo(const Reader& reader, std::ostream* stream) {
    *stream << reader.name;
}

class NvmeRead : public test::NvmeTest, public testing::WithParamInterface<Reader> {
protected:
    /// Reads into room that has as many bytes as were asked for, unless another size is given.
    Outcome read(uint32_t length, const Bytes& came) {
        start_over();
        data = Guarded(length);
        received = kUntouched;
        answer({admin_response(came)});
        return test::run(
            [&] { return GetParam().read(&room.req, length, data.data(), &received); });
    }

    std::string printed(size_t came) const {
        std::string text = GetParam().printed;
        if (GetParam().prints_length) {
            text +=
                std::to_string(came) + "\n" + (came == 0 ? "no NVMe-MI payload received\n" : "");
        }
        return text;
    }

    AdminRoom room{&ctx};
    Guarded data{0};
    uint32_t received = kUntouched;
};

INSTANTIATE_TEST_SUITE_P(Every, NvmeRead, testing::ValuesIn(kReaders),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(NvmeRead, GivesTheDataThatWereAskedFor) {
    for (uint32_t length : {1u, 4u, 5u, 512u, 4095u, 4096u}) {
        SCOPED_TRACE(length);
        const Bytes page = counting(length, 0x11);
        const Outcome outcome = read(length, page);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, printed(length));
        EXPECT_EQ(received, length);
        EXPECT_EQ(data.head(length), page);
        EXPECT_TRUE(data.intact());
        ASSERT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(endpoint.calls[0].capacity,
                  GetParam().whole_area ? 4115 : static_cast<int32_t>(19 + length));
    }
}

TEST_P(NvmeRead, FewerDataThanAskedForAreTakenAsTheyCome) {
    for (size_t came : {size_t{0}, size_t{1}, size_t{17}, size_t{kWanted} - 1}) {
        SCOPED_TRACE(came);
        const Bytes page = counting(came, 0x11);
        const Outcome outcome = read(kWanted, page);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, printed(came));
        EXPECT_EQ(received, came);
        EXPECT_EQ(data.head(came), page);
        EXPECT_TRUE(data.untouched_from(came));
    }
}

TEST_P(NvmeRead, MoreDataThanAskedForAreNotStored) {
    if (!GetParam().whole_area) {
        // What there is no room for is a malformed response to the exchange.
        const Outcome outcome = read(kWanted, counting(kWanted + 1));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, GetParam().lost);
        EXPECT_EQ(received, kUntouched);
        EXPECT_TRUE(data.untouched_from(0));
        return;
    }
    const Outcome outcome = read(kWanted, counting(4096));
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, printed(4096));
    EXPECT_EQ(received, kWanted);
    EXPECT_EQ(data.head(kWanted), counting(kWanted));
    EXPECT_TRUE(data.intact());
}

TEST_P(NvmeRead, ALengthOf0IsACommandWithoutData) {
    room.req.dofst = 0;
    const Outcome outcome = read(0, {});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, printed(0));
    EXPECT_EQ(received, 0u);
    EXPECT_EQ(endpoint.calls.at(0).bytes[4], 0);
}

TEST_P(NvmeRead, MoreThan4096BytesAreRefusedUnsent) {
    for (uint32_t length : {4097u, 0x7FFFFFFFu, 0x80000000u, UINT32_MAX - 18, UINT32_MAX}) {
        SCOPED_TRACE(length);
        start_over();
        const Outcome outcome = test::run(
            [&] { return GetParam().read(&room.req, length, room.data.data(), &room.received); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, GetParam().lost);
        EXPECT_TRUE(endpoint.calls.empty());
        EXPECT_EQ(port().syslog,
                  Texts{"nvme admin, " + std::to_string(length) + " bytes of data are too many\n"});
    }
    EXPECT_TRUE(room.untouched());
}

TEST_P(NvmeRead, DoesWithoutACountAndWithoutRoom) {
    answer({admin_response(counting(kWanted)), admin_response(counting(kWanted))});
    EXPECT_EQ(test::run([&] {
                  return GetParam().read(&room.req, kWanted, room.data.data(), nullptr);
              }).result,
              0);
    EXPECT_EQ(room.data.head(kWanted), counting(kWanted));
    EXPECT_EQ(
        test::run([&] { return GetParam().read(&room.req, kWanted, nullptr, nullptr); }).result, 0);
}

TEST_P(NvmeRead, WithoutRoomCountsWhatRoomWouldHaveReceived) {
    for (uint32_t length : {0u, 1u, kWanted - 1, kWanted}) {
        answer({admin_response(counting(length))});
        uint32_t received = kUntouched;
        EXPECT_EQ(test::run([&] {
                      return GetParam().read(&room.req, kWanted, nullptr, &received);
                  }).result,
                  0);
        EXPECT_EQ(received, length);
    }
}

TEST_P(NvmeRead, TheLengthOfTheRecordDoesNotCount) {
    room.req.dlen = 0xFFFFFFFF;
    EXPECT_EQ(read(kWanted, counting(kWanted)).result, 0);
    const Bytes& request = endpoint.calls.at(0).bytes;
    EXPECT_EQ(Bytes(request.begin() + 31, request.begin() + 35), test::hex("50 00 00 00"));
}

TEST_P(NvmeRead, ACommandErrorStoresNothing) {
    start_over();
    answer({admin_response(counting(kWanted), completion(2, 1))});
    EXPECT_EQ(test::run([&] {
                  return GetParam().read(&room.req, kWanted, room.data.data(), &room.received);
              }).result,
              static_cast<int32_t>(completion(2, 1)));
    EXPECT_TRUE(room.untouched());
}

// ---- What single commands print ----

class NvmeReadTexts : public test::NvmeTest {
protected:
    AdminRoom room{&ctx};
};

TEST_F(NvmeReadTexts, TheMoreBitOfTheCompletionIsPrinted) {
    answer({admin_response(counting(8), kMore), admin_response(counting(8), kMore)});
    Outcome outcome =
        test::run([&] { return nvme_get_log_page(&room.req, 0, 8, 0, room.data.data(), nullptr); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "MORE=1\n");
    outcome = test::run([&] { return nvme_identify(&room.req, 8, 0, room.data.data(), nullptr); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "M:1, read_len=8\n");
}

TEST_F(NvmeReadTexts, IdentifyTellsItsWayBeforeItIsSent) {
    Texts during;
    endpoint.on_call = [&] { during = console(); };
    nvme_identify(&room.req, 4096, 0, nullptr, nullptr);
    EXPECT_EQ(during, Texts{"[NVMeMI/nvme] Doing Direct NVMe-MI\n"});
    port().console.clear();
    nvme_identify(&room.req, 4096, 1, nullptr, nullptr);
    EXPECT_EQ(during, Texts{"[NVMeMI/nvme] Doing Marvell passthrough: DW9=4096\n"});
}

TEST_F(NvmeReadTexts, AnEndpointsRefusalIsNoFailedExchange) {
    answer({test::status_response(0x20, Bytes(3), 0x90)});
    const Outcome outcome = test::run(
        [&] { return nvme_mrvl_read_cmd(&room.req, kWanted, room.data.data(), nullptr); });
    EXPECT_EQ(outcome.result, 0x20);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(port().console, Texts{"Response unsuccess (20h)\n"});
}

TEST_F(NvmeReadTexts, TheVendorsReadReportsACommandErrorOnBothOutlets) {
    answer({admin_response({}, completion(0x81, 7))});
    const Outcome outcome = test::run(
        [&] { return nvme_mrvl_read_cmd(&room.req, kWanted, room.data.data(), nullptr); });
    EXPECT_EQ(outcome.result, static_cast<int32_t>(completion(0x81, 7)));
    EXPECT_EQ(outcome.out, "Command error (SCT:0x7, SC:0x81)\n");
    EXPECT_EQ(port().console, Texts{"Command error (SCT:0x7, SC:0x81)\n"});
}

}  // namespace

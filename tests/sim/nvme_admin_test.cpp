// SPDX-License-Identifier: Apache-2.0
// The NVMe drive's admin tunnel: identify, log pages, features, firmware, namespaces, format,
// sanitize, lockdown, a vendor's passthrough (NVMe-MI, NVM Express Admin command set).
#include "nvme_test.h"

namespace {

using sim::Bytes;
using sim::ByteView;

class NvmeAdmin : public sim_test::NvmeTest {
protected:
    Bytes identify(uint32_t structure, uint32_t id = 0, uint16_t controller = 0) {
        return read_by({.opcode = 0x06,
                        .id = id,
                        .dword10 = structure,
                        .length = 4096,
                        .controller = controller});
    }
    Bytes log(uint8_t page, uint32_t size, uint32_t offset = 0) {
        return read_by({.opcode = 0x02,
                        .id = 0xFFFFFFFF,
                        .dword10 = (size / 4 - 1) << 16 | page,
                        .length = size,
                        .dword12 = offset});
    }
    std::string revision() { return text(identify(1), 64, 8); }

    static std::vector<uint32_t> list(const Bytes& data) {
        std::vector<uint32_t> ids;
        for (size_t at = 0; at < data.size() && sim::le32(data, at) != 0; at += 4) {
            ids.push_back(sim::le32(data, at));
        }
        return ids;
    }
};

// ---- Requests
// ------------------------------------------------------------------------------------

using NvmeTunnel = NvmeAdmin;

TEST_F(NvmeTunnel, RecordedRequestsAreAnswered) {
    open_drive();
    // Identify Controller, as an independent tool puts it.
    send_message(
        bytes("84 100000 06 01 0000 0000000000000000000000000000000000000000 00000000"
              "00100000 0000000000000000 01000000 0000000000000000000000000000000000000000"
              "d974b569"));
    const std::vector<uint8_t> answer = bytes(checked(receive_message()));
    ASSERT_EQ(answer.size(), 19 + 4096u);
    EXPECT_EQ(text(answer, 19 + 4, 20), "SIM0000000001       ");
    EXPECT_EQ(drive->bad_checks() + drive->malformed(), 0u);
}

TEST_F(NvmeTunnel, ShortRequestsAreAnsweredOrDropped) {
    open_drive();
    const Bytes body = encode({.opcode = 0x06, .dword10 = 1, .length = 16});
    ASSERT_EQ(body.size(), 67u);
    for (size_t length = 0; length < body.size(); ++length) {
        EXPECT_EQ(ask(Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(length))),
                  length < 4 ? sim_test::kSilence : "90 00 00 05 00 00 00")
            << length;
    }
}

TEST_F(NvmeTunnel, EveryByteOfARequestMayBeAnything) {
    open_drive();
    for (const uint8_t opcode : bytes("02 06 09 0a 0d 10 11 15 24 80 84 c2")) {
        for (size_t at = 4; at < 67; ++at) {
            for (const uint8_t value : bytes("01 7f 80 ff")) {
                Bytes body = encode({.opcode = opcode, .id = 1, .dword10 = 1, .length = 8});
                body[at] = value;
                const std::string answer = ask(body);
                ASSERT_TRUE(answer.starts_with("90 00 00 0")) << answer;
            }
        }
    }
}

TEST_F(NvmeTunnel, InvalidParametersAreLocated) {
    open_drive();
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .controller = 1}), "04 00 06 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .offset = 2}), "04 00 1c 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 6}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4100}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 8, .offset = 4092}), "04 00 20 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .length = 4, .offset = 4100}), "04 00 1c 00");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1, .data = Bytes(4)}), "06 00 00 00")
        << "takes no data";
    Bytes body = encode({.opcode = 0x11, .data = Bytes(8)});
    body.pop_back();
    EXPECT_EQ(ask(body), "90 00 00 06 00 00 00") << "less data than announced";
    EXPECT_EQ(admin({.opcode = 0xFF}), failed(0, 0x01));
    EXPECT_EQ(admin({.opcode = 0x00}), failed(0, 0x01));
}

TEST_F(NvmeTunnel, PartsOfWhatIsRead) {
    open_drive(R"("serial": "ABCDEFGH")");
    const Bytes part = read_by({.opcode = 0x06, .dword10 = 1, .length = 20, .offset = 4});
    EXPECT_EQ(text(part, 0, 20), "ABCDEFGH            ");
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 1}), ended(0)) << "nothing asked for";
}

// ---- Identify
// ------------------------------------------------------------------------------------

using NvmeIdentify = NvmeAdmin;

TEST_F(NvmeIdentify, Controller) {
    open_drive(R"("model": "Model X", "serial": "S1", "vendor_id": "0x1122",
        "subsystem_vendor_id": "0x3344", "ieee": "a1b2c3", "capacity": 1048576,
        "controllers": [{"id": 5}, {"id": 6}], "namespaces": [{"id": 2, "blocks": 1024}],
        "warning_temperature": 71, "critical_temperature": 81,
        "firmware": {"slots": ["1.25", "1.26", ""], "first_read_only": true})");
    const Bytes data = identify(1, 0, 6);
    ASSERT_EQ(data.size(), 4096u);
    EXPECT_EQ(hex({data.begin(), data.begin() + 4}), "22 11 44 33");
    EXPECT_EQ(text(data, 4, 20), "S1                  ");
    EXPECT_EQ(text(data, 24, 40), "Model X                                 ");
    EXPECT_EQ(text(data, 64, 8), "1.25    ");
    EXPECT_EQ(hex({data.begin() + 73, data.begin() + 84}), "c3 b2 a1 02 00 06 00 00 00 02 00");
    EXPECT_EQ(hex({data.begin() + 253, data.begin() + 263}), "01 00 03 0e 04 00 00 17 05 3f");
    EXPECT_EQ(sim::le16(data, 266), 344);
    EXPECT_EQ(sim::le16(data, 268), 354);
    EXPECT_EQ(sim::le64(data, 280), 1048576u);
    EXPECT_EQ(sim::le64(data, 296), 524288u);
    EXPECT_EQ(sim::le32(data, 328), 7u);
    EXPECT_EQ(sim::le32(data, 516), 16u);
    EXPECT_EQ(text(data, 768, 34), "nqn.2014-08.org.nvmexpress:sim:S1" + std::string(1, '\0'));
}

TEST_F(NvmeIdentify, Namespaces) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}], "ieee": "a1b2c3", "namespaces": [
        {"id": 1, "blocks": 1000, "used": 7},
        {"id": 3, "blocks": 500, "format": 1, "controllers": [1]},
        {"id": 4, "blocks": 2, "controllers": []}])");
    const Bytes first = identify(0, 1);
    EXPECT_EQ(sim::le64(first, 0), 1000u);
    EXPECT_EQ(sim::le64(first, 8), 1000u);
    EXPECT_EQ(sim::le64(first, 16), 7u);
    EXPECT_EQ(hex({first.begin() + 25, first.begin() + 31}), "01 00 00 00 00 01");
    EXPECT_EQ(sim::le64(first, 48), 512000u);
    EXPECT_EQ(hex({first.begin() + 128, first.begin() + 140}),
              "00 00 09 00 00 00 0c 00 00 00 00 00");
    EXPECT_EQ(sim::le64(identify(0, 3), 0), 0u) << "not attached to this controller";
    EXPECT_EQ(sim::le64(identify(0, 3, 1), 48), 500 * 4096u);
    EXPECT_EQ(sim::le64(identify(0x11, 4), 0), 2u) << "it need not be attached";
    EXPECT_EQ(identify(0, 2), Bytes(4096)) << "there is none";
    EXPECT_EQ(identify(0, 0xFFFFFFFF)[130], 9) << "what all have in common";
    EXPECT_EQ(admin({.opcode = 0x06, .id = 17, .length = 4096}), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 0, .length = 4096}), failed(0, 0x0B));
    const Bytes names = identify(3, 1);
    EXPECT_EQ(hex({names.begin(), names.begin() + 7}), "01 08 00 00 a1 b2 c3");
    EXPECT_EQ(Bytes(names.begin() + 4, names.begin() + 12),
              Bytes(first.begin() + 120, first.begin() + 128));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 2, .dword10 = 3, .length = 4096}), failed(0, 0x02));
}

TEST_F(NvmeIdentify, Lists) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}, {"id": 258}], "namespaces": [
        {"id": 1, "blocks": 1000}, {"id": 3, "blocks": 500, "controllers": [1]}])");
    using Ids = std::vector<uint32_t>;
    EXPECT_EQ(list(identify(2)), Ids{1});
    EXPECT_EQ(list(identify(2, 0, 1)), (Ids{1, 3}));
    EXPECT_EQ(list(identify(2, 1, 1)), Ids{3}) << "above 1";
    EXPECT_EQ(list(identify(0x10)), (Ids{1, 3}));
    EXPECT_EQ(admin({.opcode = 0x06, .id = 0xFFFFFFFE, .dword10 = 2, .length = 4096}),
              failed(0, 0x0B));
    auto head = [](const Bytes& data) { return hex({data.begin(), data.begin() + 8}); };
    EXPECT_EQ(head(identify(0x13)), "03 00 00 00 01 00 02 01");
    EXPECT_EQ(head(identify(0x00010013)), "02 00 01 00 02 01 00 00") << "from 1 on";
    EXPECT_EQ(head(identify(0x12, 3)), "01 00 01 00 00 00 00 00");
    EXPECT_EQ(head(identify(0x12, 2)), "00 00 00 00 00 00 00 00");
    EXPECT_EQ(admin({.opcode = 0x06, .id = 99, .dword10 = 0x12, .length = 8}), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x06, .dword10 = 0x15, .length = 4096}), failed(0, 0x02));
}

// ---- Log pages
// -----------------------------------------------------------------------------------

using NvmeLogs = NvmeAdmin;

TEST_F(NvmeLogs, Smart) {
    open_drive(R"("temperature": {"shape": "constant", "value": 71.9}, "smart": {
        "critical_warning": 4, "available_spare": 9, "spare_threshold": 10, "percentage_used": 3,
        "data_units_read": 4294967296, "data_units_written": 2, "host_reads": 3, "host_writes": 4,
        "busy_minutes": 5, "power_cycles": 6, "power_on_hours": 7, "unsafe_shutdowns": 8,
        "media_errors": 9})");
    admin({.opcode = 0xFF});
    const Bytes page = log(0x02, 512);
    EXPECT_EQ(hex({page.begin(), page.begin() + 6}), "07 58 01 09 0a 03");
    EXPECT_EQ(sim::le64(page, 32), 4294967296u);
    for (uint64_t i = 2; i <= 9; ++i) {
        EXPECT_EQ(sim::le64(page, 16 + 16 * i), i);
    }
    EXPECT_EQ(sim::le64(page, 176), 1u) << "entries of the error log";
    EXPECT_EQ(sim::le16(page, 200), 344) << "sensor 1";
    EXPECT_EQ(log(0x02, 32, 192).size(), 32u);
    EXPECT_EQ(log(0x02, 1024).size(), 1024u) << "zeros behind its end";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(log(0x02, 512)[112], 7) << "power cycles";
}

TEST_F(NvmeLogs, Errors) {
    open_drive();
    EXPECT_EQ(log(0x01, 64), Bytes(64));
    admin({.opcode = 0x06, .id = 5, .dword10 = 0x77});
    admin({.opcode = 0x10, .dword10 = 7});
    const Bytes page = log(0x01, 192);
    EXPECT_EQ(sim::le64(page, 0), 2u);
    EXPECT_EQ(sim::le16(page, 12), 0x0106 << 1);
    EXPECT_EQ(sim::le16(page, 14), 0xFFFF);
    EXPECT_EQ(sim::le64(page, 64), 1u);
    EXPECT_EQ(sim::le16(page, 76), 0x0002 << 1);
    EXPECT_EQ(sim::le16(page, 78), 40);
    EXPECT_EQ(sim::le32(page, 88), 5u);
    EXPECT_EQ(sim::le64(page, 128), 0u);
    for (int i = 0; i < 100; ++i) {
        admin({.opcode = 0xFF});
    }
    EXPECT_EQ(sim::le64(log(0x01, 4096), 0), 102u);
    EXPECT_EQ(sim::le64(log(0x01, 64, 4032), 0), 39u) << "64 are kept";
}

TEST_F(NvmeLogs, FarBehindTheEndThereAreZeros) {
    open_drive();
    EXPECT_EQ(read_by({.opcode = 0x02,
                       .dword10 = 0xFFFF0002,
                       .length = 8,
                       .dword11 = 0xFFFF,
                       .offset = 0xFFFFFFFC}),
              Bytes(8));
}

TEST_F(NvmeLogs, WrongRequests) {
    open_drive();
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0077, .length = 64}), failed(1, 0x09));
    EXPECT_EQ(admin({.opcode = 0x02, .id = 99, .dword10 = 0x000F0002, .length = 64}),
              failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 64, .dword12 = 2}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 64, .dword12 = 516}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x02, .dword10 = 0x000F0002, .length = 68}), "04 00 20 00")
        << "more than the number of dwords";
}

// ---- Features
// ------------------------------------------------------------------------------------

using NvmeFeatures = NvmeAdmin;

TEST_F(NvmeFeatures, CurrentDefaultAndSaved) {
    open_drive(R"("features": [{"id": 4, "value": 343}, {"id": 7, "value": 9, "changeable": false},
        {"id": 8, "saveable": false}])");
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x304}), ended(0, 5)) << "what can be done to it";
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x307}), ended(0, 0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x308}), ended(0, 4));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04, .dword11 = 350}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x004}), ended(0, 350));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x104}), ended(0, 343));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x204}), ended(0, 343)) << "nothing saved";
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x80000004, .dword11 = 360}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04, .dword11 = 1}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x204}), ended(0, 360));
    manage(0x07);
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x004}), ended(0, 360)) << "after a reset";
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x07, .dword11 = 1}), failed(1, 0x0E));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x80000008}), failed(1, 0x0D));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x404}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x005}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x005}), failed(0, 0x02));
    EXPECT_EQ(drive->feature(4)->current.value, 360u);
    EXPECT_EQ(drive->feature(5), nullptr);
}

TEST_F(NvmeFeatures, Data) {
    open_drive(R"("features": [{"id": 14, "data": "0102030405060708"}])");
    EXPECT_EQ(hex(read_by({.opcode = 0x0A, .dword10 = 14, .length = 8})),
              "01 02 03 04 05 06 07 08");
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 14, .data = bytes("1111111122222222")}), ended(0));
    EXPECT_EQ(hex(read_by({.opcode = 0x0A, .dword10 = 14, .length = 4, .offset = 4})),
              "22 22 22 22");
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 14, .data = Bytes(4)}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 14, .length = 12}), "04 00 20 00");
}

TEST_F(NvmeFeatures, UsualOnesAreThere) {
    open_drive();
    for (const uint32_t id : {0x01, 0x02, 0x04, 0x05, 0x06, 0x07, 0x0B, 0x0E, 0x81}) {
        EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = id}).substr(0, 2), "00") << id;
    }
}

// ---- Firmware
// ------------------------------------------------------------------------------------

class NvmeUpdate : public NvmeAdmin {
protected:
    static Bytes image(const std::string& revision, size_t size) {
        const std::string head = "SIMDRIVE" + revision + std::string(8 - revision.size(), ' ');
        Bytes out(head.begin(), head.end());
        for (uint32_t state = 1; out.size() < size; state = state * 1664525 + 1013904223) {
            out.push_back(static_cast<uint8_t>(state >> 24));
        }
        return out;
    }
    std::string download(const Bytes& image, size_t from, size_t size) {
        const ByteView piece = ByteView(image).subspan(from, size);
        return admin({.opcode = 0x11,
                      .dword10 = static_cast<uint32_t>(size / 4 - 1),
                      .dword11 = static_cast<uint32_t>(from / 4),
                      .data = Bytes(piece.begin(), piece.end())});
    }
    void download(const Bytes& image) {
        for (size_t at = 0; at < image.size(); at += 4096) {
            ASSERT_EQ(download(image, at, std::min<size_t>(4096, image.size() - at)), ended(0));
        }
    }
    std::string commit(uint32_t slot, uint32_t action) {
        return admin({.opcode = 0x10, .dword10 = action << 3 | slot});
    }
    /// Active and next slot, and the revisions.
    std::string slots() {
        const Bytes page = log(0x03, 512);
        return hex({page[0]}) + " " + text(page, 8, 24);
    }
};

TEST_F(NvmeUpdate, TakesEffectAfterAReset) {
    open_drive();
    const Bytes whole = image("2.0", 200'004);
    download(whole);
    EXPECT_TRUE(std::ranges::equal(drive->firmware().downloaded(), whole));
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, whole) << "byte for byte";
    EXPECT_EQ(slots(), "21 1.0     2.0     " + std::string(8, '\0'));
    EXPECT_EQ(revision(), "1.0     ");
    manage(0x07);
    EXPECT_EQ(revision(), "2.0     ");
    EXPECT_EQ(slots(), "02 1.0     2.0     " + std::string(8, '\0'));
    EXPECT_EQ(manage(0x01).substr(24, 5), "91 01") << "firmware activated";
    EXPECT_EQ(drive->firmware().next(), 0);
}

TEST_F(NvmeUpdate, ActivatesWhatIsThere) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1", ""], "active": 2})");
    EXPECT_EQ(revision(), "1.1     ");
    EXPECT_EQ(commit(1, 2), ended(0));
    EXPECT_EQ(slots().substr(0, 2), "12");
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(revision(), "1.0     ");
    EXPECT_EQ(commit(2, 3), ended(0)) << "at once";
    EXPECT_EQ(revision(), "1.1     ");
    EXPECT_EQ(commit(3, 2), failed(1, 0x07)) << "an empty slot";
    EXPECT_EQ(commit(3, 3), failed(1, 0x07));
}

TEST_F(NvmeUpdate, ReplacingTheActiveSlotLeavesWhatRuns) {
    open_drive(R"("firmware": {"slots": ["1.0"]})");
    download(image("2.0", 64));
    EXPECT_EQ(commit(0, 0), ended(0));
    EXPECT_EQ(revision(), "1.0     ");
    EXPECT_EQ(slots(), "01 2.0     " + std::string(16, '\0'));
    manage(0x07);
    EXPECT_EQ(revision(), "2.0     ");
}

TEST_F(NvmeUpdate, SlotZeroIsTheDrivesChoice) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1", ""], "active": 2})");
    download(image("3.0", 64));
    EXPECT_EQ(commit(0, 3), ended(0));
    EXPECT_EQ(slots(), "01 3.0     1.1     " + std::string(8, '\0'));
    EXPECT_EQ(revision(), "3.0     ");
}

TEST_F(NvmeUpdate, WrongSlotsAndActions) {
    open_drive(R"("firmware": {"slots": ["1.0", "1.1"], "first_read_only": true,
        "immediate": false})");
    EXPECT_EQ(identify(1)[260], 0x05);
    download(image("2.0", 64));
    EXPECT_EQ(commit(3, 1), failed(1, 0x06));
    EXPECT_EQ(commit(7, 2), failed(1, 0x06));
    EXPECT_EQ(commit(1, 1), failed(1, 0x06)) << "read-only";
    EXPECT_EQ(commit(2, 3), failed(0, 0x02)) << "only by a reset";
    for (uint32_t action = 4; action < 8; ++action) {
        EXPECT_EQ(commit(2, action), failed(0, 0x02));
    }
    EXPECT_EQ(commit(0, 1), ended(0)) << "the image is still there";
    EXPECT_EQ(drive->firmware().next(), 2);
}

TEST_F(NvmeUpdate, WrongImages) {
    open_drive();
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "none";
    for (size_t at = 0; at < 8; ++at) {
        Bytes bad = image("2.0", 64);
        bad[at] ^= 1;
        download(bad);
        EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << at;
    }
    download(image("", 64));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "no revision";
    download(image("\n", 64));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07));
    download(image("2.0", 64));
    drive->firmware().expect(sim::ExpectedImage(image("2.0", 68)));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "shorter than expected";
    download(image("2.0", 72));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "longer";
    Bytes other = image("2.0", 68);
    other.back() ^= 1;
    download(other);
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "another byte";
    drive->firmware().expect(sim::ExpectedImage(image("2.0", 65)));
    download(image("2.0", 68));
    EXPECT_EQ(commit(2, 1), ended(0)) << "padding behind it";
    EXPECT_EQ(drive->firmware().slot(1)->revision, "1.0");
}

TEST_F(NvmeUpdate, PiecesInAnyOrder) {
    open_drive();
    const Bytes whole = image("2.0", 64);
    EXPECT_EQ(download(whole, 48, 16), ended(0));
    EXPECT_EQ(download(whole, 0, 16), ended(0));
    EXPECT_EQ(commit(2, 1), failed(1, 0x07)) << "a hole";
    for (const size_t at : {48, 16, 0, 32, 32, 0}) {
        EXPECT_EQ(download(whole, at, 16), ended(0)) << "repetitions do not matter";
    }
    EXPECT_EQ(download(image("3.0", 64), 16, 16), ended(0)) << "nor does the same";
    Bytes other = whole;
    other[40] ^= 1;
    EXPECT_EQ(download(other, 32, 16), failed(1, 0x14)) << "another piece in its place";
    EXPECT_EQ(download(other, 56, 4), ended(0));
    other.resize(128);
    EXPECT_EQ(download(other, 56, 16), failed(1, 0x14)) << "partly";
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, whole);
}

TEST_F(NvmeUpdate, AnotherFirstPieceBeginsAnew) {
    open_drive();
    download(image("2.0", 12288));
    download(image("3.0", 8192));
    EXPECT_EQ(commit(2, 1), ended(0));
    EXPECT_EQ(drive->firmware().slot(2)->image, image("3.0", 8192));
}

TEST_F(NvmeUpdate, SizesAreChecked) {
    open_drive();
    const Bytes data(16);
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 4, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 2, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 0xFFFFFFFF, .data = data}), failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11, .dword10 = 3, .dword11 = 0xFFFFFFFF, .data = data}),
              failed(0, 0x02));
    EXPECT_EQ(admin({.opcode = 0x11}), failed(0, 0x02)) << "no data";
}

// ---- Namespaces and format
// -----------------------------------------------------------------------

class NvmeSpaces : public NvmeAdmin {
protected:
    static Bytes properties(uint64_t blocks, uint8_t format) {
        Bytes data(4096);
        sim::put_le(data, 0, blocks, 8);
        sim::put_le(data, 8, blocks, 8);
        data[26] = format;
        return data;
    }
    std::string create(const Bytes& data) { return admin({.opcode = 0x0D, .data = data}); }
    std::string remove(uint32_t id) { return admin({.opcode = 0x0D, .id = id, .dword10 = 1}); }
    std::string attach(uint32_t id, uint32_t select, const std::string& list = "") {
        Bytes data = bytes(list);
        data.resize(list.empty() ? 0 : 4096);
        return admin({.opcode = 0x15, .id = id, .dword10 = select, .data = data});
    }
};

TEST_F(NvmeSpaces, CreateAttachDetachDelete) {
    open_drive(R"("capacity": 1048576, "most_namespaces": 3,
        "namespaces": [{"id": 2, "blocks": 1024}])");
    EXPECT_EQ(create(properties(64, 1)), ended(0, 1));
    EXPECT_EQ(list(identify(2)), std::vector<uint32_t>{2}) << "not attached yet";
    EXPECT_EQ(manage(0x01, 0, 0x80000000).substr(24, 2), "01");
    EXPECT_EQ(attach(1, 0), ended(0)) << "without a list: to this controller";
    EXPECT_EQ(manage(0x01).substr(24, 5), "40 01") << "namespace attribute changed";
    EXPECT_EQ(list(identify(2)), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(sim::le64(identify(0, 1), 48), 262144u);
    EXPECT_EQ(sim::le64(identify(1), 296), 262144u) << "left";
    EXPECT_EQ(attach(1, 0), failed(1, 0x18));
    EXPECT_EQ(create(properties(513, 0)), failed(1, 0x15));
    EXPECT_EQ(create(properties(512, 0)), ended(0, 3));
    EXPECT_EQ(drive->namespaces().unallocated(), 0u);
    EXPECT_EQ(attach(1, 1), ended(0));
    EXPECT_EQ(attach(1, 1), failed(1, 0x1A));
    EXPECT_EQ(remove(1), ended(0));
    EXPECT_EQ(remove(1), failed(0, 0x02));
    EXPECT_EQ(remove(4), failed(0, 0x0B));
    EXPECT_EQ(create(properties(1, 0)), ended(0, 1));
    EXPECT_EQ(create(properties(1, 0)), failed(1, 0x16)) << "three at most";
    EXPECT_EQ(remove(0xFFFFFFFF), ended(0));
    EXPECT_TRUE(drive->namespaces().all().empty());
    EXPECT_EQ(admin({.opcode = 0x0D, .dword10 = 2}), failed(0, 0x02));
}

TEST_F(NvmeSpaces, ControllerLists) {
    open_drive(R"("controllers": [{"id": 0}, {"id": 1}],
        "namespaces": [{"id": 1, "blocks": 8, "controllers": []}])");
    EXPECT_EQ(attach(1, 0, "0200 0000 0100"), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->controllers, (std::set<uint16_t>{0, 1}));
    EXPECT_EQ(attach(1, 1, "0100 0100"), ended(0));
    EXPECT_EQ(attach(1, 1, "0200 0000 0100"), failed(1, 0x1A)) << "one of them is not attached";
    EXPECT_EQ(drive->namespaces().find(1)->controllers, std::set<uint16_t>{0});
    EXPECT_EQ(attach(1, 0, "0100 0200"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 0, "0000"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 0, "0008 0100"), failed(1, 0x1C));
    EXPECT_EQ(attach(1, 2, "0100 0100"), failed(0, 0x02));
    EXPECT_EQ(attach(2, 0, "0100 0100"), failed(0, 0x02));
    EXPECT_EQ(attach(0, 0, "0100 0100"), failed(0, 0x0B));
    EXPECT_EQ(admin({.opcode = 0x15, .id = 1, .data = Bytes(8)}), failed(0, 0x02));
}

TEST_F(NvmeSpaces, WrongProperties) {
    open_drive(R"("namespaces": [])");
    EXPECT_EQ(create(properties(0, 0)), failed(0, 0x02));
    EXPECT_EQ(create(properties(8, 2)), failed(1, 0x0A));
    EXPECT_EQ(create(properties(~0ull, 1)), failed(1, 0x15));
    Bytes thin = properties(8, 0);
    thin[8] = 7;
    EXPECT_EQ(create(thin), failed(0, 0x02));
    EXPECT_EQ(create(Bytes(64)), failed(0, 0x02));
    Bytes body = encode({.opcode = 0x0D, .data = properties(8, 0)});
    body[4] = 0;
    EXPECT_EQ(ask(body).substr(9, 23), "00 00 00 00 01 00 00 00") << "length not marked valid";
}

TEST_F(NvmeSpaces, Format) {
    open_drive(R"("namespaces": [{"id": 1, "blocks": 80, "used": 5},
        {"id": 2, "blocks": 80, "used": 6}])");
    auto format = [this](uint32_t id, uint32_t settings) {
        return admin({.opcode = 0x80, .id = id, .dword10 = settings});
    };
    EXPECT_EQ(format(1, 0x201), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->blocks, 10u);
    EXPECT_EQ(drive->namespaces().find(1)->used, 0u);
    EXPECT_EQ(drive->namespaces().find(2)->used, 6u);
    EXPECT_EQ(identify(0, 1)[26], 1);
    EXPECT_EQ(format(1, 2), failed(1, 0x0A));
    EXPECT_EQ(format(1, 0x20), failed(1, 0x0A)) << "protection information";
    EXPECT_EQ(format(1, 0x600), failed(0, 0x02)) << "secure erase";
    EXPECT_EQ(format(3, 0), failed(0, 0x02));
    EXPECT_EQ(format(0, 0), failed(0, 0x0B));
    EXPECT_EQ(format(0xFFFFFFFF, 0), ended(0));
    EXPECT_EQ(drive->namespaces().find(1)->blocks, 80u);
    EXPECT_EQ(drive->namespaces().find(2)->used, 0u);
}

// ---- Sanitize and lockdown
// -----------------------------------------------------------------------

class NvmeSanitize : public NvmeAdmin {
protected:
    std::string sanitize(uint32_t dword10) { return admin({.opcode = 0x84, .dword10 = dword10}); }
    /// Progress, status and command of the log page.
    std::string status() {
        const Bytes page = log(0x81, 512);
        return hex({page.begin(), page.begin() + 8});
    }
};

TEST_F(NvmeSanitize, ProgressIsInItsLogPage) {
    open_drive(R"("sanitize_s": 100, "namespaces": [{"id": 1, "blocks": 8, "used": 3}])");
    EXPECT_EQ(status(), "ff ff 00 00 00 00 00 00");
    EXPECT_EQ(sanitize(2), ended(0));
    EXPECT_EQ(status().substr(3), "00 02 00 02 00 00 00");
    board->advance_us(50'000'000);
    EXPECT_EQ(status().substr(3), "80 02 00 02 00 00 00") << "one half";
    const std::string busy = ended(0x40000000 | 0x1D << 17);
    EXPECT_EQ(sanitize(4), busy);
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), busy);
    EXPECT_EQ(admin({.opcode = 0x10, .dword10 = 0x09}), busy);
    EXPECT_EQ(identify(1).size(), 4096u);
    board->advance_us(50'000'000);
    EXPECT_EQ(status(), "ff ff 01 01 02 00 00 00");
    EXPECT_EQ(drive->namespaces().find(1)->used, 0u);
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(sim::le32(log(0x81, 32), 12), 100u) << "estimate of a block erase";
}

TEST_F(NvmeSanitize, OverwriteCountsItsPasses) {
    open_drive(R"("sanitize_s": 40)");
    EXPECT_EQ(sanitize(0x43), ended(0));
    board->advance_us(21'000'000);
    EXPECT_EQ(status().substr(6, 5), "12 00") << "two of four";
    board->advance_us(20'000'000);
    EXPECT_EQ(status(), "ff ff 21 01 43 00 00 00");
}

TEST_F(NvmeSanitize, FailureHasToBeEnded) {
    open_drive(R"("sanitize_s": 1, "sanitize_fails": true)");
    EXPECT_EQ(sanitize(0x0C), ended(0)) << "unrestricted";
    board->advance_us(1'000'000);
    EXPECT_EQ(status(), "ff ff 03 00 0c 00 00 00");
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), failed(0, 0x1C));
    EXPECT_EQ(sanitize(1), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(sanitize(4), ended(0)) << "restricted";
    board->advance_us(1'000'000);
    EXPECT_EQ(sanitize(1), failed(0, 0x1C));
    EXPECT_EQ(sanitize(0x0C), failed(0, 0x1C));
    drive->settings().sanitize_fails = false;
    EXPECT_EQ(sanitize(4), ended(0));
    board->advance_us(1'000'000);
    EXPECT_EQ(status(), "ff ff 01 01 04 00 00 00");
    EXPECT_EQ(sanitize(0), failed(0, 0x02));
    EXPECT_EQ(sanitize(5), failed(0, 0x02));
}

class NvmeLockdown : public NvmeAdmin {
protected:
    std::string lockdown(uint32_t scope, bool prohibit, uint8_t id, uint32_t interface = 2) {
        return admin({.opcode = 0x24,
                      .dword10 = static_cast<uint32_t>(id) << 8 | interface << 5 |
                                 (prohibit ? 1u << 4 : 0) | scope});
    }
    const std::string prohibited = failed(0, 0x23);
};

TEST_F(NvmeLockdown, ProhibitsAndAllows) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x80), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), prohibited);
    EXPECT_EQ(lockdown(0, false, 0x80, 1), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
    EXPECT_EQ(lockdown(2, true, 0x04), ended(0));
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), prohibited);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x05}), ended(0));
    EXPECT_EQ(admin({.opcode = 0x0A, .dword10 = 0x04}).substr(0, 2), "00") << "it may be read";
    EXPECT_EQ(lockdown(3, true, 0x07), ended(0));
    EXPECT_EQ(manage(0x07), "07 00 00 00");
    EXPECT_EQ(drive->resets(), 0u);
    EXPECT_EQ(lockdown(3, false, 0x07), ended(0));
    manage(0x07);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), prohibited) << "it outlasts a reset";
    board->set_main_power(false);
    board->set_main_power(true);
    EXPECT_EQ(admin({.opcode = 0x09, .dword10 = 0x04}), ended(0)) << "but no loss of power";
}

TEST_F(NvmeLockdown, WhatBindsTheHostDoesNotBindTheTunnel) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x80, 0), ended(0));
    EXPECT_EQ(admin({.opcode = 0x80, .id = 1}), ended(0));
}

TEST_F(NvmeLockdown, WrongRequests) {
    open_drive();
    EXPECT_EQ(lockdown(0, true, 0x24), failed(1, 0x28)) << "itself";
    EXPECT_EQ(lockdown(0, true, 0xF0), failed(1, 0x28)) << "an unknown command";
    EXPECT_EQ(lockdown(2, true, 0xF0), failed(1, 0x28));
    EXPECT_EQ(lockdown(3, true, 0x08), failed(1, 0x28));
    EXPECT_EQ(lockdown(1, true, 0x80), failed(0, 0x02)) << "no scope";
    EXPECT_EQ(lockdown(0, true, 0x80, 3), failed(0, 0x02)) << "no interface";
    EXPECT_EQ(admin({.opcode = 0x24, .dword10 = 0x8050, .dword14 = 1}), failed(0, 0x02));
}

// ---- Vendors' commands
// ---------------------------------------------------------------------------

using NvmeVendor = NvmeAdmin;

TEST_F(NvmeVendor, PassthroughOfIdentifyAndLogPages) {
    open_drive(R"("serial": "PASS")");
    const Bytes controller =
        read_by({.opcode = 0xC2, .dword10 = 1, .length = 4096, .dword9 = 4096});
    EXPECT_EQ(controller, identify(1));
    const Bytes page = read_by({.opcode = 0xC2,
                                .dword10 = 0x007F0002,
                                .length = 512,
                                .dword9 = 512,
                                .dword15 = 0xFFFFFFFF});
    EXPECT_EQ(page, log(0x02, 512));
    EXPECT_EQ(
        admin({.opcode = 0xC2, .dword10 = 0x007F0002, .length = 512, .dword9 = 512, .dword15 = 99}),
        failed(0, 0x0B))
        << "the namespace is in dword 15";
    EXPECT_EQ(admin({.opcode = 0xC2, .dword10 = 1, .length = 512}), failed(0, 0x02))
        << "the length is in dword 9 too";
    EXPECT_EQ(admin({.opcode = 0x24, .dword10 = 0x0650}), ended(0));
    EXPECT_EQ(admin({.opcode = 0xC2, .dword10 = 1, .length = 8, .dword9 = 8}), failed(0, 0x23));
}

TEST_F(NvmeVendor, CommandsOfTheBoardFile) {
    open_drive(R"("vendor_commands": [{"opcode": "0xd0", "data": "0102030405"}])");
    EXPECT_EQ(hex(read_by({.opcode = 0xD0, .length = 8})), "01 02 03 04 05 00 00 00");
    EXPECT_EQ(read_by({.opcode = 0xD0, .length = 4096}).size(), 4096u);
    EXPECT_EQ(admin({.opcode = 0xD1, .length = 8}), failed(0, 0x01));
    drive->settings().vendor[0xD1] = Bytes(4);
    EXPECT_EQ(read_by({.opcode = 0xD1, .length = 8}), Bytes(8));
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// Fixture of the firmware device's tests: an update agent that speaks in hex.
#ifndef SIDEBAND_TESTS_SIM_PLDM_FIRMWARE_FIXTURE_H
#define SIDEBAND_TESTS_SIM_PLDM_FIRMWARE_FIXTURE_H

#include <string>

#include "sim/pldm/firmware.h"
#include "terminus_fixture.h"

namespace sim_test {

/// Two components of one device; the first one can activate by itself.
inline const std::string kTwoComponents = R"("active": "OLD-1", "components": [
    {"identifier": 1, "index": 7, "active": {"text": "1.0", "stamp": 16}},
    {"identifier": 2, "active": {"text": "2.0", "stamp": 32, "date": "20240131"},
     "activation_methods": 0}])";

// Requests of the agent, from the PLDM header on.
inline const std::string kRequestUpdate =
    "80 05 10  20000000 0200 01 0000 01 05 4e45572d32";  // 32 bytes at a time, "NEW-2"
inline const std::string kPassFirst = "80 05 13  01 0a00 0100 07 11000000 01 03 312e31";
inline const std::string kPassLast = "80 05 13  04 0a00 0200 00 21000000 01 03 322e31";
inline const std::string kUpdateFirst =
    "80 05 14  0a00 0100 07 11000000 50000000 00000000 01 03 312e31";  // 80 bytes, "1.1"
inline const std::string kUpdateSecond =
    "80 05 14  0a00 0200 00 21000000 21000000 00000000 01 03 322e31";  // 33 bytes, "2.1"
inline const std::string kActivate = "80 05 1a 01";
inline const std::string kGetStatus = "80 05 1b";
inline const std::string kCancelComponent = "80 05 1c";
inline const std::string kCancelUpdate = "80 05 1d";

/// An image whose bytes tell where they stand.
inline sim::Bytes image_of(size_t size) {
    sim::Bytes image(size);
    for (size_t i = 0; i < size; ++i) {
        image[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    return image;
}

class FirmwareTest : public TerminusTest {
protected:
    void open_device(const std::string& firmware_keys = kTwoComponents) {
        open_terminus("\"firmware\": {" + firmware_keys + "}");
        ASSERT_TRUE(board);
        device = board->firmware("p");
        ASSERT_NE(device, nullptr);
    }

    /// The same with metadata.
    void open_with_metadata() { open_device(kTwoComponents + R"(, "metadata": "010203")"); }

    /// The device's next request from its PLDM header on; "error N" if none comes.
    std::string asked() {
        const std::string packet = receive(3);
        if (packet.starts_with("error")) {
            return packet;
        }
        const std::vector<uint8_t> data = bytes(packet);
        EXPECT_EQ(data[3] & 0xC8, 0xC8) << "one packet, tag owner: " << packet;
        tag = data[3] & 7;
        instance = data[5] & 0x1F;
        return hex({data.begin() + 5, data.end()});
    }

    /// Answers the device's last request. @param data  command, completion code and data
    void answer(const std::string& data) {
        ASSERT_EQ(
            send(3, 0x64,
                 "01 09 08 " + hex_byte(0xC0 | tag) + " 01 " + hex_byte(instance) + " 05 " + data),
            0);
    }

    static std::string hex_byte(int value) { return hex({static_cast<uint8_t>(value)}); }

    /// Until the device knows all its components.
    void start_ready() {
        ASSERT_EQ(pldm(kRequestUpdate).substr(0, 11), "00 05 10 00");
        ASSERT_EQ(pldm(kPassFirst), "00 05 13 00 00 00");
        ASSERT_EQ(pldm(kPassLast), "00 05 13 00 00 00");
    }

    /// Until the device sends firmware data requests for the first component.
    void start_download() {
        start_ready();
        ASSERT_EQ(pldm(kUpdateFirst), "00 05 14 00 00 00 00 00 00 00 00 00");
    }

    /// Serves what the device asks for until it is silent. @return "OFFSET+LENGTH" of each piece,
    /// the command and result of everything else
    std::string serve(const sim::Bytes& image) {
        std::string log;
        for (std::string request = asked(); !request.starts_with("error"); request = asked()) {
            const std::vector<uint8_t> data = bytes(request);
            log += log.empty() ? "" : " ";
            if (data[2] == sim::kFwRequestFirmwareData) {
                const uint32_t offset = sim::le32(data, 3);
                const uint32_t length = sim::le32(data, 7);
                log += std::to_string(offset) + "+" + std::to_string(length);
                sim::Bytes piece(length);
                for (size_t i = 0; i < length && offset + i < image.size(); ++i) {
                    piece[i] = image[offset + i];
                }
                answer("15 00 " + hex(piece));
            } else {
                log += hex({data.begin() + 2, data.end()});
                answer(hex_byte(data[2]) + " 00");
            }
        }
        return log;
    }

    /// Both components from RequestUpdate to the last ApplyComplete.
    void update_both() {
        start_download();
        serve(image_of(80));
        ASSERT_EQ(pldm(kUpdateSecond), "00 05 14 00 00 00 00 00 00 00 00 00");
        serve(image_of(33));
    }

    void set_fault(const sim::PldmFirmwareFault& fault) { device->set_faults({fault}); }

    sim::PldmFirmware* device = nullptr;
    int tag = 0;
    int instance = 0;
};

}  // namespace sim_test

#endif

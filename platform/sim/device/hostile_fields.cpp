// SPDX-License-Identifier: Apache-2.0
// Where lengths, counts, handles and flags stand in the messages of devices.
#include "sim/device/hostile_fields.h"
#include "sim/device/message.h"

#include <algorithm>

namespace sim {

namespace {

// transferFlag: Middle of PDRs and FRU tables, which count from Start = 0, and of all the others
// (DSP0240).
constexpr uint32_t kTableMiddle = 1;
constexpr uint32_t kMiddle = 2;
constexpr uint32_t kAnotherHandle = 0x00000101;

constexpr Field kSetEid[] = {{3}, {4}, {5}};
constexpr Field kGetEid[] = {{3}, {4}, {5}};
constexpr Field kAllocate[] = {{3}, {4}, {5}};
constexpr Field kRoutes[] = {{3, 1, false, 1}, {4}, {5}, {6}, {8}, {10}, {11}, {12}, {18}};

constexpr Field kVersions[] = {{4, 4, false, kAnotherHandle}, {8, 1, false, kMiddle}};
constexpr Field kReading[] = {{4}, {5}, {6}, {10}};
constexpr Field kStates[] = {{4}, {5}, {9}};
constexpr Field kRepository[] = {{4}, {31, 4}, {35, 4}, {39, 4}};
constexpr Field kPdr[] = {{4, 4, false, kAnotherHandle},
                          {8, 4, false, kAnotherHandle},
                          {12, 1, false, kTableMiddle},
                          {13, 2},  // responseCount
                          {20},     // PDRType
                          {23, 2},  // dataLength
                          {37},     // compositeSensorCount
                          {40},     // possibleStatesSize
                          {47},     // sensorDataSize
                          {68},
                          {70}};
constexpr Field kFruMetadata[] = {{6, 4}, {10, 4}, {14, 2}, {16, 2}, {18, 4}};
constexpr Field kFruTable[] = {{4, 4, false, kAnotherHandle},
                               {8, 1, false, kTableMiddle},
                               {11},
                               {12},  // number of fields
                               {13},
                               {14},
                               {15}};  // length of the first one
constexpr Field kIdentifiers[] = {{4, 4}, {8}, {9, 2}, {11, 2}, {15, 2}, {17, 2}};
constexpr Field kParameters[] = {{8, 2}, {10}, {11}, {12}, {13}, {25}, {38}, {39}};
constexpr Field kRequestUpdate[] = {{4, 2}, {6}};
constexpr Field kParts[] = {{4, 4, false, kAnotherHandle}, {8, 1, false, kMiddle}};
constexpr Field kComponent[] = {{4}, {5}, {10, 2}};
constexpr Field kActivate[] = {{4, 2}};
constexpr Field kStatus[] = {{4}, {5}, {6}, {7}, {8}};
// What a device requests while its firmware is updated (DSP0267).
constexpr Field kAskPackageData[] = {{3, 4, false, 0}, {7, 1, false, 0}};
constexpr Field kAskFirmware[] = {{3, 4, false, 0}, {7, 4}};
constexpr Field kResult[] = {{2, 1, false, 0x15}, {3}};

constexpr Field kNcsiPacket[] = {{1},           {3},           {4},           {5},
                                 {6, 2, true},  {16, 2, true}, {18, 2, true}, {20, 4, true},
                                 {24, 4, true}, {32},          {36, 4, true}};
// "More processing required" goes on for as long as it is said.
constexpr Field kManagement[] = {{0}, {3, 1, false, 1}, {4, 2}, {6}, {7, 2}, {9}};
constexpr Field kAdmin[] = {{0},     {3, 1, false, 1}, {4, 2},  {7, 4},
                            {11, 4}, {15, 4},          {17, 2}, {19, 4}};

struct Known {
    MessageKey key;
    std::span<const Field> fields;
};

constexpr Known kKnown[] = {
    {{kControlType, 0, 0x01}, kSetEid},
    {{kControlType, 0, 0x02}, kGetEid},
    {{kControlType, 0, 0x08}, kAllocate},
    {{kControlType, 0, 0x0A}, kRoutes},
    {{kPldmType, 0, 0x03}, kVersions},
    {{kPldmType, 2, 0x11}, kReading},
    {{kPldmType, 2, 0x21}, kStates},
    {{kPldmType, 2, 0x50}, kRepository},
    {{kPldmType, 2, 0x51}, kPdr},
    {{kPldmType, 4, 0x01}, kFruMetadata},
    {{kPldmType, 4, 0x02}, kFruTable},
    {{kPldmType, 5, 0x01}, kIdentifiers},
    {{kPldmType, 5, 0x02}, kParameters},
    {{kPldmType, 5, 0x10}, kRequestUpdate},
    {{kPldmType, 5, 0x12}, kParts},
    {{kPldmType, 5, 0x13}, kComponent},
    {{kPldmType, 5, 0x14}, kComponent},
    {{kPldmType, 5, 0x19}, kParts},
    {{kPldmType, 5, 0x1A}, kActivate},
    {{kPldmType, 5, 0x1B}, kStatus},
    {{kPldmType, 5, 0x11, true}, kAskPackageData},
    {{kPldmType, 5, 0x15, true}, kAskFirmware},
    {{kPldmType, 5, 0x16, true}, kResult},
    {{kPldmType, 5, 0x17, true}, kResult},
    {{kPldmType, 5, 0x18, true}, kResult},
    {{kNvmeMiType, 1, 0}, kManagement},
    {{kNvmeMiType, 2, 0}, kAdmin},
};

/// Two's complement of the sum of 16-bit words (DSP0222, checksum).
void mend_ncsi(Bytes& body) {
    constexpr size_t kHeader = 16;
    constexpr size_t kLength = 6;
    constexpr size_t kChecksum = 4;
    if (body.size() < kHeader) {
        return;
    }
    const size_t payload = be16(body, kLength) & 0x0FFF;
    const size_t at = kHeader + (payload + 3) / 4 * 4;
    if (body.size() < at + kChecksum) {
        return;
    }
    uint32_t sum = 0;
    for (size_t i = 0; i < at; i += 2) {
        sum += be16(body, i);
    }
    put_field(body, {static_cast<uint16_t>(at), kChecksum, true}, ~sum + 1);
}

/// CRC-32 of the table and its pad bytes, behind them (DSP0257).
void mend_fru(Bytes& body) {
    constexpr size_t kFlag = 8;
    constexpr size_t kTable = 9;
    constexpr size_t kChecksum = 4;
    constexpr uint8_t kStartAndEnd = 5;
    if (body.size() < kTable + kChecksum || body[kFlag] != kStartAndEnd) {
        return;
    }
    const size_t end = body.size() - kChecksum;
    put_le(body, end, crc32(ByteView(body).first(end).subspan(kTable)), kChecksum);
}

}  // namespace

MessageKey key_of(const Message& message) {
    const Bytes& body = message.body;
    MessageKey key;
    key.type = message.type & 0x7F;
    key.request = message.tag_owner;
    if (key.type == kControlType && body.size() > 1) {
        key.command = body[1];
    } else if (key.type == kPldmType && body.size() > 2) {
        key.protocol = body[1] & 0x3F;
        key.command = body[2];
    } else if (key.type == kNcsiType && body.size() > 4) {
        key.command = body[4] & 0x7F;
    } else if (key.type == kNvmeMiType && !body.empty()) {
        key.protocol = body[0] >> 3 & 0x0F;
    }
    return key;
}

std::span<const Field> fields_of(const MessageKey& key) {
    if (key.type == kNcsiType) {
        return kNcsiPacket;
    }
    const auto* const found =
        std::ranges::find_if(kKnown, [&](const Known& known) { return known.key == key; });
    return found != std::end(kKnown) ? found->fields : std::span<const Field>{};
}

size_t header_size(const MessageKey& key) {
    switch (key.type) {
        case kControlType:
            return 3;
        case kPldmType:
            return key.request ? 3 : 4;
        case kNcsiType:
            return 20;
        case kNvmeMiType:
            return 7;
        default:
            return 0;
    }
}

void put_field(Bytes& body, const Field& field, uint32_t value) {
    for (size_t i = 0; i < field.width; ++i) {
        const size_t at = field.at + (field.big_endian ? field.width - 1 - i : i);
        if (at < body.size()) {
            body[at] = static_cast<uint8_t>(value >> (8 * i));
        }
    }
}

uint32_t get_field(ByteView body, const Field& field) {
    if (size_t{field.at} + field.width > body.size()) {
        return 0;
    }
    uint32_t value = 0;
    for (size_t i = 0; i < field.width; ++i) {
        const size_t at = field.at + (field.big_endian ? i : field.width - 1u - i);
        value = value << 8 | body[at];
    }
    return value;
}

void mend_checksum(const MessageKey& key, Bytes& body) {
    if (key.type == kNcsiType) {
        mend_ncsi(body);
    } else if (key.type == kPldmType && key.protocol == 4 && key.command == 2) {
        mend_fru(body);
    }
}

}  // namespace sim

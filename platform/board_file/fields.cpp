// SPDX-License-Identifier: Apache-2.0
// Fields that the board files of several platforms have: names, endpoint IDs, places on PCIe.
#include "platform/board_file/fields.h"

#include "platform/board_file/hex.h"

namespace board_file {

namespace {

constexpr uint8_t kFirstEid = 8;

}  // namespace

std::string read_device_name(ObjectReader& reader, std::set<std::string>& names) {
    std::string name = reader.text("name");
    if (name.empty() || name.find_first_of(": \t\n") != std::string::npos) {
        reader.complain("name", "must be a word without colons");
    }
    if (!names.insert(name).second) {
        reader.complain("name", "is the name of another device");
    }
    return name;
}

uint8_t read_eid(ObjectReader& reader, uint8_t absent) {
    const auto eid = static_cast<uint8_t>(reader.whole("eid", 0, 254, absent));
    if (eid > 0 && eid < kFirstEid) {
        reader.complain("eid", "must be 0 or from 8 to 254");
    }
    return eid;
}

std::optional<Bdf> read_bdf(ObjectReader& reader) {
    const Place place = reader.require("bdf");
    std::string digits = place.text();
    const bool shaped = digits.size() == 7 && digits[2] == ':' && digits[5] == '.';
    if (shaped) {
        digits = digits.substr(0, 2) + digits.substr(3, 2) + "0" + digits.substr(6);
    }
    const std::optional<Bytes> bytes = shaped ? from_hex(digits) : std::nullopt;
    if (bytes && (*bytes)[1] <= 0x1F && (*bytes)[2] <= 7) {
        return Bdf{(*bytes)[0], (*bytes)[1], (*bytes)[2]};
    }
    place.complain("must be bus, device and function in hex, such as 47:00.0");
    return std::nullopt;
}

}  // namespace board_file

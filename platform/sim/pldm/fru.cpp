// SPDX-License-Identifier: Apache-2.0
// The FRU record table of a PLDM terminus (DSP0257).
#include "sim/pldm/fru.h"

#include <algorithm>
#include <set>

#include "sim/pldm/device.h"

namespace sim {

namespace {

// Completion codes of the FRU commands.
constexpr uint8_t kInvalidTableHandle = 0x80;
constexpr uint8_t kInvalidTableFlag = 0x81;
constexpr uint8_t kNoMetadata = 0x83;
constexpr uint8_t kTableUnavailable = 0x85;

constexpr uint8_t kMajorVersion = 1;
constexpr uint8_t kMinorVersion = 0;

/// Field types of a general record by name; the first one is type 1 (DSP0257, table 5).
const std::vector<std::string> kFieldTypes = {"chassis_type",
                                              "model",
                                              "part_number",
                                              "serial_number",
                                              "manufacturer",
                                              "manufacture_date",
                                              "vendor",
                                              "name",
                                              "sku",
                                              "version",
                                              "asset_tag",
                                              "description",
                                              "engineering_change_level",
                                              "other_information",
                                              "vendor_iana"};

uint8_t read_field_type(ObjectReader& reader) {
    const Place place = reader.require("type");
    if (place.node->kind == Node::Kind::kString) {
        const auto found = std::ranges::find(kFieldTypes, place.text());
        if (found != kFieldTypes.end()) {
            return static_cast<uint8_t>(found - kFieldTypes.begin() + 1);
        }
    }
    return static_cast<uint8_t>(place.whole(0, 255));
}

/// One field as it stands in the table: type, length, value.
Bytes read_field(const Place& place) {
    ObjectReader reader(place);
    Bytes field{read_field_type(reader), 0};
    const std::optional<Place> text = reader.find("text");
    if (text && reader.find("hex")) {
        reader.complain("hex", "cannot stand beside text");
    }
    if (text) {
        const std::string& value = text->text();
        field.insert(field.end(), value.begin(), value.end());
    } else {
        append(field, reader.require("hex").hex());
    }
    reader.finish();
    if (field.size() > 2 + 255) {
        reader.complain(text ? "text" : "hex", "must have at most 255 bytes");
    }
    field[1] = static_cast<uint8_t>(field.size() - 2);
    return field;
}

}  // namespace

void FruTable::add_record(const Place& place) {
    ObjectReader reader(place);
    append_le16(table_, static_cast<uint16_t>(reader.whole("set", 0, 0xFFFF, 1)));
    table_.push_back(static_cast<uint8_t>(reader.whole("type", 0, 255, 1)));
    const Place list = reader.require("fields");
    const size_t fields = list.node->items.size();
    if (fields > 255) {
        list.complain("must have at most 255 fields");
    }
    table_.push_back(static_cast<uint8_t>(fields));
    table_.push_back(static_cast<uint8_t>(reader.whole("encoding", 0, 255, 1)));
    list.each([&](const Place& field) { append(table_, read_field(field)); });
    reader.finish();
}

FruTable::FruTable(const Place& place) {
    ObjectReader reader(place);
    std::set<uint16_t> sets;
    const Place list = reader.require("records");
    if (list.node->items.size() > 1000) {
        list.fail("must have at most 1000 records");
    }
    list.each([&](const Place& record) {
        const size_t at = table_.size();
        add_record(record);
        sets.insert(le16(table_, at));
        ++records_;
    });
    sets_ = static_cast<uint16_t>(sets.size());
    part_size_ = static_cast<size_t>(reader.whole("part_size", 0, 0xFFFF, 0));
    const bool fixed_size = reader.flag("fixed_size", false);
    if (fixed_size && part_size_ == 0) {
        reader.fail("fixed_size", "needs a part_size");  // it is divided by below
    }
    length_ = static_cast<uint32_t>(
        reader.whole("claimed_length", 0, 0xFFFFFFFF, static_cast<int64_t>(table_.size())));
    reader.finish();

    image_ = table_;
    image_.resize((image_.size() + 3) / 4 * 4);
    checksum_ = crc32(image_);
    append_le32(image_, checksum_);
    if (fixed_size) {
        image_.resize((image_.size() + part_size_ - 1) / part_size_ * part_size_);
    }
}

Bytes FruTable::metadata() const {
    if (records_ == 0) {
        return pldm_reply(kNoMetadata);
    }
    Bytes out{kMajorVersion, kMinorVersion};
    append_le32(out, 0);  // maximum size: the table cannot be set
    append_le32(out, length_);
    append_le16(out, sets_);
    append_le16(out, records_);
    append_le32(out, checksum_);
    return pldm_reply(kPldmSuccess, out);
}

Bytes FruTable::part(ByteView data) const {
    const uint8_t operation = data[4];
    if (operation > kPldmGetFirstPart) {
        return pldm_reply(kInvalidTableFlag);
    }
    if (records_ == 0) {
        return pldm_reply(kTableUnavailable);
    }
    // A handle is where its part begins.
    const size_t at = operation == kPldmGetNextPart ? le32(data, 0) : 0;
    const bool first = at == 0;
    if (operation == kPldmGetNextPart &&
        (first || at >= image_.size() || part_size_ == 0 || at % part_size_ != 0)) {
        return pldm_reply(kInvalidTableHandle);
    }
    const size_t rest = image_.size() - at;
    const size_t size = part_size_ == 0 ? rest : std::min(rest, part_size_);
    const bool last = size == rest;
    Bytes out;
    append_le32(out, last ? 0 : static_cast<uint32_t>(at + size));
    out.push_back(pldm_transfer_flag(first, last));
    append(out, ByteView(image_).subspan(at, size));
    return pldm_reply(kPldmSuccess, out);
}

}  // namespace sim

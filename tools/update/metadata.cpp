// SPDX-License-Identifier: Apache-2.0
// The description of a firmware update package in JSON, as it is written for package creators.
#include "tools/update/metadata.h"

#include <fmt/format.h>
#include <sideband/pldm_fw_update.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

#include "platform/board_file/file.h"
#include "tools/shell/failure.h"
#include "tools/shell/text.h"
#include "tools/update/descriptor.h"

namespace tool {
namespace {

using board_file::Bytes;
using board_file::ObjectReader;
using board_file::Place;

constexpr size_t kLongestText = 255;
constexpr uint16_t kVendorDefined = 0xFFFF;
// String types of DSP0267.
constexpr uint8_t kAscii = 1;
constexpr uint8_t kUtf8 = 2;

uint8_t string_type(const std::string& text) {
    const bool ascii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<uint8_t>(c) < 0x80; });
    return ascii ? kAscii : kUtf8;
}

/// A version string: its length takes a byte, and an empty one says nothing.
std::string read_version(const Place& place) {
    const std::string& text = place.text();
    if (text.empty()) {
        place.complain("must not be empty");
    } else if (text.size() > kLongestText) {
        place.complain(fmt::format("has {} bytes, more than {}", text.size(), kLongestText));
    } else if (text.find('\0') != std::string::npos) {
        place.complain("must have no NUL character: whoever reads it would end there");
    }
    return text;
}

/// The numbers of bits, as the bits themselves.
uint32_t read_bits(const Place& place, int last) {
    uint32_t bits = 0;
    place.each([&](const Place& bit) { bits |= uint32_t{1} << bit.whole(0, last); });
    return bits;
}

std::array<uint8_t, 13> timestamp(const tm& time) {
    // DSP0240, timestamp104: UTC offset, microseconds, then the rest; the resolution is not told.
    constexpr int kFirstYear = 1900;
    const int year = time.tm_year + kFirstYear;
    return {0,
            0,
            0,
            0,
            0,
            static_cast<uint8_t>(time.tm_sec),
            static_cast<uint8_t>(time.tm_min),
            static_cast<uint8_t>(time.tm_hour),
            static_cast<uint8_t>(time.tm_mday),
            static_cast<uint8_t>(time.tm_mon + 1),
            static_cast<uint8_t>(year & 0xFF),
            static_cast<uint8_t>(year >> 8),
            0};
}

/// "17/03/2024 10:20:30"; nothing for what is no time.
std::optional<tm> parse_time(const std::string& text) {
    tm time{};
    const char* const end = strptime(text.c_str(), "%d/%m/%Y %H:%M:%S", &time);
    tm same = time;
    // A 31st of June would come out as the first of July.
    const bool is_day = end != nullptr && *end == '\0' && timegm(&same) != -1 &&
                        same.tm_mday == time.tm_mday && time.tm_sec < 60 && time.tm_year >= 0;
    return is_day && end == text.c_str() + text.size() ? std::optional(time) : std::nullopt;
}

constexpr const char* kBuildTime = "SOURCE_DATE_EPOCH";

/// The time of the build, so that the same package comes out whenever it is made again; nothing if
/// it is told and is none of the years that a package can name from there on, 1970 to 9999.
std::optional<tm> present_time() {
    constexpr uint64_t kLast = 253402300799;
    time_t now = time(nullptr);
    if (const char* const told = std::getenv(kBuildTime)) {
        const std::string_view digits(told);
        const std::optional<uint64_t> seconds = parse_long_number(digits);
        if (!seconds || *seconds > kLast || digits.find_first_of("xX") != std::string_view::npos) {
            return std::nullopt;
        }
        now = static_cast<time_t>(*seconds);
    }
    tm broken_down{};
    gmtime_r(&now, &broken_down);
    return broken_down;
}

void read_header(const Place& place, Package& package) {
    ObjectReader reader(place);
    const Place identifier = reader.require("PackageHeaderIdentifier");
    const Bytes bytes = identifier.hex();
    if (!std::equal(bytes.begin(), bytes.end(), kPackageIdentifier.begin(),
                    kPackageIdentifier.end())) {
        identifier.complain("must be " + hex(kPackageIdentifier) + ", header format 1.0");
    }
    reader.whole("PackageHeaderFormatVersion", 1, 1);
    const std::optional<Place> released = reader.find("PackageReleaseDateTime");
    const std::optional<tm> time = released ? parse_time(released->text()) : present_time();
    if (!time && released) {
        released->complain("must be a time such as 17/03/2024 10:20:30");
    } else if (!time) {
        place.complain(fmt::format(
            "has no PackageReleaseDateTime, and {} is no number of seconds in 1970 to 9999",
            kBuildTime));
    }
    package.release_date_time = timestamp(time.value_or(tm{}));
    package.version = read_version(reader.require("PackageVersionString"));
    package.version_type = string_type(package.version);
    reader.finish();
}

/// DescriptorData of a type, of the size that the standard gives it (DSP0267, descriptor types).
Bytes read_descriptor_data(const Place& place, uint16_t type) {
    Bytes data = place.hex();
    const std::optional<size_t> size = descriptor_size(type);
    if (data.empty()) {
        place.complain("must not be empty");
    } else if (size && data.size() != *size) {
        place.complain(fmt::format("has {}, {} has {}", counted(data.size(), "byte"),
                                   descriptor_name(type), *size));
    }
    return data;
}

/// Title string type, its length, the title, the data.
Bytes read_vendor_defined(ObjectReader& reader) {
    const Place title = reader.require("VendorDefinedDescriptorTitleString");
    const std::string& text = title.text();
    if (text.size() > kLongestText) {
        title.complain(fmt::format("has {} bytes, more than {}", text.size(), kLongestText));
    }
    Bytes value{string_type(text), static_cast<uint8_t>(text.size())};
    value.insert(value.end(), text.begin(), text.end());
    const Place place = reader.require("VendorDefinedDescriptorData");
    const Bytes data = place.hex();
    value.insert(value.end(), data.begin(), data.end());
    if (value.size() > UINT16_MAX) {
        place.complain(fmt::format("has {} bytes, too many for a descriptor", data.size()));
    }
    return value;
}

PackageDescriptor read_descriptor(const Place& place) {
    ObjectReader reader(place);
    PackageDescriptor descriptor;
    descriptor.type = static_cast<uint16_t>(reader.whole("DescriptorType", 0, UINT16_MAX));
    if (descriptor.type == kVendorDefined) {
        descriptor.value = read_vendor_defined(reader);
    } else {
        descriptor.value = read_descriptor_data(reader.require("DescriptorData"), descriptor.type);
    }
    reader.finish();
    return descriptor;
}

PackageRecord read_record(const Place& place, size_t components) {
    ObjectReader reader(place);
    PackageRecord record;
    if (const std::optional<Place> flags = reader.find("DeviceUpdateOptionFlags")) {
        record.update_option_flags = read_bits(*flags, 31);
    }
    record.version = read_version(reader.require("ComponentImageSetVersionString"));
    record.version_type = string_type(record.version);
    reader.require("ApplicableComponents").each([&](const Place& index) {
        if (components == 0) {
            index.fail("there is no component");
        }
        record.components.push_back(
            static_cast<size_t>(index.whole(0, static_cast<int64_t>(components) - 1)));
    });
    const Place descriptors = reader.require("Descriptors");
    descriptors.each([&](const Place& one) { record.descriptors.push_back(read_descriptor(one)); });
    if (record.descriptors.empty() || record.descriptors.size() > UINT8_MAX) {
        descriptors.complain("must have 1 to 255 descriptors");
    }
    reader.finish();
    return record;
}

PackageComponent read_component(const Place& place) {
    // Without the option to use the comparison stamp there is none.
    constexpr uint16_t kUsesStamp = 1 << 1;
    ObjectReader reader(place);
    PackageComponent component;
    component.classification =
        static_cast<uint16_t>(reader.whole("ComponentClassification", 0, UINT16_MAX));
    component.identifier =
        static_cast<uint16_t>(reader.whole("ComponentIdentifier", 0, UINT16_MAX));
    component.options = static_cast<uint16_t>(read_bits(reader.require("ComponentOptions"), 15));
    component.activation_method =
        static_cast<uint16_t>(read_bits(reader.require("RequestedComponentActivationMethod"), 15));
    component.version = read_version(reader.require("ComponentVersionString"));
    component.version_type = string_type(component.version);
    const bool stamped = (component.options & kUsesStamp) != 0;
    component.comparison_stamp = static_cast<uint32_t>(
        stamped ? reader.whole("ComponentComparisonStamp", 0, UINT32_MAX)
                : reader.whole("ComponentComparisonStamp", 0, UINT32_MAX, UINT32_MAX));
    reader.finish();
    return component;
}

void read_package(const Place& root, size_t images, Package& package) {
    ObjectReader reader(root);
    reader.within("PackageHeaderInformation",
                  [&](const Place& place) { read_header(place, package); });
    reader.require("PackageHeaderInformation");
    const Place components = reader.require("ComponentImageInformationArea");
    components.each([&](const Place& one) { package.components.push_back(read_component(one)); });
    const size_t count = package.components.size();
    if (count > PLDM_APPLICABLE_COMPONENTS_MAX) {
        components.complain(fmt::format("has {} components, more than the {} that an update takes",
                                        count, PLDM_APPLICABLE_COMPONENTS_MAX));
    } else if (count != images && reader.sound()) {
        components.complain(fmt::format("has {}, and {} given with --image",
                                        counted(count, "component"),
                                        images == 1 ? "1 is" : fmt::format("{} are", images)));
    }
    const Place records = reader.require("FirmwareDeviceIdentificationArea");
    records.each([&](const Place& one) { package.records.push_back(read_record(one, count)); });
    if (reader.sound() && (package.records.empty() || package.records.size() > UINT8_MAX)) {
        records.complain("must have 1 to 255 device records");
    }
    reader.finish();
}

}  // namespace

Package read_metadata(const std::string& path, size_t images) {
    std::string text;
    if (const std::optional<std::string> reason = board_file::read_file(path, text)) {
        throw Failure(ExitStatus::kInput,
                      path + ": " +
                          (text.size() > board_file::kLongestFile
                               ? fmt::format("is longer than {} bytes", board_file::kLongestFile)
                               : *reason));
    }
    Package package;
    board_file::BoardError error;
    if (!board_file::read_text(text, error,
                               [&](const Place& root) { read_package(root, images, package); })) {
        // One at a time, as of every other input file.
        error.others.clear();
        error.left_out = 0;
        throw Failure(ExitStatus::kInput, error.message(path));
    }
    return package;
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// Builds firmware update packages, valid and broken ones, from the words of DSP0267.
#include "testing/package_builder.h"

#include <algorithm>

namespace tool {
namespace {

constexpr size_t kLocationInEntry = 12;

/// A package under construction: numbers are little-endian.
class Writer {
public:
    void number(uint32_t value, size_t width) {
        for (size_t i = 0; i < width; ++i) {
            bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }

    template <typename Container>
    void bytes(const Container& content) {
        bytes_.insert(bytes_.end(), content.begin(), content.end());
    }

    void put(size_t offset, uint32_t value, size_t width) {
        for (size_t i = 0; i < width; ++i) {
            bytes_[offset + i] = static_cast<uint8_t>(value >> (8 * i));
        }
    }

    size_t size() const { return bytes_.size(); }
    std::vector<uint8_t>& all() { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
};

template <typename Container>
uint32_t size_of(const Container& content) {
    return static_cast<uint32_t>(content.size());
}

/// ComponentBitmapBitLength: a multiple of eight with a bit for each component.
uint16_t bitmap_bits(const Package& package) {
    const size_t bytes = std::max<size_t>(1, (package.components.size() + 7) / 8);
    return package.bitmap_bits.value_or(static_cast<uint16_t>(bytes * 8));
}

std::vector<uint8_t> bitmap(const PackageRecord& record, size_t bits) {
    std::vector<uint8_t> bytes(bits / 8);
    for (size_t component : record.components) {
        if (component / 8 < bytes.size()) {
            bytes[component / 8] |= static_cast<uint8_t>(1u << component % 8);
        }
    }
    return bytes;
}

void write_record(Writer& out, const PackageRecord& record, size_t bits) {
    const size_t start = out.size();
    out.number(0, 2);
    out.number(record.descriptor_count.value_or(size_of(record.descriptors)), 1);
    out.number(record.update_option_flags, 4);
    out.number(record.version_type, 1);
    out.number(record.version_length.value_or(size_of(record.version)), 1);
    out.number(record.package_data_length.value_or(size_of(record.package_data)), 2);
    out.bytes(bitmap(record, bits));
    out.bytes(record.version);
    for (const PackageDescriptor& descriptor : record.descriptors) {
        out.number(descriptor.type, 2);
        out.number(descriptor.length.value_or(size_of(descriptor.value)), 2);
        out.bytes(descriptor.value);
    }
    out.bytes(record.package_data);
    out.put(start, record.record_length.value_or(static_cast<uint16_t>(out.size() - start)), 2);
}

void write_component(Writer& out, const PackageComponent& component) {
    out.number(component.classification, 2);
    out.number(component.identifier, 2);
    out.number(component.comparison_stamp, 4);
    out.number(component.options, 2);
    out.number(component.activation_method, 2);
    out.number(0, 4);  // the location, known once the header's size is
    out.number(component.size.value_or(size_of(component.image)), 4);
    out.number(component.version_type, 1);
    out.number(component.version_length.value_or(size_of(component.version)), 1);
    out.bytes(component.version);
}

void write_fixed_header(Writer& out, const Package& package) {
    out.bytes(package.identifier);
    out.number(package.format_revision, 1);
    out.number(0, 2);  // the header's size, known at its end
    out.bytes(package.release_date_time);
    out.number(bitmap_bits(package), 2);
    out.number(package.version_type, 1);
    out.number(package.version_length.value_or(size_of(package.version)), 1);
    out.bytes(package.version);
}

}  // namespace

uint32_t package_checksum(const uint8_t* bytes, size_t size) {
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        }
    }
    return ~crc;
}

void seal_package(std::vector<uint8_t>& bytes, size_t checksum_offset) {
    const uint32_t checksum = package_checksum(bytes.data(), checksum_offset);
    for (size_t i = 0; i < kChecksumSize; ++i) {
        bytes[checksum_offset + i] = static_cast<uint8_t>(checksum >> (8 * i));
    }
}

std::vector<uint8_t> build_package(const Package& package, PackageLayout* layout) {
    PackageLayout at;
    Writer out;
    write_fixed_header(out, package);
    at.record_count = out.size();
    out.number(package.record_count.value_or(size_of(package.records)), 1);
    for (const PackageRecord& record : package.records) {
        at.records.push_back(out.size());
        write_record(out, record, bitmap_bits(package));
    }
    at.component_count = out.size();
    out.number(package.component_count.value_or(size_of(package.components)), 2);
    for (const PackageComponent& component : package.components) {
        at.components.push_back(out.size());
        write_component(out, component);
    }
    at.checksum = out.size();
    out.number(0, kChecksumSize);
    out.put(kHeaderSizeOffset,
            package.header_size.value_or(static_cast<uint16_t>(at.checksum + kChecksumSize)), 2);
    for (size_t i = 0; i < package.components.size(); ++i) {
        const PackageComponent& component = package.components[i];
        out.put(at.components[i] + kLocationInEntry,
                component.location_offset.value_or(static_cast<uint32_t>(out.size())), 4);
        out.bytes(component.image);
    }
    seal_package(out.all(), at.checksum);
    if (package.checksum) {
        out.put(at.checksum, *package.checksum, kChecksumSize);
    }
    if (layout != nullptr) {
        *layout = std::move(at);
    }
    return std::move(out.all());
}

}  // namespace tool

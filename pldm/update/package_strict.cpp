// SPDX-License-Identifier: Apache-2.0
// What MCTP_STRICT_PACKAGE demands of a package that an update could be made of nevertheless
// (DSP0267, version 1.0, package header).
#include <sideband/debug_log.h>

#include <algorithm>

#include "pldm/update/message.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t kRevision = 1;
/// The first string type that is reserved; in front of it are unknown, ASCII, and four of UTF.
constexpr uint8_t kReservedStringType = 6;

struct Fault {
    const char* text;  ///< null: there is none
    const char* place;
    int index;
};

/// @return what is wrong with a version string; null if nothing is
const char* version_fault(uint8_t type, uint8_t length) {
    if (type >= kReservedStringType) {
        return "reserved string type";
    }
    return length == 0 ? "empty version string" : nullptr;
}

/// Whether a bitmap has a bit that stands for no component.
bool passes(Bytes bitmap, size_t components) {
    for (size_t bit = components; bit < bitmap.size() * 8; ++bit) {
        if ((bitmap[bit / 8] >> bit % 8 & 1) != 0) {
            return true;
        }
    }
    return false;
}

/// Goes through a header that has been parsed, so that all of it is there.
class StrictHeader {
public:
    StrictHeader(Bytes header, uint64_t file_size, const pldm_fw_update_ctx& ctx)
        : reader_(header), file_size_(file_size), ctx_(ctx) {}

    /// The first one.
    Fault fault() {
        if (const char* const wrong = header_fault()) {
            return {wrong, "header of revision", revision_};
        }
        for (int i = 0; i < ctx_.device_record_num; ++i) {
            if (const char* const wrong = record_fault(ctx_.records[i])) {
                return {wrong, "device record", i};
            }
        }
        for (int i = 0; i < ctx_.component_num; ++i) {
            if (const char* const wrong = component_fault(Component(ctx_.component_images[i]))) {
                return {wrong, "component", i};
            }
        }
        return {};
    }

private:
    const char* header_fault() {
        reader_.skip(16);  // identifier
        revision_ = reader_.u8();
        header_size_ = reader_.le16();
        reader_.skip(13);  // release date
        const uint16_t bits = reader_.le16();
        bitmap_size_ = bits / 8;
        const uint8_t type = reader_.u8();
        const uint8_t length = reader_.u8();
        reader_.skip(length + size_t{1});  // and the number of records
        if (revision_ != kRevision) {
            return "it has the identifier of another one";
        }
        if (bits % 8 != 0 || bits < ctx_.component_num) {
            return "a bitmap that is not of bytes, or too short for the components";
        }
        return ctx_.device_record_num == 0 ? "no device record" : version_fault(type, length);
    }

    const char* record_fault(const pldm_device_record& record) {
        WireReader reader(reader_.bytes(record.record_len));
        reader.skip(11);
        const Bytes bitmap = reader.bytes(bitmap_size_);
        reader.skip(record.component_image_set_ver_string_len);
        for (unsigned i = 0; i < record.desc_num; ++i) {
            [[maybe_unused]] const Descriptor descriptor(reader);
        }
        reader.skip(record.package_data_len);
        if (!reader.ok() || reader.remaining() != 0) {
            return "its length is not that of its fields";
        }
        if (record.desc_num == 0) {
            return "no descriptor";
        }
        if (passes(bitmap, std::min<size_t>(ctx_.component_num, PLDM_APPLICABLE_COMPONENTS_MAX))) {
            return "it claims components beyond the bitmap";
        }
        return version_fault(record.component_image_set_ver_string_type,
                             record.component_image_set_ver_string_len);
    }

    const char* component_fault(const Component& component) const {
        const uint64_t end = uint64_t{component.location_offset} + component.size;
        if (component.location_offset < header_size_ || end > file_size_) {
            return "its image is not in the file, behind the header";
        }
        return version_fault(component.version_type, component.version_length);
    }

    WireReader reader_;
    uint64_t file_size_;
    const pldm_fw_update_ctx& ctx_;
    uint8_t revision_ = 0;
    uint16_t header_size_ = 0;
    size_t bitmap_size_ = 0;
};

}  // namespace

bool sideband::is_strict_package(Bytes header, uint64_t file_size, const pldm_fw_update_ctx& ctx) {
    const Fault fault = StrictHeader(header, file_size, ctx).fault();
    if (fault.text != nullptr) {
        debug_log("%s, %s %d: %s\n", "pldm_parse_file", fault.place, fault.index, fault.text);
    }
    return fault.text == nullptr;
}

// SPDX-License-Identifier: Apache-2.0
// Descriptors of firmware devices: names, printing, comparison (DSP0267, descriptor definition).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fw_update.h>

#include <cstring>

#include "common/output.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

// Of a descriptor, on standard output and in the diagnostic log.
constexpr char kTypeText[] = "desc type: %x(%s)\n";
constexpr char kLengthText[] = "desc len : %d\n";
constexpr char kValueText[] = "desc val :";

struct TypeName {
    uint16_t type;
    char name[24];
};

constexpr TypeName kTypeNames[] = {
    {PLDM_DESCRIPTOR_PCI_VENDOR_ID, "PCI Vendor ID"},
    {PLDM_DESCRIPTOR_IANA_ENTERPRISE_ID, "IANA Enterprise ID"},
    {PLDM_DESCRIPTOR_PNP_VENDOR_ID, "Pnp Vendor ID"},
    {PLDM_DESCRIPTOR_ACPI_VENDOR_ID, "ACPI Vendor ID"},
    {PLDM_DESCRIPTOR_PCI_DEVICE_ID, "PCI Device ID"},
    {PLDM_DESCRIPTOR_PCI_SUBSYSTEM_VENDOR_ID, "PCI SubSystem Vendor ID"},
    {PLDM_DESCRIPTOR_PCI_SUBSYSTEM_ID, "PCI Subsystem ID"},
    {PLDM_DESCRIPTOR_PCI_REVISION_ID, "PCI Revision ID"},
    {PLDM_DESCRIPTOR_PNP_PRODUCT_ID, "PnP Product Identifer"},
    {PLDM_DESCRIPTOR_ACPI_PRODUCT_ID, "ACPI Product Identifer"},
    {PLDM_DESCRIPTOR_VENDOR_DEFINED, "Vendor Defined"},
};

void log_value(const Descriptor& descriptor) {
    for (const uint8_t byte : descriptor.value) {
        debug_log(" %x", byte);
    }
    debug_log("\n");
}

void log_descriptor(const Descriptor& descriptor) {
    debug_log(kTypeText, descriptor.type, show_desc_id_string(descriptor.type));
    debug_log(kLengthText, static_cast<int>(descriptor.value.size()));
    debug_log(kValueText);
    log_value(descriptor);
}

/// Shows the descriptor of one side of a comparison, unless it is null.
void show_side(const char* name, const uint8_t* bytes) {
    if (bytes == nullptr) {
        return;
    }
    const Descriptor descriptor(bytes);
    debug_log("%s type: %x\n", name, descriptor.type);
    debug_log("%s val = ", name);
    log_value(descriptor);
}

/// @param response  to QueryDeviceIdentifiers
void show_response(std::span<const uint8_t> response) {
    WireReader reader(response);
    reader.skip(PLDM_RESPONSE_HEADER_SIZE + 4);  // and the bytes of all descriptors
    for (unsigned left = reader.u8(); left > 0; --left) {
        const Descriptor descriptor(reader);
        if (!reader.ok()) {
            return;
        }
        log_descriptor(descriptor);
    }
}

}  // namespace

Descriptor::Descriptor(WireReader& reader)
    : type(reader.le16()), value(reader.bytes(reader.le16())) {}

Descriptor::Descriptor(const uint8_t* bytes) {
    WireReader reader({bytes, PLDM_DESCRIPTOR_HEADER_SIZE + UINT16_MAX});
    *this = Descriptor(reader);
}

const char* show_desc_id_string(uint16_t type) {
    for (const TypeName& row : kTypeNames) {
        if (row.type == type) {
            return row.name;
        }
    }
    return "Unknown ID";
}

void sideband::print(const Descriptor& descriptor) {
    Output out;
    out.print(kTypeText, descriptor.type, show_desc_id_string(descriptor.type));
    out.print(kLengthText, static_cast<int>(descriptor.value.size()));
    out.print(kValueText);
    out.print_hex(descriptor.value);
    out.print("\n");
}

int32_t pldm_parse_record_descriptors(const uint8_t* descriptor) {
    if (descriptor != nullptr) {
        print(Descriptor(descriptor));
    }
    return 0;
}

void plds_show_descriptot(const uint8_t* package_descriptor, const uint8_t* device_descriptor,
                          const uint8_t* response) {
    show_side("Image desc", package_descriptor);
    show_side("FD desc1", device_descriptor);
    if (response != nullptr) {
        show_response({response, PLDM_FW_UPDATE_RESPONSE_SIZE});
    }
}

int32_t sideband::compare(const Descriptor& wanted, const Descriptor& found) {
    if (wanted.type != found.type || wanted.value.size() != found.value.size()) {
        return 1;
    }
    // A package names the oldest silicon that it is for; newer revisions take it as well.
    if (wanted.type == PLDM_DESCRIPTOR_PCI_REVISION_ID && wanted.value.size() == 1) {
        if (wanted.value[0] <= found.value[0]) {
            return 0;
        }
        print_on_console("error desc_type: 103 desc: 0x%x, desc1 =0x%x", wanted.value[0],
                         found.value[0]);
        return 1;
    }
    return std::memcmp(wanted.value.data(), found.value.data(), wanted.value.size());
}

int32_t pldm_compare_descriptors(const uint8_t* package_descriptor,
                                 const uint8_t* device_descriptor) {
    if (package_descriptor == nullptr || device_descriptor == nullptr) {
        return 1;
    }
    return compare(Descriptor(package_descriptor), Descriptor(device_descriptor));
}

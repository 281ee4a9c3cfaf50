/* SPDX-License-Identifier: Apache-2.0 */
/*
 * PLDM firmware update: the update context and the package file that it is filled from (DSP0267,
 * package header format 1.0). One context is used by one thread at a time.
 */
#ifndef SIDEBAND_PLDM_FW_UPDATE_H
#define SIDEBAND_PLDM_FW_UPDATE_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/export.h>
#include <sideband/pldm.h>

SIDEBAND_BEGIN_DECLS

/** Most components that a device record can mark as applicable to its device. */
#define PLDM_APPLICABLE_COMPONENTS_MAX 32

/** Bytes of a component image information entry in front of its version string. */
#define PLDM_COMPONENT_IMAGE_SIZE 22

/** Bytes of a descriptor in front of its value: type and length. */
#define PLDM_DESCRIPTOR_HEADER_SIZE 4

/** Room for the response to QueryDeviceIdentifiers, its PLDM header included. */
#define PLDM_FW_UPDATE_RESPONSE_SIZE 1024

/** Descriptor types (DSP0267, descriptor identifier table). */
#define PLDM_DESCRIPTOR_PCI_VENDOR_ID 0x0000
#define PLDM_DESCRIPTOR_IANA_ENTERPRISE_ID 0x0001
#define PLDM_DESCRIPTOR_PNP_VENDOR_ID 0x0003
#define PLDM_DESCRIPTOR_ACPI_VENDOR_ID 0x0004
#define PLDM_DESCRIPTOR_PCI_DEVICE_ID 0x0100
#define PLDM_DESCRIPTOR_PCI_SUBSYSTEM_VENDOR_ID 0x0101
#define PLDM_DESCRIPTOR_PCI_SUBSYSTEM_ID 0x0102
#define PLDM_DESCRIPTOR_PCI_REVISION_ID 0x0103
#define PLDM_DESCRIPTOR_PNP_PRODUCT_ID 0x0104
#define PLDM_DESCRIPTOR_ACPI_PRODUCT_ID 0x0105
#define PLDM_DESCRIPTOR_VENDOR_DEFINED 0xFFFF

/**
 * A firmware device ID record of a package. What it points to are heap copies of the context's;
 * after a failed pldm_parse_file() those that were not reached are null.
 */
typedef struct pldm_device_record {
    uint16_t record_len;            /**< RecordLength */
    uint16_t package_data_len;      /**< FirmwareDevicePackageDataLength */
    uint8_t desc_num;               /**< DescriptorCount */
    uint32_t applicable_components; /**< bit n: the package's component n is for this device */
    uint8_t component_image_set_ver_string_type;
    uint8_t component_image_set_ver_string_len;
    char* image_version_string; /**< ComponentImageSetVersionString, NUL-terminated */
    /**
     * FirmwareDevicePackageData and a NUL behind it. May be null in a package that was parsed
     * with success, where memory ran out: look before use.
     */
    uint8_t* package_data;
    uint8_t* descriptors; /**< the record's descriptors one behind the other, as in the file */
} pldm_device_record;

/** One component of a running update. */
typedef struct pldm_update_component {
    uint32_t classification_index; /**< as the device reported it for this component */
    uint8_t* image; /**< an entry of component_images; null where it is not for the device */
} pldm_update_component;

/**
 * The update agent's side of one firmware update. Allocated, zeroed and owned by the caller; what
 * the functions below allocate is released by pldm_free_ctx_resource().
 */
typedef struct pldm_fw_update_ctx {
    uint8_t state;                 /**< 0 idle, 1 learn components, 2 ready to transfer, 3 download,
                                        4 verify, 5 apply, 6 activate */
    uint8_t fd_will_send_pkg_data; /**< FDWillSendGetPackageDataCommand of RequestUpdate */
    uint8_t component_index;       /**< index into update_list of the current component */
    uint8_t record_index;          /**< index of the device record that is used */
    const char* package_file;      /**< path of the package: the caller's string, no copy */
    uint8_t last_percentage;       /**< progress last reported to the platform */
    uint32_t max_transfer_size;    /**< MaximumTransferSize in bytes, from the caller */
    uint16_t req_fw_data_wait;     /**< TimeBeforeRequestFirmwareData in seconds */
    uint16_t fd_metadata_len;      /**< FirmwareDeviceMetaDataLength of RequestUpdate */
    uint16_t package_data_len;     /**< package data length of the record parsed last */
    uint16_t device_record_num;    /**< DeviceIDRecordCount: entries of records */
    uint16_t component_num;        /**< ComponentImageCount: entries of component_images */
    uint16_t fd_components_num;    /**< entries of fd_component_params */
    uint32_t task_id;              /**< platform task whose progress is reported, from the caller */
    pldm_ctx pldm;                 /**< the terminus; its completion_code tells which step failed */
    char* active_version_string;   /**< of the device's active image set, NUL-terminated */
    char* pending_version_string;  /**< of the device's pending image set, NUL-terminated */
    char* package_version_string;  /**< PackageVersionString, NUL-terminated; null where memory
                                        ran out */
    /**
     * A copy of each component image information entry, exactly as in the file (DSP0267,
     * component image information area), with a NUL behind its version string.
     */
    uint8_t** component_images;
    pldm_device_record* records;
    uint8_t** fd_component_params;      /**< component parameter table entries of the device */
    pldm_device_record* matched_record; /**< the entry of records that matched the device */
    pldm_update_component* update_list; /**< component_num entries */
    void* pcie_session; /**< open PCIe session, null for none; see mctp_ctx.pcie_session */
} pldm_fw_update_ctx;

/* ---- The package file ------------------------------------------------------------------------ */

/**
 * Reads a firmware update package, checks its header and fills package_file,
 * package_version_string, device_record_num, records, package_data_len, component_num and
 * component_images. What an earlier package left in these members is released first, and with it
 * update_list and matched_record. Component images themselves stay in the file; their location is
 * not checked. Only the identifier of header format 1.0 is accepted, whatever the revision.
 *
 * The header is taken out of the file at once: a file that somebody changes or cuts meanwhile is
 * parsed as it was, or refused. The bytes that the checksum covers are those that were parsed.
 *
 * @param path  is kept, not copied: it must live as long as the context is used
 * @return 0; -1 where an argument is null, the file cannot be read, the header is malformed, its
 *         checksum is wrong or memory ran out. What was read until then stays in the context
 */
SIDEBAND_EXPORT int32_t pldm_parse_file(const char* path, pldm_fw_update_ctx* ctx);

/**
 * Opens a file and maps the whole of it, read-only and private. An empty file cannot be mapped.
 * @param addr  receives the address of the mapping
 * @param len   receives the file's size in bytes
 * @return the descriptor, to be given back with the mapping by close_pldm_file(); -1 on failure or
 *         where an argument is null: nothing is stored then, and nothing stays open
 */
SIDEBAND_EXPORT int32_t open_pldm_file(const char* path, void** addr, size_t* len);

/** Undoes open_pldm_file(). @return 0 */
SIDEBAND_EXPORT int32_t close_pldm_file(int32_t descriptor, void* addr, size_t len);

/**
 * CRC-32 of ISO-HDLC and IEEE 802.3 (reflected polynomial 0xEDB88320), the checksum of a package
 * header.
 * @param crc  0, or the result for the bytes in front of these
 */
SIDEBAND_EXPORT uint32_t CRC32(uint32_t crc, const uint8_t* buffer, size_t length);

/**
 * Prints a component image information entry to standard output.
 * @param ignored  not looked at
 * @param entry    PLDM_COMPONENT_IMAGE_SIZE bytes and the version string
 * @return 0
 */
SIDEBAND_EXPORT int32_t pldm_parse_component_image(const void* ignored, const uint8_t* entry);

/**
 * Releases all that the context holds on the heap and sets the pointers to null: the package, the
 * update list, the device's parameters and version strings. The terminus and package_file stay.
 * @return 0, also where ctx is null
 */
SIDEBAND_EXPORT int32_t pldm_free_ctx_resource(pldm_fw_update_ctx* ctx);

/* ---- Descriptors (DSP0267, descriptor definition) -------------------------------------------- */
/*
 * A descriptor is a 16-bit type, a 16-bit length and that many bytes of value, little-endian. The
 * functions trust the length: the caller has seen that the value is all there.
 */

/** The name of a descriptor type; "Unknown ID" for those without, that of the UUID among them. */
SIDEBAND_EXPORT const char* show_desc_id_string(uint16_t type);

/** Prints one descriptor to standard output. @return 0 */
SIDEBAND_EXPORT int32_t pldm_parse_record_descriptors(const uint8_t* descriptor);

/**
 * Reports on the diagnostic log why a device does not match. Any argument may be null.
 * @param response  a response to QueryDeviceIdentifiers from its PLDM header on, with room for
 *                  PLDM_FW_UPDATE_RESPONSE_SIZE bytes; descriptors that pass it are left out
 */
SIDEBAND_EXPORT void plds_show_descriptot(const uint8_t* package_descriptor,
                                          const uint8_t* device_descriptor,
                                          const uint8_t* response);

/**
 * Compares a package's descriptor with a device's. They match where type, length and value are
 * equal; a PCI revision ID of one byte also where the device's revision is the higher one.
 * @return 0 where they match; not 0 otherwise and where one is null
 */
SIDEBAND_EXPORT int32_t pldm_compare_descriptors(const uint8_t* package_descriptor,
                                                 const uint8_t* device_descriptor);

SIDEBAND_END_DECLS

#endif

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
#include <sideband/platform.h>
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
    uint8_t component_image_set_ver_string_type; /**< ComponentImageSetVersionStringType */
    uint8_t component_image_set_ver_string_len;  /**< ComponentImageSetVersionStringLength */
    char* image_version_string; /**< ComponentImageSetVersionString, NUL-terminated */
    /**
     * FirmwareDevicePackageData and a NUL behind it. Null if memory ran out, even in a package
     * that was parsed with success: look before use.
     */
    uint8_t* package_data;
    uint8_t* descriptors; /**< the record's descriptors one behind the other, as in the file */
} pldm_device_record;

/** One component of a running update. */
typedef struct pldm_update_component {
    /** As the device has reported it for this component. */
    uint32_t classification_index;
    /** An entry of component_images; null if it is not for the device. */
    uint8_t* image;
} pldm_update_component;

/**
 * The update agent's side of one firmware update. Allocated, zeroed and owned by the caller; what
 * the functions below allocate is released by pldm_free_ctx_resource(), the terminus of
 * pldm_fw_update_init() by pldm_free_ua_resource().
 */
typedef struct pldm_fw_update_ctx {
    /**
     * 0 idle, 1 learn components, 2 ready to transfer, 3 download, 4 verify, 5 apply, 6 activate.
     */
    uint8_t state;
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
    /** PackageVersionString, NUL-terminated; null if memory ran out. */
    char* package_version_string;
    /**
     * A copy of each component image information entry, exactly as in the file (DSP0267,
     * component image information area), with a NUL behind its version string.
     */
    uint8_t** component_images;
    pldm_device_record* records;        /**< device_record_num entries */
    uint8_t** fd_component_params;      /**< component parameter table entries of the device */
    pldm_device_record* matched_record; /**< the entry of records that matched the device */
    pldm_update_component* update_list; /**< component_num entries */
    void* pcie_session;  /**< open PCIe session, null for none; see mctp_ctx.pcie_session */
    size_t package_size; /**< bytes of the package file that was parsed; 0: none was */
    /** Its device, inode, size and times of last modification and last change of state. */
    uint64_t package_stamp[7];
    /**
     * MCTP_STRICT_... bits, from the caller. pldm_check_firmware_image() and its like give them to
     * the endpoint that they set up; pldm_fw_update_init() adds those of its prototype, and
     * pldm_nic_update() those of the endpoint that is bound. pldm_parse_file(), which needs no
     * endpoint, looks here alone.
     */
    uint32_t strict;
    sideband_error last_error; /**< why the last update failed: see pldm_fw_update_last_error() */
} pldm_fw_update_ctx;

/**
 * Why an update failed, or was not done in full: see error.h. It is the first failure since
 * pldm_nic_update(), pldm_request_firmware_update(), pldm_fw_update_init(), pldm_parse_file(),
 * pldm_check_firmware_image() or its like has begun, whichever was last, that has left a mark in
 * completion_code, ended a component or ended the update. If there is none, it is that of the last
 * command: ctx->pldm.last_error.
 *
 * A package that is bad or for another device is SIDEBAND_CAUSE_FILE, a device that asks for
 * nothing any more SIDEBAND_CAUSE_NO_ANSWER, and what it reports of a component
 * SIDEBAND_CODE_PLDM_FW_RESULT. pldm_nic_update() returns 0 for an update in which a component
 * failed: the record tells, if the package has no further record for the device.
 * @return a record in ctx; for null one that says "wrong argument"
 */
SIDEBAND_EXPORT const sideband_error* pldm_fw_update_last_error(const pldm_fw_update_ctx* ctx);

/* ---- The package file ------------------------------------------------------------------------ */

/**
 * Reads a firmware update package, checks its header and fills package_file,
 * package_version_string, device_record_num, records, package_data_len, component_num and
 * component_images. What an earlier package left in these members is released first, and with it
 * update_list and matched_record. Component images themselves stay in the file; their location is
 * not checked. Only the identifier of header format 1.0 is accepted, whatever the revision.
 *
 * With MCTP_STRICT_PACKAGE in ctx->strict (not in that of an endpoint: none is needed here) a
 * package that was parsed is refused, with a line of debug_log(), if
 *  - the revision is not 1;
 *  - ComponentBitmapBitLength is no multiple of 8, or less than ComponentImageCount;
 *  - there is no device record;
 *  - a version string has a reserved type (6 and above) or no bytes: that of the package, of a
 *    record's image set or of a component;
 *  - RecordLength is not that of the record's fields, or the record has no descriptor;
 *  - a record marks a component that the package does not have. Also if it marks one behind the
 *    first PLDM_APPLICABLE_COMPONENTS_MAX, which the standard allows: an update would leave it out;
 *  - the image of a component begins inside the header or ends behind the end of the file.
 *
 * Texts of the package are printed with their control characters as \xNN, here and below; so are
 * those of devices.
 *
 * The header is taken out of the file at once: a file that somebody changes or cuts meanwhile is
 * parsed as it was, or refused. The bytes that the checksum covers are those that were parsed.
 *
 * @param path  of a regular file, or a symbolic link to one; anything else in its place is refused
 *              at once. Is kept, not copied: it must live as long as the context is used
 * @return 0; -1 if an argument is null, the file cannot be read, the header is malformed, its
 *         checksum is wrong, it is refused strictly or memory ran out. What was read until then
 *         stays in the context, a component image information entry that the header ends in among
 *         it; entries that were not reached, or that the file ends in, are null
 */
SIDEBAND_EXPORT int32_t pldm_parse_file(const char* path, pldm_fw_update_ctx* ctx);

/**
 * Opens a regular file, without waiting, and maps the whole of it, read-only and private. An empty
 * file cannot be mapped.
 * @param path  of the file
 * @param addr  receives the address of the mapping
 * @param len   receives the file's size in bytes
 * @return the descriptor, to be given back with the mapping by close_pldm_file(); -1 on failure or
 *         if an argument is null: nothing is stored then, and nothing stays open
 */
SIDEBAND_EXPORT int32_t open_pldm_file(const char* path, void** addr, size_t* len);

/** Undoes open_pldm_file(): descriptor, addr and len are what that gave. @return 0 */
SIDEBAND_EXPORT int32_t close_pldm_file(int32_t descriptor, void* addr, size_t len);

/**
 * CRC-32 of ISO-HDLC and IEEE 802.3 (reflected polynomial 0xEDB88320), the checksum of a package
 * header.
 * @param crc  0, or the result for the bytes in front of these length bytes at buffer
 * @return the checksum of all of them
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
 * update list, the device's parameters and version strings. Their counts become 0. The terminus and
 * package_file stay.
 * @return 0, even if ctx is null
 */
SIDEBAND_EXPORT int32_t pldm_free_ctx_resource(pldm_fw_update_ctx* ctx);

/* ---- Descriptors (DSP0267, descriptor definition) -------------------------------------------- */
/*
 * A descriptor is a 16-bit type, a 16-bit length and that many bytes of value, little-endian. The
 * functions trust the length: the caller has seen that the value is all there. package_descriptor
 * is one of a package, device_descriptor one that the device has reported.
 */

/** @return the name of a descriptor type; "Unknown ID" without one, as that of the UUID is */
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
 * Compares a package's descriptor with a device's. They match if type, length and value are
 * equal; a PCI revision ID of one byte also if the device's revision is the higher one.
 * @return 0 if they match; not 0 otherwise and if one is null
 */
SIDEBAND_EXPORT int32_t pldm_compare_descriptors(const uint8_t* package_descriptor,
                                                 const uint8_t* device_descriptor);

/* ---- The agent's requests (DSP0267, PLDM for firmware update commands) ----------------------- */
/*
 * All take a context whose terminus is bound, and return -1 without any message if the context
 * is null or its terminus has no transfer_op. If an exchange fails they return its negative
 * result, and pldm.completion_code has the device's code or PLDM_CC_RETRIES_EXHAUSTED, unless a
 * failure mark is named below. -1 also if memory runs out or an answer is too short.
 *
 * Those that "go on" set the state and call fw_update_state_fn(), so that the rest of the update
 * has been tried when they return; their result is about their own step only.
 */

/** Failure marks that the functions below leave in pldm.completion_code. */
#define PLDM_FW_MARK_UPDATE_COMPONENT 0x14  /**< the exchange of UpdateComponent failed */
#define PLDM_FW_MARK_REQUEST_UPDATE 0x56    /**< the device is unable to initiate an update */
#define PLDM_FW_MARK_TRANSFER_COMPLETE 0x57 /**< error reported, or the answer was not sent */
#define PLDM_FW_MARK_VERIFY_COMPLETE 0x58   /**< error reported, or the answer was not sent */
#define PLDM_FW_MARK_APPLY_COMPLETE 0x59    /**< error reported, or the answer was not sent */

/**
 * QueryDeviceIdentifiers (0x01): whether a device record of a package is for this device. Every
 * descriptor of the record must match one of the device's; see pldm_compare_descriptors(). The
 * first without a match is reported. A record without descriptors matches every device that
 * answers.
 * @param record  with descriptors as pldm_parse_file() leaves them
 * @return 0 if it is; -1 if it is not, or record is null; else see above
 */
SIDEBAND_EXPORT int32_t pldm_query_device_identifiers(pldm_fw_update_ctx* ctx,
                                                      const pldm_device_record* record);

/**
 * GetFirmwareParameters (0x02): fills active_version_string, pending_version_string,
 * fd_components_num and fd_component_params, and prints them; what was there is released.
 * @return 0, even if the component table does not end inside the response or memory ran out
 *         while it was copied (pldm.last_error has SIDEBAND_CAUSE_MEMORY then): see
 *         pldm_parse_firmware_para(); -1 if the answer is to another
 *         command; else see above
 */
SIDEBAND_EXPORT int32_t pldm_get_firmware_parameters(pldm_fw_update_ctx* ctx);

/**
 * Decodes a response to GetFirmwareParameters as described there. Entries that were not reached
 * are null in fd_component_params; one that passes the end of the response is all zeros.
 * @param response  from its PLDM header on
 * @param length    bytes at response
 * @return 0; -1 if an argument is null, the response ends early or memory ran out. The version
 *         strings and the entries in front of the failure are kept
 */
SIDEBAND_EXPORT int32_t pldm_parse_firmware_para(pldm_fw_update_ctx* ctx, const uint8_t* response,
                                                 int32_t length);

/**
 * RequestUpdate (0x10): offers the package to the device and, if it accepts, goes on in state 1
 * with fd_metadata_len and fd_will_send_pkg_data as it answered. The version string is that of the
 * record at record_index; any record but the first is remarked upon on standard output. A device
 * that asks to be asked again (0x8E) is given a second, and the update goes on in its state.
 * @return 0; -2 if the device was in update mode already (0x81) and CancelUpdate has been sent;
 *         -1 if it is unable to initiate an update (0x8A, mark 0x56) or there is no such record;
 *         else see above
 */
SIDEBAND_EXPORT int32_t pldm_request_firmware_update(pldm_fw_update_ctx* ctx);

/**
 * GetDeviceMetaData (0x12): has the device send its metadata, in up to seven parts, and drops it.
 * @param len  bytes of metadata that one part may have
 * @return 0, whether all, some or none of it came; -1 if memory ran out or the context is not
 *         usable
 */
SIDEBAND_EXPORT int32_t pldm_get_device_metadata(pldm_fw_update_ctx* ctx, uint16_t len);

/**
 * UpdateComponent (0x14): offers an element of update_list and, if the device takes it, goes on
 * in state 3 with req_fw_data_wait as it answered, or 90 seconds. Asks for a forced update if
 * the package's ComponentOptions or pldm_force_update_flag do.
 * @param index  into update_list
 * @return 0; -1 if the list has no component there, the device refuses it or is not in update
 *         mode (0x80); else see above, with mark 0x14
 */
SIDEBAND_EXPORT int32_t pldm_update_component_table(pldm_fw_update_ctx* ctx, uint8_t index);

/**
 * GetMetaData (0x19): the first part of the device's metadata.
 * @param buf  receives the response from its PLDM header on
 * @param len  room at buf in bytes
 * @return 0; -1 if buf is null; else see above
 */
SIDEBAND_EXPORT int32_t pldm_get_meta_data(pldm_fw_update_ctx* ctx, uint8_t* buf, uint16_t len);

/**
 * ActivateFirmware (0x1A): the request byte is 2 if the first component of update_list that has an
 * image wants self-contained activation, else 0. With MCTP_STRICT_PLDM it is 1 in place of 2, as
 * the standard has it.
 * @return 0; -1 if update_list has no component, or for the codes 0x80, 0x84, 0x85, 0x8B and
 *         0x8C; else see above
 */
SIDEBAND_EXPORT int32_t pldm_activate_firmware(pldm_fw_update_ctx* ctx);

/** GetStatus (0x1B): prints the device's state to standard output. @return 0; else see above */
SIDEBAND_EXPORT int32_t pldm_get_status(pldm_fw_update_ctx* ctx);

/**
 * CancelUpdateComponent (0x1C): skips the current component and goes on in state 2 with the next
 * one, unless component_index is 255: it counts no further. A device that is busy in background
 * (0x86) is asked up to three times, a second apart.
 * @return 0; -1 if the device stays busy or is not in update mode (0x80); else see above
 */
SIDEBAND_EXPORT int32_t pldm_cancel_update_component(pldm_fw_update_ctx* ctx);

/** CancelUpdate (0x1D): as pldm_cancel_update_component(), but the update ends, in state 0. */
SIDEBAND_EXPORT int32_t pldm_cancel_update(pldm_fw_update_ctx* ctx);

/* ---- The agent's answers to the device's requests (DSP0267) ---------------------------------- */
/*
 * Each takes req, a request of the device from its PLDM header on, in a buffer of at least
 * PLDM_FW_UPDATE_REQUEST_SIZE bytes, and answers it through send_op. -1 without an answer if an
 * argument is null, the terminus has no send_op or memory runs out. Some progress is kept for the
 * process: there is one update at a time.
 */

/** Bytes of the longest request of a device, RequestFirmwareData. */
#define PLDM_FW_UPDATE_REQUEST_SIZE 11

/**
 * GetPackageData (0x11): the next part of the first device record's package data, at most
 * max_transfer_size bytes of it. package_data_len bytes are sent in all, padded with zeros.
 * @return 1 if the part was the last one, sent or not; otherwise the result of send_op; -1 if the
 *         answer was an error: 0x88 if the device has not announced the command, 0x8F if there is
 *         no package data, 0x90 for another handle than that of the next part, 0x91 for a flag that
 *         is not GetFirstPart in the first and GetNextPart in the other requests. The next request
 *         is then a first one again
 */
SIDEBAND_EXPORT int32_t pldm_get_package_data(pldm_fw_update_ctx* ctx, const uint8_t* req);

/**
 * RequestFirmwareData (0x15): a piece of the current component, from the package file, which is
 * opened for each request. Bytes behind the end of the file are sent as zeros. Reports progress
 * between 10 and 95 for task_id, in steps of five and more; bytes behind the end of the component
 * are none. The line on standard output counts them.
 *
 * The file must stay as it was when pldm_parse_file() read it, the time of its last change of state
 * included: one that is replaced, written to, touched or given other permissions ends the
 * update of the component, since the device would get a mixture of two images. A context that was
 * not filled by pldm_parse_file() (package_size 0) takes the file as it is for each request.
 * @return the result of send_op; -1 without an answer if the file cannot be opened or mapped, or
 *         there is no such component; -1 if the answer was an error: 0x01 (ERROR) if the file
 *         has changed or cannot be read, 0x82 for a piece that ends more than max_transfer_size
 *         behind the end of the file, 0x83 for one of less than 32 or more than max_transfer_size
 *         bytes
 */
SIDEBAND_EXPORT int32_t pldm_request_fw_data(pldm_fw_update_ctx* ctx, const uint8_t* req);

/**
 * TransferComplete (0x16): goes to state 4 if the device reports success, whatever the state
 * was. Otherwise, and if the answer cannot be sent, sets mark 0x57 and cancels the component;
 * see pldm_cancel_update_component(). The mark stands whatever becomes of the cancel and of what
 * goes on behind it, unless a later step sets one of its own.
 * @return 0; -1 if the component was given up
 */
SIDEBAND_EXPORT int32_t pldm_transfer_complete(pldm_fw_update_ctx* ctx, const uint8_t* req);

/** VerifyComplete (0x17): as pldm_transfer_complete(), but state 5, mark 0x58. @return the same */
SIDEBAND_EXPORT int32_t pldm_verify_complete(pldm_fw_update_ctx* ctx, const uint8_t* req);

/**
 * ApplyComplete (0x18): goes on in the same state with the next component if the device reports
 * success (0 or 1), unless component_index is 255: it counts no further. Otherwise as
 * pldm_transfer_complete(), with mark 0x59.
 * @return 0; -1 if the component was given up
 */
SIDEBAND_EXPORT int32_t pldm_apply_complete(pldm_fw_update_ctx* ctx, const uint8_t* req);

/* ---- The state machine (DSP0267, update agent and firmware device states) -------------------- */

/** Failure marks that the state machine leaves in pldm.completion_code. */
#define PLDM_FW_MARK_PASS_COMPONENT_TABLE 0x13 /**< PassComponentTable failed, but not by 0x80 */
#define PLDM_FW_MARK_TIMEOUT 0x5A /**< the device went silent, or asked without an end */

/** Most components of a package that can be updated: their index has 8 bits. */
#define PLDM_FW_COMPONENTS_MAX 255

/**
 * Acts once on the state of the context. What it calls goes on in the next state by calling it
 * again, so that the rest of the update has been tried when the outermost call returns. It is
 * nested a few levels deep for each component, which takes less than 1 KiB of stack each.
 *
 *  1 learn components   serves GetPackageData if the device has announced it, fetches the
 *                       device's metadata, builds update_list from matched_record and orders it,
 *                       sends PassComponentTable (0x13) for each component, goes on in state 2.
 *                       Stops if the device reports no classification index for a component,
 *                       if it accepts none, without a matched_record, without components or
 *                       with more than PLDM_FW_COMPONENTS_MAX
 *  2 ready to transfer  pldm_update_component_table() for component_index; a component that the
 *                       device does not take is skipped. Stops with more than
 *                       PLDM_FW_COMPONENTS_MAX components
 *  3 download           receives the device's requests and answers them, until the component is
 *                       done or given up. A device that is silent for too long, or sends too many
 *                       messages, is left to itself, with PLDM_FW_MARK_TIMEOUT; see below
 *  5 apply              state 2 for the next component; state 6 and progress 97 behind the last
 *  6 activate           reports progress 98 and sends ActivateFirmware
 *
 * The other states do nothing. Each call prints the state to standard output.
 *
 * With MCTP_STRICT_PLDM states 1 and 3 answer no message but requests of PLDM type 5 (Rq set,
 * header version 0), and no other one sets the wait that is told below; without the bit the command
 * code alone decides.
 *
 * How long it takes is up to the device. In states 1 and 3 the silence that ends the loop is more
 * than 6 times req_fw_data_wait seconds. In front of the first message of a component that is what
 * the device has answered to UpdateComponent, 65,535 at most: 393,210 seconds, four and a half
 * days; in state 1 it is what req_fw_data_wait holds already, nothing in a fresh context: there one
 * second without a message is too long. Each message, one that is ignored too, starts the wait
 * anew, of 540 seconds then. What bounds that is the number of messages:
 *
 *  state 1   4096 + 4 for each byte of package_data_len: 266,236 at most
 *  state 3   4096 + 4 for each 32 bytes of the component, as far as they are in the package if
 *            package_size tells its size: 4096 for a component of less than 32 bytes, 135,168 for
 *            one of 1 MiB, some 537 million for the largest
 *
 * A device that sends an ignored command every 540 seconds so holds the caller for 25 days and a
 * half with a component of less than 32 bytes, and for 844 days with one of 1 MiB. State 3 is
 * entered as often as the list has components at most, perhaps each time for the same one: a device
 * that refuses others before it is offered it again. The library has no other end for it: a
 * service that cannot wait runs the update in a process that it can end.
 * @return 0, whatever became of the update: pldm.completion_code and state tell; -1 if ctx is
 *         null
 */
SIDEBAND_EXPORT int32_t fw_update_state_fn(pldm_fw_update_ctx* ctx);

/* ---- Devices that can be updated ------------------------------------------------------------- */

/** Fills a context for a card. As MCTP_binding_SMBUS() and MCTP_binding_PCIE() of the platform. */
typedef void (*pldm_binding_setup)(struct mctp_ctx* ctx, uint8_t setup_parameter,
                                   const plt_card_info* card);

/** How the cards of a vendor are reached. 20 bytes on a 32-bit machine. */
typedef struct pldm_fw_device {
    uint16_t vendor_id;      /**< PCI vendor ID */
    uint8_t setup_parameter; /**< for the binding set-up; its meaning is the platform's */
    uint8_t reserved;
    uint32_t pcie_transfer_size;      /**< max_transfer_size over PCIe VDM, in bytes */
    pldm_binding_setup pcie_binding;  /**< MCTP_binding_PCIE; null: not reached over PCIe */
    uint32_t smbus_transfer_size;     /**< max_transfer_size over SMBus, in bytes */
    pldm_binding_setup smbus_binding; /**< MCTP_binding_SMBUS; null: not reached over SMBus */
} pldm_fw_device;

SIDEBAND_STATIC_ASSERT(sizeof(void*) != 4 || sizeof(pldm_fw_device) == 20, "device table row");

/** Network cards. */
SIDEBAND_EXPORT extern const pldm_fw_device pldm_nic_fw_table[];
SIDEBAND_EXPORT extern const uint32_t pldm_nic_fw_table_num; /**< rows: 4 */
/** Graphics processors. */
SIDEBAND_EXPORT extern const pldm_fw_device pldm_gpu_fw_table[];
SIDEBAND_EXPORT extern const uint32_t pldm_gpu_fw_table_num; /**< rows: 1 */

/**
 * Not 0: every UpdateComponent asks for a forced update; 0: if the package asks for one. Set
 * by pldm_nic_update(), read for each request, without a lock.
 */
SIDEBAND_EXPORT extern int pldm_force_update_flag;

/** For other users; null unless they set it, not used here. */
SIDEBAND_EXPORT extern void* file_buf;

/** @return index of the first row for the PCI vendor_id, -1 if there is none */
SIDEBAND_EXPORT int32_t pldm_get_nic_fw_index(uint16_t vendor_id);
SIDEBAND_EXPORT int32_t pldm_get_gpu_fw_index(uint16_t vendor_id);

/* ---- The update of a card -------------------------------------------------------------------- */
/*
 * A service checks the package against the card, updates, and is done: pldm_nic_update() releases
 * what pldm_check_firmware_image() has set up. After a check that failed, or that no update
 * follows, pldm_free_ua_resource() does.
 */

/** Failure marks that these leave in pldm.completion_code. */
#define PLDM_FW_MARK_TERMINUS 0x51      /**< terminus bring-up or discovery failed */
#define PLDM_FW_MARK_NO_FW_UPDATE 0x52  /**< the device does not support PLDM firmware update */
#define PLDM_FW_MARK_PACKAGE 0x53       /**< the package cannot be parsed, or not be updated with */
#define PLDM_FW_MARK_NO_RECORD 0x54     /**< no device record of the package matches */
#define PLDM_FW_MARK_FW_PARAMETERS 0x55 /**< GetFirmwareParameters failed */

/** Flags of pldm_nic_update(). */
#define PLDM_FW_FLAG_SHOW_IMAGE 0x01 /**< with QUERY: prints the package's version as well */
#define PLDM_FW_FLAG_QUERY 0x02      /**< prints versions, updates nothing */
#define PLDM_FW_FLAG_FORCE 0x04      /**< asks for a forced update of every component */

/** Where a card is plugged in. */
typedef struct pldm_card_location {
    uint8_t bus;    /**< PCIe bus number */
    uint8_t device; /**< PCIe device number */
} pldm_card_location;

/**
 * Brings up the terminus and sees that it can be updated: pldm_terminus_init(), pldm_discovery()
 * and support of PLDM type 5. The terminus stays bound, even if it cannot.
 * @param mctp  a prototype, as for pldm_terminus_init()
 * @return 0; PLDM_ERROR_ARGUMENT if an argument is null, or with PLDM_FW_MARK_NO_FW_UPDATE;
 *         the result of the step that failed, with PLDM_FW_MARK_TERMINUS
 */
SIDEBAND_EXPORT int32_t pldm_fw_update_init(pldm_fw_update_ctx* ctx, const mctp_ctx* mctp);

/**
 * Whether a package is for a graphics card: parses it, brings the card's terminus up and tries the
 * package's device records in their order. Takes the I2C channel mutex (over SMBus) and inside it
 * the global lock of at_p_St_GlobalVar, and holds them while it uses the bus. Sets
 * max_transfer_size from the device table. The terminus comes first and then the package: a card
 * that does not answer gives -5 whatever the package is, and -6 is said of a card that is up.
 * @param path      as for pldm_parse_file()
 * @param ctx       zeroed, apart from task_id and strict
 * @param location  handed to PCIEDeviceMux()
 * @param mctp      receives the addressing that the terminus is brought up with: what was in it is
 *                  gone, then the binding set-up fills it, see MCTP_binding_SMBUS()
 * @param card      vendor_id and flags from the caller, who also fills in what PCIEDeviceMux() and
 *                  the binding set-up want of the rest
 * @return 0 if a device record matches;
 *         -1 GlobalParaInit() failed, a lock was refused or an argument is null;
 *         -2 the host is not powered on;
 *         -3 the device table has no such vendor;
 *         -4 the binding set-up chose a binding that is neither SMBus nor PCIe;
 *         -5 pldm_fw_update_init() failed;
 *         -6 pldm_parse_file() failed;
 *         -7 no device record matches
 */
SIDEBAND_EXPORT int32_t pldm_check_GPU_firmware_image(const char* path, pldm_fw_update_ctx* ctx,
                                                      const pldm_card_location* location,
                                                      mctp_ctx* mctp, plt_card_info* card);

/**
 * As pldm_check_GPU_firmware_image(), for a network card.
 * @return 0 if a device record matches or the package has none; -1 otherwise
 */
SIDEBAND_EXPORT int32_t pldm_check_firmware_image(const char* path, pldm_fw_update_ctx* ctx,
                                                  const pldm_card_location* location,
                                                  mctp_ctx* mctp, plt_card_info* card);

/**
 * Updates a device, network card or not, with a package: every device record that matches the
 * device is used, but only the first one's update goes beyond PassComponentTable: behind it a
 * second match leaves the device in update mode and state at 2. Opens a PCIe session unless the
 * context has one. A device that is in update mode already is made to leave it and asked again,
 * once for each record of the package, whose version is named then. Everything that the context
 * holds, its terminus included, is released before it returns; pldm.completion_code and state stay
 * and tell which step failed. Takes no lock: the caller sees to it that there is one update at a
 * time.
 * @param path     as for pldm_parse_file(); without device records or with more than
 *                 PLDM_FW_COMPONENTS_MAX components it is refused, with PLDM_FW_MARK_PACKAGE
 * @param ctx      with its terminus bound, max_transfer_size (bytes, 32 or more) and task_id set,
 *                 the rest zeroed or as pldm_check_firmware_image() has left it
 * @param ignored  not looked at
 * @param flags    PLDM_FW_FLAG_...
 * @return result of the last RequestUpdate, or of the last CancelUpdate that failed; -1 if none
 *         was sent, as with PLDM_FW_FLAG_QUERY
 */
SIDEBAND_EXPORT int32_t pldm_nic_update(const char* path, pldm_fw_update_ctx* ctx, void* ignored,
                                        uint32_t flags);

/**
 * Releases all that the context holds: pldm_free_ctx_resource() and pldm_terminus_deinit(). A PCIe
 * session stays open.
 * @return 0; -1 if ctx is null
 */
SIDEBAND_EXPORT int32_t pldm_free_ua_resource(pldm_fw_update_ctx* ctx);

SIDEBAND_END_DECLS

#endif

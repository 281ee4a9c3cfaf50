/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NVMe-MI over MCTP (DSP0235): the context, the management commands of NVMe-MI 1.x, and NVMe admin
 * commands tunnelled to a controller. One context is used by one thread at a time.
 *
 * Multi-byte fields of NVMe-MI are little-endian; arguments and records are in the machine's order.
 */
#ifndef SIDEBAND_NVME_MI_H
#define SIDEBAND_NVME_MI_H

#include <stdint.h>

#include <sideband/export.h>
#include <sideband/mctp.h>

SIDEBAND_BEGIN_DECLS

/** Room for the longest message body that is received. */
#define NVMEMI_RESPONSE_MAX 5120
/** Bytes of a management command's body in front of its data (NVMe-MI, Request Message). */
#define NVMEMI_REQUEST_SIZE 15
/** Bytes of a response body in front of its data: message type bytes, status, three bytes more. */
#define NVMEMI_RESPONSE_SIZE 7

/** Bytes of a tunnelled admin command's body in front of its data. */
#define NVME_ADMIN_REQUEST_SIZE 67
/** Bytes of its response in front of the data: as above, completion queue entry dwords 0, 1, 3. */
#define NVME_ADMIN_RESPONSE_SIZE 19
/** Most data that one tunnelled command moves, either way. */
#define NVME_ADMIN_DATA_MAX 4096

/** Response message status (NVMe-MI, Response Message Status Values). */
#define NVMEMI_STATUS_SUCCESS 0x00
#define NVMEMI_STATUS_MORE_PROCESSING_REQUIRED 0x01
#define NVMEMI_STATUS_INVALID_PARAMETER 0x04

/** Parts of completion queue entry dword 3, which a failed admin command returns. */
#define NVME_COMPLETION_SC(dword3) (((uint32_t)(dword3) >> 17) & 0xFFu)
#define NVME_COMPLETION_SCT(dword3) (((uint32_t)(dword3) >> 25) & 0x7u)
#define NVME_COMPLETION_MORE(dword3) (((uint32_t)(dword3) >> 30) & 0x1u)
#define NVME_COMPLETION_DNR(dword3) (((uint32_t)(dword3) >> 31) & 0x1u)

typedef struct nvmemi_ctx nvmemi_ctx;

/**
 * Sends a request and receives its response: up to three times, until something came that was not
 * damaged, as far as an integrity check is verified. When the
 * endpoint asks for more processing time, reads up to three times more, 200 ms apart; a second
 * such answer is handed back as it is. The bus is free during the 200 ms and held for each read,
 * over SMBus of either kind.
 * @param request_length     bytes at request
 * @param response_capacity  room at response; more than NVMEMI_RESPONSE_MAX bytes never arrive
 * @param request            message body without the MCTP message type byte
 * @param response           receives the body; untouched if the result is -1
 * @return bytes stored at response, an integrity check among them as far as there is room (with
 *         MCTP_STRICT_INTEGRITY none); -1 if three exchanges or three reads failed, or more came
 *         than there is room for
 */
typedef int32_t (*nvmemi_request_op)(nvmemi_ctx* ctx, uint32_t request_length,
                                     uint32_t response_capacity, uint8_t* request,
                                     uint8_t* response);

/** An NVMe-MI endpoint. Allocated, zeroed before it is first initialised, owned by the caller. */
struct nvmemi_ctx {
    mctp_ctx* mctp;               /**< the endpoint; freed by nvmemi_deinit() */
    nvmemi_request_op mi_request; /**< installed by the functions below */
    mctp_owned owned;             /**< library: the endpoint that an initialiser has allocated */
    sideband_error last_error;    /**< why the last call failed: see nvmemi_last_error() */
};

/* ---- Failures -------------------------------------------------------------------------------- */

/**
 * Why the last call that took the context failed, also one in a record of parameters, and one that
 * has no endpoint: see error.h. A call whose record of parameters is null has no context to tell.
 * @return the record in ctx, which the next call changes; for null one that says "wrong argument"
 */
SIDEBAND_EXPORT const sideband_error* nvmemi_last_error(const nvmemi_ctx* ctx);

/* ---- Strictness ------------------------------------------------------------------------------ */
/*
 * What the bits of ctx->mctp->strict change here. The initialisers take them from config->strict;
 * later they can be set in the endpoint, for what is sent from then on.
 *
 * MCTP_STRICT_NVME_MI:
 *  - A response must be one to the request (NVMe-MI 1.2, clause 3.1, NVMe-MI message parameters):
 *    ROR is set, NVMe-MI message type and command slot are the request's; reserved bits do not
 *    count. Of any other message nothing is believed, no "more processing required" either. The
 *    command gives -1, at once, and debug_log() gets the first byte of both: "nvmemi, message %02x
 *    is no response to request %02x". Without the bit every message that comes is the response.
 *    nvmemi_ctx.mi_request and nvme_admin_cmd() hand over what came all the same.
 *  - An admin command has failed if the status code type is not 0 though the status code is (NVMe,
 *    completion queue entry, status field): the result is dword 3. Without the bit that is success.
 *  - nvme_namespace_mgmt_attachment() sends its controller list.
 *
 * MCTP_STRICT_INTEGRITY: what the endpoint delivers has been checked, and has no integrity check
 * any more (DSP0236, clause 8.9.1; NVMe-MI, message integrity check): bytes at the end that look
 * like one are data. Without the bit the last four bytes are taken off if they are the right check
 * of what is in front of them, and are data if not. There is no room for more than the response
 * that is wanted, so that one which lacks one to three bytes of it is not noticed: the beginning of
 * its check stands for them, in data that were read, in a health status or in dword 3 of a
 * completion. nvme_get_log_page() has room for all of it.
 *
 * The other bits are the endpoint's own.
 */

/* ---- Life ------------------------------------------------------------------------------------ */

/**
 * Creates an endpoint with packets of 64 bytes and known EIDs: nothing is sent. If the binding
 * fails, the endpoint stays allocated all the same: nvmemi_deinit() frees it, as does the next
 * nvmemi_init() or nvmemi_init_for_MARV(). An endpoint that was put into ctx->mctp by hand is not
 * freed by these two.
 * @param config  a prototype whose configuration members (see mctp_ctx) are copied, the addressing
 *                of the bus and strict among them, but not unit_size, skip_discovery and route
 * @return the result of mctp_init2(); -1 also if an argument is null or memory ran out
 */
SIDEBAND_EXPORT int32_t nvmemi_init(nvmemi_ctx* ctx, const mctp_ctx* config);

/**
 * As nvmemi_init(), by mctp_init2_with_i2c_delay(): for drives that answer slowly. The bus is free
 * between request and response, config->i2c_delay_us apart. Needs MCTP_BINDING_KIND_SMBUS.
 * @return as nvmemi_init(); -1 for any other binding kind
 */
SIDEBAND_EXPORT int32_t nvmemi_init_for_MARV(nvmemi_ctx* ctx, const mctp_ctx* config);

/** Frees the endpoint, whoever allocated it. @return 0, also for null */
SIDEBAND_EXPORT int32_t nvmemi_deinit(nvmemi_ctx* ctx);

/* ---- Management commands (NVMe-MI, Management Interface Command Set) ------------------------- */
/*
 * All return 0 on success, the response message status (1 to 255) if it is not success, and -1
 * if an argument is null, data of no length among them, the exchange failed or the response was
 * malformed. What they fill stays as it was unless the result is 0. port is a port identifier,
 * offset one in the VPD, in bytes.
 *
 * Failures are printed to standard output: a null ctx, no memory, a failed exchange, a status, a
 * frequency, type, size or number that is none. To debug_log() go responses that are too short for
 * a status or for what they claim to hold, structures that there is no room for, and too long a VPD
 * write. A null argument other than ctx is not told.
 */

/** SMBus/I2C frequencies. */
#define NVMEMI_SMBUS_100_KHZ 1
#define NVMEMI_SMBUS_400_KHZ 2
#define NVMEMI_SMBUS_1_MHZ 3

/**
 * Configuration Get, SMBus/I2C Frequency.
 * @param port       port identifier
 * @param frequency  receives NVMEMI_SMBUS_..., 0 if the port is none of SMBus
 */
SIDEBAND_EXPORT int32_t nvmemi_config_get_smbus_freq(nvmemi_ctx* ctx, uint8_t port,
                                                     uint8_t* frequency);

/** Configuration Set, SMBus/I2C Frequency. @return also -1, unsent, for no NVMEMI_SMBUS_... */
SIDEBAND_EXPORT int32_t nvmemi_config_set_smbus_freq(nvmemi_ctx* ctx, uint8_t port,
                                                     uint8_t frequency);

/** Configuration Get, Health Status Change. It has no value: only the status counts. */
SIDEBAND_EXPORT int32_t nvmemi_config_get_health_status_change(nvmemi_ctx* ctx);

/** Configuration Set, Health Status Change. @param changes  the bits to clear (dword 1) */
SIDEBAND_EXPORT int32_t nvmemi_config_set_health_status_change(nvmemi_ctx* ctx,
                                                               const uint32_t* changes);

/** Configuration Get, MCTP Transmission Unit Size. @param size  receives bytes */
SIDEBAND_EXPORT int32_t nvmemi_config_get_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port,
                                                            uint16_t* size);

/** Configuration Set, MCTP Transmission Unit Size. The context goes on with packets of 64 bytes. */
SIDEBAND_EXPORT int32_t nvmemi_config_set_mctp_tx_unit_size(nvmemi_ctx* ctx, uint8_t port,
                                                            uint16_t size);

/** NVM Subsystem Health Data Structure. */
typedef struct nvme_subsystem_health {
    uint8_t nss;            /**< NVM subsystem status: drive functional, link active, ... */
    uint8_t smart_warnings; /**< inverted critical warnings of all controllers together */
    uint8_t ctemp;          /**< composite temperature: degrees Celsius as coded there */
    uint8_t pdlu;           /**< percentage of drive life used; 255: more than 254 */
    uint16_t ccs;           /**< composite controller status */
    uint16_t reserved;
} nvme_subsystem_health;

SIDEBAND_STATIC_ASSERT(sizeof(nvme_subsystem_health) == 8, "as long as its structure");

/** Dword 1 of the subsystem poll: reset the composite controller status. */
#define NVMEMI_HEALTH_CLEAR_STATUS 0x80000000u

/**
 * NVM Subsystem Health Status Poll.
 * @param nmd1  dword 1: 0 or NVMEMI_HEALTH_CLEAR_STATUS
 */
SIDEBAND_EXPORT int32_t nvmemi_nvm_subsystem_health_status_poll(nvmemi_ctx* ctx,
                                                                const uint32_t* nmd1,
                                                                nvme_subsystem_health* out);

/** Controllers that one poll may report. */
#define NVMEMI_CONTROLLERS_MAX 2

/** Controller Health Data Structure. */
typedef struct nvme_controller_health {
    uint16_t ctlid; /**< controller identifier */
    uint16_t csts;  /**< controller status */
    uint16_t ctemp; /**< composite temperature in Kelvin */
    uint8_t pdlu;   /**< percentage used; 255: more than 254 */
    uint8_t spare;  /**< available spare in percent */
    uint8_t cwarn;  /**< critical warnings */
} nvme_controller_health;

/** Dword 0 of the controller poll: first controller, most entries less one, which functions. */
#define NVMEMI_CONTROLLER_POLL_SCTLID(id) (0xFFFFu & (uint32_t)(id))
#define NVMEMI_CONTROLLER_POLL_MAXRENT(entries_less_one) \
    ((0xFFu & (uint32_t)(entries_less_one)) << 16)
#define NVMEMI_CONTROLLER_POLL_INCF 0x01000000u
#define NVMEMI_CONTROLLER_POLL_INCPF 0x02000000u
#define NVMEMI_CONTROLLER_POLL_INCVF 0x04000000u
#define NVMEMI_CONTROLLER_POLL_ALL 0x80000000u

/**
 * Controller Health Status Poll.
 * @param nmd0     dword 0: NVMEMI_CONTROLLER_POLL_...
 * @param nmd1     dword 1: which changes select a controller; bit 31 clears the changed flags
 * @param count    receives the number of entries, 0 to NVMEMI_CONTROLLERS_MAX
 * @param entries  room for NVMEMI_CONTROLLERS_MAX; those behind count stay as they were
 * @return also -1 if the endpoint reports more entries than that
 */
SIDEBAND_EXPORT int32_t nvmemi_controller_health_status_poll(
    nvmemi_ctx* ctx, const uint32_t* nmd0, const uint32_t* nmd1, uint8_t* count,
    nvme_controller_health entries[NVMEMI_CONTROLLERS_MAX]);

/** Data structure types. */
#define NVMEMI_DTYP_SUBSYSTEM 0         /**< NVM Subsystem Information: 32 bytes */
#define NVMEMI_DTYP_PORT 1              /**< Port Information: 32 bytes */
#define NVMEMI_DTYP_CONTROLLER_LIST 2   /**< number (u16), then as many controller IDs (u16) */
#define NVMEMI_DTYP_CONTROLLER 3        /**< Controller Information: 32 bytes */
#define NVMEMI_DTYP_OPTIONAL_COMMANDS 4 /**< number (u16), then as many pairs: type, opcode */

/** Dword 0 of Read NVMe-MI Data Structure. */
#define NVMEMI_DS(dtyp, port, controller)                                  \
    ((0xFFu & (uint32_t)(dtyp)) << 24 | (0xFFu & (uint32_t)(port)) << 16 | \
     (0xFFFFu & (uint32_t)(controller)))

/**
 * Read NVMe-MI Data Structure.
 * @param nmd0      dword 0: NVMEMI_DS(...)
 * @param data      receives the structure as it came, little-endian
 * @param capacity  room at data in bytes
 * @param length    receives the bytes of the structure
 * @return also -1 if the type is none of the above (it is asked for all the same), if a
 *         structure of fixed size has another one, and if it is longer than what arrived or
 *         than capacity
 */
SIDEBAND_EXPORT int32_t nvmemi_read_nvmemi_data_structure(nvmemi_ctx* ctx, const uint32_t* nmd0,
                                                          uint8_t* data, uint32_t capacity,
                                                          uint16_t* length);

/**
 * Reset of the NVM subsystem. Sent again if no answer comes, up to three times.
 * @return -1 if the endpoint did not answer, which is what one expects of it (or, with
 *         MCTP_STRICT_NVME_MI, if what came is no response)
 */
SIDEBAND_EXPORT int32_t nvmemi_reset(nvmemi_ctx* ctx);

/**
 * VPD Read.
 * @param data  receives length bytes from offset on
 * @return also -1 if fewer came, but see MCTP_STRICT_INTEGRITY for one to three bytes fewer
 */
SIDEBAND_EXPORT int32_t nvmemi_vpd_read(nvmemi_ctx* ctx, uint16_t offset, uint16_t length,
                                        uint8_t* data);

/** Most bytes that one VPD Write takes. */
#define NVMEMI_VPD_WRITE_MAX 256

/** VPD Write. @param length  bytes at data; more than NVMEMI_VPD_WRITE_MAX: -1, nothing is sent */
SIDEBAND_EXPORT int32_t nvmemi_vpd_write(nvmemi_ctx* ctx, const uint8_t* data, uint16_t offset,
                                         uint16_t length);

/* ---- Admin commands (NVMe-MI, NVM Express Admin Command Set; NVMe base specification) -------- */
/*
 * All return 0 on success; the response message status (1 to 255) if it is not success; dword 3
 * of the completion queue entry if its status code is not 0 (see NVME_COMPLETION_SC(); with
 * MCTP_STRICT_NVME_MI also if its status code type is not 0; with "do not retry" set it is
 * negative); and -1 if an argument is null, the exchange failed, the response was malformed or
 * there was more than NVME_ADMIN_DATA_MAX bytes of data to move: nothing is sent then. Unless the
 * result is 0, what they fill stays as it was. cntlid is a controller ID, nsid a namespace ID, fid
 * a feature identifier.
 *
 * A status, a status code and a refused argument go to console_log(). To debug_log() go responses
 * that are too short for a status or a completion, and too many data. A null argument and a failed
 * exchange are not told, but nvme_mrvl_read_cmd() and nvme_fw_image_download() have lines of their
 * own for the latter.
 */

/** An admin command. Filled by the caller. */
typedef struct nvme_admin_req {
    nvmemi_ctx* ctx; /**< the endpoint */
    uint16_t cntlid; /**< controller ID */
    uint32_t nsid;   /**< namespace ID: submission queue entry dword 1 */
    uint32_t dofst;  /**< offset of the data that is wanted, in bytes */
    uint32_t dlen;   /**< length of it, for nvme_admin_get_set_feature() and those above it */
    uint8_t opcode;  /**< for nvme_get_pd_info() and nvme_mrvl_read_cmd() */
    uint32_t cdw10;  /**< submission queue entry dwords 10 to 15 */
    uint32_t cdw11;  /**< dword 11 */
    uint32_t cdw12;  /**< dword 12 */
    uint32_t cdw13;  /**< dword 13 */
    uint32_t cdw14;  /**< dword 14 */
    uint32_t cdw15;  /**< dword 15 */
} nvme_admin_req;

/** What a feature command has given. */
typedef struct nvme_feature_result {
    uint32_t dword0;      /**< written: dword 0 of the completion queue entry */
    uint32_t data_length; /**< caller: room at data; 0 if no data are wanted */
    uint8_t* data;        /**< caller: receives as many data as came and there is room for; bytes
                               behind them stay as they were. Null: no data are stored */
} nvme_feature_result;

/**
 * Sends an admin command and receives its response. Sets message type and command flags in the
 * request. Does not look at the response.
 * @param request_length     NVME_ADMIN_REQUEST_SIZE or more; -1 for less
 * @param response_capacity  room at response
 * @return bytes received; -1 on every failure
 */
SIDEBAND_EXPORT int32_t nvme_admin_cmd(nvmemi_ctx* ctx, uint32_t request_length,
                                       uint32_t response_capacity, uint8_t* request,
                                       uint8_t* response);

/** Which value of a feature is wanted. */
#define NVME_FEATURE_CURRENT 0
#define NVME_FEATURE_DEFAULT 1
#define NVME_FEATURE_SAVED 2
#define NVME_FEATURE_CAPABILITIES 3

/**
 * Get Features (0x0A). Sets req->cdw10, also if sel is refused.
 * @param fid     feature identifier
 * @param sel     NVME_FEATURE_...; -1, nothing sent, for a larger one
 * @param result  may be null
 */
SIDEBAND_EXPORT int32_t nvme_admin_get_feature(nvme_admin_req* req, uint8_t fid, uint8_t sel,
                                               nvme_feature_result* result);

/**
 * Set Features (0x09), for features without data. Sets req->cdw10; the value is in req->cdw11.
 * @param save    1: save the value across resets, 0: do not; -1, nothing sent, for a larger one
 * @param result  may be null
 */
SIDEBAND_EXPORT int32_t nvme_admin_set_feature(nvme_admin_req* req, uint8_t fid, uint8_t save,
                                               nvme_feature_result* result);

/** A feature command as the record has it, with the opcode of the argument. */
SIDEBAND_EXPORT int32_t nvme_admin_get_set_feature(nvme_admin_req* req, uint8_t opcode,
                                                   nvme_feature_result* result);

/**
 * Firmware Commit (0x10).
 * @param slot    firmware slot, 0 to 7; 0: the controller chooses
 * @param action  commit action, 0 to 7. Further bits of either do not count
 */
SIDEBAND_EXPORT int32_t nvme_fw_image_commit(nvmemi_ctx* ctx, uint16_t cntlid, uint8_t slot,
                                             uint8_t action);

/** plt_global_var.nvme_fw_update_status beside the percentage, 0 to 99. */
#define NVME_FW_DOWNLOAD_DONE 100
#define NVME_FW_DOWNLOAD_NO_FILE 200    /**< the file cannot be opened */
#define NVME_FW_DOWNLOAD_UNREADABLE 201 /**< no regular file, too large, or it has changed */
#define NVME_FW_DOWNLOAD_NO_PATH 202    /**< path is null */
#define NVME_FW_DOWNLOAD_EXCHANGE 204   /**< an exchange failed */
#define NVME_FW_DOWNLOAD_COMMAND 205    /**< bad chunk size, or the controller refused a piece */
#define NVME_FW_DOWNLOAD_RESPONSE_ERROR 206 /**< the endpoint refused a piece */

/**
 * Firmware Image Download (0x11), piece by piece. Reports each step and what was refused to
 * console_log(), what is wrong with the file to debug_log(). The progress goes to
 * plt_global_var.nvme_fw_update_status and to TaskServiceUpdateTaskPercentage(): behind each piece
 * the percentage of the pieces in front of it, and 100 behind the last. In the former the outcome
 * is left as NVME_FW_DOWNLOAD_... It is stored atomically, but there is one for the process: two
 * downloads at a time overwrite one another's.
 *
 * The image is watched from its opening on. If its size, its time of modification or that of the
 * last change of state is another one when a piece has been read, the piece is not sent: the
 * result is -1, the outcome NVME_FW_DOWNLOAD_UNREADABLE. Replacing the file by a rename changes its
 * state as well; on a file system that does not note it, the whole of the old image is sent.
 * @param path        the image: a regular file, which must be open to writing too. It is opened
 *                    without waiting for anybody. An empty one is done at once: nothing is sent,
 *                    nor reported to the task
 * @param chunk_size  bytes in a piece, 1 to NVME_ADMIN_DATA_MAX, a multiple of 4: of another one
 *                    the controller is told the whole dwords alone. The last piece is filled with
 *                    zeros to a multiple of 4
 * @param task_id     the task whose progress is reported
 */
SIDEBAND_EXPORT int32_t nvme_fw_image_download(nvmemi_ctx* ctx, uint16_t cntlid, const char* path,
                                               uint32_t chunk_size, uint32_t task_id);

/** Select values of Namespace Attachment. */
#define NVME_NAMESPACE_ATTACH 0
#define NVME_NAMESPACE_DETACH 1

/**
 * Namespace Attachment (0x15) of the controller that gets the command. It is sent without a
 * controller list; with MCTP_STRICT_NVME_MI the data are the list, NVME_ADMIN_DATA_MAX bytes with
 * this controller alone (NVMe base specification, Namespace Attachment, Controller List).
 * @param select  NVME_NAMESPACE_...; the low four bits count
 */
SIDEBAND_EXPORT int32_t nvme_namespace_mgmt_attachment(nvmemi_ctx* ctx, uint16_t cntlid,
                                                       uint32_t nsid, uint8_t select);

/**
 * Namespace Management (0x0D), create.
 * @param data  NVME_ADMIN_DATA_MAX bytes: the data structure of the command, handed through
 * @param nsid  receives the ID of the new namespace; may be null
 */
SIDEBAND_EXPORT int32_t nvme_namespace_mgmt_create(nvmemi_ctx* ctx, uint16_t cntlid,
                                                   const uint8_t* data, uint32_t* nsid);

/** Namespace Management (0x0D), delete. */
SIDEBAND_EXPORT int32_t nvme_namespace_mgmt_delete(nvmemi_ctx* ctx, uint16_t cntlid, uint32_t nsid);

/** Format NVM (0x80). @param cdw10  dword 10: LBA format, secure erase settings, ... */
SIDEBAND_EXPORT int32_t nvme_format_nvm(nvmemi_ctx* ctx, uint16_t cntlid, uint32_t nsid,
                                        const uint32_t* cdw10);

/**
 * Dword 10 of Sanitize: action, allow unrestricted exit, overwrite passes (0: 16), invert the
 * pattern between passes, no deallocate after sanitize.
 */
#define NVME_SANITIZE_SANACT(action) (0x7u & (uint32_t)(action))
#define NVME_SANITIZE_AUSE 0x008u
#define NVME_SANITIZE_OWPASS(passes) ((0xFu & (uint32_t)(passes)) << 4)
#define NVME_SANITIZE_OIPBP 0x100u
#define NVME_SANITIZE_NDAS 0x200u
/** Sanitize actions. */
#define NVME_SANACT_EXIT_FAILURE 1
#define NVME_SANACT_BLOCK_ERASE 2
#define NVME_SANACT_OVERWRITE 3
#define NVME_SANACT_CRYPTO_ERASE 4

/** Parameters of nvme_sanitize_set(). */
typedef struct nvme_sanitize_param {
    nvmemi_ctx* ctx; /**< the endpoint */
    uint16_t cntlid; /**< controller ID */
    uint32_t nsid;   /**< namespace ID */
    uint32_t cdw10;  /**< NVME_SANITIZE_... */
    uint32_t cdw11;  /**< overwrite pattern */
} nvme_sanitize_param;

/** Sanitize (0x84). The controller goes on with it after the command is done. */
SIDEBAND_EXPORT int32_t nvme_sanitize_set(const nvme_sanitize_param* param);

/** Dword 10 of Lockdown: scope, prohibit, interface, opcode or feature identifier. */
#define NVME_LOCKDOWN_SCP(scope) (0xFu & (uint32_t)(scope))
#define NVME_LOCKDOWN_PRHBT 0x10u
#define NVME_LOCKDOWN_IFC(interfaces) ((0x3u & (uint32_t)(interfaces)) << 5)
#define NVME_LOCKDOWN_OFI(identifier) ((0xFFu & (uint32_t)(identifier)) << 8)
/** Scopes: what the identifier is. */
#define NVME_LOCKDOWN_ADMIN_OPCODE 0
#define NVME_LOCKDOWN_FEATURE 2
#define NVME_LOCKDOWN_MI_OPCODE 3
/** Interfaces that the lockdown is for. */
#define NVME_LOCKDOWN_ADMIN_QUEUE 0
#define NVME_LOCKDOWN_BOTH 1
#define NVME_LOCKDOWN_MANAGEMENT 2
/** Dword 14 of Lockdown. */
#define NVME_LOCKDOWN_UUID_INDEX(index) (0x7Fu & (uint32_t)(index))

/** Parameters of nvme_lockdown_set(). */
typedef struct nvme_lockdown_param {
    nvmemi_ctx* ctx; /**< the endpoint */
    uint16_t cntlid; /**< controller ID */
    uint32_t nsid;   /**< namespace ID */
    uint32_t cdw10;  /**< NVME_LOCKDOWN_... */
    uint32_t cdw14;  /**< NVME_LOCKDOWN_UUID_INDEX() */
} nvme_lockdown_param;

/** Lockdown (0x24). */
SIDEBAND_EXPORT int32_t nvme_lockdown_set(const nvme_lockdown_param* param);

/* ---- Admin commands that read data ----------------------------------------------------------- */
/*
 * These return what all admin commands do. Of their arguments
 *  cntlid       controller ID
 *  length       bytes wanted, 0 to NVME_ADMIN_DATA_MAX, from req->dofst on; req->dlen is not read
 *  passthrough  not 0: Marvell's vendor command in place of the standard one
 *  data         room for length bytes; those behind what came stay as they were. May be null:
 *               nothing is stored
 *  received     receives the number of bytes stored at data, or that data of length bytes would
 *               have received; may be null
 */

/** Get Log Page (0x02), dwords 10 to 14 of the record. Prints the "more" bit of the completion. */
SIDEBAND_EXPORT int32_t nvme_get_log_page(nvme_admin_req* req, uint16_t cntlid, uint32_t length,
                                          uint8_t passthrough, uint8_t* data, uint32_t* received);

/** Identify (0x06), dword 10 of the record. Prints the same, and the number of bytes that came. */
SIDEBAND_EXPORT int32_t nvme_identify(nvme_admin_req* req, uint32_t length, uint8_t passthrough,
                                      uint8_t* data, uint32_t* received);

/** A vendor's command that reads: opcode and dwords 10, 12 and 14 of the record. */
SIDEBAND_EXPORT int32_t nvme_get_pd_info(nvme_admin_req* req, uint32_t length, uint8_t* data,
                                         uint32_t* received);

/** A vendor's command that reads: opcode and dwords 10, 12, 13 and 14 of the record. */
SIDEBAND_EXPORT int32_t nvme_mrvl_read_cmd(nvme_admin_req* req, uint32_t length, uint8_t* data,
                                           uint32_t* received);

SIDEBAND_END_DECLS

#endif

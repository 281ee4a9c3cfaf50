/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NC-SI over MCTP (DSP0222, DSP0261): the context, the standard commands, and the OEM commands of
 * two makers of network controllers. One context is used by one thread at a time.
 *
 * Multi-byte fields of NC-SI are big-endian.
 */
#ifndef SIDEBAND_NCSI_H
#define SIDEBAND_NCSI_H

#include <stdint.h>

#include <sideband/export.h>
#include <sideband/mctp.h>

SIDEBAND_BEGIN_DECLS

/** Packages on one NC-SI bus, and channels of a package that a context has records for. */
#define NCSI_PACKAGES 8
#define NCSI_CHANNELS 8

/** Bytes of a control packet in front of its payload (DSP0222, control packet header). */
#define NCSI_HEADER_SIZE 16

/** Control packet types (DSP0222, table of commands). A response has 0x80 added. */
#define NCSI_CLEAR_INITIAL_STATE 0x00
#define NCSI_SELECT_PACKAGE 0x01
#define NCSI_DESELECT_PACKAGE 0x02
#define NCSI_GET_LINK_STATUS 0x0A
#define NCSI_OEM_COMMAND 0x50

/** Response and reason code of a command that the controller does not support. */
#define NCSI_RESPONSE_UNSUPPORTED 0x0003
#define NCSI_REASON_UNSUPPORTED 0x7FFF

typedef struct ncsi_ctx ncsi_ctx;
typedef struct ncsi_channel ncsi_channel;

/**
 * Sends a control packet and receives its response. Completes the request in its place: instance
 * ID, padding to a multiple of four, checksum field.
 * @param request_length     bytes at request, NCSI_HEADER_SIZE or more; there is room for that
 *                           length padded to a multiple of four, and for four bytes more
 * @param response_capacity  bytes wanted; the room at response is that padded to a multiple of four
 * @param response           keeps what was received, also if the result is -1
 * @return 0 for response and reason code 0 in at least 20 bytes: the two end there; -1
 *         otherwise. The response must have the type of the request; its channel ID is not asked
 *         for: there are controllers that answer the command of a package with that of a channel.
 *         Strict bits ask for more, see below. What is refused of request or response is told on
 *         standard output; a failed endpoint or lock is not told
 */
typedef int32_t (*ncsi_transfer_op)(ncsi_channel* channel, uint32_t request_length,
                                    int32_t response_capacity, uint8_t* request, uint8_t* response);

/** As ncsi_transfer_op, for a context without channel records. */
typedef int32_t (*ncsi_oem_transfer_op)(ncsi_ctx* ctx, uint32_t request_length,
                                        int32_t response_capacity, uint8_t* request,
                                        uint8_t* response);

/** One channel of a network controller. */
struct ncsi_channel {
    uint8_t channel_id;   /**< package ID in bits 7 to 5, internal channel in bits 4 to 0 */
    uint8_t link_up;      /**< 1: the link is up */
    uint8_t speed;        /**< speed and duplex: of Get Link Status, see there */
    uint8_t autoneg_done; /**< 1: auto-negotiation is complete */
    uint8_t oem_valid;    /**< 1 after an OEM "get"; what clears it, see the OEM commands */
    uint8_t oem_flag;     /**< one-bit setting of the OEM configuration commands */
    uint16_t oem_value;   /**< their 12- or 16-bit setting */
    uint8_t sensor_index; /**< from the caller: sensor of ncsi_oem_mx_get_temperature() */
    ncsi_ctx* ctx;        /**< the context that the record belongs to */
};

/** A network controller. Allocated, zeroed before it is first initialised, owned by the caller. */
struct ncsi_ctx {
    uint8_t iid;         /**< instance ID of the next request, 1 to 255; 0 stands for 1 */
    uint8_t channel_num; /**< channels that ncsi_discovery() has found, added up */
    ncsi_channel channels[NCSI_CHANNELS]; /**< by channel number within the package */
    mctp_ctx* mctp;                       /**< the endpoint, owned or borrowed */
    ncsi_transfer_op transfer;            /**< by ncsi_init(), ncsi_oem_init(): the last one's */
    ncsi_oem_transfer_op oem_transfer;    /**< installed by ncsi_oem_init() */
    int32_t response_length;              /**< bytes of the last response */
    mctp_owned owned;          /**< library: the endpoint that ncsi_init() has allocated */
    sideband_error last_error; /**< why the last call failed: see ncsi_last_error() */
};

/* ---- Strictness ------------------------------------------------------------------------------ */
/*
 * What the bits of ctx->mctp->strict change in the transfers of the library, beside what they
 * change in the endpoint below. ncsi_init() takes them from config->strict, so that its discovery
 * is strict as well; ncsi_oem_init() takes the endpoint as it is. Without them a response is taken
 * whatever its instance ID, channel ID, length and checksum are. What a bit refuses gives -1, and
 * debug_log() gets "ncsi, response with a wrong %s"; neither its codes nor its data are believed,
 * and oem_valid stays.
 *
 * MCTP_STRICT_PACKETS ("instance ID", "length"): the response has the instance ID of its
 * request, and a payload as long as its header says (DSP0222, clause 8.2.1): at least the codes, at
 * most what came. One that there is no room for is refused as well. oem_transfer counts ctx->iid as
 * transfer does: without the bit all of its requests have one ID.
 *
 * MCTP_STRICT_INTEGRITY ("checksum"): a request has its padding zeroed and its checksum computed,
 * and the checksum of a response must be there and be right, or 0, which stands for none (DSP0222,
 * clause 8.2.2.3). Without the bit a request has the checksum 0.
 *
 * MCTP_STRICT_ADDRESSES ("channel ID"): the response has the channel ID of its request, that of a
 * package among them.
 */

/* ---- Failures -------------------------------------------------------------------------------- */

/**
 * Why the last call that took the context, or a record of one of its channels, failed, also of one
 * that has no endpoint: see error.h.
 * @return the record in ctx, which the next call changes; for null one that says "wrong argument"
 */
SIDEBAND_EXPORT const sideband_error* ncsi_last_error(const ncsi_ctx* ctx);

/* ---- Life ------------------------------------------------------------------------------------ */

/** Zeroes a header of NCSI_HEADER_SIZE bytes and sets its revision. @return 0; -1 for null */
SIDEBAND_EXPORT int32_t ncsi_request_init(uint8_t* header);

/**
 * Creates an endpoint, brings it up and looks for the controller's channels. The context owns the
 * endpoint until ncsi_deinit(), also if no channel was found. What an earlier ncsi_init() has
 * allocated is freed first; an endpoint that was lent or put into ctx->mctp by hand is not.
 * @param config  a prototype whose configuration members (see mctp_ctx) are copied, the addressing
 *                of the bus and strict among them; message type and counters are not
 * @return the result of ncsi_discovery(); -1 if an argument is null, memory ran out or
 *         mctp_init2() failed: the context has no endpoint then, but if config is null it keeps
 *         what it has
 */
SIDEBAND_EXPORT int32_t ncsi_init(ncsi_ctx* ctx, const mctp_ctx* config);

/**
 * Frees the endpoint, whoever allocated it: a caller that lent one to ncsi_oem_init() sets
 * ctx->mctp to null first, unless it came from malloc() and is to go. @return 0, also for null
 */
SIDEBAND_EXPORT int32_t ncsi_deinit(ncsi_ctx* ctx);

/**
 * Borrows an endpoint, without discovery and without a pause between request and response, and
 * lets the commands on the channel records go over it, by ctx->oem_transfer: each exchange holds
 * the lock of the I2C channel mctp->bus (0: platform.default_i2c_channel) and, inside it,
 * plt_global_var.ncsi_lock. It leaves mctp->route as the caller has set it and does not advance
 * ctx->iid without MCTP_STRICT_PACKETS. A channel_id is the caller's to fill in, unless
 * ncsi_discovery() does. What an earlier ncsi_init() has allocated is freed, unless it is the
 * endpoint that is lent.
 * @param mctp  filled by the caller, msg_type among it; must live as long as the context is used
 * @return 0; -1 if an argument is null or mctp_init2() failed
 */
SIDEBAND_EXPORT int32_t ncsi_oem_init(ncsi_ctx* ctx, mctp_ctx* mctp);

/* ---- Commands (DSP0222) ---------------------------------------------------------------------- */
/*
 * All return what the context's transfer has returned: 0 or -1 if it is the library's. Beside
 * what that prints, a failure is printed to standard output, that of Select and Deselect Package
 * goes to console_log(), and that of ncsi_oem_mx_get_temperature() is not told. A response with
 * fewer bytes than a command reads is a failure, said to debug_log(). A null record, and one
 * without context or transfer, is -1 without a word.
 */

/**
 * Sends Clear Initial State to the channels of one package after the other. The channels of the
 * first package that answers are recorded; the records of the others stay as they are.
 * @return 0 if one has answered; -1 if none of all did, or ctx has no transfer. A channel whose
 *         record has no context, or one without transfer, does not answer
 */
SIDEBAND_EXPORT int32_t ncsi_discovery(ncsi_ctx* ctx);

/**
 * Sends Clear Initial State to the channels of package 0 until one answers. Nothing is recorded.
 * @return 0 if one has answered; -1 if none did, or ctx has no oem_transfer
 */
SIDEBAND_EXPORT int32_t ncsi_oem_discovery(ncsi_ctx* ctx);

/**
 * Get Link Status: fills link_up, autoneg_done and speed. The latter is the extended speed and
 * duplex (bits 31 to 24 of the link status) if the controller gives one, else bits 4 to 1.
 * @return 0; -1 on failure, with the record as it was
 */
SIDEBAND_EXPORT int32_t ncsi_get_link_status(ncsi_channel* channel);

/**
 * Select Package and Deselect Package.
 * @param channel     any channel record of the context
 * @param package_id  0 to 7. A larger one is a failure, and nothing is sent
 * @return 0; -1 on failure
 */
SIDEBAND_EXPORT int32_t ncsi_select_package(ncsi_channel* channel, uint32_t package_id);
SIDEBAND_EXPORT int32_t ncsi_deselect_package(ncsi_channel* channel, uint32_t package_id);

/* ---- OEM commands ---------------------------------------------------------------------------- */

/** Manufacturer IDs: enterprise numbers of IANA. */
#define NCSI_MANUFACTURER_BROADCOM 4413
#define NCSI_MANUFACTURER_MELLANOX 33049

/** An entry of a command table. */
typedef struct ncsi_oem_cmd {
    uint32_t command;                          /**< what the entry functions look for */
    int32_t (*handler)(ncsi_channel* channel); /**< runs it; see the handlers below */
} ncsi_oem_cmd;

/** Commands of Broadcom: 0 get, 1 set preboot server config. */
SIDEBAND_EXPORT extern const ncsi_oem_cmd ncsi_oem_brcm_cmd_tbl[];
SIDEBAND_EXPORT extern const uint8_t ncsi_oem_brcm_cmd_tbl_size; /**< entries: 2 */
/** Commands of Mellanox: 0 get, 1 set card TLV, 2 get PF MAC address, 3 get temperature. */
SIDEBAND_EXPORT extern const ncsi_oem_cmd ncsi_oem_mx_cmd_tbl[];
SIDEBAND_EXPORT extern const uint8_t ncsi_oem_mx_cmd_tbl_size; /**< entries: 4 */

/** Runs the handler of a command number. @return its result; -1 if no entry has the number */
SIDEBAND_EXPORT int32_t ncsi_oem_brcm_entry(ncsi_channel* channel, uint32_t command);
/** As ncsi_oem_brcm_entry(); only the low byte of the number counts. @return the same */
SIDEBAND_EXPORT int32_t ncsi_oem_mx_entry(ncsi_channel* channel, uint32_t command);

/* ---- Handlers of OEM commands ---------------------------------------------------------------- */
/*
 * The handlers return 0, or -1 on failure. A "get" fills oem_flag and oem_value and sets oem_valid
 * to 1. A "set" writes oem_flag and oem_value; the bits beside them are read first and written back
 * as they were.
 *
 * oem_valid is cleared by both "get" commands and by Broadcom's "set" if the controller says
 * that it does not support the "get" (NCSI_RESPONSE_UNSUPPORTED, NCSI_REASON_UNSUPPORTED). Nothing
 * else clears it: no other failure, nor Mellanox's "set", nor a "set" that is itself unsupported.
 */

/** oem_flag: one bit; oem_value: 12 bits. */
SIDEBAND_EXPORT int32_t ncsi_oem_brcm_get_preboot_server_config(ncsi_channel* channel);
SIDEBAND_EXPORT int32_t ncsi_oem_brcm_set_preboot_server_config(ncsi_channel* channel);
/** Of the channel's package. oem_flag: one bit; oem_value: 16 bits. */
SIDEBAND_EXPORT int32_t ncsi_oem_mx_get_card_tlv_info(ncsi_channel* channel);
SIDEBAND_EXPORT int32_t ncsi_oem_mx_set_card_tlv_info(ncsi_channel* channel);
/** Prints the response's payload and the MAC address in it to standard output. */
SIDEBAND_EXPORT int32_t ncsi_oem_mx_get_pf_mac_address(ncsi_channel* channel);
/** @return the temperature at sensor_index in degrees Celsius, 0 to 255; -1 on failure */
SIDEBAND_EXPORT int32_t ncsi_oem_mx_get_temperature(ncsi_channel* channel);

SIDEBAND_END_DECLS

#endif

/* SPDX-License-Identifier: Apache-2.0 */
/*
 * PLDM base: the terminus context, its message operations, terminus lifecycle and the discovery
 * commands (DSP0240). One context is used by one thread at a time.
 */
#ifndef SIDEBAND_PLDM_H
#define SIDEBAND_PLDM_H

#include <stdint.h>

#include <sideband/export.h>
#include <sideband/mctp.h>

SIDEBAND_BEGIN_DECLS

/** PLDM types (DSP0245). */
#define PLDM_TYPE_BASE 0
#define PLDM_TYPE_MONITOR 2
#define PLDM_TYPE_FRU 4
#define PLDM_TYPE_FW_UPDATE 5

/** Bytes of a PLDM request header; a response has its completion code behind it. */
#define PLDM_HEADER_SIZE 3
/** Bytes of a PLDM response header, the completion code included. */
#define PLDM_RESPONSE_HEADER_SIZE 4

/** Completion codes (DSP0240, table 5). */
#define PLDM_CC_SUCCESS 0x00
#define PLDM_CC_ERROR 0x01
#define PLDM_CC_INVALID_DATA 0x02
#define PLDM_CC_INVALID_LENGTH 0x03
#define PLDM_CC_NOT_READY 0x04
#define PLDM_CC_UNSUPPORTED_COMMAND 0x05
/**
 * pldm_ctx.completion_code after the last attempt has failed, because nothing came or because the
 * device was not ready: no code of the standard. A device that answers with it looks the same.
 */
#define PLDM_CC_RETRIES_EXHAUSTED 0x30

/** Result for a bad argument or a failed allocation in several PLDM functions. */
#define PLDM_ERROR_ARGUMENT (-112)

typedef struct pldm_ctx pldm_ctx;

/**
 * Receives one PLDM message.
 * @param capacity  room at buffer in bytes, at least 1
 * @param buffer    receives the message from its header on; buffer[0] is set to 1 beforehand
 * @return 0, -1 on failure
 */
typedef int32_t (*pldm_recv_op)(pldm_ctx* ctx, int32_t capacity, uint8_t* buffer);

/**
 * Sends one PLDM message.
 * @param length     bytes at message, at least PLDM_HEADER_SIZE
 * @param tag_owner  1 for a request, 0 for a response
 * @return 0, -1 on failure
 */
typedef int32_t (*pldm_send_op)(pldm_ctx* ctx, uint32_t length, const uint8_t* message,
                                uint8_t tag_owner);

/**
 * Sends a request and receives its response. pldm_transfer() is the one that pldm_init() and
 * mctp_pldm_register() install; a caller may put an operation of its own in its place afterwards,
 * also on a context without endpoint.
 *
 * Before each call the library sets ctx->response_length to response_capacity. The operation may
 * lower it to the bytes that it has stored, so that what an answer lacks is refused as truncated;
 * if it leaves it, the response counts as filled.
 *
 * An operation that returns 0 whatever the completion code passes the code through. Of the
 * functions in this header, pldm_monitor.h and pldm_fru.h those that look at it say what comes of
 * it, mostly that it is their result, a positive one. The other ones take the answer for a success.
 *
 * @param request_length     bytes at request, at least PLDM_HEADER_SIZE; request[0] to request[2]
 *                           are the header, in which the operation may stamp the instance ID
 * @param response_capacity  room at response in bytes; no more may be written
 * @return 0 (not a length) if there is an answer; negative if not, which is the result of the
 *         calling function too unless that says otherwise
 */
typedef int32_t (*pldm_transfer_op)(pldm_ctx* ctx, uint32_t request_length,
                                    int32_t response_capacity, uint8_t* request, uint8_t* response);

/** A PLDM terminus. Allocated, zeroed and owned by the caller. */
struct pldm_ctx {
    uint8_t last_command;         /**< command code last handed to the MCTP layer */
    uint8_t completion_code;      /**< of the last failed exchange; not cleared on success */
    uint8_t tid;                  /**< terminus ID, from pldm_get_tid() */
    uint8_t pldm_types[8];        /**< as received: bit n of byte 0 is PLDM type n */
    uint8_t base_commands[32];    /**< as received: bit n of byte 0 is command n of type 0 */
    uint8_t instance_id;          /**< counter; the low five bits go on the wire */
    uint32_t pldm_version;        /**< ver32 as received, read as a little-endian number */
    mctp_ctx* mctp;               /**< the bound endpoint */
    pldm_recv_op recv_op;         /**< pldm_recv */
    pldm_send_op send_op;         /**< pldm_send */
    pldm_transfer_op transfer_op; /**< pldm_transfer */
    int32_t response_length;      /**< bytes of the last response; see pldm_transfer_op */
    mctp_owned owned;             /**< library: what pldm_terminus_init() allocated */
    sideband_error last_error;    /**< why the last call failed: see pldm_last_error() */
};

/* ---- Strictness ------------------------------------------------------------------------------ */
/*
 * With MCTP_STRICT_PLDM in mctp_ctx.strict of the endpoint that is bound (a context without one has
 * no bits; the bit may be set and cleared at any time):
 *
 *  pldm_transfer()                   takes no message but the response to its request: Rq and D
 *                                    clear, header version, PLDM type, instance ID and command as
 *                                    requested. Others, late answers and requests that the device
 *                                    sends meanwhile among them, are passed over: it receives
 *                                    again, as mctp_ctx.recv does, up to 31 times, and not later
 *                                    than 4.8 seconds behind the first of them, beside what the
 *                                    binding waits for each. If none is the response the attempt
 *                                    has failed as if nothing had come. debug_log() says so. A
 *                                    device repeats a request that was passed over
 *  pldm_get_commands()               asks with pldm_get_version() for the version of type 0 first,
 *                                    which so is in pldm_version, and then for the commands of that
 *                                    version. Without the bit it asks for those of version 0
 *  pldm_get_pdr()                    verifies the transfer CRC, for those that use it too: see
 *                                    pldm_monitor.h
 *  FRU record table                  parts of any size, checksum verified: see pldm_fru.h
 *  firmware update                   ActivateFirmware has 0 or 1; what is no request of the device
 *                                    is not served: see pldm_fw_update.h
 *
 * An operation in the place of pldm_transfer() has to match answers itself; the rest applies to it
 * as well. MCTP_STRICT_PACKAGE is about package files: see pldm_fw_update.h.
 */

/* ---- Failures -------------------------------------------------------------------------------- */

/**
 * Why the last call that took the context failed, also of one that has no endpoint, or has none any
 * more: see error.h. pldm_init() clears it. What an endpoint's failure is to the command stands in
 * mctp_ctx.last_error too.
 * @return the record in ctx, which the next call changes; for null one that says "wrong argument"
 */
SIDEBAND_EXPORT const sideband_error* pldm_last_error(const pldm_ctx* ctx);

/* ---- Headers (DSP0240, clause 8.1) ----------------------------------------------------------- */
/*
 * Each clears the three header bytes, then sets Rq and the PLDM type. The caller writes the
 * command code into byte 2.
 */

/** PLDM type 0. @return 0; -1 if request is null */
SIDEBAND_EXPORT int32_t pldm_request_init(uint8_t* request);

/** PLDM type 2. @return 0; PLDM_ERROR_ARGUMENT if request is null */
SIDEBAND_EXPORT int32_t pldm_monitor_request_init(uint8_t* request);

/** PLDM type 4. @return 0; -1 if request is null */
SIDEBAND_EXPORT int32_t pldm_FRU_request_init(uint8_t* request);

/** PLDM type 5; request must not be null. @return 0 */
SIDEBAND_EXPORT int32_t pldm_fw_update_request_init(uint8_t* request);

/**
 * The header of an answer to a device's own request: PLDM type 5, Rq clear, instance ID and
 * command copied from the request. Neither may be null: response has room for three bytes.
 */
SIDEBAND_EXPORT void pldm_fw_update_response_init(uint8_t* response, const uint8_t* request);

/* ---- Message operations ---------------------------------------------------------------------- */
/*
 * Installed by pldm_init(); called through the slots of the context. Only command 0x1A is
 * attempted more than once, up to ten times. After every attempt that failed, the last one too,
 * the call pauses for 100 ms, unless the deadline has passed: a device that is silent or not ready
 * costs 0.1 s, with command 0x1A 1 s, beside what its binding waits for each answer.
 */

/** See pldm_recv_op. @return 0; -1 on failure, a null argument or an unbound context */
SIDEBAND_EXPORT int32_t pldm_recv(pldm_ctx* ctx, int32_t capacity, uint8_t* buffer);

/**
 * See pldm_send_op. A message shorter than a header is refused before anything is sent or noted in
 * the context.
 * @return 0; -1 on failure, a null argument, an unbound context or a length below PLDM_HEADER_SIZE
 */
SIDEBAND_EXPORT int32_t pldm_send(pldm_ctx* ctx, uint32_t length, const uint8_t* message,
                                  uint8_t tag_owner);

/**
 * See pldm_transfer_op. Stamps the instance ID into request[0]; its counter advances once per call
 * that reached the MCTP layer. response_length tells afterwards how much of the response the device
 * sent. A request shorter than a header is refused before anything is stamped, sent or noted.
 * @return 0 for completion code 0; -1 for any other one, with the code in the context, on failure
 *         (see PLDM_CC_RETRIES_EXHAUSTED), a null argument, an unbound context or a request_length
 *         below PLDM_HEADER_SIZE. Never positive
 */
SIDEBAND_EXPORT int32_t pldm_transfer(pldm_ctx* ctx, uint32_t request_length,
                                      int32_t response_capacity, uint8_t* request,
                                      uint8_t* response);

/* ---- Terminus lifecycle ---------------------------------------------------------------------- */
/*
 * The library frees one thing, the endpoint that pldm_terminus_init() has allocated for a context:
 * in pldm_terminus_deinit(), and when pldm_init(), mctp_pldm_register(), pldm_terminus_init() or
 * discover_pldm_terminus() put something else in its place, also if the caller has let ctx->mctp
 * point elsewhere meanwhile. Endpoints of the caller and contexts are never freed. Of a context
 * and a copy of it only one may be released.
 */

/**
 * Zeroes the context and installs the operations. If an endpoint is still bound, a warning on
 * standard output says so, whoever owns it.
 * @return 0; -1 if ctx is null
 */
SIDEBAND_EXPORT int32_t pldm_init(pldm_ctx* ctx);

/**
 * Binds a PLDM context to an initialised endpoint, which stays the caller's, and sets the
 * endpoint's message type to PLDM. The context is reset as pldm_init() does it, with its warning.
 *
 * The endpoint may be the one that is bound already, as after another layer has used it: it is
 * kept, and the context goes on owning it if pldm_terminus_init() has allocated it. The instance ID
 * starts from 0 again, and operations of the caller's own have to be installed again.
 * @return 0; -1 if an argument is null
 */
SIDEBAND_EXPORT int32_t mctp_pldm_register(mctp_ctx* mctp, pldm_ctx* ctx);

/**
 * Creates an endpoint, brings it up and binds the context to it; the context owns the endpoint
 * until pldm_terminus_deinit().
 * @param config  a prototype whose configuration members (see mctp_ctx) are copied
 * @return 0; PLDM_ERROR_ARGUMENT on a null argument or failed allocation; -1 when mctp_init2()
 *         failed. On failure ctx is untouched but for last_error
 */
SIDEBAND_EXPORT int32_t pldm_terminus_init(pldm_ctx* ctx, const mctp_ctx* config);

/**
 * Unbinds the context: frees the endpoint if pldm_terminus_init() has allocated it, sets mctp to
 * null and keeps the results. May be repeated. @return 0
 */
SIDEBAND_EXPORT int32_t pldm_terminus_deinit(pldm_ctx* ctx);

/**
 * Brings up a temporary endpoint, runs pldm_discovery() over it and frees it. Afterwards ctx
 * holds the results and a stale ctx->mctp: no messages may be exchanged over it. Binding it again,
 * for which it is best zeroed, and pldm_terminus_deinit() do not follow the stale pointer.
 * @param config  as for pldm_terminus_init()
 * @return the results of mctp_pldm_register() and pldm_discovery() added up; -1 if config is
 *         null, on failed allocation, or if mctp_init2() failed
 */
SIDEBAND_EXPORT int32_t discover_pldm_terminus(pldm_ctx* ctx, const mctp_ctx* config);

/* ---- Discovery commands (DSP0240, clause 9) -------------------------------------------------- */
/*
 * All take a bound context and return 0 on success, -1 if the context is null or has no
 * transfer_op or the answer is malformed, and the negative result of transfer_op if the exchange
 * failed. A failing command leaves its result members as they were, pldm_get_version() apart.
 */

/** GetTID (0x02): fills tid. @return also a completion code that transfer_op passed through */
SIDEBAND_EXPORT int32_t pldm_get_tid(pldm_ctx* ctx);

/**
 * GetPLDMVersion (0x03): fills pldm_version with the first version of each part that comes, so that
 * the last one stays. A call that fails after its first part has overwritten it too. At most
 * seven parts are fetched; -1 also on failed allocation and if no part was the last.
 * @param type  PLDM type whose version is wanted
 */
SIDEBAND_EXPORT int32_t pldm_get_version(pldm_ctx* ctx, uint8_t type);

/**
 * GetPLDMTypes (0x04): fills pldm_types and prints the first eight types by name.
 * @return also a completion code that transfer_op passed through
 */
SIDEBAND_EXPORT int32_t pldm_get_type(pldm_ctx* ctx);

/**
 * GetPLDMCommands (0x05) for type 0: fills base_commands. With MCTP_STRICT_PLDM it calls
 * pldm_get_version() for type 0 first; if that fails, its result is the result.
 */
SIDEBAND_EXPORT int32_t pldm_get_commands(pldm_ctx* ctx);

/**
 * GetTID, then GetPLDMTypes: tid is filled although the second one fails.
 * @return the result of the first one that is not 0; PLDM_ERROR_ARGUMENT if ctx is null
 */
SIDEBAND_EXPORT int32_t pldm_discovery(pldm_ctx* ctx);

SIDEBAND_END_DECLS

#endif

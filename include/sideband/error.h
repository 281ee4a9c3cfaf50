/* SPDX-License-Identifier: Apache-2.0 */
/* Why a call failed: the record that every context keeps of its last call. */
#ifndef SIDEBAND_ERROR_H
#define SIDEBAND_ERROR_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

/* ---- Causes: sideband_error.cause ----------------------------------------------------------- */

/** The last call has not failed. */
#define SIDEBAND_CAUSE_NONE 0
/** A bad argument, a context that is not filled, or what does not fit a message: nothing was sent.
 */
#define SIDEBAND_CAUSE_ARGUMENT 1
/** An allocation failed. */
#define SIDEBAND_CAUSE_MEMORY 2
/** The platform, or another thread, did not grant a lock. */
#define SIDEBAND_CAUSE_LOCK 3
/** The device has no power (SMBus: nothing was sent), or the host must be on and is not. */
#define SIDEBAND_CAUSE_NO_POWER 4
/** There is no such bus or network, as far as the platform tells it from the next. */
#define SIDEBAND_CAUSE_NO_BUS 5
/** Nobody took a packet: SMBus, in any of its attempts. */
#define SIDEBAND_CAUSE_NOT_ACKNOWLEDGED 6
/** Nothing came within the time that the platform waits. */
#define SIDEBAND_CAUSE_NO_ANSWER 7
/** What came belongs to something else by its tag, its EIDs or its type, or answers nothing. */
#define SIDEBAND_CAUSE_WRONG_TAG 8
/** A checksum of what came is wrong or missing: PEC, integrity check, checksum of data. */
#define SIDEBAND_CAUSE_WRONG_CHECK 9
/** What came is not put together as it must be: too short, too long, out of sequence, without end.
 */
#define SIDEBAND_CAUSE_MALFORMED 10
/** The device has answered with a code other than success: see kind, code and detail. */
#define SIDEBAND_CAUSE_DEVICE 11
/** The device has answered with success, yet its data say that it does not do what was asked for.
 */
#define SIDEBAND_CAUSE_REFUSED 12
/** What was looked for is not there: an EID in a table, a free EID, a sensor, a component. */
#define SIDEBAND_CAUSE_NOT_FOUND 13
/** A file cannot be read, is not what it must be, has changed, or is for another device. */
#define SIDEBAND_CAUSE_FILE 14
/** The time limit of mctp_set_deadline() has passed. */
#define SIDEBAND_CAUSE_DEADLINE 15
/** The system or the platform refused a call: detail is errno, or 0. */
#define SIDEBAND_CAUSE_SYSTEM 16

/* ---- Whose code it is: sideband_error.kind --------------------------------------------------- */

/** There is no code: cause is not SIDEBAND_CAUSE_DEVICE. */
#define SIDEBAND_CODE_NONE 0
/** Completion code of an MCTP control message (DSP0236, table 13). */
#define SIDEBAND_CODE_CONTROL 1
/** PLDM completion code (DSP0240, table 5, and the codes of each PLDM type). */
#define SIDEBAND_CODE_PLDM 2
/** NC-SI response code; detail is the reason code (DSP0222, response and reason codes). */
#define SIDEBAND_CODE_NCSI 3
/**
 * Status of an NVMe-MI response message. For "invalid parameter" detail says where that is: the
 * byte of the request in bits 15 to 8, the bit in bits 2 to 0.
 */
#define SIDEBAND_CODE_NVME_MI 4
/** Status of an NVMe completion: the status code in bits 7 to 0, its type in bits 10 to 8. */
#define SIDEBAND_CODE_NVME 5
/** What a firmware device reports of its transfer, verification or application (DSP0267). */
#define SIDEBAND_CODE_PLDM_FW_RESULT 6

/* ---- What was being done: sideband_error.step ------------------------------------------------ */

/** Nothing with a name of its own: a message of the caller, for example. */
#define SIDEBAND_STEP_NONE 0
/** An MCTP control message; command is its code, as in all of the following. */
#define SIDEBAND_STEP_CONTROL 1
/** A PLDM command. */
#define SIDEBAND_STEP_PLDM 2
/** An NC-SI command: command is the control packet type. */
#define SIDEBAND_STEP_NCSI 3
/** An NVMe-MI command: command is its opcode. */
#define SIDEBAND_STEP_NVME_MI 4
/** An NVMe admin command: command is its opcode. */
#define SIDEBAND_STEP_NVME 5
/** Waiting for, and answering, what a device requests in the course of a firmware update. */
#define SIDEBAND_STEP_FW_UPDATE 6
/** Reading a firmware package or image; command is 0. */
#define SIDEBAND_STEP_FILE 7
/** Creating an endpoint and finding or assigning its EID; command is 0. */
#define SIDEBAND_STEP_SET_UP 8

/**
 * Why a call failed. Every context has one as last_error. A call that uses the context
 * clears it when it begins, and fills it when it fails: what it says belongs to the last call, and
 * counts if that has failed by its result. Of several things that went wrong the first one stands;
 * where a call tries again, the last attempt counts. A context that is null keeps nothing.
 *
 * It is used by whoever uses the context: by one thread at a time.
 */
typedef struct sideband_error {
    uint8_t cause;   /**< SIDEBAND_CAUSE_... */
    uint8_t kind;    /**< SIDEBAND_CODE_... */
    uint8_t step;    /**< SIDEBAND_STEP_... */
    uint8_t command; /**< command code or opcode of the step */
    uint16_t code;   /**< the device's own, by kind */
    /**
     * The second number of the code, by kind. Without a code: what the platform or the kernel said
     * of it, as a positive number of errno, or 0.
     */
    uint16_t detail;
} sideband_error;

SIDEBAND_STATIC_ASSERT(sizeof(sideband_error) == 8, "error record");

/**
 * Says in one line without line end what a record says: "not acknowledged, in PLDM command 0x11".
 * Codes are numbers there: their names are the standards'.
 * @param error   null counts as one that says that nothing failed
 * @param buffer  receives the text with a NUL, cut to fit; may be null if size is 0
 * @param size    room at buffer in bytes
 * @return length of the whole text, without the NUL
 */
SIDEBAND_EXPORT size_t sideband_error_text(const sideband_error* error, char* buffer, size_t size);

SIDEBAND_END_DECLS

#endif

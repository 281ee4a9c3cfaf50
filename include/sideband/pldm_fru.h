/* SPDX-License-Identifier: Apache-2.0 */
/* PLDM for FRU data: the FRU record table of a terminus and its first record (DSP0257). */
#ifndef SIDEBAND_PLDM_FRU_H
#define SIDEBAND_PLDM_FRU_H

#include <stdint.h>

#include <sideband/export.h>
#include <sideband/pldm.h>

SIDEBAND_BEGIN_DECLS

/** Completion codes of the FRU commands (DSP0257). */
#define PLDM_FRU_CC_INVALID_DATA_TRANSFER_HANDLE 0x80
#define PLDM_FRU_CC_INVALID_TRANSFER_OPERATION_FLAG 0x81
#define PLDM_FRU_CC_TABLE_UNAVAILABLE 0x85

/** Bytes of table data that each part but the last one carries. */
#define PLDM_FRU_PART_SIZE 54

/** The longest table that is read: a device that claims more is refused before memory is taken. */
#define PLDM_FRU_TABLE_LENGTH_MAX 0x100000

/** Field types that pldm_get_FRU_fields() looks up (DSP0257, table 5). */
#define PLDM_FRU_FIELD_TYPE_MIN 2
#define PLDM_FRU_FIELD_TYPE_MAX 15

/** The most fields of a record that pldm_get_FRU_fields() looks through. */
#define PLDM_FRU_FIELDS_MAX 16

/**
 * The fields of a GetFRURecordTableMetadata answer (DSP0257). The caller fills them, from an answer
 * that it has read itself, for print_pldm_metadata(): no function of the library delivers them, and
 * the layout is not that of the wire.
 */
typedef struct pldm_fru_metadata {
    uint8_t majorver;      /**< FRUDATAMajorVersion */
    uint8_t minorver;      /**< FRUDATAMinorVersion */
    uint32_t maxsize;      /**< FRUTableMaximumSize in bytes, 0 if SetFRURecordTable is unknown */
    uint32_t table_len;    /**< FRUTableLength in bytes, without pad and checksum */
    uint16_t setIdent_num; /**< record set identifiers in the table */
    uint16_t record_num;   /**< records in the table */
    uint32_t checksum;     /**< CRC-32 of the table and its pad bytes */
} pldm_fru_metadata;

/** One field of a record. The value belongs to the record. */
typedef struct pldm_fru_field {
    uint8_t type;   /**< field type; its meaning depends on the record type */
    uint8_t length; /**< bytes of the value, without the NUL behind it */
    char* value;    /**< the bytes as received, then a NUL; null if parsing ended before it */
} pldm_fru_field;

/** One record. It owns the array and every value; freeFRUdata() releases them. */
typedef struct pldm_fru_record {
    uint16_t set_identifier;  /**< FRURecordSetIdentifier */
    uint8_t type;             /**< 1 general, 254 OEM */
    uint8_t number_of_fields; /**< entries of fields */
    uint8_t encoding_type;    /**< of the values: 1 ASCII, 2 UTF-8, 3 UTF-16, ... */
    pldm_fru_field* fields;   /**< number_of_fields entries, or null */
} pldm_fru_record;

/* ---- Table ----------------------------------------------------------------------------------- */
/*
 * All take a bound context and print their progress to standard output. With the context's own
 * pldm_transfer an answer that is not a success is a failed exchange; a transfer operation that
 * hands such an answer over gets its completion code back where that is said. No checksum is
 * verified: neither the one in the metadata nor the one behind the table, which is not delivered.
 *
 * With MCTP_STRICT_PLDM both readers, and with them pldm_get_FRU_fields(), take parts of any size:
 * a part carries as many bytes as its answer has behind the transfer flag, so that a transfer
 * operation has to tell the length of answers. All parts together must be the table, its pad bytes
 * and the checksum, which must be the CRC-32 of table and pad bytes, little-endian, and equal to
 * that in the metadata, if they are read. Of what is not so nothing is delivered: the result is
 * PLDM_ERROR_ARGUMENT, and debug_log() says why. A transfer operation that passes a completion code
 * through gets every one but 0 back.
 */

/**
 * GetFRURecordTableMetadata (0x01).
 * @param table_length  receives the bytes of the table, without pad and checksum
 * @return 0; -1 on a null argument, a missing transfer_op or a truncated answer; the negative
 *         result of transfer_op on failure; a completion code that transfer_op passed through.
 *         Nothing is stored unless 0 is returned
 */
SIDEBAND_EXPORT int32_t pldm_get_FRU_record_table_metadata(pldm_ctx* ctx, uint32_t* table_length);

/**
 * GetFRURecordTableMetadata, then GetFRURecordTable (0x02) part by part until the table is whole.
 * Every part but the last one is taken to carry PLDM_FRU_PART_SIZE bytes, and the last one what is
 * still to come; the other bytes of a part are dropped. If such bytes belonged to the table,
 * because a part that is not the last carries more, the table is wrong although the result is 0: a
 * line of debug_log() says so, one a call. A device can spread a table over
 * PLDM_FRU_TABLE_LENGTH_MAX / PLDM_FRU_PART_SIZE exchanges, 19,419 of them, and no more; with
 * MCTP_STRICT_PLDM, which takes parts of any size, over one for each byte of it.
 * @param destination      receives the table: room for expected_length bytes, or for the length in
 *                         the metadata (at most PLDM_FRU_TABLE_LENGTH_MAX) if that is 0. After a
 *                         failure it holds the parts that came before; never is more written
 * @param expected_length  the length that the table must have; 0: any
 * @return 0; -1 on a null argument, a missing transfer_op or metadata too short for a length; the
 *         negative result of transfer_op on failure; PLDM_ERROR_ARGUMENT if the table's length
 *         is not the expected one or above PLDM_FRU_TABLE_LENGTH_MAX, on failed allocation, and
 *         if a part is shorter than the table still needs; the last completion code that
 *         transfer_op passed through (the table is whole then unless it is 0x80, 0x81 or 0x85)
 */
SIDEBAND_EXPORT int32_t pldm_get_FRU_record_table(pldm_ctx* ctx, uint8_t* destination,
                                                  uint32_t expected_length);

/**
 * GetFRURecordTable (0x02) from devices whose answers all have the same size: no metadata is asked
 * for, and an answer is at most 64 bytes long.
 * @param destination  zeroed, then receives the table. What a last part of less than the rest
 *                     does not bring stays zero, and a line of debug_log() says so. What a part
 *                     that is not the last carries behind PLDM_FRU_PART_SIZE bytes is dropped, as
 *                     in pldm_get_FRU_record_table()
 * @param length       room at destination in bytes; with MCTP_STRICT_PLDM the length of the table.
 *                     Answers may have any size then, which takes memory from the heap; more than
 *                     PLDM_FRU_TABLE_LENGTH_MAX is refused
 * @return the result of the last transfer_op: 0 also after a completion code that it passed
 *         through, and for a last part of which more than PLDM_FRU_PART_SIZE bytes would be left;
 *         -1 on a null argument, a negative length, a missing transfer_op, an answer without
 *         transfer flag or one that is not the last and shorter than it must be.
 *         PLDM_ERROR_ARGUMENT with MCTP_STRICT_PLDM: see above
 */
SIDEBAND_EXPORT int32_t pldm_get_FRU_record_table_MX(pldm_ctx* ctx, uint8_t* destination,
                                                     int32_t length);

/**
 * Reads the table into memory of its own and prints every field of one type in the first record to
 * standard output, up to its first NUL, each control character as \xNN.
 * @param field_id  field type, PLDM_FRU_FIELD_TYPE_MIN to PLDM_FRU_FIELD_TYPE_MAX
 * @return 0; -1 for another field type, without any exchange; -2 if the table cannot be read,
 *         whatever the reason: a null ctx, a missing transfer_op, memory, and every negative result
 *         of pldm_get_FRU_record_table(); -3 for a record of more than PLDM_FRU_FIELDS_MAX fields;
 *         PLDM_ERROR_ARGUMENT for a record that cannot be parsed, or memory for it; a completion
 *         code that transfer_op passed through
 */
SIDEBAND_EXPORT int32_t pldm_get_FRU_fields(pldm_ctx* ctx, uint32_t field_id);

/** Prints the fields of GetFRURecordTableMetadata on the platform's console. */
SIDEBAND_EXPORT void print_pldm_metadata(pldm_fru_metadata metadata);

/* ---- Record ---------------------------------------------------------------------------------- */

/**
 * Parses the first record of a table (DSP0257, table 2).
 * @param table   length bytes; values are copied
 * @param record  overwritten without being released. After a failure it may own memory too:
 *                freeFRUdata() either way
 * @return 0; PLDM_ERROR_ARGUMENT on a null argument, failed allocation, a record without fields or
 *         one that the table does not hold whole
 */
SIDEBAND_EXPORT int32_t pldm_parse_record_table(const uint8_t* table, pldm_fru_record* record,
                                                uint32_t length);

/**
 * Releases what a record owns and nulls the pointers: doing it again does nothing, as does a null
 * record. The record itself stays the caller's, and its other members stay as they are.
 */
SIDEBAND_EXPORT void freeFRUdata(pldm_fru_record* record);

/** @return 1 if a position is not below a length, else 0 */
SIDEBAND_EXPORT int32_t isBufOverFlow(uint32_t position, uint32_t length);

SIDEBAND_END_DECLS

#endif

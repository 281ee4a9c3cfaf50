/* SPDX-License-Identifier: Apache-2.0 */
/*
 * PLDM for platform monitoring and control (DSP0248): sensor commands, the PDR repository, decoded
 * PDRs, conversion of readings, printing.
 */
#ifndef SIDEBAND_PLDM_MONITOR_H
#define SIDEBAND_PLDM_MONITOR_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/export.h>
#include <sideband/pldm.h>

SIDEBAND_BEGIN_DECLS

/* ---- Sensors (DSP0248) ----------------------------------------------------------------------- */
/*
 * sensor_id is the ID of a sensor, as its PDR has it.
 */

/** Most composite sensors in one state sensor (DSP0248, clause 20). */
#define PLDM_COMPOSITE_SENSORS_MAX 8

/** sensorOperationalState: the reading is valid. */
#define PLDM_SENSOR_ENABLED 0

/** Result of pldm_get_state_sensor_reading_from_HEALTH() if there is no such reading. */
#define PLDM_SENSOR_NOT_FOUND 144

/** One field of GetStateSensorReadings. */
typedef struct pldm_state_reading {
    uint8_t sensor_operational_state; /**< 0 enabled, 1 disabled, 2 unavailable, ... */
    uint8_t present_state;            /**< a state of the sensor's state set (DSP0249) */
    uint8_t previous_state;           /**< previousState */
    uint8_t event_state;              /**< eventState */
} pldm_state_reading;

SIDEBAND_STATIC_ASSERT(sizeof(pldm_state_reading) == 4, "state reading record");

/**
 * Prints bytes in hex to standard output, sixteen to a line, and a line end. A null buffer
 * prints nothing, a length of 0 or less the line end alone.
 */
SIDEBAND_EXPORT void dump_packet(const uint8_t* buffer, int32_t length);

/**
 * SetNumericSensorEnable (0x10).
 * @param operational_state  sensorOperationalState wanted: 0 enabled, 1 disabled, 2 unavailable
 * @param event_enable       sensorEventMessageEnable
 * @return 0; PLDM_ERROR_ARGUMENT if ctx is null or has no transfer_op; the negative result of
 *         transfer_op on failure; 0 also for a completion code that transfer_op passed through
 */
SIDEBAND_EXPORT int32_t pldm_set_numeric_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id,
                                                       uint8_t operational_state,
                                                       uint8_t event_enable);

/**
 * GetSensorReading (0x11), no rearm.
 *
 * A sensor that is not enabled has a reading too: the first ten such readings in a row, counted
 * over all sensors of the process, are stored and return 0. From the eleventh on they fail, until
 * an enabled sensor is read. sensorOperationalState is not delivered.
 *
 * @param reading  receives the four bytes at presentReading as a little-endian number, whatever
 *                 sensorDataSize says. Bytes that the device does not send are 0; those that it
 *                 sends behind a narrower reading are stored as well: take as many bytes of it as
 *                 the sensor's PDR says, which also gives sign and unit
 * @return 0; PLDM_ERROR_ARGUMENT on a null argument or if ctx has no transfer_op; -1 for a sensor
 *         that is not enabled, from the eleventh reading on, and on a truncated answer; the
 *         negative result of transfer_op on failure. Nothing is stored unless 0 is returned
 */
SIDEBAND_EXPORT int32_t pldm_get_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id,
                                                uint32_t* reading);

/**
 * SetStateSensorEnables (0x20), the same for each composite sensor.
 *
 * The request is a heap block of 2 x (count + 3) bytes that is never freed, whatever the result
 * (a transfer operation may hold on to it): not to be called over and over.
 * @param count              composite sensors, at most PLDM_COMPOSITE_SENSORS_MAX
 * @param operational_state  as for pldm_set_numeric_sensor_enable()
 * @param event_enable       likewise
 * @return 0; PLDM_ERROR_ARGUMENT if ctx is null or has no transfer_op, or on failed allocation; -1
 *         if count is too large, and for the completion codes 0x80 and 0x82 if transfer_op passes
 *         them through; the result of transfer_op for any other code; its negative result on
 *         failure
 */
SIDEBAND_EXPORT int32_t pldm_set_state_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id,
                                                     uint8_t count, uint8_t operational_state,
                                                     uint8_t event_enable);

/**
 * GetStateSensorReadings (0x21): the first composite sensor that is enabled.
 * @param out  its three state bytes are filled, sensor_operational_state is not written;
 *             untouched if no composite sensor is enabled
 * @return 0; -1 on a null argument, a missing transfer_op, failed allocation or a truncated
 *         answer; the negative result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_state_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id,
                                                      pldm_state_reading* out);

/**
 * GetStateSensorReadings (0x21): the composite sensor at one position.
 * @param index  position from 0
 * @return 0 with out filled, or a completion code that transfer_op passed through with a field;
 *         PLDM_SENSOR_NOT_FOUND if the answer has no enabled field there; PLDM_ERROR_ARGUMENT on
 *         a null argument, a missing transfer_op or failed allocation; the negative result of
 *         transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_state_sensor_reading_from_HEALTH(pldm_ctx* ctx, uint16_t sensor_id,
                                                                  pldm_state_reading* out,
                                                                  uint8_t index);

/* ---- Decoded PDRs (DSP0248, PDR formats) ----------------------------------------------------- */
/*
 * Fixed layouts without padding, little-endian as on the wire, on a big-endian machine too: what is
 * read from a member of two or four bytes is turned round there before it is a number, by le16toh()
 * and le32toh() of <endian.h>, say; the functions below do so themselves. Members may lie
 * unaligned: read them through the record and keep no pointers to them.
 */

/** Bytes that one GetPDR asks for, and the room in which the library itself reads a record. */
#define PLDM_PDR_PART_SIZE 128

/** PDRType (DSP0248, common PDR header): those that the library knows. */
#define PLDM_PDR_TYPE_NUMERIC_SENSOR 2
#define PLDM_PDR_TYPE_STATE_SENSOR 4
#define PLDM_PDR_TYPE_NUMERIC_EFFECTER 9

/** sensorDataSize and rangeFieldFormat (DSP0248, Numeric Sensor PDR). */
#define PLDM_DATA_SIZE_UINT8 0
#define PLDM_DATA_SIZE_SINT8 1
#define PLDM_DATA_SIZE_UINT16 2
#define PLDM_DATA_SIZE_SINT16 3
#define PLDM_DATA_SIZE_UINT32 4
#define PLDM_DATA_SIZE_SINT32 5
#define PLDM_DATA_SIZE_REAL32 6

/** Result if there is no such state set, and of pldm_get_pdr() for a bad argument. */
#define PLDM_PDR_NOT_FOUND 144
/** Result of a conversion that the record does not allow, and of a failed traversal. */
#define PLDM_PDR_NOT_USABLE 255

/** The most records that pldm_PDR_traversal() reads. */
#define PLDM_PDR_RECORDS_MAX 65536

/** Common header of every PDR (DSP0248). */
typedef struct SIDEBAND_PACKED pldm_pdr_header {
    uint32_t record_handle;        /**< recordHandle */
    uint8_t header_version;        /**< PDRHeaderVersion */
    uint8_t type;                  /**< PLDM_PDR_TYPE_... */
    uint16_t record_change_number; /**< recordChangeNumber */
    uint16_t data_length;          /**< bytes behind this header */
} pldm_pdr_header;

/**
 * One value of a numeric sensor PDR: as many bytes as the format it comes in is wide, from the
 * first on, not sign-extended. The other bytes keep what they held before the record was decoded.
 */
typedef uint32_t pldm_pdr_slot;

/** A decoded Numeric Sensor PDR (DSP0248). */
typedef struct SIDEBAND_PACKED pldm_numeric_sensor_pdr {
    pldm_pdr_header header;             /**< type, length, handle */
    uint16_t terminus_handle;           /**< PLDMTerminusHandle */
    uint16_t sensor_id;                 /**< sensorID */
    uint16_t entity_type;               /**< DSP0249 */
    uint16_t entity_instance_number;    /**< entityInstanceNumber */
    uint16_t container_id;              /**< containerID */
    uint8_t sensor_init;                /**< sensorInit: how the sensor is set up */
    uint8_t sensor_auxiliary_names_pdr; /**< not 0: there is an auxiliary names PDR */
    uint8_t base_unit;                  /**< sensorUnits of DSP0248 */
    int8_t unit_modifier;               /**< power of ten */
    uint8_t rate_unit;                  /**< rateUnit: per what time */
    uint8_t base_oem_unit_handle;       /**< baseOEMUnitHandle */
    uint8_t aux_unit;                   /**< auxUnit, as base_unit */
    int8_t aux_unit_modifier;           /**< auxUnitModifier: power of ten */
    uint8_t aux_rate_unit;              /**< auxrateUnit */
    uint8_t rel;                        /**< relation of base and auxiliary unit */
    uint8_t aux_oem_unit_handle;        /**< auxOEMUnitHandle */
    uint8_t is_linear;                  /**< 1: readings are linear */
    uint8_t sensor_data_size;     /**< PLDM_DATA_SIZE_...: of readings, hysteresis, max, min */
    float resolution;             /**< units of the sensor per count */
    float offset;                 /**< in units of the sensor */
    uint16_t accuracy;            /**< hundredths of a percent */
    uint8_t plus_tolerance;       /**< plusTolerance */
    uint8_t minus_tolerance;      /**< minusTolerance */
    pldm_pdr_slot hysteresis;     /**< hysteresis, by sensor_data_size */
    uint8_t supported_thresholds; /**< supportedThresholds: a bit for each */
    uint8_t threshold_and_hysteresis_volatility; /**< when they are lost: bits */
    float state_transition_interval;             /**< seconds */
    float update_interval;                       /**< seconds */
    pldm_pdr_slot max_readable;                  /**< maxReadable */
    pldm_pdr_slot min_readable;                  /**< minReadable */
    uint8_t range_field_format;  /**< PLDM_DATA_SIZE_...: of the members behind the next */
    uint8_t range_field_support; /**< which of them mean something */
    pldm_pdr_slot nominal_value; /**< nominalValue */
    pldm_pdr_slot normal_max;    /**< normalMax */
    pldm_pdr_slot normal_min;    /**< normalMin */
    pldm_pdr_slot warning_high;  /**< warningHigh */
    pldm_pdr_slot warning_low;   /**< warningLow */
    pldm_pdr_slot critical_high; /**< criticalHigh */
    pldm_pdr_slot critical_low;  /**< criticalLow */
    pldm_pdr_slot fatal_high;    /**< fatalHigh */
    pldm_pdr_slot fatal_low;     /**< fatalLow */
} pldm_numeric_sensor_pdr;

/** Bytes of a decoded state sensor record that hold composite sensors. */
#define PLDM_PDR_STATE_ENTRIES_SIZE 41

/** The first 64 bytes of a State Sensor PDR (DSP0248). */
typedef struct SIDEBAND_PACKED pldm_state_sensor_pdr {
    pldm_pdr_header header;             /**< type, length, handle */
    uint16_t terminus_handle;           /**< PLDMTerminusHandle */
    uint16_t sensor_id;                 /**< sensorID */
    uint16_t entity_type;               /**< DSP0249 */
    uint16_t entity_instance_number;    /**< entityInstanceNumber */
    uint16_t container_id;              /**< containerID */
    uint8_t sensor_init;                /**< sensorInit: how the sensor is set up */
    uint8_t sensor_auxiliary_names_pdr; /**< not 0: there is an auxiliary names PDR */
    uint8_t composite_sensor_count;     /**< compositeSensorCount */
    /**
     * One entry a composite sensor: stateSetID (2 bytes), possibleStatesSize (1), as many bytes of
     * possibleStates. A device decides what stands here: walk it with bounds.
     */
    uint8_t entries[PLDM_PDR_STATE_ENTRIES_SIZE];
} pldm_state_sensor_pdr;

/** A decoded record: header.type tells which. */
typedef union SIDEBAND_PACKED pldm_pdr {
    pldm_pdr_header header;          /**< of either */
    pldm_numeric_sensor_pdr numeric; /**< of PLDM_PDR_TYPE_NUMERIC_SENSOR */
    pldm_state_sensor_pdr state;     /**< of PLDM_PDR_TYPE_STATE_SENSOR */
} pldm_pdr;

SIDEBAND_STATIC_ASSERT(sizeof(pldm_pdr_header) == 10, "PDR common header");
SIDEBAND_STATIC_ASSERT(sizeof(pldm_numeric_sensor_pdr) == 105, "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, sensor_data_size) == 32,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, hysteresis) == 45,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, supported_thresholds) == 49,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, max_readable) == 59,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, range_field_format) == 67,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_numeric_sensor_pdr, nominal_value) == 69,
                       "decoded numeric sensor record");
SIDEBAND_STATIC_ASSERT(sizeof(pldm_state_sensor_pdr) == 64, "decoded state sensor record");
SIDEBAND_STATIC_ASSERT(offsetof(pldm_state_sensor_pdr, composite_sensor_count) == 22,
                       "decoded state sensor record");
SIDEBAND_STATIC_ASSERT(sizeof(pldm_pdr) == 105, "decoded record");

/* ---- PDR repository (DSP0248) ---------------------------------------------------------------- */

/**
 * GetPDRRepositoryInfo (0x50).
 * @param record_count  receives the number of records
 * @return 0; PLDM_ERROR_ARGUMENT on a null argument or if ctx has no transfer_op; -1 on a
 *         truncated answer; the completion code if transfer_op passes one through; the negative
 *         result of transfer_op on failure. Nothing is stored unless 0 is returned
 */
SIDEBAND_EXPORT int32_t pldm_get_pdr_repository_info(pldm_ctx* ctx, uint32_t* record_count);

/**
 * GetPDR (0x51): reads one record in at most seven parts of at most PLDM_PDR_PART_SIZE bytes.
 *
 * A record that is too long for the buffer, a part that is too long and a seventh part that is not
 * the last end the call with 0 as well: whoever must know whether the record is whole compares
 * *record_handle with what it was.
 *
 * With MCTP_STRICT_PLDM the transferCRC behind the data of a part with transferFlag End, the last
 * one of several, must be there and be the CRC-8 of the whole record. If it is not the result is
 * -1, the handle stays, the parts are in the buffer, and debug_log() says so. Without the bit it is
 * not looked at.
 *
 * @param record_handle  the record wanted, 0 for the first; receives the handle of the next record
 *                       (0 behind the last) once the record is whole, otherwise it stays
 * @param buffer         receives the record, common header first; the bytes behind what came stay
 *                       as they were. Of a part with a completion code other than 0 nothing is
 *                       stored; what the parts before it brought stays
 * @param capacity       room at buffer in bytes; no more is written
 * @return 0; PLDM_PDR_NOT_FOUND on a null argument, a capacity of 0, a missing transfer_op or
 *         failed allocation; -1 if a part has fewer bytes than it claims, or with
 *         MCTP_STRICT_PLDM if the transferCRC is missing or wrong; the completion code if
 *         transfer_op passes one through, which may be equal to PLDM_PDR_NOT_FOUND; the negative
 *         result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_pdr(pldm_ctx* ctx, uint32_t* record_handle, uint8_t* buffer,
                                     uint32_t capacity);

/**
 * Reads one record and decodes it with pldm_parse_pdr(). Of a record that does not come whole,
 * since it is longer than PLDM_PDR_PART_SIZE or does not end, the parts that fit are decoded, with
 * zeros behind them; last_error says that it is malformed.
 * @param record_handle  the record wanted, 0 for the first
 * @param parsed         receives the decoded record; zero it beforehand (see pldm_pdr_slot)
 * @return 0; -1 on a null argument, a missing transfer_op, failed allocation, a record that is
 *         whole and shorter than its type demands (with MCTP_STRICT_PLDM also one that is not
 *         whole) or that pldm_parse_pdr() refuses, as it does if nothing came, and on a truncated
 *         answer; the negative result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_full_pdr(pldm_ctx* ctx, uint32_t record_handle, pldm_pdr* parsed);

/**
 * Reads every record from the first to the last, for the transfers' sake: the contents are
 * discarded. The walk ends with handle 0, or after PLDM_PDR_RECORDS_MAX records: their handles go
 * round then.
 *
 * A record that pldm_get_pdr() does not get whole into PLDM_PDR_PART_SIZE bytes is asked for again
 * and again, without end: only for repositories whose records fit. So is a record that is answered
 * with a completion code which transfer_op passes through, but every such answer counts as a
 * record. The first record is asked for by handle 0: if it does not come whole, or is answered with
 * a code, the walk ends with 0.
 * @return 0; PLDM_PDR_NOT_USABLE if ctx is null or has no transfer_op, on failed allocation and if
 *         the last record is not among the first PLDM_PDR_RECORDS_MAX; the low eight bits of the
 *         negative result of pldm_get_pdr(): 255 for -1
 */
SIDEBAND_EXPORT int32_t pldm_PDR_traversal(pldm_ctx* ctx);

/* ---- Decoding -------------------------------------------------------------------------------- */
/*
 * No length goes with a raw record. The caller guarantees the bytes that are read: six for a type
 * that is not known, 64 for a state sensor, and for a numeric sensor 69 to 105 as its two formats
 * demand. A zeroed buffer of PLDM_PDR_PART_SIZE bytes serves for all. raw and out must not overlap.
 */

/**
 * Width of a value.
 * @param code  sensorDataSize or rangeFieldFormat, PLDM_DATA_SIZE_...
 * @return 1, 2 or 4 bytes; 0 for a code that does not exist
 */
SIDEBAND_EXPORT int32_t pldm_get_data_size(uint8_t code);

/**
 * Decodes a record by its PDRType.
 * @param raw  the record, common header first
 * @param out  receives the decoded record; the members of other types are left alone
 * @return 0; -1 on a null argument, for a type other than numeric and state sensor, and if the
 *         decoder of the type refuses the record
 */
SIDEBAND_EXPORT int32_t pldm_parse_pdr(const uint8_t* raw, pldm_pdr* out);

/**
 * Decodes a Numeric Sensor PDR, whatever its PDRType. All nine range values are read, whatever
 * rangeFieldSupport says.
 * @param out  zero it beforehand: narrow values do not fill their slots
 * @return 0; -1 on a null argument, and if sensorDataSize or rangeFieldFormat does not exist;
 *         the members before the invalid one's values are then written
 */
SIDEBAND_EXPORT int32_t pldm_parse_numeric_sensor_pdr(const uint8_t* raw,
                                                      pldm_numeric_sensor_pdr* out);

/**
 * Copies the first 64 bytes of a State Sensor PDR, whatever its PDRType.
 * @return 0, also on a null argument; nothing is copied then
 */
SIDEBAND_EXPORT int32_t pldm_parse_state_sensor_pdr(const uint8_t* raw, pldm_state_sensor_pdr* out);

/**
 * Finds a composite sensor by its state set.
 * @param state_set_id  stateSetID wanted (DSP0249)
 * @param index         receives its position from 0; untouched otherwise
 * @return 0; PLDM_PDR_NOT_FOUND on a null argument, if no composite sensor has that state set,
 *         and if the search leaves the record
 */
SIDEBAND_EXPORT int32_t pldm_find_ctrl_state_set_idx(uint16_t state_set_id,
                                                     const pldm_state_sensor_pdr* state_pdr,
                                                     uint32_t* index);

/* ---- Conversion of readings (DSP0248) -------------------------------------------------------- */

/**
 * Converts a raw reading: offset + reading x resolution, one fused multiply-add in single
 * precision, truncated to an unsigned 32-bit number with saturation (negative values and NaN give
 * 0), of which the low eight bits are returned. Units and unitModifier are not applied. An 8-bit
 * reading is taken as unsigned even if sensorDataSize says signed.
 * @param raw_reading  as pldm_get_sensor_reading() delivers it
 * @return the value modulo 256; PLDM_PDR_NOT_USABLE if the record is null or its sensorDataSize
 *         is no integer
 */
SIDEBAND_EXPORT uint8_t pldm_numeric_reading_conversion(uint32_t raw_reading,
                                                        const pldm_numeric_sensor_pdr* numeric_pdr);

/**
 * Converts raw_reading by the type of its record.
 * @param pdr      a decoded record
 * @param convert  0: no conversion, the low byte of the reading
 * @return PLDM_PDR_NOT_USABLE for a null record and, if convert is not 0, for a numeric
 *         effecter; pldm_numeric_reading_conversion() for a numeric sensor; the low byte of the
 *         reading for any other type
 */
SIDEBAND_EXPORT uint8_t pldm_reading_conversion(uint32_t raw_reading, const pldm_pdr* pdr,
                                                uint8_t convert);

/* ---- Printing -------------------------------------------------------------------------------- */

/**
 * Prints the 105 bytes of a decoded record with console_log(), fifteen to a line, and an empty
 * line. A null record prints nothing.
 */
SIDEBAND_EXPORT void dump_numeric_sensor_pdr(const pldm_numeric_sensor_pdr* record);

/** Bytes of the name of a state set, the NUL included. */
#define PLDM_STATE_SET_NAME_SIZE 32

/** A state set (DSP0249) and its name. */
typedef struct pldm_state_set {
    uint16_t id;                         /**< stateSetID */
    char name[PLDM_STATE_SET_NAME_SIZE]; /**< padded with NULs */
} pldm_state_set;

SIDEBAND_STATIC_ASSERT(sizeof(pldm_state_set) == 34, "state set");

/** Entries of STATE_TABLE. */
#define PLDM_STATE_SETS 8

/**
 * The state sets that have a name. A service may write names of its own, before any other thread
 * prints.
 */
SIDEBAND_EXPORT extern pldm_state_set STATE_TABLE[PLDM_STATE_SETS];
/** The number of entries, for callers that have no header: PLDM_STATE_SETS. */
SIDEBAND_EXPORT extern const uint32_t pldm_state_state_num;

/**
 * The name of the state set state_set_id.
 * @param dst  PLDM_STATE_SET_NAME_SIZE bytes; receives the name padded with NULs, an empty string
 *             if STATE_TABLE has no such state set. Null: nothing is done
 */
SIDEBAND_EXPORT void lookup_state_set_string(uint16_t state_set_id, char* dst);

/** Prints a decoded record with debug_log(), one line a member. A null record prints nothing. */
SIDEBAND_EXPORT void pldm_print_numeric_PDR(const pldm_numeric_sensor_pdr* record);

/**
 * Prints a decoded record with debug_log(): its members, then each composite sensor. Composite
 * sensors that run past the record are reported and end the list. A null record prints nothing.
 */
SIDEBAND_EXPORT void pldm_print_state_PDR(const pldm_state_sensor_pdr* record);

SIDEBAND_END_DECLS

#endif

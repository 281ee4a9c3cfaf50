/* SPDX-License-Identifier: Apache-2.0 */
/* PLDM for platform monitoring and control: sensor commands (DSP0248). */
#ifndef SIDEBAND_PLDM_MONITOR_H
#define SIDEBAND_PLDM_MONITOR_H

#include <stdint.h>

#include <sideband/export.h>
#include <sideband/pldm.h>

SIDEBAND_BEGIN_DECLS

/** Most composite sensors in one state sensor (DSP0248, clause 20). */
#define PLDM_COMPOSITE_SENSORS_MAX 8

/** sensorOperationalState: the reading is valid. */
#define PLDM_SENSOR_ENABLED 0

/** Result of pldm_get_state_sensor_reading_from_HEALTH() where there is no such reading. */
#define PLDM_SENSOR_NOT_FOUND 144

/** One field of GetStateSensorReadings. */
typedef struct pldm_state_reading {
    uint8_t sensor_operational_state; /**< 0 enabled, 1 disabled, 2 unavailable, ... */
    uint8_t present_state;            /**< a state of the sensor's state set (DSP0249) */
    uint8_t previous_state;
    uint8_t event_state;
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
 * @return 0; PLDM_ERROR_ARGUMENT where ctx is null or has no transfer_op; the negative result of
 *         transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_set_numeric_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id,
                                                       uint8_t operational_state,
                                                       uint8_t event_enable);

/**
 * GetSensorReading (0x11), no rearm.
 * @param reading  receives the presentReading bytes as a little-endian number, zero-extended;
 *                 the sensor's PDR gives width, sign and unit
 * @return 0; PLDM_ERROR_ARGUMENT on a null argument or where ctx has no transfer_op; -1 from the
 *         eleventh consecutive reading, over all sensors of the process, that was not enabled, and
 * on a truncated answer; the negative result of transfer_op on failure. Nothing is stored unless 0
 * is returned
 */
SIDEBAND_EXPORT int32_t pldm_get_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id,
                                                uint32_t* reading);

/**
 * SetStateSensorEnables (0x20), the same for each composite sensor.
 * @param count  composite sensors, at most PLDM_COMPOSITE_SENSORS_MAX
 * @return 0; PLDM_ERROR_ARGUMENT where ctx is null or has no transfer_op, or on failed
 *         allocation; -1 where count is too large, and for the completion codes 0x80 and 0x82
 *         where transfer_op passes them through; the negative result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_set_state_sensor_enable(pldm_ctx* ctx, uint16_t sensor_id,
                                                     uint8_t count, uint8_t operational_state,
                                                     uint8_t event_enable);

/**
 * GetStateSensorReadings (0x21): the first composite sensor that is enabled.
 * @param out  its three state bytes are filled, sensor_operational_state is not written;
 *             untouched where no composite sensor is enabled
 * @return 0; -1 on a null argument, a missing transfer_op, failed allocation or a truncated
 *         answer; the negative result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_state_sensor_reading(pldm_ctx* ctx, uint16_t sensor_id,
                                                      pldm_state_reading* out);

/**
 * GetStateSensorReadings (0x21): the composite sensor at one position.
 * @param index  position from 0
 * @return 0 with out filled; PLDM_SENSOR_NOT_FOUND where the answer has no enabled field there;
 *         PLDM_ERROR_ARGUMENT on a null argument, a missing transfer_op or failed allocation;
 *         the negative result of transfer_op on failure
 */
SIDEBAND_EXPORT int32_t pldm_get_state_sensor_reading_from_HEALTH(pldm_ctx* ctx, uint16_t sensor_id,
                                                                  pldm_state_reading* out,
                                                                  uint8_t index);

SIDEBAND_END_DECLS

#endif

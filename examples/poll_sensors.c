/* SPDX-License-Identifier: Apache-2.0 */
/* Polls every numeric sensor of a GPU; which there are, and in what unit, its own records tell. */
#include <sideband-sim/sim.h>
#include <sideband/pldm_monitor.h>
#include <stdio.h>

#define SENSORS_MAX 16
#define ROUNDS 3

/* Reads the PDR repository and keeps its numeric sensors. @return their number; -1 on failure */
static int find_sensors(pldm_ctx* gpu, pldm_numeric_sensor_pdr sensors[SENSORS_MAX]) {
    uint32_t left = 0;
    uint32_t handle = 0; /* of the next record; 0 asks for the first one */
    int found = 0;
    if (pldm_get_pdr_repository_info(gpu, &left) != 0) {
        return -1;
    }
    for (; left > 0 && found < SENSORS_MAX; --left) {
        uint8_t record[1024] = {0};
        pldm_pdr pdr = {0};
        const uint32_t wanted = handle;
        if (pldm_get_pdr(gpu, &handle, record, sizeof record) != 0) {
            return -1;
        }
        if (pldm_parse_pdr(record, &pdr) == 0 && pdr.header.type == PLDM_PDR_TYPE_NUMERIC_SENSOR) {
            sensors[found++] = pdr.numeric;
        }
        if (handle == wanted && left > 1) {
            return -1; /* the record did not come whole, so that nothing tells what follows it */
        }
    }
    return found;
}

/* The raw reading as a number: its width and its sign are the sensor's. */
static double number_of(uint32_t raw, uint8_t data_size) {
    switch (data_size) {
        case PLDM_DATA_SIZE_UINT8:
            return (uint8_t)raw;
        case PLDM_DATA_SIZE_SINT8:
            return (int8_t)raw;
        case PLDM_DATA_SIZE_UINT16:
            return (uint16_t)raw;
        case PLDM_DATA_SIZE_SINT16:
            return (int16_t)raw;
        case PLDM_DATA_SIZE_SINT32:
            return (int32_t)raw;
        default:
            return raw;
    }
}

/* sensorUnits and unitModifier (DSP0248), as far as this GPU needs them. */
static const char* unit_of(const pldm_numeric_sensor_pdr* sensor) {
    const int milli = sensor->unit_modifier == -3;
    switch (sensor->base_unit) {
        case 2:
            return "degC";
        case 5:
            return milli ? "mV" : "V";
        case 7:
            return milli ? "mW" : "W";
        default:
            return "?";
    }
}

int main(void) {
    pldm_numeric_sensor_pdr sensors[SENSORS_MAX];
    mctp_ctx where = {0};
    pldm_ctx gpu = {0};
    int failed = 0;

    where.src_eid = 8;
    where.binding_kind = MCTP_BINDING_KIND_SL8_SMBUS;
    where.bus = 3;
    where.slave_addr = 0x9e;
    if (sideband_sim_open(NULL) != 0 || pldm_terminus_init(&gpu, &where) != 0) {
        fprintf(stderr, "the GPU does not answer\n");
        return 1;
    }
    const int count = find_sensors(&gpu, sensors);
    for (int round = 0; round < ROUNDS && count > 0; ++round) {
        for (const pldm_numeric_sensor_pdr* each = sensors; each < sensors + count; ++each) {
            uint32_t raw = 0;
            if (pldm_get_sensor_reading(&gpu, each->sensor_id, &raw) != 0) {
                ++failed;
                continue;
            }
            printf("round %d, sensor %d: %.3f %s\n", round, each->sensor_id,
                   number_of(raw, each->sensor_data_size) * each->resolution + each->offset,
                   unit_of(each));
        }
        sideband_sim_advance(5 * 1000 * 1000); /* firmware sleeps */
    }
    pldm_terminus_deinit(&gpu);
    sideband_sim_close();
    return count > 0 && failed == 0 ? 0 : 1;
}

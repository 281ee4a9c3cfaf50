/* SPDX-License-Identifier: Apache-2.0 */
/* Takes stock of the devices on the I2C buses: every record of their FRU tables (DSP0257). */
#include <sideband-sim/sim.h>
#include <sideband/pldm_fru.h>
#include <stdio.h>
#include <stdlib.h>

/* Field types of a general record, from 1 on; what is not here is no plain text. */
static const char* const field_names[] = {
    NULL,     NULL,   "model", "part number", "serial number", "manufacturer", NULL,
    "vendor", "name", "SKU",   "version",     "asset tag",     "description"};
#define FIELD_NAMES (sizeof field_names / sizeof *field_names)
#define GENERAL_RECORD 1
#define ENCODING_ASCII 1

/* A device can put anything into a text, control characters of a terminal as well. */
static void print_text(const char* name, const pldm_fru_field* field) {
    printf("  %s: ", name);
    for (int i = 0; i < field->length; ++i) {
        const char each = field->value[i];
        putchar(each >= ' ' && each <= '~' ? each : '.');
    }
    putchar('\n');
}

static void print_record(const pldm_fru_record* record) {
    printf(" record set %d\n", record->set_identifier);
    for (int i = 0; i < record->number_of_fields; ++i) {
        const pldm_fru_field* field = &record->fields[i];
        const int known = record->type == GENERAL_RECORD && field->type < FIELD_NAMES;
        if (known && field_names[field->type] != NULL && record->encoding_type == ENCODING_ASCII) {
            print_text(field_names[field->type], field);
        }
    }
}

/* Bytes of a record in its table: a head of five, and two in front of every value. */
static uint32_t size_of(const pldm_fru_record* record) {
    uint32_t size = 5;
    for (int i = 0; i < record->number_of_fields; ++i) {
        size += 2U + record->fields[i].length;
    }
    return size;
}

static int print_table(pldm_ctx* device) {
    uint32_t length = 0;
    if (pldm_get_FRU_record_table_metadata(device, &length) != 0 || length == 0 ||
        length > PLDM_FRU_TABLE_LENGTH_MAX) {
        return -1;
    }
    uint8_t* table = malloc(length);
    int result = table != NULL ? pldm_get_FRU_record_table(device, table, length) : -1;
    for (uint32_t at = 0; result == 0 && at < length;) {
        pldm_fru_record record = {0};
        result = pldm_parse_record_table(table + at, &record, length - at);
        if (result == 0) {
            print_record(&record);
            at += size_of(&record);
        }
        freeFRUdata(&record);
    }
    free(table);
    return result;
}

int main(void) {
    /* A multiplexer setting is the platform's own: here a count, then address and channel. */
    const mctp_ctx devices[] = {
        {.src_eid = 8, .bus = 2, .slave_addr = 0x64, .mux = {1, 0xe0, 1}},
        {.src_eid = 8, .bus = 3, .slave_addr = 0x9e, .binding_kind = MCTP_BINDING_KIND_SL8_SMBUS},
    };
    int result = 0;
    if (sideband_sim_open(NULL) != 0) {
        return 1;
    }
    for (size_t i = 0; i < sizeof devices / sizeof *devices; ++i) {
        pldm_ctx device = {0};
        printf("bus %d, address 0x%02x\n", devices[i].bus, devices[i].slave_addr);
        if (pldm_terminus_init(&device, &devices[i]) != 0 || print_table(&device) != 0) {
            fprintf(stderr, "bus %d, address 0x%02x: no inventory\n", devices[i].bus,
                    devices[i].slave_addr);
            result = 1;
        }
        pldm_terminus_deinit(&device);
    }
    sideband_sim_close();
    return result;
}

// SPDX-License-Identifier: Apache-2.0
// A FRU record table as a table for people and as an object for programs.
#include "tools/pldm/fru_report.h"

#include "tools/pldm/codes.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {

std::string fru_text(const FruData& table, size_t indent) {
    Table rows({{"SET", true}, {"RECORD"}, {"FIELD"}, {"VALUE"}});
    for (const FruRecord& record : table.records) {
        for (const FruField& field : record.fields) {
            rows.add({std::to_string(record.set_identifier), fru_record_type_name(record.type),
                      fru_field_name(record.type, field.type), fru_value_text(record, field)});
        }
    }
    return rows.text(indent);
}

Json fru_json(const FruData& table) {
    Json records = Json::array();
    for (const FruRecord& record : table.records) {
        Json fields = Json::array();
        for (const FruField& field : record.fields) {
            fields.push_back({{"fru_field_type", field.type},
                              {"name", fru_field_name(record.type, field.type)},
                              {"fru_field_length", field.value.size()},
                              {"fru_field_value", hex(field.value)},
                              {"text", fru_value_text(record, field)}});
        }
        records.push_back({{"fru_record_set_identifier", record.set_identifier},
                           {"fru_record_type", record.type},
                           {"fru_record_type_name", fru_record_type_name(record.type)},
                           {"encoding_type_for_fru_fields", record.encoding},
                           {"number_of_fru_fields", record.fields.size()},
                           {"fru_fields", fields}});
    }
    return {{"fru_data_major_version", table.major_version},
            {"fru_data_minor_version", table.minor_version},
            {"fru_table_length", table.length},
            {"number_of_records", table.records.size()},
            {"fru_records", records}};
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The commands pldm pdr list, show and dump.
#include <fmt/format.h>

#include "common/wire.h"
#include "tools/pldm/commands.h"
#include "tools/pldm/pdr_names.h"
#include "tools/pldm/pdr_show.h"
#include "tools/pldm/pdr_walk.h"
#include "tools/pldm/sensor_pdr.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

using sideband::WireReader;

/// Entity type, instance number and container ID, where the reader stands.
std::string read_entity(WireReader& reader) {
    const uint16_t type = reader.le16();
    const uint16_t instance = reader.le16();
    reader.skip(sizeof(uint16_t));
    return entity_text(type, instance);
}

std::string describe_association(WireReader& reader) {
    const uint16_t container = reader.le16();
    reader.skip(1);
    const std::string entity = read_entity(reader);
    const uint8_t contained = reader.u8();
    return fmt::format("{} holds {} (container {})", entity,
                       contained == 1 ? "1 entity" : fmt::format("{} entities", contained),
                       container);
}

/// "sensor 3, fan 1": terminus handle, the number of something, its entity.
std::string describe_numbered(WireReader& reader, const char* what) {
    reader.skip(sizeof(uint16_t));
    const uint16_t number = reader.le16();
    return fmt::format("{} {}, {}", what, number, read_entity(reader));
}

std::string describe_names(const PdrRecord& record) {
    const SensorNames names = auxiliary_names({record});
    if (names.empty()) {
        return "-";
    }
    const auto& [id, of_sensor] = *names.begin();
    std::string text = fmt::format("sensor {}:", id);
    for (size_t i = 0; i < of_sensor.size(); ++i) {
        text += i > 0 && of_sensor[i] == of_sensor[i - 1] ? "" : " " + of_sensor[i];
    }
    return text;
}

/// What a record is about, in a few words (DSP0248, PDR formats); "-" if that is not told.
std::string describe(const PdrRecord& record) {
    WireReader reader(record.bytes);
    reader.skip(sizeof(pldm_pdr_header));
    std::string text = "-";
    switch (record.type()) {
        case 1:
            reader.skip(sizeof(uint16_t) + 1);
            text = fmt::format("TID {}", reader.u8());
            break;
        case PLDM_PDR_TYPE_NUMERIC_SENSOR:
        case PLDM_PDR_TYPE_STATE_SENSOR:
        case 21:
            text = describe_numbered(reader, "sensor");
            break;
        case 6:
            return describe_names(record);
        case PLDM_PDR_TYPE_NUMERIC_EFFECTER:
        case 11:
            text = describe_numbered(reader, "effecter");
            break;
        case 15:
            text = describe_association(reader);
            break;
        case 20:
            text = describe_numbered(reader, "FRU record set");
            break;
        default:
            break;
    }
    return reader.ok() ? text : "-";
}

Json record_json(const PdrRecord& record) {
    Json json{{"record_handle", record.handle()},
              {"pdr_type", record.type()},
              {"pdr_type_name", pdr_type_name(record.type())},
              {"size", record.bytes.size()},
              {"next_record_handle", record.next}};
    if (!record.whole()) {
        json["problem"] = record.problem;
    }
    return json;
}

/// The records wanted, with what was wrong on the way already reported at the end of the command.
PdrWalk wanted_records(Session& session, const std::string& handle) {
    std::optional<uint32_t> number;
    if (!handle.empty()) {
        number = parse_number(handle, UINT32_MAX);
        if (!number) {
            throw Failure(ExitStatus::kUsage,
                          fmt::format("{}: the handle is a number from 0 to 0xffffffff", handle));
        }
    }
    session.discover();
    PdrWalk walk;
    if (!number) {
        walk = walk_pdrs(session);
        if (!walk.repository) {
            throw session.pldm_failure("GetPDRRepositoryInfo");
        }
        return walk;
    }
    walk.records.push_back(read_pdr(session, *number));
    const PdrRecord& record = walk.records.back();
    if (!record.whole()) {
        walk.failures.push_back(pdr_failure(session, "GetPDR", record.handle(), record.problem));
    }
    return walk;
}

/// Prints the document, then what went wrong.
void finish(Context& context, const std::string& endpoint, const Json& list,
            const std::vector<Failure>& failures) {
    context.output.document({{"endpoint", endpoint}, {"records", list}});
    for (const Failure& failure : failures) {
        context.report(failure);
    }
}

}  // namespace

void run_pldm_pdr_list(Context& context, const std::string& endpoint, const std::string& handle) {
    Session session(find_endpoint(context.port, endpoint));
    const PdrWalk walk = wanted_records(session, handle);
    Table table({{"HANDLE", true}, {"TYPE", true}, {"NAME"}, {"SIZE", true}, {"DESCRIBES"}});
    Json list = Json::array();
    for (const PdrRecord& record : walk.records) {
        const std::string about = record.whole() ? describe(record) : "(not whole)";
        table.add({std::to_string(record.handle()), std::to_string(record.type()),
                   pdr_type_name(record.type()), std::to_string(record.bytes.size()), about});
        list.push_back(record_json(record));
        list.back()["describes"] = about;
    }
    context.output.text(table.text());
    finish(context, endpoint, list, walk.failures);
}

void run_pldm_pdr_show(Context& context, const std::string& endpoint, const std::string& handle) {
    Session session(find_endpoint(context.port, endpoint));
    PdrWalk walk = wanted_records(session, handle);
    std::string text;
    Json list = Json::array();
    for (const PdrRecord& record : walk.records) {
        const bool wanted = is_sensor(record) || !handle.empty();
        if (!record.whole() || !wanted) {
            continue;
        }
        try {
            text += (text.empty() ? "" : "\n") + record_text(session, record);
            list.push_back(record_fields(session, record));
        } catch (const Failure& failure) {
            walk.failures.push_back(failure);
        }
    }
    context.output.text(text);
    finish(context, endpoint, list, walk.failures);
}

void run_pldm_pdr_dump(Context& context, const std::string& endpoint, const std::string& handle) {
    constexpr size_t kBytesPerLine = 16;
    Session session(find_endpoint(context.port, endpoint));
    const PdrWalk walk = wanted_records(session, handle);
    std::string text;
    Json list = Json::array();
    for (const PdrRecord& record : walk.records) {
        text += fmt::format("{}record {}, {}, {} bytes{}\n", text.empty() ? "" : "\n",
                            record.handle(), pdr_type_name(record.type()), record.bytes.size(),
                            record.whole() ? "" : ", not whole");
        const std::span<const uint8_t> bytes(record.bytes);
        for (size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
            const size_t count = std::min(kBytesPerLine, bytes.size() - at);
            text += fmt::format("{:04x} ", at);
            for (const uint8_t byte : bytes.subspan(at, count)) {
                text += fmt::format(" {:02x}", byte);
            }
            text += "\n";
        }
        list.push_back(record_json(record));
        list.back()["data"] = hex(record.bytes);
    }
    context.output.text(text);
    finish(context, endpoint, list, walk.failures);
}

}  // namespace tool

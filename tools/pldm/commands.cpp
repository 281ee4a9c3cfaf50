// SPDX-License-Identifier: Apache-2.0
// The command line of the commands pldm, but for those of firmware.
#include "tools/pldm/commands.h"

#include "tools/shell/commands.h"

namespace tool {
namespace {

struct SensorsArguments : EndpointArguments {
    std::vector<std::string> ids;
    Watch watch;
};

struct PdrArguments : EndpointArguments {
    std::string handle;
};

struct FruArguments : EndpointArguments {
    bool fixed_parts = false;
};

void add_sensors(Command pldm, const Commands& commands) {
    const auto [sensors, arguments] = commands.add<SensorsArguments>(
        pldm, "sensors", "sensor readings", [](Context& c, const SensorsArguments& a) {
            run_pldm_sensors(c, a.endpoint, a.ids, a.watch);
        });
    sensors.add_option("ID", arguments.ids,
                       "sensors, e.g. 12 state:5; without any, those in the PDR repository");
    const Option again = sensors
                             .add_option("--watch", arguments.watch.seconds,
                                         "read again and again, so many seconds apart")
                             .type_name("SECONDS")
                             .range(0.001, 86400.0);
    sensors.add_option("--count", arguments.watch.count, "with --watch: end after so many readings")
        .type_name("N")
        .needs(again)
        .range(1, 1000000);
}

void add_pdr(Command pldm, const Commands& commands) {
    using Run = void (*)(Context&, const std::string&, const std::string&);
    const Command pdr = Commands::noun(pldm, "pdr", "platform descriptor records");
    const auto add = [&](const char* name, const char* help, Run run) {
        const auto [command, arguments] = commands.add<PdrArguments>(
            pdr, name, help,
            [run](Context& c, const PdrArguments& a) { run(c, a.endpoint, a.handle); });
        command.add_option("HANDLE", arguments.handle,
                           "one record by its handle; without it all of them");
    };
    add("list", "the records: handle, type, size, what each describes", run_pldm_pdr_list);
    add("show", "the fields of sensor records, in words", run_pldm_pdr_show);
    add("dump", "the records in hex", run_pldm_pdr_dump);
}

void add_fru(Command pldm, const Commands& commands) {
    const auto [fru, arguments] = commands.add<FruArguments>(
        pldm, "fru", "the FRU data: manufacturer, part and serial numbers, dates",
        [](Context& c, const FruArguments& a) { run_pldm_fru(c, a.endpoint, a.fixed_parts); });
    fru.add_flag("--fixed", arguments.fixed_parts,
                 "the device sends the table in answers of one size");
}

}  // namespace

void add_pldm_commands(const Commands& commands) {
    const Command pldm =
        commands.noun("pldm", "PLDM: base information, sensors, PDRs, FRU data, firmware");
    commands.add(pldm, "info", "terminus ID, PLDM types, versions, commands", run_pldm_info);
    add_sensors(pldm, commands);
    add_pdr(pldm, commands);
    add_fru(pldm, commands);
}

}  // namespace tool

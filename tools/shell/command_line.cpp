// SPDX-License-Identifier: Apache-2.0
// The command line: which command is wanted, with which options.
#include "tools/shell/command_line.h"

#include <sideband/ncsi.h>

#include <sstream>

#include "tools/shell/command_words.h"

namespace tool {
namespace {

constexpr const char* kFooter =
    "Before or behind the command: --board FILE, --json, --capture FILE, --verbose\n"
    "Exit status: 0 done, 1 device or transport failed, 2 wrong usage, 3 an input file is bad";

constexpr const char* kPackageHelp = "a PLDM firmware update package";

void add_options(CLI::App& app, CommandLine& line) {
    app.add_option("--board", line.board, "the board's description (default: built in)")
        ->type_name("FILE");
    app.add_flag("--json", line.json, "one JSON document on standard output, nothing else");
    app.add_option("--capture", line.capture, "write what passes over the buses as pcapng")
        ->type_name("FILE");
    app.add_flag("--verbose", line.verbose,
                 "every packet, and the library's own dumps and log, on standard error");
    app.set_version_flag("--version", std::string(Port::program_name()) + " " + SIDEBAND_VERSION);
    app.footer(kFooter);
}

void add_mctp(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "mctp", "MCTP control");
    commands.add_endpoint(family, "eid", "the endpoint ID, assigned where there was none",
                          [](Context& c, const Words& w) { run_mctp_eid(c, w.endpoint); });
    commands.add_endpoint(family, "uuid", "the endpoint's UUID",
                          [](Context& c, const Words& w) { run_mctp_uuid(c, w.endpoint); });
    commands.add_endpoint(family, "routes", "the routing table of a bus owner or bridge",
                          [](Context& c, const Words& w) { run_mctp_routes(c, w.endpoint); });
}

void add_raw(CLI::App& app, const Commands& commands) {
    CLI::App* raw = commands.add_endpoint(
        app, "raw", "one message body out, the answer in hex",
        [](Context& c, const Words& w) { run_raw(c, w.endpoint, w.type, w.rest); });
    raw->add_option("TYPE", commands.words().type, "control, pldm, ncsi, nvme-mi, or a number")
        ->required();
    raw->add_option("HEX", commands.words().rest, "the message without its type byte")->required();
}

void add_pldm_sensors(CLI::App& family, const Commands& commands) {
    CLI::App* sensors = commands.add_endpoint(
        family, "sensors", "sensor readings",
        [](Context& c, const Words& w) { run_pldm_sensors(c, w.endpoint, w.rest, w.watch); });
    sensors->add_option("ID", commands.words().rest,
                        "sensors, e.g. 12 state:5; without any, those in the PDR repository");
    Watch& watch = commands.words().watch;
    CLI::Option* again =
        sensors->add_option("--watch", watch.seconds, "read again and again, so many seconds apart")
            ->type_name("SECONDS")
            ->check(CLI::Range(0.001, 86400.0));
    sensors->add_option("--count", watch.count, "with --watch: end after so many readings")
        ->type_name("N")
        ->needs(again)
        ->check(CLI::Range(1, 1000000));
}

void add_pldm_pdr(CLI::App& family, const Commands& commands) {
    using Run = void (*)(Context&, const std::string&, const std::string&);
    const struct {
        const char* name;
        const char* help;
        Run run;
    } verbs[] = {
        {"list", "the records: handle, type, size, what each describes", run_pldm_pdr_list},
        {"show", "the fields of sensor records, in words", run_pldm_pdr_show},
        {"dump", "the records in hex", run_pldm_pdr_dump},
    };
    CLI::App& pdr = add_family(family, "pdr", "platform descriptor records");
    for (const auto& verb : verbs) {
        CLI::App* command = commands.add_endpoint(
            pdr, verb.name, verb.help,
            [run = verb.run](Context& c, const Words& w) { run(c, w.endpoint, w.handle); });
        command->add_option("HANDLE", commands.words().handle,
                            "one record by its handle; without it all of them");
    }
}

void add_pldm_firmware(CLI::App& family, const Commands& commands) {
    commands.add_endpoint(family, "fw-info", "firmware: descriptors, versions, components",
                          [](Context& c, const Words& w) { run_pldm_fw_info(c, w.endpoint); });
    CLI::App* update = commands.add_endpoint(
        family, "fw-update", "firmware update with a package; Ctrl-C cancels it on the device",
        [](Context& c, const Words& w) { run_pldm_fw_update(c, w.endpoint, w.package, w.update); });
    Words& words = commands.words();
    update->add_option("PACKAGE", words.package, kPackageHelp)->required();
    CLI::Option* query =
        update->add_flag("--query", words.update.query, "show the versions, change nothing");
    update
        ->add_flag("--force", words.update.force,
                   "ask for every component, also one that the device has already")
        ->excludes(query);
    update
        ->add_option("--transfer-size", words.update.transfer_size,
                     "bytes of the largest piece (default: by vendor and transport)")
        ->type_name("N")
        ->check(CLI::Range(32, 65536));
}

void add_pldm(CLI::App& app, const Commands& commands) {
    CLI::App& family =
        add_family(app, "pldm", "PLDM: base information, sensors, PDRs, FRU data, firmware");
    commands.add_endpoint(family, "info", "terminus ID, PLDM types, versions, commands",
                          [](Context& c, const Words& w) { run_pldm_info(c, w.endpoint); });
    add_pldm_sensors(family, commands);
    add_pldm_pdr(family, commands);
    CLI::App* fru = commands.add_endpoint(
        family, "fru", "the FRU data: manufacturer, part and serial numbers, dates",
        [](Context& c, const Words& w) { run_pldm_fru(c, w.endpoint, w.fixed_parts); });
    fru->add_flag("--fixed", commands.words().fixed_parts,
                  "the device sends the table in answers of one size");
    add_pldm_firmware(family, commands);
}

void add_channel(CLI::App& command, const Commands& commands, const char* help) {
    command.add_option("--channel", commands.words().oem.channel, help)
        ->type_name("N")
        ->check(CLI::Range(0, NCSI_CHANNELS - 1));
}

constexpr const char* kFirstChannel = "the channel (default: the first that was found)";

/// The commands get and set of one setting.
void add_ncsi_setting(CLI::App& family, const Commands& commands, const char* name,
                      const char* help, OemSetting which, unsigned value_max) {
    CLI::App& setting = add_family(family, name, help);
    CLI::App* get = commands.add_endpoint(
        setting, "get", "what the controller has",
        [which](Context& c, const Words& w) { run_ncsi_oem_get(c, w.endpoint, which, w.oem); });
    CLI::App* set = commands.add_endpoint(
        setting, "set", "changes the flag, the value or both",
        [which](Context& c, const Words& w) { run_ncsi_oem_set(c, w.endpoint, which, w.oem); });
    add_channel(*get, commands, kFirstChannel);
    add_channel(*set, commands, kFirstChannel);
    OemWish& oem = commands.words().oem;
    set->add_option("--flag", oem.flag, "the new flag")->type_name("0|1")->check(CLI::Range(0, 1));
    set->add_option("--value", oem.value, "the new value")
        ->type_name("N")
        ->check(CLI::Range(0U, value_max));
}

void add_ncsi_oem(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "oem", "commands of Broadcom and Mellanox controllers");
    add_ncsi_setting(family, commands, "brcm-preboot", "Broadcom: the preboot server config",
                     OemSetting::kBrcmPreboot, 0x0FFF);
    add_ncsi_setting(family, commands, "mlx-tlv", "Mellanox: the card TLV", OemSetting::kMlxTlv,
                     0xFFFF);
    CLI::App* mac = commands.add_endpoint(
        family, "mlx-mac", "Mellanox: the MAC address of the physical function",
        [](Context& c, const Words& w) { run_ncsi_oem_mac(c, w.endpoint, w.oem); });
    add_channel(*mac, commands, kFirstChannel);
    CLI::App* temperature = commands.add_endpoint(
        family, "mlx-temp", "Mellanox: a temperature",
        [](Context& c, const Words& w) { run_ncsi_oem_temperature(c, w.endpoint, w.oem); });
    add_channel(*temperature, commands, kFirstChannel);
    temperature->add_option("--sensor", commands.words().oem.sensor, "the sensor (default: 0)")
        ->type_name("N")
        ->check(CLI::Range(0, 255));
}

void add_ncsi(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "ncsi", "NC-SI: channels of network controllers");
    commands.add_endpoint(family, "discover", "the channels that answer",
                          [](Context& c, const Words& w) { run_ncsi_discover(c, w.endpoint); });
    CLI::App* link = commands.add_endpoint(
        family, "link", "link, speed and autonegotiation of each channel",
        [](Context& c, const Words& w) { run_ncsi_link(c, w.endpoint, w.oem.channel); });
    add_channel(*link, commands, "this channel alone");
    for (const bool select : {true, false}) {
        CLI::App* command =
            commands.add_endpoint(family, select ? "select" : "deselect",
                                  select ? "selects a package" : "deselects a package",
                                  [select](Context& c, const Words& w) {
                                      run_ncsi_package(c, w.endpoint, w.ncsi_package, select);
                                  });
        command->add_option("PACKAGE", commands.words().ncsi_package, "the package's ID, 0 to 7")
            ->required()
            ->check(CLI::Range(0, NCSI_PACKAGES - 1));
    }
    add_ncsi_oem(family, commands);
}

void add_pkg(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "pkg", "firmware update packages");
    CLI::App* show = commands.add(family, "show", "what a package holds; no device is asked",
                                  [](Context& c, const Words& w) { run_pkg_show(c, w.package); });
    show->add_option("PACKAGE", commands.words().package, kPackageHelp)->required();
}

/// The innermost command that the command line has named, and the words that lead to it.
const CLI::App& innermost(const CLI::App& app, std::string& words) {
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        words += (words.empty() ? "" : " ") + at->get_name();
    }
    return *at;
}

std::string usage_error(const CLI::App& app, const CLI::App& inner, const CLI::ParseError& error) {
    const bool command_missing = inner.get_require_subcommand_min() > 0;
    if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr || !command_missing) {
        return error.what();
    }
    // The word that stands where the command should is the first of the left-over ones.
    const std::vector<std::string> left = app.remaining(true);
    return left.empty() ? "a command is required" : left.front() + ": no such command";
}

}  // namespace

void parse_command_line(int argc, char** argv, CommandLine& line) {
    CLI::App app{"Talks to the devices of a server over MCTP: discovery, PLDM, NC-SI, NVMe-MI.",
                 std::string(Port::program_name())};
    app.fallthrough();
    app.require_subcommand(1);
    add_options(app, line);
    const Commands commands(line, std::make_shared<Words>());
    commands.add(app, "demo", "a tour of the whole board",
                 [](Context& c, const Words&) { run_demo(c); });
    commands.add(app, "scan", "every endpoint: where it is, EID, UUID, what it speaks",
                 [](Context& c, const Words&) { run_scan(c); });
    add_mctp(app, commands);
    add_raw(app, commands);
    add_pldm(app, commands);
    add_ncsi(app, commands);
    add_nvme(app, commands);
    add_pkg(app, commands);
    try {
        app.parse(argc, argv);
        innermost(app, line.command);
    } catch (const CLI::Success& wish) {
        std::ostringstream text;
        app.exit(wish, text, text);
        line.text = text.str();
    } catch (const CLI::ParseError& error) {
        const CLI::App& inner = innermost(app, line.command);
        throw Failure(ExitStatus::kUsage, usage_error(app, inner, error) + " (try --help)");
    }
}

}  // namespace tool

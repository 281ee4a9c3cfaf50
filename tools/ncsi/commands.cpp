// SPDX-License-Identifier: Apache-2.0
// The command line of the commands ncsi.
#include "tools/ncsi/commands.h"

#include <sideband/ncsi.h>

#include "tools/shell/commands.h"

namespace tool {
namespace {

struct LinkArguments : EndpointArguments {
    std::optional<unsigned> channel;
};

struct SelectionArguments : EndpointArguments {
    unsigned package = 0;
};

struct OemArguments : EndpointArguments {
    OemWish wish;
};

void add_channel(Command command, std::optional<unsigned>& channel, const char* help) {
    command.add_option("--channel", channel, help).type_name("N").range(0, NCSI_CHANNELS - 1);
}

void add_link(Command ncsi, const Commands& commands) {
    const auto [link, arguments] = commands.add<LinkArguments>(
        ncsi, "link", "link, speed and autonegotiation of each channel",
        [](Context& c, const LinkArguments& a) { run_ncsi_link(c, a.endpoint, a.channel); });
    add_channel(link, arguments.channel, "this channel alone");
}

void add_package(Command ncsi, const Commands& commands, const char* name, const char* help,
                 bool select) {
    const auto [command, arguments] = commands.add<SelectionArguments>(
        ncsi, name, help, [select](Context& c, const SelectionArguments& a) {
            run_ncsi_package(c, a.endpoint, a.package, select);
        });
    command.add_option("PACKAGE", arguments.package, "the package's ID, 0 to 7")
        .required()
        .range(0, NCSI_PACKAGES - 1);
}

/// An OEM command for one channel.
AddedCommand<OemArguments> add_oem_command(
    Command above, const Commands& commands, const char* name, const char* help,
    std::function<void(Context&, const std::string& endpoint, const OemWish&)> run) {
    const auto added = commands.add<OemArguments>(
        above, name, help,
        [run = std::move(run)](Context& c, const OemArguments& a) { run(c, a.endpoint, a.wish); });
    add_channel(added.command, added.arguments.wish.channel,
                "the channel (default: the first that was found)");
    return added;
}

/// The commands get and set of one setting.
void add_setting(Command oem, const Commands& commands, const char* name, const char* help,
                 OemSetting which, unsigned value_max) {
    const Command setting = Commands::noun(oem, name, help);
    add_oem_command(setting, commands, "get", "what the controller has",
                    [which](Context& c, const std::string& endpoint, const OemWish& wish) {
                        run_ncsi_oem_get(c, endpoint, which, wish);
                    });
    const auto [set, arguments] =
        add_oem_command(setting, commands, "set", "changes the flag, the value or both",
                        [which](Context& c, const std::string& endpoint, const OemWish& wish) {
                            run_ncsi_oem_set(c, endpoint, which, wish);
                        });
    set.add_option("--flag", arguments.wish.flag, "the new flag").type_name("0|1").range(0, 1);
    set.add_option("--value", arguments.wish.value, "the new value")
        .type_name("N")
        .range(0U, value_max);
}

void add_oem(Command ncsi, const Commands& commands) {
    const Command oem =
        Commands::noun(ncsi, "oem", "commands of Broadcom and Mellanox controllers");
    add_setting(oem, commands, "brcm-preboot", "Broadcom: the preboot server config",
                OemSetting::kBrcmPreboot, 0x0FFF);
    add_setting(oem, commands, "mlx-tlv", "Mellanox: the card TLV", OemSetting::kMlxTlv, 0xFFFF);
    add_oem_command(oem, commands, "mlx-mac", "Mellanox: the MAC address of the physical function",
                    run_ncsi_oem_mac);
    const auto [temperature, arguments] = add_oem_command(
        oem, commands, "mlx-temp", "Mellanox: a temperature", run_ncsi_oem_temperature);
    temperature.add_option("--sensor", arguments.wish.sensor, "the sensor (default: 0)")
        .type_name("N")
        .range(0, 255);
}

}  // namespace

void add_ncsi_commands(const Commands& commands) {
    const Command ncsi = commands.noun("ncsi", "NC-SI: channels of network controllers");
    commands.add(ncsi, "discover", "the channels that answer", run_ncsi_discover);
    add_link(ncsi, commands);
    add_package(ncsi, commands, "select", "selects a package", true);
    add_package(ncsi, commands, "deselect", "deselects a package", false);
    add_oem(ncsi, commands);
}

}  // namespace tool

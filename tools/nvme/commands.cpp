// SPDX-License-Identifier: Apache-2.0
// The command line of the commands nvme.
#include "tools/nvme/commands.h"

#include <vector>

#include "tools/shell/commands.h"

namespace tool {
namespace {

/// What a command is to do besides whom it is for.
template <typename Wish>
struct DriveArguments : EndpointArguments {
    Wish wish;
};
template <typename Wish>
struct AdminArguments : NvmeTarget {
    Wish wish;
};

/// The number in a data structure's name.
struct NumberedArguments : EndpointArguments {
    uint32_t id = 0;
};

struct ErrorLogArguments : NvmeTarget {
    uint32_t entries = 16;
};

struct DeletionArguments : NvmeTarget {
    bool yes = false;
};

/// A command for a drive, with options of its own.
template <typename Wish>
AddedCommand<DriveArguments<Wish>> add_drive_command(
    Command above, const Commands& commands, const char* name, const char* help,
    void (*run)(Context&, const std::string& endpoint, const Wish&)) {
    return commands.add<DriveArguments<Wish>>(
        above, name, help,
        [run](Context& c, const DriveArguments<Wish>& a) { run(c, a.endpoint, a.wish); });
}

/// A command for a controller of a drive.
template <typename Arguments>
AddedCommand<Arguments> add_admin(Command above, const Commands& commands, const char* name,
                                  const char* help,
                                  std::function<void(Context&, const Arguments&)> run) {
    constexpr unsigned kLastController = 0xFFEF;
    const auto added = commands.add<Arguments>(above, name, help, std::move(run));
    added.command
        .add_option("--controller", added.arguments.controller,
                    "controller ID (default: the first of the drive)")
        .type_name("ID")
        .range(0U, kLastController);
    return added;
}

/// Likewise, with options of its own.
template <typename Wish>
AddedCommand<AdminArguments<Wish>> add_admin_command(Command above, const Commands& commands,
                                                     const char* name, const char* help,
                                                     void (*run)(Context&, const NvmeTarget&,
                                                                 const Wish&)) {
    return add_admin<AdminArguments<Wish>>(
        above, commands, name, help,
        [run](Context& c, const AdminArguments<Wish>& a) { run(c, a, a.wish); });
}

/// Likewise, one that needs to know nothing but its target.
AddedCommand<NvmeTarget> add_admin_command(Command above, const Commands& commands,
                                           const char* name, const char* help,
                                           void (*run)(Context&, const NvmeTarget&)) {
    return add_admin<NvmeTarget>(above, commands, name, help, run);
}

void add_nsid(Command command, NvmeTarget& target) {
    command.add_option("NSID", target.nsid, "a namespace ID").required();
}

void add_yes(Command command, bool& yes) {
    command.add_flag("--yes", yes, "do not ask: data are destroyed");
}

void add_health(Command nvme, const Commands& commands) {
    commands.add<NvmeTarget>(nvme, "health", "health of the drive and of its controllers",
                             run_nvme_health);
}

void add_identify(Command nvme, const Commands& commands) {
    const Command identify =
        Commands::noun(nvme, "identify", "what controllers and namespaces are");
    add_admin_command(identify, commands, "controller", "the controller's data structure",
                      run_nvme_identify_controller);
    const auto [space, target] = add_admin_command(identify, commands, "namespace",
                                                   "a namespace's data structure, with its formats",
                                                   run_nvme_identify_namespace);
    add_nsid(space, target);
    add_admin_command(identify, commands, "list", "the active namespaces, and the controllers",
                      run_nvme_identify_list);
}

void add_log(Command nvme, const Commands& commands) {
    const Command log = Commands::noun(nvme, "log", "log pages");
    add_admin_command(log, commands, "smart", "SMART / health information", run_nvme_log_smart);
    add_admin_command(log, commands, "firmware", "firmware slots", run_nvme_log_firmware);
    add_admin_command(log, commands, "sanitize", "the state of the last sanitize operation",
                      run_nvme_log_sanitize);
    const auto [error, arguments] = add_admin<ErrorLogArguments>(
        log, commands, "error", "the errors that the drive remembers, newest first",
        [](Context& c, const ErrorLogArguments& a) { run_nvme_log_error(c, a, a.entries); });
    error.add_option("--entries", arguments.entries, "so many (default: 16)")
        .type_name("N")
        .range(1, 256);
}

void add_numbered_structure(Command ds, const Commands& commands, const char* name,
                            const char* help, const char* id_name, int last,
                            void (*run)(Context&, const std::string&, uint32_t)) {
    const auto [structure, arguments] = commands.add<NumberedArguments>(
        ds, name, help,
        [run](Context& c, const NumberedArguments& a) { run(c, a.endpoint, a.id); });
    structure.add_option(id_name, arguments.id, "its number").required().range(0, last);
}

void add_ds(Command nvme, const Commands& commands) {
    const Command ds = Commands::noun(nvme, "ds", "data structures of the management endpoint");
    commands.add(ds, "subsystem", "NVM subsystem information", run_nvme_ds_subsystem);
    add_numbered_structure(ds, commands, "port", "information on a port", "PORT", 0xFF,
                           run_nvme_ds_port);
    commands.add(ds, "controllers", "the controllers", run_nvme_ds_controllers);
    add_numbered_structure(ds, commands, "controller", "information on a controller", "ID", 0xFFFF,
                           run_nvme_ds_controller);
    commands.add(ds, "commands", "the optional commands that the drive supports",
                 run_nvme_ds_commands);
}

void add_feature_options(const AddedCommand<AdminArguments<NvmeFeatureWish>>& added) {
    added.command.add_option("FID", added.arguments.wish.feature, "feature identifier")
        .required()
        .range(0, 255);
    added.command.add_option("--nsid", added.arguments.nsid, "of this namespace").type_name("NSID");
}

void add_feature(Command nvme, const Commands& commands) {
    const Command feature = Commands::noun(nvme, "feature", "features");
    const auto get =
        add_admin_command(feature, commands, "get", "the value of a feature", run_nvme_feature_get);
    add_feature_options(get);
    get.command.add_choice("--select", get.arguments.wish.select,
                           {{"current", NVME_FEATURE_CURRENT},
                            {"default", NVME_FEATURE_DEFAULT},
                            {"saved", NVME_FEATURE_SAVED},
                            {"capabilities", NVME_FEATURE_CAPABILITIES}},
                           "which value (default: current)");
    get.command
        .add_option("--length", get.arguments.wish.length, "bytes of data that the feature has")
        .type_name("N")
        .range(0, NVME_ADMIN_DATA_MAX);
    const auto set = add_admin_command(feature, commands, "set", "changes a feature without data",
                                       run_nvme_feature_set);
    add_feature_options(set);
    set.command.add_option("VALUE", set.arguments.wish.value, "the new value (dword 11)")
        .required();
    set.command.add_flag("--save", set.arguments.wish.save, "keep it across resets");
}

void add_port(Command command, NvmeConfigWish& wish) {
    command.add_option("--port", wish.port, "this port").type_name("N").range(0, 255);
}

void add_config(Command nvme, const Commands& commands) {
    const Command config = Commands::noun(nvme, "config", "settings of the management endpoint");
    const auto get =
        add_drive_command(config, commands, "get",
                          "SMBus frequency and MCTP unit size of each port", run_nvme_config_get);
    add_port(get.command, get.arguments.wish);
    const auto [set, arguments] = add_drive_command(
        config, commands, "set", "changes what a port has, or clears health status changes",
        run_nvme_config_set);
    NvmeConfigWish& wish = arguments.wish;
    add_port(set, wish);
    set.add_option("--frequency", wish.frequency_khz, "SMBus frequency in kHz")
        .type_name("100|400|1000")
        .one_of({100, 400, 1000});
    set.add_option("--unit-size", wish.unit_size, "MCTP transmission unit size in bytes")
        .type_name("N")
        .range(64, 65535);
    set.add_option("--clear-changes", wish.clear, "health status change bits to clear")
        .type_name("BITS");
}

void add_vpd(Command nvme, const Commands& commands) {
    const Command vpd = Commands::noun(nvme, "vpd", "vital product data");
    const auto read =
        add_drive_command(vpd, commands, "read", "the data in hex", run_nvme_vpd_read);
    read.command.add_option("--offset", read.arguments.wish.offset, "first byte (default: 0)")
        .type_name("N")
        .range(0, 65535);
    read.command.add_option("--length", read.arguments.wish.length, "bytes (default: 256)")
        .type_name("N")
        .range(1, NVME_ADMIN_DATA_MAX);
    const auto write =
        add_drive_command(vpd, commands, "write", "writes bytes", run_nvme_vpd_write);
    write.command.add_option("OFFSET", write.arguments.wish.offset, "first byte")
        .required()
        .range(0, 65535);
    write.command.add_option("HEX", write.arguments.wish.pieces, "the bytes").required();
}

void add_commit_options(Command command, NvmeFirmwareWish& wish, Option action) {
    action.type_name("replace|replace-activate|activate|activate-now");
    command.add_option("--slot", wish.slot, "firmware slot (default: the controller chooses)")
        .type_name("N")
        .range(0, 7)
        .needs(action);
    command.add_flag("--reset", wish.reset, "then reset the drive").needs(action);
}

void add_firmware(Command nvme, const Commands& commands) {
    const Choices actions{
        {"replace", 0}, {"replace-activate", 1}, {"activate", 2}, {"activate-now", 3}};
    const auto download = add_admin_command(nvme, commands, "fw-download",
                                            "downloads a firmware image", run_nvme_fw_download);
    NvmeFirmwareWish& wish = download.arguments.wish;
    download.command.add_option("IMAGE", wish.path, "the image file; must be writable too")
        .required()
        .file();
    download.command.add_option("--chunk-size", wish.chunk_size, "bytes in a piece (default: 4096)")
        .type_name("N")
        .range(4, NVME_ADMIN_DATA_MAX);
    add_commit_options(
        download.command, wish,
        download.command.add_choice("--commit", wish.action, actions, "then commit it"));
    const auto commit = add_admin_command(nvme, commands, "fw-commit",
                                          "commits what was downloaded", run_nvme_fw_commit);
    NvmeFirmwareWish& commit_wish = commit.arguments.wish;
    add_commit_options(
        commit.command, commit_wish,
        commit.command.add_choice("--action", commit_wish.action, actions, "the commit action")
            .required());
}

void add_attachment(Command ns, const Commands& commands, const char* name, const char* help,
                    bool attach) {
    const auto [command, target] = add_admin<NvmeTarget>(
        ns, commands, name, help,
        [attach](Context& c, const NvmeTarget& target) { run_nvme_ns_attach(c, target, attach); });
    add_nsid(command, target);
}

void add_ns(Command nvme, const Commands& commands) {
    const Command ns = Commands::noun(nvme, "ns", "namespaces");
    add_admin_command(ns, commands, "list", "the namespaces, with their sizes", run_nvme_ns_list);
    const auto [create, creation] =
        add_admin_command(ns, commands, "create", "creates a namespace", run_nvme_ns_create);
    create.add_option("--blocks", creation.wish.blocks, "its size in logical blocks")
        .type_name("N")
        .required();
    create.add_option("--lbaf", creation.wish.format, "LBA format (default: 0)")
        .type_name("N")
        .range(0, 15);
    create.add_flag("--shared", creation.wish.shared, "for several controllers");
    const auto [remove, deletion] = add_admin<DeletionArguments>(
        ns, commands, "delete", "deletes a namespace",
        [](Context& c, const DeletionArguments& a) { run_nvme_ns_delete(c, a, a.yes); });
    add_nsid(remove, deletion);
    add_yes(remove, deletion.yes);
    add_attachment(ns, commands, "attach", "attaches a namespace to the controller", true);
    add_attachment(ns, commands, "detach", "detaches it from the controller", false);
}

void add_format(Command nvme, const Commands& commands) {
    const auto [format, arguments] = add_admin_command(
        nvme, commands, "format",
        "formats a namespace, or every one with 0xffffffff; protection information is "
        "off behind it, and metadata have a buffer of their own",
        run_nvme_format);
    NvmeFormatWish& wish = arguments.wish;
    add_nsid(format, arguments);
    format.add_option("--lbaf", wish.format, "LBA format (default: as it is)")
        .type_name("N")
        .range(0, 63);
    format.add_choice("--erase", wish.erase, {{"none", 0}, {"user-data", 1}, {"crypto", 2}},
                      "secure erase (default: none)");
    add_yes(format, wish.yes);
}

void add_sanitize(Command nvme, const Commands& commands) {
    const auto [sanitize, arguments] = add_admin_command(
        nvme, commands, "sanitize", "erases all that the drive holds", run_nvme_sanitize);
    NvmeSanitizeWish& wish = arguments.wish;
    sanitize
        .add_choice("ACTION", wish.action,
                    {{"exit-failure", NVME_SANACT_EXIT_FAILURE},
                     {"block-erase", NVME_SANACT_BLOCK_ERASE},
                     {"overwrite", NVME_SANACT_OVERWRITE},
                     {"crypto-erase", NVME_SANACT_CRYPTO_ERASE}},
                    "how")
        .required();
    sanitize.add_option("--passes", wish.passes, "overwrite: so many times (default: 16)")
        .type_name("N")
        .range(1, 15);
    sanitize.add_option("--pattern", wish.pattern, "overwrite: with these 32 bits")
        .type_name("BITS");
    sanitize.add_flag("--invert", wish.invert, "overwrite: invert the pattern between passes");
    sanitize.add_flag("--unrestricted", wish.unrestricted, "a failure can be left by exit-failure");
    sanitize.add_flag("--no-deallocate", wish.no_deallocate, "do not deallocate the blocks");
    sanitize.add_flag("--wait", wish.wait, "wait for the end and show the progress");
    add_yes(sanitize, wish.yes);
}

void add_lockdown(Command nvme, const Commands& commands) {
    const auto [lockdown, arguments] =
        add_admin_command(nvme, commands, "lockdown",
                          "prohibits a command or the change of a feature", run_nvme_lockdown);
    NvmeLockdownWish& wish = arguments.wish;
    lockdown
        .add_choice("SCOPE", wish.scope,
                    {{"admin", NVME_LOCKDOWN_ADMIN_OPCODE},
                     {"feature", NVME_LOCKDOWN_FEATURE},
                     {"mi", NVME_LOCKDOWN_MI_OPCODE}},
                    "what ID is: an admin opcode, a feature, an NVMe-MI opcode")
        .required();
    lockdown.add_option("ID", wish.identifier, "opcode or feature identifier")
        .required()
        .range(0, 255);
    lockdown.add_flag("--allow", wish.allow, "allow it again");
    lockdown.add_choice("--interface", wish.interfaces,
                        {{"admin-queue", NVME_LOCKDOWN_ADMIN_QUEUE},
                         {"both", NVME_LOCKDOWN_BOTH},
                         {"management", NVME_LOCKDOWN_MANAGEMENT}},
                        "where it is prohibited (default: both)");
}

}  // namespace

void add_nvme_commands(const Commands& commands) {
    const Command nvme = commands.noun("nvme", "NVMe-MI: drives and their controllers");
    add_health(nvme, commands);
    add_identify(nvme, commands);
    add_log(nvme, commands);
    add_ds(nvme, commands);
    add_feature(nvme, commands);
    add_config(nvme, commands);
    add_vpd(nvme, commands);
    commands.add(nvme, "reset", "resets the NVM subsystem", run_nvme_reset);
    add_firmware(nvme, commands);
    add_ns(nvme, commands);
    add_format(nvme, commands);
    add_sanitize(nvme, commands);
    add_lockdown(nvme, commands);
}

}  // namespace tool

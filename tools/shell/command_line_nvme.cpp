// SPDX-License-Identifier: Apache-2.0
// The command line of the commands nvme.
#include "tools/shell/command_words.h"

namespace tool {
namespace {

NvmeTarget target_of(const Words& words) {
    return {words.endpoint, words.nvme.controller, words.nvme.nsid};
}

/// Names for the values of an argument.
using Choices = std::vector<std::pair<const char*, uint8_t>>;

/// An argument that is one of some words.
template <typename T>
CLI::Option* add_choice(CLI::App& command, const std::string& name, T& value, Choices choices,
                        const char* help) {
    std::string words;
    for (const auto& [word, number] : choices) {
        words += (words.empty() ? "" : "|") + std::string(word);
    }
    const auto choose = [name, words, &value, choices = std::move(choices)](const std::string& in) {
        for (const auto& [word, number] : choices) {
            if (in == word) {
                value = number;
                return;
            }
        }
        throw CLI::ValidationError(name, in + " is none of " + words);
    };
    return command.add_option_function<std::string>(name, choose, help)->type_name(words);
}

/// A command for a controller of a drive.
CLI::App* add_nvme_admin(CLI::App& family, const Commands& commands, const char* name,
                         const char* help, std::function<void(Context&, const Words&)> run) {
    constexpr unsigned kLastController = 0xFFEF;
    CLI::App* command = commands.add_endpoint(family, name, help, std::move(run));
    command
        ->add_option("--controller", commands.words().nvme.controller,
                     "controller ID (default: the first of the drive)")
        ->type_name("ID")
        ->check(CLI::Range(0U, kLastController));
    return command;
}

void add_nsid(CLI::App& command, const Commands& commands) {
    command.add_option("NSID", commands.words().nvme.nsid, "a namespace ID")->required();
}

void add_yes(CLI::App& command, bool& yes) {
    command.add_flag("--yes", yes, "do not ask: data are destroyed");
}

/// What drives say of themselves: commands that need nothing but their target.
void add_nvme_reports(CLI::App& family, const Commands& commands) {
    using Run = void (*)(Context&, const NvmeTarget&);
    const auto add = [&commands](CLI::App& noun, const char* name, const char* help, Run run) {
        return add_nvme_admin(noun, commands, name, help,
                              [run](Context& c, const Words& w) { run(c, target_of(w)); });
    };
    commands.add_endpoint(family, "health", "health of the drive and of its controllers",
                          [](Context& c, const Words& w) { run_nvme_health(c, target_of(w)); });
    CLI::App& identify = add_family(family, "identify", "what controllers and namespaces are");
    add(identify, "controller", "the controller's data structure", run_nvme_identify_controller);
    CLI::App* space = add(identify, "namespace", "a namespace's data structure, with its formats",
                          run_nvme_identify_namespace);
    add_nsid(*space, commands);
    add(identify, "list", "the active namespaces, and the controllers", run_nvme_identify_list);
    CLI::App& log = add_family(family, "log", "log pages");
    add(log, "smart", "SMART / health information", run_nvme_log_smart);
    add(log, "firmware", "firmware slots", run_nvme_log_firmware);
    add(log, "sanitize", "the state of the last sanitize operation", run_nvme_log_sanitize);
    CLI::App* error = add_nvme_admin(
        log, commands, "error", "the errors that the drive remembers, newest first",
        [](Context& c, const Words& w) { run_nvme_log_error(c, target_of(w), w.nvme.entries); });
    error->add_option("--entries", commands.words().nvme.entries, "so many (default: 16)")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
}

void add_nvme_ds(CLI::App& app, const Commands& commands) {
    using Run = void (*)(Context&, const std::string&, uint32_t);
    CLI::App& family = add_family(app, "ds", "data structures of the management endpoint");
    const auto add = [&](const char* name, const char* help,
                         void (*run)(Context&, const std::string&)) {
        commands.add_endpoint(family, name, help,
                              [run](Context& c, const Words& w) { run(c, w.endpoint); });
    };
    const auto add_numbered = [&](const char* name, const char* help, const char* id_name, Run run,
                                  int most) {
        commands
            .add_endpoint(family, name, help,
                          [run](Context& c, const Words& w) { run(c, w.endpoint, w.nvme.id); })
            ->add_option(id_name, commands.words().nvme.id, "its number")
            ->required()
            ->check(CLI::Range(0, most));
    };
    add("subsystem", "NVM subsystem information", run_nvme_ds_subsystem);
    add_numbered("port", "information on a port", "PORT", run_nvme_ds_port, 0xFF);
    add("controllers", "the controllers", run_nvme_ds_controllers);
    add_numbered("controller", "information on a controller", "ID", run_nvme_ds_controller, 0xFFFF);
    add("commands", "the optional commands that the drive supports", run_nvme_ds_commands);
}

void add_nvme_feature(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "feature", "features");
    NvmeWords& words = commands.words().nvme;
    CLI::App* get = add_nvme_admin(
        family, commands, "get", "the value of a feature",
        [](Context& c, const Words& w) { run_nvme_feature_get(c, target_of(w), w.nvme.feature); });
    CLI::App* set = add_nvme_admin(
        family, commands, "set", "changes a feature without data",
        [](Context& c, const Words& w) { run_nvme_feature_set(c, target_of(w), w.nvme.feature); });
    for (CLI::App* command : {get, set}) {
        command->add_option("FID", words.feature.feature, "feature identifier")
            ->required()
            ->check(CLI::Range(0, 255));
        command->add_option("--nsid", words.nsid, "of this namespace")->type_name("NSID");
    }
    add_choice(*get, "--select", words.feature.select,
               {{"current", NVME_FEATURE_CURRENT},
                {"default", NVME_FEATURE_DEFAULT},
                {"saved", NVME_FEATURE_SAVED},
                {"capabilities", NVME_FEATURE_CAPABILITIES}},
               "which value (default: current)");
    get->add_option("--length", words.feature.length, "bytes of data that the feature has")
        ->type_name("N")
        ->check(CLI::Range(0, NVME_ADMIN_DATA_MAX));
    set->add_option("VALUE", words.feature.value, "the new value (dword 11)")->required();
    set->add_flag("--save", words.feature.save, "keep it across resets");
}

void add_nvme_config(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "config", "settings of the management endpoint");
    NvmeConfigWish& wish = commands.words().nvme.config;
    CLI::App* get = commands.add_endpoint(
        family, "get", "SMBus frequency and MCTP unit size of each port",
        [](Context& c, const Words& w) { run_nvme_config_get(c, w.endpoint, w.nvme.config); });
    CLI::App* set = commands.add_endpoint(
        family, "set", "changes what a port has, or clears health status changes",
        [](Context& c, const Words& w) { run_nvme_config_set(c, w.endpoint, w.nvme.config); });
    for (CLI::App* command : {get, set}) {
        command->add_option("--port", wish.port, "this port")
            ->type_name("N")
            ->check(CLI::Range(0, 255));
    }
    set->add_option("--frequency", wish.frequency_khz, "SMBus frequency in kHz")
        ->type_name("100|400|1000")
        ->check(CLI::IsMember({100U, 400U, 1000U}));
    set->add_option("--unit-size", wish.unit_size, "MCTP transmission unit size in bytes")
        ->type_name("N")
        ->check(CLI::Range(64, 65535));
    set->add_option("--clear-changes", wish.clear, "health status change bits to clear")
        ->type_name("BITS");
}

void add_nvme_vpd(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "vpd", "vital product data");
    NvmeVpdWish& wish = commands.words().nvme.vpd;
    CLI::App* read = commands.add_endpoint(
        family, "read", "the data in hex",
        [](Context& c, const Words& w) { run_nvme_vpd_read(c, w.endpoint, w.nvme.vpd); });
    read->add_option("--offset", wish.offset, "first byte (default: 0)")
        ->type_name("N")
        ->check(CLI::Range(0, 65535));
    read->add_option("--length", wish.length, "bytes (default: 256)")
        ->type_name("N")
        ->check(CLI::Range(1, NVME_ADMIN_DATA_MAX));
    CLI::App* write = commands.add_endpoint(
        family, "write", "writes bytes",
        [](Context& c, const Words& w) { run_nvme_vpd_write(c, w.endpoint, w.nvme.vpd); });
    write->add_option("OFFSET", wish.offset, "first byte")->required()->check(CLI::Range(0, 65535));
    write->add_option("HEX", wish.pieces, "the bytes")->required();
}

void add_commit_options(CLI::App& command, NvmeFirmwareWish& wish, CLI::Option* action) {
    action->type_name("replace|replace-activate|activate|activate-now");
    command.add_option("--slot", wish.slot, "firmware slot (default: the controller chooses)")
        ->type_name("N")
        ->check(CLI::Range(0, 7))
        ->needs(action);
    command.add_flag("--reset", wish.reset, "then reset the drive")->needs(action);
}

void add_nvme_firmware(CLI::App& family, const Commands& commands) {
    const Choices actions{
        {"replace", 0}, {"replace-activate", 1}, {"activate", 2}, {"activate-now", 3}};
    NvmeFirmwareWish& wish = commands.words().nvme.firmware;
    CLI::App* download = add_nvme_admin(
        family, commands, "fw-download", "downloads a firmware image",
        [](Context& c, const Words& w) { run_nvme_fw_download(c, target_of(w), w.nvme.firmware); });
    download->add_option("IMAGE", wish.path, "the image file; must be writable too")->required();
    download->add_option("--chunk-size", wish.chunk_size, "bytes in a piece (default: 4096)")
        ->type_name("N")
        ->check(CLI::Range(4, NVME_ADMIN_DATA_MAX));
    add_commit_options(*download, wish,
                       add_choice(*download, "--commit", wish.action, actions, "then commit it"));
    CLI::App* commit = add_nvme_admin(
        family, commands, "fw-commit", "commits what was downloaded",
        [](Context& c, const Words& w) { run_nvme_fw_commit(c, target_of(w), w.nvme.firmware); });
    CLI::Option* action =
        add_choice(*commit, "--action", wish.action, actions, "the commit action")->required();
    add_commit_options(*commit, wish, action);
}

void add_nvme_namespaces(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "ns", "namespaces");
    NvmeWords& words = commands.words().nvme;
    add_nvme_admin(family, commands, "list", "the namespaces, with their sizes",
                   [](Context& c, const Words& w) { run_nvme_ns_list(c, target_of(w)); });
    CLI::App* create = add_nvme_admin(
        family, commands, "create", "creates a namespace",
        [](Context& c, const Words& w) { run_nvme_ns_create(c, target_of(w), w.nvme.creation); });
    create->add_option("--blocks", words.creation.blocks, "its size in logical blocks")
        ->type_name("N")
        ->required();
    create->add_option("--lbaf", words.creation.format, "LBA format (default: 0)")
        ->type_name("N")
        ->check(CLI::Range(0, 15));
    create->add_flag("--shared", words.creation.shared, "for several controllers");
    CLI::App* remove = add_nvme_admin(
        family, commands, "delete", "deletes a namespace",
        [](Context& c, const Words& w) { run_nvme_ns_delete(c, target_of(w), w.nvme.yes); });
    add_nsid(*remove, commands);
    add_yes(*remove, words.yes);
    for (const bool attach : {true, false}) {
        CLI::App* command = add_nvme_admin(
            family, commands, attach ? "attach" : "detach",
            attach ? "attaches a namespace to the controller" : "detaches it from the controller",
            [attach](Context& c, const Words& w) { run_nvme_ns_attach(c, target_of(w), attach); });
        add_nsid(*command, commands);
    }
}

void add_nvme_format(CLI::App& family, const Commands& commands) {
    NvmeFormatWish& wish = commands.words().nvme.format;
    CLI::App* format = add_nvme_admin(
        family, commands, "format", "formats a namespace, or every one with 0xffffffff",
        [](Context& c, const Words& w) { run_nvme_format(c, target_of(w), w.nvme.format); });
    add_nsid(*format, commands);
    format->add_option("--lbaf", wish.format, "LBA format (default: as it is)")
        ->type_name("N")
        ->check(CLI::Range(0, 63));
    add_choice(*format, "--erase", wish.erase, {{"none", 0}, {"user-data", 1}, {"crypto", 2}},
               "secure erase (default: none)");
    add_yes(*format, wish.yes);
}

void add_nvme_sanitize(CLI::App& family, const Commands& commands) {
    NvmeSanitizeWish& wish = commands.words().nvme.sanitize;
    CLI::App* sanitize = add_nvme_admin(
        family, commands, "sanitize", "erases all that the drive holds",
        [](Context& c, const Words& w) { run_nvme_sanitize(c, target_of(w), w.nvme.sanitize); });
    add_choice(*sanitize, "ACTION", wish.action,
               {{"exit-failure", NVME_SANACT_EXIT_FAILURE},
                {"block-erase", NVME_SANACT_BLOCK_ERASE},
                {"overwrite", NVME_SANACT_OVERWRITE},
                {"crypto-erase", NVME_SANACT_CRYPTO_ERASE}},
               "how")
        ->required();
    sanitize->add_option("--passes", wish.passes, "overwrite: so many times (default: 16)")
        ->type_name("N")
        ->check(CLI::Range(1, 15));
    sanitize->add_option("--pattern", wish.pattern, "overwrite: with these 32 bits")
        ->type_name("BITS");
    sanitize->add_flag("--invert", wish.invert, "overwrite: invert the pattern between passes");
    sanitize->add_flag("--unrestricted", wish.unrestricted,
                       "a failure can be left by exit-failure");
    sanitize->add_flag("--no-deallocate", wish.no_deallocate, "do not deallocate the blocks");
    sanitize->add_flag("--wait", wish.wait, "wait for the end and show the progress");
    add_yes(*sanitize, wish.yes);
}

void add_nvme_lockdown(CLI::App& family, const Commands& commands) {
    NvmeLockdownWish& wish = commands.words().nvme.lockdown;
    CLI::App* lockdown = add_nvme_admin(
        family, commands, "lockdown", "prohibits a command or the change of a feature",
        [](Context& c, const Words& w) { run_nvme_lockdown(c, target_of(w), w.nvme.lockdown); });
    add_choice(*lockdown, "SCOPE", wish.scope,
               {{"admin", NVME_LOCKDOWN_ADMIN_OPCODE},
                {"feature", NVME_LOCKDOWN_FEATURE},
                {"mi", NVME_LOCKDOWN_MI_OPCODE}},
               "what ID is: an admin opcode, a feature, an NVMe-MI opcode")
        ->required();
    lockdown->add_option("ID", wish.identifier, "opcode or feature identifier")
        ->required()
        ->check(CLI::Range(0, 255));
    lockdown->add_flag("--allow", wish.allow, "allow it again");
    add_choice(*lockdown, "--interface", wish.interfaces,
               {{"admin-queue", NVME_LOCKDOWN_ADMIN_QUEUE},
                {"both", NVME_LOCKDOWN_BOTH},
                {"management", NVME_LOCKDOWN_MANAGEMENT}},
               "where it is prohibited (default: both)");
}

}  // namespace

void add_nvme(CLI::App& app, const Commands& commands) {
    CLI::App& family = add_family(app, "nvme", "NVMe-MI: drives and their controllers");
    add_nvme_reports(family, commands);
    add_nvme_ds(family, commands);
    add_nvme_feature(family, commands);
    add_nvme_config(family, commands);
    add_nvme_vpd(family, commands);
    commands.add_endpoint(family, "reset", "resets the NVM subsystem",
                          [](Context& c, const Words& w) { run_nvme_reset(c, w.endpoint); });
    add_nvme_firmware(family, commands);
    add_nvme_namespaces(family, commands);
    add_nvme_format(family, commands);
    add_nvme_sanitize(family, commands);
    add_nvme_lockdown(family, commands);
}

}  // namespace tool

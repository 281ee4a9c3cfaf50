// SPDX-License-Identifier: Apache-2.0
// What puts commands on the command line, and what their arguments go into.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_WORDS_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_WORDS_H

#include <sideband/nvme_mi.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/nvme/commands.h"
#include "tools/shell/command_line.h"
#include "tools/shell/endpoint_name.h"

namespace tool {

/// What the arguments of the commands nvme go into; whom they are for is put together from these
/// and from the endpoint.
struct NvmeWords {
    std::optional<unsigned> controller;
    uint32_t nsid = 0;
    uint32_t id = 0;
    uint32_t entries = 16;
    bool yes = false;
    NvmeFeatureWish feature;
    NvmeConfigWish config;
    NvmeVpdWish vpd{.offset = 0, .length = 256, .pieces = {}};
    NvmeLockdownWish lockdown{.interfaces = NVME_LOCKDOWN_BOTH};
    NvmeFirmwareWish firmware{.path = {}, .chunk_size = NVME_ADMIN_DATA_MAX, .action = {}};
    NvmeNamespaceWish creation;
    NvmeFormatWish format;
    NvmeSanitizeWish sanitize;
};

/// What the positional arguments of all commands go into.
struct Words {
    std::string endpoint;
    std::string type;
    std::string package;
    std::vector<std::string> rest;
    std::string handle;
    Watch watch;
    bool fixed_parts = false;
    UpdateWish update;
    unsigned ncsi_package = 0;
    OemWish oem;
    NvmeWords nvme;
};

/// Puts commands on the command line.
class Commands {
public:
    Commands(CommandLine& line, std::shared_ptr<Words> words)
        : line_(line), words_(std::move(words)) {}

    CLI::App* add(CLI::App& family, const char* name, const char* help,
                  std::function<void(Context&, const Words&)> run) const {
        CLI::App* command = family.add_subcommand(name, help);
        command->callback([&line = line_, words = words_, run = std::move(run)] {
            line.run = [words, run](Context& context) { run(context, *words); };
        });
        return command;
    }

    CLI::App* add_endpoint(CLI::App& family, const char* name, const char* help,
                           std::function<void(Context&, const Words&)> run) const {
        CLI::App* command = add(family, name, help, std::move(run));
        command->add_option("ENDPOINT", words_->endpoint, kEndpointHelp)->required();
        return command;
    }

    Words& words() const { return *words_; }

private:
    CommandLine& line_;
    std::shared_ptr<Words> words_;
};

/// A noun: one of the commands under it is required.
inline CLI::App& add_family(CLI::App& app, const char* name, const char* help) {
    CLI::App* family = app.add_subcommand(name, help);
    family->require_subcommand(1);
    return *family;
}

/// The commands nvme.
void add_nvme(CLI::App& app, const Commands& commands);

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// The command line of the commands pldm fw-info, pldm fw-update and pkg.
#include "tools/update/commands.h"

#include "tools/shell/commands.h"

namespace tool {
namespace {

constexpr const char* kPackageHelp = "a PLDM firmware update package";

struct UpdateArguments : EndpointArguments {
    std::string package;
    UpdateWish wish;
};

struct PackageArguments {
    std::string package;
};

void add_update(Command pldm, const Commands& commands) {
    const auto [update, arguments] = commands.add<UpdateArguments>(
        pldm, "fw-update", "firmware update with a package; Ctrl-C cancels it on the device",
        [](Context& c, const UpdateArguments& a) {
            run_pldm_fw_update(c, a.endpoint, a.package, a.wish);
        });
    UpdateWish& wish = arguments.wish;
    update.add_option("PACKAGE", arguments.package, kPackageHelp).required().file();
    const Option query =
        update.add_flag("--query", wish.query, "show the versions, change nothing");
    update
        .add_flag("--force", wish.force,
                  "ask for every component, also one that the device has already")
        .excludes(query);
    update
        .add_option("--transfer-size", wish.transfer_size,
                    "bytes of the largest piece (default: by vendor and transport)")
        .type_name("N")
        .range(32, 65536);
}

void add_create(Command pkg, const Commands& commands) {
    const auto [create, recipe] = commands.add<PackageRecipe>(
        pkg, "create", "makes a package of a description and images",
        [](Context& c, const PackageRecipe& r) { run_pkg_create(c, r); });
    create.add_option("OUT", recipe.package, "the file to make").required().file();
    create.add_option("--metadata", recipe.metadata, "what it is for, in JSON")
        .type_name("FILE")
        .required()
        .file();
    create.add_option("--image", recipe.images, "images of the components, in their order")
        .type_name("FILE")
        .file();
}

}  // namespace

void add_update_commands(const Commands& commands) {
    const Command pldm = commands.noun("pldm");
    commands.add(pldm, "fw-info", "firmware: descriptors, versions, components", run_pldm_fw_info);
    add_update(pldm, commands);
    const Command pkg = commands.noun("pkg", "firmware update packages");
    const auto [show, arguments] = commands.add<PackageArguments>(
        pkg, "show", "what a package holds; no device is asked",
        [](Context& c, const PackageArguments& a) { run_pkg_show(c, a.package); });
    show.add_option("PACKAGE", arguments.package, kPackageHelp).required().file();
    add_create(pkg, commands);
}

}  // namespace tool

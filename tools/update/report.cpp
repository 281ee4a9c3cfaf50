// SPDX-License-Identifier: Apache-2.0
// A firmware update from the versions before it to those behind it, and what is said of them.
#include "tools/update/report.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/shell/json.h"
#include "tools/shell/text.h"
#include "tools/shell/time_limit.h"

namespace tool {
namespace {

/// The largest piece that the device may ask for: that of the device tables' rows for its vendor.
/// One vendor has a row in both; what the smaller of the two takes suits the other one too. What is
/// behind the kernel's MCTP may be on any bus, and gets what every bus carries.
uint32_t transfer_size_for(const Endpoint& endpoint, const FirmwareInfo& info) {
    const bool pcie = endpoint.transport == Transport::kPcie;
    const uint32_t usual = pcie ? 128 : 56;
    const std::optional<uint16_t> vendor = info.pci_vendor();
    if (!vendor) {
        return usual;
    }
    uint32_t size = 0;
    const auto consider = [&](const pldm_fw_device* table, int32_t index) {
        const uint32_t own = index < 0 ? 0
                             : pcie    ? table[index].pcie_transfer_size
                                       : table[index].smbus_transfer_size;
        size = own == 0 ? size : size == 0 ? own : std::min(size, own);
    };
    consider(pldm_nic_fw_table, pldm_get_nic_fw_index(*vendor));
    consider(pldm_gpu_fw_table, pldm_get_gpu_fw_index(*vendor));
    return size != 0 ? size : usual;
}

/// A component of the device that a component of a package is for; null if there is none.
const FirmwareComponent* counterpart(const FirmwareInfo& info, const Component& component) {
    const auto found = std::find_if(info.components.begin(), info.components.end(),
                                    [&component](const FirmwareComponent& one) {
                                        return one.classification == component.classification &&
                                               one.identifier == component.identifier;
                                    });
    return found != info.components.end() ? &*found : nullptr;
}

std::string component_name(uint16_t classification, uint16_t identifier) {
    return fmt::format("component {}:{}", classification, identifier);
}

/// How what is pending becomes active; empty if nothing is.
std::string pending_text(const FirmwareInfo& info) {
    for (const FirmwareComponent& one : info.components) {
        if (!one.pending.version.empty()) {
            return "The new firmware is pending; it becomes active by: " +
                   activation_text(one.activation_methods) + ".\n";
        }
    }
    return {};
}

void add_versions(Table& table, const std::string& what, const std::string& before,
                  const std::string& after) {
    table.add({what, version_or_dash(before), version_or_dash(after)});
}

/// The components of a package that a device record is for.
std::vector<Component> components_for(const ParsedPackage& package,
                                      const pldm_device_record& record) {
    std::vector<Component> list;
    const std::vector<Component> all = package.components();
    for (size_t i = 0; i < all.size(); ++i) {
        if (is_applicable(record, i)) {
            list.push_back(all[i]);
        }
    }
    return list;
}

std::string comparison_text(const FirmwareInfo& info, const ParsedPackage& package) {
    Table table({{""}, {"ACTIVE"}, {"PENDING"}, {"PACKAGE"}});
    for (const pldm_device_record& record : package.records()) {
        if (!info.matches(record)) {
            continue;
        }
        table.add({"image set", version_or_dash(info.active_version),
                   version_or_dash(info.pending_version),
                   version_or_dash(record.image_version_string)});
        for (const Component& one : components_for(package, record)) {
            const FirmwareComponent* own = counterpart(info, one);
            table.add({component_name(one.classification, one.identifier),
                       version_or_dash(own != nullptr ? own->active.version : ""),
                       version_or_dash(own != nullptr ? own->pending.version : ""),
                       version_or_dash(one.version)});
        }
    }
    return table.text();
}

Json comparison_json(const std::string& endpoint, const FirmwareInfo& info,
                     const ParsedPackage& package) {
    Json records = Json::array();
    for (const pldm_device_record& record : package.records()) {
        if (!info.matches(record)) {
            continue;
        }
        Json components = Json::array();
        for (const Component& one : components_for(package, record)) {
            components.push_back({{"component_classification", one.classification},
                                  {"component_identifier", one.identifier},
                                  {"component_version", one.version}});
        }
        records.push_back({{"component_image_set_version", record.image_version_string},
                           {"components", components}});
    }
    return {{"endpoint", endpoint},
            {"package", package.path()},
            {"package_version", package.version()},
            {"device", firmware_versions_json(info)},
            {"matching_records", records}};
}

}  // namespace

UpdateReport update_firmware(Port& port, Session& session, const ParsedPackage& package,
                             const UpdateWish& wish, Progress& progress) {
    FirmwareUpdate update(session, port, &progress);
    update.bring_up();
    UpdateReport report;
    report.endpoint = session.endpoint().name;
    report.package = package.path();
    report.package_version = package.version();
    report.before = read_firmware_info(session);
    report.transfer_size = wish.transfer_size != 0
                               ? wish.transfer_size
                               : transfer_size_for(session.endpoint(), report.before);
    const uint64_t begin = port.now_us();
    const UpdateRecord& record =
        update.run(package.path(), report.transfer_size, wish.force ? PLDM_FW_FLAG_FORCE : 0);
    if (!record.succeeded()) {
        throw update_failure(report.endpoint, record);
    }
    report.bytes = update.bytes();
    report.duration_us = port.now_us() - begin;
    // A device that activates by itself is back behind that time.
    constexpr uint16_t kPatienceS = 300;
    TimeLimit::wait_us(port, uint64_t{std::min(record.activation_s, kPatienceS)} * 1000000);
    report.after = read_firmware_versions(session);
    return report;
}

std::string report_text(const UpdateReport& report, size_t indent) {
    Table table({{""}, {"BEFORE"}, {"AFTER"}});
    add_versions(table, "active", report.before.active_version, report.after.active_version);
    add_versions(table, "pending", report.before.pending_version, report.after.pending_version);
    for (const FirmwareComponent& after : report.after.components) {
        const Component key{
            .classification = after.classification, .identifier = after.identifier, .version = {}};
        const FirmwareComponent* before = counterpart(report.before, key);
        add_versions(table, component_name(after.classification, after.identifier),
                     before != nullptr ? before->active.version : "", after.active.version);
    }
    const std::string pending = pending_text(report.after);
    return table.text(indent) + (pending.empty() ? "" : std::string(indent, ' ') + pending);
}

Json report_json(const UpdateReport& report) {
    return {{"endpoint", report.endpoint},
            {"package", report.package},
            {"package_version", report.package_version},
            {"maximum_transfer_size", report.transfer_size},
            {"before", firmware_versions_json(report.before)},
            {"after", firmware_versions_json(report.after)},
            {"bytes", report.bytes},
            {"duration_us", report.duration_us}};
}

void query_firmware(Context& context, Session& session, const ParsedPackage& package) {
    FirmwareUpdate update(session, context.port, nullptr);
    update.bring_up();
    const FirmwareInfo info = read_firmware_info(session);
    // The library itself says whether the package is for the device.
    const UpdateRecord& record =
        update.run(package.path(), transfer_size_for(session.endpoint(), info),
                   PLDM_FW_FLAG_QUERY | PLDM_FW_FLAG_SHOW_IMAGE);
    if (record.interrupted || record.mark != 0) {
        throw update_failure(session.endpoint().name, record);
    }
    context.output.text(comparison_text(info, package));
    context.output.document(comparison_json(session.endpoint().name, info, package));
}

}  // namespace tool

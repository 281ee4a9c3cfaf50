// SPDX-License-Identifier: Apache-2.0
// What a firmware device tells of itself: descriptors, versions, components (DSP0267).
#include "tools/update/info.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/shell/json.h"
#include "tools/shell/text.h"
#include "tools/update/codes.h"

namespace tool {
namespace {

constexpr uint8_t kQueryDeviceIdentifiers = 0x01;
constexpr uint8_t kGetFirmwareParameters = 0x02;

// String types of DSP0267; 0 is unknown, 1 ASCII, 2 UTF-8.
constexpr uint8_t kStringUtf16 = 3;
constexpr uint8_t kStringUtf16BigEndian = 5;

/// A request without data and the answer to it.
std::vector<uint8_t> ask(Session& session, uint8_t command, const std::string& name) {
    std::array<uint8_t, PLDM_HEADER_SIZE> request;
    pldm_fw_update_request_init(request.data());
    request[2] = command;
    std::vector<uint8_t> answer(PLDM_FW_UPDATE_RESPONSE_SIZE);
    pldm_ctx& pldm = session.pldm();
    session.check_pldm(pldm.transfer_op(&pldm, request.size(), PLDM_FW_UPDATE_RESPONSE_SIZE,
                                        request.data(), answer.data()),
                       name);
    answer.resize(static_cast<size_t>(
        std::clamp<int32_t>(pldm.response_length, 0, PLDM_FW_UPDATE_RESPONSE_SIZE)));
    return answer;
}

Failure malformed(const Session& session, const std::string& name, const std::string& what) {
    return {session.endpoint().name, name, "the answer is malformed: " + what};
}

std::vector<Descriptor> read_descriptors(Session& session) {
    constexpr size_t kCountOffset = 8;
    const std::string name = "QueryDeviceIdentifiers";
    const std::vector<uint8_t> answer = ask(session, kQueryDeviceIdentifiers, name);
    std::span<const uint8_t> rest = answer;
    if (rest.size() <= kCountOffset) {
        throw malformed(session, name, fmt::format("it has {} bytes only", answer.size()));
    }
    const unsigned count = rest[kCountOffset];
    rest = rest.subspan(kCountOffset + 1);
    std::vector<Descriptor> list;
    for (unsigned i = 0; i < count; ++i) {
        const size_t length =
            rest.size() >= PLDM_DESCRIPTOR_HEADER_SIZE ? little_endian(rest.subspan(2, 2)) : 0;
        if (rest.size() < PLDM_DESCRIPTOR_HEADER_SIZE + length) {
            throw malformed(session, name,
                            fmt::format("descriptor {} of {} does not end inside it", i, count));
        }
        const std::span<const uint8_t> value = rest.subspan(PLDM_DESCRIPTOR_HEADER_SIZE, length);
        list.push_back(
            {static_cast<uint16_t>(little_endian(rest.first(2))), {value.begin(), value.end()}});
        rest = rest.subspan(PLDM_DESCRIPTOR_HEADER_SIZE + length);
    }
    return list;
}

/// A string of the device, without what would stand behind a NUL.
std::string version_of(std::span<const uint8_t> bytes, uint8_t type) {
    if (type >= kStringUtf16 && type <= kStringUtf16BigEndian) {
        const bool marked_big = type == kStringUtf16 && bytes.size() >= 2 && bytes[0] == 0xFE;
        return utf16_text(bytes, type == kStringUtf16BigEndian || marked_big);
    }
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0})};
}

/// A release date of eight digits; what is none becomes empty.
std::string date_of(std::span<const uint8_t> bytes) {
    const bool is_date = std::all_of(bytes.begin(), bytes.end(),
                                     [](uint8_t digit) { return digit >= '0' && digit <= '9'; });
    const bool is_set =
        std::any_of(bytes.begin(), bytes.end(), [](uint8_t digit) { return digit != '0'; });
    return is_date && is_set ? std::string(bytes.begin(), bytes.end()) : std::string();
}

/// An entry of the component parameter table, as the library has copied it.
FirmwareComponent component_from(const uint8_t* entry) {
    constexpr size_t kFixedPart = 39;
    const std::span<const uint8_t> head(entry, kFixedPart);
    const auto number = [head](size_t offset, size_t width) {
        return little_endian(head.subspan(offset, width));
    };
    const size_t active_length = head[10];
    const size_t pending_length = head[24];
    const uint8_t* strings = entry + kFixedPart;
    FirmwareComponent component;
    component.classification = static_cast<uint16_t>(number(0, 2));
    component.identifier = static_cast<uint16_t>(number(2, 2));
    component.classification_index = head[4];
    component.active = {number(5, 4), version_of({strings, active_length}, head[9]),
                        date_of(head.subspan(11, 8))};
    component.pending = {number(19, 4),
                         version_of({strings + active_length, pending_length}, head[23]),
                         date_of(head.subspan(25, 8))};
    component.activation_methods = static_cast<uint16_t>(number(33, 2));
    component.capabilities = number(35, 4);
    return component;
}

/// What the library makes of an answer, released with its scope.
class Parameters {
public:
    explicit Parameters(const std::vector<uint8_t>& answer)
        : result_(pldm_parse_firmware_para(&context_, answer.data(),
                                           static_cast<int32_t>(answer.size()))) {}
    ~Parameters() { pldm_free_ctx_resource(&context_); }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

    bool complete() const { return result_ == 0; }
    const pldm_fw_update_ctx& context() const { return context_; }

private:
    pldm_fw_update_ctx context_{};
    int32_t result_;
};

std::string stamp_text(uint32_t stamp) {
    return fmt::format("0x{:08x}", stamp);
}

Json component_json(const FirmwareComponent& component) {
    return {{"component_classification", component.classification},
            {"component_identifier", component.identifier},
            {"component_classification_index", component.classification_index},
            {"active_component_comparison_stamp", stamp_text(component.active.comparison_stamp)},
            {"active_component_version", component.active.version},
            {"active_component_release_date", component.active.release_date},
            {"pending_component_comparison_stamp", stamp_text(component.pending.comparison_stamp)},
            {"pending_component_version", component.pending.version},
            {"pending_component_release_date", component.pending.release_date},
            {"component_activation_methods", fmt::format("0x{:04x}", component.activation_methods)},
            {"capabilities_during_update", stamp_text(component.capabilities)}};
}

std::string indented(size_t indent, const std::string& line) {
    return std::string(indent, ' ') + line + "\n";
}

}  // namespace

std::optional<uint16_t> FirmwareInfo::pci_vendor() const {
    for (const Descriptor& descriptor : descriptors) {
        if (descriptor.type == PLDM_DESCRIPTOR_PCI_VENDOR_ID && descriptor.data.size() == 2) {
            return static_cast<uint16_t>(little_endian(descriptor.data));
        }
    }
    return std::nullopt;
}

bool FirmwareInfo::matches(const pldm_device_record& record) const {
    const std::vector<Descriptor> wanted = descriptors_of(record);
    return std::all_of(wanted.begin(), wanted.end(), [this](const Descriptor& one) {
        return std::any_of(descriptors.begin(), descriptors.end(), [&one](const Descriptor& own) {
            return pldm_compare_descriptors(one.wire().data(), own.wire().data()) == 0;
        });
    });
}

FirmwareInfo read_firmware_versions(Session& session) {
    constexpr size_t kCapabilitiesOffset = 4;
    const std::string name = "GetFirmwareParameters";
    const std::vector<uint8_t> answer = ask(session, kGetFirmwareParameters, name);
    const Parameters parameters(answer);
    if (!parameters.complete()) {
        throw malformed(session, name, "the component table does not end inside it");
    }
    const pldm_fw_update_ctx& context = parameters.context();
    FirmwareInfo info;
    info.capabilities = little_endian(std::span(answer).subspan(kCapabilitiesOffset, 4));
    info.active_version = context.active_version_string;
    info.pending_version = context.pending_version_string;
    for (uint32_t i = 0; i < context.fd_components_num; ++i) {
        info.components.push_back(component_from(context.fd_component_params[i]));
    }
    return info;
}

FirmwareInfo read_firmware_info(Session& session) {
    std::vector<Descriptor> descriptors = read_descriptors(session);
    FirmwareInfo info = read_firmware_versions(session);
    info.descriptors = std::move(descriptors);
    return info;
}

std::string firmware_text(const FirmwareInfo& info, size_t indent) {
    std::string text =
        indented(indent, "Active version   " + version_or_dash(info.active_version)) +
        indented(indent, "Pending version  " + version_or_dash(info.pending_version)) +
        indented(indent, "Capabilities     " + stamp_text(info.capabilities)) + "\n" +
        descriptors_text(info.descriptors, indent) + "\n";
    Table table({{"CLASS", true},
                 {"ID", true},
                 {"INDEX", true},
                 {"ACTIVE"},
                 {"STAMP"},
                 {"PENDING"},
                 {"STAMP"},
                 {"CAPABILITIES"},
                 {"ACTIVATION"}});
    for (const FirmwareComponent& one : info.components) {
        table.add({std::to_string(one.classification), std::to_string(one.identifier),
                   std::to_string(one.classification_index), version_or_dash(one.active.version),
                   stamp_text(one.active.comparison_stamp), version_or_dash(one.pending.version),
                   stamp_text(one.pending.comparison_stamp), stamp_text(one.capabilities),
                   activation_text(one.activation_methods)});
    }
    return text + table.text(indent);
}

Json firmware_versions_json(const FirmwareInfo& info) {
    Json components = Json::array();
    for (const FirmwareComponent& component : info.components) {
        components.push_back(component_json(component));
    }
    return {{"active_component_image_set_version", info.active_version},
            {"pending_component_image_set_version", info.pending_version},
            {"components", components}};
}

Json firmware_json(const FirmwareInfo& info) {
    Json json{{"descriptors", descriptors_json(info.descriptors)},
              {"capabilities_during_update", stamp_text(info.capabilities)}};
    json.update(firmware_versions_json(info));
    return json;
}

std::string activation_text(uint16_t methods) {
    std::string text;
    for (uint8_t bit = 0; bit < 16; ++bit) {
        const std::string name = activation_method_name(bit);
        if ((methods >> bit & 1) != 0 && !name.empty()) {
            text += (text.empty() ? "" : ", ") + name;
        }
    }
    return text.empty() ? fmt::format("0x{:04x}", methods) : text;
}

std::string version_or_dash(const std::string& version) {
    return version.empty() ? "-" : printable(version);
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The commands ncsi oem: settings of Broadcom and Mellanox controllers, MAC address, temperature.
#include <fmt/format.h>

#include "tools/ncsi/client.h"
#include "tools/ncsi/commands.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// One vendor's one-bit flag and its value, and the commands that carry both.
struct Setting {
    const char* name;
    int32_t (*get)(ncsi_channel* channel);
    int32_t (*set)(ncsi_channel* channel);
};

Setting setting_of(OemSetting which) {
    return which == OemSetting::kBrcmPreboot
               ? Setting{"the preboot server config", ncsi_oem_brcm_get_preboot_server_config,
                         ncsi_oem_brcm_set_preboot_server_config}
               : Setting{"the card TLV", ncsi_oem_mx_get_card_tlv_info,
                         ncsi_oem_mx_set_card_tlv_info};
}

struct SettingValues {
    uint8_t flag;
    uint16_t value;
};

Json values_json(const SettingValues& values) {
    return {{"flag", values.flag}, {"value", values.value}};
}

std::string value_text(uint16_t value) {
    return fmt::format("0x{:04x}", value);
}

SettingValues read_setting(NcsiClient& client, unsigned number, const Setting& setting) {
    ncsi_channel& channel = client.channel(number);
    client.call(fmt::format("reading {} of channel {}", setting.name, number),
                [&] { return setting.get(&channel); });
    return {channel.oem_flag, channel.oem_value};
}

/// The start of every document.
Json head(const std::string& endpoint, NcsiClient& client, unsigned number) {
    return {{"endpoint", endpoint},
            {"channel", number},
            {"channel_id", client.channel(number).channel_id}};
}

}  // namespace

void run_ncsi_oem_get(Context& context, const std::string& endpoint, OemSetting which,
                      const OemWish& wish) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    const unsigned number = client.choose(wish.channel);
    const SettingValues values = read_setting(client, number, setting_of(which));
    context.output.text(
        fmt::format("flag   {}\nvalue  {}\n", values.flag, value_text(values.value)));
    Json document = head(endpoint, client, number);
    document.update(values_json(values));
    context.output.document(document);
}

void run_ncsi_oem_set(Context& context, const std::string& endpoint, OemSetting which,
                      const OemWish& wish) {
    if (!wish.flag && !wish.value) {
        throw Failure(ExitStatus::kUsage, "--flag or --value is required (try --help)");
    }
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    const unsigned number = client.choose(wish.channel);
    const Setting setting = setting_of(which);
    const SettingValues before = read_setting(client, number, setting);
    ncsi_channel& channel = client.channel(number);
    channel.oem_flag = static_cast<uint8_t>(wish.flag.value_or(before.flag));
    channel.oem_value = static_cast<uint16_t>(wish.value.value_or(before.value));
    client.call(fmt::format("writing {} of channel {}", setting.name, number),
                [&] { return setting.set(&channel); });
    const SettingValues after = read_setting(client, number, setting);
    Table table({{""}, {"BEFORE"}, {"AFTER"}});
    table.add({"flag", std::to_string(before.flag), std::to_string(after.flag)});
    table.add({"value", value_text(before.value), value_text(after.value)});
    context.output.text(table.text());
    Json document = head(endpoint, client, number);
    document["before"] = values_json(before);
    document["after"] = values_json(after);
    context.output.document(document);
}

void run_ncsi_oem_mac(Context& context, const std::string& endpoint, const OemWish& wish) {
    constexpr size_t kAddress = 28;
    constexpr size_t kAddressSize = 6;
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    const unsigned number = client.choose(wish.channel);
    client.call(fmt::format("Get PF MAC Address of channel {}", number),
                [&] { return ncsi_oem_mx_get_pf_mac_address(&client.channel(number)); });
    // The library prints the address and stores it nowhere; it refuses a response without one.
    const std::span<const uint8_t> mac = client.last_response().subspan(kAddress, kAddressSize);
    context.output.text(fmt::format("{:02x}\n", fmt::join(mac, ":")));
    Json document = head(endpoint, client, number);
    document["mac_address"] = hex(mac);
    context.output.document(document);
}

void run_ncsi_oem_temperature(Context& context, const std::string& endpoint, const OemWish& wish) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    NcsiClient client(session);
    const unsigned number = client.choose(wish.channel);
    const int32_t temperature = read_temperature(client, number, wish.sensor);
    context.output.text(fmt::format("{} degC\n", temperature));
    Json document = head(endpoint, client, number);
    document["sensor"] = wish.sensor;
    document["temperature"] = temperature;
    document["unit"] = "degC";
    context.output.document(document);
}

}  // namespace tool

// SPDX-License-Identifier: Apache-2.0
// The command raw: one message body out, the answer in hex.
#include <fmt/format.h>

#include "tools/mctp/commands.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

uint8_t parse_type(const std::string& text) {
    // NVMe-MI prescribes the integrity check for its messages.
    static const std::pair<const char*, uint8_t> kNames[] = {
        {"control", MCTP_MSG_TYPE_CONTROL},
        {"pldm", MCTP_MSG_TYPE_PLDM},
        {"ncsi", MCTP_MSG_TYPE_NCSI},
        {"nvme-mi", MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK}};
    for (const auto& [name, type] : kNames) {
        if (text == name) {
            return type;
        }
    }
    const std::optional<uint32_t> number = parse_number(text, 0xFF);
    if (!number) {
        throw Failure(
            ExitStatus::kUsage,
            fmt::format("{}: the type is control, pldm, ncsi, nvme-mi or a number from 0 to 0xff",
                        text));
    }
    return static_cast<uint8_t>(*number);
}

std::vector<uint8_t> parse_body(const std::vector<std::string>& pieces) {
    std::vector<uint8_t> body;
    for (const std::string& piece : pieces) {
        const std::optional<std::vector<uint8_t>> bytes = parse_hex(piece);
        if (!bytes) {
            throw Failure(ExitStatus::kUsage,
                          fmt::format("{}: the message is given as pairs of hex digits", piece));
        }
        body.insert(body.end(), bytes->begin(), bytes->end());
    }
    if (body.empty()) {
        throw Failure(ExitStatus::kUsage, "the message has no bytes");
    }
    return body;
}

}  // namespace

void run_raw(Context& context, const std::string& endpoint, const std::string& type,
             const std::vector<std::string>& pieces) {
    const uint8_t message_type = parse_type(type);
    const std::vector<uint8_t> body = parse_body(pieces);
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    const std::vector<uint8_t> answer = session.exchange(message_type, body);
    context.output.text(hex(answer) + "\n");
    context.output.document({{"endpoint", endpoint},
                             {"message_type", message_type},
                             {"request", hex(body)},
                             {"response", hex(answer)},
                             {"response_length", answer.size()}});
}

}  // namespace tool

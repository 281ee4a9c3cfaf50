// SPDX-License-Identifier: Apache-2.0
// A firmware device that answers and asks as a test wrote down, and updates of it by the library.
#include "pldm/update/device.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "support/capture.h"

namespace test {

namespace {

FwDevice* active;

Bytes le(uint32_t value, size_t width) {
    Bytes bytes;
    for (size_t i = 0; i < width; i++) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    return bytes;
}

/// Whether an answer takes the component of an UpdateComponent.
bool takes_component(const Bytes& answer) {
    return answer.size() > 4 && answer[2] == 0x14 && answer[3] == 0 && answer[4] == 0;
}

/// Ends a GetPackageData sequence that another test has left, since it is the process's.
void end_package_data() {
    pldm_fw_update_ctx other{};
    other.pldm.send_op = [](pldm_ctx*, uint32_t, const uint8_t*, uint8_t) { return 0; };
    const Bytes request = hex("80 05 11 00 00 00 00 00 00 00 00");
    EXPECT_EQ(run([&] { return pldm_get_package_data(&other, request.data()); }).result, -1);
}

}  // namespace

FwDevice::FwDevice(LibcPatch& libc)
    : usual({{0x01, "00 05 01 00 00 00 00 00 00"},
             {0x10, "00 05 10 00 00 00 00"},
             {0x13, "00 05 13 00 00 00"},
             {0x14, "00 05 14 00 00 00 00 00 00 00 00 00"},
             {0x1A, "00 05 1a 00 00 00"},
             {0x1C, "00 05 1c 00"},
             {0x1D, "00 05 1d 00 00 00 00 00 00 00 00 00 00"}}),
      libc_(libc) {
    if (active != nullptr) {
        std::abort();
    }
    active = this;
}

FwDevice::~FwDevice() {
    active = nullptr;
}

void FwDevice::attach(mctp_ctx& endpoint) {
    endpoint.xfer = [](mctp_ctx*, uint32_t length, int32_t space, const uint8_t* request,
                       uint8_t* response) {
        return active->exchange(bytes_at(request, length), space, response);
    };
    endpoint.recv = [](mctp_ctx*, int32_t space, uint8_t* buffer) {
        return active->receive(space, buffer);
    };
    endpoint.send = [](mctp_ctx*, uint32_t length, const uint8_t* message, uint8_t tag_owner) {
        return active->send(bytes_at(message, length), tag_owner);
    };
}

Texts FwDevice::dialogue_of(std::initializer_list<const char*> starts) const {
    Texts found;
    for (const std::string& line : dialogue) {
        if (std::any_of(starts.begin(), starts.end(),
                        [&](const char* start) { return line.starts_with(start); })) {
            found.push_back(line);
        }
    }
    return found;
}

void FwDevice::note(const char* mark, const Bytes& bytes) {
    if (keeps_dialogue) {
        dialogue.push_back(mark + to_hex(bytes));
    }
}

int32_t FwDevice::exchange(const Bytes& request, int32_t space, uint8_t* response) {
    note("> ", request);
    room[request[2]] = space;
    std::deque<std::string>& next = answers[request[2]];
    std::string text = usual[request[2]];
    if (!next.empty()) {
        text = next.front();
        next.pop_front();
    }
    Bytes answer = hex(text);
    if (knows_instance_ids && !answer.empty()) {
        answer[0] = static_cast<uint8_t>((answer[0] & 0xE0) | (request[0] & 0x1F));
    }
    if (takes_component(answer) && !loads.empty()) {
        asks.assign(loads.front().begin(), loads.front().end());
        loads.pop_front();
    }
    const auto count = std::min(answer.size(), static_cast<size_t>(std::max(space, 0)));
    std::copy_n(answer.begin(), count, response);
    return answer.empty() ? -1 : static_cast<int32_t>(count);
}

int32_t FwDevice::receive(int32_t space, uint8_t* buffer) {
    capacity.push_back(space);
    max_blocks = std::max(max_blocks, static_cast<int>(libc_.live_blocks()));
    if (on_receive) {
        on_receive();
    }
    std::string text;
    if (!asks.empty()) {
        text = asks.front();
        asks.pop_front();
    } else if (asks_always) {
        text = asks_always();
    }
    if (text.empty()) {
        libc_.now = libc_.now.value_or(0) + wait;
        if (dialogue.empty() || dialogue.back() != "...") {
            dialogue.emplace_back("...");
        }
        return -1;
    }
    const Bytes message = hex(text);
    messages++;
    note("< ", message);
    EXPECT_LE(message.size(), static_cast<size_t>(space));
    std::copy(message.begin(), message.end(), buffer);
    return static_cast<int32_t>(message.size());
}

int32_t FwDevice::send(const Bytes& message, uint8_t tag_owner) {
    EXPECT_EQ(tag_owner, 0);
    note("= ", message);
    return failing_send > 0 && --failing_send == 0 ? -1 : 0;
}

std::string piece(uint32_t offset, uint32_t length) {
    return to_hex(hex("80 05 15") + le(offset, 4) + le(length, 4));
}

Texts load(uint32_t length) {
    return {piece(0, length), "81 05 16 00", "82 05 17 00", "83 05 18 00 00 00"};
}

Bytes parameters(const std::vector<Known>& components) {
    const auto count = static_cast<uint32_t>(components.size());
    Bytes all = hex("00 05 02 00 00 00 00 00") + le(count, 2) + hex("01 01 01 01 61 70");
    for (const Known& known : components) {
        all = all + le(known.classification, 2) + le(known.identifier, 2) + Bytes{known.index} +
              Bytes(34);
    }
    return all;
}

tool::Package update_package(size_t components) {
    tool::Package package;
    package.version = "pkg";
    tool::PackageRecord record;
    record.version = "rec";
    for (size_t i = 0; i < components; i++) {
        record.components.push_back(i);
        tool::PackageComponent component;
        component.identifier = static_cast<uint16_t>(i + 1);
        component.comparison_stamp = 0x44332200 + static_cast<uint32_t>(i);
        component.version = "v" + std::to_string(i);
        component.image = counting(40, static_cast<uint8_t>(16 * i));
        package.components.push_back(component);
    }
    package.records = {record};
    return package;
}

std::vector<Known> known(size_t components) {
    std::vector<Known> all;
    for (size_t i = 0; i < components; i++) {
        all.push_back({10, static_cast<uint16_t>(i + 1), static_cast<uint8_t>(i + 1)});
    }
    return all;
}

uint8_t FwMachineTest::failing_command_;
int32_t FwMachineTest::failing_result_;

FwMachineTest::FwMachineTest() {
    end_package_data();
    libc.now = 1'700'000'000;
    ctx.max_transfer_size = 64;
    ctx.task_id = 0x7A5C;
    pldm_force_update_flag = 0;
    bind();
}

void FwMachineTest::TearDown() {
    EXPECT_EQ(pldm_free_ua_resource(&ctx), 0);
    pldm_force_update_flag = 0;
    PackageTest::TearDown();
}

void FwMachineTest::bind() {
    mctp_ctx config = smbus_context();
    config.skip_discovery = 1;
    ASSERT_EQ(pldm_terminus_init(&ctx.pldm, &config), 0);
    device.attach(*ctx.pldm.mctp);
}

void FwMachineTest::prepare(size_t components) {
    prepare(update_package(components), known(components));
}

void FwMachineTest::prepare(const tool::Package& package, const std::vector<Known>& components) {
    ASSERT_EQ(parse(package), 0);
    ctx.matched_record = ctx.records;
    const Bytes response = parameters(components);
    const Outcome outcome = run([&] {
        return pldm_parse_firmware_para(&ctx, response.data(),
                                        static_cast<int32_t>(response.size()));
    });
    ASSERT_EQ(outcome.result, 0);
}

Outcome FwMachineTest::act(uint8_t state) {
    ctx.state = state;
    return run([&] { return fw_update_state_fn(&ctx); });
}

void FwMachineTest::fail_exchanges_of(uint8_t command, int32_t result) {
    failing_command_ = command;
    failing_result_ = result;
    ctx.pldm.transfer_op = [](pldm_ctx* pldm, uint32_t length, int32_t space, uint8_t* request,
                              uint8_t* response) {
        return request[2] == failing_command_
                   ? failing_result_
                   : pldm_transfer(pldm, length, space, request, response);
    };
}

void FwMachineTest::print_ten_percent() const {
    Bytes entry(PLDM_COMPONENT_IMAGE_SIZE);
    entry[19] = 0x7F;  // the highest byte of its size
    pldm_update_component element{0, entry.data()};
    pldm_fw_update_ctx other{};
    other.package_file = path.c_str();
    other.max_transfer_size = 64;
    other.last_percentage = 10;
    other.component_num = 1;
    other.update_list = &element;
    other.pldm.send_op = [](pldm_ctx*, uint32_t, const uint8_t*, uint8_t) { return 0; };
    const Bytes request = hex(piece(0, 32));
    EXPECT_EQ(run([&] { return pldm_request_fw_data(&other, request.data()); }).result, 0);
}

std::vector<unsigned> FwMachineTest::progress() const {
    std::vector<unsigned> percentages;
    for (const auto& [task, percentage] : port().progress) {
        EXPECT_EQ(task, ctx.task_id);
        percentages.push_back(percentage);
    }
    return percentages;
}

}  // namespace test

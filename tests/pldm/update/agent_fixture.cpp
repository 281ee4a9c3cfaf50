// SPDX-License-Identifier: Apache-2.0
// Tests of the firmware update agent: a device behind a fake endpoint, and a recorded machine.
#include "pldm/update/agent_fixture.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace test {

FwUpdateTest* FwUpdateTest::recorder_;
int32_t FwUpdateTest::exchange_result_;

/// -1 if no recorder lives.
int32_t record_state(pldm_fw_update_ctx* ctx) {
    FwUpdateTest* const recorder = FwUpdateTest::recorder_;
    if (recorder == nullptr) {
        return -1;
    }
    recorder->machine.push_back("state " + std::to_string(ctx->state) + " component " +
                                std::to_string(ctx->component_index));
    return 0;
}

FwUpdateTest::FwUpdateTest() {
    EXPECT_EQ(mctp_pldm_register(&endpoint, &ctx.pldm), 0);
    ctx.max_transfer_size = 64;
    ctx.task_id = 0x7A5C;
    recorder_ = this;
    pldm_force_update_flag = 0;
}

FwUpdateTest::~FwUpdateTest() {
    recorder_ = nullptr;
    pldm_force_update_flag = 0;
}

void FwUpdateTest::set_components(std::initializer_list<std::string_view> entries) {
    std::free(ctx.update_list);
    component_entries_.clear();
    for (std::string_view entry : entries) {
        component_entries_.push_back(hex(entry));
    }
    ctx.component_num = static_cast<uint16_t>(entries.size());
    ctx.update_list = static_cast<pldm_update_component*>(
        std::calloc(entries.size(), sizeof(pldm_update_component)));
    for (size_t i = 0; i < entries.size(); i++) {
        Bytes& entry = component_entries_[i];
        ctx.update_list[i].image = entry.empty() ? nullptr : entry.data();
    }
}

pldm_device_record& FwUpdateTest::add_record(uint8_t version_type, const std::string& version,
                                             const Bytes& package_data) {
    const size_t index = ctx.device_record_num++;
    void* grown = std::realloc(ctx.records, (index + 1) * sizeof(pldm_device_record));
    ctx.records = static_cast<pldm_device_record*>(grown);
    pldm_device_record& record = ctx.records[index];
    record = {};
    record.component_image_set_ver_string_type = version_type;
    record.component_image_set_ver_string_len = static_cast<uint8_t>(version.size());
    record.image_version_string = strdup(version.c_str());
    record.package_data_len = static_cast<uint16_t>(package_data.size());
    // Exactly as much as the length says, so that a sanitizer sees a read behind it.
    record.package_data = static_cast<uint8_t*>(std::malloc(package_data.size()));
    if (!package_data.empty()) {
        std::memcpy(record.package_data, package_data.data(), package_data.size());
    }
    ctx.package_data_len = record.package_data_len;
    return record;
}

void FwUpdateTest::fail_exchanges(int32_t result) {
    exchange_result_ = result;
    ctx.pldm.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t*, uint8_t*) {
        return exchange_result_;
    };
}

void FwUpdateTest::accept_sends(int count) {
    for (int i = 0; i < count; i++) {
        endpoint.answers.push_back({0, {}});
    }
}

Outcome FwAnswerTest::asked(Call call, std::string_view request, int32_t send_result) {
    endpoint.answers.push_back({send_result, {}});
    return asked_without_answer(call, request);
}

Outcome FwAnswerTest::asked_without_answer(Call call, std::string_view request) {
    Bytes bytes = hex(request);
    bytes.resize(std::max<size_t>(bytes.size(), PLDM_FW_UPDATE_REQUEST_SIZE));
    return run([&] { return call(&ctx, bytes.data()); });
}

std::string FwAnswerTest::sent() const {
    if (endpoint.calls.empty()) {
        return "";
    }
    EXPECT_EQ(endpoint.calls.back().tag_owner, 0);
    return to_hex(endpoint.calls.back().bytes);
}

void FwAnswerTest::expect_unusable_arguments_refused(Call call) {
    const Bytes request(PLDM_FW_UPDATE_REQUEST_SIZE);
    EXPECT_EQ(call(nullptr, request.data()), -1);
    EXPECT_EQ(call(&ctx, nullptr), -1);
    ctx.pldm.send_op = nullptr;
    EXPECT_EQ(call(&ctx, request.data()), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

}  // namespace test

/// Stands in front of the library's own, to which it leaves the calls that no test records.
int32_t fw_update_state_fn(pldm_fw_update_ctx* ctx) {
    if (test::record_state(ctx) == 0) {
        return 0;
    }
    using Function = int32_t (*)(pldm_fw_update_ctx*);
    static const auto kOwn = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "fw_update_state_fn"));
    return kOwn(ctx);
}

// SPDX-License-Identifier: Apache-2.0
// Tests of the firmware update agent: a device behind a fake endpoint, and a recorded machine.
#ifndef SIDEBAND_TESTS_PLDM_UPDATE_AGENT_FIXTURE_H
#define SIDEBAND_TESTS_PLDM_UPDATE_AGENT_FIXTURE_H

#include <sideband/pldm_fw_update.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "pldm/pldm_fixture.h"
#include "pldm/update/package_fixture.h"

namespace test {

using Texts = std::vector<std::string>;

/**
 * A context that is bound to a fake endpoint. While one lives, the library's calls of
 * fw_update_state_fn() end here: each is written down as "state S component C".
 */
class FwUpdateTest : public PackageTest {
protected:
    FwUpdateTest();
    ~FwUpdateTest() override;

    /// The update list, and the component information that it points to, each written as hex.
    void set_components(std::initializer_list<std::string_view> entries);

    /// Adds a device record with this version string and package data.
    pldm_device_record& add_record(uint8_t version_type, const std::string& version,
                                   const Bytes& package_data = {});

    /// Makes every exchange of the terminus end with this result.
    void fail_exchanges(int32_t result);

    /// Queues so many answers of the endpoint that accept what is sent.
    void accept_sends(int count = 1);

    FakeEndpoint endpoint;
    Texts machine;  ///< calls of the state machine

private:
    friend int32_t record_state(pldm_fw_update_ctx* ctx);

    std::vector<Bytes> component_entries_;
    static FwUpdateTest* recorder_;
    static int32_t exchange_result_;
};

/// Requests of the device, and what is answered.
class FwAnswerTest : public FwUpdateTest {
protected:
    using Call = int32_t (*)(pldm_fw_update_ctx*, const uint8_t*);

    /// A request of the device, at least as long as the longest, whose answer is sent.
    Outcome asked(Call call, std::string_view request, int32_t send_result = 0);
    Outcome asked_without_answer(Call call, std::string_view request);

    /// What was sent last, as hex; it must be marked as a response.
    std::string sent() const;

    void expect_unusable_arguments_refused(Call call);
};

/// An UpdateComponent target: type 1, version "v2", 0x1234 bytes at 0x40, options and methods 0.
inline constexpr const char* kComponent =
    "0a 00 01 01 44 33 22 11 00 00 00 00 40 00 00 00 34 12 00 00 01 02 76 32";

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// An NVMe-MI context over an endpoint without MCTP or over SMBus packets, and a drive's responses.
#ifndef SIDEBAND_TESTS_NVMEMI_NVME_FIXTURE_H
#define SIDEBAND_TESTS_NVMEMI_NVME_FIXTURE_H

#include <sideband/nvme_mi.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "support/endpoint.h"
#include "support/fake_endpoint.h"
#include "support/scripted_platform.h"

namespace test {

using Texts = std::vector<std::string>;

/// Room for whatever an endpoint may send.
constexpr size_t kResponseArea = 5120;

/// The response to a management command.
/// @param management  the three bytes behind the status
/// @param data        what stands from byte 7 on
Bytes mi_response(const Bytes& management = Bytes(3), const Bytes& data = {});

/// A response that has nothing but a status to say.
/// @param type  0x88 for management commands, 0x90 for admin commands
Bytes status_response(uint8_t status, const Bytes& behind = Bytes(3), uint8_t type = 0x88);

/// The response to an admin command that the endpoint has passed on.
/// @param dword3  completion queue entry: status code in bits 24..17, its type in bits 27..25
/// @param data    what stands from byte 19 on
Bytes admin_response(const Bytes& data = {}, uint32_t dword3 = 0, uint32_t dword0 = 0,
                     uint32_t dword1 = 0);

/// The line about a status that has no text of its own.
std::string unsuccess(unsigned status);

/// A body with the integrity check that a drive sends behind it, over message type 0x84 and body.
Bytes checked(const Bytes& body);

/// Fixture: a context with the library's request operation, bound to a fake endpoint of bus 3.
class NvmeTest : public PlatformTest {
protected:
    NvmeTest();

    /// Queues the drive's whole responses.
    void answer(std::initializer_list<Bytes> responses);
    /// Forgets what was exchanged and what the next answers are.
    void start_over();

    FakeEndpoint endpoint;
    nvmemi_ctx ctx{};
};

/// Fixture: a context of nvmemi_init() whose drive answers over the scripted platform's SMBus.
class NvmeSmbusTest : public PlatformTest {
protected:
    NvmeSmbusTest();
    ~NvmeSmbusTest() override;

    /// A call's result and output if the drive answers with these in turn, integrity check
    /// included, then keeps silent.
    Outcome exchange(std::initializer_list<Bytes> responses, const std::function<int32_t()>& call);
    /// What went out in the last exchange: whole MCTP packets as hex.
    Texts packets() const;

    nvmemi_ctx ctx{};
};

}  // namespace test

#endif

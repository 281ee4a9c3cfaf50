// SPDX-License-Identifier: Apache-2.0
// The operations of a PCIe context, and who its messages go to.
#ifndef SIDEBAND_TRANSPORT_PCIE_MESSAGE_H
#define SIDEBAND_TRANSPORT_PCIE_MESSAGE_H

#include <sideband/mctp.h>

#include <cstdint>
#include <cstring>

namespace sideband {

/// While one lives, messages go out over PCIe from the context's own EID to that of a peer: there
/// they go where the binding EIDs say, which receiving overwrites.
class AddressedTo {
public:
    /// @param ctx  null: nothing is done
    AddressedTo(mctp_ctx* ctx, uint8_t peer) : ctx_(ctx) {
        if (ctx_ != nullptr) {
            std::memcpy(received_, ctx_->binding_eids, sizeof received_);
            ctx_->binding_eids[0] = ctx_->src_eid;
            ctx_->binding_eids[1] = peer;
        }
    }
    ~AddressedTo() {
        if (ctx_ != nullptr) {
            std::memcpy(ctx_->binding_eids, received_, sizeof received_);
        }
    }
    AddressedTo(const AddressedTo&) = delete;
    AddressedTo& operator=(const AddressedTo&) = delete;

private:
    mctp_ctx* ctx_;
    uint8_t received_[2] = {};
};

int32_t pcie_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t pcie_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
/// As mctp_pcie_recv_with_type(), but a strict context takes messages of its own type alone.
int32_t pcie_recv_typed(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t pcie_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                  const uint8_t* request, uint8_t* response);

}  // namespace sideband

#endif

// SPDX-License-Identifier: Apache-2.0
// What the files of the MCTP transport share with one another and with the layers above.
#ifndef SIDEBAND_TRANSPORT_TRANSPORT_H
#define SIDEBAND_TRANSPORT_TRANSPORT_H

#include <sideband/mctp.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/memory.h"

namespace sideband {

/// MCTP transport header (DSP0236, clause 8.1): version, destination, source, flags.
inline constexpr int32_t kTransportHeaderSize = 4;
inline constexpr uint8_t kHeaderVersion = 1;
inline constexpr uint8_t kFlagSom = 0x80;
inline constexpr uint8_t kFlagEom = 0x40;
inline constexpr uint8_t kFlagTagOwner = 0x08;
inline constexpr uint8_t kTagMask = 0x07;
inline constexpr uint8_t kSequenceMask = 0x03;
inline constexpr int kSequenceShift = 4;

/// The tag of the next request.
inline uint8_t next_tag(uint8_t tag) {
    return static_cast<uint8_t>((tag + 1) & kTagMask);
}

/// Pauses the calling thread.
void sleep_us(uint32_t microseconds);

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

using EndpointPtr = HeapPtr<mctp_ctx>;

/// A new endpoint with what the caller of a prototype configures; all else is zero.
/// @return null if the allocation failed
EndpointPtr create_endpoint(const mctp_ctx& config);

/// The endpoint that is owned, or null: also in a context that nobody has zeroed.
mctp_ctx* endpoint_of(const mctp_owned& owned);
/// @param endpoint  what create_endpoint() gave, to be freed by release()
void own(mctp_owned& owned, mctp_ctx* endpoint);
/// Frees the endpoint that is owned, if there is one.
void release(mctp_owned& owned);

// Operations of an SMBus context. The locked ones take the bus mutex themselves.
int32_t smbus_send_locked(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t smbus_recv_locked(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                   const uint8_t* request, uint8_t* response);
int32_t smbus_xfer_delayed(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                           const uint8_t* request, uint8_t* response);
int32_t sl8_smbus_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t sl8_smbus_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t sl8_smbus_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                       const uint8_t* request, uint8_t* response);

// The message layer below those operations: no lock is taken.
int32_t send_message(mctp_ctx& ctx, size_t length, const uint8_t* body, uint8_t tag_owner,
                     bool integrity_check);
/// What a receive does with the message type byte.
enum class TypeByte { strip, deliver };

int32_t receive_message(mctp_ctx& ctx, int32_t capacity, uint8_t* buffer,
                        TypeByte type_byte = TypeByte::strip);

// Operations of a PCIe context.
int32_t pcie_send(mctp_ctx* ctx, uint32_t length, const uint8_t* body, uint8_t tag_owner);
int32_t pcie_recv(mctp_ctx* ctx, int32_t length, uint8_t* buffer);
int32_t pcie_xfer(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                  const uint8_t* request, uint8_t* response);

/// The MPIO state word, which another thread or process may be writing.
uint32_t mpio_state();

/// Get Routing Table Entries with the number of bytes that the endpoint really sent.
/// @param table  MCTP_ROUTING_TABLE_RESPONSE_SIZE bytes
/// @return bytes received, or -1
int32_t read_routing_table(mctp_ctx* ctx, uint8_t entry_handle, uint8_t* table);

}  // namespace sideband

#endif

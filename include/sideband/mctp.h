/* SPDX-License-Identifier: Apache-2.0 */
/*
 * MCTP: the endpoint context, the bindings, control messages, discovery (DSP0236, DSP0237,
 * DSP0238). One context reaches one endpoint and is used by one thread at a time.
 */
#ifndef SIDEBAND_MCTP_H
#define SIDEBAND_MCTP_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/error.h>
#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

/* ---- Bindings, message types, sizes ---------------------------------------------------------- */

/** mctp_ctx.binding_kind: SMBus/I2C, PEC by the I2C controller. */
#define MCTP_BINDING_KIND_SMBUS 0
/** mctp_ctx.binding_kind: PCIe vendor-defined messages. */
#define MCTP_BINDING_KIND_PCIE 2
/** mctp_ctx.binding_kind: SMBus/I2C, PEC in software. */
#define MCTP_BINDING_KIND_SL8_SMBUS 3
/**
 * mctp_ctx.binding_kind: the MCTP sockets of a Linux kernel (AF_MCTP), which reach the endpoint
 * over whatever bus the kernel knows. A library that was built without them (Meson option socket)
 * takes it for unknown. The caller fills binding_kind, pcie_param with the number of the network
 * (0: the kernel's default one), dest_eid, and route with the milliseconds to wait (low 16 bits).
 *
 * EIDs belong to whoever owns the bus. mctp_init2() asks nobody and assigns nothing: it installs
 * the operations, binding stays null, and the result is 0 for any endpoint, there or not. Set
 * skip_discovery, or msg_type becomes 0. Control messages work as over every other binding, so that
 * mctp_get_endpoint_id() tells whether somebody is there; mctp_discovery() is not meant for it, nor
 * are get_bmc_by_owner() and mctp_init2_with_i2c_delay().
 *
 * The kernel splits and reassembles: unit_size and i2c_delay_us have no meaning. A process needs
 * CAP_NET_RAW, and CAP_NET_BIND_SERVICE to update firmware. A call of the kernel that fails leaves
 * one line with its cause in console_log().
 */
#define MCTP_BINDING_KIND_SOCKET 0x40
/** Milliseconds that the sockets wait where the low 16 bits of mctp_ctx.route are 0. */
#define MCTP_SOCKET_WAIT_DEFAULT_MS 5000

/**
 * Message types (DSP0239). Bit 7 of the type byte stands for a message integrity check (CRC-32C,
 * little-endian, behind the body): sending over MCTP_BINDING_KIND_SMBUS and _SOCKET appends it, the
 * other bindings do not, and no receive but that of _SOCKET checks one: it is delivered as the end
 * of the body. With MCTP_STRICT_INTEGRITY all of them append and check it.
 */
#define MCTP_MSG_TYPE_CONTROL 0x00
#define MCTP_MSG_TYPE_PLDM 0x01
#define MCTP_MSG_TYPE_NCSI 0x02
#define MCTP_MSG_TYPE_NVME_MI 0x04
#define MCTP_MSG_TYPE_INTEGRITY_CHECK 0x80

/** mctp_ctx.unit_size if the caller leaves 0. */
#define MCTP_UNIT_SIZE_DEFAULT 96
/** Largest mctp_ctx.unit_size that the SMBus bindings can carry; a larger one fails every call. */
#define MCTP_UNIT_SIZE_MAX 120

/* ---- Strictness: mctp_ctx.strict ------------------------------------------------------------- */
/*
 * Bits of it: where the library does what deployed firmware needs, a bit makes it keep
 * to the standard instead. Each can be set by itself, and be changed between two calls. Contexts
 * that the library makes for another one, to ask the MPIO for it, are as strict.
 */
/**
 * Packets (DSP0236, DSP0237).
 *
 * Sending: the last packet of a message always has EOM, and one that cannot be written fails the
 * message at once. Over PCIe the tag is counted modulo 8, unless bit 7 pins it: a caller has set
 * it, or 128 exchanges without this bit have counted it up to there.
 *
 * Receiving over SMBus drops these packets too:
 *  - blocks with another command code, a byte count that is not theirs, or bit 0 of the source
 *    address clear; for them smbus_block_read() gives 0
 *  - a header version other than 1
 *  - a destination other than src_eid, the null EID, and, with TO, the broadcast EID. While src_eid
 *    is 0 any will do
 *  - more than unit_size bytes of payload, for which every read asks
 *  - a start with another message type, bit 7 apart, unless the type is delivered
 *  - a start with TO, in an exchange
 *  - between the packets of a message those with other EIDs, another tag or TO bit
 * A packet of the message itself that is out of sequence, or not as large as the first (the last
 * may be smaller), ends it: what was stored is zeroed, and another start waited for. A second start
 * begins the message anew. The 1024 packets that mctp_recv_op bears are all that are dropped or
 * make what was stored void, in a row or not; MCTP_STRICT_INTEGRITY and MCTP_STRICT_ADDRESSES count
 * so too, and have whole packets read.
 *
 * Receiving over PCIe, where the platform reassembles: an answer with another type, tag or
 * destination fails its exchange with -1, and nothing else is read: see PltMCTP_WriteRead(). A
 * receive passes over messages with another type or destination, and fails behind 1024 of them.
 *
 * Control messages: an answer with Rq or D set fails, and so does a third "not ready".
 */
#define MCTP_STRICT_PACKETS 0x01U
/**
 * Message integrity check: every binding appends it where msg_type has bit 7. A message fails with
 * -1 (over sockets, where the wait goes on behind it, with or without this bit, it is dropped) if
 * its type byte has bit 7 and the check is wrong, or if msg_type has bit 7 and the type byte has
 * not; debug_log() says which. What is delivered has no check, and no result counts it: room for
 * the body is enough. Over SMBus a message that is longer than the buffer is read to its end, and
 * cut if its check is right; 1024 packets behind a full buffer end in failure.
 */
#define MCTP_STRICT_INTEGRITY 0x02U
/** PLDM (DSP0240, DSP0248, DSP0257, DSP0267): see pldm.h. */
#define MCTP_STRICT_PLDM 0x04U
/** NVMe-MI: see nvme_mi.h. */
#define MCTP_STRICT_NVME_MI 0x08U
/**
 * Addresses. What comes from another source EID than dest_eid is not taken: over SMBus the packet
 * is dropped; over PCIe an exchange fails with -1, and a receive passes over the message, 1024
 * times at most. Over PCIe bus, device and function of the sender must be pcie_bdf too, which stays
 * as it was if they are not; the EIDs are those that the port returns, see PltMCTP_WriteRead(). A
 * dest_eid of 0 and a pcie_bdf of 0, 0, 0 (the root complex) stand for anybody. Set Endpoint ID may
 * be answered from the new EID, but over sockets. Over PCIe only control messages are routed to the
 * root complex.
 *
 * Set Endpoint ID fails unless the endpoint says that it has taken the EID, Allocate Endpoint IDs
 * unless it says that the pool was accepted.
 *
 * The EID pool leaves out
 *  - 0 to 15, and 255
 *  - those of the BMC: src_eid, that of every context that was initialised, and 0x80, the source
 *    towards the MPIO
 *  - the MPIO's, and 64 to 95, which are for the devices behind it
 *  - what is in use as far as this process knows: any dest_eid that a context was initialised with
 *    (skip_discovery), what endpoints have reported or been given, also to contexts without this
 *    bit, and the ranges of a routing table as far as it was looked through
 *
 * An endpoint that the pool has given an EID and that has lost it gets the same one again; bus,
 * slave address and multiplexers tell which it is, or pcie_bdf. Processes share the pool, but not
 * what they know: what another one has given out is safe until the pool comes round. If no EID is
 * left, mctp_assign_eid() fails.
 */
#define MCTP_STRICT_ADDRESSES 0x10U
/** Firmware packages (DSP0267, version 1.0): see pldm_fw_update.h. */
#define MCTP_STRICT_PACKAGE 0x20U
/** All of them, those of later versions too. */
#define MCTP_STRICT_ALL 0xFFFFFFFFU

/* ---- Records and operations ------------------------------------------------------------------ */

/** Bytes of mctp_ctx.mux. */
#define MCTP_MUX_SIZE 48
/** Bytes of a Get Routing Table Entries answer: header, completion code, handle, count, 7 x 8. */
#define MCTP_ROUTING_TABLE_RESPONSE_SIZE 61

typedef struct mctp_ctx mctp_ctx;
typedef struct mctp_section mctp_section;
typedef struct mctp_binding mctp_binding;

/**
 * Receives one message. Only the operations of MCTP_BINDING_KIND_SMBUS take the bus mutex; those
 * of MCTP_BINDING_KIND_SL8_SMBUS leave it to their caller or to xfer.
 *
 * SMBus: an end packet (EOM) that brings a byte, a full buffer (but see MCTP_STRICT_INTEGRITY), a
 * failed read or the context's deadline ends it, and nothing else, with one exception: it fails
 * after 1024 packets in a row that had to be dropped, and debug_log() says "[mctp recv] gave up
 * after 1024 packets that had to be dropped". Every stored packet starts that count anew and stores
 * at least one byte. So it reads at most length packets if none is dropped, and 1024 x length
 * packets in all (1,048,576 for 1,024 bytes), holding the bus mutex throughout. The first 32
 * dropped packets are reported each by itself, by dump_packets() and, if tag or size is wrong, a
 * line of their own; then one line, "[mctp recv] %u more packets dropped", counts the rest on
 * standard output and in debug_log().
 *
 * Sockets: waits for what else answers the last request of the context, and, with msg_type PLDM,
 * for a request of the endpoint, as devices send while their firmware is updated. A message passes
 * only if sender, network, type and tag are right, and its integrity check, which may not be
 * missing where msg_type has bit 7; others are dropped, the first of a wait with a line in
 * debug_log(). One with a check is at most 4,224 bytes long.
 *
 * Requests of a device come to the one socket in the machine that is bound to PLDM. The library
 * binds one in front of RequestUpdate (or UpdateComponent, or in this call, if there is none), and
 * closes it behind ActivateFirmware and CancelUpdate, or with the first request that a process
 * sends a minute after it was used. Where another process has one, all of these fail. A process
 * updates one endpoint at a time.
 *
 * @param length  room at buffer in bytes. PCIe: the type byte counts too, a body has length - 1
 * @param buffer  receives the message body without its type byte
 * @return SMBus, sockets: body bytes stored (what is too long is cut), 0 if there is no buffer, -1
 *         on failure, sockets: which leaves the buffer as it was.
 *         PCIe: 0 on success; -1 on failure, without room, and for a message longer than length
 */
typedef int32_t (*mctp_recv_op)(mctp_ctx* ctx, int32_t length, uint8_t* buffer);

/**
 * Sends one message; takes the bus mutex as mctp_recv_op does.
 *
 * 0 does not prove delivery. SMBus: only a packet with EOM that could not be written fails; an
 * earlier one that is lost, or a last one of exactly unit_size bytes behind others, which carries
 * no EOM, shows by the missing answer alone. PCIe: the platform's result is not looked at.
 *
 * PCIe: a body whose second byte is 0x0A or 0x0D, whatever the message type, is routed to the root
 * complex, all else by ID; the tag is pcie_tag as it stands.
 *
 * Sockets: what the kernel refuses fails, its queues being full among it. A request gets a tag that
 * no other exchange with the endpoint has; an answer goes with the tag of the last message
 * received, and there are answers to PLDM requests only.
 *
 * @param length     bytes at body
 * @param body       message body without the type byte, which comes from mctp_ctx.msg_type
 * @param tag_owner  1 for a request, 0 for a response: the TO bit (DSP0236, table 1)
 * @return 0 on success, -1 on failure
 */
typedef int32_t (*mctp_send_op)(mctp_ctx* ctx, uint32_t length, const uint8_t* body,
                                uint8_t tag_owner);

/**
 * Sends a request and receives its response, as mctp_send_op and mctp_recv_op do, the bus mutex
 * held from the first packet to the last (but see mctp_init2_with_i2c_delay()). Over PCIe every
 * request is routed by ID, and no mutex is taken. Nor is one over sockets: exchanges of several
 * threads, with one endpoint too, do not wait for each other, but a process can have no more than
 * 64 in six seconds that are not answered. What answers a request later than it waited is dropped.
 * @param request_length   bytes at request
 * @param response_length  room at response in bytes, over PCIe too without the type byte. Below 1,
 *                         SMBus, sockets: the request is sent, nothing is read, the result is 0.
 *                         PCIe: 0 sends and gives 0 if an answer came; below 0 sends nothing and
 *                         gives -1
 * @return body bytes stored; -1 on failure. PCIe: -2 when the platform's transfer fails, -1 when
 *         it returned nothing
 */
typedef int32_t (*mctp_xfer_op)(mctp_ctx* ctx, uint32_t request_length, int32_t response_length,
                                const uint8_t* request, uint8_t* response);

/** A copy of the addressing by which an endpoint was reached: 52 bytes. */
typedef struct mctp_route {
    uint8_t binding_eids[2];    /**< EIDs as in mctp_ctx.binding_eids, the owner's first */
    uint8_t bus;                /**< I2C bus number */
    uint8_t slave_addr;         /**< 8-bit slave address */
    uint8_t mux[MCTP_MUX_SIZE]; /**< multiplexer setting */
} mctp_route;

SIDEBAND_STATIC_ASSERT(sizeof(mctp_route) == 52, "bus owner route");

/**
 * The binding section of a context: all that a binding needs to reach the endpoint. Declared
 * once here, for mctp_section and as members of mctp_ctx alike.
 *
 *  recv, send, xfer  installed by mctp_init2()
 *  binding_eids      [0] source EID of the last accepted SMBus message; over PCIe [0] is the
 *                    source and [1] the destination EID of the request and, afterwards, those of
 *                    the message that came, as the platform returned them
 *  bus               caller: I2C bus number, also selects the bus mutex
 *  slave_addr        caller: 8-bit SMBus slave address of the endpoint
 *  mux               caller: multiplexer setting, handed to SetI2CMux() before each access
 *  pcie_bdf          caller: PCIe bus, device, function of the endpoint
 *  binding_kind      caller: MCTP_BINDING_KIND_...
 *  route             PCIe: routing type of the message (0 to the root complex, 2 by ID), written
 *                    by the library. SMBus: caller, last argument of the platform's slave read.
 *                    Sockets: caller, the low 16 bits are the milliseconds that a receive waits, 0
 *                    for MCTP_SOCKET_WAIT_DEFAULT_MS
 *  pcie_tag          tag of the PCIe record: an exchange writes all 8 bits of tag into it, what the
 *                    platform returns overwrites it, and send uses it as it stands
 *  binding           installed by mctp_init2(); null over sockets
 *  unit_size         caller: message bytes in a packet after the 4-byte transport header, 1 to
 *                    MCTP_UNIT_SIZE_MAX; mctp_init2() replaces 0 by MCTP_UNIT_SIZE_DEFAULT
 *  pcie_param        caller: handed through to the PCIe platform call. Sockets: number of the
 *                    network; the library replaces 0 by that of the first message received
 *  pcie_session      caller: session of libmctp_pcie_open()
 *  skip_discovery    caller: non-zero when both EIDs are already known
 *  i2c_delay_us      caller: microseconds between the request and the first read, 0 = none
 *  strict            caller: MCTP_STRICT_... bits, 0 = what deployed firmware needs. The contexts
 *                    of the layers above look at those of their endpoint
 *  last_error        why the last call failed; see error.h. The operations clear it when they
 *                    begin, and so does every function that takes the context
 *  deadline_s        of mctp_set_deadline(), by CLOCK_MONOTONIC_COARSE; 0: there is none
 *  deadline_ms       milliseconds behind deadline_s, 0 to 999
 */
#define MCTP_SECTION_MEMBERS     \
    mctp_recv_op recv;           \
    mctp_send_op send;           \
    mctp_xfer_op xfer;           \
    uint8_t binding_eids[2];     \
    uint8_t bus;                 \
    uint8_t slave_addr;          \
    uint8_t mux[MCTP_MUX_SIZE];  \
    uint8_t pcie_bdf[3];         \
    uint8_t binding_kind;        \
    uint32_t route;              \
    uint8_t pcie_tag;            \
    const mctp_binding* binding; \
    uint16_t unit_size;          \
    uint32_t pcie_param;         \
    void* pcie_session;          \
    uint8_t skip_discovery;      \
    uint32_t i2c_delay_us;       \
    uint32_t strict;             \
    sideband_error last_error;   \
    uint32_t deadline_s;         \
    uint16_t deadline_ms;

/** What a binding gets to see of a context. */
struct mctp_section {
    MCTP_SECTION_MEMBERS
};

/**
 * One MCTP endpoint. Allocated, zeroed and owned by the caller, who fills the members marked
 * "caller" above, and src_eid and dest_eid if known, before mctp_init2().
 */
struct mctp_ctx {
    uint8_t src_eid;        /**< the BMC's EID: source of every packet sent */
    uint8_t dest_eid;       /**< the endpoint's EID: destination of every packet sent */
    uint8_t msg_type;       /**< message type byte; set by the layer that uses the context */
    uint8_t uuid[16];       /**< UUID as received (DSP0236, clause 12.5) */
    uint8_t uuid_end;       /**< always 0 */
    uint8_t tx_seq;         /**< packets sent of the current message, modulo 256 */
    mctp_route owner_route; /**< route of the bus owner that assigned the BMC its EID */
    uint8_t tag;            /**< tag of the last request. SMBus: counted modulo 8, the low three
                                 bits go on the wire and are what an answer's tag is compared
                                 with, and a receive overwrites it with the tag of the message it
                                 took. PCIe: see pcie_tag; counted up to 0x80,
                                 from there on it stays. Sockets: that of the last request, or of
                                 the last message received */
    uint8_t instance_id;    /**< control-message counter; the low five bits go on the wire */
    SIDEBAND_ANONYMOUS union {
        SIDEBAND_ANONYMOUS struct { MCTP_SECTION_MEMBERS };
        mctp_section section; /**< the same members, as handed to a binding */
    };
};

SIDEBAND_STATIC_ASSERT(offsetof(mctp_ctx, deadline_ms) ==
                           offsetof(mctp_ctx, section) + offsetof(mctp_section, deadline_ms),
                       "the section must mirror the members");

/**
 * The library's own, in the contexts of the layers above: an endpoint that it has allocated for a
 * context, and so frees.
 */
typedef struct mctp_owned {
    mctp_ctx* endpoint; /**< null: none */
    uintptr_t check;    /**< ~endpoint, which garbage is not */
} mctp_owned;

/** The operations of a physical binding. */
struct mctp_binding {
    /**
     * Writes one packet.
     * @param length  bytes of the MCTP packet, its 4-byte transport header included
     * @param buffer  4 bytes for the binding's own header, then the packet. The software-PEC
     *                binding stores the PEC behind it: 4 + length + 1 bytes in all. PCIe: the
     *                message itself, type byte first
     * @return 0 or more on success, negative on failure
     */
    int32_t (*write)(mctp_section* section, int32_t length, uint8_t* buffer);
    /**
     * Reads one packet.
     * @param length  bytes wanted; PCIe: no bound, whatever came is stored
     * @param buffer  receives the packet from its transport header on. PCIe: the message, type
     *                byte first; must hold PLT_PCIE_MESSAGE_SIZE (1036) bytes
     * @return bytes stored, negative on failure
     */
    int32_t (*read)(mctp_section* section, int32_t length, uint8_t* buffer);
    /**
     * Writes a message and reads its response; null in the SMBus bindings.
     * @return bytes stored at response, negative on failure
     */
    int32_t (*transfer)(mctp_section* section, int32_t request_length, int32_t response_length,
                        const uint8_t* request, uint8_t* response);
};

/** SMBus with PEC by the I2C controller (DSP0237). */
SIDEBAND_EXPORT extern const mctp_binding smbus_mctp_binding;
/** SMBus with PEC in software (DSP0237). */
SIDEBAND_EXPORT extern const mctp_binding sl8_smbus_mctp_binding;
/** PCIe vendor-defined messages (DSP0238). */
SIDEBAND_EXPORT extern const mctp_binding pcie_mctp_binding;

/* ---- Set-up -------------------------------------------------------------------------------- */

/**
 * Installs operations and binding by ctx->binding_kind, then, unless skip_discovery is set,
 * runs mctp_discovery() with msg_type 0.
 * @return 0 on success; -1 for an unknown binding kind (nothing is installed) and if
 *         discovery fails (the operations stay installed)
 */
SIDEBAND_EXPORT int32_t mctp_init2(mctp_ctx* ctx);

/**
 * As mctp_init2(), for MCTP_BINDING_KIND_SMBUS alone, with an exchange that releases the bus
 * between request and response and sleeps 100 ms after it: for devices that answer slowly.
 * @return as mctp_init2(); -1 for any other binding kind
 */
SIDEBAND_EXPORT int32_t mctp_init2_with_i2c_delay(mctp_ctx* ctx);

/**
 * Sets a time limit for all that goes over a context from now on, however many calls and exchanges
 * that takes: a walk through all PDRs, the update of a firmware, an NVMe-MI command with its "more
 * processing required". It stands until it is set anew, and goes into the endpoints that are made
 * after this one's configuration, and into those that are made to ask the MPIO for it.
 *
 * It is looked at where the library begins to send a message and where it waits for a packet or,
 * over PCIe, a message; sockets wait no longer than it. A wait of the platform that has begun ends
 * as the platform has it. Once it has passed nothing is sent nor received, and nothing is tried
 * again: calls fail with their ordinary results, and those that begin behind it with
 * SIDEBAND_CAUSE_DEADLINE; the one in which it passes may tell of what ended its last attempt. A
 * device that was in the middle of something stays there: who wants to cancel an update sets
 * another limit first. It is kept to the tick of the system's clock, a few milliseconds.
 * @param ms_from_now  milliseconds; 0: no limit any more
 */
SIDEBAND_EXPORT void mctp_set_deadline(mctp_ctx* ctx, uint32_t ms_from_now);

/* ---- SMBus binding (DSP0237, clause 6) ------------------------------------------------------ */

/**
 * Writes one MCTP packet as an SMBus block write with PEC by the controller; up to 3 attempts,
 * each after emptying the BMC's slave queue of stale packets. The bus mutex is held by the caller.
 * @param section addressing of a context; not null
 * @param length  MCTP packet length n, 0 to 251
 * @param frame   n + 4 bytes, not null; the first four are filled here
 * @return 0 on success; -1 when the device is not powered, the write failed three times, or
 *         length is out of range
 */
SIDEBAND_EXPORT int32_t smbus_block_write(mctp_section* section, int32_t length, uint8_t* frame);

/**
 * As smbus_block_write(), with the PEC computed here and stored at frame[n + 4]; the slave queue
 * is left alone.
 * @param length  MCTP packet length n, 0 to 250
 * @param frame   n + 5 bytes
 * @return as smbus_block_write()
 */
SIDEBAND_EXPORT int32_t sl8_smbus_block_write(mctp_section* section, int32_t length,
                                              uint8_t* frame);

/**
 * Reads one MCTP packet that a device wrote to the BMC's slave address.
 * @param section addressing of a context; not null
 * @param length  bytes wanted, 0 to 252
 * @param buffer  receives at most length bytes, from the MCTP transport header on
 * @return bytes stored, none of a block that MCTP_STRICT_PACKETS takes for no packet; the
 *         platform's negative result; -1 when the platform reports a block without room for header
 *         and PEC, or larger than its buffer
 */
SIDEBAND_EXPORT int32_t smbus_block_read(mctp_section* section, int32_t length, uint8_t* buffer);

/** As smbus_block_read(). @return the same */
SIDEBAND_EXPORT int32_t sl8_smbus_block_read(mctp_section* section, int32_t length,
                                             uint8_t* buffer);

/** CRC-8 of each single byte: polynomial 0x07, the SMBus PEC. For other users too. */
SIDEBAND_EXPORT extern const uint8_t CRC8_Table[256];

/**
 * Prints a packet to standard output as a hex trace, twelve bytes to a line. The first 32 packets
 * that a receive drops go through it.
 * @param length  bytes at packet; 0 or less prints the frame lines alone
 */
SIDEBAND_EXPORT void dump_packets(int32_t length, const uint8_t* packet);

/* ---- Control messages (DSP0236, clause 12) -------------------------------------------------- */
/*
 * All take an initialised context whose msg_type is 0. A "not ready" answer is asked again twice,
 * 50 ms later; a third one, after which it sleeps 50 ms too, is taken for an answer, for the sake
 * of endpoints that say so for ever yet work; bytes that it lacks are 0. Any other answer without
 * a completion code, or with fewer bytes than are read of it, fails.
 */

/**
 * Set Endpoint ID (0x01), operation "set EID".
 * @return 0 (dest_eid is then eid), -1 on failure
 */
SIDEBAND_EXPORT int32_t mctp_set_endpoint_id(mctp_ctx* ctx, uint8_t eid);

/** Get Endpoint ID (0x02). @return the EID, now also in dest_eid; -1 on failure */
SIDEBAND_EXPORT int32_t mctp_get_endpoint_id(mctp_ctx* ctx);

/** Get Endpoint UUID (0x03). @return 0 with ctx->uuid filled; -1 on failure */
SIDEBAND_EXPORT int32_t mctp_get_endpoint_uuid(mctp_ctx* ctx);

/**
 * Allocate Endpoint IDs (0x08).
 * @param operation     0 allocate, 1 force allocation, 2 get allocation information
 * @param pool_size     number of EIDs in the pool
 * @param starting_eid  first EID of the pool
 * @return 0, -1 on failure
 */
SIDEBAND_EXPORT int32_t mctp_allocate_endpoint_ids(mctp_ctx* ctx, uint8_t operation,
                                                   uint8_t pool_size, uint8_t starting_eid);

/**
 * Get Routing Table Entries (0x0A). Over PCIe it goes by ID, to dest_eid, as every exchange does.
 * @param entry_handle  0 for the first entries, then the handle of the previous answer
 * @param table         receives MCTP_ROUTING_TABLE_RESPONSE_SIZE bytes: control header (2),
 *                      completion code, next entry handle (0xFF: no more), entry count, entries.
 *                      Bytes that the endpoint did not send are 0
 * @return 0, -1 on failure or if table is null
 */
SIDEBAND_EXPORT int32_t mctp_get_routing_table_entries(mctp_ctx* ctx, uint8_t entry_handle,
                                                       uint8_t* table);

/** Prepare for Endpoint Discovery (0x0B). @return 0, -1 on failure */
SIDEBAND_EXPORT int32_t mctp_prepare_for_endpoint_discovery(mctp_ctx* ctx);

/** Endpoint Discovery (0x0C). @return 0, -1 on failure */
SIDEBAND_EXPORT int32_t mctp_endpoint_discovery(mctp_ctx* ctx);

/* ---- The BMC as an endpoint (DSP0236, clause 12) --------------------------------------------- */

/**
 * Lets a bus owner give the BMC an EID: announces the BMC with Discovery Notify, then answers the
 * owner's control requests. The receive operation must deliver the message type byte, which the
 * stock ones strip: install mctp_smbus_recv_with_type() or mctp_pcie_recv_with_type() as ctx->recv
 * before the call, and the stock operation again after it by mctp_init2() with skip_discovery set.
 *
 * src_eid and dest_eid are cleared first, whatever comes of it. Over PCIe answers go to who asked:
 * binding_eids[0], or [1] for a port that returns the peer there, if [0] is 0, 0xFF or the EID that
 * the BMC had before, and [1] none of these.
 *
 * There is no time limit: each wait ends with the platform's read, and an owner that goes on asking
 * without assigning an EID keeps the call for ever; requests without an answer here do not count.
 * @return 1 when an EID was assigned: src_eid is the BMC's, dest_eid the owner's, owner_route how
 *         the owner was reached; 0 when a receive or send failed or five messages that were no
 *         control messages came, counted over the whole call
 */
SIDEBAND_EXPORT int32_t get_bmc_by_owner(mctp_ctx* ctx);

/**
 * A receive operation for SMBus contexts that delivers the message with its type byte. Locks the
 * bus as the stock receive of the context's binding kind does. ctx must not be null. See
 * mctp_recv_op.
 * @return bytes stored, the type byte included; 0 if there is no buffer; -1 on failure
 */
SIDEBAND_EXPORT int32_t mctp_smbus_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer);

/**
 * A receive operation for PCIe contexts that delivers the message with its type byte. ctx must not
 * be null. See mctp_recv_op.
 * @return bytes stored, the type byte included; -1 on failure and if the message is longer
 *         than the buffer
 */
SIDEBAND_EXPORT int32_t mctp_pcie_recv_with_type(mctp_ctx* ctx, int32_t length, uint8_t* buffer);

/* ---- Discovery ------------------------------------------------------------------------------ */

/**
 * Makes sure that the endpoint has a usable EID and that dest_eid holds it. SMBus: asks for the
 * EID and assigns one from the pool when it is 0 to 7. PCIe: looks it up in the routing table of
 * the AMD MPIO, if plt_global_sec_var.mpio_state is not 0 or the MPIO answers Get Endpoint ID;
 * without an MPIO it goes on as over SMBus, and debug_log() says "[AMD] CPU without MPIO.".
 * @return 0, -1 on failure
 */
SIDEBAND_EXPORT int32_t mctp_discovery(mctp_ctx* ctx);

/**
 * Assigns the next EID of the pool to the endpoint, under the EID-pool mutex: 16 first, and 16
 * again after 255; but see MCTP_STRICT_ADDRESSES. A failure does not advance the pool.
 * @return the EID, 1 to 255; -1 on failure or if ctx is null
 */
SIDEBAND_EXPORT int32_t mctp_assign_eid(mctp_ctx* ctx);

/**
 * Finds a PCIe endpoint in the routing table of its bus owner, by target->pcie_bdf.
 * @param owner   initialised context of the bus owner
 * @param target  its dest_eid receives the EID of the first entry that matches
 * @return 0 when found; -1 when not in 255 answers, if one fails, or an entry runs past its answer
 */
SIDEBAND_EXPORT int32_t get_eid_from_routing_table(mctp_ctx* owner, mctp_ctx* target);

/* ---- AMD MPIO, the bus owner of PCIe devices behind the CPU ---------------------------------- */
/* The context must not be null, but that of do_init_amd_mpio(): a failure. */

/**
 * Created after a successful bring-up; never removed by the library. Another path for whoever
 * builds the library with -DMCTP_MPIO_READY_MARKER=...
 */
#ifndef MCTP_MPIO_READY_MARKER
#define MCTP_MPIO_READY_MARKER "/nv/mpio.ready"
#endif

/**
 * Makes a zeroed context the MPIO's: PCIe binding, root complex, source EID 0x80, message type
 * control, tag 0x80 (never advanced). dest_eid stays 0, and strict as it is.
 */
SIDEBAND_EXPORT void _init_amd_mpio_ctx(mctp_ctx* mpio);

/**
 * Brings the MPIO up if plt_global_sec_var.mpio_state says so, under the MPIO mutex. Success
 * puts the MPIO's EID into the state word and creates MCTP_MPIO_READY_MARKER; failure clears the
 * state word, unless it was the mutex that was refused.
 * @return 0 when done now, done earlier or not wanted; -1 on failure
 */
SIDEBAND_EXPORT int32_t init_amd_mpio_if_need(mctp_ctx* mpio);

/**
 * The bring-up itself: Prepare for Endpoint Discovery, Endpoint Discovery, an EID from the pool,
 * 32 EIDs from 64 for the devices behind the MPIO, 3 seconds of rest.
 * @return 0, -1 when a step failed
 */
SIDEBAND_EXPORT int32_t do_init_amd_mpio(mctp_ctx* mpio);

/**
 * Looks a PCIe endpoint's EID up through the MPIO.
 * @return 0 with ctx->dest_eid set; -1 when the MPIO is not ready or does not know the device
 */
SIDEBAND_EXPORT int32_t get_eid_from_mpio(mctp_ctx* ctx);

SIDEBAND_END_DECLS

#endif

/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the firmware's platform library supplies: raw I2C and PCIe access, multiplexers, locks,
 * power and board state, the log, task progress. A port defines every function and record below;
 * libsideband.so leaves them undefined and needs nothing else but libc and libm. docs/porting.md is
 * the guide, platform/template/port.c a port to copy, sideband-porttest a program that checks one.
 *
 * Rules that hold for all of them:
 *  - Every call is made on the thread of the caller of the library, never from a signal handler.
 *  - No call may throw or leave through longjmp.
 *  - "Lock held" below names locks taken by the library itself. The library takes them in this
 *    order and releases them in the reverse order:
 *        I2C channel mutex -> global or NC-SI lock -> MPIO mutex -> EID-pool mutex -> bus mutex.
 *  - The three global records must be valid before the first call into the library, and until the
 *    last one has returned. A port that fills them in GlobalParaInit() calls that itself first.
 *  - Calls come from as many threads and processes at once as call the library: what a lock named
 *    below does not protect, a port protects by itself.
 */
#ifndef SIDEBAND_PLATFORM_H
#define SIDEBAND_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

struct mctp_ctx;

/* ---- Locks --------------------------------------------------------------------------------- */

/**
 * A platform mutex. The library never looks inside: it hands the address to lx_mutex_get() and
 * lx_mutex_put(). The room suffices for a process-shared pthread_mutex_t, so that the records
 * that hold mutexes can lie in memory shared by several services. Must not be recursive.
 *
 * Zeroed bytes are no mutex but by chance: a port initialises each one before it is first taken.
 * Between services a mutex is robust, or one whose holder is killed stays taken for ever.
 */
typedef struct lx_mutex {
    union {
        uint64_t align;     /**< its alignment */
        uint8_t opaque[64]; /**< the port's own */
    } storage;              /**< 64 bytes */
} lx_mutex;

/** The wait handed to lx_mutex_get() and i2c_chnl_mutex_get(): for ever. */
#define LX_MUTEX_WAIT_FOREVER (-1)

/**
 * Takes a mutex.
 * @param mutex    one of the mutexes in the records below
 * @param wait_ms  milliseconds to wait at most, 0 to try, negative to wait for ever; always
 *                 LX_MUTEX_WAIT_FOREVER from this library
 * @return 0 when the caller now holds the mutex; any other value when it does not. The library
 *         then fails the call it is in with that call's ordinary error and releases nothing.
 */
int lx_mutex_get(lx_mutex* mutex, int wait_ms);

/**
 * Releases a mutex that the calling thread holds.
 * @return 0 on success; the library ignores the value.
 */
int lx_mutex_put(lx_mutex* mutex);

/**
 * Takes the mutex of an I2C channel, which other users of the I2C driver take as well, and which is
 * not plt_global_var.bus_mutex: the library holds both at once. Called by the NC-SI OEM exchange
 * and the firmware-update image checks, with no lock held; the global or NC-SI lock and the bus
 * mutex are taken inside it. The SMBus binding itself never takes it.
 * @param channel  I2C bus number
 * @param wait_ms  as for lx_mutex_get()
 * @return 0 when taken, any other value when not
 */
int i2c_chnl_mutex_get(uint8_t channel, int wait_ms);

/** Releases what i2c_chnl_mutex_get() took for a channel. @return ignored. */
int i2c_chnl_mutex_put(uint8_t channel);

/* ---- Global records ------------------------------------------------------------------------ */

/** Main-power register read through _PltGPIO_RegRead(). */
#define PLT_MAIN_POWER_REGISTER 0x9400000u

/** plt_platform.flags: devices behind the BMC stay powered in standby. */
#define PLT_FLAG_STANDBY_DEVICES 0x20u

/** plt_platform.identifier of the board whose MPIO is prodded while it is not ready. */
#define PLT_IDENTIFIER_TURIN 0x1D43u

/** What the board is; constant after start-up. Read without a lock. */
typedef struct plt_platform {
    uint32_t flags;              /**< board flags; bit 5 is PLT_FLAG_STANDBY_DEVICES */
    uint16_t identifier;         /**< board identifier, e.g. PLT_IDENTIFIER_TURIN */
    uint8_t standby_option;      /**< 1: I2C devices may be powered in standby; else never */
    uint8_t default_i2c_channel; /**< channel used if a context names channel 0 */
} plt_platform;

/** One mutex for each value that an 8-bit bus number can take. */
#define PLT_I2C_BUS_COUNT 256

/** State shared by all services on the BMC. */
typedef struct plt_global_var {
    lx_mutex bus_mutex[PLT_I2C_BUS_COUNT]; /**< by I2C bus number; held around one exchange */
    lx_mutex global_lock;                  /**< held around a firmware-update image check */
    lx_mutex ncsi_lock;                    /**< held around an NC-SI OEM exchange */
    uint8_t standby_override;              /**< non-zero: standby access to devices is allowed */
    uint8_t next_eid;                      /**< EID pool: next EID to assign, 0 = 16, at the start
                                                and after 255. Protected by
                                                plt_global_sec_var.eid_mutex */
    uint8_t mpio_bringup_pending;          /**< cleared after a successful MPIO bring-up, by an
                                                atomic store without a lock */
    uint8_t nvme_fw_update_status;         /**< 0..99 percent, 100 done, 200..206 failures */
} plt_global_var;

/** plt_global_sec_var.mpio_state: bring-up wanted. */
#define PLT_MPIO_WANTED 0xFFu
/** plt_global_sec_var.mpio_state: bring-up failed, or there is no MPIO. */
#define PLT_MPIO_NONE 0u

/** Shared state of the MCTP bus owner role. */
typedef struct plt_global_sec_var {
    lx_mutex eid_mutex;  /**< protects plt_global_var.next_eid; held across Set Endpoint ID */
    lx_mutex mpio_mutex; /**< serialises MPIO bring-ups */
    uint32_t mpio_state; /**< PLT_MPIO_WANTED, PLT_MPIO_NONE, or the EID of the MPIO. Set to
                              wanted by the platform; read atomically without a lock */
} plt_global_sec_var;

/** The board record. Defined by the platform library. */
extern plt_platform platform;
/** The shared state. Never null while the library is in use. */
extern plt_global_var* at_p_St_GlobalVar;
/** The shared bus owner state. Never null while the library is in use. */
extern plt_global_sec_var* at_p_St_GlobalSecVar;

/** Parameters of the calling service, filled by GlobalParaInit(). */
typedef struct plt_parameters {
    uint8_t i2c_channel; /**< I2C channel of the service's devices; 0 = use the default */
    uint8_t bmc_eid;     /**< the BMC's own EID on that channel */
    uint8_t reserved[62];
} plt_parameters;

/**
 * Attaches the calling service to the global records. A firmware update's image check calls it once
 * more, while other threads may be in the library and hold any lock: records that are there stay
 * where and as they are.
 * @param parameters  zeroed by the caller; filled on success
 * @return 0 on failure, any other value on success
 */
int GlobalParaInit(plt_parameters* parameters);

/* ---- I2C ----------------------------------------------------------------------------------- */
/*
 * MCTP over SMBus is written both ways (DSP0237, clause 6): the BMC writes a request to the device,
 * and the device, as a master, writes the answer to the BMC's own slave address as soon as it has
 * it. Hence
 *  - the slave listens on a bus before the first write there, and from then on: not only while a
 *    slave read waits;
 *  - a block that arrives before it is read is kept, and blocks are read in the order in which they
 *    came. Devices send the packets of a message back to back: room for 64 blocks is recommended;
 *  - the PEC is over all bytes of a transfer from the destination address on: 9E 0F 08 21 01 00 08
 *    C9 00 81 02 has the PEC 6D. Of a block that the BMC receives the destination address is its
 *    own, which is not in the buffer but is under the PEC.
 */

/**
 * One I2C access: 48 bytes, passed by value. The offsets are the same on 32-bit and 64-bit
 * machines; a 32-bit pointer is followed by four bytes of zero.
 */
typedef struct plt_i2c_request {
    uint8_t bus;          /**< offset 0: I2C bus number */
    uint8_t slave_addr;   /**< offset 1: 8-bit slave address of the device */
    uint8_t write_length; /**< offset 2: bytes at write_data */
    uint8_t reserved_3;
    uint8_t read_length; /**< offset 4: bytes wanted, SMBus header included, PEC excluded */
    uint8_t reserved_5[3];
    union {
        const uint8_t* write_data; /**< offset 8: the frame from the destination address on */
        uint64_t write_pad;
    };
    union {
        uint8_t* read_buffer; /**< offset 16: PLT_I2C_READ_BUFFER_SIZE zeroed bytes */
        uint64_t read_pad;
    };
    uint8_t reserved_24[24];
} plt_i2c_request;

/** Room at plt_i2c_request.read_buffer; a port never writes past it. */
#define PLT_I2C_READ_BUFFER_SIZE 1024

SIDEBAND_STATIC_ASSERT(sizeof(plt_i2c_request) == 48, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, bus) == 0, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, slave_addr) == 1, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, write_length) == 2, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, read_length) == 4, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, write_data) == 8, "I2C request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_i2c_request, read_buffer) == 16, "I2C request record");

/**
 * Master block write; the controller appends the PEC (SMBus 3.2, clause 6.4). Takes no lock.
 * Lock held: the bus mutex of request.bus; of MCTP_BINDING_KIND_SL8_SMBUS a bare send or recv,
 * get_bmc_by_owner() among them, holds none but what its caller has taken.
 * @param request  write_data: destination address, command code, byte count, source address,
 *                 MCTP packet; write_length counts all of these and no PEC
 * @return 0 when every byte was acknowledged, any other value on failure: at once if the address is
 *         not, since the library itself tries three times; -ENODEV if there is no such bus, for
 *         ports that can tell (see sideband/error.h)
 */
int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request);

/**
 * Master write of the bytes as given, the PEC already among them. Takes no lock.
 * Lock held: as for PltMCTPI2C_MasterWriteWithPEC_NoMutex().
 * @return as PltMCTPI2C_MasterWriteWithPEC_NoMutex()
 */
int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request);

/**
 * Waits for one block that a device writes to the BMC's own slave address, and checks its PEC.
 * Takes no lock. Lock held: as for a write. The wait must end: a port returns a
 * negative value when nothing arrives within its time limit.
 * @param request  read_buffer receives command code, byte count, source slave address, MCTP
 *                 packet and PEC; read_length is the MCTP packet length wanted plus 3. It is no
 *                 bound: the whole block is stored, and the library takes what it has room for
 * @param param    mctp_ctx.route, handed through; 0 = the port's default time limit, 1 s being
 *                 recommended. The ports of this project take the low 16 bits for milliseconds
 * @return bytes stored, the PEC included, at most PLT_I2C_READ_BUFFER_SIZE; negative on failure:
 *         -EBADMSG for a wrong PEC, -ENODEV if there is no such bus, for ports that can tell.
 *         The library takes 0 to 3, and more than the buffer holds, for a failure.
 */
int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param);

/**
 * Routes the bus through the multiplexers in front of a device, and closes what leads elsewhere:
 * behind two channels there may be one address. Called before every write and read, with the same
 * lock held; the request already names bus and device.
 * @param mux  the 48 bytes of mctp_ctx.mux, whose meaning is the port's own
 * @return ignored: a bus that was not routed shows as a missing acknowledge
 */
int SetI2CMux(const plt_i2c_request* request, const void* mux);

/**
 * Gives the BMC's own slave address, the same on all buses.
 * @param address  8-bit form, bit 0 clear; preset to 0x20, which stands if the port leaves it alone
 * @return ignored
 */
int GetBMCCtrAdd(uint8_t* address);

/**
 * SMBus CRC-8: polynomial 0x07, initial value 0, no reflection.
 * @return the CRC of the length bytes at data, 0 for none
 */
uint8_t CRC8Gen(const uint8_t* data, uint8_t length);

/* ---- PCIe VDM ------------------------------------------------------------------------------ */

/** Largest MCTP message, type byte included, that fits a PCIe request record. */
#define PLT_PCIE_MESSAGE_SIZE 1036

/** plt_pcie_request.operation: Linux ioctl numbers of type 'M', argument size 4. */
#define PLT_PCIE_WRITE 0x40044D00u
#define PLT_PCIE_READ 0x80044D01u
#define PLT_PCIE_WRITE_READ 0xC0044D02u

/** plt_pcie_request.routing: DSP0238, table 3. */
#define PLT_PCIE_ROUTE_TO_ROOT_COMPLEX 0
#define PLT_PCIE_ROUTE_BY_ID 2

/** One PCIe VDM access: 1088 bytes, the same offsets on 32-bit and 64-bit machines. */
typedef struct plt_pcie_request {
    uint32_t operation;                     /**< offset 0: PLT_PCIE_WRITE, ... */
    uint8_t message[PLT_PCIE_MESSAGE_SIZE]; /**< offset 4: type byte first; in and out */
    uint32_t length;                        /**< offset 1040: bytes in message; in and out */
    uint32_t dest_eid;                      /**< offset 1044: whom the message is for; in and out */
    uint32_t bus;                           /**< offset 1048: PCIe bus; in and out */
    uint32_t device;                        /**< offset 1052: PCIe device; in and out */
    uint32_t function;                      /**< offset 1056: PCIe function; in and out */
    uint8_t routing;                        /**< offset 1060: PLT_PCIE_ROUTE_... */
    uint8_t reserved_1061[11];
    uint8_t tag;     /**< offset 1072: message tag; in and out */
    uint8_t src_eid; /**< offset 1073: the message's sender; in and out */
    uint8_t reserved_1074[2];
    uint32_t param; /**< offset 1076: mctp_ctx.pcie_param */
    union {
        void* session; /**< offset 1080: mctp_ctx.pcie_session */
        uint64_t session_pad;
    };
} plt_pcie_request;

SIDEBAND_STATIC_ASSERT(sizeof(plt_pcie_request) == 1088, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, operation) == 0, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, message) == 4, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, length) == 1040, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, dest_eid) == 1044, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, bus) == 1048, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, device) == 1052, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, function) == 1056, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, routing) == 1060, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, tag) == 1072, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, src_eid) == 1073, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, param) == 1076, "PCIe request record");
SIDEBAND_STATIC_ASSERT(offsetof(plt_pcie_request, session) == 1080, "PCIe request record");

/**
 * Sends, receives, or sends and receives one MCTP message over PCIe VDM (DSP0238); the port
 * splits and reassembles packets. No lock held by the binding itself.
 *
 * Of a message that came, a read and a write-then-read return message and length, and its
 * addressing: src_eid is who sent it, dest_eid whom it was sent to (the BMC's EID, 0 or 0xFF); bus,
 * device, function and tag are the sender's. get_bmc_by_owner() also bears a port that returns the
 * peer in dest_eid; a context with MCTP_STRICT_PACKETS or MCTP_STRICT_ADDRESSES does not, all its
 * exchanges over PCIe fail then.
 *
 * A write-then-read finds the answer to what it wrote, by sender, type and tag, and passes over
 * whatever else comes; a port whose driver gives tags out by itself puts the request's back. With
 * MCTP_STRICT_PACKETS an exchange that is answered with something else fails, and reads no more.
 * @param request  for a read, message[0] holds the first byte of the reader's buffer
 * @return 1 when a read or write-then-read succeeded; any other value on failure: -ENODEV if there
 *         is no PCIe, -ENXIO if nobody took the request, for ports that can tell. Ignored for a
 *         write.
 */
int PltMCTP_WriteRead(plt_pcie_request* request);

/** A PCIe MCTP session as the port keeps it: opaque to the library. */
typedef struct plt_pcie_session {
    void* handle; /**< what goes into mctp_ctx.pcie_session; null when closed */
} plt_pcie_session;

/**
 * Opens the PCIe MCTP session.
 * @param session  zeroed; handle is set on success
 * @return 0 on success, any other value on failure
 */
int libmctp_pcie_open(plt_pcie_session* session);

/** Closes a session that libmctp_pcie_open() opened and sets its handle to null. */
void libmctp_pcie_close(plt_pcie_session* session);

/* ---- Binding set-up for firmware-update targets -------------------------------------------- */

/** plt_card_info.flags of a GPU: bit 23, reached over SMBus. */
#define PLT_CARD_GPU_SMBUS 0x00800000u
/** plt_card_info.flags of a NIC, bits 16 and 17: reached over SMBus. */
#define PLT_CARD_NIC_SMBUS 0x00010000u
/** plt_card_info.flags of a NIC, bits 16 and 17: reached over PCIe. */
#define PLT_CARD_NIC_PCIE 0x00020000u

/** What the platform knows about one add-in card. */
typedef struct plt_card_info {
    uint32_t flags;      /**< PLT_CARD_... */
    uint16_t vendor_id;  /**< PCI vendor ID */
    uint8_t bus;         /**< PCIe bus number; of no use to the library */
    uint8_t device;      /**< PCIe device number; of no use to the library */
    uint8_t slot;        /**< the port's own slot number */
    uint8_t i2c_channel; /**< filled by PCIEDeviceMux(): I2C channel, 0 = the platform's default */
    uint8_t slave_addr;  /**< filled by PCIEDeviceMux(): 8-bit slave address */
    uint8_t reserved;
    uint8_t mux[48]; /**< filled by PCIEDeviceMux(): setting for mctp_ctx.mux */
} plt_card_info;

/**
 * Finds and selects the I2C route to a card. No lock held.
 * @param bus     PCIe bus number
 * @param device  PCIe device number
 * @return 0 on success; the results are in card. Any other value if there is no such card
 */
int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card);

/**
 * Fills a context for a card reached over SMBus and sets its binding_kind. No lock held. The
 * library itself takes nothing over from the card. What PCIEDeviceMux() has found the routine
 * copies: i2c_channel to bus, which names the channel mutex as well, slave_addr, and mux. Over PCIe
 * it fills pcie_bdf, of which the card has bus and device.
 * @param ctx              zeroed, but for src_eid (plt_parameters.bmc_eid) and bus (i2c_channel of
 *                         plt_parameters or the platform's default). What stays zero has the
 *                         meaning that it has for mctp_init2(): unit_size 96, the EID looked up
 * @param setup_parameter  the device table's value (100 for NICs, 206 for the GPU); the port
 *                         defines its meaning
 * @param card             as PCIEDeviceMux() has left it, also if that failed
 */
void MCTP_binding_SMBUS(struct mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card);

/**
 * As MCTP_binding_SMBUS(), for a card reached over PCIe VDM. A port whose PltMCTP_WriteRead() wants
 * a session and a parameter sets pcie_session and pcie_param here: the image check opens no
 * session. The contexts that the library makes for itself, with which it asks the MPIO, always have
 * a null session and parameter 0: PltMCTP_WriteRead() serves those too.
 */
void MCTP_binding_PCIE(struct mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card);

/* ---- Power --------------------------------------------------------------------------------- */

/** @return 1 when the host is powered on, any other value when not; as _PltGPIO_RegRead() has it */
int PltCHASSIS_PowerStatus(void);

/** @return non-zero when the power policy has standby power to the devices switched off */
int GetS5stByPwrConfig(void);

/**
 * Reads one GPIO register byte. Called before every SMBus write with PLT_MAIN_POWER_REGISTER as
 * base, 0 as group and 0 as offset, and so to be quick: a port keeps for a while what takes long to
 * find out. Lock held: as for the write.
 * @param value  preset to 0 (power off); receives non-zero when host main power is on. If it is
 *               left at 0 and plt_platform.standby_option is not 1, the write returns -1 before
 *               any I2C access; the only trace is a debug_log() line, "smbus_block_write (or
 *               sl8_smbus_block_write) found power down, interrupt I2C access"
 * @return ignored
 */
int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value);

/* ---- Shell, log, progress ------------------------------------------------------------------ */

/**
 * Runs a shell command line and waits for it. Only a board with an MPIO needs it. Lock held: the
 * MPIO mutex.
 * @return ignored
 */
int run_shellcmd(const char* command);

/**
 * Writes a printf-style message to the system log. May be called with any lock held, so that it
 * takes none of those in the records. Lines may have any length.
 * @param format  the message, and what stands for its arguments
 */
void ipmi_syslog(const char* format, ...) SIDEBAND_PRINTF(1, 2);

/** As ipmi_syslog(), prints a message where the operator sees it. */
void console_log(const char* format, ...) SIDEBAND_PRINTF(1, 2);

/**
 * Reports the progress of the task task_id: percent is 0 to 100. No lock held. It need not grow: a
 * PLDM update reports 10 to 95 for the transfer, then 97 and 98, and in front of that up to 100 if
 * a device that was in update mode already has been made to leave it.
 */
void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent);

SIDEBAND_END_DECLS

#endif

/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A port to copy: all of sideband/platform.h over the few functions at the top, which are the
 * board's. As it stands nothing has power, and no byte goes out. C11, and C++20 as well.
 */
#define _GNU_SOURCE 1 /* pthread_mutex_clocklock(), and robust mutexes in older libraries */
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

/* ==== The board: fill these in, or name a file that has them with -DPORT_BOARD='"FILE"' ======= */

#ifdef PORT_BOARD
#include PORT_BOARD
#else
enum {
    kBoardEid = 8,          /* the BMC's own: 0 or 8 to 254 */
    kBoardAddress = 0x20,   /* the BMC's slave address in 8-bit form */
    kBoardReadWaitMs = 1000 /* how long a slave read waits if the caller does not say */
};

/* A file in memory (tmpfs) that all services map, for locks between them; "": one service. */
static const char* board_records_file(void) {
    return "";
}

/* Once in a process, before all others: opens the buses, and has the slave at kBoardAddress listen
 * on each of them, before anything is written. 0 on success. */
static int board_start(void) {
    return 0;
}

/* Writes bytes, which are command code to PEC, as a master to an 8-bit address, which is not among
 * them. 0 when every byte was acknowledged; a missing acknowledge fails at once. */
static int board_write(uint8_t bus, uint8_t address, const uint8_t* bytes, size_t length) {
    (void)bus, (void)address, (void)bytes, (void)length;
    return -ENOSYS;
}

/* The next block that came to the BMC's slave address, in the order of their coming, those that
 * came before the call among them: command code, byte count, source address, packet, PEC. Bytes
 * stored, at most room; negative when none comes in time. */
static int board_read(uint8_t bus, uint8_t* block, size_t room, int wait_ms) {
    (void)bus, (void)block, (void)room, (void)wait_ms;
    return -ETIMEDOUT;
}

/* 1 while the host's main power is on. Quick: it precedes every write. */
static int board_power(void) {
    return 0;
}

/* A line for the system log, or for the operator, as its line end has it. */
static void board_log(int for_operator, const char* line) {
    fputs(for_operator ? line : "", stderr);
}
#endif

/* ==== Records: valid before the first call into the library, until the last has returned ====== */
typedef struct {
    uint32_t filled;
    plt_global_var var;
    plt_global_sec_var sec_var;
    lx_mutex channels[PLT_I2C_BUS_COUNT];
} Records;
SIDEBAND_STATIC_ASSERT(sizeof(pthread_mutex_t) <= sizeof(lx_mutex), "a mutex in its room");

static Records* records;
static int started = -1;
plt_platform platform; /* standby_option is 0: without main power nothing is written */
plt_global_var* at_p_St_GlobalVar;
plt_global_sec_var* at_p_St_GlobalSecVar;

static int init_mutexes(lx_mutex* first, size_t count) {
    pthread_mutexattr_t kind; /* not recursive; between processes; free if its holder dies */
    int failed = pthread_mutexattr_init(&kind) |
                 pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_ERRORCHECK) |
                 pthread_mutexattr_setpshared(&kind, PTHREAD_PROCESS_SHARED) |
                 pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST);
    for (size_t i = 0; i < count && failed == 0; ++i) {
        failed = pthread_mutex_init((pthread_mutex_t*)(void*)&first[i], &kind);
    }
    pthread_mutexattr_destroy(&kind);
    return failed;
}

/* mpio_state stays PLT_MPIO_NONE: no MPIO. */
static int fill_records(plt_global_var* var, plt_global_sec_var* sec_var) {
    const int failed =
        init_mutexes(var->bus_mutex, PLT_I2C_BUS_COUNT) | init_mutexes(&var->global_lock, 1) |
        init_mutexes(&var->ncsi_lock, 1) | init_mutexes(&sec_var->eid_mutex, 1) |
        init_mutexes(&sec_var->mpio_mutex, 1) | init_mutexes(records->channels, PLT_I2C_BUS_COUNT);
    records->filled = failed == 0;
    return failed;
}

/* Locks the file, and reserves its pages: with fewer than that a full file system would end the
 * process. A signal that the service handles is no failure. */
static int hold_file(int file) {
    int failed;
    do {
        failed = flock(file, LOCK_EX) == 0 ? posix_fallocate(file, 0, sizeof(Records)) : errno;
    } while (failed == EINTR);
    return failed == 0;
}

/* Maps the records, from the file that services share or for this one alone, and fills them. */
static void start(void) {
    const char* const path = board_records_file();
    const int shared = path[0] != '\0';
    const int file = shared ? open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0660) : -1;
    if (shared && !hold_file(file)) {
        close(file); /* and the lock with it */
        return;
    }
    void* const mapped = mmap(NULL, sizeof(Records), PROT_READ | PROT_WRITE,
                              MAP_SHARED | (shared ? 0 : MAP_ANONYMOUS), file, 0);
    if (mapped != MAP_FAILED) {
        records = (Records*)mapped;
        at_p_St_GlobalVar = &records->var;
        at_p_St_GlobalSecVar = &records->sec_var;
        if (records->filled != 0 || fill_records(&records->var, &records->sec_var) == 0) {
            started = board_start();
        }
    }
    if (shared) {
        flock(file, LOCK_UN); /* the mapping keeps the file open, and closing it the lock */
        close(file);
    }
}

/* Attaches a service: not 0 on success. A firmware update calls it once more. */
int GlobalParaInit(plt_parameters* parameters) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, start);
    parameters->bmc_eid = kBoardEid;
    return started == 0;
}

/* ==== Locks =================================================================================== */
/* Takes a mutex within so many milliseconds; negative: for ever. 0 when it is held. */
int lx_mutex_get(lx_mutex* lock, int wait_ms) {
    pthread_mutex_t* const mutex = (pthread_mutex_t*)(void*)lock;
    struct timespec until = {0, 0};
    clock_gettime(CLOCK_MONOTONIC, &until);
    const long ns = until.tv_nsec + wait_ms % 1000 * 1000000L;
    until.tv_sec += wait_ms / 1000 + ns / 1000000000L;
    until.tv_nsec = ns % 1000000000L;
    const int result = wait_ms < 0 ? pthread_mutex_lock(mutex)
                                   : pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &until);
    /* What it guards is one exchange, which its next owner begins from the start anyway. */
    return result == EOWNERDEAD ? pthread_mutex_consistent(mutex) : result;
}

/* Releases what this thread holds. */
int lx_mutex_put(lx_mutex* mutex) {
    return pthread_mutex_unlock((pthread_mutex_t*)(void*)mutex);
}

/* The mutex of an I2C channel, which is not bus_mutex: the library holds both. */
int i2c_chnl_mutex_get(uint8_t channel, int wait_ms) {
    return lx_mutex_get(&records->channels[channel], wait_ms);
}
int i2c_chnl_mutex_put(uint8_t channel) {
    return lx_mutex_put(&records->channels[channel]);
}

/* ==== I2C: under the bus mutex, which the library holds ======================================= */
/* SMBus PEC: x^8 + x^2 + x + 1, from 0 on, not reflected. */
uint8_t CRC8Gen(const uint8_t* data, uint8_t length) {
    unsigned crc = 0;
    for (unsigned i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
    }
    return (uint8_t)crc;
}

/* Writes the frame as it is; write_data begins with the destination address. */
int PltMCTPI2C_MasterWrite_NoMutex(plt_i2c_request request) {
    return board_write(request.bus, request.slave_addr, request.write_data + 1,
                       request.write_length - 1u);
}

/* Writes the frame and its PEC, which is over all of it. A controller that makes the PEC is told so
 * here instead. */
int PltMCTPI2C_MasterWriteWithPEC_NoMutex(plt_i2c_request request) {
    uint8_t frame[256];
    memcpy(frame, request.write_data, request.write_length);
    frame[request.write_length] = CRC8Gen(frame, request.write_length);
    return board_write(request.bus, request.slave_addr, frame + 1, request.write_length);
}

/* Waits for one block, and checks its PEC, which is over the BMC's address too. The bytes stored;
 * negative when none comes in time or its PEC is wrong. */
int PltMCTPI2C_SlaveReadWithPEC_NoMutex(plt_i2c_request request, uint32_t param) {
    const int wait_ms = (param & 0xFFFF) != 0 ? (int)(param & 0xFFFF) : kBoardReadWaitMs;
    uint8_t covered[256] = {kBoardAddress};
    const int length =
        board_read(request.bus, request.read_buffer, PLT_I2C_READ_BUFFER_SIZE, wait_ms);
    if (length < 4 || length >= (int)sizeof covered) {
        return length < 0 ? length : -EBADMSG;
    }
    memcpy(covered + 1, request.read_buffer, (size_t)length - 1);
    return CRC8Gen(covered, (uint8_t)length) == request.read_buffer[length - 1] ? length : -EBADMSG;
}

/* Fill in for a board with multiplexers: leads request->bus to where the 48 bytes of mctp_ctx.mux
 * say, whose meaning is yours, and away from all else. Called before each write and read. */
int SetI2CMux(const plt_i2c_request* request, const void* mux) {
    (void)request, (void)mux;
    return 0;
}

int GetBMCCtrAdd(uint8_t* address) {
    *address = kBoardAddress;
    return 0;
}

/* ==== PCIe: none. 1 would be success of an exchange, 0 that of the opening ==================== */
int PltMCTP_WriteRead(plt_pcie_request* request) {
    (void)request;
    return 0;
}

int libmctp_pcie_open(plt_pcie_session* session) {
    (void)session;
    return -ENODEV;
}
void libmctp_pcie_close(plt_pcie_session* session) {
    session->handle = NULL;
}

/* ==== Cards: for firmware updates ============================================================= */
/* Fill in for updates of cards: finds a card by its PCIe address, and sets its i2c_channel,
 * slave_addr and mux. 0 if there is one. */
int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card) {
    (void)bus, (void)device, (void)card;
    return -ENODEV;
}

/* Copies what PCIEDeviceMux() has found. The PEC is the port's here: KIND_SL8_SMBUS would have the
 * library make it. */
void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    (void)setup_parameter;
    ctx->binding_kind = MCTP_BINDING_KIND_SMBUS;
    ctx->bus = card->i2c_channel;
    ctx->slave_addr = card->slave_addr;
    memcpy(ctx->mux, card->mux, sizeof ctx->mux);
}
void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t setup_parameter, const plt_card_info* card) {
    (void)setup_parameter;
    ctx->binding_kind = MCTP_BINDING_KIND_PCIE;
    ctx->pcie_bdf[0] = card->bus;
    ctx->pcie_bdf[1] = card->device;
}

/* ==== Power, shell, logs, progress ============================================================ */
int PltCHASSIS_PowerStatus(void) {
    return board_power();
}
int GetS5stByPwrConfig(void) {
    return 1; /* devices have no standby power */
}
int _PltGPIO_RegRead(uint32_t base, uint32_t group, uint32_t offset, uint8_t* value) {
    (void)base, (void)group, (void)offset; /* the library reads PLT_MAIN_POWER_REGISTER alone */
    *value = board_power() == 1;
    return 0;
}

/* Waits for the command. Only boards with an MPIO need it. */
int run_shellcmd(const char* command) {
    return system(command);
}

/* Under any lock: neither log takes one of the records'. What is longer than a line is cut. */
void ipmi_syslog(const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    board_log(0, line);
}
void console_log(const char* format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    board_log(1, line);
}

/* Fill in for updates that somebody watches; the percentage may shrink. */
void TaskServiceUpdateTaskPercentage(uint32_t task_id, uint8_t percent) {
    (void)task_id, (void)percent;
}

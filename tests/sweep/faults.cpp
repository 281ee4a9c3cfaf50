// SPDX-License-Identifier: Apache-2.0
// The stand-ins for what libsideband.so calls, and what a failure of each has to look like.
#include "faults.h"

#include <fcntl.h>
#include <poll.h>
#include <sideband/mctp.h>
#include <sideband/platform.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <string_view>
#include <type_traits>

#include "sim/board/board.h"
#include "support/offset_table.h"

namespace sweep {
namespace {

// ---- What is counted ----

bool counting;
bool has_failed;
unsigned all_calls;
unsigned busy_locks;

struct Holdings {
    std::set<void*> blocks;
    std::set<int> descriptors;
    std::set<std::FILE*> streams;
    std::map<void*, size_t> mappings;
};
Holdings held;

/// One for each function, told apart by its address.
template <auto kFunction>
Slot slot;

/// Whether this call is to fail.
bool fails(Slot& of) {
    if (!counting) {
        return false;
    }
    if (++all_calls > kCallsMax) {
        std::fprintf(stderr, "the library makes calls without an end\n");
        std::abort();
    }
    ++of.calls;
    const bool struck =
        of.failing != 0 && (of.for_good ? of.calls >= of.failing : of.calls == of.failing);
    has_failed |= struck;
    return struck;
}

/// A wait that brings nothing takes as long as one that was waited for.
void pass_time() {
    constexpr uint64_t kWaitUs = 1000000;
    if (sim::Board* const board = sim::Board::current()) {
        board->advance_us(kWaitUs);
    }
}

/// Whether the failure of a function takes time.
template <auto kFunction>
constexpr bool kWaits = false;
template <>
constexpr bool kWaits<PltMCTPI2C_SlaveReadWithPEC_NoMutex> = true;
template <>
constexpr bool kWaits<PltMCTP_WriteRead> = true;
// An update asks again at once for as long as its device may be silent; the board's clock would
// stand still.
template <>
constexpr bool kWaits<lx_mutex_get> = true;

template <typename Result>
Result failure(intptr_t value) {
    if constexpr (std::is_pointer_v<Result>) {
        return reinterpret_cast<Result>(value);  // NOLINT(performance-no-int-to-ptr)
    } else {
        return static_cast<Result>(value);
    }
}

/// Whether a function that fails has done its work nevertheless.
enum class Work { kUndone, kDone };

template <auto kFunction, intptr_t kFailure, Work kWork, typename Result, typename... Arguments>
Result stand_in(Arguments... arguments) {
    const auto original = reinterpret_cast<Result (*)(Arguments...)>(slot<kFunction>.original);
    if (!fails(slot<kFunction>)) {
        return original(arguments...);
    }
    if (kWork == Work::kDone) {
        original(arguments...);
    }
    if (kWaits<kFunction>) {
        pass_time();
    }
    errno = EIO;
    return failure<Result>(kFailure);
}

template <auto kFunction, intptr_t kFailure, Work kWork, typename Result, typename... Arguments>
void* address_of_stand_in(Result (*)(Arguments...)) {
    return test::address_of(&stand_in<kFunction, kFailure, kWork, Result, Arguments...>);
}

using Causes = std::vector<uint8_t>;
using Names = std::vector<const char*>;

template <auto kFunction, intptr_t kFailure, Work kWork = Work::kUndone>
Import plain_import(Names names, Kind kind, Shows shows, Causes causes = {}) {
    return {std::move(names),
            kind,
            shows,
            std::move(causes),
            &slot<kFunction>,
            address_of_stand_in<kFunction, kFailure, kWork>(kFunction)};
}

/// One whose stand-in is written out below.
template <auto kFunction, typename StandIn>
Import own_import(StandIn* by, Names names, Kind kind, Shows shows, Causes causes = {}) {
    return {std::move(names),    kind, shows, std::move(causes), &slot<kFunction>,
            test::address_of(by)};
}

// ---- Stand-ins that keep account ----

void* counted_malloc(size_t size) {
    if (fails(slot<malloc>)) {
        errno = ENOMEM;
        return nullptr;
    }
    return *held.blocks.insert(std::malloc(size)).first;
}

void* counted_calloc(size_t count, size_t size) {
    if (fails(slot<calloc>)) {
        errno = ENOMEM;
        return nullptr;
    }
    return *held.blocks.insert(std::calloc(count, size)).first;
}

void counted_free(void* block) {
    held.blocks.erase(block);
    std::free(block);
}

std::string translated(const char* path) {
    constexpr std::string_view kNv = "/nv";
    const std::string_view text(path);
    return text.starts_with(kNv) ? own_nv() + std::string(text.substr(kNv.size())) : path;
}

int counted_open(const char* path, int flags, ...) {
    if (fails(slot<open>)) {
        errno = EIO;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const int descriptor = open(translated(path).c_str(), flags, mode);
    if (descriptor >= 0) {
        held.descriptors.insert(descriptor);
    }
    return descriptor;
}

int counted_close(int descriptor) {
    held.descriptors.erase(descriptor);
    const bool failed = fails(slot<close>);
    const int result = reinterpret_cast<int (*)(int)>(slot<close>.original)(descriptor);
    return failed ? -1 : result;
}

std::FILE* counted_fdopen(int descriptor, const char* mode) {
    if (fails(slot<fdopen>)) {
        errno = EIO;
        return nullptr;
    }
    std::FILE* const stream = fdopen(descriptor, mode);
    if (stream != nullptr) {
        held.descriptors.erase(descriptor);
        held.streams.insert(stream);
    }
    return stream;
}

int counted_fclose(std::FILE* stream) {
    held.streams.erase(stream);
    const bool failed = fails(slot<fclose>);
    const int result = std::fclose(stream);
    return failed ? EOF : result;
}

void* counted_mmap(void* address, size_t length, int protection, int flags, int descriptor,
                   off_t offset) {
    if (fails(slot<mmap>)) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    void* const mapping = mmap(address, length, protection, flags, descriptor, offset);
    if (mapping != MAP_FAILED && (flags & MAP_FIXED) == 0) {
        held.mappings[mapping] = length;
    }
    return mapping;
}

int counted_munmap(void* address, size_t length) {
    held.mappings.erase(address);
    const bool failed = fails(slot<munmap>);
    const int result = munmap(address, length);
    return failed ? -1 : result;
}

int counted_rename(const char* from, const char* to) {
    return fails(slot<rename>) ? -1 : rename(translated(from).c_str(), translated(to).c_str());
}

int counted_unlink(const char* path) {
    return fails(slot<unlink>) ? -1 : unlink(translated(path).c_str());
}

int counted_flock(int descriptor, int operation) {
    if (fails(slot<flock>)) {
        errno = EIO;
        return -1;
    }
    if (counting && busy_locks != 0) {
        --busy_locks;
        errno = EWOULDBLOCK;
        return -1;
    }
    return flock(descriptor, operation);
}

int counted_ioctl(int descriptor, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (fails(slot<counted_ioctl>)) {
        errno = EIO;
        return -1;
    }
    using Ioctl = int (*)(int, unsigned long, ...);
    return reinterpret_cast<Ioctl>(slot<counted_ioctl>.original)(descriptor, request, argument);
}

/// What is for standard error would only stand between the lines of sanitizers.
int print(Slot& of, std::FILE* stream, const char* format, va_list arguments) {
    if (fails(of)) {
        return -1;
    }
    return stream == stderr ? 0 : std::vfprintf(stream, format, arguments);
}

int counted_vfprintf(std::FILE* stream, const char* format, va_list arguments) {
    return print(slot<vfprintf>, stream, format, arguments);
}

void silent_perror(const char* /*text*/) {}

// What builds with checks of lengths call in the place of the plain functions.
int checked_vfprintf(std::FILE* stream, int /*level*/, const char* format, va_list arguments) {
    return print(slot<checked_vfprintf>, stream, format, arguments);
}

int checked_vprintf(int /*level*/, const char* format, va_list arguments) {
    return fails(slot<checked_vprintf>) ? -1 : std::vprintf(format, arguments);
}

int checked_vsnprintf(char* text, size_t size, int /*level*/, size_t /*room*/, const char* format,
                      va_list arguments) {
    return fails(slot<checked_vsnprintf>) ? -1 : std::vsnprintf(text, size, format, arguments);
}

ssize_t checked_recvfrom(int descriptor, void* buffer, size_t size, size_t /*room*/, int flags,
                         sockaddr* address, socklen_t* address_size) {
    if (fails(slot<checked_recvfrom>)) {
        errno = EIO;
        return -1;
    }
    return recvfrom(descriptor, buffer, size, flags, address, address_size);
}

// ---- The table ----

std::vector<Import> allocations() {
    constexpr Kind kKind = Kind::kAllocation;
    const Causes memory{SIDEBAND_CAUSE_MEMORY};
    return {
        own_import<malloc>(counted_malloc, {"malloc"}, kKind, Shows::kMust, memory),
        own_import<calloc>(counted_calloc, {"calloc"}, kKind, Shows::kMust, memory),
    };
}

std::vector<Import> platform_functions() {
    constexpr Kind kKind = Kind::kPlatform;
    const Causes lock{SIDEBAND_CAUSE_LOCK};
    const Causes unreached{SIDEBAND_CAUSE_NOT_ACKNOWLEDGED};
    const Causes silent{SIDEBAND_CAUSE_NO_ANSWER};
    const Causes power{SIDEBAND_CAUSE_NO_POWER};
    const Causes system{SIDEBAND_CAUSE_SYSTEM};
    // Without its route a card is at address 0 of bus 0, or wherever the channel leads.
    const Causes lost{SIDEBAND_CAUSE_NO_BUS, SIDEBAND_CAUSE_NOT_ACKNOWLEDGED};
    return {
        plain_import<lx_mutex_get, -1>({"lx_mutex_get"}, kKind, Shows::kMust, lock),
        plain_import<lx_mutex_put, -1, Work::kDone>({"lx_mutex_put"}, kKind, Shows::kNever),
        plain_import<i2c_chnl_mutex_get, -1>({"i2c_chnl_mutex_get"}, kKind, Shows::kMust, lock),
        plain_import<i2c_chnl_mutex_put, -1, Work::kDone>({"i2c_chnl_mutex_put"}, kKind,
                                                          Shows::kNever),
        plain_import<GlobalParaInit, 0>({"GlobalParaInit"}, kKind, Shows::kMust, system),
        plain_import<PltMCTPI2C_MasterWriteWithPEC_NoMutex, -EIO>(
            {"PltMCTPI2C_MasterWriteWithPEC_NoMutex"}, kKind, Shows::kMay, unreached),
        plain_import<PltMCTPI2C_MasterWrite_NoMutex, -EIO>({"PltMCTPI2C_MasterWrite_NoMutex"},
                                                           kKind, Shows::kMay, unreached),
        plain_import<PltMCTPI2C_SlaveReadWithPEC_NoMutex, -EIO>(
            {"PltMCTPI2C_SlaveReadWithPEC_NoMutex"}, kKind, Shows::kMay, silent),
        plain_import<SetI2CMux, -EIO>({"SetI2CMux"}, kKind, Shows::kMay, unreached),
        plain_import<GetBMCCtrAdd, -EIO>({"GetBMCCtrAdd"}, kKind, Shows::kNever),
        plain_import<PltMCTP_WriteRead, -EIO>({"PltMCTP_WriteRead"}, kKind, Shows::kMay, silent),
        plain_import<libmctp_pcie_open, -EIO>({"libmctp_pcie_open"}, kKind, Shows::kMust, system),
        plain_import<PCIEDeviceMux, -EIO>({"PCIEDeviceMux"}, kKind, Shows::kMay, lost),
        plain_import<PltCHASSIS_PowerStatus, -1>({"PltCHASSIS_PowerStatus"}, kKind, Shows::kMust,
                                                 power),
        plain_import<GetS5stByPwrConfig, -1>({"GetS5stByPwrConfig"}, kKind, Shows::kMay, power),
        plain_import<_PltGPIO_RegRead, -EIO>({"_PltGPIO_RegRead"}, kKind, Shows::kMay, power),
        plain_import<run_shellcmd, -1>({"run_shellcmd"}, kKind, Shows::kNever),
    };
}

std::vector<Import> file_calls() {
    constexpr Kind kKind = Kind::kLibc;
    const Causes file{SIDEBAND_CAUSE_FILE};
    return {
        plain_import<access, -1>({"access"}, kKind, Shows::kMay, {SIDEBAND_CAUSE_NOT_FOUND}),
        own_import<open>(counted_open, {"open", "open64"}, kKind, Shows::kMust, file),
        own_import<close>(counted_close, {"close"}, kKind, Shows::kNever),
        plain_import<fstat, -1>({"fstat", "fstat64", "__fstat64_time64"}, kKind, Shows::kMust,
                                file),
        own_import<mmap>(counted_mmap, {"mmap", "mmap64"}, kKind, Shows::kMust, file),
        own_import<munmap>(counted_munmap, {"munmap"}, kKind, Shows::kNever),
        plain_import<pread, -1>({"pread", "pread64"}, kKind, Shows::kMust, file),
        own_import<rename>(counted_rename, {"rename"}, kKind, Shows::kNever),
        own_import<unlink>(counted_unlink, {"unlink"}, kKind, Shows::kNever),
        own_import<fdopen>(counted_fdopen, {"fdopen"}, kKind, Shows::kMust),
        own_import<fclose>(counted_fclose, {"fclose"}, kKind, Shows::kNever),
        plain_import<fileno, -1>({"fileno"}, kKind, Shows::kMust),
        own_import<flock>(counted_flock, {"flock"}, kKind, Shows::kNever),
        plain_import<setvbuf, -1>({"setvbuf"}, kKind, Shows::kNever),
        plain_import<fputs, EOF>({"fputs"}, kKind, Shows::kMust),
        plain_import<fflush, EOF, Work::kDone>({"fflush"}, kKind, Shows::kNever),
    };
}

std::vector<Import> texts() {
    constexpr Kind kKind = Kind::kLibc;
    return {
        plain_import<puts, EOF>({"puts"}, kKind, Shows::kNever),
        plain_import<putchar, EOF>({"putchar"}, kKind, Shows::kNever),
        plain_import<fwrite, 0>({"fwrite"}, kKind, Shows::kNever),
        own_import<vfprintf>(counted_vfprintf, {"vfprintf"}, kKind, Shows::kNever),
        plain_import<vprintf, -1>({"vprintf"}, kKind, Shows::kNever),
        // What cannot be put together is not printed.
        plain_import<vsnprintf, -1>({"vsnprintf"}, kKind, Shows::kMay),
        own_import<checked_vfprintf>(checked_vfprintf, {"__vfprintf_chk"}, kKind, Shows::kNever),
        own_import<checked_vprintf>(checked_vprintf, {"__vprintf_chk"}, kKind, Shows::kNever),
        own_import<checked_vsnprintf>(checked_vsnprintf, {"__vsnprintf_chk"}, kKind, Shows::kMay),
    };
}

std::vector<Import> other_calls() {
    constexpr Kind kKind = Kind::kLibc;
    const Causes system{SIDEBAND_CAUSE_SYSTEM};
    return {
        // A time limit that is reckoned from the beginning of time has passed.
        plain_import<clock_gettime, -1>({"clock_gettime", "__clock_gettime64"}, kKind, Shows::kMay,
                                        {SIDEBAND_CAUSE_DEADLINE}),
        plain_import<time, -1>({"time", "__time64"}, kKind, Shows::kNever),
        plain_import<usleep, -1>({"usleep"}, kKind, Shows::kNever),
        plain_import<nanosleep, -1>({"nanosleep", "__nanosleep64"}, kKind, Shows::kNever),
        plain_import<std::system, -1>({"system"}, kKind, Shows::kNever),
        plain_import<socket, -1>({"socket"}, kKind, Shows::kMust, system),
        plain_import<bind, -1>({"bind"}, kKind, Shows::kMust, system),
        // Kernels without it have the tag come with the message.
        own_import<counted_ioctl>(counted_ioctl, {"ioctl"}, kKind, Shows::kNever),
        plain_import<sendmsg, -1>({"sendmsg"}, kKind, Shows::kMust, system),
        plain_import<poll, -1>({"poll"}, kKind, Shows::kMust, system),
        // A message that could not be taken is still there.
        plain_import<recvfrom, -1>({"recvfrom"}, kKind, Shows::kMay, system),
        own_import<checked_recvfrom>(checked_recvfrom, {"__recvfrom_chk"}, kKind, Shows::kMay,
                                     system),
    };
}

std::vector<test::Substitute> make_substitutes() {
    std::vector<test::Substitute> all{{"free", test::address_of(counted_free)},
                                      {"perror", test::address_of(silent_perror)}};
    for (const Import& import : imports()) {
        for (const char* name : import.names) {
            all.push_back({name, import.stand_in});
        }
    }
    return all;
}

std::vector<test::Substitute>& substitutes() {
    static std::vector<test::Substitute> all = make_substitutes();
    return all;
}

}  // namespace

const std::vector<Import>& imports() {
    static const std::vector<Import> kAll = [] {
        std::vector<Import> together;
        for (const auto& some :
             {allocations(), platform_functions(), file_calls(), texts(), other_calls()}) {
            together.insert(together.end(), some.begin(), some.end());
        }
        return together;
    }();
    return kAll;
}

bool cannot_fail(const std::string& name) {
    // Records, pure functions, and what has no result: of a platform's, and of libc. A mutex of the
    // library's own is a plain one, which is given unless it is no mutex.
    static const std::set<std::string> kNames{"platform",
                                              "at_p_St_GlobalVar",
                                              "at_p_St_GlobalSecVar",
                                              "stdout",
                                              "stderr",
                                              "CRC8Gen",
                                              "MCTP_binding_PCIE",
                                              "MCTP_binding_SMBUS",
                                              "TaskServiceUpdateTaskPercentage",
                                              "console_log",
                                              "ipmi_syslog",
                                              "libmctp_pcie_close",
                                              "free",
                                              "perror",
                                              "strerror",
                                              "difftime",
                                              "__difftime64",
                                              "fmaf",
                                              "pthread_mutex_lock",
                                              "pthread_mutex_unlock",
                                              "__errno_location",
                                              "raise",
                                              "bcmp",
                                              "memcmp",
                                              "memcpy",
                                              "memmove",
                                              "memset",
                                              "memchr",
                                              "strlen",
                                              "strnlen",
                                              "strchrnul",
                                              "strchr",
                                              "__memcpy_chk",
                                              "__memmove_chk",
                                              "__memset_chk",
                                              "__stack_chk_fail",
                                              "__stack_chk_guard",
                                              "__cxa_finalize",
                                              "__gmon_start__",
                                              "_ITM_deregisterTMCloneTable",
                                              "_ITM_registerTMCloneTable"};
    // What sanitizers and coverage bring.
    static const char* const kPrefixes[] = {
        "__asan_", "__ubsan_", "__sanitizer_",    "__tsan_",  "__lsan_",
        "__gcov_", "__llvm_",  "_ZTVN10__cxxabi", "__aeabi_", "__interceptor_"};
    for (const char* prefix : kPrefixes) {
        if (name.starts_with(prefix)) {
            return true;
        }
    }
    return kNames.contains(name);
}

Faults::Faults() {
    test::patch_offsets(substitutes());
    // Several names may stand for one function: the library calls one of them.
    for (const Import& import : imports()) {
        for (const test::Substitute& each : substitutes()) {
            if (each.function == import.stand_in && each.original != nullptr) {
                import.slot->original = each.original;
            }
        }
    }
}

Faults::~Faults() {
    test::restore_offsets(substitutes());
}

void Faults::begin(const Import* failing, unsigned nth, bool for_good) {
    for (const Import& import : imports()) {
        import.slot->calls = 0;
        import.slot->failing = &import == failing ? nth : 0;
        import.slot->for_good = for_good;
    }
    all_calls = 0;
    has_failed = false;
    counting = true;
}

bool Faults::end() {
    counting = false;
    return has_failed;
}

void Faults::keep_lock_busy(unsigned tries) {
    busy_locks = tries;
}

size_t Faults::blocks() {
    return held.blocks.size();
}
size_t Faults::descriptors() {
    return held.descriptors.size();
}
size_t Faults::streams() {
    return held.streams.size();
}
size_t Faults::mappings() {
    return held.mappings.size();
}

void Faults::give_back() {
    for (void* block : held.blocks) {
        std::free(block);
    }
    for (const int descriptor : held.descriptors) {
        close(descriptor);
    }
    for (std::FILE* stream : held.streams) {
        std::fclose(stream);
    }
    for (const auto& [address, length] : held.mappings) {
        munmap(address, length);
    }
    held = {};
}

const std::string& own_nv() {
    static const std::string kPath = [] {
        std::string pattern = (std::filesystem::temp_directory_path() / "sweep-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::exit(1);
        }
        return pattern;
    }();
    return kPath;
}

}  // namespace sweep

// SPDX-License-Identifier: Apache-2.0
// Substitutes libc underneath libsideband.so as shipped, by rewriting its global offset table.
#include "support/libc_patch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/offset_table.h"
#include "support/scripted_platform.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace test {

namespace {

LibcPatch* active = nullptr;

bool is_substituted(const char* path) {
    std::string_view text(path);
    return text == "/nv" || text.starts_with("/nv/") || text.starts_with("/sys/bus/i2c/devices/");
}

// ---- The substitutes ----

int patched_clock_gettime(clockid_t clock, timespec* result) {
    const int outcome = clock_gettime(clock, result);
    if (clock == CLOCK_MONOTONIC_COARSE) {
        constexpr int64_t kNsPerMs = 1000000;
        constexpr int64_t kMsPerS = 1000;
        const int64_t ms =
            int64_t{result->tv_sec} * kMsPerS + result->tv_nsec / kNsPerMs + active->later_ms;
        result->tv_sec = static_cast<time_t>(ms / kMsPerS);
        result->tv_nsec = static_cast<long>(ms % kMsPerS * kNsPerMs);
    }
    return outcome;
}

int patched_usleep(useconds_t microseconds) {
    active->sleeps.push_back(microseconds);
    port().trace.push_back("sleep " + std::to_string(microseconds));
    if (active->must_fail("usleep")) {
        errno = active->failure_errno;
        return -1;
    }
    return 0;
}

time_t patched_time(time_t* result) {
    const time_t now = active->now ? *active->now : std::time(nullptr);
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int patched_system(const char* command) {
    if (active->must_fail("system")) {
        return -1;
    }
    active->commands.emplace_back(command);
    port().trace.push_back(std::string("system ") + command);
    return active->system_result;
}

int patched_access(const char* path, int mode) {
    if (active->must_fail("access")) {
        errno = active->failure_errno;
        return -1;
    }
    if (active->pretends(path)) {
        return 0;
    }
    return access(active->translate(path).c_str(), mode);
}

std::FILE* patched_fopen(const char* path, const char* mode) {
    if (active->must_fail("fopen")) {
        errno = active->failure_errno;
        return nullptr;
    }
    std::FILE* stream = std::fopen(active->translate(path).c_str(), mode);
    active->opened(stream);
    return stream;
}

std::FILE* patched_fdopen(int descriptor, const char* mode) {
    if (active->must_fail("fdopen")) {
        errno = active->failure_errno;
        return nullptr;
    }
    std::FILE* stream = fdopen(descriptor, mode);
    if (stream != nullptr) {
        active->closed(descriptor);  // fclose() closes it from now on
        active->opened(stream);
    }
    return stream;
}

int patched_rename(const char* from, const char* to) {
    if (active->must_fail("rename")) {
        errno = active->failure_errno;
        return -1;
    }
    return std::rename(active->translate(from).c_str(), active->translate(to).c_str());
}

int patched_unlink(const char* path) {
    if (active->must_fail("unlink")) {
        errno = active->failure_errno;
        return -1;
    }
    return unlink(active->translate(path).c_str());
}

int patched_fileno(std::FILE* stream) {
    if (active->must_fail("fileno")) {
        errno = active->failure_errno;
        return -1;
    }
    return fileno(stream);
}

int patched_flock(int descriptor, int operation) {
    if (active->must_fail("flock")) {
        errno = active->failure_errno;
        return -1;
    }
    return flock(descriptor, operation);
}

int patched_fstat(int descriptor, struct stat* status) {
    if (active->must_fail("fstat")) {
        errno = active->failure_errno;
        return -1;
    }
    return fstat(descriptor, status);
}

int patched_fflush(std::FILE* stream) {
    if (active->must_fail("fflush")) {
        errno = active->failure_errno;
        return EOF;
    }
    return std::fflush(stream);
}

int patched_fclose(std::FILE* stream) {
    active->closed(stream);
    int result = std::fclose(stream);
    if (active->must_fail("fclose")) {
        errno = active->failure_errno;
        return EOF;
    }
    return result;
}

int patched_open(const char* path, int flags, ...) {
    if (!is_substituted(path)) {
        active->calls["open file"]++;
    }
    if (active->must_fail("open")) {
        errno = active->failure_errno;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    int descriptor = open(active->translate(path).c_str(), flags, mode);
    active->opened(descriptor);
    return descriptor;
}

int patched_close(int descriptor) {
    active->must_fail("close");
    active->closed(descriptor);
    return close(descriptor);
}

void* patched_mmap(void* address, size_t length, int protection, int flags, int descriptor,
                   off_t offset) {
    if (active->must_fail("mmap")) {
        errno = active->failure_errno;
        return MAP_FAILED;
    }
    void* mapping = mmap(address, length, protection, flags, descriptor, offset);
    active->mapped(mapping, length);
    return mapping;
}

/// Forbids memory under AddressSanitizer, or allows it again; nothing without it.
void poison([[maybe_unused]] const void* memory, [[maybe_unused]] size_t size,
            [[maybe_unused]] bool poisoned) {
#ifdef __SANITIZE_ADDRESS__
    if (poisoned) {
        __asan_poison_memory_region(memory, size);
    } else {
        __asan_unpoison_memory_region(memory, size);
    }
#endif
}

size_t whole_pages(size_t size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

int patched_munmap(void* address, size_t length) {
    poison(address, whole_pages(length), false);
    bool fails = active->must_fail("munmap");
    active->unmapped(address);
    int result = munmap(address, length);
    if (fails) {
        errno = active->failure_errno;
        return -1;
    }
    return result;
}

ssize_t patched_pread(int descriptor, void* buffer, size_t size, off_t offset) {
    if (active->must_fail("pread")) {
        errno = active->failure_errno;
        return -1;
    }
    const ssize_t done = pread(descriptor, buffer, std::min(size, active->read_at_most), offset);
    if (done == static_cast<ssize_t>(size) && active->is_mapped(buffer)) {
        // What is behind it in its page is not the file's.
        const size_t used = reinterpret_cast<uintptr_t>(buffer) % whole_pages(1) + size;
        poison(static_cast<uint8_t*>(buffer) + size, whole_pages(used) - used, true);
    }
    return done;
}

void* patched_malloc(size_t size) {
    if (active->must_fail("malloc") || active->allocation_must_fail()) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = std::malloc(size);
    active->remember(block);
    return block;
}

void* patched_calloc(size_t count, size_t size) {
    if (active->must_fail("calloc") || active->allocation_must_fail()) {
        errno = ENOMEM;
        return nullptr;
    }
    void* block = std::calloc(count, size);
    active->remember(block);
    return block;
}

void* patched_realloc(void* old, size_t size) {
    if (active->must_fail("realloc") || active->allocation_must_fail()) {
        errno = ENOMEM;
        return nullptr;
    }
    active->forget(old);
    void* block = std::realloc(old, size);
    if (block == nullptr) {
        std::abort();  // the machine itself is out of memory
    }
    active->remember(block);
    return block;
}

void patched_free(void* block) {
    active->freed(block);
    std::free(block);
}

// The 64 bit names are what large-file builds of the library refer to.
Substitute substitutes[] = {
    {"clock_gettime", address_of(patched_clock_gettime)},
    {"__clock_gettime64", address_of(patched_clock_gettime)},
    {"usleep", address_of(patched_usleep)},
    {"time", address_of(patched_time)},
    {"__time64", address_of(patched_time)},
    {"system", address_of(patched_system)},
    {"access", address_of(patched_access)},
    {"fopen", address_of(patched_fopen)},
    {"fopen64", address_of(patched_fopen)},
    {"fdopen", address_of(patched_fdopen)},
    {"rename", address_of(patched_rename)},
    {"unlink", address_of(patched_unlink)},
    {"remove", address_of(patched_unlink)},
    {"fileno", address_of(patched_fileno)},
    {"flock", address_of(patched_flock)},
    {"fstat", address_of(patched_fstat)},
    {"fstat64", address_of(patched_fstat)},
    {"__fstat64_time64", address_of(patched_fstat)},
    {"fflush", address_of(patched_fflush)},
    {"fclose", address_of(patched_fclose)},
    {"open", address_of(patched_open)},
    {"open64", address_of(patched_open)},
    {"close", address_of(patched_close)},
    {"mmap", address_of(patched_mmap)},
    {"mmap64", address_of(patched_mmap)},
    {"munmap", address_of(patched_munmap)},
    {"pread", address_of(patched_pread)},
    {"pread64", address_of(patched_pread)},
    {"malloc", address_of(patched_malloc)},
    {"calloc", address_of(patched_calloc)},
    {"realloc", address_of(patched_realloc)},
    {"free", address_of(patched_free)},
};

}  // namespace

LibcPatch::LibcPatch() {
    if (active != nullptr) {
        std::fprintf(stderr, "libc patch: two at once\n");
        std::abort();
    }
    active = this;
    patch_offsets(substitutes);
}

LibcPatch::~LibcPatch() {
    restore_offsets(substitutes);
    active = nullptr;
}

LibcPatch* LibcPatch::current() {
    return active;
}

void LibcPatch::release_blocks() {
    for (void* block : blocks_) {
        std::free(block);
    }
    blocks_.clear();
}

int LibcPatch::allocations() const {
    int total = 0;
    for (const char* name : {"malloc", "calloc", "realloc"}) {
        auto found = calls.find(name);
        total += found == calls.end() ? 0 : found->second;
    }
    return total;
}

bool LibcPatch::must_fail(const char* name) {
    std::scoped_lock guard(mutex_);
    if (auto hook = before.find(name); hook != before.end()) {
        hook->second();
    }
    calls[name]++;
    if (strstr(name, "alloc") == nullptr && strcmp(name, "usleep") != 0) {
        sequence.emplace_back(name);
    }
    auto found = fail.find(name);
    if (found == fail.end()) {
        return false;
    }
    if (found->second == kEvery) {
        return true;
    }
    return found->second > 0 && --found->second == 0;
}

bool LibcPatch::allocation_must_fail() {
    std::scoped_lock guard(mutex_);
    return failing_allocation_ > 0 && --failing_allocation_ == 0;
}

std::string LibcPatch::translate(const char* path) const {
    if (!is_substituted(path)) {
        return path;
    }
    return root.empty() ? std::string("/nonexistent") + path : root + path;
}

bool LibcPatch::pretends(const char* path) const {
    return root.empty() && present.contains(path);
}

void LibcPatch::remember(void* block) {
    std::scoped_lock guard(mutex_);
    if (block != nullptr) {
        blocks_.insert(block);
    }
}

void LibcPatch::forget(void* block) {
    std::scoped_lock guard(mutex_);
    blocks_.erase(block);
}

void LibcPatch::freed(void* block) {
    std::scoped_lock guard(mutex_);
    calls["free"]++;
    blocks_.erase(block);
}

void LibcPatch::opened(std::FILE* stream) {
    std::scoped_lock guard(mutex_);
    if (stream != nullptr) {
        streams_.insert(stream);
    }
}

void LibcPatch::closed(std::FILE* stream) {
    std::scoped_lock guard(mutex_);
    streams_.erase(stream);
}

void LibcPatch::opened(int descriptor) {
    std::scoped_lock guard(mutex_);
    if (descriptor >= 0) {
        descriptors_.insert(descriptor);
    }
}

void LibcPatch::closed(int descriptor) {
    std::scoped_lock guard(mutex_);
    descriptors_.erase(descriptor);
}

void LibcPatch::mapped(void* address, size_t length) {
    std::scoped_lock guard(mutex_);
    if (address != MAP_FAILED) {
        mappings_[address] = length;
    }
}

bool LibcPatch::is_mapped(const void* address) {
    std::scoped_lock guard(mutex_);
    const auto* byte = static_cast<const uint8_t*>(address);
    for (const auto& [start, length] : mappings_) {
        const auto* first = static_cast<const uint8_t*>(start);
        if (byte >= first && byte < first + length) {
            return true;
        }
    }
    return false;
}

void LibcPatch::unmapped(void* address) {
    std::scoped_lock guard(mutex_);
    mappings_.erase(address);
}

void LibcPatch::close_streams() {
    for (std::FILE* stream : streams_) {
        std::fclose(stream);
    }
    streams_.clear();
}

}  // namespace test

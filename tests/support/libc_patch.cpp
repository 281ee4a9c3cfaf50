// SPDX-License-Identifier: Apache-2.0
// Substitutes libc underneath libsideband.so as shipped, by rewriting its global offset table.
#include "support/libc_patch.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
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

int patched_usleep(useconds_t microseconds) {
    active->calls["usleep"]++;
    active->sleeps.push_back(microseconds);
    port().trace.push_back("sleep " + std::to_string(microseconds));
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

struct Substitute {
    const char* name;
    void* function;
    void* original;
};

template <typename Function>
void* address_of(Function* function) {
    return reinterpret_cast<void*>(function);
}

// The 64 bit names are what large-file builds of the library refer to.
Substitute substitutes[] = {
    {"usleep", address_of(patched_usleep), nullptr},
    {"time", address_of(patched_time), nullptr},
    {"__time64", address_of(patched_time), nullptr},
    {"system", address_of(patched_system), nullptr},
    {"access", address_of(patched_access), nullptr},
    {"fopen", address_of(patched_fopen), nullptr},
    {"fopen64", address_of(patched_fopen), nullptr},
    {"fdopen", address_of(patched_fdopen), nullptr},
    {"rename", address_of(patched_rename), nullptr},
    {"unlink", address_of(patched_unlink), nullptr},
    {"remove", address_of(patched_unlink), nullptr},
    {"fileno", address_of(patched_fileno), nullptr},
    {"flock", address_of(patched_flock), nullptr},
    {"fstat", address_of(patched_fstat), nullptr},
    {"fstat64", address_of(patched_fstat), nullptr},
    {"__fstat64_time64", address_of(patched_fstat), nullptr},
    {"fflush", address_of(patched_fflush), nullptr},
    {"fclose", address_of(patched_fclose), nullptr},
    {"open", address_of(patched_open), nullptr},
    {"open64", address_of(patched_open), nullptr},
    {"close", address_of(patched_close), nullptr},
    {"mmap", address_of(patched_mmap), nullptr},
    {"mmap64", address_of(patched_mmap), nullptr},
    {"munmap", address_of(patched_munmap), nullptr},
    {"pread", address_of(patched_pread), nullptr},
    {"pread64", address_of(patched_pread), nullptr},
    {"malloc", address_of(patched_malloc), nullptr},
    {"calloc", address_of(patched_calloc), nullptr},
    {"realloc", address_of(patched_realloc), nullptr},
    {"free", address_of(patched_free), nullptr},
};

// ---- The global offset table ----

#if defined(__LP64__)
constexpr auto relocation_type(ElfW(Xword) info) {
    return ELF64_R_TYPE(info);
}
constexpr auto relocation_symbol(ElfW(Xword) info) {
    return ELF64_R_SYM(info);
}
#else
constexpr auto relocation_type(ElfW(Word) info) {
    return ELF32_R_TYPE(info);
}
constexpr auto relocation_symbol(ElfW(Word) info) {
    return ELF32_R_SYM(info);
}
#endif

/// Whether a relocation stores the plain address of its symbol.
bool stores_address(uintmax_t type) {
#if defined(__x86_64__)
    return type == R_X86_64_JUMP_SLOT || type == R_X86_64_GLOB_DAT || type == R_X86_64_64;
#elif defined(__arm__)
    return type == R_ARM_JUMP_SLOT || type == R_ARM_GLOB_DAT || type == R_ARM_ABS32;
#elif defined(__aarch64__)
    return type == R_AARCH64_JUMP_SLOT || type == R_AARCH64_GLOB_DAT || type == R_AARCH64_ABS64;
#else
#error "teach stores_address() this machine's relocation types"
#endif
}

/// What the dynamic section of the library says about itself.
struct Tables {
    uintptr_t base = 0;
    const ElfW(Sym) * symbols = nullptr;
    const char* strings = nullptr;
    uintptr_t relocations[3] = {};  ///< DT_RELA, DT_REL, DT_JMPREL
    size_t sizes[3] = {};
    bool plt_has_addends = false;
};

uintptr_t absolute(const Tables& tables, uintptr_t value) {
    return value < tables.base ? tables.base + value : value;
}

void read_dynamic(Tables& tables, const ElfW(Dyn) * entry) {
    for (; entry->d_tag != DT_NULL; entry++) {
        uintptr_t value = entry->d_un.d_val;
        switch (entry->d_tag) {
            case DT_SYMTAB:
                tables.symbols = reinterpret_cast<const ElfW(Sym)*>(absolute(tables, value));
                break;
            case DT_STRTAB:
                tables.strings = reinterpret_cast<const char*>(absolute(tables, value));
                break;
            case DT_RELA:
                tables.relocations[0] = absolute(tables, value);
                break;
            case DT_RELASZ:
                tables.sizes[0] = value;
                break;
            case DT_REL:
                tables.relocations[1] = absolute(tables, value);
                break;
            case DT_RELSZ:
                tables.sizes[1] = value;
                break;
            case DT_JMPREL:
                tables.relocations[2] = absolute(tables, value);
                break;
            case DT_PLTRELSZ:
                tables.sizes[2] = value;
                break;
            case DT_PLTREL:
                tables.plt_has_addends = value == DT_RELA;
                break;
            default:
                break;
        }
    }
}

int find_library(dl_phdr_info* info, size_t, void* result) {
    if (info->dlpi_name == nullptr || strstr(info->dlpi_name, "libsideband.so") == nullptr) {
        return 0;
    }
    auto* tables = static_cast<Tables*>(result);
    tables->base = info->dlpi_addr;
    for (int i = 0; i < info->dlpi_phnum; i++) {
        if (info->dlpi_phdr[i].p_type == PT_DYNAMIC) {
            uintptr_t address = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
            read_dynamic(*tables, reinterpret_cast<const ElfW(Dyn)*>(address));
        }
    }
    return 1;
}

[[noreturn]] void give_up(const char* why) {
    std::fprintf(stderr, "libc patch: %s\n", why);
    std::abort();
}

void store(uintptr_t slot, void* value) {
    auto page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    uintptr_t page = slot & ~(page_size - 1);
    // The loader has made the table read-only (relro); it stays writable once patched.
    if (mprotect(reinterpret_cast<void*>(page), page_size, PROT_READ | PROT_WRITE) != 0) {
        give_up("mprotect failed");
    }
    *reinterpret_cast<void**>(slot) = value;
}

enum class Direction { kPatch, kRestore };

void apply(uintptr_t slot, const char* name, Direction direction) {
    for (Substitute& substitute : substitutes) {
        if (strcmp(substitute.name, name) != 0) {
            continue;
        }
        if (direction == Direction::kPatch) {
            substitute.original = dlsym(RTLD_DEFAULT, name);
            if (substitute.original == nullptr) {
                give_up(name);
            }
            store(slot, substitute.function);
        } else {
            store(slot, substitute.original);
        }
    }
}

template <typename Relocation>
void walk(const Tables& tables, uintptr_t start, size_t size, Direction direction) {
    auto* relocations = reinterpret_cast<const Relocation*>(start);
    for (size_t i = 0; i < size / sizeof(Relocation); i++) {
        if (!stores_address(relocation_type(relocations[i].r_info))) {
            continue;
        }
        const ElfW(Sym)& symbol = tables.symbols[relocation_symbol(relocations[i].r_info)];
        if (symbol.st_shndx == SHN_UNDEF) {
            apply(tables.base + relocations[i].r_offset, tables.strings + symbol.st_name,
                  direction);
        }
    }
}

void rewrite(Direction direction) {
    Tables tables;
    if (dl_iterate_phdr(find_library, &tables) == 0 || tables.symbols == nullptr) {
        give_up("libsideband.so is not loaded");
    }
    walk<ElfW(Rela)>(tables, tables.relocations[0], tables.sizes[0], direction);
    walk<ElfW(Rel)>(tables, tables.relocations[1], tables.sizes[1], direction);
    if (tables.plt_has_addends) {
        walk<ElfW(Rela)>(tables, tables.relocations[2], tables.sizes[2], direction);
    } else {
        walk<ElfW(Rel)>(tables, tables.relocations[2], tables.sizes[2], direction);
    }
}

}  // namespace

LibcPatch::LibcPatch() {
    if (active != nullptr) {
        give_up("two at once");
    }
    active = this;
    rewrite(Direction::kPatch);
}

LibcPatch::~LibcPatch() {
    rewrite(Direction::kRestore);
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
    if (strstr(name, "alloc") == nullptr) {
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

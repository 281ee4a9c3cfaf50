// SPDX-License-Identifier: Apache-2.0
// The global offset table of libsideband.so as shipped, whose entries others can take the place of.
#include "support/offset_table.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test {
namespace {

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
#elif defined(__s390x__)
    return type == R_390_JMP_SLOT || type == R_390_GLOB_DAT || type == R_390_64;
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

using Substitutes = std::span<Substitute>;

void apply(uintptr_t slot, const char* name, Direction direction, Substitutes substitutes) {
    for (Substitute& substitute : substitutes) {
        if (strcmp(substitute.name, name) != 0) {
            continue;
        }
        if (direction == Direction::kPatch) {
            void* const now = *reinterpret_cast<void**>(slot);
            if (now != substitute.function) {  // the tables may overlap
                substitute.original = now;
            }
            store(slot, substitute.function);
        } else {
            store(slot, substitute.original);
        }
    }
}

template <typename Relocation>
void walk(const Tables& tables, uintptr_t start, size_t size, Direction direction,
          Substitutes substitutes) {
    auto* relocations = reinterpret_cast<const Relocation*>(start);
    for (size_t i = 0; i < size / sizeof(Relocation); i++) {
        if (!stores_address(relocation_type(relocations[i].r_info))) {
            continue;
        }
        const ElfW(Sym)& symbol = tables.symbols[relocation_symbol(relocations[i].r_info)];
        if (symbol.st_shndx == SHN_UNDEF) {
            apply(tables.base + relocations[i].r_offset, tables.strings + symbol.st_name, direction,
                  substitutes);
        }
    }
}

void rewrite(Direction direction, Substitutes substitutes) {
    Tables tables;
    if (dl_iterate_phdr(find_library, &tables) == 0 || tables.symbols == nullptr) {
        give_up("libsideband.so is not loaded");
    }
    walk<ElfW(Rela)>(tables, tables.relocations[0], tables.sizes[0], direction, substitutes);
    walk<ElfW(Rel)>(tables, tables.relocations[1], tables.sizes[1], direction, substitutes);
    if (tables.plt_has_addends) {
        walk<ElfW(Rela)>(tables, tables.relocations[2], tables.sizes[2], direction, substitutes);
    } else {
        walk<ElfW(Rel)>(tables, tables.relocations[2], tables.sizes[2], direction, substitutes);
    }
}

}  // namespace

void patch_offsets(std::span<Substitute> substitutes) {
    rewrite(Direction::kPatch, substitutes);
}

void restore_offsets(std::span<Substitute> substitutes) {
    rewrite(Direction::kRestore, substitutes);
}

}  // namespace test

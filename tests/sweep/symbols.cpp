// SPDX-License-Identifier: Apache-2.0
// The dynamic symbols of libsideband.so as it is loaded, from the section headers of its file.
#include "symbols.h"

#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace sweep {
namespace {

using File = std::vector<char>;

int find_path(dl_phdr_info* info, size_t, void* path) {
    if (std::strstr(info->dlpi_name, "libsideband.so") == nullptr) {
        return 0;
    }
    *static_cast<std::string*>(path) = info->dlpi_name;
    return 1;
}

File read_library() {
    std::string path;
    dl_iterate_phdr(find_path, &path);
    std::ifstream file(path, std::ios::binary);
    File bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() < sizeof(ElfW(Ehdr))) {
        std::fprintf(stderr, "libsideband.so is not loaded from a file\n");
        std::exit(1);
    }
    return bytes;
}

template <typename T>
T at(const File& file, size_t offset) {
    T value;
    if (offset + sizeof value > file.size()) {
        std::fprintf(stderr, "libsideband.so ends early\n");
        std::exit(1);
    }
    std::memcpy(&value, file.data() + offset, sizeof value);
    return value;
}

void sort_in(Symbols& symbols, const ElfW(Sym) & symbol, const std::string& name) {
    // The letters of both sizes of ELF are the same.
    const bool is_function = ELF64_ST_TYPE(symbol.st_info) == STT_FUNC;
    if (symbol.st_shndx == SHN_UNDEF) {
        symbols.imports.insert(name);
    } else if (is_function && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL) {
        symbols.functions.insert(name);
    }
}

}  // namespace

Symbols library_symbols() {
    const File file = read_library();
    const auto header = at<ElfW(Ehdr)>(file, 0);
    const auto section = [&](size_t index) {
        return at<ElfW(Shdr)>(file, header.e_shoff + index * header.e_shentsize);
    };
    Symbols symbols;
    for (size_t i = 0; i < header.e_shnum; ++i) {
        const auto table = section(i);
        if (table.sh_type != SHT_DYNSYM) {
            continue;
        }
        const auto names = section(table.sh_link);
        for (size_t offset = 0; offset < table.sh_size; offset += sizeof(ElfW(Sym))) {
            const auto symbol = at<ElfW(Sym)>(file, table.sh_offset + offset);
            const std::string name(file.data() + names.sh_offset + symbol.st_name);
            if (!name.empty()) {
                sort_in(symbols, symbol, name);
            }
        }
    }
    return symbols;
}

}  // namespace sweep

// SPDX-License-Identifier: Apache-2.0
// What the library holds: blocks of the heap, descriptors, mappings of files.
#include "accounts.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "support/offset_table.h"

namespace hostile {

namespace {

// In the order in which they were allocated. There are never many.
std::vector<void*> blocks;

void* counted(void* block) {
    if (block != nullptr) {
        blocks.push_back(block);
    }
    return block;
}

void forget(void* block) {
    const auto found = std::find(blocks.rbegin(), blocks.rend(), block);
    if (found != blocks.rend()) {
        blocks.erase(std::next(found).base());
    }
}

void* counted_malloc(size_t size) {
    return counted(std::malloc(size));
}

void* counted_calloc(size_t count, size_t size) {
    return counted(std::calloc(count, size));
}

void* counted_realloc(void* block, size_t size) {
    void* const moved = std::realloc(block, size);
    if (moved != nullptr) {
        forget(block);
    }
    return counted(moved);
}

void counted_free(void* block) {
    forget(block);
    std::free(block);
}

}  // namespace

void count_blocks() {
    static test::Substitute substitutes[] = {
        {"malloc", test::address_of(counted_malloc)},
        {"calloc", test::address_of(counted_calloc)},
        {"realloc", test::address_of(counted_realloc)},
        {"free", test::address_of(counted_free)},
    };
    test::patch_offsets(substitutes);
}

size_t live_blocks() {
    return blocks.size();
}

void free_blocks_above(size_t count) {
    while (blocks.size() > count) {
        std::free(blocks.back());
        blocks.pop_back();
    }
}

size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

bool is_mapped(const std::string& prefix) {
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find(prefix) != std::string::npos;
}

}  // namespace hostile

// SPDX-License-Identifier: Apache-2.0
// What the library holds: blocks of the heap, descriptors, mappings of files.
#ifndef SIDEBAND_TESTS_HOSTILE_ACCOUNTS_H
#define SIDEBAND_TESTS_HOSTILE_ACCOUNTS_H

#include <cstddef>
#include <string>

namespace hostile {

/// From now on the library's blocks are counted. Once for a process.
void count_blocks();
/// Those that it has allocated and not freed.
size_t live_blocks();
/// Frees what was allocated since there were so many: of the one call that keeps its block.
void free_blocks_above(size_t count);

/// Descriptors of the process.
size_t open_descriptors();
/// Whether a file whose path begins so is mapped.
bool is_mapped(const std::string& prefix);

}  // namespace hostile

#endif

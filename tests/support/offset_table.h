// SPDX-License-Identifier: Apache-2.0
// The global offset table of libsideband.so as shipped, whose entries others can take the place of.
#ifndef SIDEBAND_TESTS_SUPPORT_OFFSET_TABLE_H
#define SIDEBAND_TESTS_SUPPORT_OFFSET_TABLE_H

#include <span>

namespace test {

/// A function in the place of one that the library calls by name.
struct Substitute {
    const char* name;
    void* function;
    void* original = nullptr;  ///< what had that place, while this one has it
};

template <typename Function>
void* address_of(Function* function) {
    return reinterpret_cast<void*>(function);
}

/// Puts the functions in their places. Those that the library does not call have none. Aborts the
/// test run where libsideband.so is not loaded.
void patch_offsets(std::span<Substitute> substitutes);
/// Puts the originals back: what was patched last goes first.
void restore_offsets(std::span<Substitute> substitutes);

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// Stands underneath libsideband.so as shipped: counts what it calls, and has one call fail.
#ifndef SIDEBAND_TESTS_SWEEP_FAULTS_H
#define SIDEBAND_TESTS_SWEEP_FAULTS_H

#include <sideband/error.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace sweep {

enum class Kind { kAllocation, kPlatform, kLibc };

/// What becomes of a failure.
enum class Shows {
    kNever,  ///< the call does what it did without it
    kMay,    ///< it can be tried again, or was not needed: if it shows, then by one of the causes
    kMust    ///< unless the scenario says that the function can do without
};

/// A function of the platform or of libc that can fail.
struct Import {
    std::vector<const char*> names;  ///< its own one, and what large files or fortified builds have
    Kind kind;
    Shows shows;
    std::vector<uint8_t> causes;  ///< SIDEBAND_CAUSE_... that the record may have
    struct Slot* slot;
    void* stand_in;

    const char* name() const { return names.front(); }
};

/// What a stand-in keeps of the calls that are counted.
struct Slot {
    unsigned calls = 0;
    unsigned failing = 0;   ///< which of them fails; 0: none
    bool for_good = false;  ///< all behind it fail as well
    void* original = nullptr;
};

/// All functions that can fail.
const std::vector<Import>& imports();

/// Whether somebody has said of an undefined symbol that it cannot fail.
bool cannot_fail(const std::string& name);

/// While one lives, the calls of the library go through here. One at a time, and on top of whatever
/// else has been put underneath the library.
class Faults {
public:
    Faults();
    ~Faults();
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    /// Counts the calls from now on.
    /// @param failing   whose call fails; null: nobody's
    /// @param nth       which one, from 1
    /// @param for_good  all behind it too
    static void begin(const Import* failing, unsigned nth, bool for_good);
    /// Counts no more, nothing fails any more. @return whether a call has failed
    static bool end();

    /// Somebody else has the lock of the log file, for so many tries.
    static void keep_lock_busy(unsigned tries);

    /// What the library has taken and not given back.
    static size_t blocks();
    static size_t descriptors();
    static size_t streams();
    static size_t mappings();
    /// Frees and closes all of it, so that the next run begins with nothing.
    static void give_back();
};

/// A directory of the test's own that takes the place of /nv in the library's file calls.
const std::string& own_nv();

/// Calls that one run may make: more is a loop that does not end.
inline constexpr unsigned kCallsMax = 500000;

}  // namespace sweep

#endif

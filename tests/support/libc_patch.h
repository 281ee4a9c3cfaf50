// SPDX-License-Identifier: Apache-2.0
// Substitutes libc underneath libsideband.so as shipped, by rewriting its global offset table.
#ifndef SIDEBAND_TESTS_SUPPORT_LIBC_PATCH_H
#define SIDEBAND_TESTS_SUPPORT_LIBC_PATCH_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace test {

/**
 * While one lives, calls that the shared library makes to libc go through here; calls of the test
 * itself do not. One at a time. What is substituted:
 *
 *  usleep           recorded in sleeps and in the port's trace; takes no time
 *  time             gives now, if that is set
 *  clock_gettime    gives the machine's time; CLOCK_MONOTONIC_COARSE is later_ms ahead of it
 *  system           recorded in commands and the trace; returns system_result
 *  access, fopen, open, rename, unlink
 *                   paths under /nv and /sys/bus/i2c/devices are looked up under root. While root
 *                   is empty, only the paths in present exist, and nothing can be opened
 *  fileno, flock, fstat, fflush, fclose, pread
 *                   pass through
 *  fdopen, close, mmap, munmap
 *                   pass through; what is open and mapped is counted
 *  malloc, calloc, realloc, free
 *                   pass through; the library's live blocks are counted
 *
 * Each can be made to fail: fail["fopen"] = 2 makes the second call from now fail, and only that.
 * Setting a call to kEvery makes all of them fail. errno is then failure_errno.
 */
class LibcPatch {
public:
    static constexpr int kEvery = -1;

    /// Patches. Aborts the test run when libsideband.so is not loaded or a patch cannot be made.
    LibcPatch();
    ~LibcPatch();
    LibcPatch(const LibcPatch&) = delete;
    LibcPatch& operator=(const LibcPatch&) = delete;

    /// The one that lives now, or null.
    static LibcPatch* current();

    std::string root;                   ///< directory that stands for /, no trailing slash
    std::set<std::string> present;      ///< paths that access() finds while root is empty
    std::vector<uint32_t> sleeps;       ///< microseconds of each usleep()
    std::optional<time_t> now;          ///< seconds of time(); empty: those of the machine
    int64_t later_ms = 0;               ///< milliseconds that time limits have come nearer
    std::vector<std::string> commands;  ///< command lines of system()
    int system_result = 0;
    std::map<std::string, int> fail;    ///< which calls fail, by libc name
    int failure_errno = 5;              ///< EIO
    size_t read_at_most = SIZE_MAX;     ///< bytes that one pread() gives
    std::map<std::string, int> calls;   ///< calls so far, by libc name; "open file": those of
                                        ///< open() that were not for the log
    std::vector<std::string> sequence;  ///< the calls by name; allocations and sleeps left out
    /// Done right before a call, by libc name: what somebody else does to the machine meanwhile.
    std::map<std::string, std::function<void()>> before;

    /// Streams that the library has opened, by name or on a descriptor, and not closed.
    size_t open_streams() const { return streams_.size(); }
    /// Closes them, so that a test that wants them open leaks nothing.
    void close_streams();

    /// Descriptors from open() that were not closed nor became streams, and mappings that were not
    /// unmapped.
    size_t open_descriptors() const { return descriptors_.size(); }
    size_t live_mappings() const { return mappings_.size(); }

    /// Heap blocks that the library has allocated and not freed.
    size_t live_blocks() const { return blocks_.size(); }
    /// Frees them all: for calls that by requirement never release what they allocate.
    void release_blocks();
    /// Number of malloc, calloc and realloc calls so far.
    int allocations() const;
    /// The n-th allocation from now fails, whichever function makes it. 0: none.
    void fail_allocation(int n) { failing_allocation_ = n; }

    /// Library use only, through the substituted functions.
    bool must_fail(const char* name);
    bool allocation_must_fail();
    std::string translate(const char* path) const;
    bool pretends(const char* path) const;
    void remember(void* block);
    void forget(void* block);
    void freed(void* block);
    void opened(std::FILE* stream);
    void closed(std::FILE* stream);
    void opened(int descriptor);
    void closed(int descriptor);
    void mapped(void* address, size_t length);
    bool is_mapped(const void* address);
    void unmapped(void* address);

private:
    std::recursive_mutex mutex_;  ///< the library may be called from several threads
    std::set<void*> blocks_;
    std::set<std::FILE*> streams_;
    std::set<int> descriptors_;
    std::map<void*, size_t> mappings_;  ///< length by address
    int failing_allocation_ = 0;
};

}  // namespace test

#endif

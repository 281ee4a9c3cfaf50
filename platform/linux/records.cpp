// SPDX-License-Identifier: Apache-2.0
// The records that all services of the machine share, in a file that each of them maps.
#include "platform/linux/records.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/linux/descriptor.h"

namespace machine {

namespace {

constexpr uint32_t kMagic = 0x53424C32;  // "SBL2"; another one for another layout
constexpr Records::Layout kLayout{kMagic, sizeof(Records), sizeof(pthread_mutex_t), sizeof(void*)};
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kFileMode = 0660;

static_assert(sizeof(pthread_mutex_t) <= sizeof(lx_mutex));

/// @return 0 or an errno; ENOTSUP where the kernel has no robust mutexes
int init_mutex(lx_mutex& mutex) {
    pthread_mutexattr_t attributes;
    int failed = pthread_mutexattr_init(&attributes);
    if (failed != 0) {
        return failed;
    }
    // ERRORCHECK: a thread that takes one twice is told, instead of waiting for itself.
    failed = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    failed =
        failed != 0 ? failed : pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    failed = failed != 0 ? failed : pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    failed = failed != 0
                 ? failed
                 : pthread_mutex_init(reinterpret_cast<pthread_mutex_t*>(&mutex), &attributes);
    pthread_mutexattr_destroy(&attributes);
    return failed;
}

void set(Records& records, const FirstWords& words) {
    records.global_sec_var.mpio_state = words.mpio_state;
    records.global_var.standby_override = words.standby_override;
}

/// @return 0 or an errno
int fill(Records& records, const FirstWords& words) {
    plt_global_var& var = records.global_var;
    plt_global_sec_var& sec_var = records.global_sec_var;
    std::vector<lx_mutex*> mutexes{&var.global_lock, &var.ncsi_lock, &sec_var.eid_mutex,
                                   &sec_var.mpio_mutex};
    for (size_t i = 0; i < PLT_I2C_BUS_COUNT; ++i) {
        mutexes.push_back(&var.bus_mutex[i]);
        mutexes.push_back(&records.i2c_channel[i]);
    }
    for (lx_mutex* mutex : mutexes) {
        if (const int failed = init_mutex(*mutex); failed != 0) {
            return failed;
        }
    }
    set(records, words);
    records.layout = kLayout;
    return 0;
}

std::string reason(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

/// A signal that a service handles is no reason to go without locks.
bool lock(int file) {
    int failed = 0;
    do {
        failed = flock(file, LOCK_EX);
    } while (failed != 0 && errno == EINTR);
    return failed == 0;
}

/// Gives the file its size and all of its pages: a mapping without them would end the process where
/// /run is full. Any signal may interrupt that.
/// @return false with errno set
bool reserve(int file) {
    do {
        errno = posix_fallocate(file, 0, sizeof(Records));
    } while (errno == EINTR);
    return errno == 0;
}

}  // namespace

RecordsFile::~RecordsFile() {
    if (records_ != nullptr) {
        munmap(records_, sizeof(Records));
    }
}

bool RecordsFile::attach(const std::string& folder, const FirstWords& words) {
    trouble_.clear();
    if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        trouble_ = reason(folder);
    } else if (map(folder + "/locks", words)) {
        return true;
    }
    void* own =
        mmap(nullptr, sizeof(Records), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    records_ = own != MAP_FAILED ? static_cast<Records*>(own) : nullptr;
    if (records_ != nullptr) {
        set(*records_, words);
    }
    return false;
}

/// Whoever comes first fills the file, under a lock that ends with its holder. The mapping holds
/// the file open, so that closing the descriptor would not end it.
bool RecordsFile::map(const std::string& path, const FirstWords& words) {
    const Descriptor file(
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, kFileMode));
    struct stat status {};
    if (!file || !lock(file.get()) || fstat(file.get(), &status) != 0) {
        trouble_ = reason(path);
        return false;
    }
    if (!S_ISREG(status.st_mode) ||
        (status.st_size != 0 && status.st_size != static_cast<off_t>(sizeof(Records)))) {
        trouble_ = path + ": is not the lock file of this version";
        return false;
    }
    if (status.st_size == 0) {
        // Services of one group share the file, whatever the umask of its maker.
        fchmod(file.get(), kFileMode);
    }
    void* const mapped =
        reserve(file.get())
            ? mmap(nullptr, sizeof(Records), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0)
            : MAP_FAILED;
    if (mapped == MAP_FAILED) {
        trouble_ = reason(path);
        return false;
    }
    auto* const records = static_cast<Records*>(mapped);
    const bool blank = records->layout == Records::Layout{};
    const int failed = blank ? fill(*records, words) : 0;
    flock(file.get(), LOCK_UN);
    if (failed != 0 || records->layout != kLayout) {
        trouble_ = path + ": " +
                   (failed != 0 ? std::string("robust mutexes: ") + std::strerror(failed)
                                : "is not the lock file of this version");
        munmap(mapped, sizeof(Records));
        return false;
    }
    records_ = records;
    return true;
}

bool RecordsFile::has(const lx_mutex* mutex) const {
    if (records_ == nullptr || !shared()) {
        return false;
    }
    const auto at = reinterpret_cast<uintptr_t>(mutex);
    const auto within = [at](const auto& mutexes) {
        const auto first = reinterpret_cast<uintptr_t>(&mutexes);
        return at >= first && at < first + sizeof mutexes && (at - first) % sizeof(lx_mutex) == 0;
    };
    const plt_global_var& var = records_->global_var;
    const plt_global_sec_var& sec_var = records_->global_sec_var;
    return within(var.bus_mutex) || within(var.global_lock) || within(var.ncsi_lock) ||
           within(sec_var.eid_mutex) || within(sec_var.mpio_mutex) || within(records_->i2c_channel);
}

}  // namespace machine

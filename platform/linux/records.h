// SPDX-License-Identifier: Apache-2.0
// The records that all services of the machine share, in a file that each of them maps.
#ifndef SIDEBAND_LINUX_RECORDS_H
#define SIDEBAND_LINUX_RECORDS_H

#include <sideband/platform.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace machine {

/// What lies in the file. All its mutexes are process-shared and robust.
struct Records {
    /// How the file is laid out, so that a service of another build does not take part.
    struct Layout {
        uint32_t magic;
        uint32_t size;
        uint32_t mutex_size;
        uint32_t pointer_size;
        bool operator==(const Layout&) const = default;
    };
    Layout layout;  ///< written last: a file without it has not been filled
    plt_global_var global_var;
    plt_global_sec_var global_sec_var;
    lx_mutex i2c_channel[PLT_I2C_BUS_COUNT];
    /// Which process has switched the multiplexers of a bus last; guarded by the mutex of the bus.
    uint32_t router[PLT_I2C_BUS_COUNT];
};

/// Words of the records that services change: what they begin with.
struct FirstWords {
    uint8_t mpio_state = 0;
    uint8_t standby_override = 0;
};

class RecordsFile {
public:
    RecordsFile() = default;
    ~RecordsFile();
    RecordsFile(const RecordsFile&) = delete;
    RecordsFile& operator=(const RecordsFile&) = delete;

    /// Maps the file "locks" of a folder; makes both where they are not there yet.
    /// @param words  for a file that is made now
    /// @return false with trouble() set where that fails: get() is then memory of this process
    ///         alone, whose mutexes are none
    bool attach(const std::string& folder, const FirstWords& words);

    Records& get() { return *records_; }
    bool shared() const { return trouble_.empty(); }
    const std::string& trouble() const { return trouble_; }

    /// Whether an address is that of a mutex which can be taken.
    bool has(const lx_mutex* mutex) const;

private:
    bool map(const std::string& path, const FirstWords& words);

    Records* records_ = nullptr;
    std::string trouble_ = "not attached";
};

}  // namespace machine

#endif

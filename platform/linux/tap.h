// SPDX-License-Identifier: Apache-2.0
// A capture of what passes over the machine's MCTP interfaces, in a thread of its own: a firmware
// update is one call of the library, and longer than any buffer of the kernel's.
#ifndef SIDEBAND_LINUX_TAP_H
#define SIDEBAND_LINUX_TAP_H

#include <cstdint>
#include <map>
#include <string>
#include <thread>

#include "platform/linux/descriptor.h"
#include "platform/pcapng/writer.h"

namespace machine {

class Tap {
public:
    Tap() = default;
    ~Tap();
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    /// Writes every MCTP packet from now on to a file, of whichever process.
    /// @return false with error filled, which names the right that is missing if it is one
    bool start(const std::string& path, std::string& error);

    /// Writes what has passed until now, and ends.
    /// @return false with error filled where packets are missing in the file
    bool stop(std::string& error);

private:
    bool open(std::string& error);
    void run();
    void drain();
    bool take();
    uint32_t interface_of(int index);

    Descriptor socket_;
    Descriptor wake_;
    std::thread thread_;
    pcapng::Writer writer_;
    std::map<int, uint32_t> interfaces_;  ///< number in the file by that of the machine
    bool cut_ = false;                    ///< a packet did not fit
};

}  // namespace machine

#endif

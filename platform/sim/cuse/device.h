// SPDX-License-Identifier: Apache-2.0
// A character device that this process makes and serves, by the kernel's CUSE.
#ifndef SIDEBAND_SIM_CUSE_DEVICE_H
#define SIDEBAND_SIM_CUSE_DEVICE_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/board/bytes.h"

namespace sim {

/// What the argument of an ioctl() leads to in its caller's memory. The kernel brings what it is
/// told to bring, and asks again: a handler says all that it can, and acts once everything is
/// there.
class CallerMemory {
public:
    struct Range {
        uint64_t address = 0;
        uint64_t size = 0;
    };

    /// @param came  what the kernel has brought
    /// @param room  bytes of answer that it has made room for
    CallerMemory(ByteView came, size_t room) : came_(came), room_(room) {}

    /// Bytes of the caller's; nothing while they have not come.
    std::optional<ByteView> read(uint64_t address, size_t size);
    /// Room in the caller's memory, for what the answer holds at this place.
    void reserve(uint64_t address, size_t size);

    /// Whether all that was read and reserved is there.
    bool whole() const { return !missing_ && reserved_ <= room_; }
    const std::vector<Range>& reads() const { return reads_; }
    const std::vector<Range>& writes() const { return writes_; }

private:
    ByteView came_;
    size_t room_;
    size_t reserved_ = 0;
    bool missing_ = false;
    std::vector<Range> reads_;
    std::vector<Range> writes_;
};

struct IoctlAnswer {
    int result = 0;  ///< negative: an errno value
    Bytes bytes;     ///< for what was reserved, in that order
};

/// What stands behind a character device. An opening is what one open() has given.
class DeviceNode {
public:
    DeviceNode() = default;
    virtual ~DeviceNode() = default;
    DeviceNode(const DeviceNode&) = delete;
    DeviceNode& operator=(const DeviceNode&) = delete;

    /// @return 0, or a negative errno value
    virtual int read(size_t size, Bytes& bytes);
    /// @return 0 for bytes that were taken, or a negative errno value
    virtual int write(uint64_t opening, ByteView bytes);
    virtual IoctlAnswer ioctl(uint64_t opening, uint32_t command, uint64_t argument,
                              CallerMemory& memory);
    /// What poll() reports.
    /// @param waits  whether the caller waits if that is not enough
    virtual uint32_t events(bool waits);
    virtual void closed(uint64_t) {}
};

class CuseDevice {
public:
    /// Makes /dev/NAME.
    /// @param node  outlives the device
    /// @return null with error filled on failure
    static std::unique_ptr<CuseDevice> make(const std::string& name, DeviceNode& node,
                                            std::string& error);

    /// @param descriptor  of /dev/cuse, which does not block; closed in the end, and the device is
    /// gone
    CuseDevice(int descriptor, std::string name, DeviceNode& node);
    ~CuseDevice();
    CuseDevice(const CuseDevice&) = delete;
    CuseDevice& operator=(const CuseDevice&) = delete;

    int descriptor() const { return descriptor_; }
    /// Whether the kernel has been told what device this is.
    bool is_made() const { return made_; }
    /// Answers all that programs want now. @return false if the kernel has ended it
    bool serve();
    /// Tells those who wait in poll() to look again.
    void wake();

private:
    struct Request;
    void take(ByteView bytes);
    void make_known(const Request& request);
    void open(const Request& request);
    void read(Request& request);
    void write(Request& request);
    void ioctl(Request& request);
    void poll(Request& request);
    void release(Request& request);
    void reply(const Request& request, int result, ByteView bytes = {}) const;
    void send(uint64_t unique, int error, ByteView bytes) const;

    int descriptor_;
    std::string name_;
    DeviceNode& node_;
    Bytes room_;
    bool made_ = false;
    uint64_t openings_ = 0;                 ///< that there have been
    std::map<uint64_t, uint64_t> waiting_;  ///< opening by the kernel's handle of who waits
};

}  // namespace sim

#endif

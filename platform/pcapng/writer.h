// SPDX-License-Identifier: Apache-2.0
// A pcapng file of MCTP packets, as Wireshark reads them: each behind a header of Linux's cooked
// capture.
#ifndef SIDEBAND_PCAPNG_WRITER_H
#define SIDEBAND_PCAPNG_WRITER_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pcapng {

/// What packets pass over.
struct Interface {
    std::string name;
    std::string description;  ///< empty for none
};

/// ARPHRD_MCTP: the kind of an interface.
inline constexpr uint16_t kHardwareMctp = 290;

/// sll_pkttype of a packet that the machine sent, and of one that it received.
inline constexpr uint8_t kSent = 4;
inline constexpr uint8_t kReceived = 0;

struct Packet {
    uint32_t interface = 0;  ///< counted from 0 in the order of Writer::add()
    uint64_t at_ns = 0;      ///< since 1970
    uint8_t type = kReceived;
    uint32_t index = 0;                ///< the machine's number of the interface
    std::span<const uint8_t> address;  ///< of the link layer, at most 8 bytes
    std::span<const uint8_t> bytes;    ///< from the MCTP transport header on
    std::string comment;               ///< empty for none
};

class Writer {
public:
    Writer() = default;
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Opens the file and describes the interfaces that are known already. A FIFO must have its
    /// reader already.
    /// @return false with error filled on failure
    bool start(const std::string& path, std::string_view application,
               const std::vector<Interface>& interfaces, std::string& error);

    bool is_open() const { return file_ != nullptr; }

    /// Describes one more interface, in front of its first packet.
    void add(const Interface& interface);

    /// Appends a packet; does nothing while no file is open.
    void packet(const Packet& packet);

    /// Brings what was appended so far into the file, for those who read along.
    void flush();

    /// @return false if a write had failed
    bool stop();

private:
    void block(uint32_t type, std::span<const uint8_t> body);

    std::FILE* file_ = nullptr;
    bool failed_ = false;
};

}  // namespace pcapng

#endif

// SPDX-License-Identifier: Apache-2.0
// A pcapng file of MCTP packets, as Wireshark reads them: each behind a header of Linux's cooked
// capture.
#include "platform/pcapng/writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace pcapng {

namespace {

// Block types, option codes and link types of pcapng.
constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint16_t kOptionEnd = 0;
constexpr uint16_t kOptionComment = 1;
constexpr uint16_t kOptionInterfaceName = 2;
constexpr uint16_t kOptionInterfaceDescription = 3;
constexpr uint16_t kOptionUserApplication = 4;
constexpr uint16_t kOptionPacketFlags = 2;
constexpr uint16_t kOptionTimeResolution = 9;
constexpr uint16_t kLinkTypeLinuxSll2 = 276;
constexpr size_t kOptionMax = 0xFFFF;

// The SLL2 header, in network byte order.
constexpr uint16_t kProtocolMctp = 0x00FA;
constexpr size_t kAddressField = 8;

/// The body of a block: fields of the file's byte order, which is little-endian, and the options
/// behind them.
class Body {
public:
    void le16(uint16_t value) {
        bytes_.push_back(static_cast<uint8_t>(value));
        bytes_.push_back(static_cast<uint8_t>(value >> 8));
    }
    void le32(uint32_t value) {
        le16(static_cast<uint16_t>(value));
        le16(static_cast<uint16_t>(value >> 16));
    }
    void padded(std::span<const uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        while (bytes_.size() % 4 != 0) {
            bytes_.push_back(0);
        }
    }
    /// @param value  at most kOptionMax bytes
    void option(uint16_t code, std::span<const uint8_t> value) {
        le16(code);
        le16(static_cast<uint16_t>(value.size()));
        padded(value);
    }
    void option(uint16_t code, std::string_view whole);
    void end_options() { option(kOptionEnd, std::span<const uint8_t>{}); }

    std::span<const uint8_t> bytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
};

/// The front of a text that an option has room for, as its length has 16 bits: cut where a
/// character begins, which is where no byte of UTF-8 goes on with one.
std::string_view fitting(std::string_view text) {
    if (text.size() <= kOptionMax) {
        return text;
    }
    size_t end = kOptionMax;
    while (end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    return text.substr(0, end);
}

void Body::option(uint16_t code, std::string_view whole) {
    const std::string_view text = fitting(whole);
    option(code, std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

Body section_header(std::string_view application) {
    Body body;
    body.le32(0x1A2B3C4D);  // byte order magic
    body.le16(1);           // version 1.0
    body.le16(0);
    body.le32(0xFFFFFFFF);  // section length not given
    body.le32(0xFFFFFFFF);
    body.option(kOptionUserApplication, application);
    body.end_options();
    return body;
}

Body interface_description(const Interface& interface) {
    Body body;
    body.le16(kLinkTypeLinuxSll2);
    body.le16(0);
    body.le32(0);  // packets are never cut
    body.option(kOptionInterfaceName, interface.name);
    if (!interface.description.empty()) {
        body.option(kOptionInterfaceDescription, interface.description);
    }
    const uint8_t nanoseconds = 9;
    body.option(kOptionTimeResolution, std::span(&nanoseconds, 1));
    body.end_options();
    return body;
}

void append_be16(std::vector<uint8_t>& out, uint32_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

std::vector<uint8_t> linux_sll2(const Packet& packet) {
    std::vector<uint8_t> out;
    append_be16(out, kProtocolMctp);
    append_be16(out, 0);
    append_be16(out, packet.index >> 16);
    append_be16(out, packet.index);
    append_be16(out, kHardwareMctp);
    out.push_back(packet.type);
    const size_t length = std::min(packet.address.size(), kAddressField);
    out.push_back(static_cast<uint8_t>(length));
    out.insert(out.end(), packet.address.begin(),
               packet.address.begin() + static_cast<ptrdiff_t>(length));
    out.resize(out.size() + kAddressField - length);
    return out;
}

/// Opens a file to write without waiting: a FIFO that nobody reads would hold the caller. Writing
/// to what has been opened waits as usual.
std::FILE* open_for_writing(const std::string& path, std::string& error) {
    constexpr mode_t kReadWriteForAll = 0666;  // less the umask
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
             kReadWriteForAll);
    struct stat status {};
    if (descriptor < 0) {
        const int why = errno;
        const bool fifo = stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
        error =
            path + ": " + (why == ENXIO && fifo ? "nobody reads this FIFO" : std::strerror(why));
        return nullptr;
    }
    std::FILE* const file = fcntl(descriptor, F_SETFL, 0) == 0 ? fdopen(descriptor, "wb") : nullptr;
    if (file == nullptr) {
        error = path + ": " + std::strerror(errno);
        close(descriptor);
    }
    return file;
}

}  // namespace

Writer::~Writer() {
    stop();
}

bool Writer::start(const std::string& path, std::string_view application,
                   const std::vector<Interface>& interfaces, std::string& error) {
    stop();
    file_ = open_for_writing(path, error);
    if (file_ == nullptr) {
        return false;
    }
    failed_ = false;
    block(kSectionHeader, section_header(application).bytes());
    for (const Interface& interface : interfaces) {
        add(interface);
    }
    if (std::fflush(file_) != 0 || failed_) {
        error = path + ": " + std::strerror(errno);
        stop();
        return false;
    }
    return true;
}

void Writer::add(const Interface& interface) {
    if (file_ != nullptr) {
        block(kInterfaceDescription, interface_description(interface).bytes());
    }
}

void Writer::packet(const Packet& packet) {
    if (file_ == nullptr) {
        return;
    }
    std::vector<uint8_t> data = linux_sll2(packet);
    data.insert(data.end(), packet.bytes.begin(), packet.bytes.end());

    Body body;
    body.le32(packet.interface);
    body.le32(static_cast<uint32_t>(packet.at_ns >> 32));
    body.le32(static_cast<uint32_t>(packet.at_ns));
    body.le32(static_cast<uint32_t>(data.size()));
    body.le32(static_cast<uint32_t>(data.size()));
    body.padded(data);
    if (!packet.comment.empty()) {
        body.option(kOptionComment, packet.comment);
    }
    Body flags;
    flags.le32(packet.type == kSent ? 2 : 1);
    body.option(kOptionPacketFlags, flags.bytes());
    body.end_options();
    block(kEnhancedPacket, body.bytes());
}

void Writer::flush() {
    if (file_ != nullptr && std::fflush(file_) != 0) {
        failed_ = true;
    }
}

bool Writer::stop() {
    if (file_ == nullptr) {
        return true;
    }
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return closed && !failed_;
}

void Writer::block(uint32_t type, std::span<const uint8_t> body) {
    Body out;
    const auto length = static_cast<uint32_t>(body.size() + 12);
    out.le32(type);
    out.le32(length);
    out.padded(body);
    out.le32(length);
    const std::span<const uint8_t> bytes = out.bytes();
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
        failed_ = true;
    }
}

}  // namespace pcapng

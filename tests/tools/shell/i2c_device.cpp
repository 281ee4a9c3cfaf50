// SPDX-License-Identifier: Apache-2.0
// Preloaded into the tool: an I2C device that answers into a slave queue, as the environment says.
// SIDEBAND_TEST_I2C is nack, silent, tid, code, short, wrong-tag or wrong-pec; SIDEBAND_TEST_QUEUE
// names the queue, a FIFO.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <stdarg.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

constexpr uint8_t kBmc = 0x20;
constexpr uint8_t kEid = 9;

std::string_view behaviour() {
    const char* const text = std::getenv("SIDEBAND_TEST_I2C");
    return text != nullptr ? text : "";
}

/// Open from the beginning, so that the queue has somebody who may still write.
const int kQueue = [] {
    const char* const path = std::getenv("SIDEBAND_TEST_QUEUE");
    return path != nullptr ? open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC) : -1;
}();

uint8_t pec_of(const uint8_t* bytes, size_t count, unsigned crc) {
    for (size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
    }
    return static_cast<uint8_t>(crc);
}

/// Get Endpoint ID and GetTID have an answer each, all else a code that says that it is unknown.
/// @param request  from the type byte on
/// @return bytes written to body
size_t answer_to(const uint8_t* request, uint8_t* body) {
    const bool is_pldm = request[0] == 1;
    size_t length = 0;
    body[length++] = request[0];
    body[length++] = request[1] & 0x1F;
    body[length++] = request[2];
    if (is_pldm) {
        body[length++] = request[3];
    }
    const bool known = is_pldm ? request[3] == 2 && behaviour() != "code" : request[2] == 2;
    body[length++] = known ? 0 : 5;
    if (known && is_pldm) {
        body[length++] = 1;
    } else if (known) {
        body[length++] = kEid;
        body[length++] = 0;
        body[length++] = 0;
    }
    return behaviour() == "short" ? 3 : length;
}

/// What the device writes to the BMC: one packet in one block.
void answer(const i2c_msg& asked) {
    uint8_t block[32] = {0x0F, 0, static_cast<uint8_t>(asked.addr << 1 | 1), 1, asked.buf[5], kEid};
    block[6] = static_cast<uint8_t>((asked.buf[6] & 0xC7) ^ (behaviour() == "wrong-tag" ? 2 : 0));
    size_t length = 7 + answer_to(asked.buf + 7, block + 7);
    block[1] = static_cast<uint8_t>(length - 2);
    block[length] = pec_of(block, length, pec_of(&kBmc, 1, 0)) ^
                    static_cast<uint8_t>(behaviour() == "wrong-pec" ? 0x10 : 0);
    ++length;
    [[maybe_unused]] const ssize_t written = write(kQueue, block, length);
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request != I2C_RDWR) {
        return reinterpret_cast<int (*)(int, unsigned long, void*)>(dlsym(RTLD_NEXT, "ioctl"))(
            fd, request, argument);
    }
    if (behaviour() == "nack") {
        errno = ENXIO;
        return -1;
    }
    const auto* const all = static_cast<const i2c_rdwr_ioctl_data*>(argument);
    constexpr uint16_t kShortest = 10;
    if (behaviour() != "silent" && all->msgs[0].len >= kShortest) {
        answer(all->msgs[0]);
    }
    return 1;
}

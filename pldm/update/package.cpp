// SPDX-License-Identifier: Apache-2.0
// Firmware update package files (DSP0267, package header format 1.0): checked and copied.
#include <fcntl.h>
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fw_update.h>
#include <sideband/pldm_monitor.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/crc.h"
#include "common/error.h"
#include "common/file.h"
#include "common/memory.h"
#include "common/output.h"
#include "common/printable.h"
#include "common/wire.h"
#include "pldm/message.h"
#include "pldm/update/package.h"

using namespace sideband;

namespace {

using Bytes = std::span<const uint8_t>;

/// PackageHeaderIdentifier of format 1.0: F018878C-CB7D-4943-9800-A02F059ACA02.
constexpr uint8_t kIdentifier[] = {0xF0, 0x18, 0x87, 0x8C, 0xCB, 0x7D, 0x49, 0x43,
                                   0x98, 0x00, 0xA0, 0x2F, 0x05, 0x9A, 0xCA, 0x02};
constexpr size_t kFixedHeaderSize = 36;
constexpr size_t kReleaseDateTimeSize = 13;
constexpr size_t kRecordHeaderSize = 11;
constexpr size_t kChecksumSize = 4;

/// How far into a file a parse can get: a descriptor of any length that begins inside the largest
/// header ends before.
constexpr size_t kReach = 0x20000;

/// Most bytes of descriptors and package data that are copied: four of the largest headers. Records
/// may overlap, and could together be five hundred times as large as the file.
constexpr size_t kCopiesMax = size_t{4} * 0x10000;

/// Reads a package header front to back into a context. Each step is false if it failed; it has
/// said why then.
class Parser {
public:
    Parser(Bytes file, pldm_fw_update_ctx& ctx) : file_(file), reader_(file), ctx_(ctx) {}

    bool parse() {
        return read_identifier() && read_header() && read_records() && read_components() &&
               compare_checksum();
    }

private:
    bool read_identifier();
    bool read_header();
    bool read_records();
    bool read_record(unsigned index);
    bool read_record_header(pldm_device_record& record, uint8_t& type, uint8_t& length);
    bool read_bitmap(pldm_device_record& record);
    bool read_set_version(pldm_device_record& record, uint8_t type, uint8_t length);
    bool read_descriptors(pldm_device_record& record);
    bool read_package_data(pldm_device_record& record);
    bool read_components();
    bool read_component(uint8_t*& copy);
    bool compare_checksum();

    /// The next bytes, which may lie behind the limit, but not behind the end of the file.
    bool take(size_t count, Bytes& bytes);
    /// Whether what has been read is inside the header; reaching its end is allowed.
    bool check() const;
    bool count_copy(size_t size);
    size_t position() const { return file_.size() - reader_.remaining(); }
    /// A copy of what has been read since a position.
    uint8_t* copy_since(size_t start, size_t zeros_behind) const;

    Bytes file_;
    WireReader reader_;
    pldm_fw_update_ctx& ctx_;
    size_t bitmap_size_ = 0;
    size_t copied_ = 0;
    int32_t limit_ = 0;  ///< where the checksum is in a well-formed header
};

bool refuse() {
    print_line("boundary check failed");
    return false;
}

/// Whether there was memory. If not the context says so.
bool have(const void* block, pldm_fw_update_ctx& ctx) {
    if (block == nullptr) {
        ctx.last_error = error_of(SIDEBAND_CAUSE_MEMORY, SIDEBAND_STEP_FILE);
    }
    return block != nullptr;
}

char* text_of(Bytes bytes) {
    return reinterpret_cast<char*>(copy_bytes(bytes, 1).release());
}

bool Parser::take(size_t count, Bytes& bytes) {
    bytes = reader_.bytes(count);
    return reader_.ok() || refuse();
}

bool Parser::check() const {
    return static_cast<int64_t>(position()) <= limit_ || refuse();
}

uint8_t* Parser::copy_since(size_t start, size_t zeros_behind) const {
    return copy_bytes(file_.first(position()).subspan(start), zeros_behind).release();
}

bool Parser::count_copy(size_t size) {
    copied_ += size;
    return copied_ <= kCopiesMax || refuse();
}

bool Parser::read_identifier() {
    // Later header formats have identifiers of their own, so that none of them gets past this.
    if (file_.size() < sizeof kIdentifier ||
        std::memcmp(file_.data(), kIdentifier, sizeof kIdentifier) != 0) {
        print_on_console("package header id mismatch!\n");
        return false;
    }
    print_line("package header id passed!");
    return true;
}

bool Parser::read_header() {
    Bytes fixed;
    if (!take(kFixedHeaderSize, fixed)) {
        return false;
    }
    WireReader reader(fixed);
    reader.skip(sizeof kIdentifier);
    const uint8_t revision = reader.u8();
    print("Header format version is %x\n", revision);
    if (revision == 1) {
        print_on_console("Header format version 1.0.x\n");
    } else if (revision == 2) {
        print_on_console("Header format version 1.1.x\n");
    }
    const uint16_t header_size = reader.le16();
    limit_ = header_size - static_cast<int32_t>(kChecksumSize);
    reader.skip(kReleaseDateTimeSize);
    const uint16_t bitmap_bits = reader.le16();
    bitmap_size_ = bitmap_bits / 8;
    const uint8_t type = reader.u8();
    const uint8_t length = reader.u8();
    print(
        "header length %d\n"
        "component bitmap len %d\n"
        "header string type %x\n"
        "header string length %d\n",
        header_size, bitmap_bits, type, length);
    Bytes version;
    if (!take(length, version)) {
        return false;
    }
    print("ver string: %s\n", Printable(version).text());
    ctx_.package_version_string = text_of(version);  // An update does without if memory is out.
    return true;
}

bool Parser::read_records() {
    Bytes count;
    if (!take(1, count)) {
        return false;
    }
    print("device id count %d\n", count[0]);
    ctx_.device_record_num = count[0];
    ctx_.records =
        static_cast<pldm_device_record*>(std::calloc(count[0], sizeof(pldm_device_record)));
    if (!have(ctx_.records, ctx_) || !check()) {
        return false;
    }
    for (unsigned i = 0; i < count[0]; ++i) {
        print("======device record %u=======\n", i);
        if (!read_record(i)) {
            return false;
        }
    }
    return true;
}

void print_package_data(const pldm_device_record& record) {
    const Bytes data(record.package_data,
                     record.package_data != nullptr ? record.package_data_len : 0);
    print_printable(data);
    Output out;
    out.print("\n");
    out.print_hex(data);
    out.print(record.package_data_len > 0 ? "\n" : "");
}

void print_record(unsigned index, const pldm_device_record& record) {
    print(
        "ctx->records[%u]\n"
        "record_len            = %d\n"
        "package_data_len      = %d\n"
        "desc_num              = %d\n"
        "applicable_components = 0x%x\n"
        "component_image_set_ver_string_type = 0x%x\n"
        "component_image_set_ver_string_len  = %d\n"
        "image_version_string  = %s\n"
        "package_data          = ",
        index, record.record_len, record.package_data_len, record.desc_num,
        record.applicable_components, record.component_image_set_ver_string_type,
        record.component_image_set_ver_string_len, Printable(record.image_version_string).text());
    print_package_data(record);
    const uint8_t* descriptor = record.descriptors;
    for (unsigned i = 0; i < record.desc_num; ++i) {
        if (pldm_parse_record_descriptors(descriptor) != 0) {
            print_line("parse descriptot fail");
            return;
        }
        descriptor += Descriptor(descriptor).size();
    }
}

bool Parser::read_record(unsigned index) {
    if (index >= ctx_.device_record_num) {
        print_on_console("device record index is out of range.\n");
        return false;
    }
    pldm_device_record& record = ctx_.records[index];
    const WireReader start = reader_;
    uint8_t type = 0;
    uint8_t length = 0;
    if (!read_record_header(record, type, length) || !read_bitmap(record) ||
        !read_set_version(record, type, length) || !read_descriptors(record) ||
        !read_package_data(record)) {
        return false;
    }
    print_record(index, record);
    // Deliberately by the stated length, not by the sizes walked: records may be padded.
    Bytes whole;
    reader_ = start;
    return take(record.record_len, whole) && check();
}

bool Parser::read_record_header(pldm_device_record& record, uint8_t& type, uint8_t& length) {
    Bytes fixed;
    if (!take(kRecordHeaderSize, fixed)) {
        return false;
    }
    WireReader reader(fixed);
    uint8_t options[4];
    record.record_len = reader.le16();
    record.desc_num = reader.u8();
    reader.copy(options);
    type = reader.u8();
    length = reader.u8();
    record.package_data_len = reader.le16();
    print(
        "record length %d\n"
        "desc count %d\n"
        "device update options %d %d %d %d\n"
        "component set ver string type: %d\n"
        "component set ver string len: %d\n"
        "fw package data len: %d\n",
        record.record_len, record.desc_num, options[0], options[1], options[2], options[3], type,
        length, record.package_data_len);
    return true;
}

bool Parser::read_bitmap(pldm_device_record& record) {
    print("Applicable components: ");
    Bytes bitmap;
    if (!take(bitmap_size_, bitmap) || !check()) {
        return false;
    }
    // An update knows 32 components at most: bytes beyond the fourth are left out on purpose.
    std::array<uint8_t, 4> known{};
    WireWriter(known).bytes(bitmap.first(std::min(bitmap.size(), known.size())));
    record.applicable_components = WireReader(known).le32();
    print_line("");
    return true;
}

bool Parser::read_set_version(pldm_device_record& record, uint8_t type, uint8_t length) {
    Bytes version;
    if (!take(length, version)) {
        return false;
    }
    print("Component iamge st Ver String: %s\n", Printable(version).text());
    record.image_version_string = text_of(version);
    if (!have(record.image_version_string, ctx_)) {
        return false;
    }
    record.component_image_set_ver_string_type = type;
    record.component_image_set_ver_string_len = length;
    return check();
}

bool Parser::read_descriptors(pldm_device_record& record) {
    const size_t start = position();
    for (unsigned i = 0; i < record.desc_num; ++i) {
        print("**************record desc %u**************\n", i);
        const Descriptor descriptor(reader_);
        if (!reader_.ok()) {
            return refuse();
        }
        print(descriptor);
        if (!check()) {
            return false;
        }
    }
    if (!count_copy(position() - start)) {
        return false;
    }
    record.descriptors = copy_since(start, 0);
    return have(record.descriptors, ctx_);
}

bool Parser::read_package_data(pldm_device_record& record) {
    ctx_.package_data_len = record.package_data_len;
    print("firmware package data: ");
    Bytes data;
    if (!take(record.package_data_len, data) || !check() || !count_copy(data.size())) {
        return false;
    }
    record.package_data =
        copy_bytes(data, 1).release();  // An update does without if memory is out.
    dump_packet(data.data(), record.package_data_len);
    return true;
}

bool Parser::read_components() {
    Bytes count_field;
    if (!take(2, count_field)) {
        return false;
    }
    const uint16_t count = WireReader(count_field).le16();
    print("component image count %d\n", count);
    ctx_.component_num = count;
    ctx_.component_images = static_cast<uint8_t**>(std::calloc(count, sizeof(uint8_t*)));
    if (!have(ctx_.component_images, ctx_) || (count == 0 && !check())) {
        return false;
    }
    for (unsigned i = 0; i < count; ++i) {
        print("+++++++++++++++component image %u++++++++\n", i);
        if (!read_component(ctx_.component_images[i])) {
            return false;
        }
    }
    return true;
}

/// Keeps an entry whose bytes are all in the file, even if the header ends inside it.
bool Parser::read_component(uint8_t*& copy) {
    const size_t start = position();
    Bytes part;
    if (!take(PLDM_COMPONENT_IMAGE_SIZE, part) || !take(part.back(), part)) {
        return false;
    }
    copy = copy_since(start, 1);
    return have(copy, ctx_) && check();
}

bool Parser::compare_checksum() {
    // The stored checksum is expected behind the last entry, wherever the header size points.
    const uint32_t stored = reader_.le32();
    if (reader_.ok() && file_.size() >= static_cast<size_t>(limit_) &&
        stored == crc32(0, file_.first(static_cast<size_t>(limit_)))) {
        return true;
    }
    print_line("checksum checking failed.");
    return false;
}

/// Puts a private copy of the header in the place of its mapping, which then nobody can change or
/// cut underneath the parser: a mapping reaching behind the end of its file ends the process.
/// @return what was read; empty on failure
Bytes own_header(int descriptor, void* mapping, size_t length) {
    const size_t size = std::min(length, kReach);
    void* const own =
        mmap(mapping, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    if (own == MAP_FAILED) {
        return {};
    }
    auto* const bytes = static_cast<uint8_t*>(own);
    return {bytes, read_file(descriptor, 0, {bytes, size})};
}

bool parse(int descriptor, void* mapping, size_t length, pldm_fw_update_ctx& ctx) {
    const Bytes file = own_header(descriptor, mapping, length);
    if (file.empty()) {
        debug_log("%s, can't read %s\n", "pldm_parse_file", ctx.package_file);
        return false;
    }
    return Parser(file, ctx).parse() &&
           ((ctx.strict & MCTP_STRICT_PACKAGE) == 0 || is_strict_package(file, length, ctx));
}

bool is_regular(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

bool sideband::map_file(const char* path, MappedFile& file) {
    // As open_regular(), but what is no regular file counts as one that cannot be mapped.
    File opened(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened) {
        print_formatted("can't open file %s\n", path);
        return false;
    }
    FileStamp stamp{};
    void* mapping = MAP_FAILED;
    if (is_regular(opened.descriptor()) && stamp_of(opened.descriptor(), stamp) &&
        stamp.size <= SIZE_MAX) {
        mapping = mmap(nullptr, static_cast<size_t>(stamp.size), PROT_READ, MAP_PRIVATE,
                       opened.descriptor(), 0);
    }
    if (mapping == MAP_FAILED) {
        print_formatted("can't map the file %s\n", path);
        return false;
    }
    file = {opened.release(), mapping, static_cast<size_t>(stamp.size), stamp};
    return true;
}

int32_t open_pldm_file(const char* path, void** addr, size_t* len) {
    MappedFile file;
    if (path == nullptr || addr == nullptr || len == nullptr || !map_file(path, file)) {
        return -1;
    }
    *addr = file.address;
    *len = file.size;
    return file.descriptor;
}

int32_t close_pldm_file(int32_t descriptor, void* addr, size_t len) {
    if (munmap(addr, len) != 0) {
        std::perror("Error unmmapping");
    }
    close(descriptor);
    return 0;
}

uint32_t CRC32(uint32_t crc, const uint8_t* buffer, size_t length) {
    return crc32(crc, {buffer, length});
}

int32_t pldm_parse_file(const char* path, pldm_fw_update_ctx* ctx) {
    if (ctx == nullptr) {
        return -1;
    }
    if (path == nullptr) {
        ctx->last_error = kArgumentError;
        return -1;
    }
    ctx->last_error = error_of(SIDEBAND_CAUSE_FILE, SIDEBAND_STEP_FILE);
    MappedFile file;
    if (!map_file(path, file)) {
        print_line("open_file_fail");
        return -1;
    }
    release_package(*ctx);
    ctx->package_file = path;
    ctx->package_size = file.size;
    std::memcpy(ctx->package_stamp, &file.stamp, sizeof file.stamp);
    const int32_t result = parse(file.descriptor, file.address, file.size, *ctx) ? 0 : -1;
    if (result == 0) {
        ctx->last_error = kNoError;
    }
    close_pldm_file(file.descriptor, file.address, file.size);
    print_on_console("[RUWA][%s]res=%d \n", "pldm_parse_file", result);
    return result;
}

int32_t pldm_parse_component_image(const void* /*ignored*/, const uint8_t* entry) {
    if (entry == nullptr) {
        return 0;
    }
    WireReader reader({entry, PLDM_COMPONENT_IMAGE_SIZE});
    const auto print_pair = [&reader](const char* name) {
        const uint8_t low = reader.u8();
        print_formatted("%s: %x %x\n", name, low, reader.u8());
    };
    const auto print_long = [&reader](const char* name) {
        print_formatted("%s %lx\n", name, static_cast<unsigned long>(reader.le32()));
    };
    print_formatted("classification: %x\n", reader.le16());
    print_formatted("identifier: %x\n", reader.le16());
    print_long("comparison stamp:");
    print_pair("option");
    print_pair("activation_method");
    print_long("offset:");
    print_long("size: ");
    print_formatted("ver_string_type: %d\n", reader.u8());
    const uint8_t length = reader.u8();
    print_formatted("ver_string_length: %x\n", length);
    print_formatted("ver_string: %s\n",
                    Printable({entry + PLDM_COMPONENT_IMAGE_SIZE, length}).text());
    return 0;
}

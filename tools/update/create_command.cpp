// SPDX-License-Identifier: Apache-2.0
// The command pkg create: a firmware update package of a description and images.
#include <fmt/format.h>
#include <sideband/pldm_fw_update.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/shell/new_file.h"
#include "tools/shell/text.h"
#include "tools/update/commands.h"
#include "tools/update/input_file.h"
#include "tools/update/metadata.h"

namespace tool {
namespace {

Failure unwritable(const std::string& path, const std::string& why = std::strerror(errno)) {
    return {ExitStatus::kFailed, path + ": cannot be written: " + why};
}

struct Image {
    std::string path;
    OpenFile file;
    uint32_t size = 0;
};

Image open_image(const std::string& path) {
    uint64_t size = 0;
    OpenFile file = open_regular_file(path, size);
    if (size == 0 || size > UINT32_MAX) {
        throw unusable(
            path, fmt::format("an image has 1 to {} bytes, this one has {}", UINT32_MAX, size));
    }
    return {.path = path, .file = std::move(file), .size = static_cast<uint32_t>(size)};
}

/// What stands at the name is replaced, and must not be a device or a FIFO that others use.
void require_replaceable(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            throw unwritable(path);
        }
    } else if (!S_ISREG(status.st_mode)) {
        throw unwritable(
            path, S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "this is no regular file");
    }
}

/// The package's file while it is made: an image that is to be overwritten is read before.
class PackageFile {
public:
    explicit PackageFile(const std::string& path) : path_(path), file_(path) {
        require(file_.is_open());
    }

    const std::string& made() const { return file_.made(); }
    void write(const uint8_t* bytes, size_t size) const { require(file_.write(bytes, size)); }
    void finish() { require(file_.finish()); }

private:
    void require(bool works) const {
        if (!works) {
            throw unwritable(path_);
        }
    }

    std::string path_;
    NewFile file_;
};

/// Copies as many bytes as the image had when the header was made.
void copy(const Image& image, const PackageFile& out) {
    std::vector<uint8_t> block(1 << 16);
    for (uint64_t left = image.size; left > 0;) {
        const size_t got =
            std::fread(block.data(), 1, std::min<uint64_t>(left, block.size()), image.file.get());
        if (got == 0) {
            throw unusable(image.path, std::ferror(image.file.get()) != 0
                                           ? std::strerror(errno)
                                           : "it has been cut meanwhile");
        }
        out.write(block.data(), got);
        left -= got;
    }
}

/// The header, once with places that count from its own end, then with the right ones.
std::vector<uint8_t> build_header(Package& package, const std::vector<Image>& images,
                                  const std::string& metadata) {
    for (size_t i = 0; i < images.size(); ++i) {
        package.components[i].size = images[i].size;
        package.components[i].location_offset = 0;
    }
    const uint64_t size = build_package(package).size();
    if (size > UINT16_MAX) {
        throw unusable(metadata, fmt::format("makes a package header of {} bytes, more than {}",
                                             size, UINT16_MAX));
    }
    uint64_t place = size;
    for (size_t i = 0; i < images.size(); ++i) {
        if (place > UINT32_MAX) {
            throw unusable(images[i].path, fmt::format("the image would begin at byte {}, behind "
                                                       "the last that a package can name",
                                                       place));
        }
        package.components[i].location_offset = static_cast<uint32_t>(place);
        place += images[i].size;
    }
    return build_package(package);
}

/// Has the library read what was made, by the letter of the standard.
void check_package(const std::string& made, const std::string& metadata) {
    pldm_fw_update_ctx context{};
    context.strict = MCTP_STRICT_PACKAGE;
    const bool good = pldm_parse_file(made.c_str(), &context) == 0;
    pldm_free_ctx_resource(&context);
    if (!good) {
        throw unusable(metadata, "the library refuses the package that this describes");
    }
}

}  // namespace

void run_pkg_create(Context& context, const PackageRecipe& recipe) {
    Package package = read_metadata(recipe.metadata, recipe.images.size());
    std::vector<Image> images;
    for (const std::string& path : recipe.images) {
        images.push_back(open_image(path));
    }
    const std::vector<uint8_t> header = build_header(package, images, recipe.metadata);
    require_replaceable(recipe.package);
    PackageFile out(recipe.package);
    out.write(header.data(), header.size());
    uint64_t size = header.size();
    for (const Image& image : images) {
        copy(image, out);
        size += image.size;
    }
    check_package(out.made(), recipe.metadata);
    out.finish();
    context.output.text(fmt::format("{}: {} in {}\n", printable(recipe.package),
                                    counted(size, "byte"), counted(images.size(), "component")));
    context.output.document({{"package", recipe.package},
                             {"size", size},
                             {"header_size", header.size()},
                             {"components", images.size()}});
}

}  // namespace tool

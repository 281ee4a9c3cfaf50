// SPDX-License-Identifier: Apache-2.0
// A file that takes its name when it is whole.
#ifndef SIDEBAND_TOOLS_SHELL_NEW_FILE_H
#define SIDEBAND_TOOLS_SHELL_NEW_FILE_H

#include <cstddef>
#include <string>

namespace tool {

/// Made under a name of its own, in the same folder, so that nobody finds half of it, and what
/// stands at its name stays until then. One that is not finished is gone with its scope. errno
/// tells why something failed.
class NewFile {
public:
    explicit NewFile(const std::string& path);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Whether it could be made.
    bool is_open() const { return file_ >= 0; }

    /// Its name until it is finished.
    const std::string& made() const { return made_; }

    bool write(const void* bytes, size_t size) const;

    /// Gives it the name and the rights that it is to have.
    bool finish();

private:
    std::string path_;
    std::string made_;
    int file_;
    bool done_ = false;
};

}  // namespace tool

#endif

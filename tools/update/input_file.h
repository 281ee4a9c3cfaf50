// SPDX-License-Identifier: Apache-2.0
// Input files of the commands: packages and images.
#ifndef SIDEBAND_TOOLS_UPDATE_INPUT_FILE_H
#define SIDEBAND_TOOLS_UPDATE_INPUT_FILE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "tools/shell/failure.h"

namespace tool {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<FILE, CloseFile>;

/// The failure of a file that cannot be used: "PATH: WHY".
Failure unusable(const std::string& path, const std::string& why);

/// Opens a regular file. Nothing is waited for: a FIFO would have the tool wait for its other end.
/// Throws Failure.
/// @param size  receives the file's size
OpenFile open_regular_file(const std::string& path, uint64_t& size);

}  // namespace tool

#endif

// SPDX-License-Identifier: Apache-2.0
// The description of a firmware update package in JSON, as it is written for package creators.
#ifndef SIDEBAND_TOOLS_UPDATE_METADATA_H
#define SIDEBAND_TOOLS_UPDATE_METADATA_H

#include <cstddef>
#include <string>

#include "testing/package_builder.h"

namespace tool {

/// The package that a file describes, but for its images: their places and sizes are those of empty
/// ones. Throws Failure with file, line and key of the first thing that is wrong.
/// @param images  how many there are; the file must describe as many components
Package read_metadata(const std::string& path, size_t images);

}  // namespace tool

#endif

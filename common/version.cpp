// SPDX-License-Identifier: Apache-2.0
// The version that the library was built as.
#include <sideband/version.h>

const char* sideband_version(void) {
    return SIDEBAND_VERSION_STRING;
}

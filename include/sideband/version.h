/* SPDX-License-Identifier: Apache-2.0 */
/* The version of these headers, and that of the library which a process runs with. */
#ifndef SIDEBAND_VERSION_H
#define SIDEBAND_VERSION_H

#include <sideband/export.h>

SIDEBAND_BEGIN_DECLS

/** The version of these headers (Semantic Versioning). docs/abi.md tells what each part promises.
 */
#define SIDEBAND_VERSION_MAJOR 0
#define SIDEBAND_VERSION_MINOR 1
#define SIDEBAND_VERSION_PATCH 0
#define SIDEBAND_VERSION_STRING "0.1.0"

/** A version as one number, to compare with. */
#define SIDEBAND_VERSION_NUMBER(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/** The version of these headers as one number. */
#define SIDEBAND_VERSION_CURRENT \
    SIDEBAND_VERSION_NUMBER(SIDEBAND_VERSION_MAJOR, SIDEBAND_VERSION_MINOR, SIDEBAND_VERSION_PATCH)

/** @return the version of the library that is loaded, as SIDEBAND_VERSION_STRING was in it */
SIDEBAND_EXPORT const char* sideband_version(void);

SIDEBAND_END_DECLS

#endif

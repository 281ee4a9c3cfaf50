// SPDX-License-Identifier: Apache-2.0
// Recorded PDRs through the library: fetched, decoded, compared with the reading that came with
// them.
#ifndef SIDEBAND_TESTS_TRACES_PDR_CHECK_H
#define SIDEBAND_TESTS_TRACES_PDR_CHECK_H

#include "traces/record.h"

namespace test {

/// GetPDRRepositoryInfo.
void check_repository_info(const Record& record);

/// GetPDR. The library asks for 128 bytes although most of the recorded requests asked for 192: the
/// device gives the recorded answer to the library's request.
void check_pdr(const Record& record);

}  // namespace test

#endif

// SPDX-License-Identifier: Apache-2.0
// The call that leads the library's texts elsewhere.
#include <sideband/output.h>

#include "common/output.h"

void sideband_set_output(uint32_t outlets, sideband_output_op take, void* context) {
    sideband::lead_output(take != nullptr ? outlets : 0, take, context);
}

/* SPDX-License-Identifier: Apache-2.0 */
/* Uses both plug-ins in one process, then again in the other order. */
#include <stdio.h>

#include "names.h"

int main(void) {
    const char* (*const parts[])(void) = {sideband_part, libnvme_part, libnvme_part, sideband_part};
    for (unsigned i = 0; i < sizeof parts / sizeof *parts; ++i) {
        const char* failed = parts[i]();
        if (failed != NULL) {
            printf("part %u failed: %s\n", i, failed);
            return 1;
        }
    }
    return 0;
}

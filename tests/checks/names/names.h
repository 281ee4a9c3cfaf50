/* SPDX-License-Identifier: Apache-2.0 */
/* The two plug-ins, each with its library; none knows the other's headers. */
#ifndef SIDEBAND_TESTS_CHECKS_NAMES_H
#define SIDEBAND_TESTS_CHECKS_NAMES_H

/* Each uses its library and returns what failed, null if nothing. */
const char* sideband_part(void);
const char* libnvme_part(void);

#endif

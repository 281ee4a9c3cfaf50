/* SPDX-License-Identifier: Apache-2.0 */
/* A plug-in that uses libnvme: without a device its functions fail in the kernel, which says so. */
#include <errno.h>
#include <libnvme.h>
#include <string.h>

#include "names.h"

#define NO_DEVICE (-1)

const char* libnvme_part(void) {
    struct nvme_identify_args identify = {.args_size = sizeof identify, .fd = NO_DEVICE};
    struct nvme_get_log_args log = {.args_size = sizeof log, .fd = NO_DEVICE};
    struct nvme_format_nvm_args format = {.args_size = sizeof format, .fd = NO_DEVICE};
    if (strcmp(nvme_status_to_string(NVME_SC_LBA_RANGE, 0), nvme_status_to_string(0, 0)) == 0) {
        return "nvme_status_to_string() of libnvme";
    }
    errno = 0;
    if (nvme_identify(&identify) != -1 || errno != EBADF) {
        return "nvme_identify() of libnvme";
    }
    errno = 0;
    if (nvme_get_log_page(NO_DEVICE, 4096, &log) != -1 || errno != EBADF) {
        return "nvme_get_log_page() of libnvme";
    }
    errno = 0;
    if (nvme_format_nvm(&format) != -1 || errno != EBADF) {
        return "nvme_format_nvm() of libnvme";
    }
    return NULL;
}

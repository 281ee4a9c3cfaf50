/* SPDX-License-Identifier: Apache-2.0 */
/* A plug-in that talks to the simulated drive by functions whose names libnvme has too. */
#include <sideband-sim/sim.h>
#include <sideband/nvme_mi.h>
#include <string.h>

#include "names.h"

#define MODEL_OFFSET 24
#define SMART_LOG_CDW10 0x007f0002 /* log page 2, 128 dwords */

const char* sideband_part(void) {
    static const char model[] = "Example Storage ES-960G";
    mctp_ctx endpoint = {.src_eid = 8, .bus = 2, .slave_addr = 0x3a, .mux = {1, 0xe0, 2}};
    nvmemi_ctx drive = {0};
    uint8_t data[512] = {0};
    uint32_t received = 0;
    const uint32_t format = 0;
    if (sideband_sim_open(NULL) != 0 || mctp_init2(&endpoint) != 0 ||
        nvmemi_init(&drive, &endpoint) != 0) {
        return "the drive does not answer";
    }
    nvme_admin_req request = {.ctx = &drive, .cdw10 = 1};
    if (nvme_identify(&request, sizeof data, 0, data, &received) != 0 || received != sizeof data ||
        memcmp(data + MODEL_OFFSET, model, sizeof model - 1) != 0) {
        return "nvme_identify() of sideband";
    }
    request.cdw10 = SMART_LOG_CDW10;
    request.nsid = 0xffffffff;
    if (nvme_get_log_page(&request, 0, sizeof data, 0, data, &received) != 0 ||
        received != sizeof data) {
        return "nvme_get_log_page() of sideband";
    }
    if (nvme_format_nvm(&drive, 0, 1, &format) != 0) {
        return "nvme_format_nvm() of sideband";
    }
    nvmemi_deinit(&drive);
    sideband_sim_close();
    return NULL;
}

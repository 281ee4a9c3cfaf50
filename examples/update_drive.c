/* SPDX-License-Identifier: Apache-2.0 */
/* Gives an NVMe drive new firmware over NVMe-MI and resets it: update_drive IMAGE. */
#include <sideband-sim/sim.h>
#include <sideband/nvme_mi.h>
#include <stdio.h>

#define CONTROLLER 0
#define TASK 1 /* whose progress the platform shows */
#define IDENTIFY_CONTROLLER 1
#define FIRMWARE_REVISION 64 /* its offset in the Identify Controller data */
#define REVISION_SIZE 8
#define ANY_SLOT 0 /* the controller chooses */
#define REPLACE_AND_ACTIVATE 1
#define PIECE 2048
#define RESET_SECONDS 10

/* Reads the revision that runs, REVISION_SIZE characters padded with spaces. */
static int read_revision(nvmemi_ctx* drive, char revision[REVISION_SIZE]) {
    nvme_admin_req request = {.ctx = drive,
                              .cntlid = CONTROLLER,
                              .dofst = FIRMWARE_REVISION,
                              .cdw10 = IDENTIFY_CONTROLLER};
    uint8_t data[REVISION_SIZE] = {0};
    uint32_t received = 0;
    const int32_t result = nvme_identify(&request, sizeof data, 0, data, &received);
    if (result != 0 || received != sizeof data) {
        return -1;
    }
    for (int i = 0; i < REVISION_SIZE; ++i) {
        revision[i] = data[i] >= ' ' && data[i] <= '~' ? (char)data[i] : '.';
    }
    return 0;
}

/* A commit that is done, or will be by a reset (NVMe, Firmware Commit, command specific status). */
static int is_committed(int32_t result) {
    const uint32_t code = NVME_COMPLETION_SC(result);
    const int specific = NVME_COMPLETION_SCT(result) == 1;
    return result == 0 || (specific && (code == 0x0b || code == 0x10 || code == 0x11));
}

static int update(nvmemi_ctx* drive, const char* image) {
    char before[REVISION_SIZE];
    char after[REVISION_SIZE];
    if (read_revision(drive, before) != 0) {
        fprintf(stderr, "the drive does not say what it runs\n");
        return -1;
    }
    if (nvme_fw_image_download(drive, CONTROLLER, image, PIECE, TASK) != 0) {
        fprintf(stderr, "the drive does not take the image\n");
        return -1;
    }
    if (!is_committed(nvme_fw_image_commit(drive, CONTROLLER, ANY_SLOT, REPLACE_AND_ACTIVATE))) {
        fprintf(stderr, "the drive does not keep the image\n");
        return -1;
    }
    (void)nvmemi_reset(drive); /* -1 is what a drive that resets says: nothing */
    for (int second = 0; second < RESET_SECONDS; ++second) {
        sideband_sim_advance(1000 * 1000); /* firmware sleeps */
        if (read_revision(drive, after) == 0) {
            printf("revision %.8s, before %.8s\n", after, before);
            return 0;
        }
    }
    fprintf(stderr, "the drive does not come back\n");
    return -1;
}

int main(int argc, char** argv) {
    /* A multiplexer setting is the platform's own: here a count, then address and channel. */
    mctp_ctx endpoint = {.src_eid = 8, .bus = 2, .slave_addr = 0x3a, .mux = {1, 0xe0, 2}};
    nvmemi_ctx drive = {0};
    int result = -1;
    if (argc != 2) {
        fprintf(stderr, "usage: update_drive IMAGE\n");
        return 2;
    }
    if (sideband_sim_open(NULL) != 0) {
        return 1;
    }
    /* NVMe-MI wants an endpoint that has its EID: discovery finds or assigns it. */
    if (mctp_init2(&endpoint) != 0 || nvmemi_init(&drive, &endpoint) != 0) {
        fprintf(stderr, "the drive does not answer\n");
    } else {
        result = update(&drive, argv[1]);
    }
    nvmemi_deinit(&drive);
    sideband_sim_close();
    return result == 0 ? 0 : 1;
}

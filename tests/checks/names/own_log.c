/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A program with a debug_log() of its own prints whether the library has called it in place of its
 * own: own_log, linked with the library, or own_log SIDEBAND-SIM SIDEBAND, which loads it so that
 * it keeps to its own names.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <sideband/mctp.h>
#include <stdio.h>

int sideband_sim_open(const char* board_file);

static int calls;

void debug_log(const char* format, ...);
void debug_log(const char* format, ...) {
    calls += format != NULL;
}

int main(int argc, char** argv) {
    /* A card without EID: the library logs the one that it assigns. */
    mctp_ctx card = {.src_eid = 8, .bus = 2, .slave_addr = 0x64, .mux = {1, 0xe0, 1}};
#ifdef LOADED
    void* sim = argc == 3 ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : NULL;
    void* sideband = sim != NULL ? dlopen(argv[2], RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND) : NULL;
    if (sideband == NULL) {
        printf("%s\n", dlerror());
        return 1;
    }
    int (*open_board)(const char*) = (int (*)(const char*))dlsym(sim, "sideband_sim_open");
    int32_t (*init)(mctp_ctx*) = (int32_t(*)(mctp_ctx*))dlsym(sideband, "mctp_init2");
#else
    int (*open_board)(const char*) = sideband_sim_open;
    int32_t (*init)(mctp_ctx*) = argc > 0 && argv != NULL ? mctp_init2 : NULL;
#endif
    if (open_board(NULL) != 0 || init(&card) != 0) {
        return 1;
    }
    printf("called: %s\n", calls > 0 ? "yes" : "no");
    return 0;
}

/* SPDX-License-Identifier: Apache-2.0 */
/* Loads both libraries at run time, their names open to everybody: loaded SIDEBAND-SIM SIDEBAND
 * LIBNVME. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) {
    void* handles[4] = {0};
    for (int i = 1; i < argc && i < 4; ++i) {
        handles[i] = dlopen(argv[i], RTLD_NOW | RTLD_GLOBAL);
        if (handles[i] == NULL) {
            printf("%s\n", dlerror());
            return 1;
        }
    }
    static const char* const names[] = {"nvme_identify", "nvme_get_log_page", "nvme_format_nvm"};
    for (unsigned i = 0; i < sizeof names / sizeof *names; ++i) {
        Dl_info ours;
        Dl_info theirs;
        void* by_version = dlvsym(RTLD_DEFAULT, names[i], "SIDEBAND_0");
        if (!dladdr(dlsym(handles[2], names[i]), &ours) ||
            strstr(ours.dli_fname, "libsideband") == NULL ||
            !dladdr(dlsym(handles[3], names[i]), &theirs) ||
            strstr(theirs.dli_fname, "libnvme") == NULL || by_version != ours.dli_saddr) {
            printf("%s is found in the wrong library\n", names[i]);
            return 1;
        }
    }
    return 0;
}

/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Prints the functions whose address is another one for the library than for the program, which is
 * linked at a fixed address: it has addresses of its own for the functions of libraries, unless
 * these ask the loader.
 */
#include <sideband/ncsi.h>
#include <sideband/pldm.h>
#include <stdio.h>

static int differences;

static void compare(const char* name, int same) {
    if (!same) {
        printf("%s differs\n", name);
        ++differences;
    }
}

int main(void) {
    mctp_ctx card = {.src_eid = 8, .dest_eid = 9, .bus = 2, .skip_discovery = 1};
    pldm_ctx terminus = {0};
    if (mctp_pldm_register(&card, &terminus) != 0) {
        return 1;
    }
    compare("pldm_recv", terminus.recv_op == pldm_recv);
    compare("pldm_send", terminus.send_op == pldm_send);
    compare("pldm_transfer", terminus.transfer_op == pldm_transfer);
    compare("smbus_block_read", smbus_mctp_binding.read == smbus_block_read);
    compare("smbus_block_write", smbus_mctp_binding.write == smbus_block_write);
    compare("sl8_smbus_block_read", sl8_smbus_mctp_binding.read == sl8_smbus_block_read);
    compare("sl8_smbus_block_write", sl8_smbus_mctp_binding.write == sl8_smbus_block_write);
    compare("ncsi_oem_mx_get_temperature",
            ncsi_oem_mx_cmd_tbl[3].handler == ncsi_oem_mx_get_temperature);
    compare("ncsi_oem_brcm_get_preboot_server_config",
            ncsi_oem_brcm_cmd_tbl[0].handler == ncsi_oem_brcm_get_preboot_server_config);
    return differences != 0;
}

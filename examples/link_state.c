/* SPDX-License-Identifier: Apache-2.0 */
/* Shows the links of a network controller, over NC-SI (DSP0222). */
#include <sideband-sim/sim.h>
#include <sideband/ncsi.h>
#include <stdio.h>

#define NO_CHANNEL 0xff

/* Speed and duplex of a link by its code (DSP0222, Get Link Status). */
static const char* speed_of(uint8_t code) {
    static const char* const names[] = {"speed not known yet",
                                        "10BASE-T half duplex",
                                        "10BASE-T full duplex",
                                        "100BASE-TX half duplex",
                                        "100BASE-T4",
                                        "100BASE-TX full duplex",
                                        "1000BASE-T half duplex",
                                        "1000BASE-T full duplex",
                                        "10 Gb/s",
                                        "20 Gb/s",
                                        "25 Gb/s",
                                        "40 Gb/s",
                                        "50 Gb/s",
                                        "100 Gb/s"};
    return code < sizeof names / sizeof *names ? names[code] : "another speed";
}

int main(void) {
    ncsi_ctx controller = {0};
    mctp_ctx where = {0};
    int failed = 0;

    if (sideband_sim_open(NULL) != 0) {
        return 1;
    }
    where.src_eid = 8;
    where.binding_kind = MCTP_BINDING_KIND_SMBUS;
    where.bus = 5;
    where.slave_addr = 0x50;

    /* Discovery writes to the records of the channels that answer, and to no other. */
    for (int i = 0; i < NCSI_CHANNELS; ++i) {
        controller.channels[i].channel_id = NO_CHANNEL;
    }
    if (ncsi_init(&controller, &where) != 0) {
        fprintf(stderr, "no channel answers\n");
        ncsi_deinit(&controller);
        sideband_sim_close();
        return 1;
    }
    for (int i = 0; i < NCSI_CHANNELS; ++i) {
        ncsi_channel* channel = &controller.channels[i];
        if (channel->channel_id == NO_CHANNEL) {
            continue;
        }
        if (ncsi_get_link_status(channel) != 0) {
            fprintf(stderr, "channel %d: no link status\n", i);
            ++failed;
            continue;
        }
        printf("channel %d: link %s", i, channel->link_up ? "up" : "down");
        if (channel->link_up) {
            printf(", %s, auto-negotiation %s", speed_of(channel->speed),
                   channel->autoneg_done ? "complete" : "under way");
        }
        putchar('\n');
    }
    ncsi_deinit(&controller);
    sideband_sim_close();
    return failed == 0 ? 0 : 1;
}

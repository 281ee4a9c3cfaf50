/* SPDX-License-Identifier: Apache-2.0 */
/* A client of a drive through libnvme's management calls: mi_client NET EID read|write, JSON on
 * standard output. */
#include <errno.h>
#include <inttypes.h>
#include <libnvme-mi.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The drive's port on SMBus, and a unit size that it can do beside the one that it begins with. */
#define PORT_COUNT_LIMIT 8
#define NEW_UNIT_SIZE 128
#define NEW_BLOCKS 2048

static bool first_member = true;

/* Opens the next member of the document: an object with the status of a call. */
static void open_step(const char* name, int status) {
    printf("%s\n  \"%s\": {\"status\": %d", first_member ? "" : ",", name, status);
    first_member = false;
    if (status < 0) {
        printf(", \"errno\": %d", errno);
    }
}

static void number(const char* key, uint64_t value) {
    printf(", \"%s\": %" PRIu64, key, value);
}

static void close_step(void) {
    printf("}");
}

/* A step that tells nothing but its status. */
static void step(const char* name, int status) {
    open_step(name, status);
    close_step();
}

/* Text of a fixed size, without the blanks that fill it. */
static void text(const char* key, const char* value, size_t size) {
    while (size > 0 && (value[size - 1] == ' ' || value[size - 1] == '\0')) {
        --size;
    }
    printf(", \"%s\": \"%.*s\"", key, (int)size, value);
}

static void read_subsystem(nvme_mi_ep_t endpoint) {
    struct nvme_mi_read_nvm_ss_info info = {0};
    open_step("subsystem", nvme_mi_mi_read_mi_data_subsys(endpoint, &info));
    number("nump", info.nump);
    number("mjr", info.mjr);
    number("mnr", info.mnr);
    close_step();
    for (uint8_t port = 0; port <= info.nump && port < PORT_COUNT_LIMIT; ++port) {
        struct nvme_mi_read_port_info data = {0};
        char name[32];
        snprintf(name, sizeof(name), "port %u", port);
        open_step(name, nvme_mi_mi_read_mi_data_port(endpoint, port, &data));
        number("prttyp", data.portt);
        number("mmctptus", le16toh(data.mmctptus));
        number("meb", le32toh(data.meb));
        if (data.portt == 2) {
            number("cvpdaddr", data.smb.vpd_addr);
            number("mvpdfreq", data.smb.mvpd_freq);
            number("cmeaddr", data.smb.mme_addr);
            number("mmefreq", data.smb.mme_freq);
            number("nvmebm", data.smb.nvmebm);
        }
        close_step();
    }
}

static void read_health(nvme_mi_ep_t endpoint, const char* name, bool clear) {
    struct nvme_mi_nvm_ss_health_status health = {0};
    open_step(name, nvme_mi_mi_subsystem_health_status_poll(endpoint, clear, &health));
    number("nss", health.nss);
    number("sw", health.sw);
    number("ctemp", health.ctemp);
    number("pdlu", health.pdlu);
    number("ccs", le16toh(health.ccs));
    close_step();
}

static void read_configuration(nvme_mi_ep_t endpoint, const char* when, uint8_t port) {
    char name[64];
    enum nvme_mi_config_smbus_freq frequency = 0;
    snprintf(name, sizeof(name), "frequency %u %s", port, when);
    open_step(name, nvme_mi_mi_config_get_smbus_freq(endpoint, port, &frequency));
    number("value", frequency);
    close_step();
    uint16_t unit = 0;
    snprintf(name, sizeof(name), "unit size %u %s", port, when);
    open_step(name, nvme_mi_mi_config_get_mctp_mtu(endpoint, port, &unit));
    number("value", unit);
    close_step();
}

/* The controllers that a scan finds; the first of them. */
static nvme_mi_ctrl_t scan(nvme_mi_ep_t endpoint) {
    struct nvme_ctrl_list list = {0};
    open_step("controllers", nvme_mi_mi_read_mi_data_ctrl_list(endpoint, 0, &list));
    number("count", le16toh(list.num));
    number("first", le16toh(list.identifier[0]));
    close_step();

    const int status = nvme_mi_scan_ep(endpoint, false);
    unsigned count = 0;
    nvme_mi_ctrl_t controller;
    nvme_mi_for_each_ctrl(endpoint, controller) {
        ++count;
    }
    open_step("scan", status);
    number("count", count);
    close_step();
    return nvme_mi_first_ctrl(endpoint);
}

static void read_controller(nvme_mi_ep_t endpoint, nvme_mi_ctrl_t controller) {
    struct nvme_mi_read_ctrl_info info = {0};
    open_step("controller", nvme_mi_mi_read_mi_data_ctrl(endpoint, 0, &info));
    number("portid", info.portid);
    number("prii", info.prii);
    number("pri", le16toh(info.pri));
    number("pcivid", le16toh(info.vid));
    number("pcidid", le16toh(info.did));
    number("pcisvid", le16toh(info.ssvid));
    number("pcissid", le16toh(info.ssid));
    close_step();

    static struct nvme_id_ctrl id;
    open_step("identify", nvme_mi_admin_identify_ctrl(controller, &id));
    text("sn", id.sn, sizeof(id.sn));
    text("mn", id.mn, sizeof(id.mn));
    text("fr", id.fr, sizeof(id.fr));
    number("nn", le32toh(id.nn));
    close_step();
}

static void read_all(nvme_mi_ep_t endpoint) {
    read_subsystem(endpoint);
    read_health(endpoint, "health", false);
    for (uint8_t port = 0; port < 2; ++port) {
        read_configuration(endpoint, "now", port);
    }
    nvme_mi_ctrl_t controller = scan(endpoint);
    if (controller) {
        read_controller(endpoint, controller);
    }
}

static void write_configuration(nvme_mi_ep_t endpoint) {
    const uint8_t port = 1;
    read_configuration(endpoint, "before", port);
    step("set frequency",
         nvme_mi_mi_config_set_smbus_freq(endpoint, port, NVME_MI_CONFIG_SMBUS_FREQ_400kHz));
    step("set unit size", nvme_mi_mi_config_set_mctp_mtu(endpoint, port, NEW_UNIT_SIZE));
    read_configuration(endpoint, "set", port);
    step("set bad unit size", nvme_mi_mi_config_set_mctp_mtu(endpoint, port, 1));
    read_configuration(endpoint, "kept", port);
    step("restore frequency",
         nvme_mi_mi_config_set_smbus_freq(endpoint, port, NVME_MI_CONFIG_SMBUS_FREQ_100kHz));
    step("restore unit size", nvme_mi_mi_config_set_mctp_mtu(endpoint, port, 64));
    read_configuration(endpoint, "restored", port);
    step("clear health changes", nvme_mi_mi_config_set_health_status_change(endpoint, 0xFFFF));
    read_health(endpoint, "health cleared", false);
}

/* The namespaces that the controller has, and those that there are. */
static void list_namespaces(nvme_mi_ctrl_t controller, const char* when) {
    static struct nvme_ns_list list;
    char name[64];
    for (int allocated = 0; allocated < 2; ++allocated) {
        snprintf(name, sizeof(name), "%s %s", allocated ? "allocated" : "active", when);
        memset(&list, 0, sizeof(list));
        open_step(name, allocated ? nvme_mi_admin_identify_allocated_ns_list(controller, 0, &list)
                                  : nvme_mi_admin_identify_active_ns_list(controller, 0, &list));
        printf(", \"ids\": [");
        for (int i = 0; i < 1024 && list.ns[i]; ++i) {
            printf("%s%u", i ? ", " : "", le32toh(list.ns[i]));
        }
        printf("]");
        close_step();
    }
}

static void identify_namespace(nvme_mi_ctrl_t controller, const char* name, uint32_t id) {
    static struct nvme_id_ns space;
    memset(&space, 0, sizeof(space));
    open_step(name, nvme_mi_admin_identify_ns(controller, id, &space));
    number("nsze", le64toh(space.nsze));
    number("ncap", le64toh(space.ncap));
    number("flbas", space.flbas);
    close_step();
}

static void write_namespaces(nvme_mi_ctrl_t controller) {
    static struct nvme_id_ns wanted;
    wanted.nsze = htole64(NEW_BLOCKS);
    wanted.ncap = htole64(NEW_BLOCKS);
    uint32_t id = 0;
    list_namespaces(controller, "before");
    open_step("create", nvme_mi_admin_ns_mgmt_create(controller, &wanted, 0, &id));
    number("nsid", id);
    close_step();
    list_namespaces(controller, "created");

    static struct nvme_ctrl_list ours;
    ours.num = htole16(1);
    step("attach", nvme_mi_admin_ns_attach_ctrls(controller, id, &ours));
    step("attach again", nvme_mi_admin_ns_attach_ctrls(controller, id, &ours));
    list_namespaces(controller, "attached");
    identify_namespace(controller, "new namespace", id);

    struct nvme_format_nvm_args format = {.args_size = sizeof(format), .nsid = id, .lbaf = 1};
    step("format", nvme_mi_admin_format_nvm(controller, &format));
    identify_namespace(controller, "formatted namespace", id);
    format.lbaf = 9;
    step("format with no such format", nvme_mi_admin_format_nvm(controller, &format));

    step("detach", nvme_mi_admin_ns_detach_ctrls(controller, id, &ours));
    step("delete", nvme_mi_admin_ns_mgmt_delete(controller, id));
    list_namespaces(controller, "deleted");
}

static void read_feature(nvme_mi_ctrl_t controller, const char* name) {
    uint32_t value = 0;
    open_step(name,
              nvme_mi_admin_get_features_simple(controller, NVME_FEAT_FID_TEMP_THRESH, 0, &value));
    number("value", value);
    close_step();
}

static int write_feature(nvme_mi_ctrl_t controller, uint32_t value) {
    uint32_t result = 0;
    struct nvme_set_features_args set = {.args_size = sizeof(set),
                                         .fid = NVME_FEAT_FID_TEMP_THRESH,
                                         .cdw11 = value,
                                         .result = &result};
    return nvme_mi_admin_set_features(controller, &set);
}

static void write_features(nvme_mi_ctrl_t controller) {
    read_feature(controller, "feature before");
    step("set feature", write_feature(controller, 0x160));
    read_feature(controller, "feature set");
    step("restore feature", write_feature(controller, 0x157));
    read_feature(controller, "feature restored");
}

static void security(nvme_mi_ctrl_t controller) {
    static uint8_t data[512];
    struct nvme_security_receive_args receive = {
        .args_size = sizeof(receive), .data = data, .data_len = sizeof(data), .al = sizeof(data)};
    step("security receive", nvme_mi_admin_security_recv(controller, &receive));
    struct nvme_security_send_args send = {.args_size = sizeof(send),
                                           .data = data,
                                           .data_len = sizeof(data),
                                           .tl = sizeof(data),
                                           .secp = 1};
    step("security send", nvme_mi_admin_security_send(controller, &send));
}

int main(int count, char** arguments) {
    if (count != 4) {
        fprintf(stderr, "usage: mi_client NET EID read|write\n");
        return 2;
    }
    nvme_root_t root = nvme_mi_create_root(stderr, DEFAULT_LOGLEVEL);
    nvme_mi_ep_t endpoint =
        root ? nvme_mi_open_mctp(root, (unsigned)atoi(arguments[1]), (uint8_t)atoi(arguments[2]))
             : NULL;
    if (!endpoint) {
        perror("mi_client: no endpoint");
        return 1;
    }
    printf("{");
    if (strcmp(arguments[3], "read") == 0) {
        read_all(endpoint);
    } else {
        nvme_mi_ctrl_t controller = scan(endpoint);
        write_configuration(endpoint);
        if (controller) {
            write_namespaces(controller);
            write_features(controller);
            security(controller);
        }
    }
    printf("\n}\n");
    nvme_mi_close(endpoint);
    nvme_mi_free_root(root);
    return 0;
}

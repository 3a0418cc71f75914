/* The interface in C11: every public header, its values and layouts, and the calls that need no network. */
#include "interface_bits.h"
#include "interface_in_c.h"
#include "interface_rows.h"

#include <stdbool.h>
#include <string.h>

#define CHECK(holds)                                                                                         \
    do {                                                                                                     \
        if (!(holds)) {                                                                                      \
            return __LINE__;                                                                                 \
        }                                                                                                    \
    } while (0)

#define TABLE(rows)                                                                                          \
    { #rows, rows, ROWS_IN(rows) }

const struct interface_table c_interface_tables[] = {
    TABLE(node_id_rows),  TABLE(msg_type_rows), TABLE(heartbeat_field_rows),
    TABLE(constant_rows), TABLE(layout_rows),   {NULL, NULL, 0},
};

const char *c_misplaced_flag(void) {
    return misplaced_flag();
}

const char *c_misplaced_device_member(void) {
    return misplaced_device_member();
}

const char *c_misplaced_core_member(void) {
    return misplaced_core_member();
}

const char *c_misplaced_task_member(void) {
    return misplaced_task_member();
}

int c_node_table_is_used(void) {
    const vexa_node_t soa = {"soa", "192.168.1.5", 9005, NODE_SOA, NODE_STAT_ACTIVED};
    vexa_node_t out;
    memset(&out, 0, sizeof out);
    CHECK(nmapping_create() == 0);
    CHECK(nmapping_set(NODE_SOA, &soa) == 0);
    CHECK(nmapping_get(nmapping_get_next_hop(NODE_SOA), &out) == 0);
    CHECK(strcmp(out.ip, "192.168.1.5") == 0);
    CHECK(out.port == 9005 && out.stat == NODE_STAT_ACTIVED);
    CHECK(nmapping_get_next_hop((uint16_t)NODE_APP) == PROXY_NODE_ID);
    CHECK(nmapping_del(NODE_SOA) == 0);
    CHECK(nmapping_get_stat(NODE_SOA) == NODE_STAT_INACTIVED);
    nmapping_destroy();
    return 0;
}

static bool same_key(const void *a, const void *b) {
    return memcmp(a, b, 2) == 0;
}

int c_queues_are_used(void) {
    struct {
        vx_msg_head_t head;
        uint8_t payload[4];
    } msg = {{VX_MSG_MAGIC, {0, 0, 0}, MSTP_USER_DATA_OVER_WRITE, 4, NODE_VIO, NODE_SOA, 0, 0},
             {MSG_VIO_CFG, 0, 'o', 'k'}};
    const uint8_t key[2] = {MSG_VIO_CFG, 0};
    char room[VX_MSG_BUFFER_SIZE];
    vx_msg_head_t head;
    int len = 0;
    CHECK(io_pool_init(same_key) == 0);
    CHECK(io_pool_rx_put(&msg.head) == 0);
    CHECK(io_pool_rx_get(key, room, &len, &head) == 4);
    CHECK(len == 4 && head.src == NODE_VIO && memcmp(room + 2, "ok", 2) == 0);
    CHECK(io_pool_tx_put(&msg.head) == 0);
    CHECK(io_pool_tx_get(room, &len) == 20);
    CHECK(io_pool_tx_get(room, &len) == 0);
    io_pool_deinit();
    return 0;
}

int c_heartbeat_is_used(void) {
    const HeartBeatPair pairs[] = {{WORK_MODE, 7}, {STEREO_CAMERA_HEAD, 2}};
    struct VPHeartbeatFrame frame;
    CHECK(hbmgr_set_hb(pairs, 2) == 0);
    CHECK(vision_get_hearbeat(&frame) == 0);
    CHECK(frame.task.details.work_mode == 7);
    CHECK(frame.device.details.stereo_camera_head1 == 0);
    CHECK(frame.device.details.stereo_camera_head2 == 1);
    CHECK(frame.device.details.environment_light == 1);
    CHECK(pthread_mutex_lock(&hb_mutex) == 0);
    CHECK(pthread_mutex_unlock(&hb_mutex) == 0);
    return 0;
}

int c_headers_are_read_and_written(void) {
    const vx_flag_s flag = {.ack = 1, .qos = 2, .reserved = 16};
    const vx_msg_head_t head = {VX_MSG_MAGIC,     flag, MSTP_NODE_MGR, 0x1234, NODE_VIO,
                                VX_MSG_BROADCAST, 7,    0x89ABCDEF};
    const uint8_t image[] = {0x3A, 0x5E, 0x85, 0x02, 0x34, 0x12, 0x03, 0x00,
                             0x00, 0xFF, 0x07, 0x00, 0xEF, 0xCD, 0xAB, 0x89};
    uint8_t bytes[VX_MSG_HEAD_SIZE];
    vx_msg_head_t back;
    vx_msg_head_store(bytes, &head);
    CHECK(memcmp(bytes, image, sizeof image) == 0);
    back = vx_msg_head_load(image);
    CHECK(memcmp(&back, &head, sizeof head) == 0);
    return 0;
}

int c_node_that_is_not_started_refuses(void) {
    uint8_t room[VX_MSG_MAX_PAYLOAD];
    MsgExtra extra;
    const HeartBeatPair pair = {LED, 1};
    vision_msg_component_deinit();
    CHECK(vision_send_msg(NODE_VIO, "x", 1) == -1);
    CHECK(vision_send_status(NODE_VIO, "xy", 2) == -1);
    CHECK(vision_broadcast_status("xy", 2) == -1);
    CHECK(vision_brocast_msg("x", 1) == -1);
    CHECK(vxmsg_send_general(NODE_VIO, MSTP_USER_DATA_PROC_BY_CALLBACK, "x", 1) == -1);
    CHECK(vision_set_hearbeat(&pair, 1) == -1);
    CHECK(vision_recv_status(MSG_VIO_CFG, room, (int)sizeof room, &extra) == 0);
    CHECK(vision_recv_status(MSG_VIO_CFG, room, (int)sizeof room, NULL) == -1);
    vision_send_heartbeat();
    return 0;
}

static void on_message(void *payload, MsgExtra *extra) {
    (void)payload;
    (void)extra;
}

/* That these lines compile is the test; the comparisons keep the compiler from calling them useless. */
int c_interface_has_its_types(void) {
    int (*init)(NodeID, const char *, const char *, msg_call_back) = vision_msg_component_init;
    int (*send_to)(uint16_t, int, const void *, int) = vxmsg_send_general;
    int (*receive)(MsgType, void *, int, MsgExtra *) = vision_recv_status;
    void (*build)(vx_msg_head_t *) = buid_unregist_msg;
    int (*send_info)(int, uint16_t, uint16_t, int) = send_node_info;
    void *(*thread)(void *) = msg_io_thread;
    msg_call_back callback = on_message;
    const ut_addr_t *address = &g_regster_addr;
    CHECK(init != NULL && send_to != NULL && receive != NULL && build != NULL && send_info != NULL);
    CHECK(thread != NULL && callback != NULL && address != NULL);
    CHECK(sizeof g_regster_addr == sizeof(ut_addr_t));
    return 0;
}

// A manager's message, sent by the node to itself. See bus_table.h.
#include "bus_table.h"

#include "node_mapping.h"
#include "side.h"
#include "vx_msg_def.h"

#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {
namespace {

using namespace std::chrono_literals;

constexpr uint8_t k_accepted = 0x80; // in the flag byte: from now on REGISTERs are rare

vexa_node_t record_of(uint16_t id) {
    vexa_node_t node{};
    memcpy(node.ip, k_bus_ip, sizeof k_bus_ip);
    node.node_id = id;
    node.port = static_cast<uint16_t>(VX_NODE_PORT_BASE + id);
    node.stat = NODE_STAT_ACTIVED;
    return node;
}

std::vector<uint8_t> notice(uint16_t own, uint16_t first, uint16_t last) {
    const auto records = static_cast<uint16_t>(last - first + 1);
    const auto length = static_cast<uint16_t>(VX_MGR_HEAD_SIZE + records * VX_NODE_RECORD_SIZE);
    std::vector<uint8_t> message(VX_MSG_HEAD_SIZE + length);
    const vx_msg_head_t head = vx_msg_head_make(MSTP_NODE_MGR, length, VX_NODE_MANAGER_ID, own);
    vx_msg_head_store(message.data(), &head);
    message[offsetof(vx_msg_head_t, flag)] = k_accepted;
    uint8_t *to = message.data() + VX_MSG_HEAD_SIZE;
    ut_put_le16(to, MGR_CMD_NOTIFY);
    ut_put_le16(to + 2, records);
    to += VX_MGR_HEAD_SIZE;
    for (uint16_t id = first; id <= last; ++id, to += VX_NODE_RECORD_SIZE) {
        const vexa_node_t node = record_of(id);
        vexa_node_store(to, &node);
    }
    return message;
}

} // namespace

void learn_nodes(uint16_t own, uint16_t first, uint16_t last) {
    const int fd = checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<uint16_t>(VX_NODE_PORT_BASE + own));
    const std::vector<uint8_t> message = notice(own, first, last);
    while (nmapping_get_stat(last) != NODE_STAT_ACTIVED) { // its socket may not be there yet
        (void)sendto(fd, message.data(), message.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                     sizeof to);
        std::this_thread::sleep_for(1ms);
    }
    (void)close(fd);
}

} // namespace bench

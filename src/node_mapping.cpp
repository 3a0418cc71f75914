// The node table: 128 slots, one per node id, each with its own lock.
//
// The I/O thread writes records, application threads read them before every send. A slot's lock is held for
// one copy of a record or one access to its state, never together with another. The gates beside the slots
// keep a lock alive while somebody is on his way to it, so that a stop may come at any moment.
#include "node_mapping.h"

#include "after_fork.h"
#include "usage_gate.h"
#include "vx_lock.h"
#include "vx_log.h"

#include <array>
#include <atomic>
#include <mutex>
#include <new>

namespace {

constexpr char k_unit[] = "src/node_mapping";

struct node_mt_wapper_t {
    vx_mutex lck;
    vexa_node_t node VX_TSA(guarded_by(lck));
};

constinit std::array<node_mt_wapper_t, VX_NODE_COUNT> g_nodes_map{}; // the slot index is the node id
constinit std::array<usage_gate, VX_NODE_COUNT> g_gates{};           // open while the slot's lock exists
constinit std::mutex g_lifecycle;                // held by create and destroy, whose own state follows
constinit bool inited = false;                   // all locks exist
constinit int g_locks_made = 0;                  // so many slots, from 0 on, have a lock
constinit std::atomic<uint16_t> g_my_node_id{0}; // written by each start, before its threads

bool nmapping_valid_node_id(uint16_t node_id) {
    return node_id < VX_NODE_COUNT;
}

/// Does something to a slot under its lock. Refuses what has no slot, or no lock now.
template <class Work>
int with_slot(uint16_t node_id, Work work) {
    if (!nmapping_valid_node_id(node_id)) {
        return -1;
    }
    const gate_pass pass{g_gates[node_id]};
    if (!pass) {
        return -1;
    }
    node_mt_wapper_t &slot = g_nodes_map[node_id];
    const mutex_guard hold{slot.lck};
    return work(slot.node);
}

void destroy_locks() {
    for (int i = 0; i < g_locks_made; ++i) {
        (void)pthread_mutex_destroy(&g_nodes_map[static_cast<size_t>(i)].lck.handle); // nobody holds it
    }
    g_locks_made = 0;
}

int make_locks() {
    destroy_locks(); // what an attempt that failed half-way has left
    for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
        node_mt_wapper_t &slot = g_nodes_map[id];
        if (pthread_mutex_init(&slot.lck.handle, nullptr) != 0) {
            return -1;
        }
        const mutex_guard hold{slot.lck};
        slot.node.node_id = id;
        ++g_locks_made;
    }
    return 0;
}

void preset_manager(vexa_node_t &node) {
    constexpr char name[] = "mgr_server";
    constexpr char ip[] = "192.168.1.1";
    memcpy(node.name, name, sizeof name);
    memcpy(node.ip, ip, sizeof ip);
    node.port = VX_NODE_PORT_BASE;
    node.node_id = VX_NODE_MANAGER_ID;
    node.stat = NODE_STAT_INACTIVED;
}

} // namespace

void nmapping_set_self(uint16_t node_id) {
    g_my_node_id.store(node_id, std::memory_order_relaxed);
}

uint16_t nmapping_self_node_id(void) {
    return g_my_node_id.load(std::memory_order_relaxed);
}

int nmapping_get_size(void) {
    return VX_NODE_COUNT;
}

int nmapping_create(void) {
    const std::lock_guard hold{g_lifecycle};
    if (!inited) {
        if (make_locks() != 0) {
            return -1;
        }
        for (usage_gate &gate : g_gates) {
            gate.open();
        }
        inited = true;
    }
    return with_slot(VX_NODE_MANAGER_ID, [](vexa_node_t &node) {
        preset_manager(node);
        return 0;
    });
}

void nmapping_destroy(void) {
    const std::lock_guard hold{g_lifecycle};
    if (!inited) {
        return;
    }
    inited = false;
    for (usage_gate &gate : g_gates) {
        gate.close();
    }
    destroy_locks();
}

int nmapping_add(uint16_t node_id, const vexa_node_t *node) {
    if (node == nullptr) {
        return -1;
    }
    return with_slot(node_id, [node](vexa_node_t &stored) {
        memcpy(&stored, node, sizeof stored); // the unused byte travels too
        return 0;
    });
}

int nmapping_set(uint16_t node_id, const vexa_node_t *node) {
    return nmapping_add(node_id, node);
}

int nmapping_get(uint16_t node_id, vexa_node_t *node) {
    if (!nmapping_valid_node_id(node_id)) {
        VX_LOG(INFO, "inval, nodeid %u\n", node_id);
        return -1;
    }
    if (node == nullptr) {
        return -1;
    }
    return with_slot(node_id, [node, node_id](const vexa_node_t &stored) {
        memcpy(node, &stored, sizeof *node);
        return stored.node_id == node_id ? 0 : -1;
    });
}

int nmapping_del(uint16_t node_id) {
    return with_slot(node_id, [](vexa_node_t &node) {
        node.stat = NODE_STAT_INACTIVED;
        return 0;
    });
}

int nmapping_get_stat(uint16_t node_id) {
    return with_slot(node_id, [](const vexa_node_t &node) { return static_cast<int>(node.stat); });
}

void nmapping_set_stat(uint16_t node_id, int stat) {
    (void)with_slot(node_id, [stat](vexa_node_t &node) {
        node.stat = static_cast<uint8_t>(stat);
        return 0;
    });
}

uint16_t nmapping_get_next_hop(uint16_t dst_node) {
    return dst_node < PROXY_NODE_ID ? dst_node : static_cast<uint16_t>(PROXY_NODE_ID);
}

void nmapping_valid_item_show(void) {
    for (uint16_t id = 0; id < VX_NODE_COUNT; ++id) {
        vexa_node_t node{};            // stays inactive when the table is stopped meanwhile
        (void)nmapping_get(id, &node); // a record under another id is shown under its own
        vexa_node_end_texts(&node);
        if (node.stat != NODE_STAT_INACTIVED) {
            VX_LOG(INFO, "| %7d | %16s | %16s | %8d | %4d |\n", node.node_id, node.name, node.ip, node.port,
                   node.stat);
        }
    }
}

void nmapping_after_fork() {
    for (usage_gate &gate : g_gates) {
        new (&gate) usage_gate;
    }
    for (node_mt_wapper_t &slot : g_nodes_map) {
        new (&slot) node_mt_wapper_t{}; // a record may be half written
    }
    g_locks_made = 0;
    inited = false;
    new (&g_lifecycle) std::mutex;
}

// The transmit and the receive queue.
//
// Application threads put into the transmit queue and read the receive queue, the I/O thread does the
// opposite. Each operation holds one queue's lock for its walk or copy, never both. The gates keep locks and
// lists alive while somebody uses them, so that the pool may be released at any moment.
#include "io_pool.h"

#include "after_fork.h"
#include "copy_store.h"
#include "log_throttle.h"
#include "node_mapping.h"
#include "usage_gate.h"
#include "utils/ut_list.h"
#include "vx_lock.h"
#include "vx_log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>

namespace {

constexpr char k_unit[] = "src/io_pool";
constexpr unsigned long k_most_queued = 1024; // a put that finds more drops the oldest
constexpr int k_empty_looks = 128;            // before a transmit queue counts as empty
constexpr unsigned k_long_message = 4096;     // [bytes] with header; longer ones are remarked upon
constexpr size_t k_key_size = 2;              // [bytes] of payload that a match function may read

struct io_pool_ctx_t {
    list_t *sock_rxq VX_TSA(guarded_by(rxlck));
    list_t *sock_txq VX_TSA(guarded_by(txlck));
    vx_mutex rxlck;
    vx_mutex txlck;
    pool_msg_match msg_match; // written by io_pool_init, while the gates are closed
};

constinit io_pool_ctx_t ioctx{};
constinit std::mutex lifecycle; // held by init and deinit, whose own state follows
constinit bool inited = false;  // some io_pool_init has succeeded; stays after a deinit
constinit usage_gate rx_gate;   // open while the receive queue and its lock exist
constinit usage_gate tx_gate;   // the same for the transmit queue
constinit bool rx_lock_made = false;
constinit bool tx_lock_made = false;
constinit std::array<std::atomic<list_t *>, 2> left_to_the_parent{}; // queues that a fork has cut a walk in
constinit std::atomic<bool> tx_closed{false}; // only the last message before the next init may still come in
#ifndef VEXAMSG_SEPARATE_COPIES
constinit copy_store kept_copies;
#endif
constinit log_now_and_then overwrite_throttle;
constinit log_now_and_then search_throttle;

const uint8_t *payload_of(const vx_msg_head_t *msg) {
    return reinterpret_cast<const uint8_t *>(msg) + VX_MSG_HEAD_SIZE;
}

unsigned size_of(const vx_msg_head_t *msg) {
    return VX_MSG_HEAD_SIZE + static_cast<unsigned>(msg->data_length);
}

/// A queued message has room for a whole key, whatever its length: see copy_message.
unsigned room_of(const vx_msg_head_t *msg) {
    return VX_MSG_HEAD_SIZE + std::max<unsigned>(msg->data_length, k_key_size);
}

vx_msg_head_t *queued_message(const list_node *node) {
    return static_cast<vx_msg_head_t *>(node->value);
}

unsigned key_of(const vx_msg_head_t *queued) {
    return ut_get_le16(payload_of(queued));
}

void copy_message(void *room, const vx_msg_head_t *msg) {
    memcpy(room, msg, size_of(msg));
    memset(static_cast<uint8_t *>(room) + size_of(msg), 0, room_of(msg) - size_of(msg));
}

void *room_for_copy(size_t size) {
#ifdef VEXAMSG_SEPARATE_COPIES
    return malloc(size);
#else
    return kept_copies.take(size);
#endif
}

/// The copies that this makes are not released unless the build says so: what has been queued stays in
/// memory.
__attribute__((noinline)) void *list_node_dup(void *value) {
    const auto *msg = static_cast<const vx_msg_head_t *>(value);
    if (size_of(msg) > k_long_message) {
        VX_LOG(WARN, "msg too long %u\n", size_of(msg));
    }
    void *copy = room_for_copy(room_of(msg));
    if (copy != nullptr) {
        copy_message(copy, msg);
    }
    return copy;
}

void list_node_free([[maybe_unused]] void *value) {
#ifdef VEXAMSG_RECLAIM_QUEUE_COPIES
    free(value);
#endif
}

int list_node_compare(const void * /*queued*/, const void * /*key*/) {
    return 1; // a queue is never searched by the list
}

list_t *create_queue() {
    list_type hooks = {list_node_dup, list_node_free, list_node_compare};
    return list_create(&hooks);
}

void append(list_t *queue, const vx_msg_head_t *msg, const char *function) {
    // The list hands the value to list_node_dup, which only reads it.
    if (list_add_node_tail(queue, const_cast<vx_msg_head_t *>(msg)) == nullptr) {
        VX_LOG_AS(function, ERROR, "no memory for a message of %u bytes, lost\n", size_of(msg));
    }
}

bool make_lock(vx_mutex &lock, bool &made) {
    made = made || pthread_mutex_init(&lock.handle, nullptr) == 0;
    return made;
}

void destroy_lock(vx_mutex &lock, bool &made) {
    made = false;                              // first, for a fork in between
    (void)pthread_mutex_destroy(&lock.handle); // the gate is closed: nobody holds it
}

/// What an earlier attempt has made is used again. Nobody else is here: the gates are closed.
int make_queues() VX_TSA(no_thread_safety_analysis) {
    if (!make_lock(ioctx.rxlck, rx_lock_made) || !make_lock(ioctx.txlck, tx_lock_made)) {
        VX_LOG_AS("io_pool_init", ERROR, "mutex init failed\n");
        return -1;
    }
    for (list_t **queue : {&ioctx.sock_rxq, &ioctx.sock_txq}) {
        if (*queue == nullptr) {
            *queue = create_queue();
        }
        if (*queue == nullptr) {
            VX_LOG_AS("io_pool_init", ERROR, "create list failed\n");
            return -1;
        }
    }
    tx_closed.store(false, std::memory_order_relaxed);
    return 0;
}

/// Nobody else is here: the gates are closed. A child that is forked meanwhile releases what it finds, so it
/// finds a queue whole or not at all.
void release_queues() VX_TSA(no_thread_safety_analysis) {
    destroy_lock(ioctx.rxlck, rx_lock_made);
    destroy_lock(ioctx.txlck, tx_lock_made);
    for (list_t **queue : {&ioctx.sock_rxq, &ioctx.sock_txq}) {
        list_release(std::exchange(*queue, nullptr));
    }
}

bool too_long(const vx_msg_head_t *msg, const char *function) {
    if (msg->data_length <= VX_MSG_MAX_PAYLOAD) {
        return false;
    }
    VX_LOG_AS(function, ERROR, "max msg len %d\n", VX_MSG_MAX_PAYLOAD);
    return true;
}

/// A newer message of the same key has come: takes its place, or its turn when the room is too small.
void replace(list_node *node, const vx_msg_head_t *msg) VX_TSA(requires_capability(ioctx.rxlck)) {
    vx_msg_head_t *queued = queued_message(node);
    if (queued->data_length < msg->data_length) {
        VX_LOG_AS("io_pool_rx_put", WARN, "alloc another one\n");
        list_del(ioctx.sock_rxq, node);
        append(ioctx.sock_rxq, msg, "io_pool_rx_put");
        return;
    }
    if (overwrite_throttle.passes(0)) {
        VX_LOG_AS("io_pool_rx_put", INFO, "CPY msg_type=%d,size=%d \n", static_cast<int>(key_of(queued)),
                  static_cast<int>(msg->data_length));
    }
    copy_message(queued, msg);
}

void put_newest(const vx_msg_head_t *msg) VX_TSA(requires_capability(ioctx.rxlck)) {
    std::array<uint8_t, k_key_size> short_key{};
    const uint8_t *key = payload_of(msg);
    if (msg->data_length < k_key_size) {
        memcpy(short_key.data(), key, msg->data_length);
        key = short_key.data();
    }
    for (list_node *node = ioctx.sock_rxq->head; node != nullptr; node = node->next) {
        if (ioctx.msg_match(key, payload_of(queued_message(node)))) {
            replace(node, msg);
            return;
        }
    }
    append(ioctx.sock_rxq, msg, "io_pool_rx_put");
}

void append_tx(const vx_msg_head_t *msg) VX_TSA(requires_capability(ioctx.txlck)) {
    if (ioctx.sock_txq->len > k_most_queued) {
        VX_LOG_AS("io_pool_tx_put", WARN, "node %u, rxq overstocked, drop the oldest one\n",
                  nmapping_self_node_id());
        list_pop_head(ioctx.sock_txq);
    }
    append(ioctx.sock_txq, msg, "io_pool_tx_put");
}

bool append_unless_closed(const vx_msg_head_t *msg) {
    const mutex_guard hold{ioctx.txlck};
    if (tx_closed.load(std::memory_order_relaxed)) {
        return false;
    }
    append_tx(msg);
    return true;
}

/// What the parent has queued is the parent's to send.
void forget_queue(list_t *&queue, vx_mutex &lock, bool lock_made, std::atomic<list_t *> &left) {
    if (!lock_made || pthread_mutex_trylock(&lock.handle) == 0) {
        list_release(queue);
    } else {
        left.store(queue, std::memory_order_relaxed);
    }
    queue = nullptr;
}

} // namespace

int io_pool_init(pool_msg_match msg_match) {
    const std::lock_guard hold{lifecycle};
    if (inited) {
        VX_LOG(WARN, "io_pool init duplicated\n");
        if (gate_pass{tx_gate}) {
            return 0;
        }
    }
    if (make_queues() != 0) {
        return -1;
    }
    inited = true;
    ioctx.msg_match = msg_match;
    rx_gate.open();
    tx_gate.open();
    return 0;
}

void io_pool_deinit(void) {
    const std::lock_guard hold{lifecycle};
    if (!gate_pass{tx_gate}) {
        return;
    }
    rx_gate.close();
    tx_gate.close();
    release_queues();
}

int io_pool_rx_put(const vx_msg_head_t *msg) {
    const gate_pass pass{rx_gate};
    if (!pass || msg->src >= VX_NODE_COUNT) {
        VX_LOG(ERROR, "msg src %u >= %u", msg->src, static_cast<unsigned>(VX_NODE_COUNT));
        return -1;
    }
    if (too_long(msg, __func__)) {
        return -1;
    }
    const mutex_guard hold{ioctx.rxlck};
    if (ioctx.sock_rxq->len > k_most_queued) {
        // No look for the key here: the queue may then hold it twice.
        VX_LOG(WARN, "rxq overstocked, drop the oldest one\n");
        list_pop_head(ioctx.sock_rxq);
        append(ioctx.sock_rxq, msg, __func__);
        return 0;
    }
    put_newest(msg);
    return 0;
}

int io_pool_rx_get(const void *msg_cmp, char *buf, int *len, vx_msg_head_t *head_out) {
    *len = 0;
    const gate_pass pass{rx_gate};
    if (!pass) {
        return 0;
    }
    const mutex_guard hold{ioctx.rxlck};
    for (const list_node *node = ioctx.sock_rxq->head; node != nullptr; node = node->next) {
        const vx_msg_head_t *queued = queued_message(node);
        if (search_throttle.passes(0)) {
            VX_LOG(INFO, "GET msg type %d len %u\n", static_cast<int>(key_of(queued)), queued->data_length);
        }
        if (ioctx.msg_match(msg_cmp, payload_of(queued))) {
            memcpy(buf, payload_of(queued), queued->data_length);
            *head_out = *queued;
            *len = queued->data_length;
            break;
        }
    }
    return *len;
}

int io_pool_tx_put(const vx_msg_head_t *msg) {
    const gate_pass pass{tx_gate};
    // Whoever goes on sending to a node that leaves must not keep it from its queue: no lock for him.
    if (!pass || tx_closed.load(std::memory_order_relaxed)) {
        return io_pool_tx_refuse(msg);
    }
    if (too_long(msg, __func__)) {
        return -1;
    }
    return append_unless_closed(msg) ? 0 : io_pool_tx_refuse(msg);
}

void io_pool_tx_put_last(const vx_msg_head_t *msg) {
    const gate_pass pass{tx_gate};
    if (pass) {
        tx_closed.store(true, std::memory_order_relaxed); // first, so that nobody new wants the lock
        const mutex_guard hold{ioctx.txlck};
        append_tx(msg);
    }
}

int io_pool_tx_refuse(const vx_msg_head_t *msg) {
    // The words speak of a destination out of range; what they mean is that there is no queue.
    VX_LOG_AS("io_pool_tx_put", ERROR, "msg dst %u >= %u", msg->dst, static_cast<unsigned>(VX_NODE_COUNT));
    return -1;
}

int io_pool_tx_get(char *buf, int *len) {
    *len = 0;
    const gate_pass pass{tx_gate};
    for (int look = 0; pass && look < k_empty_looks; ++look) {
        const mutex_guard hold{ioctx.txlck};
        if (ioctx.sock_txq->len == 0) {
            continue;
        }
        const vx_msg_head_t *oldest = queued_message(ioctx.sock_txq->head);
        memcpy(buf, oldest, size_of(oldest));
        *len = static_cast<int>(size_of(oldest));
        list_pop_head(ioctx.sock_txq);
        break;
    }
    return *len;
}

void io_pool_after_fork() VX_TSA(no_thread_safety_analysis) {
    forget_queue(ioctx.sock_rxq, ioctx.rxlck, rx_lock_made, left_to_the_parent[0]);
    forget_queue(ioctx.sock_txq, ioctx.txlck, tx_lock_made, left_to_the_parent[1]);
    rx_lock_made = false;
    tx_lock_made = false;
    inited = false;
    new (&lifecycle) std::mutex;
    new (&rx_gate) usage_gate;
    new (&tx_gate) usage_gate;
}

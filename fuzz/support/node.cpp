// A node without threads. See node.h.
#include "node.h"

#include "check.h"
#include "node_mapping.h"
#include "thread_io_impl.h"
#include "utils/ut_timer.h"

#include <chrono>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace fuzz {
namespace {

void end_loop(ut_timer * /*timer*/, void * /*privdata*/) {
    ut_loop_break();
}

} // namespace

bool same_key(const void *a, const void *b) {
    return ut_get_le16(static_cast<const uint8_t *>(a)) == ut_get_le16(static_cast<const uint8_t *>(b));
}

void await_own_record(uint16_t id) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (nmapping_get_stat(id) != NODE_STAT_ACTIVED) {
        FUZZ_CHECK(std::chrono::steady_clock::now() < deadline);
        std::this_thread::yield();
    }
}

thr_in_data_t &start_node(uint16_t id, msg_call_back callback) {
    static thr_in_data_t context{};
    static ut_timer first_turn{};
    nmapping_set_self(id);
    FUZZ_CHECK(io_pool_init(same_key) == 0 && nmapping_create() == 0);
    memcpy(context.name, "fuzz", sizeof "fuzz");
    memcpy(context.ip, "192.168.1.9", sizeof "192.168.1.9");
    context.node_id = id;
    context.match = same_key;
    context.msg_cb = callback;
    FUZZ_CHECK(pipe2(context.pipefd, O_NONBLOCK) == 0 && pipe(context.thio2aumsg) == 0);
    thrio_prepare();
    thrio_stop_registering(deadline_in(std::chrono::seconds(1))); // the worker writes the own record and ends
    ut_timer_set(&first_turn, 0, false, end_loop, nullptr);
    ut_timer_start(&first_turn);
    (void)msg_io_thread(&context); // comes back after the first turn of its loop
    await_own_record(id);
    return context;
}

} // namespace fuzz

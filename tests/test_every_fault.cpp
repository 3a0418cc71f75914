// One fault at a time, at every place: each call that the library makes to the system during a node's whole
// life fails once, for every n the n-th of its kind. What then must still work does, nothing is left behind,
// and the next life is whole.
#include "expect_log.h"
#include "faults.h"
#include "process_state.h"
#include "refusals.h"
#include "scenario.h"
#include "wait.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <ostream>

namespace {

using bus::milliseconds;
using bus::node_under_test;
using bus::play_scenario;
using bus::played;
using faults::call;

constexpr uint16_t k_id = 9;
constexpr double k_no_hang_s = 5; // on a machine that is busy with other things
constexpr milliseconds k_short{600};

void works(const played &p, int /*n*/) {
    EXPECT_TRUE(p.all_well());
}

/// A datagram may always be lost, and nobody is told.
void loses_a_datagram(const played &p, int /*n*/) {
    EXPECT_EQ(p.init, 0);
    EXPECT_TRUE(p.all_accepted());
    EXPECT_LE(p.lost() + (p.accepted ? 0 : 1) + (p.farewell ? 0 : 1), 1);
}

void has_no_socket(const played &p, int n) {
    EXPECT_EQ(p.init, 0);
    EXPECT_TRUE(p.all_accepted());
    EXPECT_LOGGED(INFO, "src/utils/netapi", "net_socket", "socket : %s\n", "socket : Too many open files\n");
    const bool node_has_one = n > 0;
    EXPECT_EQ(p.accepted, node_has_one);
    EXPECT_EQ(p.queued_arrived, node_has_one);
    EXPECT_EQ(p.direct_arrived, !node_has_one);
    EXPECT_TRUE(p.status_arrived) << "the next direct send makes the socket";
}

void has_no_port(const played &p, int /*n*/) {
    EXPECT_EQ(p.init, 0);
    EXPECT_TRUE(p.all_accepted());
    EXPECT_LOGGED(INFO, "src/utils/netapi", "net_bind", "bind : %s\n", "bind : Address already in use\n");
    EXPECT_TRUE(p.direct_arrived && p.queued_arrived && p.broadcast_arrived && p.heartbeat_arrived);
    EXPECT_FALSE(p.heard);
}

void does_not_start(const played &p, const char *unit, const char *function, const char *line) {
    EXPECT_EQ(p.init, -1);
    EXPECT_LOGGED(ERROR, unit, function, line, line);
}

void has_no_pipe(const played &p, int /*n*/) {
    does_not_start(p, "src/vx_msg", "vision_msg_component_init", "pipe create err\n");
}

void has_no_queue(const played &p, int /*n*/) {
    does_not_start(p, "src/io_pool", "io_pool_init", "create list failed\n");
}

void has_no_lock(const played &p, int n) {
    if (n < 2) {
        does_not_start(p, "src/io_pool", "io_pool_init", "mutex init failed\n");
    }
    EXPECT_EQ(p.init, -1);
}

void has_no_thread(const played &p, int n) {
    constexpr char line[] = "failed to create thread\n";
    if (p.init != 0) { // the I/O thread, or the debug thread
        does_not_start(p, "src/vx_msg", "vision_msg_component_init", line);
        return;
    }
    EXPECT_GT(n, 0);
    EXPECT_LOGGED(ERROR, "src/thread_io", "msg_io_thread", line, line);
    EXPECT_FALSE(p.accepted);
    EXPECT_TRUE(p.all_accepted());
    EXPECT_EQ(p.lost(), 0) << "but for registering it works";
}

void has_no_memory_for_a_message(const played &p, int n) {
    loses_a_datagram(p, n);
    EXPECT_EQ(logs::count("no memory for a message of %u bytes, lost\n"), 1U);
}

void cannot_wake_the_thread(const played &p, int /*n*/) {
    EXPECT_EQ(p.init, 0);
    EXPECT_EQ(logs::count("write pipe failed\n"), 1U);
    const int refused = (p.queued == -1 ? 1 : 0) + (p.broadcast == -1 ? 1 : 0);
    EXPECT_LE(refused, 1);
    EXPECT_LE(p.lost(), refused) << "it leaves with the next one at the latest";
    EXPECT_TRUE(p.accepted && p.farewell);
}

/// What is only to be asked again is no error, and nobody hears of it.
void reads_on(const played &p, int /*n*/) {
    EXPECT_TRUE(p.all_well());
    EXPECT_EQ(logs::count("%s\n"), 0U);
}

void hears_of_an_error(const played &p, int /*n*/) {
    EXPECT_TRUE(p.all_well());
    EXPECT_LOGGED(INFO, "src/utils/ut_evt", "on_read", "%s\n", "recvfrom error: Connection refused\n");
}

/// A read end that blocks keeps the thread in its first wake-up; nobody else is kept, and it ends in time.
void may_block_on_its_pipe(const played &p, int n) {
    if (n >= 2) {
        works(p, n);
    }
    EXPECT_EQ(p.init, 0);
    EXPECT_TRUE(p.all_accepted());
    EXPECT_TRUE(p.direct_arrived && p.status_arrived && p.heartbeat_arrived);
    EXPECT_TRUE(p.farewell);
}

struct row {
    const char *name;
    call which;
    int error;
    void (*check)(const played &p, int n);
    milliseconds patience = bus::k_patience;
    long result = -1;
};

void PrintTo(const row &r, std::ostream *out) {
    *out << "errno " << r.error;
}

constexpr auto k_rows = std::to_array<row>({
    {"SocketDescriptorsOut", call::socket, EMFILE, has_no_socket, k_short},
    {"BindInUse", call::bind, EADDRINUSE, has_no_port, k_short},
    {"PipeDescriptorsOut", call::pipe, EMFILE, has_no_pipe, k_short},
    {"PipeTableFull", call::pipe, ENFILE, has_no_pipe, k_short},
    {"FcntlRefused", call::fcntl, EINVAL, may_block_on_its_pipe, k_short},
    {"ThreadRefused", call::pthread_create, EAGAIN, has_no_thread, k_short},
    {"MutexRefused", call::pthread_mutex_init, EAGAIN, has_no_lock, k_short},
    {"MutexBusyAtItsEnd", call::pthread_mutex_destroy, EBUSY, works},
    {"CallocWithoutMemory", call::calloc, ENOMEM, has_no_queue, k_short},
    {"MallocWithoutMemory", call::malloc, ENOMEM, has_no_memory_for_a_message, k_short},
    {"SendtoAgain", call::sendto, EAGAIN, works},
    {"SendtoInterrupted", call::sendto, EINTR, works},
    {"SendtoUnreachable", call::sendto, ENETUNREACH, loses_a_datagram, k_short},
    {"SendtoForbidden", call::sendto, EPERM, loses_a_datagram, k_short},
    {"SendtoWithoutBuffers", call::sendto, ENOBUFS, loses_a_datagram, k_short},
    {"RecvfromAgain", call::recvfrom, EAGAIN, reads_on},
    {"RecvfromInterrupted", call::recvfrom, EINTR, reads_on},
    {"RecvfromRefused", call::recvfrom, ECONNREFUSED, hears_of_an_error},
    {"ReadAgain", call::read, EAGAIN, works},
    {"ReadInterrupted", call::read, EINTR, works},
    {"ReadBroken", call::read, EIO, works},
    {"ReadOfNothing", call::read, 0, works, bus::k_patience, 0},
    {"WriteAgain", call::write, EAGAIN, cannot_wake_the_thread, k_short},
    {"WriteInterrupted", call::write, EINTR, cannot_wake_the_thread, k_short},
    {"WriteBroken", call::write, EPIPE, cannot_wake_the_thread, k_short},
    {"WriteOfNothing", call::write, 0, cannot_wake_the_thread, k_short, 0},
    {"CloseBroken", call::close, EIO, works},
    {"ClockRefused", call::gettimeofday, EFAULT, works},
    {"WaitRefused", call::pthread_cond_clockwait, EINVAL, works},
    {"EpollCtlWithoutMemory", call::epoll_ctl, ENOMEM, works},
    {"EpollCtlTooMany", call::epoll_ctl, ENOSPC, works},
    {"EpollWaitInterrupted", call::epoll_wait, EINTR, works},
    {"EpollWaitBroken", call::epoll_wait, EBADF, works},
});

class EveryFault : public testing::TestWithParam<row> {
protected:
    void SetUp() override {
        ASSERT_TRUE(play_scenario(node, k_id, bus::k_patience).all_well()); // makes what stays for good
        open_things = process_state::open_things();
        threads = process_state::threads();
        expect_whole();
    }

    void TearDown() override { faults::clear(); }

    /// A life without a fault. Leaves the counts of its calls.
    void expect_whole() {
        faults::clear();
        const played p = play_scenario(node, k_id, bus::k_patience);
        EXPECT_TRUE(p.all_well()) << p;
        EXPECT_EQ(process_state::open_things(), open_things);
        EXPECT_TRUE(wait_until([this] { return process_state::threads() <= threads; }));
    }

    node_under_test node{k_id};
    std::multiset<std::string> open_things;
    size_t threads = 0;
};

} // namespace

TEST_P(EveryFault, IsSurvivedAtEveryPlace) {
    const row &r = GetParam();
    const long calls = faults::calls(r.which);
    ASSERT_GT(calls, 0);
    for (int n = 0; n < calls && !HasFailure(); ++n) {
        logs::clear();
        faults::clear();
        faults::fail(r.which, r.error, 1, n, r.result);
        const played p = play_scenario(node, k_id, r.patience);
        if (faults::calls(r.which) <= n) {
            continue; // a life may have a call less than the one before it
        }
        r.check(p, n);
        EXPECT_LT(p.stop_s, k_no_hang_s);
        EXPECT_FALSE(HasFailure()) << r.name << ", call " << n << " of " << calls << ": " << p;
        expect_whole();
        EXPECT_FALSE(HasFailure()) << r.name << ", after call " << n << " of " << calls;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, EveryFault, testing::ValuesIn(k_rows),
                         [](const auto &tested) { return tested.param.name; });

using EveryCall = EveryFault;

TEST_P(EveryCall, ThatALifeMakesHasItsFault) {
    for (int i = 0; i < static_cast<int>(call::number_of_calls); ++i) {
        const auto which = static_cast<call>(i);
        const bool has_row =
            std::any_of(k_rows.begin(), k_rows.end(), [which](const row &r) { return r.which == which; });
        EXPECT_TRUE(has_row || which == call::free || faults::calls(which) == 0)
            << "call " << i << " of the list in faults.h";
    }
}

INSTANTIATE_TEST_SUITE_P(Once, EveryCall, testing::Values(k_rows[0]), [](const auto &) { return "IsNamed"; });

TEST(FirstLoop, WithoutEpollWaitsAnotherWay) {
    faults::fail(call::epoll_create1, EMFILE);
    node_under_test node{k_id};
    const played p = play_scenario(node, k_id, bus::k_patience);
    EXPECT_GT(faults::calls(call::epoll_create1), 0);
    EXPECT_TRUE(p.all_well()) << p;
}

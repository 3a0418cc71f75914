// Starting a node when the system refuses: what is said, what still works, and that all is well afterwards.
#include "expect_log.h"
#include "faults.h"
#include "node_mapping.h"
#include "peer.h"
#include "process_state.h"
#include "refusals.h"
#include "wait.h"

#include <atomic>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;
using faults::call;

constexpr char k_init[] = "vision_msg_component_init";
constexpr char k_no_thread[] = "failed to create thread\n";
constexpr char k_no_pipe[] = "pipe create err\n";
constexpr char k_exit_line[] = "thrio thread exit\n";
constexpr uint16_t k_id = 5;

/// A process in which a node has run already, so that what stays for good is there, and all sockets of the
/// test are open.
class StartFault : public testing::Test {
protected:
    void SetUp() override {
        (void)node.other(3);
        ASSERT_TRUE(node.join({3}));
        expect_works();
        node.stop();
        descriptors = process_state::descriptors();
        threads = process_state::threads();
        logs::clear();
        faults::clear();
    }

    void expect_works() {
        node_under_test::forget_heard();
        node.send(message({1, 3, k_id}, text("in")));
        ASSERT_TRUE(node_under_test::wait_heard(1));
        EXPECT_EQ(vision_send_msg(NODE_VIO, "direct", 6), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("direct")));
        EXPECT_EQ(vxmsg_send_general(3, 1, "queued", 6), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("queued")));
        EXPECT_EQ(node.other(3).last_port(), 9000 + k_id);
    }

    /// Stops what there is; then nothing is left of it, and the next start works in full.
    void expect_recovery() {
        ASSERT_TRUE(stops());
        EXPECT_EQ(process_state::descriptors(), descriptors);
        EXPECT_TRUE(wait_until([this] { return process_state::threads() <= threads; }));
        bus::expect_refusals();
        ASSERT_TRUE(node.join({3}));
        (void)node.other(3).take_all(); // what the fault has held back
        expect_works();
        node.stop();
        EXPECT_EQ(process_state::descriptors(), descriptors);
        EXPECT_TRUE(wait_until([this] { return process_state::threads() <= threads; }));
    }

    /// Starts with the n-th new thread refused (0: the I/O thread, 1: the debug thread, 2: the worker). Makes
    /// the order certain: the worker's start comes last.
    int start_without_thread(int n) {
        faults::before(call::socket,
                       [] { (void)wait_until([] { return faults::calls(call::pthread_create) >= 2; }); });
        faults::fail(call::pthread_create, EAGAIN, 1, n);
        return node.start();
    }

    /// Whether a stop comes to its end. A process that hangs here cannot go on.
    bool stops() {
        std::atomic<bool> stopped{false};
        std::thread stopper([&] {
            node.stop();
            stopped = true;
        });
        if (!wait_until([&] { return stopped.load(); })) {
            fprintf(stderr, "the node does not stop\n");
            abort();
        }
        stopper.join();
        faults::clear();
        return true;
    }

    node_under_test node{k_id};
    std::map<std::string, std::string> descriptors;
    size_t threads = 0;
};

} // namespace

TEST_F(StartFault, WithoutTheFirstPipe) {
    faults::fail(call::pipe, EMFILE, 1);
    EXPECT_EQ(node.start(), -1);
    EXPECT_LOGGED(ERROR, "src/vx_msg", k_init, k_no_pipe, k_no_pipe);
    bus::expect_refusals();
    EXPECT_EQ(process_state::descriptors(), descriptors);
    expect_recovery();
}

TEST_F(StartFault, WithoutTheSecondPipe) {
    faults::fail(call::pipe, EMFILE, 1, 1);
    EXPECT_EQ(node.start(), -1);
    EXPECT_LOGGED(ERROR, "src/vx_msg", k_init, k_no_pipe, k_no_pipe);
    bus::expect_refusals();
    EXPECT_EQ(process_state::descriptors(), descriptors);
    expect_recovery();
}

TEST_F(StartFault, WithoutAPipeMayBeTriedAgainAtOnce) {
    faults::fail(call::pipe, EMFILE, 1, 1);
    EXPECT_EQ(node.start(), -1);
    EXPECT_EQ(vision_brocast_msg("lost", 4), -1);
    EXPECT_EQ(logs::count("can't init twice\n"), 0U);
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_brocast_msg("sent", 4), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("sent"))) << "what was refused is not sent";
}

TEST_F(StartFault, WithoutTheIoThread) {
    EXPECT_EQ(start_without_thread(0), -1);
    EXPECT_LOGGED(ERROR, "src/vx_msg", k_init, k_no_thread, k_no_thread);
    EXPECT_EQ(logs::count("my node id %u, adv pipe[%d]\n"), 0U);
    EXPECT_EQ(node.start(), -1);
    EXPECT_LOGGED(INFO, "src/vx_msg", k_init, "can't init twice\n", "can't init twice\n");
    expect_recovery();
}

TEST_F(StartFault, WithoutTheDebugThread) {
    EXPECT_EQ(start_without_thread(1), -1);
    EXPECT_LOGGED(ERROR, "src/vx_msg", k_init, k_no_thread, k_no_thread);
    EXPECT_EQ(node.start(), -1);
    EXPECT_EQ(logs::count("can't init twice\n"), 1U);
    expect_recovery();
}

TEST_F(StartFault, WithoutTheRegistrationWorker) {
    EXPECT_EQ(start_without_thread(2), 0);
    ASSERT_TRUE(logs::wait_for(k_no_thread));
    EXPECT_LOGGED(ERROR, "src/thread_io", "msg_io_thread", k_no_thread, k_no_thread);
    ASSERT_TRUE(node.settle()) << "the node receives all the same";
    EXPECT_TRUE(node.manager().silent());
    expect_recovery();
}

TEST_F(StartFault, WithoutASocket) {
    faults::fail(call::socket, EMFILE, 1);
    EXPECT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] { return nmapping_get_stat(k_id) == 1; })) << "the worker runs";
    nmapping_set_stat(0, 1);
    EXPECT_EQ(vision_brocast_msg("x", 1), 0);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("x"))) << "direct sends have their own";
    node.stop();
    EXPECT_EQ(logs::count(k_exit_line), 1U);
    expect_recovery();
}

TEST_F(StartFault, WithItsPortTaken) {
    {
        const bus::peer squatter{"0.0.0.0", 9000 + k_id};
        EXPECT_EQ(node.start(), 0);
        EXPECT_TRUE(node.manager().receive()) << "the node sends all the same";
        EXPECT_NE(node.manager().last_port(), 9000 + k_id);
        EXPECT_LOGGED(INFO, "src/utils/netapi", "net_bind", "bind : %s\n", "bind : Address already in use\n");
        EXPECT_EQ(vxmsg_send_general(3, 1, "queued", 6), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, k_id, 3}, text("queued")));
        node.stop();
    }
    expect_recovery();
}

TEST_F(StartFault, WithoutALockOfTheQueues) {
    for (const int skip : {0, 1}) {
        faults::fail(call::pthread_mutex_init, EAGAIN, 1, skip);
        EXPECT_EQ(node.start(), -1) << skip;
        EXPECT_LOGGED(ERROR, "src/io_pool", "io_pool_init", "mutex init failed\n", "mutex init failed\n");
        bus::expect_refusals();
        expect_recovery();
    }
}

TEST_F(StartFault, WithoutALockOfTheTable) {
    for (const int skip : {2, 65, 129}) {
        faults::fail(call::pthread_mutex_init, EAGAIN, 1, skip);
        EXPECT_EQ(node.start(), -1) << skip;
        bus::expect_refusals();
        EXPECT_EQ(process_state::descriptors(), descriptors);
        expect_recovery();
    }
}

TEST_F(StartFault, WithASocketThatCannotBeMadeNonBlocking) {
    faults::fail(call::fcntl, EINVAL, faults::k_forever, 4); // the pipe's ends take four
    ASSERT_TRUE(node.join({3})) << "it still receives";
    expect_works();
    expect_recovery();
}

TEST_F(StartFault, WithAPipeThatCannotBeMadeNonBlocking) {
    faults::fail(call::fcntl, EINVAL, 2);
    ASSERT_TRUE(node.start() == 0);
    (void)vxmsg_send_general(3, 1, "x", 1);
    expect_recovery();
}

TEST_F(StartFault, WithNothingNonBlocking) {
    faults::fail(call::fcntl, EINVAL);
    ASSERT_TRUE(node.start() == 0);
    (void)vxmsg_send_general(3, 1, "x", 1);
    expect_recovery();
}

TEST(FirstStart, WithoutALoopNeitherSendsNorReceivesButEnds) {
    node_under_test node{k_id};
    faults::fail(call::ev_loop_new, 0, 1);
    ASSERT_EQ(node.start(), 0);
    ASSERT_TRUE(wait_until([] {
        for (const logs::line &l : logs::all()) {
            if (l.level == VISION_LOG_LEVEL_ERROR && l.unit == "src/thread_io" &&
                l.function == "msg_io_thread") {
                return true;
            }
        }
        return false;
    }));
    EXPECT_EQ(vision_brocast_msg("x", 1), 0);
    EXPECT_TRUE(node.manager().silent());
    node.stop();
    EXPECT_EQ(logs::count(k_exit_line), 1U);
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    EXPECT_TRUE(node.other(3).receive());
}

TEST(FirstStart, CallsBeforeItReachNoDescriptor) {
    bus::expect_refusals();
    for (const call which : {call::write, call::sendto, call::socket, call::read, call::close}) {
        EXPECT_EQ(faults::calls(which), 0);
    }
}

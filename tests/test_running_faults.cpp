// A running node when the system refuses, and its end then.
#include "expect_log.h"
#include "faults.h"
#include "node_mapping.h"
#include "peer.h"
#include "process_state.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <thread>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;
using faults::call;

constexpr char k_unit[] = "src/vx_msg";
constexpr char k_no_wake_up[] = "write pipe failed\n";
constexpr char k_exit_line[] = "thrio thread exit\n";
constexpr char k_end_line[] = "mgr server not ack unregister msg in 300ms\n";

bool heard_the_farewell(node_under_test &node) {
    const std::vector<bytes> told = node.manager().take_all();
    return std::count_if(told.begin(), told.end(), [](const bytes &d) { return d.size() == 74; }) == 1;
}

/// Whether a stop comes to its end. When it does not, all faults end and a message wakes the thread once
/// more.
bool stops(node_under_test &node) {
    std::atomic<bool> stopped{false};
    std::thread stopper([&] {
        node.stop();
        stopped = true;
    });
    const bool in_time = wait_until([&] { return stopped.load(); });
    faults::clear();
    if (!in_time) {
        (void)vision_brocast_msg("wake up", 7);
        fprintf(stderr, "the node does not stop\n");
    }
    stopper.join();
    return in_time;
}

/// How many wake-up bytes wait in the pipe.
int bytes_in_pipe() {
    int fd = -1;
    int waiting = 0;
    const std::vector<logs::line> lines = logs::with_format("my node id %u, adv pipe[%d]\n");
    (void)sscanf(lines.back().text.c_str(), "my node id %*u, adv pipe[%d]\n", &fd);
    EXPECT_EQ(ioctl(fd, FIONREAD, &waiting), 0);
    return waiting;
}

} // namespace

TEST(WakeUp, ThatCannotBeWrittenFailsTheSendButKeepsTheMessage) {
    struct row {
        const char *function;
        std::function<int()> send;
        bytes sent;
    };
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const row &r : {
             row{"vxmsg_send_general", [] { return vxmsg_send_general(3, 1, "g", 1); },
                 message({1, 9, 3}, text("g"))},
             row{"vision_broadcast_status", [] { return vision_broadcast_status("s", 1); },
                 message({0, 9, 3}, text("s"))},
             row{"vision_brocast_msg", [] { return vision_brocast_msg("m", 1); },
                 message({1, 9, 3}, text("m"))},
         }) {
        ASSERT_TRUE(node.settle()); // or it may still be looking into the queue
        faults::fail(call::write, EAGAIN, 1);
        EXPECT_EQ(r.send(), -1) << r.function;
        EXPECT_LOGGED(ERROR, k_unit, r.function, k_no_wake_up, k_no_wake_up);
        EXPECT_TRUE(node.other(3).silent());
        EXPECT_EQ(vxmsg_send_general(3, 1, "next", 4), 0);
        EXPECT_EQ(node.other(3).receive(), r.sent) << r.function;
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("next")));
    }
}

TEST(WakeUp, IsOneByteG) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    const long written = faults::calls(call::write);
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    EXPECT_EQ(vision_brocast_msg("x", 1), 0);
    EXPECT_EQ(faults::calls(call::write), written + 2);
    EXPECT_EQ(bytes_in_pipe(), 2);
}

TEST(WakeUp, OfNoByteIsAFailure) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    faults::fail(call::write, 0, 1, 0, 0);
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), -1);
    EXPECT_LOGGED(ERROR, k_unit, "vxmsg_send_general", k_no_wake_up, k_no_wake_up);
}

TEST(WakeUp, ThatCannotBeWrittenForGoodDoesNotKeepTheNodeFromLeaving) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    (void)node.manager().take_all();
    const auto descriptors = process_state::descriptors().size();
    for (const int error : {EAGAIN, EPIPE, EBADF}) {
        faults::fail(call::write, error);
        EXPECT_EQ(vision_brocast_msg("x", 1), -1);
        EXPECT_TRUE(stops(node)) << error;
        EXPECT_LOGGED(ERROR, k_unit, "vxmsg_ungregister", k_no_wake_up, k_no_wake_up);
        EXPECT_TRUE(heard_the_farewell(node)) << error;
        ASSERT_TRUE(node.join({3}));
        EXPECT_EQ(process_state::descriptors().size(), descriptors) << error;
        (void)node.manager().take_all();
        (void)node.other(3).take_all();
        EXPECT_EQ(vision_brocast_msg("y", 1), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("y")));
    }
}

TEST(Drain, DoesNotEndAtAReadOfNothing) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    // While the thread still drains it has sent nothing, so the message cannot be there at the fifth read.
    std::atomic<int> reads{0};
    std::atomic<bool> sent_before_drained{false};
    faults::before(call::read, [&] {
        if (++reads <= 5 && !node.other(3).silent()) {
            sent_before_drained = true;
        }
    });
    faults::fail(call::read, 0, 4, 0, 0);
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    EXPECT_TRUE(wait_until([&] { return reads >= 6; })); // four empty ones, the byte, and the end
    faults::before(call::read, {});
    EXPECT_FALSE(sent_before_drained);
    EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("x")));
}

TEST(Drain, TakesEveryByteInItsTurn) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    ASSERT_TRUE(node.hold());
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    }
    const long before = faults::calls(call::read);
    node_under_test::let_go();
    ASSERT_TRUE(wait_until([=] { return faults::calls(call::read) >= before + 21; }));
    EXPECT_EQ(bytes_in_pipe(), 0);
}

TEST(SendError, OfAQueuedMessageLosesThatMessageOnly) {
    for (const int error : {ENETUNREACH, EPERM, EMSGSIZE, ENOBUFS}) {
        node_under_test node{9};
        ASSERT_TRUE(node.join({1, 3}));
        ASSERT_TRUE(node.hold());
        EXPECT_EQ(vision_brocast_msg("lost at 1", 9), 0);
        faults::fail(call::sendto, error, 1);
        node_under_test::let_go();
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("lost at 1"))) << error;
        EXPECT_TRUE(node.other(1).silent()) << error;
        faults::clear();
    }
}

TEST(SendError, OfADirectMessageIsNotReported) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3, 127}));
    const HeartBeatPair pair = {LED, 1};
    faults::fail(call::sendto, ENETUNREACH);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
    EXPECT_EQ(vision_send_status(NODE_VIO, "x", 1), 0);
    EXPECT_EQ(vision_set_hearbeat(&pair, 1), 0);
    faults::clear();
    EXPECT_EQ(vision_send_msg(NODE_VIO, "y", 1), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("y")));
}

TEST(SendError, OfARegisterIsMadeUpForByTheNext) {
    faults::shorten_waits(0.01);
    faults::fail(call::sendto, ENETUNREACH, 3);
    node_under_test node{9};
    EXPECT_EQ(node.start(), 0);
    EXPECT_TRUE(node.manager().receive());
    EXPECT_GE(faults::calls(call::sendto), 4);
}

TEST(SendError, OfTheUnregisterDoesNotKeepTheNodeFromLeaving) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    faults::fail(call::sendto, ENETUNREACH);
    EXPECT_TRUE(stops(node));
    EXPECT_FALSE(heard_the_farewell(node));
    EXPECT_EQ(logs::count(k_end_line), 1U);
}

TEST(SendError, AgainAndInterruptedAreTriedAgain) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    for (const int error : {EAGAIN, EINTR}) {
        faults::fail(call::sendto, error, 5);
        EXPECT_EQ(vxmsg_send_general(3, 1, "q", 1), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("q")));
        faults::fail(call::sendto, error, 5);
        EXPECT_EQ(vision_send_msg(NODE_VIO, "d", 1), 0);
        EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("d")));
    }
}

TEST(DirectSocket, ThatCannotBeMadeIsTriedAgainByTheNextSend) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    faults::fail(call::socket, EMFILE, 2);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "lost", 4), 0);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "lost", 4), 0);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "there", 5), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, 9, 3}, text("there")));
}

TEST(DirectSend, CostsOneSystemCall) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_send_msg(NODE_VIO, "first", 5), 0); // makes the socket
    const long sent = faults::calls(call::sendto);
    const long made = faults::calls(call::malloc);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
    }
    EXPECT_LE(faults::calls(call::sendto), sent + 11); // a REGISTER may come between
    EXPECT_EQ(faults::calls(call::malloc), made);
    EXPECT_EQ(faults::calls(call::socket), 2); // the node's and this
    EXPECT_EQ(faults::calls(call::write), 0);
}

TEST(Farewell, WithoutMemoryForItIsLostButTheNodeEnds) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    (void)node.manager().take_all();
    faults::fail(call::malloc, 0);
    faults::fail(call::calloc, 0);
    EXPECT_TRUE(stops(node));
    EXPECT_FALSE(heard_the_farewell(node));
    EXPECT_EQ(logs::count(k_exit_line), 1U);
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_brocast_msg("x", 1), 0);
    EXPECT_TRUE(node.other(3).receive());
}

TEST(Farewell, ThatIsLostWhileTheThreadIsDrainingItsPipeDoesNotKeepItRunning) {
    node_under_test node{9};
    ASSERT_TRUE(node.join({3}));
    // The thread has been woken by a message and is about to read the pipe; only then does the stop put its
    // byte there, so that one and the same round reads both.
    static std::atomic<bool> woken;
    static std::atomic<bool> go_on;
    woken = false;
    go_on = false;
    faults::before(call::read, [] {
        woken = true;
        (void)wait_until([] { return go_on.load(); });
    });
    EXPECT_EQ(vxmsg_send_general(3, 1, "x", 1), 0);
    ASSERT_TRUE(wait_until([] { return woken.load(); }));
    faults::fail(call::malloc, 0);
    std::thread releaser([] {
        EXPECT_TRUE(wait_until([] { return bytes_in_pipe() == 2; }));
        go_on = true;
    });
    EXPECT_TRUE(stops(node));
    releaser.join();
}

TEST(Flood, OfDatagramsThatNeverEndsDoesNotKeepTheNodeFromLeaving) {
    struct row {
        const char *name;
        bytes datagram;
    };
    bytes foreign = message({1, 3, 9}, {1});
    foreign[0] = 0;
    node_under_test node{9};
    const bus::peer flooder{"192.168.1.200", 0};
    for (const row &r :
         {row{"callback", message({1, 3, 9}, {1})}, row{"no kind", message({3, 3, 9})},
          row{"status", message({0, 3, 9}, {6, 0, 1})},
          row{"status that is dropped", bus::message_saying(9, {0, 3, 9}, {6, 0, 1})},
          row{"for nobody", message({1, 3, 200})}, row{"foreign", foreign}, row{"short", {0x3A, 0x5E, 0}}}) {
        ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {})) << r.name;
        (void)node.manager().take_all();
        logs::keep(false);
        // The next datagram is there before each read: the socket is never empty.
        faults::before(call::recvfrom, [&] { flooder.send(r.datagram, 9); });
        flooder.send(r.datagram, 9);
        const long before = faults::calls(call::recvfrom);
        ASSERT_TRUE(wait_until([=] { return faults::calls(call::recvfrom) > before + 100; }));
        EXPECT_TRUE(stops(node)) << r.name;
        EXPECT_TRUE(heard_the_farewell(node)) << r.name;
        logs::keep(true);
    }
}

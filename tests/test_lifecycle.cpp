// Starting and stopping the node, in every order and from every side.
#include "expect_log.h"
#include "node_mapping.h"
#include "node_mgr_msg_helper.h"
#include "peer.h"
#include "process_state.h"
#include "refusals.h"
#include "thread_io.h"
#include "wait.h"

#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

using bus::bytes;
using bus::message;
using bus::node_under_test;
using bus::text;

constexpr char k_unit[] = "src/vx_msg";
constexpr char k_twice[] = "can't init twice\n";
constexpr char k_exit_line[] = "thrio thread exit\n";

/// That a node that has joined with node 3 active works: receives and sends on every way.
void expect_works(node_under_test &node, uint16_t id, const std::string &words) {
    node_under_test::forget_heard();
    node.send(message({1, 3, id}, text(words)));
    ASSERT_TRUE(node_under_test::wait_heard(1));
    EXPECT_EQ(node_under_test::all_heard()[0].payload, text(words));
    const bytes status = bus::joined({6, 0}, text(words));
    node.send(message({0, 3, id}, status));
    ASSERT_TRUE(node.settle());
    bytes room(8192);
    MsgExtra extra{};
    ASSERT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room.data(), 8192, &extra),
              static_cast<int>(status.size()));
    EXPECT_EQ(bytes(room.begin(), room.begin() + extra.len), status);
    const int size = static_cast<int>(words.size());
    EXPECT_EQ(vision_send_msg(NODE_VIO, words.data(), size), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, id, 3}, text(words)));
    EXPECT_EQ(vxmsg_send_general(3, 1, words.data(), size), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, id, 3}, text(words)));
    EXPECT_EQ(node.other(3).last_port(), 9000 + id);
    EXPECT_EQ(vision_brocast_msg(words.data(), size), 0);
    EXPECT_EQ(node.other(3).receive(), message({1, id, 3}, text(words)));
}

/// Stands in for descriptor 0 while it lives; tells what was written to it.
class watched_descriptor_0 {
public:
    watched_descriptor_0() : kept_(dup(0)) {
        EXPECT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
        EXPECT_EQ(dup2(pipe_[1], 0), 0);
    }
    ~watched_descriptor_0() {
        (void)dup2(kept_, 0);
        for (const int fd : {pipe_[0], pipe_[1], kept_}) {
            (void)close(fd);
        }
    }
    watched_descriptor_0(const watched_descriptor_0 &) = delete;
    watched_descriptor_0 &operator=(const watched_descriptor_0 &) = delete;

    [[nodiscard]] bool untouched() const {
        pollfd one{pipe_[0], POLLIN, 0};
        return poll(&one, 1, 0) == 0 && fcntl(0, F_GETFD) >= 0;
    }

private:
    int kept_;
    int pipe_[2] = {};
};

} // namespace

TEST(Init, SaysWhoStartsAndWhereItsPipeIs) {
    node_under_test node{5};
    ASSERT_EQ(node.start("soa"), 0);
    EXPECT_EQ(logs::init_names(), std::vector<std::string>{"soa"});
    const std::vector<logs::line> lines = logs::with_format("my node id %u, adv pipe[%d]\n");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_INFO);
    EXPECT_EQ(lines[0].unit, k_unit);
    EXPECT_EQ(lines[0].function, "vision_msg_component_init");
    int fd = -1;
    ASSERT_EQ(sscanf(lines[0].text.c_str(), "my node id 5, adv pipe[%d]\n", &fd), 1);
    EXPECT_EQ(process_state::descriptors()[std::to_string(fd)].find("pipe:"), 0U);
    const int flags = fcntl(fd, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_WRONLY);
    EXPECT_NE(flags & O_NONBLOCK, 0);
}

TEST(Init, TwiceIsRefusedAndTheNodeGoesOn) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    EXPECT_EQ(vision_msg_component_init(NODE_VIO, "other", "192.168.1.3", nullptr), -1);
    EXPECT_LOGGED(INFO, k_unit, "vision_msg_component_init", k_twice, k_twice);
    EXPECT_EQ(nmapping_self_node_id(), 5);
    EXPECT_EQ(logs::init_names().size(), 1U);
    expect_works(node, 5, "still here");
}

TEST(Init, WithoutANameOrAnAddressIsRefused) {
    EXPECT_EQ(vision_msg_component_init(NODE_SOA, nullptr, "192.168.1.5", nullptr), -1);
    EXPECT_EQ(vision_msg_component_init(NODE_SOA, "soa", nullptr, nullptr), -1);
    bus::expect_refusals();
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    expect_works(node, 5, "after all");
}

TEST(Init, OfSeveralThreadsAtOnceSucceedsOnce) {
    bus::peer manager{0};
    for (int round = 0; round < 5; ++round) {
        std::atomic<int> started{0};
        {
            std::vector<std::jthread> threads;
            for (int i = 0; i < 8; ++i) {
                threads.emplace_back([&started] {
                    started += vision_msg_component_init(NODE_SOA, "soa", "192.168.1.5", nullptr) == 0;
                });
            }
        }
        EXPECT_EQ(started, 1);
        std::vector<std::jthread> threads;
        threads.reserve(8);
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back(vision_msg_component_deinit);
        }
    }
    EXPECT_EQ(logs::count(k_exit_line), 5U);
}

TEST(Init, OfANodeBeyondTheTableRegistersItAllTheSame) {
    node_under_test node{5};
    (void)node.manager();
    ASSERT_EQ(vision_msg_component_init(NODE_APP, "app", "192.168.1.5", nullptr), 0);
    const std::optional<bytes> got = node.manager().receive();
    ASSERT_TRUE(got);
    EXPECT_EQ(bus::word_at(*got, 6), 64001U);
    EXPECT_EQ(bus::word_at(*got, 20 + 32), (9000U + 64001U) % 65536U);
    EXPECT_EQ(bus::word_at(*got, 20 + 34), 64001U);
}

TEST(Init, FromTheCallbackIsRefused) {
    static std::atomic<int> result{0};
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {
        result = vision_msg_component_init(NODE_VIO, "other", "192.168.1.3", nullptr);
    }));
    node.send(message({1, 3, 5}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(result, -1);
    EXPECT_LOGGED(INFO, k_unit, "vision_msg_component_init", k_twice, k_twice);
    EXPECT_EQ(nmapping_self_node_id(), 5);
}

TEST(Deinit, WithoutInitDoesNothing) {
    const auto descriptors = process_state::descriptors();
    vision_msg_component_deinit();
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(process_state::descriptors(), descriptors);
    EXPECT_EQ(nmapping_get_size(), 128);
}

TEST(Deinit, TwiceDoesNothingTheSecondTime) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({}));
    node.stop();
    const auto descriptors = process_state::descriptors();
    logs::clear();
    node.stop();
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(process_state::descriptors(), descriptors);
}

TEST(Deinit, FromTheCallbackIsRefusedAndTheNodeGoesOn) {
    static std::atomic<int> calls{0};
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}, [](void *, MsgExtra *) {
        vision_msg_component_deinit();
        ++calls;
    }));
    logs::clear();
    node.send(message({1, 3, 5}));
    node.send(message({1, 3, 5}));
    ASSERT_TRUE(node.settle());
    EXPECT_EQ(calls, 2);
    size_t refusals = 0;
    for (const logs::line &l : logs::all()) {
        refusals += l.level == VISION_LOG_LEVEL_ERROR && l.unit == k_unit &&
                    l.function == "vision_msg_component_deinit";
    }
    EXPECT_EQ(refusals, 2U);
    EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
    EXPECT_TRUE(node.other(3).receive());
    node.stop();
    EXPECT_EQ(logs::count(k_exit_line), 1U);
}

TEST(Deinit, WaitsForTheCallbackToReturn) {
    static std::atomic<bool> entered{false};
    static std::atomic<bool> returned{false};
    node_under_test node{5};
    ASSERT_TRUE(node.join({}, [](void *, MsgExtra *) {
        entered = true;
        usleep(300'000); // what an application may do
        returned = true;
    }));
    (void)node.manager().take_all();
    node.send(message({1, 3, 5}));
    ASSERT_TRUE(wait_until([] { return entered.load(); }));
    node.stop();
    EXPECT_TRUE(returned);
    std::vector<bytes> told = node.manager().take_all();
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back().size(), 74U);
}

TEST(Deinit, AtOnceAfterInitReturns) {
    node_under_test node{5};
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(node.start(), 0);
        node.stop();
        ASSERT_EQ(logs::count(k_exit_line), static_cast<size_t>(i) + 1);
    }
    ASSERT_TRUE(node.join({3}));
    expect_works(node, 5, "thirty-first");
}

TEST(Restart, WorksInFullFiveTimesInOneProcess) {
    node_under_test node{5};
    for (int i = 1; i <= 5; ++i) {
        (void)node.manager().take_all();
        ASSERT_EQ(node.start(), 0);
        EXPECT_EQ(logs::count("io_pool init duplicated\n"), static_cast<size_t>(i) - 1);
        EXPECT_EQ(nmapping_get_stat(0), 0) << "not accepted yet";
        bytes room(8192);
        MsgExtra extra{};
        EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room.data(), 8192, &extra), 0)
            << "nothing is left of the last time";
        ASSERT_TRUE(node.accept({3}));
        EXPECT_EQ(node.manager().last_port(), 9005);
        expect_works(node, 5, "run " + std::to_string(i));
        (void)node.manager().take_all();
        node.stop();
        const std::vector<bytes> told = node.manager().take_all();
        ASSERT_FALSE(told.empty());
        EXPECT_EQ(told.back().size(), 74U);
        EXPECT_TRUE(node.other(3).silent());
    }
}

TEST(Restart, LeavesNoDescriptorAndNoThread) {
    node_under_test node{5};
    (void)node.manager();
    (void)node.other(3);
    (void)node.other(bus::k_witness);
    ASSERT_TRUE(node.join({3}));
    expect_works(node, 5, "first"); // the loop's own descriptors stay from here on
    node.stop();
    const size_t threads = process_state::threads(); // a joined one may stay visible for a moment
    const auto descriptors = process_state::descriptors();
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(node.join({3}));
        EXPECT_GT(process_state::threads(), threads);
        expect_works(node, 5, "again");
        node.stop();
        EXPECT_EQ(process_state::descriptors(), descriptors) << i;
        EXPECT_TRUE(wait_until([=] { return process_state::threads() <= threads; })) << i;
    }
}

TEST(Restart, MayBeAsAnotherNode) {
    for (const uint16_t id : bus::ids{5, 127, 9}) {
        node_under_test node{id};
        ASSERT_TRUE(node.join({3}));
        expect_works(node, id, "as " + std::to_string(id));
    }
}

TEST(Restart, FindsTheRecordsOfTheLastTimeButTheManagers) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    node.tell(bus::table({{"moved", "192.168.1.77", 9400, 0, 1}}));
    ASSERT_TRUE(node.settle());
    node.stop();
    ASSERT_EQ(node.start(), 0);
    vexa_node_t entry{};
    ASSERT_EQ(nmapping_get(3, &entry), 0);
    EXPECT_STREQ(entry.name, "node3");
    EXPECT_EQ(entry.stat, 1);
    ASSERT_EQ(nmapping_get(0, &entry), 0);
    EXPECT_STREQ(entry.name, "mgr_server");
    EXPECT_STREQ(entry.ip, "192.168.1.1");
    EXPECT_EQ(entry.port, 9000);
    EXPECT_EQ(entry.stat, 0);
}

TEST(NoNode, EveryCallIsRefusedBeforeInitAndAfterDeinit) {
    const watched_descriptor_0 descriptor;
    bus::expect_refusals();
    EXPECT_EQ(send_node_info(1, 9, 3, 2), -1);
    EXPECT_TRUE(descriptor.untouched());
    node_under_test node{5};
    ASSERT_TRUE(node.join({3, 127}));
    expect_works(node, 5, "works");
    node.stop();
    (void)node.manager().take_all();
    bus::expect_refusals();
    EXPECT_EQ(send_node_info(1, 9, 3, 2), -1);
    EXPECT_TRUE(descriptor.untouched());
    for (const uint16_t id : bus::ids{0, 3, 127}) {
        EXPECT_TRUE(node.other(id).silent()) << id;
    }
}

TEST(NoNode, ADatagramIsNotTakenIn) {
    node_under_test node{5};
    for (int i = 0; i < 2; ++i) { // before the first start, and after a stop
        nmapping_set_self(5);
        for (const int kind : {0, 1, 2, 3}) {
            alignas(8) uint8_t datagram[64] = {};
            const bytes made = message({kind, 3, 5, bus::k_accepted}, {6, 0, 1});
            std::copy(made.begin(), made.end(), datagram);
            thrio_proc_message(nullptr, datagram, static_cast<int>(made.size()));
        }
        uint8_t room[8192];
        MsgExtra extra{};
        EXPECT_EQ(vision_recv_status(MSG_DETECTION_OBJECTS, room, sizeof room, &extra), 0);
        EXPECT_NE(nmapping_get_stat(0), 1);
        ASSERT_TRUE(node.join({}));
        node_under_test::forget_heard();
        node.stop();
    }
    EXPECT_TRUE(node_under_test::all_heard().empty());
}

TEST(NoNode, ADatagramForTheProxyIsNotPassedOn) {
    node_under_test proxy{127};
    ASSERT_TRUE(proxy.join({3}));
    proxy.stop();
    alignas(8) uint8_t datagram[24];
    const bytes made = message({4, 5, 127}, bus::encoded({{LED, 1}}));
    std::copy(made.begin(), made.end(), datagram);
    thrio_proc_message(nullptr, datagram, sizeof datagram);
    EXPECT_TRUE(proxy.other(3).silent());
}

TEST(Exit, WithoutDeinitDoesNotHang) {
    EXPECT_EXIT(
        {
            node_under_test node{5};
            const bool works = node.join({3}) && vision_send_msg(NODE_VIO, "x", 1) == 0 &&
                               node.other(3).receive().has_value();
            exit(works ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Exit, AfterDeinitDoesNotHang) {
    EXPECT_EXIT(
        {
            node_under_test node{5};
            const bool works = node.join({3});
            node.stop();
            exit(works ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DirectSocket, IsOneWhenManyThreadsSendForTheFirstTimeAtOnce) {
    node_under_test node{5};
    ASSERT_TRUE(node.join({3}));
    const size_t before = process_state::descriptors().size();
    std::atomic<bool> go{false};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&go] {
                while (!go) {
                }
                EXPECT_EQ(vision_send_msg(NODE_VIO, "x", 1), 0);
            });
        }
        go = true;
    }
    EXPECT_EQ(process_state::descriptors().size(), before + 1);
    uint16_t port = 0;
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(node.other(3).receive());
        EXPECT_TRUE(port == 0 || port == node.other(3).last_port());
        port = node.other(3).last_port();
    }
    EXPECT_NE(port, 9005);
}

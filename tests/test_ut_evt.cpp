// The loop's life, its creation failing, and the reader on real sockets.
#include "utils/ut_evt.h"

#include "faults.h"
#include "log_capture.h"
#include "utils/ut_timer.h"
#include "vision_log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <vector>

namespace {

// What the library asked libev for. The definitions below come before libev's when the program is loaded.
std::vector<unsigned int> loop_flags;
std::vector<int> breaks;
int runs = 0;

template <class Function>
Function real(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" struct ev_loop *ev_loop_new(unsigned int flags) noexcept {
    loop_flags.push_back(flags);
    return real<decltype(&ev_loop_new)>("ev_loop_new")(flags);
}

extern "C" void ev_break(struct ev_loop *loop, int how) noexcept {
    breaks.push_back(how);
    real<decltype(&ev_break)>("ev_break")(loop, how);
}

extern "C" int ev_run(struct ev_loop *loop, int flags) {
    ++runs;
    return real<decltype(&ev_run)>("ev_run")(loop, flags);
}

namespace {

/// A timer that ends the loop, so that ut_loop_run has something to run and an end.
struct loop_end {
    explicit loop_end(double after_s) {
        ut_timer_set(
            &timer, after_s, false, [](ut_timer *, void *) { ut_loop_break(); }, nullptr);
        ut_timer_start(&timer);
    }
    ~loop_end() { ut_timer_stop(&timer); }
    loop_end(const loop_end &) = delete;
    loop_end &operator=(const loop_end &) = delete;
    ut_timer timer{};
};

} // namespace

TEST(UtLoop, RunningBeforeTheLoopIsMadeReturnsAtOnce) {
    ut_loop_run();
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(ut_default_loop, nullptr);
}

TEST(UtLoop, IsMadeWithoutEnvironmentAndWithForkCheck) {
    ut_loop_init();
    EXPECT_NE(ut_default_loop, nullptr);
    EXPECT_EQ(loop_flags, (std::vector<unsigned int>{0x3000000U}));
}

TEST(UtLoop, ASecondInitKeepsTheLoop) {
    ut_loop_init();
    struct ev_loop *first = ut_default_loop;
    ut_loop_init();
    EXPECT_EQ(ut_default_loop, first);
    EXPECT_EQ(loop_flags.size(), 1U);
}

TEST(UtLoop, WhenItCannotBeMadeNothingRunsAndALaterInitTriesAgain) {
    faults::fail(faults::call::ev_loop_new, 0, 1);
    ut_loop_init();
    EXPECT_EQ(ut_default_loop, nullptr);
    ut_loop_run();
    ut_loop_break();
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(breaks.empty());
    ut_loop_init();
    EXPECT_NE(ut_default_loop, nullptr);
}

TEST(UtLoop, RunningReturnsWhenNoWatcherIsLeft) {
    ut_loop_init();
    ut_loop_run();
    EXPECT_EQ(runs, 1);
}

TEST(UtLoop, ABreakEndsItForEveryLevel) {
    ut_timer forever{};
    ut_timer_set(&forever, 0.001, true, nullptr, nullptr);
    ut_timer_start(&forever);
    const loop_end end{0.01};
    ut_loop_run();
    EXPECT_EQ(breaks, (std::vector<int>{EVBREAK_ALL}));
    EXPECT_TRUE(ut_timer_active(&forever));
    ut_timer_stop(&forever);
}

TEST(UtLoop, ABreakWhileItDoesNotRunDoesNothing) {
    ut_loop_break();
    ut_loop_init();
    ut_loop_break();
    EXPECT_TRUE(breaks.empty());
}

TEST(UtLoop, ASecondBreakDoesNothing) {
    const loop_end end{0.001};
    ut_loop_run();
    ut_loop_break();
    EXPECT_EQ(breaks.size(), 1U);
}

TEST(UtLoop, ARunThatEndsByItselfStillCountsAsRunningUntilABreak) {
    ut_loop_init();
    ut_loop_run();
    ut_loop_break();
    ut_loop_break();
    EXPECT_EQ(breaks.size(), 1U);
}

TEST(UtLoop, RunsAgainAfterABreak) {
    for (int round = 1; round <= 3; ++round) {
        const loop_end end{0.001};
        ut_loop_run();
        EXPECT_EQ(runs, round);
        EXPECT_FALSE(ev_is_active(&end.timer.ev));
    }
}

namespace {

struct datagram {
    socket_io_t *sio;
    std::string bytes;
    uint16_t from_port;
    socklen_t addr_len;
    bool aligned;
};

std::vector<datagram> received; // what the handler got, oldest first
void (*then)(socket_io_t *sio); // what the handler does after keeping it

void keep(socket_io_t *sio, void *buf, int len) {
    received.push_back({sio, std::string(static_cast<const char *>(buf), static_cast<size_t>(len)),
                        ntohs(sio->fromAddr.sin_port), sio->addr_len,
                        reinterpret_cast<uintptr_t>(buf) % 8 == 0});
    if (then != nullptr) {
        then(sio);
    }
}

std::vector<std::string> texts() {
    std::vector<std::string> all;
    all.reserve(received.size());
    for (const datagram &d : received) {
        all.push_back(d.bytes);
    }
    return all;
}

/// A UDP socket on the loopback device.
struct udp_socket {
    explicit udp_socket(int flags = 0) : fd(socket(AF_INET, SOCK_DGRAM | flags, 0)) {
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof addr;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&addr), len), 0);
        EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len), 0);
    }
    ~udp_socket() { close(fd); }
    udp_socket(const udp_socket &) = delete;
    udp_socket &operator=(const udp_socket &) = delete;
    [[nodiscard]] uint16_t port() const { return ntohs(addr.sin_port); }
    int fd;
    sockaddr_in addr{};
};

class OnRead : public testing::Test {
protected:
    OnRead() {
        ut_loop_init();
        sio.loop = ut_default_loop;
        sio.sockfd = rx.fd;
        sio.proc_msg = keep;
        ev_io_init(&sio.ev, on_read, rx.fd, EV_READ);
    }
    ~OnRead() override { ev_io_stop(ut_default_loop, &sio.ev); }

    void send(const std::string &bytes) const {
        ASSERT_EQ(sendto(tx.fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&rx.addr),
                         sizeof rx.addr),
                  static_cast<ssize_t>(bytes.size()));
    }
    void start() { ev_io_start(ut_default_loop, &sio.ev); }
    void read_now() { on_read(ut_default_loop, &sio.ev, EV_READ); }

    udp_socket rx{SOCK_NONBLOCK};
    udp_socket tx;
    socket_io_t sio{};
};

constexpr char k_failed[] = "%s\n";

} // namespace

TEST_F(OnRead, TheRecordHasItsFieldsInTheAgreedOrder) {
    static_assert(std::is_standard_layout_v<socket_io_t>);
    EXPECT_EQ(offsetof(socket_io_t, ev), 0U);
    EXPECT_LT(offsetof(socket_io_t, ev), offsetof(socket_io_t, loop));
    EXPECT_LT(offsetof(socket_io_t, loop), offsetof(socket_io_t, sockfd));
    EXPECT_LT(offsetof(socket_io_t, sockfd), offsetof(socket_io_t, pipefd_wr));
    EXPECT_LT(offsetof(socket_io_t, pipefd_wr), offsetof(socket_io_t, fromAddr));
    EXPECT_LT(offsetof(socket_io_t, fromAddr), offsetof(socket_io_t, addr_len));
    EXPECT_LT(offsetof(socket_io_t, addr_len), offsetof(socket_io_t, proc_msg));
}

TEST_F(OnRead, ADatagramReachesTheHandlerWithItsSender) {
    send("hello");
    read_now();
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].sio, &sio);
    EXPECT_EQ(received[0].bytes, "hello");
    EXPECT_EQ(received[0].from_port, tx.port());
    EXPECT_EQ(received[0].addr_len, sizeof(sockaddr_in));
    EXPECT_TRUE(received[0].aligned);
}

TEST_F(OnRead, AllQueuedDatagramsArriveInOrderWithinOneCall) {
    for (const char *text : {"one", "two", "three", "four"}) {
        send(text);
    }
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"one", "two", "three", "four"}));
}

TEST_F(OnRead, ADatagramOfLengthZeroReachesTheHandlerAndEndsNothing) {
    send("");
    send("after");
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"", "after"}));
}

TEST_F(OnRead, ADatagramOf8192BytesArrivesWhole) {
    std::string big(8192, '\0');
    for (size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<char>(i * 7);
    }
    send(big);
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{big}));
}

TEST_F(OnRead, ALongerDatagramIsCutTo8192Bytes) {
    send(std::string(8192, 'a') + "b");
    send("next");
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{std::string(8192, 'a'), "next"}));
}

TEST_F(OnRead, AnEmptySocketIsLeftQuietly) {
    read_now();
    EXPECT_TRUE(received.empty());
    EXPECT_TRUE(logs::all().empty());
    EXPECT_EQ(faults::calls(faults::call::recvfrom), 1);
}

TEST_F(OnRead, AnInterruptedReceiveIsRepeated) {
    send("hello");
    faults::fail(faults::call::recvfrom, EINTR, 3);
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"hello"}));
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(OnRead, NothingToReadEndsTheCallEvenWhenMoreIsQueued) {
    send("one");
    send("two");
    faults::fail(faults::call::recvfrom, EAGAIN, 1, 1);
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"one"}));
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(OnRead, AnotherErrorIsLoggedAtInfoAndEndsTheCall) {
    send("one");
    send("two");
    faults::fail(faults::call::recvfrom, ENOMEM, 1, 1);
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"one"}));
    const auto lines = logs::all();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
    EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_INFO);
    EXPECT_EQ(lines[0].unit, "src/utils/ut_evt");
    EXPECT_EQ(lines[0].function, "on_read");
    EXPECT_EQ(lines[0].format, k_failed);
    EXPECT_EQ(lines[0].text, "recvfrom error: Cannot allocate memory\n");
}

TEST_F(OnRead, AfterAnErrorTheNextReadinessReadsOn) {
    faults::fail(faults::call::recvfrom, ENOMEM, 1);
    send("hello");
    then = [](socket_io_t *) { ut_loop_break(); };
    start();
    ut_loop_run();
    EXPECT_EQ(logs::count(k_failed), 1U);
    EXPECT_EQ(texts(), (std::vector<std::string>{"hello"}));
    EXPECT_TRUE(ev_is_active(&sio.ev));
}

TEST_F(OnRead, TheLoopCallsItWhenADatagramArrives) {
    then = [](socket_io_t *) { ut_loop_break(); };
    start();
    send("hello");
    ut_loop_run();
    EXPECT_EQ(texts(), (std::vector<std::string>{"hello"}));
}

TEST_F(OnRead, AHandlerThatStopsItsWatcherIsNotCalledAgain) {
    send("one");
    send("two");
    then = [](socket_io_t *s) { ev_io_stop(s->loop, &s->ev); };
    start();
    ut_loop_run(); // ends, because no watcher is left
    EXPECT_EQ(texts(), (std::vector<std::string>{"one"}));
    char rest[8];
    EXPECT_EQ(recv(rx.fd, rest, sizeof rest, 0), 3); // the second one still waits in the socket
}

TEST_F(OnRead, AWatcherThatNeverRanIsReadUntilTheSocketIsEmpty) {
    send("one");
    send("two");
    then = [](socket_io_t *s) { ev_io_stop(s->loop, &s->ev); };
    read_now();
    EXPECT_EQ(texts(), (std::vector<std::string>{"one", "two"}));
}

TEST_F(OnRead, AHandlerMayEndTheThreadAndTheLoopReadsOnOnAnother) {
    then = [](socket_io_t *) { pthread_exit(nullptr); };
    start();
    for (int round = 0; round < 5; ++round) {
        send(std::to_string(round));
        pthread_t thread{};
        ASSERT_EQ(pthread_create(
                      &thread, nullptr,
                      [](void *) -> void * {
                          ut_loop_run();
                          ADD_FAILURE() << "the loop came back";
                          return nullptr;
                      },
                      nullptr),
                  0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
    }
    EXPECT_EQ(texts(), (std::vector<std::string>{"0", "1", "2", "3", "4"}));
}

TEST(OnReadOtherFamilies, ASenderAddressThatIsTooLongStaysWithinItsField) {
    const int rx = socket(AF_INET6, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_in6 addr{};
    addr.sin6_family = AF_INET6;
    addr.sin6_addr = in6addr_loopback;
    socklen_t len = sizeof addr;
    ASSERT_EQ(bind(rx, reinterpret_cast<sockaddr *>(&addr), len), 0);
    ASSERT_EQ(getsockname(rx, reinterpret_cast<sockaddr *>(&addr), &len), 0);
    const int tx = socket(AF_INET6, SOCK_DGRAM, 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(sendto(tx, "x", 1, 0, reinterpret_cast<sockaddr *>(&addr), len), 1);
    }
    socket_io_t sio{};
    sio.sockfd = rx;
    sio.proc_msg = keep;
    on_read(nullptr, &sio.ev, EV_READ); // a sender's 28 bytes would reach the field behind and proc_msg
    EXPECT_EQ(texts(), (std::vector<std::string>{"x", "x", "x"}));
    EXPECT_EQ(sio.proc_msg, &keep);
    close(tx);
    close(rx);
}

// Waiting with time-outs, by select and by poll, and what is read and written after it.
#include "emulator.h"
#include "netapi_fixture.h"

#include <csignal>

namespace {

constexpr int k_long_ms = 20'000; // never used up unless something is wrong

// A count beyond what an int holds must not turn into a negative length.
constexpr size_t k_beyond_an_int = size_t{INT_MAX} + 2;
constexpr char k_why_not_emulated[] =
    "qemu-user refuses a count that is larger than the memory behind the buffer";

/// A wait for one direction, by one of the two system calls.
struct wait_row {
    const char *name;
    call system_call;
    bool for_reading;
    int (*wait)(net_sockfd_t *sock, int timeout_ms);
};

std::ostream &operator<<(std::ostream &out, const wait_row &row) {
    return out << row.name;
}

constexpr wait_row k_waits[] = {
    {"net_read_timeout", call::select, true, net_read_timeout},
    {"net_write_timeout", call::select, false, net_write_timeout},
    {"net_wait_readable", call::poll, true,
     [](net_sockfd_t *sock, int timeout_ms) { return net_wait_readable(sock->sockfd, timeout_ms); }},
    {"net_wait_writeable", call::poll, false,
     [](net_sockfd_t *sock, int timeout_ms) { return net_wait_writeable(sock->sockfd, timeout_ms); }},
};

} // namespace

class NetapiWait : public NetapiTest, public testing::WithParamInterface<wait_row> {
protected:
    connected_pair pair;

    /// Makes the direction that is waited for ready, and the other one not.
    void make_ready() const {
        if (GetParam().for_reading) {
            pair.fill();
            ASSERT_EQ(send(pair.far, "x", 1, 0), 1);
        }
    }
    /// Makes the direction that is waited for not ready, and the other one ready.
    void make_unready() const {
        if (!GetParam().for_reading) {
            pair.fill();
            ASSERT_EQ(send(pair.far, "x", 1, 0), 1);
        }
    }
    int wait(int timeout_ms) { return GetParam().wait(&pair.near, timeout_ms); }
};
INSTANTIATE_TEST_SUITE_P(Each, NetapiWait, testing::ValuesIn(k_waits),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(NetapiWait, AReadySocketIsPositive) {
    make_ready();
    EXPECT_EQ(wait(k_long_ms), 1);
    EXPECT_EQ(wait(0), 1);
    EXPECT_EQ(faults::calls(GetParam().system_call), 2);
}

TEST_P(NetapiWait, TheEndOfTheTimeIsZero) {
    make_unready();
    EXPECT_EQ(wait(0), 0);
    EXPECT_GE(seconds_taken([&] { EXPECT_EQ(wait(30), 0); }), 0.03);
    EXPECT_GE(seconds_taken([&] { EXPECT_EQ(wait(1100), 0); }), 1.1);
    EXPECT_EQ(faults::calls(GetParam().system_call), 3);
}

TEST_P(NetapiWait, ASocketThatBecomesReadyEndsIt) {
    make_unready();
    std::thread peer([&] {
        EXPECT_TRUE(wait_until([&] { return faults::calls(GetParam().system_call) == 1; }));
        if (GetParam().for_reading) {
            EXPECT_EQ(send(pair.far, "x", 1, 0), 1);
        } else {
            pair.drain();
        }
    });
    EXPECT_EQ(wait(k_long_ms), 1);
    peer.join();
}

TEST_P(NetapiWait, AnInterruptionIsRetriedAtOnce) {
    make_ready();
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(GetParam().system_call, error, 3);
        EXPECT_EQ(wait(k_long_ms), 1);
        EXPECT_EQ(faults::calls(GetParam().system_call), 4);
        EXPECT_EQ(faults::calls(call::usleep), 0);
    }
}

TEST_P(NetapiWait, ARetryWaitsForTheWholeTimeAgain) {
    make_unready();
    const auto before = signal(SIGALRM, [](int) {});
    const itimerval one_signal{{0, 0}, {0, 150'000}};
    const double taken = seconds_taken([&] {
        ASSERT_EQ(setitimer(ITIMER_REAL, &one_signal, nullptr), 0);
        EXPECT_EQ(wait(200), 0);
    });
    EXPECT_EQ(faults::calls(GetParam().system_call), 2);
    EXPECT_GE(taken, 0.349);
    EXPECT_NE(signal(SIGALRM, before), SIG_ERR);
}

TEST_P(NetapiWait, AnyOtherErrorEndsIt) {
    faults::fail(GetParam().system_call, ENOMEM);
    EXPECT_EQ(wait(k_long_ms), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(faults::calls(GetParam().system_call), 1);
    EXPECT_TRUE(logs::all().empty());
}

TEST_P(NetapiWait, OnlySelectRefusesAHighDescriptor) {
    make_ready();
    net_sockfd_t high{high_duplicate(pair.near.sockfd), {}};
    errno = 0;
    if (GetParam().system_call == call::select) {
        EXPECT_EQ(GetParam().wait(&high, k_long_ms), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(faults::calls(call::select), 0);
    } else {
        EXPECT_EQ(GetParam().wait(&high, k_long_ms), 1);
    }
    EXPECT_EQ(net_close(&high), 0);
}

TEST_P(NetapiWait, AClosedSocketIsNeverReady) {
    net_sockfd_t closed{-1, {}};
    if (GetParam().system_call == call::select) {
        EXPECT_EQ(GetParam().wait(&closed, k_long_ms), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(faults::calls(call::select), 0);
    } else {
        EXPECT_EQ(GetParam().wait(&closed, 10), 0);
    }
}

class NetapiTimed : public NetapiTest {
protected:
    connected_pair pair;
    std::array<char, 64> buf{};

    void SetUp() override {
        NetapiTest::SetUp();
        buf.fill('#');
    }
    std::string got(size_t len) const { return {buf.data(), len}; }
};

TEST_F(NetapiTimed, ANegativeTimeIsAnErrorForSelect) {
    EXPECT_EQ(net_write_timeout(&pair.near, -1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(net_read_timeout(&pair.near, INT_MIN), -1);
}

TEST_F(NetapiTimed, ANegativeTimeIsNoLimitForPoll) {
    std::thread peer([&] {
        EXPECT_TRUE(wait_until([] { return faults::calls(call::poll) == 1; }));
        EXPECT_EQ(send(pair.far, "x", 1, 0), 1);
    });
    EXPECT_EQ(net_wait_readable(pair.near.sockfd, -1), 1);
    peer.join();
}

TEST_F(NetapiTimed, ReadnGivesWhatIsThere) {
    ASSERT_EQ(send(pair.far, "0123456789", 10, 0), 10);
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 4, k_long_ms), 4);
    EXPECT_EQ(got(5), "0123#");
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 64, UINT_MAX), 6); // a time that no int can hold
    EXPECT_EQ(got(7), "456789#");
}

TEST_F(NetapiTimed, ReadnFailsWhenTheTimeIsUp) {
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 64, 10), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(faults::calls(call::recv), 0);
}

TEST_F(NetapiTimed, ReadnFailsWhenTheWaitOrTheReceivingFails) {
    ASSERT_EQ(send(pair.far, "x", 1, 0), 1);
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), -1, k_long_ms), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 0, k_long_ms), -1); // 0 bytes are below 1
    faults::fail(call::recv, ECONNRESET);
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 64, k_long_ms), -1);
    EXPECT_EQ(errno, ECONNRESET);
    faults::fail(call::select, ENOMEM);
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 64, k_long_ms), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(got(1), "#");
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, ReadnFailsAtTheEndOfAStream) {
    pair.close_far();
    EXPECT_EQ(net_readn_timeout(&pair.near, buf.data(), 64, k_long_ms), -1);
    EXPECT_EQ(faults::calls(call::recv), 1);
}

TEST_F(NetapiTimed, RecvGivesWhatIsThere) {
    ASSERT_EQ(send(pair.far, "0123456789", 10, 0), 10);
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 4, k_long_ms), 4);
    EXPECT_EQ(got(5), "0123#");
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 64, k_long_ms), 6);
    EXPECT_EQ(got(7), "456789#");
    pair.close_far();
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 64, k_long_ms), 0);
}

TEST_F(NetapiTimed, RecvTakesACountBeyondAnInt) {
    SKIP_IN_EMULATOR(k_why_not_emulated);
    ASSERT_EQ(send(pair.far, "456789", 6, 0), 6);
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), k_beyond_an_int, k_long_ms), 6);
    EXPECT_EQ(got(7), "456789#");
}

TEST_F(NetapiTimed, RecvPassesTheWaitsResultOn) {
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 64, 10), 0);
    faults::fail(call::poll, ENOMEM);
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 64, 10), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(faults::calls(call::recv), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, RecvRetriesAfterAPause) {
    ASSERT_EQ(send(pair.far, "x", 1, 0), 1);
    faults::fail(call::recv, EAGAIN, 3);
    EXPECT_EQ(net_recv_timedwait(&pair.near, buf.data(), 64, k_long_ms), 1);
    EXPECT_EQ(faults::calls(call::usleep), 3);
}

TEST_F(NetapiTimed, ReadGivesWhatIsThere) {
    ASSERT_EQ(send(pair.far, "0123456789", 10, 0), 10);
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 4, k_long_ms), 4);
    EXPECT_EQ(got(5), "0123#");
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 64, k_long_ms), 6);
    EXPECT_EQ(got(7), "456789#");
    pair.close_far();
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 64, k_long_ms), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, ReadTakesACountBeyondAnInt) {
    SKIP_IN_EMULATOR(k_why_not_emulated);
    ASSERT_EQ(send(pair.far, "456789", 6, 0), 6);
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), k_beyond_an_int, k_long_ms), 6);
    EXPECT_EQ(got(7), "456789#");
}

TEST_F(NetapiTimed, ReadLogsAWaitThatGivesNothing) {
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 64, 10), 0);
    expect_one_line("net_read_timedwait", "net read fail\n");
    logs::clear();
    faults::fail(call::poll, ENOMEM);
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 64, 10), -1);
    EXPECT_EQ(errno, ENOMEM);
    expect_one_line("net_read_timedwait", "net read fail\n");
    EXPECT_EQ(faults::calls(call::read), 0);
}

TEST_F(NetapiTimed, ReadRetriesAtOnce) {
    ASSERT_EQ(send(pair.far, "xx", 2, 0), 2);
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(call::read, error, 3);
        EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 1, k_long_ms), 1);
        EXPECT_EQ(faults::calls(call::read), 4);
        EXPECT_EQ(faults::calls(call::poll), 1);
        EXPECT_EQ(faults::calls(call::usleep), 0);
    }
}

TEST_F(NetapiTimed, AReadThatFailsIsNotLogged) {
    ASSERT_EQ(send(pair.far, "x", 1, 0), 1);
    faults::fail(call::read, EIO);
    EXPECT_EQ(net_read_timedwait(pair.near.sockfd, buf.data(), 1, k_long_ms), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(faults::calls(call::read), 1);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, WritenWaitsBeforeEveryWrite) {
    faults::limit_bytes(call::write, 3);
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "0123456789", 10), 10);
    EXPECT_EQ(faults::calls(call::poll), 4);
    EXPECT_EQ(faults::calls(call::write), 4);
    EXPECT_EQ(pair.read_far(10), "0123456789");
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, WritenOfNothingMakesNoCall) {
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "x", 0), 0);
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "x", size_t{INT_MAX} + 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::calls(call::poll) + faults::calls(call::write), 0);
}

TEST_F(NetapiTimed, WritenRetriesAtOnce) {
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(call::write, error, 3);
        EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "abc", 3), 3);
        EXPECT_EQ(faults::calls(call::write), 4);
        EXPECT_EQ(faults::calls(call::poll), 1);
        EXPECT_EQ(faults::calls(call::usleep), 0);
        EXPECT_EQ(pair.read_far(3), "abc");
    }
}

TEST_F(NetapiTimed, WritenFailsWhenTheWaitFails) {
    faults::limit_bytes(call::write, 1);
    faults::fail(call::poll, ENOMEM, k_all, 1);
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "abc", 3), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(faults::calls(call::write), 1);
    expect_one_line("net_write_timedwait", "net write fail\n");
}

TEST_F(NetapiTimed, WritenFailsWhenTheWriteFailsOrTakesNothing) {
    faults::fail(call::write, EIO);
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "abc", 3), -1);
    EXPECT_EQ(errno, EIO);
    faults::fail(call::write, 0, k_all, 0, 0);
    EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "abc", 3), -1);
    EXPECT_EQ(faults::calls(call::write), 2);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiTimed, WritenGivesUpAfterTenSeconds) {
    pair.fill();
    const double taken = seconds_taken([&] {
        EXPECT_EQ(net_writen_timedwait(pair.near.sockfd, "x", 1), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
    });
    EXPECT_GE(taken, 10.0);
    EXPECT_LT(taken, 20.0);
    EXPECT_EQ(faults::calls(call::write), 0);
    expect_one_line("net_write_timedwait", "net write fail\n");
}

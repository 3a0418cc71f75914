// Sending on streams: the whole buffer, with and without a time-out.
#include "netapi_fixture.h"

#include <csignal>

namespace {

/// What a piece of work writes to standard error.
std::string stderr_of(const std::function<void()> &work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

std::string many_bytes(size_t len) {
    std::string bytes(len, '\0');
    for (size_t i = 0; i < len; ++i) {
        bytes[i] = static_cast<char>(i * 31 % 251);
    }
    return bytes;
}

struct send_row {
    const char *name;
    int (*send)(net_sockfd_t *sock, const void *buf, int len);
};

std::ostream &operator<<(std::ostream &out, const send_row &row) {
    return out << row.name;
}

constexpr send_row k_sends[] = {{"net_send", net_send}, {"net_sendn", net_sendn}};

} // namespace

/// What net_send and net_sendn have in common.
class NetapiStreamSend : public NetapiTest, public testing::WithParamInterface<send_row> {
protected:
    connected_pair pair;

    int send_all(net_sockfd_t *sock, const void *buf, int len) { return GetParam().send(sock, buf, len); }
};
INSTANTIATE_TEST_SUITE_P(Both, NetapiStreamSend, testing::ValuesIn(k_sends),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(NetapiStreamSend, GoesOnUntilEverythingIsSent) {
    faults::limit_bytes(call::send, 3);
    EXPECT_EQ(send_all(&pair.near, "0123456789", 10), 10);
    EXPECT_EQ(faults::calls(call::send), 4);
    EXPECT_EQ(pair.read_far(10), "0123456789");
    EXPECT_EQ(faults::calls(call::usleep), 0);
}

TEST_P(NetapiStreamSend, ALengthBelowOneSendsNothing) {
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(send_all(&pair.near, "x", len), 0);
    }
    EXPECT_EQ(faults::calls(call::send), 0);
}

TEST_P(NetapiStreamSend, AnInterruptionIsRetriedAfterAPause) {
    faults::limit_bytes(call::send, 4);
    faults::fail(call::send, EINTR, 3, 1);
    EXPECT_EQ(send_all(&pair.near, "interrupted", 11), 11);
    EXPECT_EQ(pair.read_far(11), "interrupted");
    EXPECT_EQ(faults::calls(call::send), 3 + 3);
    EXPECT_EQ(faults::calls(call::usleep), 3);
}

TEST_P(NetapiStreamSend, ThePauseIsAMillisecond) {
    expect_millisecond_pauses(call::send, [&] { EXPECT_EQ(send_all(&pair.near, "x", 1), 1); });
}

TEST_P(NetapiStreamSend, AnyOtherErrorEndsIt) {
    faults::limit_bytes(call::send, 4);
    faults::fail(call::send, ECONNRESET, k_all, 1);
    EXPECT_EQ(send_all(&pair.near, "reset", 5), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(faults::calls(call::send), 2);
    EXPECT_EQ(faults::calls(call::usleep), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_P(NetapiStreamSend, ASystemThatTakesNothingEndsItWithTheCountSoFar) {
    faults::limit_bytes(call::send, 4);
    faults::fail(call::send, 0, k_all, 1, 0);
    EXPECT_EQ(send_all(&pair.near, "nothing", 7), 4);
    EXPECT_EQ(faults::calls(call::send), 2);
}

TEST_P(NetapiStreamSend, APeerThatHasGoneRaisesTheSignal) {
    static volatile sig_atomic_t raised;
    raised = 0;
    const auto before = signal(SIGPIPE, [](int) { raised = raised + 1; });
    pair.close_far();
    EXPECT_EQ(send_all(&pair.near, "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(raised, 1);
    EXPECT_NE(signal(SIGPIPE, before), SIG_ERR);
}

class NetapiSend : public NetapiTest {
protected:
    connected_pair pair;
};

TEST_F(NetapiSend, AFullSocketEndsNetSendAtOnce) {
    pair.make_nonblocking();
    pair.fill();
    EXPECT_EQ(net_send(&pair.near, "x", 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(faults::calls(call::send), 1);
    EXPECT_EQ(faults::calls(call::usleep), 0);
}

TEST_F(NetapiSend, AFullSocketIsWaitedForByNetSendn) {
    faults::fail(call::send, EAGAIN, 5);
    EXPECT_EQ(net_sendn(&pair.near, "again", 5), 5);
    EXPECT_EQ(faults::calls(call::send), 6);
    EXPECT_EQ(faults::calls(call::usleep), 5);
}

TEST_F(NetapiSend, NetSendnBringsALargeBufferThroughANonBlockingSocket) {
    pair.make_nonblocking();
    const std::string bytes = many_bytes(1'000'000);
    std::string arrived;
    std::thread reader([&] {
        EXPECT_TRUE(wait_until([] { return faults::calls(call::usleep) > 0; })); // the socket was full
        arrived = pair.read_far(bytes.size());
    });
    EXPECT_EQ(net_sendn(&pair.near, bytes.data(), static_cast<int>(bytes.size())), 1'000'000);
    reader.join();
    EXPECT_EQ(arrived, bytes);
}

TEST_F(NetapiSend, TheTimedSendWaitsBeforeEverySend) {
    faults::limit_bytes(call::send, 3);
    timeval limit{5, 0};
    EXPECT_EQ(net_send_timeout(&pair.near, "0123456789", 10, &limit), 10);
    EXPECT_EQ(faults::calls(call::select), 4);
    EXPECT_EQ(faults::calls(call::send), 4);
    EXPECT_EQ(pair.read_far(10), "0123456789");
}

TEST_F(NetapiSend, TheTimedSendOfNothingMakesNoCall) {
    timeval limit{5, 0};
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(net_send_timeout(&pair.near, "x", len, &limit), 0);
    }
    EXPECT_EQ(faults::calls(call::select) + faults::calls(call::send), 0);
}

TEST_F(NetapiSend, TheTimedSendTellsWhatWentOutInItsTime) {
    pair.make_nonblocking();
    const std::string bytes = many_bytes(4'000'000); // more than the socket holds
    timeval limit{0, 200'000};
    int sent = -1;
    std::string printed;
    const double taken = seconds_taken([&] {
        printed = stderr_of([&] {
            sent = net_send_timeout(&pair.near, bytes.data(), static_cast<int>(bytes.size()), &limit);
        });
    });
    EXPECT_GT(sent, 0);
    EXPECT_LT(sent, 4'000'000);
    EXPECT_GE(taken, 0.19);
    EXPECT_EQ(limit.tv_sec, 0); // used up, in the caller's own variable
    EXPECT_EQ(limit.tv_usec, 0);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(pair.read_far(static_cast<size_t>(sent)), bytes.substr(0, static_cast<size_t>(sent)));
}

TEST_F(NetapiSend, TheTimeLeftCarriesOverFromPassToPass) {
    // The first pass waits for the reader and uses up part of the time, the passes after it get the rest.
    pair.make_nonblocking();
    pair.fill();
    timeval limit{20, 0};
    std::thread reader([&] {
        EXPECT_TRUE(wait_until([] { return faults::calls(call::select) == 1; }));
        pair.drain();
    });
    faults::limit_bytes(call::send, 1);
    EXPECT_EQ(net_send_timeout(&pair.near, "xyz", 3, &limit), 3);
    reader.join();
    EXPECT_EQ(limit.tv_sec, 19);
    EXPECT_EQ(faults::calls(call::select), 3);
}

TEST_F(NetapiSend, TheTimedSendMayWaitWithoutALimit) {
    EXPECT_EQ(net_send_timeout(&pair.near, "x", 1, nullptr), 1);
}

TEST_F(NetapiSend, AFailedWaitOfTheTimedSendIsPrinted) {
    timeval limit{5, 0};
    for (const auto &[error, text] : {std::pair{EBADF, "select error: Bad file descriptor\n"},
                                      std::pair{EINTR, "select error: Interrupted system call\n"}}) {
        faults::clear();
        faults::fail(call::select, error);
        int result = 0;
        EXPECT_EQ(stderr_of([&] { result = net_send_timeout(&pair.near, "x", 1, &limit); }), text);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(faults::calls(call::select), 1); // not retried
        EXPECT_EQ(faults::calls(call::send), 0);
    }
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiSend, AFailedSendOfTheTimedSendIsPrinted) {
    timeval limit{5, 0};
    faults::fail(call::send, EPIPE);
    int result = 0;
    int error = 0;
    EXPECT_EQ(stderr_of([&] {
                  result = net_send_timeout(&pair.near, "x", 1, &limit);
                  error = errno;
              }),
              "Send error: Broken pipe\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EPIPE);
    EXPECT_EQ(faults::calls(call::send), 1);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(NetapiSend, ATransientErrorOfTheTimedSendIsPrintedAndRetriedAtOnce) {
    for (const auto &[error, text] : {std::pair{EINTR, "Send error: Interrupted system call\n"},
                                      std::pair{EAGAIN, "Send error: Resource temporarily unavailable\n"}}) {
        faults::clear();
        faults::fail(call::send, error, 2);
        timeval limit{5, 0};
        int result = 0;
        EXPECT_EQ(stderr_of([&] { result = net_send_timeout(&pair.near, "abc", 3, &limit); }),
                  std::string(text) + text);
        EXPECT_EQ(result, 3);
        EXPECT_EQ(faults::calls(call::select), 3); // each try waits anew
        EXPECT_EQ(faults::calls(call::usleep), 0);
        EXPECT_EQ(pair.read_far(3), "abc");
    }
}

TEST_F(NetapiSend, TheTimedSendRefusesADescriptorBeyondTheSet) {
    net_sockfd_t high{high_duplicate(pair.near.sockfd), {}};
    timeval limit{5, 0};
    int result = 0;
    EXPECT_EQ(stderr_of([&] { result = net_send_timeout(&high, "x", 1, &limit); }),
              "select error: Invalid argument\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(faults::calls(call::select), 0);
    EXPECT_EQ(net_close(&high), 0);
}

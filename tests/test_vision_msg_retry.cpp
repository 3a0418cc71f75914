// When the system does not take a datagram or gives no socket.
#include "vision_protocol.h"

#include "faults.h"
#include "log_capture.h"
#include "udp_peer.h"
#include "vision_log.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

using faults::call;

using namespace std::chrono_literals;

namespace {

constexpr char k_data_error[] = "udp send data error!\n";

class Retry : public testing::Test {
protected:
    static int send_raw() {
        char bytes[] = {1, 2, 3};
        char ip[] = "192.168.1.5";
        return vision_udp_send(bytes, 3, ip, 5673);
    }

    udp_peer flight{"192.168.1.5", 5673};
    udp_peer camera{"192.168.1.11", 5685};
};

/// What a call writes to standard error.
template <class Work>
std::string standard_error_of(Work work) {
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

void expect_one_error(const std::string &function) {
    const auto lines = logs::all();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, VISION_LOG_LEVEL_ERROR);
    EXPECT_EQ(lines[0].module, MODULE_MSG_ROUTE);
    EXPECT_EQ(lines[0].unit, "src/vision_msg");
    EXPECT_EQ(lines[0].function, function);
    EXPECT_EQ(lines[0].format, k_data_error);
}

} // namespace

TEST_F(Retry, SuccessAtOnceIsOneAttempt) {
    EXPECT_EQ(send_raw(), 3);
    EXPECT_EQ(faults::calls(call::sendto), 1);
    EXPECT_EQ(faults::calls(call::usleep), 1) << "the pause follows a success too";
}

TEST_F(Retry, SuccessOnTheSecondToFourthAttemptCounts) {
    for (int failures = 1; failures <= 3; ++failures) {
        faults::clear();
        faults::fail(call::sendto, EAGAIN, failures);
        int result = 0;
        EXPECT_EQ(standard_error_of([&] { result = send_raw(); }), "");
        EXPECT_EQ(result, 3) << failures;
        EXPECT_EQ(faults::calls(call::sendto), failures + 1);
        EXPECT_EQ(faults::calls(call::usleep), failures + 1);
        EXPECT_EQ(flight.receive().value().size(), 3U);
    }
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(Retry, SuccessOnTheFifthAttemptIsAFailure) {
    faults::fail(call::sendto, ENOBUFS, 4);
    int result = 0;
    const std::string written = standard_error_of([&] { result = send_raw(); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(written.rfind("send failed!\n: ", 0), 0U) << written;
    EXPECT_EQ(faults::calls(call::sendto), 5);
    EXPECT_EQ(flight.receive().value().size(), 3U) << "the datagram has left all the same";
    EXPECT_TRUE(logs::all().empty()) << "the caller of vision_udp_send logs, not it";
}

TEST_F(Retry, FiveFailuresEndItWithTheLastResultAndNoMessage) {
    faults::fail(call::sendto, ENETUNREACH);
    faults::fail(call::usleep, EINTR); // a pause cut short must not hide the reason
    int result = 0;
    int why = 0;
    EXPECT_EQ(standard_error_of([&] {
                  result = send_raw();
                  why = errno;
              }),
              "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(why, ENETUNREACH);
    EXPECT_EQ(faults::calls(call::sendto), 5);
    EXPECT_EQ(faults::calls(call::usleep), 5);
    EXPECT_EQ(flight.receive(0ms), std::nullopt);
}

TEST_F(Retry, InterruptionsAndFullBuffersCountAsAttempts) {
    for (const int error : {EINTR, EAGAIN}) {
        faults::clear();
        faults::fail(call::sendto, error);
        EXPECT_EQ(send_raw(), -1);
        EXPECT_EQ(faults::calls(call::sendto), 5) << strerror(error);
    }
}

TEST_F(Retry, NoBytesTakenFiveTimesGives0) {
    faults::fail(call::sendto, 0, faults::k_forever, 0, 0);
    EXPECT_EQ(send_raw(), 0);
    EXPECT_EQ(faults::calls(call::sendto), 5);
}

TEST_F(Retry, TheLastResultIsTheOneThatCounts) {
    faults::fail(call::sendto, EAGAIN);
    faults::before(call::usleep, [] {
        if (faults::calls(call::sendto) == 4) {
            faults::fail(call::sendto, 0, 1, 0, 0); // after four errors one attempt that sends no byte
        }
    });
    EXPECT_EQ(send_raw(), 0);
    EXPECT_EQ(faults::calls(call::sendto), 5);
}

TEST_F(Retry, AnEmptyDatagramIsSentFiveTimesAndGives0) {
    char ip[] = "192.168.1.5";
    char nothing[] = "";
    EXPECT_EQ(vision_udp_send(nothing, 0, ip, 5673), 0);
    EXPECT_EQ(faults::calls(call::sendto), 5);
}

TEST_F(Retry, AnUnreachableFlightSideCostsAboutFiveMilliseconds) {
    faults::fail(call::sendto, EHOSTUNREACH);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(send_ifly_command_ack(1, 1), -1);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(5));
    EXPECT_LT(took, std::chrono::seconds(5)) << "far above it, for machines with much else to do";
}

TEST_F(Retry, AReportThatFailsIsLogged) {
    faults::fail(call::sendto, ENETUNREACH);
    EXPECT_EQ(send_ifly_command_ack(1, 1), -1);
    expect_one_error("send_general_message");
}

TEST_F(Retry, AReportThatSucceedsOnlyOnTheFifthAttemptIsLogged) {
    faults::fail(call::sendto, ENETUNREACH, 4);
    const std::string written = standard_error_of([] { EXPECT_EQ(send_ifly_command_ack(1, 1), -1); });
    EXPECT_EQ(written.rfind("send failed!\n: ", 0), 0U) << written;
    expect_one_error("send_general_message");
}

TEST_F(Retry, AReportOfWhichNoByteIsTakenGives0AndIsNotLogged) {
    faults::fail(call::sendto, 0, faults::k_forever, 0, 0);
    EXPECT_EQ(send_ifly_command_ack(1, 1), 0);
    EXPECT_TRUE(logs::all().empty());
}

TEST_F(Retry, ACommandThatFailsIsLoggedAsAFailureOnly) {
    faults::fail(call::sendto, ENETUNREACH);
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 0), -1);
    expect_one_error("send_general_message_cam");
}

TEST_F(Retry, ACommandOfWhichNoByteIsTakenIsASuccess) {
    faults::fail(call::sendto, 0, faults::k_forever, 0, 0);
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 0), 0);
    ASSERT_EQ(logs::all().size(), 1U);
    EXPECT_EQ(logs::all()[0].text, "send msg type 0x900 to camera success\n");
}

TEST_F(Retry, AFailedSendHasUsedItsNumber) {
    faults::fail(call::sendto, ENETUNREACH, 5);
    EXPECT_EQ(send_ifly_command_ack(1, 1), -1);
    EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
    EXPECT_EQ(ut_get_le16(flight.receive().value().data() + 12), 1);
}

TEST_F(Retry, NumbersStartAgainAfter65536) {
    faults::fail(call::usleep, 0, faults::k_forever, 0, 0); // no pauses, and nothing leaves
    faults::fail(call::sendto, 0, faults::k_forever, 0, 48);
    for (int i = 0; i < 65535; ++i) {
        ASSERT_EQ(send_ifly_command_ack(1, 1), 48);
    }
    faults::clear();
    for (const int expected : {65535, 0, 1}) {
        EXPECT_EQ(send_ifly_command_ack(1, 1), 48);
        EXPECT_EQ(ut_get_le16(flight.receive().value().data() + 12), expected);
    }
}

TEST_F(Retry, WithoutASocketNothingIsTriedAndTheReasonIsReported) {
    faults::fail(call::socket, EMFILE, 1);
    int result = 0;
    const std::string written = standard_error_of([&] { result = send_raw(); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(written, std::string("sending socket create failed!\n: ") + strerror(EMFILE) + "\n");
    EXPECT_EQ(faults::calls(call::sendto), 0);
    EXPECT_EQ(faults::calls(call::usleep), 0);
}

TEST_F(Retry, AReportWithoutASocketIsLogged) {
    faults::fail(call::socket, EMFILE, 1);
    const std::string written = standard_error_of([] { EXPECT_EQ(send_ifly_command_ack(1, 1), -1); });
    EXPECT_EQ(written.rfind("sending socket create failed!\n: ", 0), 0U) << written;
    expect_one_error("send_general_message");
}

TEST_F(Retry, TheNextCallTriesToMakeTheSocketAgain) {
    faults::fail(call::socket, EMFILE, 2);
    (void)standard_error_of([] {
        EXPECT_EQ(send_raw(), -1);
        EXPECT_EQ(send_raw(), -1);
    });
    EXPECT_EQ(send_raw(), 3);
    EXPECT_EQ(faults::calls(call::socket), 3);
}

TEST_F(Retry, TheSocketIsMadeOnceAndNeverClosed) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(send_raw(), 3);
    }
    EXPECT_EQ(send_ifly_command_cam(1, nullptr, 0), 0);
    faults::fail(call::sendto, ENETUNREACH, 5);
    EXPECT_EQ(send_raw(), -1);
    EXPECT_EQ(faults::calls(call::socket), 1);
    EXPECT_EQ(faults::calls(call::close), 0);
}

// The bench that is left running for somebody to try the tools on.
#include "bench.h"
#include "udp_sockets.h"
#include "wait.h"

#include <gmock/gmock.h>

using bench::k_patience;
using testing::HasSubstr;
using testing::Not;

namespace {

class kept_bench {
public:
    kept_bench() : process_({DEMO_PROGRAM, "--keep"}, {.error_file = "/dev/null", .merge_errors = false}) {
        EXPECT_TRUE(says("Ctrl-C ends it."));
    }

    bool says(const std::string &text) {
        while (const auto line = process_.wait_line(k_patience)) {
            if (line->find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    int end(int signal, std::string &rest) {
        process_.signal(signal);
        while (const auto line = process_.wait_line(k_patience)) {
            rest += *line + '\n';
        }
        return process_.wait_exit(k_patience).value_or(-1);
    }

private:
    child_process process_;
};

pid_t holder_of(uint16_t port) {
    for (const vexa::udp_socket &each : vexa::udp_sockets()) {
        if (each.local.port == port && each.holder) {
            return each.holder->pid;
        }
    }
    return -1;
}

} // namespace

TEST(KeptBench, CarriesTrafficAndEndsInOrderOnCtrlC) {
    kept_bench kept;
    const auto heard = bench::run({"hb", "get", "WORK_STATUS", "VIO_RATE", "--listen", "60"});
    EXPECT_EQ(heard.status, 0) << heard.output;
    const auto status = bench::run({"send", "--to", "5", "--text", "hello"});
    EXPECT_EQ(status.status, 0) << status.error;
    std::string rest;
    EXPECT_EQ(kept.end(SIGINT, rest), 0) << rest;
    for (const char *who :
         {"node 127 ", "node 1 ", "node 3 ", "node 5 ", "node 9 ", "flight ", "camera ", "manager "}) {
        EXPECT_THAT(rest, HasSubstr(who));
    }
    EXPECT_THAT(rest, Not(HasSubstr("status 1")));
}

TEST(KeptBench, GoesOnWithoutANodeThatDies) {
    kept_bench kept;
    const pid_t node = holder_of(9003);
    ASSERT_GT(node, 0);
    ASSERT_EQ(kill(node, SIGKILL), 0);
    EXPECT_TRUE(kept.says("node 3    has ended, status 137"));
    const auto heard = bench::run({"hb", "get", "WORK_STATUS", "--listen", "60"});
    EXPECT_EQ(heard.status, 0) << heard.output;
    std::string rest;
    EXPECT_EQ(kept.end(SIGTERM, rest), 0) << rest;
}

TEST(KeptBench, GoesOnWithoutANodeThatHangs) {
    kept_bench kept;
    const pid_t node = holder_of(9003);
    ASSERT_GT(node, 0);
    ASSERT_EQ(kill(node, SIGSTOP), 0);
    const auto heard = bench::run({"hb", "get", "WORK_STATUS", "--listen", "60"});
    EXPECT_EQ(heard.status, 0) << heard.output;
    ASSERT_EQ(kill(node, SIGCONT), 0);
    std::string rest;
    EXPECT_EQ(kept.end(SIGINT, rest), 0) << rest;
}

TEST(KeptBench, SaysWhoDidNotComeUp) {
    const udp_peer holder{"192.168.1.5", 5673};
    child_process process{{DEMO_PROGRAM, "--keep"}, {.error_file = "", .merge_errors = true}};
    std::string output;
    while (const auto line = process.wait_line(k_patience)) {
        output += *line + '\n';
    }
    EXPECT_EQ(process.wait_exit(k_patience), 1);
    EXPECT_THAT(output, HasSubstr("flight did not come up"));
    EXPECT_THAT(output, HasSubstr("cannot bind 192.168.1.5:5673"));
}

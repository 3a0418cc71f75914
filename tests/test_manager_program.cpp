// The node manager as users run it: a process of its own that is spoken to over UDP and read over its output.
#include "child_process.h"
#include "udp_peer.h"
#include "wait.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>

using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;
using bytes = std::vector<uint8_t>;

namespace {

constexpr auto k_patience = 10s;
constexpr char k_manager_ip[] = "192.168.1.1";
constexpr uint16_t k_manager_port = 9000;
constexpr size_t k_record = 20; // where a message's first record begins
constexpr size_t k_stride = 38;
constexpr size_t k_stat = 36;

bytes request_of(uint8_t id, const std::string &name, bool leaving) {
    bytes message(leaving ? 74 : 58, 0);
    message[0] = 0x3A;
    message[1] = 0x5E;
    message[3] = 2;
    message[4] = leaving ? 58 : 42;
    message[6] = id;
    message[16] = leaving ? 1 : 0;
    message[18] = 1;
    name.copy(reinterpret_cast<char *>(&message[k_record]), 15);
    ("192.168.1." + std::to_string(id)).copy(reinterpret_cast<char *>(&message[k_record + 16]), 15);
    message[k_record + 32] = static_cast<uint8_t>(9000 + id);
    message[k_record + 33] = static_cast<uint8_t>((9000 + id) >> 8);
    message[k_record + 34] = id;
    message[k_record + k_stat] = 1;
    return message;
}

/// What a node looks like from outside: its socket and what it says.
class bench_node {
public:
    explicit bench_node(uint8_t id, const std::string &ip = "")
        : id_(id),
          socket_(ip.empty() ? "192.168.1." + std::to_string(id) : ip, static_cast<uint16_t>(9000 + id)) {}

    void say(const bytes &message) { ASSERT_TRUE(socket_.send(message, k_manager_ip, k_manager_port)); }
    void join() { say(request_of(id_, "node", false)); }
    void leave() { say(request_of(id_, "node", true)); }

    /// The next message from the manager; empty when none comes.
    bytes hear(std::chrono::milliseconds patience = k_patience) {
        return socket_.receive(patience).value_or(bytes{});
    }

    void join_and_hear() {
        join();
        ASSERT_FALSE(hear().empty());
    }

private:
    uint8_t id_;
    udp_peer socket_;
};

bool accepts(const bytes &message) {
    return message.size() >= k_record && message[2] == 0x80;
}

/// The state of a node as a table message says it; -1 when it says nothing.
int state_in(const bytes &message, uint8_t id) {
    for (size_t at = k_record; at + k_stride <= message.size(); at += k_stride) {
        if (message[at + 34] == id) {
            return message[at + k_stat];
        }
    }
    return -1;
}

/// The program, ready to answer.
class manager {
public:
    explicit manager(std::vector<std::string> options = {})
        : process_(command(std::move(options)), {.error_file = "", .merge_errors = true}) {
        EXPECT_THAT(line().value_or("no line"), HasSubstr("192.168.1.1:9000"));
    }

    std::optional<std::string> line() { return process_.wait_line(k_patience); }

    /// Reads on to the next event of this name.
    json event(const std::string &name) {
        while (const auto text = line()) {
            json object = json::parse(*text);
            if (object["event"] == name) {
                return object;
            }
        }
        return {};
    }

    /// Throws away what it has said so far, so that it does not wait for a reader.
    void discard_output() {
        (void)process_.receive();
        while (process_.take_line()) {
        }
    }

    /// Everything it still says after it was asked to end; it must end well.
    std::string end(int signal_number = SIGTERM) {
        process_.signal(signal_number);
        std::string rest;
        while (const auto text = line()) {
            rest += *text + '\n';
        }
        EXPECT_EQ(process_.wait_exit(k_patience), 0);
        return rest;
    }

private:
    static std::vector<std::string> command(std::vector<std::string> options) {
        options.insert(options.begin(), {VEXA_PROGRAM, "manager"});
        return options;
    }

    child_process process_;
};

struct finished {
    int status;
    std::string output;
};

finished run(std::vector<std::string> options) {
    options.insert(options.begin(), VEXA_PROGRAM);
    child_process process{options, {.error_file = "", .merge_errors = true}};
    const int status = process.wait_exit(k_patience).value_or(-1);
    std::string output;
    while (const auto text = process.wait_line(k_patience)) {
        output += *text + '\n';
    }
    return {status, output};
}

} // namespace

TEST(Manager, AnswersARegisterWithItsRecordByteForByte) {
    const manager program;
    bench_node node{5};
    node.join();
    bytes expected = request_of(5, "node", false);
    expected[2] = 0x80; // accepted
    expected[6] = 0;    // from the manager
    expected[8] = 5;    // to the node
    expected[16] = 2;   // NOTIFY
    EXPECT_EQ(node.hear(), expected);
}

TEST(Manager, AnswersWithEveryKnownNodeInTheOrderOfTheIds) {
    const manager program;
    bench_node nine{9};
    nine.join_and_hear();
    bench_node five{5};
    five.join();
    const bytes answer = five.hear();
    ASSERT_EQ(answer.size(), k_record + 2 * k_stride);
    EXPECT_EQ(answer[4], 4 + 2 * k_stride);
    EXPECT_EQ(answer[18], 2);
    EXPECT_EQ(answer[k_record + 34], 5);
    EXPECT_EQ(answer[k_record + k_stride + 34], 9);
}

TEST(Manager, TellsEveryActiveNodeThatANodeHasJoined) {
    const manager program;
    bench_node one{1};
    one.join_and_hear();
    bench_node three{3};
    three.join_and_hear();
    (void)one.hear(); // of node 3
    bench_node five{5};
    five.join();
    for (bench_node *other : {&one, &three}) {
        const bytes news = other->hear();
        EXPECT_EQ(news[2], 0) << "only an answer to a REGISTER accepts";
        EXPECT_EQ(state_in(news, 5), 1);
    }
}

TEST(Manager, AKeepAliveIsAnsweredAndToldToNobodyElse) {
    const manager program;
    bench_node one{1};
    bench_node three{3};
    one.join_and_hear();
    three.join_and_hear();
    (void)one.hear(); // of node 3
    three.join_and_hear();
    one.join(); // the next that node 1 hears is the answer to this
    EXPECT_TRUE(accepts(one.hear()));
}

TEST(Manager, TellsTheOthersThatANodeHasLeft) {
    const manager program;
    bench_node one{1};
    bench_node three{3};
    one.join_and_hear();
    three.join_and_hear();
    (void)one.hear(); // of node 3
    three.leave();
    const bytes news = one.hear();
    EXPECT_EQ(state_in(news, 3), 0);
    EXPECT_EQ(state_in(news, 1), 1);
}

TEST(Manager, ANodeThatHasLeftHearsNothingMore) {
    const manager program;
    bench_node one{1};
    bench_node three{3};
    one.join_and_hear();
    three.join_and_hear();
    three.leave();
    bench_node five{5};
    five.join_and_hear();
    three.join(); // the next that node 3 hears is the answer to this
    EXPECT_TRUE(accepts(three.hear()));
}

TEST(Manager, TellsTheOthersThatANodeIsLostAfterItsMissedKeepAlives) {
    const manager program{{"--keep-alive", "0.2", "--missed", "2"}};
    bench_node silent{3};
    silent.join_and_hear();
    bench_node lively{1};
    const bool told = wait_until([&] {
        lively.join();
        return state_in(lively.hear(), 3) == 0;
    });
    EXPECT_TRUE(told);
}

TEST(Manager, ALostNodeComesBackWithItsNextRegister) {
    manager program{{"--keep-alive", "0.05", "--missed", "1", "--json"}};
    bench_node node{3};
    node.join_and_hear();
    EXPECT_EQ(program.event("table")["change"]["what"], "joined");
    EXPECT_EQ(program.event("table")["change"]["what"], "lost");
    node.join();
    EXPECT_EQ(state_in(node.hear(), 3), 1);
}

TEST(Manager, RefusesAnActiveNodesIdToAnotherAddressAndSaysSo) {
    manager program{{"--json"}};
    bench_node first{5};
    first.join_and_hear();
    bench_node second{5, "192.168.1.77"};
    second.join();
    const json said = program.event("refused");
    EXPECT_EQ(said["reason"], "id_taken");
    EXPECT_EQ(said["node_id"], 5);
    EXPECT_EQ(said["from"], "192.168.1.77:9005");
    first.leave();
    second.join();
    EXPECT_TRUE(accepts(second.hear())) << "the id is free now";
}

TEST(Manager, AnswersGoWhereTheRegisterCameFromAndNotWhereItClaims) {
    const manager program;
    bench_node claimed{6};
    bench_node real{5};
    bytes message = request_of(5, "node", false);
    message[k_record + 16 + 10] = '6'; // ip 192.168.1.6
    message[k_record + 32] = request_of(6, "", false)[k_record + 32];
    real.say(message);
    EXPECT_TRUE(accepts(real.hear()));
    claimed.join();
    EXPECT_TRUE(accepts(claimed.hear())) << "its first message is the answer to its own REGISTER";
}

TEST(Manager, NamesAndCountsEachKindOfHostileDatagram) {
    manager program{{"--json"}};
    bench_node node{5};
    bytes wild_id = request_of(5, "node", false);
    wild_id[6] = wild_id[k_record + 34] = 200;
    bytes wild_count = request_of(5, "node", false);
    wild_count[19] = 0x7F;
    bytes endless_name = request_of(5, "node", false);
    std::fill_n(&endless_name[k_record], 16, uint8_t{'n'});
    const std::vector<std::pair<bytes, std::string>> hostile = {{bytes(3, 0x3A), "too_short"},
                                                                {bytes(58, 0xEE), "wrong_magic"},
                                                                {wild_id, "bad_id"},
                                                                {wild_count, "wrong_count"},
                                                                {endless_name, "unterminated_text"}};
    for (const auto &[datagram, reason] : hostile) {
        node.say(datagram);
        EXPECT_EQ(program.event("refused")["reason"], reason);
    }
    const json summary = json::parse(program.end());
    EXPECT_EQ(summary["received"], hostile.size());
    EXPECT_EQ(summary["known"], 0);
    for (const auto &[datagram, reason] : hostile) {
        EXPECT_EQ(summary["refused"][reason], 1) << reason;
    }
}

TEST(Manager, SaysARefusalAgainOnlyTheTenthTime) {
    manager program{{"--json"}};
    bench_node node{5};
    for (int i = 0; i < 10; ++i) {
        node.say(bytes(58, 0xEE));
    }
    EXPECT_EQ(program.event("refused")["times"], 1);
    EXPECT_EQ(program.event("refused")["times"], 10);
}

TEST(Manager, WorksOnAfterTwentyThousandRandomDatagrams) {
    manager program{{"--json"}};
    bench_node hostile{99};
    std::mt19937 random{20240917}; // any seed does; a fixed one can be repeated
    for (int i = 0; i < 20'000; ++i) {
        bytes datagram = i % 2 == 0 ? request_of(static_cast<uint8_t>(random() % 256), "x", i % 3 == 0)
                                    : bytes(random() % 300);
        const size_t spoiled = i % 2 == 0 ? random() % 8 : datagram.size();
        for (size_t k = 0; k < spoiled; ++k) {
            datagram[random() % datagram.size()] = static_cast<uint8_t>(random());
        }
        hostile.say(datagram);
        program.discard_output();
    }
    bench_node node{5};
    ASSERT_TRUE(wait_until([&] { // whoever took the id with a lucky datagram leaves it
        program.discard_output();
        hostile.say(request_of(5, "x", true));
        node.join();
        return accepts(node.hear(50ms));
    }));
    const std::string said = program.end();
    const json summary = json::parse(said.substr(said.rfind('\n', said.size() - 2) + 1)); // its last line
    EXPECT_GT(summary["refused"].size(), 5U);
}

TEST(Manager, PrintsTheTableWhenItChanges) {
    manager program;
    bench_node node{5};
    node.say(request_of(5, "soa", false));
    EXPECT_THAT(program.line().value_or(""), HasSubstr("  node 5 (soa) joined at 192.168.1.5:9005"));
    EXPECT_EQ(program.line(), "     ID  NAME             ADDRESS                STATE");
    EXPECT_EQ(program.line(), "      5  soa              192.168.1.5:9005       active");
    node.say(request_of(5, "soa", true));
    EXPECT_THAT(program.line().value_or(""), HasSubstr("  node 5 (soa) left"));
    (void)program.line();
    EXPECT_EQ(program.line(), "      5  soa              192.168.1.5:9005       inactive");
}

TEST(Manager, ANameCannotSteerTheTerminal) {
    manager program;
    bench_node node{5};
    node.say(request_of(5, "\033[2Jx\ny\xFF", false));
    EXPECT_THAT(program.line().value_or(""), HasSubstr("node 5 (?[2Jx?y?) joined"));
}

TEST(Manager, IsQuietWhenAsked) {
    child_process process{{VEXA_PROGRAM, "manager", "--quiet"}};
    bench_node node{5};
    ASSERT_TRUE(wait_until([&] { // nothing says that it is up but its answer
        udp_peer probe{"192.168.1.6", 9006};
        return probe.send(request_of(6, "probe", false), k_manager_ip, k_manager_port) &&
               probe.receive(50ms).has_value();
    }));
    node.join_and_hear();
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait_exit(k_patience), 0);
    EXPECT_THAT(process.wait_line(k_patience).value_or(""), HasSubstr("ended; nodes known 2, active 2"));
    EXPECT_FALSE(process.wait_line(k_patience).has_value());
}

TEST(Manager, EndsWellAndSumsUpOnEitherSignal) {
    for (const int number : {SIGTERM, SIGINT}) {
        manager program;
        bench_node node{5};
        node.join_and_hear();
        const std::string said = program.end(number);
        EXPECT_THAT(said,
                    HasSubstr("ended; nodes known 1, active 1; datagrams received 1, registrations answered "
                              "1, table messages sent 0, sends failed 0, datagrams refused 0"));
    }
}

TEST(Manager, SaysWhatToDoWhenTheMachineLacksTheAddress) {
    const finished result = run({"manager", "--bind", "10.9.8.7"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("cannot bind 10.9.8.7:9000: Cannot assign requested address"));
    EXPECT_THAT(result.output, HasSubstr("ip address add 10.9.8.7/24 dev"));
}

TEST(Manager, SaysWhatToDoWhenThePortIsTaken) {
    const udp_peer holder{k_manager_ip, k_manager_port};
    const finished result = run({"manager"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("cannot bind 192.168.1.1:9000: Address already in use"));
    EXPECT_THAT(result.output, HasSubstr("ss -lunp sport = :9000"));
}

TEST(VexaProgram, WrongUsageIsStatusTwo) {
    const std::vector<std::vector<std::string>> wrong = {{},
                                                         {"no-such-command"},
                                                         {"manager", "--no-such-option"},
                                                         {"manager", "--quiet", "--json"},
                                                         {"manager", "--port", "0"},
                                                         {"manager", "--bind", "here"},
                                                         {"manager", "--missed", "0"},
                                                         {"manager", "--keep-alive", "-1"}};
    for (const auto &options : wrong) {
        const finished result = run(options);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(options);
        EXPECT_FALSE(result.output.empty());
    }
}

TEST(VexaProgram, HelpIsNoErrorAndEachSubcommandShowsAnExample) {
    EXPECT_THAT(run({"--help"}).output, HasSubstr("manager"));
    const finished result = run({"manager", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("Example"));
    EXPECT_THAT(result.output, HasSubstr("  vexa manager\n"));
}

TEST(VexaProgram, TellsItsVersion) {
    const finished result = run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "vexa " VEXA_VERSION "\n");
}

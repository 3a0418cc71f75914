// "vexa explain" as users run it, on tables from a file, and on a bench for where tables come from.
#include "bench.h"
#include "emulator.h"
#include "wait.h"

#include <gmock/gmock.h>

using bench::run;
using testing::HasSubstr;
using testing::Not;

namespace {

/// Nodes 1, 3, 5, 9 and the proxy; 3 has left, 7 has given an address that is none.
constexpr char k_table[] = R"({"event":"table","change":{"node_id":3,"what":"left"},"nodes":[
    {"node_id":1,"name":"vision_machine","ip":"192.168.1.2","port":9001,"active":true},
    {"node_id":3,"name":"vio","ip":"192.168.1.2","port":9003,"active":false},
    {"node_id":5,"name":"soa","ip":"192.168.1.5","port":9005,"active":true},
    {"node_id":7,"name":"lost","ip":"here","port":9007,"active":true},
    {"node_id":9,"name":"detection","ip":"192.168.1.9","port":9009,"active":true},
    {"node_id":127,"name":"proxy","ip":"192.168.1.2","port":9127,"active":true}]})";

bench::finished explain(const std::string &table, std::vector<std::string> question) {
    const bench::scratch_file file{table};
    question.insert(question.begin(), "explain");
    question.insert(question.end(), {"--table", file.name()});
    return run(question);
}

struct route {
    const char *what;
    std::vector<std::string> question;
    bool travels;
    nlohmann::json next_hop;
    std::vector<int> reached;
    const char *reason; ///< a part of one of the reasons

    friend void PrintTo(const route &which, std::ostream *out) { *out << which.what; }
};

const std::vector<route> &routes() {
    static const std::vector<route> all = {
        {"NodeToNode",
         {"--from", "5", "--to", "9"},
         true,
         9,
         {9},
         "node 9 (detection) is active: the library sends to 192.168.1.9:9009"},
        {"ByName", {"--from", "soa", "--to", "NODE_DETECTION_TRACKING"}, true, 9, {9}, "ids up to 127"},
        {"AppByTheProxy",
         {"--from", "5", "--to", "64001"},
         true,
         127,
         {127},
         "The next hop for 64001 (NODE_APP) is node 127, the proxy"},
        {"AnyIdAboveByTheProxy",
         {"--from", "5", "--to", "200"},
         true,
         127,
         {127},
         "node 127 (proxy) accepts it: source 5 and destination 200"},
        {"TheProxyItself", {"--from", "5", "--to", "127"}, true, 127, {127}, "is the node itself"},
        {"ToANodeThatHasLeft",
         {"--from", "5", "--to", "3"},
         false,
         3,
         {},
         "node 3 (vio) is not active: it has left, or its keep-alives have stopped"},
        {"ToAStranger",
         {"--from", "5", "--to", "10"},
         false,
         10,
         {},
         "node 10 is not active: it has not registered"},
        {"FromAStranger",
         {"--from", "10", "--to", "5"},
         false,
         nullptr,
         {},
         "node 10 is not active: it has not registered"},
        {"ToAnAddressThatIsNone",
         {"--from", "5", "--to", "7"},
         false,
         7,
         {},
         "'here:9007' is no address that a datagram can be sent to"},
        {"ToTheManager", {"--from", "5", "--to", "0"}, false, 0, {}, "it drops application messages"},
        {"ToItself", {"--from", "5", "--to", "5"}, true, 5, {5}, "sends to itself"},
        {"TooLong",
         {"--from", "5", "--to", "9", "--size", "8193"},
         false,
         nullptr,
         {},
         "8193 bytes are more than the 8192 that a sending function accepts"},
        {"CutByTheReceiver",
         {"--from", "5", "--to", "9", "--size", "8177"},
         true,
         9,
         {9},
         "Of 8177 bytes of payload the receiver reads the first 8176"},
        {"Broadcast",
         {"--from", "9", "--to", "broadcast"},
         true,
         nullptr,
         {1, 5, 7},
         "It does not reach node 3 (vio): it is not active"},
        {"BroadcastById",
         {"--from", "9", "--to", "0xff00"},
         true,
         nullptr,
         {1, 5, 7},
         "It does not reach node 127 (proxy): its id is not below 9"},
        {"BroadcastOfTheProxy",
         {"--from", "127", "--to", "broadcast"},
         true,
         nullptr,
         {1, 5, 7, 9},
         "It reaches node 9 (detection)"},
        {"BroadcastOfNodeOne", {"--from", "1", "--to", "broadcast"}, false, nullptr, {}, "It reaches nobody"},
    };
    return all;
}

class Explain : public testing::TestWithParam<route> {};

} // namespace

TEST_P(Explain, SaysWhetherAndWhy) {
    const route &expected = GetParam();
    std::vector<std::string> question = expected.question;
    question.emplace_back("--json");
    const auto result = explain(k_table, question);
    ASSERT_FALSE(result.output.empty()) << result.error;
    const auto answer = result.json();
    EXPECT_EQ(answer["travels"], expected.travels);
    EXPECT_EQ(answer["next_hop"], expected.next_hop);
    EXPECT_EQ(answer["reached"], expected.reached);
    EXPECT_THAT(answer["reasons"].dump(), HasSubstr(expected.reason));
    EXPECT_EQ(result.status, expected.travels ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Route, Explain, testing::ValuesIn(routes()),
                         [](const auto &each) { return std::string{each.param.what}; });

TEST(ExplainProgram, TextHasTheVerdictFirstAndWhereTheTableIsFrom) {
    const auto result = explain(k_table, {"--from", "5", "--to", "3"});
    EXPECT_EQ(result.output.find("5 (NODE_SOA) -> 3 (NODE_VIO): does not travel\n  - node 5 (soa) is active"),
              0U)
        << result.output;
    EXPECT_THAT(result.output, HasSubstr(": 6 nodes, 5 active.\n"));
}

TEST(ExplainProgram, OfSeveralTablesTheLastCounts) {
    const std::string two = R"({"event":"listening","address":"192.168.1.1:9000"}
{"event":"table","nodes":[{"node_id":5,"active":true},{"node_id":9,"active":true}]}
{"event":"table","nodes":[{"node_id":5,"active":true},{"node_id":9,"active":false}]}
)";
    EXPECT_EQ(explain(two, {"--from", "5", "--to", "9"}).status, 1);
}

TEST(ExplainProgram, AFileWithoutATableIsSaidToBeNone) {
    for (const char *text : {"", "no json", "{\"event\":\"listening\"}", "[1]"}) {
        const auto result = explain(text, {"--from", "5", "--to", "9"});
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_THAT(result.error, HasSubstr("there is no table in what was read from")) << text;
    }
    const auto bad = explain(R"({"nodes":[{"name":"x"}]})", {"--from", "5", "--to", "9"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_THAT(bad.error, HasSubstr("has a node that is none"));
}

TEST(ExplainProgram, OverhearsTheTableWithoutTakingPart) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    bench::manager manager;
    bench::node five{5};
    bench::node nine{9};
    bench::program asked{{"explain", "--from", "9", "--to", "5", "--listen", "60", "--json"}};
    ASSERT_TRUE(wait_until([&] { return asked.error().find("listening") != std::string::npos; }));
    nine.keep_alive();
    const auto answer = asked.end();
    EXPECT_EQ(answer.json()["travels"], true) << answer.output;
    EXPECT_EQ(answer.json()["table"], "overheard from the node manager");
    EXPECT_THAT(manager.end().output, Not(HasSubstr("\"node_id\":119")));
}

TEST(ExplainProgram, AsksForTheTableWhenTold) {
    bench::manager manager;
    bench::node five{5};
    bench::node nine{9};
    const auto answer = run({"explain", "--from", "9", "--to", "broadcast", "--ask", "--json"});
    EXPECT_EQ(answer.status, 0) << answer.error;
    EXPECT_EQ(answer.json()["reached"], std::vector<int>{5});
    EXPECT_TRUE(answer.json()["missed"].empty()) << "the node that asks is not part of the answer";
    EXPECT_TRUE(manager.waits_for(119, true));
}

TEST(ExplainProgram, SaysThatNothingWasOverheard) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    const auto answer = run({"explain", "--from", "5", "--to", "9", "--listen", "0.2"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.error, HasSubstr("no message of the node manager was overheard in 0.2 s"));
    EXPECT_THAT(answer.error, HasSubstr("--ask"));
}

TEST(ExplainProgram, WrongUsageIsStatusTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {"explain"},
        {"explain", "--from", "5"},
        {"explain", "--to", "5"},
        {"explain", "--from", "0", "--to", "5"},
        {"explain", "--from", "128", "--to", "5"},
        {"explain", "--from", "5", "--to", "somebody"},
        {"explain", "--from", "5", "--to", "9", "--ask", "--table", "x"},
    };
    for (const auto &options : wrong) {
        EXPECT_EQ(run(options).status, 2) << testing::PrintToString(options);
    }
}

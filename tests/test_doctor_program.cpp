// "vexa doctor" on a bench with one fault at a time: each is found and named, and nothing else is.
#include "bench.h"
#include "emulator.h"
#include "udp_sockets.h"
#include "wait.h"

#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <set>

using bench::run;
using testing::HasSubstr;

namespace {

using problem = std::pair<std::string, int>; // code, node
using problems = std::set<problem>;
using options = std::vector<std::string>;

constexpr int k_nobody = -1;
constexpr char k_node_ip[] = "192.168.1.5";
constexpr uint16_t k_node_port = 9005;

/// What there is on the bench, and what a seed has added.
struct stage {
    std::unique_ptr<bench::manager> manager;
    std::unique_ptr<bench::program> proxy; // one of the library
    std::unique_ptr<bench::node> five;
    std::vector<std::unique_ptr<bench::program>> programs;
    std::vector<std::unique_ptr<udp_peer>> sockets;

    void start_manager() { manager = std::make_unique<bench::manager>(); }
    void start_proxy() {
        proxy = std::make_unique<bench::program>(options{"hb", "watch", "--id", "127", "--name", "proxy"});
        ASSERT_TRUE(manager->waits_for(127, true));
    }
    void start_healthy() {
        start_manager();
        start_proxy();
        five = std::make_unique<bench::node>(uint16_t{5});
    }
    udp_peer &socket_at(const std::string &ip, uint16_t port) {
        sockets.push_back(std::make_unique<udp_peer>(ip, port));
        return *sockets.back();
    }
    bench::program &start_node_seven(const options &more) {
        options all = {"hb", "watch", "--id", "7"};
        all.insert(all.end(), more.begin(), more.end());
        programs.push_back(std::make_unique<bench::program>(all));
        EXPECT_TRUE(manager->waits_for(7, true));
        return *programs.back();
    }
    void send_to_five(const bus::bytes &datagram) { five->send(datagram, k_node_ip, k_node_port); }
};

bus::bytes register_of_five(const std::string &ip) {
    bus::record own = bus::record_of(5);
    own.ip = ip;
    return bus::message({2, 5, 0}, bus::table({own}, 0));
}

void say_to_manager(udp_peer &from, const bus::bytes &what) {
    ASSERT_TRUE(from.send(what, "192.168.1.1", 9000));
}

bool is_stopped(uint16_t port) {
    const auto all = vexa::udp_sockets();
    return std::any_of(all.begin(), all.end(), [port](const vexa::udp_socket &each) {
        return each.local.port == port && each.holder && each.holder->state == 'T';
    });
}

void read_everything(bench::node &node) {
    while (node.receive_now()) {
    }
}

struct fault {
    const char *name;
    options asked;                       ///< of the doctor
    std::function<void(stage &)> before; ///< it starts
    std::function<void(stage &)> during; ///< it listens; empty: it does not
    problems expected;
    const char *words;  ///< in a finding's text
    const char *advice; ///< in a finding's advice

    friend void PrintTo(const fault &which, std::ostream *out) { *out << which.name; }
};

void healthy(stage &on) {
    on.start_healthy();
}

const options k_ask = {"--listen", "0", "--ask"};
const options k_listen = {"--listen", "60"};

std::vector<fault> faults_of_manager() {
    return {
        {"NoWayToTheManager",
         {"--listen", "0"},
         [](stage &) { ASSERT_EQ(std::system("ip address del 192.168.1.1/24 dev lo"), 0); },
         {},
         {{"no_way_to_manager", k_nobody}},
         "192.168.1.1:9000: Network is unreachable",
         "ip address add"},
        {"NoManager",
         {"--listen", "0"},
         [](stage &) {},
         {},
         {{"manager_missing", 0}},
         "nobody receives at 192.168.1.1:9000",
         "start the node manager"},
        {"AManagerThatDoesNotAnswerANode",
         k_listen,
         [](stage &on) { on.socket_at("192.168.1.1", 9000); },
         [](stage &on) { say_to_manager(on.socket_at(k_node_ip, k_node_port), register_of_five(k_node_ip)); },
         {{"manager_silent", 0}},
         "1 REGISTERs were heard",
         "look what receives at 192.168.1.1:9000"},
        {"AManagerThatDoesNotAnswerTheDoctor",
         {"--listen", "0", "--ask", "--timeout", "0.3"},
         [](stage &on) { on.socket_at("192.168.1.1", 9000); },
         {},
         {{"manager_silent", 0}},
         "has not accepted node 119",
         "whether datagrams get there"},
        {"NoProxy",
         k_ask,
         [](stage &on) {
             on.start_manager();
             on.five = std::make_unique<bench::node>(uint16_t{5});
         },
         {},
         {{"proxy_missing", 127}},
         "destinations from 127 up are refused",
         "start the node with id 127"},
    };
}

std::vector<fault> faults_of_registration() {
    return {
        {"APortThatIsTaken",
         {"--listen", "0", "--ask", "--id", "6"},
         [](stage &on) {
             on.start_healthy();
             on.socket_at("192.168.1.6", 9006);
         },
         {},
         {{"port_taken", 6}},
         "UDP port 9006, where node 6 would receive, is taken by PID",
         "end that process"},
        {"TheSameIdOnTwoMachines",
         k_listen,
         healthy,
         [](stage &on) {
             on.five->keep_alive();
             say_to_manager(on.socket_at("192.168.1.6", k_node_port), register_of_five("192.168.1.6"));
         },
         {{"duplicate_id", 5}},
         "registers from 2 places: 192.168.1.5:9005 and 192.168.1.6:9005",
         "only one of them is accepted"},
        {"TheSameIdTwiceOnOneMachine",
         k_listen,
         healthy,
         [](stage &on) {
             on.five->keep_alive();
             say_to_manager(on.socket_at(k_node_ip, 40000), register_of_five(k_node_ip));
         },
         {{"duplicate_id", 5}},
         "192.168.1.5:9005 and 192.168.1.5:40000",
         "not at port 9005 receives nothing"},
        {"ANodeThatIsNotAccepted",
         k_listen,
         healthy,
         [](stage &on) {
             udp_peer &second = on.socket_at("192.168.1.6", k_node_port);
             say_to_manager(second, register_of_five("192.168.1.6"));
             say_to_manager(second, register_of_five("192.168.1.6"));
             say_to_manager(on.socket_at("192.168.1.8", 9008),
                            bus::message({2, 8, 0}, bus::table({bus::record_of(8)}, 0)));
         },
         {{"not_accepted", 5}},
         "registers again and again from 192.168.1.6:9005",
         "refuses an id that is active at another address"},
        {"AWrongAddress",
         k_ask,
         [](stage &on) {
             on.start_healthy();
             on.start_node_seven({"--ip", "10.9.8.7"});
         },
         {},
         {{"wrong_address", 7}},
         "that it is at '10.9.8.7', which is no address of this machine",
         "third argument of vision_msg_component_init"},
    };
}

std::vector<fault> faults_of_nodes() {
    return {
        {"ANodeThatIsGone",
         k_ask,
         [](stage &on) {
             on.start_healthy();
             on.five.reset();
         },
         {},
         {{"node_gone", 5}},
         "counts as active at 192.168.1.5:9005 on this machine, and nobody receives",
         "ended without leaving"},
        {"ANodeThatIsStopped",
         k_ask,
         [](stage &on) {
             on.start_healthy();
             on.start_node_seven({}).signal(SIGSTOP);
             ASSERT_TRUE(wait_until([] { return is_stopped(9007); }));
         },
         {},
         {{"node_stopped", 7}},
         "is stopped (state T)",
         "kill -CONT "},
        {"ANodeThatDoesNotRead",
         k_ask,
         [](stage &on) {
             on.start_healthy();
             for (int i = 0; i < 30; ++i) {
                 on.send_to_five(bus::message({1, 5, 5}, bus::bytes(8000)));
             }
         },
         {},
         {{"node_not_reading", 5}},
         "bytes wait in its socket",
         "its callback hangs"},
        {"ANodeThatHasLostMessages",
         k_ask,
         [](stage &on) {
             on.start_healthy();
             for (int i = 0; i < 100; ++i) {
                 on.send_to_five(bus::message({1, 5, 5}, bus::bytes(8000)));
             }
             read_everything(*on.five);
         },
         {},
         {{"drops", 5}},
         "datagrams since it started, 0 of them while this listened",
         "net.core.rmem_default="},
        {"ANodeWithoutKeepAlives",
         {"--listen", "10.2"},
         healthy,
         [](stage &) {},
         {{"keep_alive_missing", 5}},
         "has sent no keep-alive in 1",
         "look at its process"},
    };
}

std::vector<fault> faults_of_traffic() {
    return {
        {"MoreAtATimeThanABufferHolds",
         k_listen,
         healthy,
         [](stage &on) {
             for (int i = 0; i < 2000; ++i) {
                 on.send_to_five(bus::message({1, 5, 5}, bus::bytes(1000)));
                 read_everything(*on.five);
             }
         },
         {{"small_buffer", 5}},
         "came to node 5 within 100 ms",
         "net.core.rmem_default="},
        {"DatagramsThatAreNoMessages",
         k_listen,
         healthy,
         [](stage &on) { on.send_to_five(bus::text("this is no message of any kind")); },
         {{"malformed", 5}},
         "1 datagram from 192.168.1.5:9005 to node 5 at 192.168.1.5:9005: magic is 0x6874, not 0x5e3a",
         "find who sends"},
        {"AMessageShorterThanItSays",
         k_listen,
         healthy,
         [](stage &on) {
             on.send_to_five(bus::message_saying(100, {1, 5, 5}, bus::bytes(10)));
         },
         {{"malformed", 5}},
         "data_length says 100 bytes, 10 arrived",
         "find who sends"},
        {"AMessageThatReceiversCut",
         k_listen,
         healthy,
         [](stage &on) {
             on.send_to_five(bus::message({1, 5, 5}, bus::bytes(8177)));
         },
         {{"cut", 5}},
         "a receiver takes 8192 of 8193 bytes",
         "at most 8176 bytes"},
        {"IdsThatNoNodeTakes",
         k_listen,
         healthy,
         [](stage &on) {
             on.send_to_five(bus::message({1, 3, 200}));
         },
         {{"refused_ids", 5}},
         "no node takes it: src is 3, dst is 200",
         "correct the ids"},
    };
}

std::vector<fault> all_faults() {
    std::vector<fault> all;
    for (const auto &group :
         {faults_of_manager(), faults_of_registration(), faults_of_nodes(), faults_of_traffic()}) {
        all.insert(all.end(), group.begin(), group.end());
    }
    return all;
}

struct diagnosis {
    int status = -1;
    std::vector<nlohmann::json> lines;
    std::string error;

    [[nodiscard]] problems found() const {
        problems all;
        for (const nlohmann::json &each : lines) {
            if (each["event"] == "finding" && each["severity"] == "problem") {
                all.insert({each["code"], each["node_id"].is_null() ? k_nobody : each["node_id"].get<int>()});
            }
        }
        return all;
    }
    [[nodiscard]] const nlohmann::json *finding(const std::string &code) const {
        for (const nlohmann::json &each : lines) {
            if (each.value("code", "") == code) {
                return &each;
            }
        }
        return nullptr;
    }
};

diagnosis diagnose(options asked, const std::function<void()> &during = {}) {
    const bool listens_to_its_end = asked.size() > 1 && asked[1] != "60";
    asked.insert(asked.begin(), "doctor");
    asked.emplace_back("--json");
    bench::program doctor{asked};
    if (during) {
        EXPECT_TRUE(wait_until([&] { return doctor.error().find("listening") != std::string::npos; }));
        during();
        if (!listens_to_its_end) {
            doctor.signal(SIGINT);
        }
    }
    const bench::finished result = doctor.end();
    diagnosis made{result.status, {}, result.error};
    std::istringstream lines{result.output};
    for (std::string line; std::getline(lines, line);) {
        made.lines.push_back(nlohmann::json::parse(line));
    }
    return made;
}

class SeededFault : public testing::TestWithParam<fault> {};

} // namespace

TEST_P(SeededFault, IsFoundAndNamedAndNothingElse) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    const fault &seed = GetParam();
    stage on;
    seed.before(on);
    const auto during =
        seed.during ? std::function<void()>{[&] { seed.during(on); }} : std::function<void()>{};
    const diagnosis made = diagnose(seed.asked, during);
    EXPECT_EQ(made.found(), seed.expected) << made.error;
    EXPECT_EQ(made.status, 1);
    const nlohmann::json *finding = made.finding(seed.expected.begin()->first);
    ASSERT_NE(finding, nullptr) << made.error;
    EXPECT_THAT((*finding)["text"].get<std::string>(), HasSubstr(seed.words));
    EXPECT_THAT((*finding)["advice"].get<std::string>(), HasSubstr(seed.advice));
    if (on.programs.size() == 1) {
        on.programs.front()->signal(SIGCONT); // so that it can be ended
    }
}

INSTANTIATE_TEST_SUITE_P(Doctor, SeededFault, testing::ValuesIn(all_faults()),
                         [](const auto &each) { return std::string{each.param.name}; });

TEST(Doctor, FindsNothingWrongWithAHealthyBus) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    stage on;
    on.start_healthy();
    const diagnosis made = diagnose(k_listen, [&] { on.five->keep_alive(); });
    EXPECT_EQ(made.found(), problems{});
    EXPECT_EQ(made.status, 0);
    for (const char *code : {"own_address", "manager_here", "manager_answers", "table", "traffic"}) {
        EXPECT_NE(made.finding(code), nullptr) << code;
    }
    EXPECT_EQ(made.lines.back(), (nlohmann::json{{"event", "summary"}, {"problems", 0}}));
}

TEST(Doctor, ListensWithoutTakingPart) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    stage on;
    on.start_healthy();
    (void)diagnose(k_listen, [&] { on.five->keep_alive(); });
    EXPECT_EQ(on.manager->end().output.find("\"node_id\":119"), std::string::npos);
}

TEST(Doctor, AnIdThatIsActiveElsewhereIsTaken) {
    const bench::scratch_file table{R"({"nodes":[
        {"node_id":5,"name":"soa","ip":"10.0.0.5","port":9005,"active":true},
        {"node_id":127,"name":"proxy","ip":"10.0.0.5","port":9127,"active":true}]})"};
    bench::manager manager;
    const diagnosis made = diagnose({"--listen", "0", "--id", "5", "--table", table.name()});
    EXPECT_EQ(made.found(), (problems{{"id_taken", 5}}));
    EXPECT_NE(made.finding("port_free"), nullptr);
}

TEST(Doctor, ANodeThatHasLeftIsANoteOnly) {
    SKIP_IN_EMULATOR(emulator::k_why_not_captured);
    stage on;
    on.start_healthy();
    on.five->leave();
    ASSERT_TRUE(on.manager->waits_for(5, false));
    on.five.reset();
    const diagnosis made = diagnose(k_ask);
    EXPECT_EQ(made.status, 0);
    ASSERT_NE(made.finding("node_inactive"), nullptr);
    EXPECT_EQ((*made.finding("node_inactive"))["node_id"], 5);
}

TEST(Doctor, SaysWhatItCouldNotLookAt) {
    stage on;
    on.start_healthy();
    const diagnosis made = diagnose({"--listen", "1", "--interface", "nosuch0"});
    EXPECT_EQ(made.status, 0);
    ASSERT_NE(made.finding("not_heard"), nullptr);
    EXPECT_THAT((*made.finding("not_heard"))["text"].get<std::string>(),
                HasSubstr("cannot capture on nosuch0"));
    EXPECT_NE(made.finding("no_table"), nullptr);
}

TEST(Doctor, TextIsOneLineAFindingWithWhatToDo) {
    const auto result = run({"doctor", "--listen", "0", "--quiet"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output,
              "problem  manager_missing: this machine has the node manager's address, and nobody "
              "receives at 192.168.1.1:9000. To do: start the node manager: 'vexa manager', or "
              "the vehicle's own\n1 problem found.\n");
}

TEST(Doctor, ListsEverythingThatCanBeFound) {
    const auto result = run({"doctor", "--list"});
    EXPECT_EQ(result.status, 0);
    for (const fault &each : all_faults()) {
        EXPECT_THAT(result.output, HasSubstr("problem  " + each.expected.begin()->first + ' '));
    }
}

TEST(Doctor, WrongUsageIsStatusTwo) {
    for (const options &wrong : std::vector<options>{{"doctor", "--id", "128"},
                                                     {"doctor", "--quiet", "--json"},
                                                     {"doctor", "--ask", "--table", "x"},
                                                     {"doctor", "--listen", "-1"}}) {
        EXPECT_EQ(run(wrong).status, 2) << testing::PrintToString(wrong);
    }
}

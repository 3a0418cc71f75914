/**
 * @file
 * A bench for the tests of vexa's subcommands: the node manager as a process, nodes as sockets that have
 * registered with it, and the program under test, run to its end or beside the test.
 *
 *     bench::manager manager;
 *     bench::node five{5};
 *     const bench::finished sent = bench::run({"send", "--to", "5", "--text", "hello"});
 *     EXPECT_EQ(five.receive(), bus::message({1, 119, 5}, bus::text("hello")));
 */
#ifndef TEST_BENCH_H
#define TEST_BENCH_H

#include "child_process.h"
#include "route_messages.h"
#include "udp_peer.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

namespace bench {

constexpr std::chrono::seconds k_patience{60}; // a busy machine may be slow, and waiting ends with the event

/** What a run of the program has left. */
struct finished {
    int status = -1;
    std::string output;
    std::string error;

    [[nodiscard]] nlohmann::json json() const { return nlohmann::json::parse(output); }
};

/** A file of the test's own, gone with it. */
class scratch_file {
public:
    explicit scratch_file(const std::string &content = "") {
        char name[] = "/tmp/vexa_test_XXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        (void)close(fd);
        name_ = name;
        std::ofstream{name_} << content;
    }
    ~scratch_file() { (void)std::remove(name_.c_str()); }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] std::string content() const {
        std::ifstream in{name_};
        return {std::istreambuf_iterator<char>{in}, {}};
    }

private:
    std::string name_;
};

/** The program vexa beside the test. */
class program {
public:
    explicit program(std::vector<std::string> arguments)
        : process_(command(std::move(arguments)), {.error_file = error_.name(), .merge_errors = false}) {}

    std::optional<std::string> line() { return process_.wait_line(k_patience); }
    void signal(int number) { process_.signal(number); }
    void give_input(const std::string &line) {
        EXPECT_TRUE(process_.send_line(line));
        process_.end_input();
    }

    /** What it has written to standard error so far. */
    [[nodiscard]] std::string error() const { return error_.content(); }

    /** Reads on until it ends. */
    finished end() {
        finished result;
        while (const auto text = line()) {
            result.output += *text + '\n';
        }
        result.status = process_.wait_exit(k_patience).value_or(-1);
        result.error = error_.content();
        return result;
    }

private:
    /// What joins the bus waits for it as long as the test does, unless the test says otherwise.
    static std::vector<std::string> command(std::vector<std::string> arguments) {
        constexpr std::array<const char *, 5> joining = {"send", "status", "hb", "explain", "doctor"};
        const auto has = [&](const char *word) {
            return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
        };
        const bool joins = !arguments.empty() &&
                           std::find(joining.begin(), joining.end(), arguments.front()) != joining.end();
        if (joins && !has("--timeout") && !has("--help")) {
            arguments.insert(arguments.end(), {"--timeout", std::to_string(k_patience.count())});
        }
        arguments.insert(arguments.begin(), VEXA_PROGRAM);
        return arguments;
    }

    scratch_file error_;
    child_process process_;
};

inline finished run(std::vector<std::string> arguments) {
    return program{std::move(arguments)}.end();
}

/** The node manager, listening. */
class manager {
public:
    explicit manager(std::vector<std::string> options = {}) : process_(command(std::move(options))) {
        EXPECT_TRUE(process_.line().has_value());
    }

    /** Waits until the table has a node in this state. */
    bool waits_for(int id, bool active) {
        while (const auto text = process_.line()) {
            const nlohmann::json said = nlohmann::json::parse(*text);
            if (said["event"] != "table") {
                continue;
            }
            for (const nlohmann::json &each : said["nodes"]) {
                if (each["node_id"] == id && each["active"] == active) {
                    return true;
                }
            }
        }
        return false;
    }

    finished end() {
        process_.signal(SIGTERM);
        return process_.end();
    }

private:
    static std::vector<std::string> command(std::vector<std::string> options) {
        options.insert(options.begin(), {"manager", "--json"});
        return options;
    }

    program process_;
};

/** A registered node, seen from outside: its socket. */
class node {
public:
    explicit node(uint16_t id, const std::string &ip = "")
        : id_(id), ip_(ip.empty() ? bus::ip_of(id) : ip), socket_(ip_, static_cast<uint16_t>(9000 + id)) {
        keep_alive();
        EXPECT_TRUE(receive_of_kind(2).has_value()) << "node " << id << " was not accepted";
    }

    /** Sends a REGISTER. */
    void keep_alive() {
        bus::record own = bus::record_of(id_);
        own.ip = ip_;
        say(bus::message({2, id_, 0}, bus::table({own}, 0)));
    }
    void leave() {
        say(bus::message({2, id_, 0}, bus::joined(bus::table({bus::record_of(id_)}, 1), bus::bytes(16))));
    }

    /** The next message that is not the manager's. */
    bus::bytes receive() {
        for (;;) {
            bus::bytes datagram = socket_.receive(k_patience).value_or(bus::bytes{});
            if (datagram.empty() || datagram.at(3) != 2) {
                return datagram;
            }
        }
    }

    std::optional<bus::bytes> receive_of_kind(int kind) {
        for (;;) {
            auto datagram = socket_.receive(k_patience);
            if (!datagram || datagram->at(3) == kind) {
                return datagram;
            }
        }
    }

    /** Takes a datagram, if one is there. */
    bool receive_now() { return socket_.receive(std::chrono::milliseconds(0)).has_value(); }

    void say(const bus::bytes &datagram) { send(datagram, "192.168.1.1", 9000); }
    void send(const bus::bytes &datagram, const std::string &ip, uint16_t port) {
        EXPECT_TRUE(socket_.send(datagram, ip, port));
    }

private:
    uint16_t id_;
    std::string ip_;
    udp_peer socket_;
};

} // namespace bench

#endif

// One end of a broadcast: does what it is told line by line, like bench_pair.
//
//     bench_fan --contender bare-loop --role send --nodes 100 --board /tmp/x/board
//     ask 64 100        100 broadcasts of 64 bytes, one after the other -> "0 201000 203000.1" lost, median
//     and mean
//                       of the time until the last receiver had it [ns]
//     pid               -> its process id
#include "fan_sides.h"
#include "pinned.h"
#include "work.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <fmt/core.h>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

struct fan_options {
    std::string contender;
    std::string role;
    std::string directory;
    std::string board;
    uint16_t first = 1;
    uint16_t nodes = 1;
    int core = -1;
};

class sending_end {
public:
    explicit sending_end(const fan_options &how)
        : nodes_(how.nodes),
          notes_(bench::board::open(how.board)),
          sender_(bench::make_fan_sender(how.contender, how.directory, how.nodes)) {}

    std::string ask(size_t size_bytes, uint32_t count) {
        std::vector<uint32_t> samples;
        uint32_t lost = 0;
        for (uint32_t i = 0; i < count; ++i) {
            notes_.expect(nodes_);
            const int64_t begun = bench::now_ns();
            sender_->send(message_.payload(), size_bytes);
            const int64_t last = notes_.wait_for_all();
            if (last == 0) {
                ++lost;
            } else {
                samples.push_back(static_cast<uint32_t>(last - begun));
            }
        }
        return fmt::format("{} {} {:.1f}", lost, bench::percentile(samples, 0.5), bench::mean(samples));
    }

private:
    const uint32_t nodes_;
    bench::board &notes_;
    std::unique_ptr<bench::fan_sender> sender_;
    bench::message_buffer message_;
};

/// Answers lines until there are no more.
void obey(sending_end *sender) {
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words{line};
        std::string order;
        size_t size = 0;
        uint32_t count = 0;
        words >> order >> size >> count;
        if (order == "ask" && sender != nullptr) {
            std::cout << sender->ask(size, count) << std::endl;
        } else {
            std::cout << getpid() << std::endl;
        }
    }
    std::quick_exit(EXIT_SUCCESS); // with threads that nobody stops
}

void run(const fan_options &how) {
    if (how.core >= 0) {
        bench::pin_to(how.core);
    }
    if (how.role == "send") {
        sending_end sender{how};
        obey(&sender);
    } else {
        bench::start_fan_receivers(how.contender, how.directory, how.first, how.nodes,
                                   bench::board::open(how.board));
        obey(nullptr);
    }
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"One end of a broadcast"};
    fan_options how;
    app.add_option("--contender", how.contender)->required();
    app.add_option("--role", how.role)->required()->check(CLI::IsMember({"send", "receive"}));
    app.add_option("--board", how.board, "file that all ends share")->required();
    app.add_option("--directory", how.directory, "for sockets");
    app.add_option("--first", how.first, "number of the first receiver in this process");
    app.add_option("--nodes", how.nodes, "receivers: all, or those in this process");
    app.add_option("--core", how.core, "run on this core only");
    CLI11_PARSE(app, argc, argv);
    try {
        run(how);
    } catch (const std::exception &what) {
        std::cerr << "bench_fan: " << how.contender << ": " << what.what() << '\n';
    }
    return EXIT_FAILURE;
}

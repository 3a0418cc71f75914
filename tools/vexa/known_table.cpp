// Node tables from three sources. See known_table.h.
#include "known_table.h"

#include "node_mapping.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/core.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

namespace vexa {
namespace {

using nlohmann::json;

template <size_t Size>
void copy_text(char (&to)[Size], const std::string &from) {
    memset(to, 0, Size);
    from.copy(to, Size - 1);
}

vexa_node_t node_of(const json &from) {
    vexa_node_t node{};
    node.node_id = from.at("node_id").get<uint16_t>();
    node.port = from.value("port", static_cast<uint16_t>(VX_NODE_PORT_BASE + node.node_id));
    node.stat = from.at("active").get<bool>() ? NODE_STAT_ACTIVED : NODE_STAT_INACTIVED;
    copy_text(node.name, from.value("name", ""));
    copy_text(node.ip, from.value("ip", ""));
    if (node.node_id >= VX_NODE_COUNT) {
        throw std::runtime_error(fmt::format("there is no node {}", node.node_id));
    }
    return node;
}

/// The table in a JSON object; nothing when it has none.
std::optional<std::vector<vexa_node_t>> nodes_in(const json &object) {
    if (!object.is_object() || !object.contains("nodes") || !object["nodes"].is_array()) {
        return std::nullopt;
    }
    std::vector<vexa_node_t> nodes;
    for (const json &each : object["nodes"]) {
        nodes.push_back(node_of(each));
    }
    return nodes;
}

std::string text_of(const std::string &name) {
    if (name == "-") {
        return {std::istreambuf_iterator<char>{std::cin}, {}};
    }
    std::ifstream in{name};
    if (!in) {
        throw std::runtime_error(fmt::format("cannot read {}: {}", name, strerror(errno)));
    }
    return {std::istreambuf_iterator<char>{in}, {}};
}

known_table overhear_table(const listen_options &options) {
    known_table table{{}, "overheard from the node manager"};
    const auto visit = [&table](const udp_datagram &datagram) {
        const auto nodes = table_in(datagram);
        table.nodes = nodes.value_or(table.nodes);
        return !nodes.has_value();
    };
    const auto ready = [&options] {
        fmt::print(stderr, "vexa: listening for a message of the node manager, at most {} s\n",
                   options.seconds);
    };
    switch (listen_to_bus(options, visit, ready)) {
    case listen_end::enough:
        return table;
    case listen_end::signalled:
        throw interrupted();
    case listen_end::over:
        break;
    }
    throw node_trouble(fmt::format(
        "no message of the node manager was overheard in {} s; it sends one for each keep-alive of a node, "
        "every 10 s. --ask joins the bus and asks for the table, --table reads it from a file. 'vexa doctor' "
        "looks for the cause.",
        options.seconds));
}

} // namespace

std::optional<vexa_node_t> known_table::find(uint16_t id) const {
    const auto found = std::find_if(nodes.begin(), nodes.end(),
                                    [id](const vexa_node_t &each) { return each.node_id == id; });
    return found == nodes.end() ? std::nullopt : std::optional{*found};
}

void add_table_options(CLI::App &command, table_options &options) {
    CLI::Option *file =
        command
            .add_option("--table", options.file,
                        "read the table from a file, what 'vexa manager --json' prints; - for "
                        "standard input")
            ->type_name("FILE");
    command.add_flag("--ask", options.ask, "join the bus as a node for a moment and ask the node manager")
        ->excludes(file);
    command.add_option("--timeout", options.node.timeout_s, "seconds to wait for the answer to --ask")
        ->check(CLI::Range(0.01, 86400.0))
        ->capture_default_str();
    command
        .add_option("--listen", options.listen.seconds,
                    "listen for so many seconds at most (needs the right to capture)")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    command
        .add_option("--interface", options.listen.interface, "network interface to listen on; any for all")
        ->capture_default_str();
}

known_table get_table(const table_options &options) {
    if (!options.file.empty()) {
        return parse_table(text_of(options.file), "read from " + options.file);
    }
    if (!options.ask) {
        return overhear_table(options.listen);
    }
    bus_node node{options.node};
    node.wait_registered();
    return table_of_node();
}

known_table table_of_node() {
    known_table table{{}, "told by the node manager"};
    for (uint16_t id = 1; id < VX_NODE_COUNT; ++id) {
        vexa_node_t node{};
        if (nmapping_get(id, &node) == 0 && node.port != 0 && id != nmapping_self_node_id()) {
            vexa_node_end_texts(&node);
            table.nodes.push_back(node);
        }
    }
    return table;
}

known_table parse_table(const std::string &text, const std::string &from) {
    std::optional<std::vector<vexa_node_t>> nodes;
    try {
        if (json::accept(text)) { // one object, perhaps over several lines
            nodes = nodes_in(json::parse(text));
        } else {
            std::istringstream lines{text};
            for (std::string line; std::getline(lines, line);) {
                const json object = json::parse(line, nullptr, false);
                const auto newer = nodes_in(object);
                nodes = newer ? newer : nodes;
            }
        }
    } catch (const json::exception &wrong) {
        throw std::runtime_error(fmt::format("the table {} has a node that is none: {}", from, wrong.what()));
    }
    if (!nodes) {
        throw std::runtime_error(fmt::format("there is no table in what was {}; it is what 'vexa manager "
                                             "--json' prints when a node joins or leaves",
                                             from));
    }
    return {*nodes, from};
}

} // namespace vexa

// The options of a node. See node_options.h.
#include "node_options.h"

#include "named_value.h"

namespace vexa {

const char *const k_node_help = "\nThis is not passive: it joins the bus as a node, by itself one of 110 to "
                                "119, and leaves it at its end; "
                                "the node manager and all nodes hear of both.";

void add_node_options(CLI::App &command, node_options &options) {
    add_named(command, "--id", options.id, k_node_names,
              "id to join with (default: 119 or the next free below)", PROXY_NODE_ID);
    command.add_option("--name", options.name, "name to join with; 15 characters are kept")
        ->capture_default_str();
    command.add_option("--ip", options.ip, "address at which the others reach it (default: this machine's)")
        ->check(CLI::ValidIPV4);
    command
        .add_option("--timeout", options.timeout_s,
                    "seconds to wait until it is registered, and until the peer is active")
        ->check(CLI::Range(0.01, 86400.0))
        ->capture_default_str();
    command.add_flag("--verbose", options.verbose, "show the library's log lines on standard error");
}

} // namespace vexa

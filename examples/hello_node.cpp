// hello_node_cpp OWN-ID PEER-ID: says hello to the peer five times and prints what it hears meanwhile.
#include "vision_service_route_funcs.h"

#include <chrono>
#include <iostream>
#include <string>
#include <thread>

int main(int argc, char **argv) {
    const auto on_message = [](void *payload, MsgExtra *extra) {
        const std::string text(static_cast<const char *>(payload), static_cast<size_t>(extra->len) - 16);
        std::cout << "node " << extra->src << " says " << text << std::endl;
    };
    const auto id = [&](int i) { return static_cast<NodeID>(std::stoi(argv[i])); };
    if (argc != 3 || vision_msg_component_init(id(1), "hello", "192.168.1.2", on_message) != 0) {
        return 1;
    }
    for (int i = 0; i < 5; ++i) { // refused until the node manager has told where the peer is
        std::this_thread::sleep_for(std::chrono::seconds(1));
        vision_send_msg(id(2), "hello", 5);
    }
    vision_msg_component_deinit();
}

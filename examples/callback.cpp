// callback OWN-ID COUNT: hands what arrives from the I/O thread to a thread of the program's own, answers it
// there, and leaves after COUNT messages.
#include "vision_service_route_funcs.h"

#include <condition_variable>
#include <iostream>
#include <list>
#include <mutex>
#include <string>

namespace {

struct message {
    NodeID from;
    std::string payload;
};

std::mutex lock;
std::condition_variable arrived;
std::list<message> inbox; // guarded by `lock`

// On the I/O thread: while this runs nothing else is received, so it only puts the message aside. The payload
// is the library's and gone when this returns. `len` counts the 16 bytes of the header.
void on_message(void *payload, MsgExtra *extra) {
    std::string copy(static_cast<const char *>(payload), static_cast<size_t>(extra->len) - 16);
    const std::lock_guard hold(lock);
    inbox.push_back({extra->src, std::move(copy)});
    arrived.notify_one();
}

message next() {
    std::unique_lock hold(lock);
    arrived.wait(hold, [] { return !inbox.empty(); });
    message oldest = std::move(inbox.front());
    inbox.pop_front();
    return oldest;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || vision_msg_component_init(static_cast<NodeID>(std::stoi(argv[1])), "callback",
                                               "192.168.1.2", on_message) != 0) {
        return 1;
    }
    std::cout << "started" << std::endl;
    for (int left = std::stoi(argv[2]); left > 0;) {
        const message m = next();
        const std::string answer = "got " + m.payload;
        const int sent = vision_send_msg(m.from, answer.data(), static_cast<int>(answer.size()));
        std::cout << m.payload << " from " << m.from << (sent == 0 ? ", answered" : ", not answered")
                  << std::endl;
        left -= sent == 0 ? 1 : 0; // refused while nobody has told where the sender is
    }
    vision_msg_component_deinit();
}

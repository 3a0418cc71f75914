// Loses memory on purpose, so that the tests know what the leak checker sees and what it forgives. Not a test
// of its own: run by CTest with the word that says where to lose it.
//
//     leak_probe queues      messages pass the queues, whose copies are kept unless the build gives them back
//     leak_probe elsewhere   blocks that nobody points to any more
#include "io_pool.h"
#include "vx_msg_buf.h"

#include <cstdlib>
#include <string_view>

namespace {

constexpr int k_blocks = 10; // a stray copy of one pointer on the stack would hide one block, not ten

void *volatile last_block; // makes the compiler keep the allocations

bool never_matches(const void * /*key*/, const void * /*queued*/) {
    return false;
}

int lose_in_queues() {
    static vx_msg_buf message{};
    static char taken[VX_MSG_BUFFER_SIZE];
    int len = 0;
    message.head.data_length = 100;
    if (io_pool_init(never_matches) != 0) {
        return EXIT_FAILURE;
    }
    for (int i = 0; i < k_blocks; ++i) {
        (void)io_pool_rx_put(message.message());
        (void)io_pool_tx_put(message.message());
        (void)io_pool_tx_get(taken, &len);
    }
    io_pool_deinit();
    return len == VX_MSG_HEAD_SIZE + 100 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int lose_elsewhere() {
    for (int i = 0; i < k_blocks; ++i) {
        last_block = malloc(100);
    }
    last_block = nullptr;
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
    const std::string_view where = argc == 2 ? argv[1] : "";
    if (where == "queues") {
        return lose_in_queues();
    }
    return where == "elsewhere" ? lose_elsewhere() : EXIT_FAILURE;
}

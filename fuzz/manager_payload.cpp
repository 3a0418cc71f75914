// Payloads of the node manager behind a header that fits: the records that arrived whole are in the table,
// and nothing else has changed. The node writes each 60th table to the log, with its texts; each payload is
// delivered as an ordinary one and as a 60th.
#include "support/check.h"
#include "support/dispatch_model.h"
#include "support/node.h"

namespace {

constexpr uint16_t k_own_id = 9;
constexpr int k_log_every = 60;

uint8_t manager_messages = 0; // as the node counts them

fuzz::bytes manager_message(uint8_t flag, const fuzz::bytes &payload) {
    fuzz::bytes made = {0x3A, 0x5E, flag, 2};
    made.resize(VX_MSG_HEAD_SIZE);
    ut_put_le16(&made[4], static_cast<uint16_t>(payload.size()));
    ut_put_le16(&made[8], k_own_id);
    made.insert(made.end(), payload.begin(), payload.end());
    return made;
}

void deliver(fuzz::dispatch_model &node, const fuzz::bytes &datagram) {
    node.dispatch(datagram);
    ++manager_messages;
}

} // namespace

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    (void)fuzz::start_node(k_own_id, fuzz::dispatch_model::on_message);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const uint8_t flag = in.u8();
    const fuzz::bytes datagram = manager_message(flag, in.rest());
    fuzz::dispatch_model node(k_own_id, {k_own_id});
    do {
        deliver(node, manager_message(0, {}));
    } while ((manager_messages + 1) % k_log_every != 0);
    deliver(node, datagram);
    FUZZ_CHECK(manager_messages % k_log_every == 0);
    deliver(node, datagram);
    node.compare_state();
    return 0;
}

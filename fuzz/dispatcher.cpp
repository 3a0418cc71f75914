// The dispatcher as an ordinary node: datagrams of any kind and length, in any order, against a model of the
// node.
#include "support/check.h"
#include "support/dispatch_model.h"
#include "support/node.h"

namespace {

constexpr uint16_t k_own_id = 9;

} // namespace

int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/) {
    (void)fuzz::start_node(k_own_id, fuzz::dispatch_model::on_message);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::dispatch_model node(k_own_id, {k_own_id});
    for (const fuzz::bytes &datagram : fuzz::datagrams_of(data, size)) {
        node.dispatch(datagram);
    }
    node.compare_state();
    return 0;
}

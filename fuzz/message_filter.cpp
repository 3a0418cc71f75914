// The words with which a user picks messages: any text is a filter or is refused with a reason, and a filter
// gives an answer for any datagram, always the same, and the opposite under "not".
#include "message_filter.h"
#include "support/check.h"
#include "support/input.h"

namespace {

std::optional<vexa::message_filter> filter_of(const std::string &text) {
    try {
        return vexa::message_filter(text);
    } catch (const vexa::filter_error &why) {
        FUZZ_CHECK(*why.what() != '\0');
        return std::nullopt;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const std::string text = in.text(1000);
    const uint16_t port = in.u16();
    const fuzz::exact_block block(in.rest());
    vexa::udp_datagram datagram;
    datagram.dst.port = port;
    datagram.wire_size = block.size();
    datagram.bytes = {block.data(), block.size()};
    const formats::decoded read = formats::decode({datagram.bytes, datagram.wire_size, port});
    const auto filter = filter_of(text);
    const auto opposite = filter_of("not (" + text + ")");
    if (filter) {
        const bool wanted = filter->matches({datagram, read});
        FUZZ_CHECK(filter->matches({datagram, read}) == wanted);
        FUZZ_CHECK(!opposite || opposite->matches({datagram, read}) != wanted);
    }
    (void)vexa::node_id_of(text);
    return 0;
}

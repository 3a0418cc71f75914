// Captured packets of any kind and content, in any order and with time passing: what is found in one lies
// within it, and a datagram that is given, whole or not, never has more bytes than have travelled.
#include "datagrams.h"
#include "support/check.h"
#include "support/input.h"

namespace {

constexpr int k_link_types[] = {0,   1,   12,  101,
                                113, 228, 276, 77}; // Ethernet, "any", loopback, bare IP, and none
constexpr size_t k_largest_payload = 65'535;

void check_packet(const vexa::raw_packet &packet) {
    const auto found = vexa::find_ipv4(packet);
    FUZZ_CHECK(!found || vexa::is_known_link_type(packet.link_type));
    if (!found || found->payload.empty()) {
        return;
    }
    FUZZ_CHECK(found->payload.data() >= packet.bytes.data());
    FUZZ_CHECK(&found->payload.back() <= &packet.bytes.back());
    FUZZ_CHECK(found->payload.size() <= found->payload_wire && found->payload_wire <= k_largest_payload);
    FUZZ_CHECK(found->offset <= k_largest_payload);
}

void check_datagram(const vexa::udp_datagram &datagram) {
    FUZZ_CHECK(datagram.bytes.size() <= datagram.wire_size && datagram.wire_size <= 2 * k_largest_payload);
    // Looked at, so that the address sanitizer sees where they lie.
    FUZZ_CHECK(fuzz::bytes(datagram.bytes.begin(), datagram.bytes.end()).size() == datagram.bytes.size());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    vexa::datagram_assembler assembler;
    int64_t now_ns = 0;
    for (fuzz::input in(data, size); !in.empty();) {
        const uint8_t how = in.u8();
        now_ns += (how & 0x80) != 0 ? int64_t{in.u8()} * 100'000'000 : 0;
        const size_t not_captured = (how & 0x40) != 0 ? in.u16() : 0;
        const size_t length = (how & 0x20) != 0 ? in.u16() : in.u8();
        const fuzz::exact_block block(in.take(length));
        const vexa::raw_packet packet{now_ns,
                                      k_link_types[how % std::size(k_link_types)],
                                      block.size() + not_captured,
                                      {block.data(), block.size()}};
        check_packet(packet);
        assembler.feed(packet, check_datagram);
    }
    assembler.finish(check_datagram);
    return 0;
}

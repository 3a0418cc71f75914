// The readers of any datagram of this system, on any bytes from any port: what they read lies within the
// bytes that are there, the quick look sees the same as the whole reading, and all of it can be shown as text
// and as JSON.
#include "decoder.h"
#include "json.h"
#include "show.h"
#include "support/check.h"
#include "support/input.h"

namespace {

void check_node(const formats::node &node, size_t captured) {
    FUZZ_CHECK(node.offset <= captured && node.size <= captured - node.offset);
    FUZZ_CHECK(node.bytes.size() <= node.size && *node.name() != '\0');
    (void)formats::value_name_of(node);
    for (const char letter : formats::text_of(node) + formats::value_text(node) + formats::key_of(node)) {
        FUZZ_CHECK(letter >= ' ' && letter <= '~');
    }
    for (const formats::node &part : node.parts) {
        check_node(part, captured);
    }
}

void check_look(const formats::datagram &from, const formats::decoded &read) {
    const formats::glance seen = formats::look(from);
    FUZZ_CHECK(seen.wire == read.wire && formats::recognise(from) == read.wire);
    if (read.what == nullptr || from.bytes.size() < read.wire->head.size) {
        return; // a header that was captured in part is read as far as it goes, but not looked at
    }
    const formats::node *src = read.find("src");
    FUZZ_CHECK(src == nullptr || seen.src == src->raw);
    const formats::node *dst = read.find("dst");
    FUZZ_CHECK(dst == nullptr || seen.dst == dst->raw);
}

void check(const formats::datagram &from) {
    const formats::decoded read = formats::decode(from);
    FUZZ_CHECK(*read.name() != '\0' && (read.wire != nullptr || read.what == nullptr));
    for (const formats::node &node : read.fields) {
        check_node(node, from.bytes.size());
    }
    for (const formats::finding &found : read.findings) {
        FUZZ_CHECK(found.offset <= from.wire_size && !found.text.empty());
        FUZZ_CHECK(found.how <= *read.worst());
    }
    const std::string text = formats::json_of(read.fields).dump();
    FUZZ_CHECK(nlohmann::ordered_json::parse(text).dump() == text);
    check_look(from, read);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const uint8_t how = in.u8();
    const uint16_t port = in.u16();
    const size_t not_captured = (how & 1) != 0 ? in.u8() : 0;
    const fuzz::exact_block block(in.rest());
    check({{block.data(), block.size()}, block.size() + not_captured, port, (how & 2) != 0});
    return 0;
}

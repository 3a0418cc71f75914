// The camera-protocol header: any sequence of its functions on any 16 bytes does to them what the byte table
// says, and touches nothing behind them but where a text was to go.
#include "support/check.h"
#include "support/input.h"
#include "vision_protocol.h"

#include <array>

namespace {

constexpr size_t k_head = 16;
constexpr size_t k_flag_at = 3;
constexpr size_t k_length_at = 4;
constexpr uint8_t k_reply = 0x10;
constexpr uint8_t k_form = 0x20;
constexpr uint8_t k_final = 0x40;
constexpr uint8_t k_start = 0x80;

using head_bytes = std::array<uint8_t, k_head>;

class header_beside_bytes {
public:
    explicit header_beside_bytes(const fuzz::bytes &content) : block_(k_head) {
        std::copy_n(content.begin(), std::min(content.size(), k_head), block_.data());
        std::copy_n(block_.data(), k_head, expected_.begin());
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 10;
        if (what < 4) {
            set_flag(what, static_cast<int>(in.u32()));
        } else if (what == 4) {
            msg_head_init(head());
            expected_ = {0x00, 0x56, 0x01, 0xC0};
        } else if (what == 5) {
            msg_head_htons(head());
            swap_words();
        } else if (what == 6) {
            msg_head_ntohs(head());
            swap_words();
        } else if (what == 7) {
            load_and_store(in.flag() ? 1 : 0);
        } else {
            put_text(in.text(what == 8 ? 300 : 70'000), what == 9 ? in.u16() : 0, in.flag() ? 1 : 0);
        }
        compare();
    }

private:
    msg_head_t *head() { return reinterpret_cast<msg_head_t *>(block_.data()); }

    void set_flag(uint8_t which, int value) {
        uint8_t &flag = expected_[k_flag_at];
        const auto form = static_cast<uint8_t>((flag & ~k_form) | ((value & 1) != 0 ? k_form : 0));
        switch (which) {
        case 0:
            set_data_form_flag(head(), value);
            flag = form;
            break;
        case 1:
            set_reply_flag(head(), value); // the form bit on purpose
            flag = form;
            break;
        case 2:
            set_final_flag(head());
            flag |= k_final;
            break;
        default:
            set_start_flag(head());
            flag |= k_start;
        }
    }

    void swap_words() {
        for (size_t at = k_length_at; at < k_head; at += 2) {
            std::swap(expected_[at], expected_[at + 1]);
        }
    }

    /// Through the wire image, at an odd address too.
    void load_and_store(size_t offset) {
        fuzz::exact_block image(offset + k_head);
        msg_head_store(image.data() + offset, head());
        fuzz::exact_block loaded(k_head);
        msg_head_load(image.data() + offset, reinterpret_cast<msg_head_t *>(loaded.data()));
        FUZZ_CHECK(loaded.copy() == block_.copy());
        FUZZ_CHECK(ut_get_le16(image.data() + offset + k_length_at) == head()->length);
    }

    /// Behind a copy of the header, with room for the text and its end and not a byte more.
    void put_text(std::string text, size_t repeat, size_t offset) {
        text.append(repeat, 'x');
        fuzz::exact_block json(text);
        fuzz::exact_block whole(offset + k_head + json.size());
        std::copy_n(block_.data(), k_head, whole.data() + offset);
        const int length = data_to_json_cb(json.chars(), whole.data() + offset);
        FUZZ_CHECK(length == static_cast<int>((text.size() + k_head) & 0xFFFF));
        FUZZ_CHECK(text == reinterpret_cast<const char *>(whole.data()) + offset + k_head);
        std::copy_n(whole.data() + offset, k_head, block_.data());
        const auto stored = static_cast<uint16_t>(length);
        memcpy(&expected_[k_length_at], &stored, sizeof stored);
    }

    void compare() {
        FUZZ_CHECK(std::equal(expected_.begin(), expected_.end(), block_.data()));
        FUZZ_CHECK(check_msg_magic(head()) == (expected_[0] == 0x00 && expected_[1] == 0x56 ? 1 : 0));
        FUZZ_CHECK(is_need_reply(head()) == ((expected_[k_flag_at] & k_reply) != 0 ? 1 : 0));
    }

    fuzz::exact_block block_;
    head_bytes expected_{};
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    header_beside_bytes header(in.take(k_head));
    while (!in.empty()) {
        header.step(in);
    }
    return 0;
}

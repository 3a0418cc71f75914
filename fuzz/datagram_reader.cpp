// The datagram reader on a socket that gives datagrams of any length, interruptions and failures in any
// order: each datagram reaches the handler once and whole, and the reader comes back at the first sign that
// there is no more.
#include "support/check.h"
#include "support/input.h"
#include "support/outside.h"
#include "utils/ut_evt.h"

#include <cerrno>

namespace {

namespace outside = fuzz::outside;

constexpr size_t k_most_read = 8192;

std::vector<fuzz::bytes> handled;

void handle(socket_io_t *sio, void *buf, int len) {
    FUZZ_CHECK(reinterpret_cast<uintptr_t>(buf) % 8 == 0 && sio->addr_len >= sizeof sio->fromAddr);
    auto *bytes = static_cast<uint8_t *>(buf);
    handled.emplace_back(bytes, bytes + len);
    memset(buf, 0xA5, static_cast<size_t>(len)); // the buffer is the handler's to write to
}

outside::answer draw(fuzz::input &in) {
    constexpr int errors[] = {EINTR, EINTR, EAGAIN, ECONNREFUSED};
    const uint8_t what = in.u8();
    if (what < 4) {
        return {errors[what], {}};
    }
    const size_t len = what < 240 ? what : in.u16();
    fuzz::bytes content = in.take(std::min<size_t>(len, 4));
    const fuzz::bytes rest = fuzz::pattern(len - content.size());
    content.insert(content.end(), rest.begin(), rest.end());
    return {0, content};
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::deque<outside::answer> answers;
    for (fuzz::input in(data, size); !in.empty();) {
        answers.push_back(draw(in));
    }
    std::vector<fuzz::bytes> expected;
    size_t used = 0;
    for (const outside::answer &one : answers) {
        ++used;
        if (one.error == 0) {
            expected.push_back(one.content);
            expected.back().resize(std::min(one.content.size(), k_most_read));
        } else if (one.error != EINTR) {
            break;
        }
    }
    fuzz::exact_block block(sizeof(socket_io_t)); // an address that is too long would be written behind it
    memset(block.data(), 0, block.size());
    auto *sio = reinterpret_cast<socket_io_t *>(block.data());
    sio->sockfd = 77;
    sio->proc_msg = handle;
    handled.clear();
    outside::plan_receives(answers);
    on_read(nullptr, &sio->ev, EV_READ);
    FUZZ_CHECK(handled == expected && outside::receives_left() == answers.size() - used);
    return 0;
}

// Fates and damage. See mishaps.h.
#include "mishaps.h"

#include "traffic.h"

#include <algorithm>
#include <array>
#include <bit>

namespace soak {
namespace {

constexpr size_t k_longest_growth = 64; // [bytes]
constexpr size_t k_longest_garbage = 600;
constexpr uint64_t k_longest_delay_ms = 40;

/// A sequence of numbers from one.
class dice_cup {
public:
    explicit dice_cup(uint64_t seed) : state_(seed) {}
    uint64_t next() { return state_ = mixed(state_); }
    /// 0 to `sides` - 1.
    size_t throw_one(size_t sides) { return static_cast<size_t>(next() % sides); }
    uint8_t byte() { return static_cast<uint8_t>(next() >> 8); }
    uint8_t other_than_zero() { return static_cast<uint8_t>(1 + throw_one(255)); }

private:
    uint64_t state_;
};

/// 0 up to, but not, 1.
double share_of(uint64_t value) {
    return static_cast<double>(value >> 11) * 0x1p-53;
}

using damage = void (*)(std::vector<uint8_t> &, dice_cup &);

void flip_in(std::vector<uint8_t> &datagram, size_t within, dice_cup &dice) {
    const size_t end = std::min(within, datagram.size());
    if (end > 0) {
        datagram[dice.throw_one(end)] ^= dice.other_than_zero();
    }
}

void flip_one(std::vector<uint8_t> &datagram, dice_cup &dice) {
    flip_in(datagram, datagram.size(), dice);
}

void flip_some(std::vector<uint8_t> &datagram, dice_cup &dice) {
    for (size_t left = 2 + dice.throw_one(7); left > 0; --left) {
        flip_one(datagram, dice);
    }
}

void flip_in_header(std::vector<uint8_t> &datagram, dice_cup &dice) {
    flip_in(datagram, VX_MSG_HEAD_SIZE, dice);
}

/// A manager's message begins with its command, its count and its first record.
void flip_at_front(std::vector<uint8_t> &datagram, dice_cup &dice) {
    flip_in(datagram, VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE + VX_NODE_RECORD_SIZE, dice);
}

/// What a node believes of others, or a manager of a node: the command, the state in some record.
void change_session(std::vector<uint8_t> &datagram, dice_cup &dice) {
    constexpr size_t first_record = VX_MSG_HEAD_SIZE + VX_MGR_HEAD_SIZE;
    const size_t records = (datagram.size() - std::min(datagram.size(), first_record)) / VX_NODE_RECORD_SIZE;
    if (records == 0) {
        return;
    }
    if (dice.throw_one(2) == 0) {
        datagram[VX_MSG_HEAD_SIZE] ^= uint8_t{1}; // a REGISTER becomes an UNREGISTER
    } else {
        datagram[first_record + dice.throw_one(records) * VX_NODE_RECORD_SIZE +
                 offsetof(vexa_node_t, stat)] ^= uint8_t{1};
    }
}

bool is_session(const std::vector<uint8_t> &datagram) {
    return datagram.size() > VX_MSG_HEAD_SIZE && datagram[3] == MSTP_NODE_MGR;
}

void change_kind(std::vector<uint8_t> &datagram, dice_cup &dice) {
    if (datagram.size() > 3) {
        datagram[3] = static_cast<uint8_t>(dice.throw_one(6));
    }
}

void change_length(std::vector<uint8_t> &datagram, dice_cup &dice) {
    if (datagram.size() > 5) {
        datagram[4] = dice.byte();
        datagram[5] = dice.throw_one(2) == 0 ? dice.byte() : datagram[5];
    }
}

void change_ids(std::vector<uint8_t> &datagram, dice_cup &dice) {
    constexpr std::array<uint16_t, 6> strange = {0, 127, 128, 64001, 0xFF00, 0xFFFF};
    if (datagram.size() >= VX_MSG_HEAD_SIZE) {
        const size_t choice = dice.throw_one(2 * strange.size());
        const auto id =
            choice < strange.size() ? strange[choice] : static_cast<uint16_t>(dice.throw_one(150));
        ut_put_le16(&datagram[dice.throw_one(2) == 0 ? 6 : 8], id);
    }
}

void cut(std::vector<uint8_t> &datagram, dice_cup &dice) {
    datagram.resize(dice.throw_one(datagram.size() + 1));
}

void lengthen(std::vector<uint8_t> &datagram, dice_cup &dice) {
    for (size_t left = 1 + dice.throw_one(k_longest_growth); left > 0; --left) {
        datagram.push_back(dice.byte());
    }
}

void replace(std::vector<uint8_t> &datagram, dice_cup &dice) {
    datagram = garbage(dice.next());
}

constexpr auto k_damages =
    std::to_array<damage>({flip_one, flip_some, flip_in_header, flip_at_front, change_kind, change_length,
                           change_ids, cut, lengthen, replace});

} // namespace

fate fate_of(uint64_t seed, const tally_key &stream, uint64_t ordinal, const fault_rates &rates) {
    dice_cup dice{mixed(mixed(seed ^ std::bit_cast<uint64_t>(stream)) ^ ordinal)};
    fate result;
    double lot = share_of(dice.next());
    for (const auto &[share, what] : {std::pair{rates.lose, mishap::lose},
                                      {rates.corrupt, mishap::corrupt},
                                      {rates.twice, mishap::twice}}) {
        if (lot >= 0 && lot < share) {
            result.what = what;
        }
        lot -= share;
    }
    if (share_of(dice.next()) < rates.delay) {
        result.delay = std::chrono::milliseconds(1 + dice.throw_one(k_longest_delay_ms));
    } else {
        result.hold = share_of(dice.next()) < rates.hold;
    }
    result.dice = dice.next();
    return result;
}

void corrupt(std::vector<uint8_t> &datagram, uint64_t dice) {
    dice_cup cup{dice};
    const std::vector<uint8_t> before = datagram;
    if (is_session(before) && cup.throw_one(3) == 0) {
        change_session(datagram, cup);
    } else {
        k_damages[cup.throw_one(k_damages.size())](datagram, cup);
    }
    if (datagram != before) {
        return;
    }
    if (datagram.empty()) {
        datagram.push_back(cup.byte());
    } else {
        flip_one(datagram, cup);
    }
}

std::vector<uint8_t> garbage(uint64_t dice) {
    dice_cup cup{dice};
    std::vector<uint8_t> bytes(cup.throw_one(k_longest_garbage));
    std::ranges::generate(bytes, [&cup] { return cup.byte(); });
    if (bytes.size() >= VX_MSG_HEAD_SIZE && cup.throw_one(2) == 0) {
        ut_put_le16(bytes.data(), VX_MSG_MAGIC);
        bytes[3] = static_cast<uint8_t>(cup.throw_one(6));
        ut_put_le16(&bytes[6], static_cast<uint16_t>(cup.throw_one(VX_NODE_COUNT)));
        ut_put_le16(&bytes[8], static_cast<uint16_t>(cup.throw_one(VX_NODE_COUNT)));
    }
    return bytes;
}

} // namespace soak

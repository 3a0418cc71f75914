// The node manager's memory: any sequence of requests from several machines, with time passing, gives the
// outcomes and the lists that a plain table of rows gives.
#include "node_registry.h"
#include "support/check.h"
#include "support/input.h"

#include <map>

namespace {

using std::chrono::milliseconds;
using vexa::endpoint;
using vexa::node_registry;

constexpr milliseconds k_keep_alive{10'000};
constexpr int k_missed = 3;
constexpr milliseconds k_silence{35'000};
constexpr milliseconds k_tick{5'000}; // so coarse that the last moment is met

struct row {
    std::string name;
    uint16_t port;
    endpoint from;
    milliseconds heard;
    bool active;
};

node_registry::clock::time_point at(milliseconds now) {
    return node_registry::clock::time_point{} + now;
}

class registry_beside_model {
public:
    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 8;
        if (what < 4) {
            join(in);
        } else if (what < 6) {
            leave(draw_id(in), draw_endpoint(in));
        } else if (what == 6) {
            now_ += k_tick * (in.u8() % 9);
        } else {
            expire();
        }
        compare_lists();
    }

private:
    static uint16_t draw_id(fuzz::input &in) {
        return static_cast<uint16_t>(1 + in.u8() % 4 * 42);
    } // 1 to 127

    static endpoint draw_endpoint(fuzz::input &in) {
        const uint8_t where = in.u8();
        return {0xC0A80100U + (where & 3U), static_cast<uint16_t>(9000 + (where >> 2))};
    }

    void join(fuzz::input &in) {
        const uint16_t id = draw_id(in);
        const endpoint from = draw_endpoint(in);
        vexa::manager_request request{MGR_CMD_REGISTER, {}};
        const std::string name = in.text(2);
        name.copy(request.node.name, name.size());
        request.node.node_id = id;
        request.node.port = in.u8();
        const node_registry::outcome got = registry_.handle(request, from, at(now_));

        const auto holder = model_.find(id);
        const bool known = holder != model_.end() && holder->second.active;
        if (known && holder->second.from.ip != from.ip) {
            FUZZ_CHECK(got.refused == vexa::refusal::id_taken && !got.changed);
            return;
        }
        const bool same = known && holder->second.name == name && holder->second.port == request.node.port;
        model_[id] = {name, request.node.port, from, now_, true};
        FUZZ_CHECK(!got.refused && got.changed.has_value() == !same);
        if (!same) {
            FUZZ_CHECK(got.changed->node_id == id);
            FUZZ_CHECK(got.changed->what ==
                       (known ? node_registry::event::changed : node_registry::event::joined));
        }
    }

    void leave(uint16_t id, endpoint from) {
        vexa::manager_request request{MGR_CMD_UNREGISTER, {}};
        request.node.node_id = id;
        const node_registry::outcome got = registry_.handle(request, from, at(now_));
        const auto holder = model_.find(id);
        if (holder == model_.end() || !holder->second.active) {
            FUZZ_CHECK(got.refused == vexa::refusal::not_registered);
        } else if (holder->second.from.ip != from.ip) {
            FUZZ_CHECK(got.refused == vexa::refusal::id_taken);
        } else {
            holder->second.active = false;
            FUZZ_CHECK(!got.refused && got.changed && got.changed->what == node_registry::event::left);
        }
    }

    void expire() {
        const std::vector<node_registry::change> got = registry_.expire(at(now_));
        size_t lost = 0;
        for (auto &[id, r] : model_) {
            if (r.active && now_ - r.heard >= k_silence) {
                r.active = false;
                FUZZ_CHECK(lost < got.size() && got[lost].node_id == id);
                FUZZ_CHECK(got[lost].what == node_registry::event::lost);
                ++lost;
            }
        }
        FUZZ_CHECK(got.size() == lost);
    }

    void compare_lists() const {
        const std::vector<vexa_node_t> records = registry_.records();
        const std::vector<node_registry::peer> active = registry_.active();
        std::optional<milliseconds> next;
        size_t place = 0;
        size_t alive = 0;
        FUZZ_CHECK(records.size() == model_.size());
        for (const auto &[id, r] : model_) {
            const vexa_node_t &node = records[place++];
            FUZZ_CHECK(node.node_id == id && r.name == node.name && node.port == r.port);
            FUZZ_CHECK(node.stat == (r.active ? 1 : 0) && registry_.find(id).has_value());
            if (r.active) {
                FUZZ_CHECK(alive < active.size() && active[alive].node_id == id &&
                           active[alive].address == r.from);
                ++alive;
                next = std::min(next.value_or(r.heard + k_silence), r.heard + k_silence);
            }
        }
        FUZZ_CHECK(active.size() == alive);
        FUZZ_CHECK(registry_.next_expiry() == (next ? std::optional{at(*next)} : std::nullopt));
        FUZZ_CHECK(!registry_.find(2) && !registry_.find(128) && !registry_.find(0xFF00));
    }

    node_registry registry_{k_keep_alive, k_missed};
    std::map<uint16_t, row> model_;
    milliseconds now_{0};
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    registry_beside_model registry;
    for (fuzz::input in(data, size); !in.empty();) {
        registry.step(in);
    }
    return 0;
}

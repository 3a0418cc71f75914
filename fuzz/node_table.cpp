// The node table: any sequence of operations, stops and starts among them, gives what an array of records
// gives.
#include "node_mapping.h"
#include "support/check.h"
#include "support/input.h"

#include <array>

namespace {

constexpr uint16_t k_slots = 128;

using record = std::array<uint8_t, sizeof(vexa_node_t)>;

vexa_node_t node_of(const record &bytes) {
    vexa_node_t node;
    memcpy(&node, bytes.data(), sizeof node);
    return node;
}

record bytes_of(const vexa_node_t &node) {
    record bytes;
    memcpy(bytes.data(), &node, sizeof node);
    return bytes;
}

class table_beside_model {
public:
    /// Every input begins with the same table.
    table_beside_model() {
        nmapping_destroy();
        start();
        for (uint16_t id = 0; id < k_slots; ++id) {
            vexa_node_t empty{};
            empty.node_id = id;
            set(id, empty);
        }
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 9;
        const uint16_t id = what < 7 ? draw_id(in) : 0;
        switch (what) {
        case 0:
            set(id, draw_record(in));
            break;
        case 1:
            get(id);
            break;
        case 2:
            del(id);
            break;
        case 3:
            set_stat(id, static_cast<int>(in.u32()));
            break;
        case 4:
            FUZZ_CHECK(nmapping_get_stat(id) == (usable(id) ? model_[id].stat : -1));
            break;
        case 5:
            FUZZ_CHECK(nmapping_get_next_hop(id) == std::min<uint16_t>(id, 127));
            break;
        case 6:
            nmapping_set_self(id);
            FUZZ_CHECK(nmapping_self_node_id() == id && nmapping_get_size() == k_slots);
            break;
        case 7:
            nmapping_valid_item_show();
            break;
        default:
            in.flag() ? start() : stop();
        }
    }

    void finish() {
        for (uint16_t id = 0; id < k_slots; ++id) {
            get(id);
        }
    }

private:
    static uint16_t draw_id(fuzz::input &in) {
        const uint8_t near = in.u8();
        return near < 250 ? static_cast<uint16_t>(near % 132) : in.u16(); // few, so that operations meet
    }

    static vexa_node_t draw_record(fuzz::input &in) {
        record bytes{};
        const fuzz::bytes raw = in.take(bytes.size());
        std::copy(raw.begin(), raw.end(), bytes.begin());
        return node_of(bytes);
    }

    [[nodiscard]] bool usable(uint16_t id) const { return running_ && id < k_slots; }

    void set(uint16_t id, const vexa_node_t &node) {
        fuzz::exact_block block(sizeof node);
        memcpy(block.data(), &node, sizeof node);
        const auto *given = reinterpret_cast<const vexa_node_t *>(block.data());
        FUZZ_CHECK(nmapping_set(id, given) == (usable(id) ? 0 : -1));
        if (usable(id)) {
            memcpy(&model_[id], &node, sizeof node);
        }
    }

    void get(uint16_t id) {
        fuzz::exact_block block(sizeof(vexa_node_t));
        const fuzz::bytes untouched = block.copy();
        const int result = nmapping_get(id, reinterpret_cast<vexa_node_t *>(block.data()));
        if (!usable(id)) {
            FUZZ_CHECK(result == -1 && block.copy() == untouched);
            return;
        }
        FUZZ_CHECK(result == (model_[id].node_id == id ? 0 : -1));
        const record expected = bytes_of(model_[id]);
        FUZZ_CHECK(std::equal(expected.begin(), expected.end(), block.data()));
    }

    void del(uint16_t id) {
        FUZZ_CHECK(nmapping_del(id) == (usable(id) ? 0 : -1));
        if (usable(id)) {
            model_[id].stat = 0;
        }
    }

    void set_stat(uint16_t id, int stat) {
        nmapping_set_stat(id, stat);
        if (usable(id)) {
            model_[id].stat = static_cast<uint8_t>(stat);
        }
    }

    /// Slot 0 becomes the manager's; the first start after a stop gives the others their ids again.
    void start() {
        FUZZ_CHECK(nmapping_create() == 0);
        for (uint16_t id = 0; !running_ && id < k_slots; ++id) {
            model_[id].node_id = id;
        }
        running_ = true;
        memcpy(model_[0].name, "mgr_server", sizeof "mgr_server");
        memcpy(model_[0].ip, "192.168.1.1", sizeof "192.168.1.1");
        model_[0].port = 9000;
        model_[0].node_id = 0;
        model_[0].stat = 0;
    }

    void stop() {
        nmapping_destroy();
        running_ = false;
    }

    std::array<vexa_node_t, k_slots> model_{};
    bool running_ = false;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    table_beside_model table;
    for (fuzz::input in(data, size); !in.empty();) {
        table.step(in);
    }
    table.finish();
    return 0;
}

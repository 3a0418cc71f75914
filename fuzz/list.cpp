// The list: any sequence of operations leaves it as a vector that went through the same, its links right in
// both directions, and its hooks called as often as they must be.
#include "support/check.h"
#include "support/input.h"
#include "utils/ut_list.h"

#include <optional>
#include <set>

namespace {

using values = std::vector<uint8_t>;

std::set<uint8_t *> copies;        // that a hook made and nobody freed
std::optional<unsigned> dups_left; // how many copies still succeed; nothing: all

void *dup(void *value) {
    if (dups_left && (*dups_left)-- == 0) {
        dups_left = 0;
        return nullptr;
    }
    return *copies.insert(new uint8_t(*static_cast<const uint8_t *>(value))).first;
}

void release(void *value) {
    auto *copy = static_cast<uint8_t *>(value);
    FUZZ_CHECK(copies.erase(copy) == 1);
    delete copy;
}

int compare(const void *stored, const void *key) {
    return *static_cast<const uint8_t *>(stored) - *static_cast<const uint8_t *>(key);
}

uint8_t value_of(const list_node *node) {
    return *static_cast<const uint8_t *>(node->value);
}

uint8_t *object(uint8_t value) {
    static uint8_t all[256];
    all[value] = value;
    return &all[value];
}

void compare_links(const list_t *list, const values &expected) {
    const list_node *last = nullptr;
    const list_node *node = list->head;
    for (const uint8_t value : expected) {
        FUZZ_CHECK(node != nullptr && node->prev == last && value_of(node) == value);
        last = node;
        node = node->next;
    }
    FUZZ_CHECK(node == nullptr && list->tail == last && list->len == expected.size());
}

class list_beside_model {
public:
    explicit list_beside_model(uint8_t hooks) : owns_((hooks & 1) != 0), compares_((hooks & 2) != 0) {
        list_type type = {owns_ ? dup : nullptr, owns_ ? release : nullptr, compares_ ? compare : nullptr};
        list_ = list_create(hooks == 0 ? nullptr : &type);
    }
    list_beside_model(const list_beside_model &) = delete;
    list_beside_model &operator=(const list_beside_model &) = delete;
    ~list_beside_model() {
        list_release(list_);
        FUZZ_CHECK(copies.empty());
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 12;
        if (what < 4) {
            add(what, in.u8(), in.u8());
        } else if (what == 4) {
            pop(in.flag());
        } else if (what == 5) {
            remove(in.u8());
        } else if (what == 6) {
            rotate();
        } else if (what == 7) {
            walk(in.u8(), in.u8());
        } else if (what == 8) {
            find(in.u8());
        } else if (what == 9) {
            index(static_cast<int8_t>(in.u8()));
        } else if (what == 10) {
            copy(in.u8());
        } else if (in.u8() % 8 == 0) {
            list_clear(list_);
            values_.clear();
        }
        compare_links(list_, values_);
        FUZZ_CHECK(copies.size() == (owns_ ? values_.size() : 0));
    }

private:
    [[nodiscard]] list_node *node_at(size_t place) const {
        list_node *node = list_->head;
        for (; place > 0; --place) {
            node = node->next;
        }
        return node;
    }

    void add(uint8_t how, uint8_t value, uint8_t place) {
        const bool fails = owns_ && place == 255;
        dups_left = fails ? std::optional{0U} : std::nullopt;
        size_t at = 0;
        list_t *result = nullptr;
        if (how == 0 || values_.empty()) {
            result = list_add_node_head(list_, object(value));
        } else if (how == 1) {
            at = values_.size();
            result = list_add_node_tail(list_, object(value));
        } else {
            const size_t neighbour = place % values_.size();
            at = neighbour + (how == 2 ? 0 : 1);
            result = list_insert_node(list_, node_at(neighbour), object(value), how == 2 ? place | 1 : 0);
        }
        dups_left.reset();
        FUZZ_CHECK(result == (fails ? nullptr : list_));
        if (!fails) {
            values_.insert(values_.begin() + static_cast<ptrdiff_t>(at), value);
        }
    }

    void pop(bool head) {
        head ? list_pop_head(list_) : list_pop_tail(list_);
        if (!values_.empty()) {
            values_.erase(head ? values_.begin() : values_.end() - 1);
        }
    }

    void remove(uint8_t place) {
        if (!values_.empty()) {
            const size_t at = place % values_.size();
            list_del(list_, node_at(at));
            values_.erase(values_.begin() + static_cast<ptrdiff_t>(at));
        }
    }

    void rotate() {
        list_rotate(list_);
        if (!values_.empty()) {
            std::rotate(values_.begin(), values_.end() - 1, values_.end());
        }
    }

    /// Deletes on the way what the walk has just returned.
    void walk(uint8_t direction, uint8_t odd_one) {
        list_iter *iter = list_get_iterator(list_, direction);
        values order = values_;
        if (direction != 0) {
            std::reverse(order.begin(), order.end());
        }
        values kept;
        for (const uint8_t value : order) {
            list_node *node = list_next(iter);
            FUZZ_CHECK(node != nullptr && value_of(node) == value);
            if (value == odd_one) {
                list_del(list_, node);
            } else {
                kept.push_back(value);
            }
        }
        FUZZ_CHECK(list_next(iter) == nullptr && list_next(iter) == nullptr);
        values_ = direction != 0 ? values(kept.rbegin(), kept.rend()) : kept;
        direction != 0 ? list_rewind_head(list_, iter) : list_rewind_tail(list_, iter);
        FUZZ_CHECK(list_next(iter) == (direction != 0 ? list_->head : list_->tail));
        list_release_iterator(iter);
    }

    void find(uint8_t key) {
        const auto found = std::find(values_.begin(), values_.end(), key);
        const bool expected = compares_ && found != values_.end();
        FUZZ_CHECK(list_find(list_, object(key)) ==
                   (expected ? node_at(static_cast<size_t>(found - values_.begin())) : nullptr));
    }

    void index(long place) {
        const auto len = static_cast<long>(values_.size());
        const long from_head = place < 0 ? len + place : place;
        const bool inside = from_head >= 0 && from_head < len;
        FUZZ_CHECK(list_index(list_, place) == (inside ? node_at(static_cast<size_t>(from_head)) : nullptr));
    }

    /// A copy whose hooks may fail on the way. Each value is copied twice, and the first copy is nobody's.
    void copy(uint8_t fail_after) {
        const std::set<uint8_t *> before = copies;
        const bool fails = owns_ && fail_after < 2 * values_.size();
        dups_left = fail_after;
        list_t *made = list_dup(list_);
        dups_left.reset();
        FUZZ_CHECK((made == nullptr) == fails);
        if (made != nullptr) {
            compare_links(made, values_);
            FUZZ_CHECK(copies.size() == before.size() + (owns_ ? 2 * values_.size() : 0));
            list_release(made);
        }
        const size_t nobodys = fails ? (fail_after + 1U) / 2 : (owns_ ? values_.size() : 0);
        FUZZ_CHECK(copies.size() == before.size() + nobodys);
        for (uint8_t *copy : std::set<uint8_t *>(copies)) {
            if (!before.contains(copy)) {
                release(copy);
            }
        }
    }

    bool owns_;
    bool compares_;
    list_t *list_;
    values values_;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    list_beside_model list(in.u8() % 4);
    while (!in.empty()) {
        list.step(in);
    }
    return 0;
}

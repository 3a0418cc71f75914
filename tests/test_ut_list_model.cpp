// The list beside std::list: the same random operations on both must give the same contents and the same hook
// calls.
#include "utils/ut_list.h"

#include "emulator.h"
#include "seed.h"

#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <random>
#include <vector>

namespace {

constexpr int k_operations = emulator::rounds(300'000);
constexpr int k_operations_per_list = 3'000;
constexpr size_t k_most_values = 60; // beyond that nothing is added; long lists would only make it slow

/// One hook call: 'd' copied a, 'f' released a, 'c' compared a with b.
struct event {
    char what;
    int a;
    int b;
    bool operator==(const event &) const = default;
};

std::vector<event> calls; // what the hooks saw since the last operation
std::deque<int> held;     // every value and every copy, so that none is lost

void *hold(int value) {
    return &held.emplace_back(value);
}

int value_of(const void *value) {
    return *static_cast<const int *>(value);
}

void *dup(void *value) {
    calls.push_back({'d', value_of(value), 0});
    return hold(value_of(value));
}

void release(void *value) {
    calls.push_back({'f', value_of(value), 0});
}

int compare(const void *a, const void *b) {
    calls.push_back({'c', value_of(a), value_of(b)});
    return value_of(a) == value_of(b) ? 0 : 1;
}

class list_beside_model {
public:
    list_beside_model(uint64_t seed, int combination) : random_(seed) {
        type_.dup = (combination & 1) != 0 ? dup : nullptr;
        type_.free = (combination & 2) != 0 ? release : nullptr;
        type_.compare = (combination & 4) != 0 ? compare : nullptr;
        list_ = list_create(&type_);
    }
    ~list_beside_model() { list_release(list_); }
    list_beside_model(const list_beside_model &) = delete;
    list_beside_model &operator=(const list_beside_model &) = delete;

    void step() {
        calls.clear();
        expected_.clear();
        (this->*pick())();
        EXPECT_EQ(calls, expected_);
        compare_contents();
    }

private:
    using operation = void (list_beside_model::*)();

    int draw(int below) { return static_cast<int>(random_() % static_cast<uint64_t>(below)); }

    operation pick() {
        static constexpr operation adding[] = {&list_beside_model::add_head, &list_beside_model::add_tail,
                                               &list_beside_model::insert};
        static constexpr operation others[] = {&list_beside_model::pop_head, &list_beside_model::pop_tail,
                                               &list_beside_model::del,      &list_beside_model::rotate,
                                               &list_beside_model::find,     &list_beside_model::index};
        const int roll = draw(1000);
        if (roll == 0) {
            return &list_beside_model::clear;
        }
        if (roll < 10) {
            return &list_beside_model::replace_by_copy;
        }
        if (roll < 20) {
            return &list_beside_model::walk_and_delete;
        }
        return roll < 500 && model_.size() < k_most_values ? adding[draw(3)] : others[draw(6)];
    }

    void expect_dup(int value) {
        if (type_.dup != nullptr) {
            expected_.push_back({'d', value, 0});
        }
    }
    void expect_free(int value) {
        if (type_.free != nullptr) {
            expected_.push_back({'f', value, 0});
        }
    }

    void add_head() {
        model_.push_front(draw(50));
        expect_dup(model_.front());
        EXPECT_EQ(list_add_node_head(list_, hold(model_.front())), list_);
    }

    void add_tail() {
        model_.push_back(draw(50));
        expect_dup(model_.back());
        EXPECT_EQ(list_add_node_tail(list_, hold(model_.back())), list_);
    }

    void insert() {
        if (model_.empty()) {
            return;
        }
        const int pos = draw(static_cast<int>(model_.size()));
        const int before = draw(2);
        const int value = draw(50);
        model_.insert(std::next(model_.begin(), before != 0 ? pos : pos + 1), value);
        expect_dup(value);
        EXPECT_EQ(list_insert_node(list_, list_index(list_, pos), hold(value), before), list_);
    }

    void pop_head() {
        if (!model_.empty()) {
            expect_free(model_.front());
            model_.pop_front();
        }
        list_pop_head(list_);
    }

    void pop_tail() {
        if (!model_.empty()) {
            expect_free(model_.back());
            model_.pop_back();
        }
        list_pop_tail(list_);
    }

    void del() {
        if (model_.empty()) {
            return;
        }
        const int size = static_cast<int>(model_.size());
        const int pos = draw(size);
        const auto at = std::next(model_.begin(), pos);
        expect_free(*at);
        model_.erase(at);
        list_del(list_, list_index(list_, draw(2) != 0 ? pos : pos - size));
    }

    void rotate() {
        if (model_.size() > 1) {
            model_.splice(model_.begin(), model_, std::prev(model_.end()));
        }
        list_rotate(list_);
    }

    void find() {
        int key = draw(50);
        const list_node *expected = nullptr;
        long index = 0;
        for (auto it = model_.begin(); type_.compare != nullptr && it != model_.end(); ++it, ++index) {
            expected_.push_back({'c', *it, key});
            if (*it == key) {
                expected = list_index(list_, index);
                break;
            }
        }
        EXPECT_EQ(list_find(list_, &key), expected);
    }

    void index() {
        const long size = static_cast<long>(model_.size());
        const long index = draw(2 * static_cast<int>(size) + 5) - size - 2;
        const list_node *node = list_index(list_, index);
        ASSERT_EQ(node != nullptr, index >= -size && index < size) << index;
        if (node != nullptr) {
            EXPECT_EQ(value_of(node->value), *std::next(model_.begin(), index < 0 ? index + size : index));
        }
    }

    void clear() {
        for (const int value : model_) {
            expect_free(value);
        }
        model_.clear();
        list_clear(list_);
    }

    /// Goes on with the copy and releases the original.
    void replace_by_copy() {
        for (const int value : model_) {
            expect_dup(value);
            expect_dup(value);
        }
        for (const int value : model_) {
            expect_free(value);
        }
        list_t *copy = list_dup(list_);
        ASSERT_NE(copy, nullptr);
        list_release(list_);
        list_ = copy;
    }

    /// Walks in a random direction and deletes about every other node that it meets.
    void walk_and_delete() {
        const bool backward = draw(2) != 0;
        const auto turn = [&] { backward ? model_.reverse() : void(); };
        turn();
        list_iter *iter = list_get_iterator(list_, backward ? 1 : 0);
        for (auto it = model_.begin(); it != model_.end();) {
            list_node *node = list_next(iter);
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(value_of(node->value), *it);
            if (draw(2) != 0) {
                ++it;
                continue;
            }
            expect_free(*it);
            it = model_.erase(it);
            list_del(list_, node);
        }
        EXPECT_EQ(list_next(iter), nullptr);
        list_release_iterator(iter);
        turn();
    }

    void compare_contents() const {
        ASSERT_EQ(list_->len, model_.size());
        const list_node *last = nullptr;
        const list_node *node = list_->head;
        for (const int value : model_) {
            ASSERT_NE(node, nullptr);
            ASSERT_EQ(value_of(node->value), value);
            ASSERT_EQ(node->prev, last);
            last = node;
            node = node->next;
        }
        ASSERT_EQ(node, nullptr);
        ASSERT_EQ(list_->tail, last);
    }

    std::mt19937_64 random_;
    list_type type_{};
    list_t *list_ = nullptr;
    std::list<int> model_;
    std::vector<event> expected_;
};

} // namespace

TEST(ListModel, BehavesAsTheStandardListUnderRandomOperations) {
    std::mt19937_64 seeds{test_seed()};
    for (int done = 0; done < k_operations; done += k_operations_per_list) {
        held.clear();
        list_beside_model pair{seeds(), done / k_operations_per_list % 8};
        for (int i = 0; i < k_operations_per_list; ++i) {
            pair.step();
            ASSERT_FALSE(HasFailure()) << "operation " << done + i;
        }
    }
}

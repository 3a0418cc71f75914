// The dictionary beside its model: the same million random operations on both must give the same results, the
// same contents in the same order, and the same hook calls.
#include "utils/ut_dict.h"

#include "dict_model.h"
#include "emulator.h"
#include "seed.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <unordered_map>
#include <vector>

using dict_model::adder;
using dict_model::code;
using dict_model::dictionary;
using dict_model::event;
using dict_model::hook_set;
using dict_model::model;
using dict_model::number_of;
using dict_model::searcher;

namespace {

constexpr int k_operations = emulator::rounds(1'000'000);
constexpr int k_operations_per_dictionary = emulator::rounds(25'000); // as many dictionaries everywhere
constexpr int k_most_keys = 4000;
constexpr int k_values = 100;

/// A key or value object, known by its code.
using object = int;

std::vector<event> calls;                           // what the hooks saw since the last operation
std::unordered_map<object *, bool> copies_at_large; // copies that a hook made and no destructor got

template <size_t Count>
std::array<object, Count> objects_of(dict_model::owner whose) {
    std::array<object, Count> all{};
    for (size_t i = 0; i < Count; ++i) {
        all[i] = code(static_cast<int>(i), whose);
    }
    return all;
}

auto adders_keys = objects_of<k_most_keys>(adder);
auto searchers_keys = objects_of<k_most_keys>(searcher);
auto adders_values = objects_of<k_values>(adder);

int code_of(const void *obj) {
    return *static_cast<const object *>(obj);
}

void *copy_of(const void *obj) {
    auto *copy = new object{code(number_of(code_of(obj)), dictionary)};
    copies_at_large[copy] = true;
    return copy;
}

void destroy(char what, void *obj) {
    calls.push_back({what, code_of(obj), 0});
    if (copies_at_large.erase(static_cast<object *>(obj)) != 0) {
        delete static_cast<object *>(obj);
    }
}

/// Copies are lost on purpose where there is a copying hook but no destructor.
void collect_lost_copies() {
    for (const auto &[copy, made] : copies_at_large) {
        delete copy;
    }
    copies_at_large.clear();
}

model::hash_fn hash_in_use;

uint32_t hash(const void *key) {
    calls.push_back({'h', code_of(key), 0});
    return hash_in_use(number_of(code_of(key)));
}

int compare(const void *a, const void *b) {
    calls.push_back({'c', code_of(a), code_of(b)});
    return number_of(code_of(a)) - number_of(code_of(b));
}

void *dup_key(const void *key) {
    calls.push_back({'K', code_of(key), 0});
    return copy_of(key);
}

void *dup_val(const void *val) {
    calls.push_back({'V', code_of(val), 0});
    return copy_of(val);
}

void destroy_key(void *key) {
    destroy('k', key);
}

void destroy_val(void *val) {
    destroy('v', val);
}

dict_types types_of(const hook_set &hooks) {
    return {hash,
            hooks.key_dup ? dup_key : nullptr,
            hooks.val_dup ? dup_val : nullptr,
            compare,
            hooks.key_destructor ? destroy_key : nullptr,
            hooks.val_destructor ? destroy_val : nullptr};
}

uint32_t hash_well(int number) {
    return dict_generic_hash_function(&number, sizeof number);
}

uint32_t hash_badly(int number) {
    return static_cast<uint32_t>(number % 7) << 3; // long chains in few buckets
}

/// How a dictionary of the test is used.
struct setting {
    model::hash_fn hash;
    int keys;      // numbers of keys drawn from
    int remark_in; // a clear is marked about once in so many operations
};

constexpr setting k_settings[] = {
    {hash_well, 4000, 12'000}, {hash_well, 300, 700}, {hash_badly, 100, 300}, {hash_well, 12, 20}};

class dict_beside_model {
public:
    dict_beside_model(uint64_t seed, const setting &how)
        : random_(seed),
          how_(how),
          hooks_{flip(), flip(), flip(), flip()},
          first_size_(static_cast<uint32_t>(draw(70))),
          model_(hooks_, how.hash, first_size_) {
        hash_in_use = how.hash;
        dict_types types = types_of(hooks_);
        dict_ = dict_create(&types, first_size_);
    }
    dict_beside_model(const dict_beside_model &) = delete;
    dict_beside_model &operator=(const dict_beside_model &) = delete;

    void step() {
        (this->*pick())();
        compare_calls();
        EXPECT_EQ(dict_->used, model_.used());
        EXPECT_EQ(dict_->size, model_.size());
        EXPECT_EQ(dict_->id_start, model_.id_start());
        EXPECT_EQ(dict_->id_clear, model_.id_clear());
    }

    /// Walks through both and compares keys, values and stamps.
    void compare_contents() {
        dict_iterator *iter = dict_get_iterator(dict_);
        for (const int number : model_.order()) {
            const dict_entry *entry = dict_next(iter);
            ASSERT_NE(entry, nullptr);
            expect_same(entry, &model_.at(number));
        }
        EXPECT_EQ(dict_next(iter), nullptr);
        dict_release_iterator(iter);
        compare_calls();
    }

    void finish() {
        compare_contents();
        model_.release();
        dict_release(dict_);
        compare_calls();
    }

    long growths() const { return model_.growths; }
    long purged() const { return model_.purged; }

private:
    using operation = void (dict_beside_model::*)();

    int draw(int below) { return static_cast<int>(random_() % static_cast<uint64_t>(below)); }
    bool flip() { return draw(2) != 0; }
    size_t key() { return static_cast<size_t>(draw(how_.keys)); }
    size_t value() { return static_cast<size_t>(draw(k_values)); }

    operation pick() {
        if (draw(how_.remark_in) == 0) {
            return &dict_beside_model::mark_clear;
        }
        const int roll = draw(10'000);
        if (roll < 2) {
            return &dict_beside_model::clear;
        }
        if (roll < 15) {
            return &dict_beside_model::expand;
        }
        if (roll < 25) {
            return &dict_beside_model::walk_and_delete;
        }
        if (roll < 3000) {
            return &dict_beside_model::find;
        }
        if (roll < 6500) {
            return &dict_beside_model::add;
        }
        return roll < 8000 ? &dict_beside_model::replace : &dict_beside_model::del;
    }

    static void expect_same(const dict_entry *entry, const dict_model::entry *expected) {
        ASSERT_EQ(entry != nullptr, expected != nullptr);
        if (entry != nullptr) {
            EXPECT_EQ(code_of(entry->key), expected->key);
            EXPECT_EQ(code_of(entry->val), expected->val);
            EXPECT_EQ(entry->id, expected->id);
        }
    }

    void compare_calls() {
        EXPECT_EQ(calls, model_.take_calls());
        calls.clear();
    }

    void find() {
        const object &wanted = searchers_keys[key()];
        const dict_model::entry *expected = model_.find(wanted);
        expect_same(dict_find(dict_, &wanted), expected);
    }

    void add() {
        object &added = adders_keys[key()];
        object &val = adders_values[value()];
        const dict_model::entry *expected = model_.add(added, val);
        expect_same(dict_add(dict_, &added, &val), expected);
    }

    void replace() {
        object &wanted = adders_keys[key()];
        object &val = adders_values[value()];
        EXPECT_EQ(dict_replace(dict_, &wanted, &val), model_.replace(wanted, val));
    }

    void del() {
        const object &wanted = searchers_keys[key()];
        EXPECT_EQ(dict_delete(dict_, &wanted), model_.del(wanted));
    }

    void mark_clear() {
        model_.mark_clear();
        dict_mark_clear(dict_);
    }

    void clear() {
        model_.clear();
        dict_clear(dict_);
    }

    void expand() {
        const auto size = static_cast<uint32_t>(draw(2 * how_.keys));
        model_.expand(size);
        EXPECT_EQ(dict_expand(dict_, size), 0);
    }

    void walk_and_delete() {
        dict_iterator *iter = dict_get_iterator(dict_);
        for (const int number : model_.order()) {
            const dict_entry *entry = dict_next(iter);
            ASSERT_NE(entry, nullptr);
            expect_same(entry, &model_.at(number));
            if (draw(8) == 0) {
                model_.del(model_.at(number).key);
                EXPECT_EQ(dict_delete(dict_, entry->key), 1);
            }
        }
        EXPECT_EQ(dict_next(iter), nullptr);
        dict_release_iterator(iter);
    }

    std::mt19937_64 random_;
    setting how_;
    hook_set hooks_;
    uint32_t first_size_;
    model model_;
    dict_t *dict_ = nullptr;
};

} // namespace

TEST(DictModel, FollowsItsModelThroughRandomOperations) {
    std::mt19937_64 seeds{test_seed()};
    long growths = 0;
    long purged = 0;
    for (int done = 0; done < k_operations; done += k_operations_per_dictionary) {
        const int nth = done / k_operations_per_dictionary;
        dict_beside_model pair{seeds(), k_settings[nth % 4]};
        for (int i = 0; i < k_operations_per_dictionary; ++i) {
            pair.step();
            ASSERT_FALSE(HasFailure()) << "operation " << done + i;
        }
        pair.finish();
        ASSERT_FALSE(HasFailure()) << "the end of dictionary " << nth;
        collect_lost_copies();
        growths += pair.growths();
        purged += pair.purged();
    }
    // The run is worth something only if it came upon these in plenty.
    EXPECT_GT(growths, emulator::rounds(20));
    EXPECT_GT(purged, emulator::rounds(10'000));
    std::cout << growths << " growths, " << purged << " cleared entries released by lookups" << std::endl;
}

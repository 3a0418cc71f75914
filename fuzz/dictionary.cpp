// The dictionary: any sequence of operations gives the results, the contents in their order and the hook
// calls that the model foretells.
#include "dict_model.h"
#include "support/check.h"
#include "support/input.h"
#include "utils/ut_dict.h"

#include <array>
#include <unordered_set>

namespace {

using dict_model::code;
using dict_model::event;
using dict_model::hook_set;
using dict_model::model;
using dict_model::number_of;

constexpr int k_keys = 256;

/// A key or value object, known by its code. Copies are blocks of their own.
using object = int;

std::vector<event> calls;              // what the hooks saw since the last operation
std::unordered_set<object *> at_large; // copies that a hook made and no destructor got

std::array<object, k_keys> objects_of(dict_model::owner whose) {
    std::array<object, k_keys> all{};
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = code(static_cast<int>(i), whose);
    }
    return all;
}

std::array<object, k_keys> adders = objects_of(dict_model::adder);
const std::array<object, k_keys> searchers = objects_of(dict_model::searcher);

int code_of(const void *obj) {
    return *static_cast<const object *>(obj);
}

void *copy_of(char what, const void *obj) {
    calls.push_back({what, code_of(obj), 0});
    auto *copy = new object{code(number_of(code_of(obj)), dict_model::dictionary)};
    at_large.insert(copy);
    return copy;
}

void destroy(char what, void *obj) {
    calls.push_back({what, code_of(obj), 0});
    if (at_large.erase(static_cast<object *>(obj)) != 0) {
        delete static_cast<object *>(obj);
    }
}

/// Copies are lost on purpose where there is a copying hook but no destructor.
void collect_lost_copies() {
    for (object *copy : at_large) {
        delete copy;
    }
    at_large.clear();
}

uint32_t hash_well(int number) {
    return dict_generic_hash_function(&number, sizeof number);
}

uint32_t hash_badly(int number) {
    return static_cast<uint32_t>(number % 7) << 3; // long chains in few buckets
}

model::hash_fn hash_in_use = hash_well;

dict_types types_of(const hook_set &hooks) {
    dict_types types{};
    types.hash_function = [](const void *key) {
        calls.push_back({'h', code_of(key), 0});
        return hash_in_use(number_of(code_of(key)));
    };
    types.key_compare = [](const void *a, const void *b) {
        calls.push_back({'c', code_of(a), code_of(b)});
        return number_of(code_of(a)) - number_of(code_of(b));
    };
    if (hooks.key_dup) {
        types.key_dup = [](const void *key) { return copy_of('K', key); };
    }
    if (hooks.val_dup) {
        types.val_dup = [](const void *val) { return copy_of('V', val); };
    }
    if (hooks.key_destructor) {
        types.key_destructor = [](void *key) { destroy('k', key); };
    }
    if (hooks.val_destructor) {
        types.val_destructor = [](void *val) { destroy('v', val); };
    }
    return types;
}

class dict_beside_model {
public:
    dict_beside_model(uint8_t hooks, uint32_t first_size)
        : hooks_{(hooks & 1) != 0, (hooks & 2) != 0, (hooks & 4) != 0, (hooks & 8) != 0},
          model_(hooks_, hash_in_use, first_size) {
        calls.clear();
        dict_types types = types_of(hooks_);
        dict_ = dict_create(&types, first_size);
        FUZZ_CHECK(dict_ != nullptr);
    }
    dict_beside_model(const dict_beside_model &) = delete;
    dict_beside_model &operator=(const dict_beside_model &) = delete;
    ~dict_beside_model() {
        compare_contents();
        model_.release();
        dict_release(dict_);
        compare_calls();
        collect_lost_copies();
    }

    void step(fuzz::input &in) {
        const uint8_t what = in.u8() % 16;
        if (what < 3) {
            find(in.u8());
        } else if (what < 7) {
            add(in.u8(), in.u8());
        } else if (what < 9) {
            replace(in.u8(), in.u8());
        } else if (what < 11) {
            del(in.u8());
        } else if (what == 11) {
            add_many(in.u8());
        } else if (what == 12) {
            expand(in.u16() % 1025U);
        } else if (what == 13) {
            model_.mark_clear();
            dict_mark_clear(dict_);
        } else if (what == 14) {
            walk_and_delete(in.u8());
        } else if (in.u8() % 8 == 0) { // seldom, or nothing would grow
            model_.clear();
            dict_clear(dict_);
        }
        compare_calls();
        FUZZ_CHECK(dict_->used == model_.used() && dict_->size == model_.size());
        FUZZ_CHECK(dict_->id_start == model_.id_start() && dict_->id_clear == model_.id_clear());
        FUZZ_CHECK(dict_->mask == dict_->size - 1);
    }

private:
    static void compare(const dict_entry *entry, const dict_model::entry *expected) {
        FUZZ_CHECK((entry != nullptr) == (expected != nullptr));
        if (entry != nullptr) {
            FUZZ_CHECK(code_of(entry->key) == expected->key && code_of(entry->val) == expected->val);
            FUZZ_CHECK(entry->id == expected->id);
        }
    }

    void compare_calls() {
        FUZZ_CHECK(calls == model_.take_calls());
        calls.clear();
    }

    void compare_contents() {
        dict_iterator *iter = dict_get_iterator(dict_);
        for (const int number : model_.order()) {
            compare(dict_next(iter), &model_.at(number));
        }
        FUZZ_CHECK(dict_next(iter) == nullptr && dict_next(iter) == nullptr);
        dict_release_iterator(iter);
        compare_calls();
    }

    void find(uint8_t key) {
        const dict_model::entry *expected = model_.find(searchers[key]);
        compare(dict_find(dict_, &searchers[key]), expected);
    }

    void add(uint8_t key, uint8_t val) {
        const dict_model::entry *expected = model_.add(adders[key], adders[val]);
        compare(dict_add(dict_, &adders[key], &adders[val]), expected);
    }

    void add_many(uint8_t count) {
        for (uint8_t key = 0; key < count; ++key) {
            add(key, key);
        }
    }

    void replace(uint8_t key, uint8_t val) {
        const int expected = model_.replace(adders[key], adders[val]);
        FUZZ_CHECK(dict_replace(dict_, &adders[key], &adders[val]) == expected);
    }

    void del(uint8_t key) { FUZZ_CHECK(dict_delete(dict_, &searchers[key]) == model_.del(searchers[key])); }

    void expand(uint32_t size) {
        model_.expand(size);
        FUZZ_CHECK(dict_expand(dict_, size) == 0);
    }

    void walk_and_delete(uint8_t every) {
        const std::vector<int> order = model_.order();
        dict_iterator *iter = dict_get_iterator(dict_);
        for (const int number : order) {
            const dict_entry *entry = dict_next(iter);
            compare(entry, &model_.at(number));
            if (number % (every + 1) == 0) {
                const int stored = code_of(entry->key);
                FUZZ_CHECK(dict_delete(dict_, entry->key) == model_.del(stored));
            }
        }
        FUZZ_CHECK(dict_next(iter) == nullptr);
        dict_release_iterator(iter);
    }

    hook_set hooks_;
    model model_;
    dict_t *dict_ = nullptr;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::input in(data, size);
    const uint8_t hooks = in.u8();
    hash_in_use = (hooks & 16) != 0 ? hash_badly : hash_well;
    dict_beside_model dict(hooks, in.u8());
    while (!in.empty()) {
        dict.step(in);
    }
    return 0;
}

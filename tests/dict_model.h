/**
 * @file
 * What a dictionary should do, told with standard containers: an unordered_map of the entries with their
 * generation stamps, and beside it the order of the keys in each bucket. Every operation changes the model
 * and foretells each hook call with its arguments.
 *
 * A key or value object is known by its code: its number, and whose it is (the adding caller's, a searching
 * caller's, or a copy of the dictionary's own), so that swapped arguments or a wrong owner show.
 */
#ifndef DICT_MODEL_H
#define DICT_MODEL_H

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace dict_model {

enum owner { adder = 0, searcher = 1, dictionary = 2 };

constexpr int code(int number, owner whose) {
    return number * 4 + whose;
}

constexpr int number_of(int code) {
    return code / 4;
}

/// One hook call: h hash, c compare, K and V copy, k and v release, of key or value.
struct event {
    char what;
    int a;
    int b;
    bool operator==(const event &) const = default;
};

/// Which of the hooks that may be absent are there.
struct hook_set {
    bool key_dup;
    bool val_dup;
    bool key_destructor;
    bool val_destructor;
};

struct entry {
    int key;     // code of the stored key
    int val;     // code of the stored value
    uint64_t id; // generation
};

class model {
public:
    using hash_fn = uint32_t (*)(int number);

    model(hook_set hooks, hash_fn hash, uint32_t size)
        : hooks_(hooks), hash_(hash), buckets_(rounded(size)) {}

    /// The calls foretold since the last look.
    std::vector<event> take_calls() {
        std::vector<event> taken;
        taken.swap(calls_);
        return taken;
    }

    const entry *find(int key) {
        bucket &chain = bucket_of(key);
        if (id_clear_ != 0) {
            purge(chain);
        }
        for (const int number : chain) {
            const entry &stored = entries_.at(number);
            calls_.push_back({'c', key, stored.key});
            if (number == number_of(key)) {
                return &stored;
            }
        }
        return nullptr;
    }

    const entry *add(int key, int val) {
        if (find(key) != nullptr) {
            return nullptr;
        }
        if (entries_.size() >= 4 * buckets_.size()) {
            expand(static_cast<uint32_t>(4 * buckets_.size()));
            ++growths;
        }
        bucket &chain = bucket_of(key);
        const int number = number_of(key);
        chain.insert(chain.begin(), number);
        const int kept_key = kept('K', hooks_.key_dup, key);
        const int kept_val = kept('V', hooks_.val_dup, val);
        return &(entries_[number] = {kept_key, kept_val, id_start_++});
    }

    int replace(int key, int val) {
        if (find(key) == nullptr) {
            add(key, val);
            return 1;
        }
        entry &stored = entries_.at(number_of(key));
        const int old = stored.val;
        stored.val = kept('V', hooks_.val_dup, val);
        if (hooks_.val_destructor) {
            calls_.push_back({'v', old, 0});
        }
        return 0;
    }

    int del(int key) {
        bucket &chain = bucket_of(key);
        for (auto it = chain.begin(); it != chain.end(); ++it) {
            calls_.push_back({'c', entries_.at(*it).key, key});
            if (*it == number_of(key)) {
                forget(*it);
                chain.erase(it);
                return 1;
            }
        }
        return 0;
    }

    void mark_clear() { id_clear_ = id_start_++; }

    void clear() {
        for (const int number : order()) {
            del(entries_.at(number).key);
        }
    }

    void expand(uint32_t size) {
        std::vector<bucket> old(rounded(size));
        old.swap(buckets_);
        for (const bucket &chain : old) {
            for (const int number : chain) {
                bucket &target = bucket_of(entries_.at(number).key);
                target.insert(target.begin(), number);
            }
        }
    }

    /// Foretells the calls of the dictionary's release.
    void release() {
        for (const int number : order()) {
            forget(number);
        }
    }

    /// The numbers of the keys in the order of a walk.
    std::vector<int> order() const {
        std::vector<int> numbers;
        for (const bucket &chain : buckets_) {
            numbers.insert(numbers.end(), chain.begin(), chain.end());
        }
        return numbers;
    }

    const entry &at(int number) const { return entries_.at(number); }
    size_t used() const { return entries_.size(); }
    size_t size() const { return buckets_.size(); }
    uint64_t id_start() const { return id_start_; }
    uint64_t id_clear() const { return id_clear_; }

    long growths = 0; // how often an add made the table grow
    long purged = 0;  // how many cleared entries a lookup has released

private:
    using bucket = std::vector<int>; // numbers of the keys, from the head

    static size_t rounded(uint32_t size) {
        size_t power = 4;
        while (power < size) {
            power *= 2;
        }
        return power;
    }

    bucket &bucket_of(int key) {
        calls_.push_back({'h', key, 0});
        return buckets_[hash_(number_of(key)) % buckets_.size()];
    }

    /// The code that is stored for a key or value that was passed in.
    int kept(char what, bool copies, int passed) {
        if (!copies) {
            return passed;
        }
        calls_.push_back({what, passed, 0});
        return code(number_of(passed), dictionary);
    }

    void forget(int number) {
        const entry &gone = entries_.at(number);
        if (hooks_.key_destructor) {
            calls_.push_back({'k', gone.key, 0});
        }
        if (hooks_.val_destructor) {
            calls_.push_back({'v', gone.val, 0});
        }
        entries_.erase(number);
    }

    void purge(bucket &chain) {
        std::erase_if(chain, [this](int number) {
            if (entries_.at(number).id >= id_clear_) {
                return false;
            }
            forget(number);
            ++purged;
            return true;
        });
    }

    hook_set hooks_;
    hash_fn hash_;
    std::vector<bucket> buckets_;
    std::unordered_map<int, entry> entries_;
    uint64_t id_start_ = 0;
    uint64_t id_clear_ = 0;
    std::vector<event> calls_;
};

} // namespace dict_model

#endif

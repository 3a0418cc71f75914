/**
 * @file
 * For the tests of the dictionary: keys and values that are one-letter texts, and hooks that write down each
 * call. A letter's hash is its place in the alphabet, so with four buckets a, e, i share bucket 0. A copy
 * that a hook makes is the capital letter: "c:aA" compared a searched a with a stored copy.
 */
#ifndef DICT_PROBE_H
#define DICT_PROBE_H

#include "utils/ut_dict.h"

#include <cctype>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace dict_probe {

/// The hook calls: h hash, c compare, K and V key and value copied, k and v key and value released.
inline std::string &trace() {
    static std::string calls;
    return calls;
}

inline void note(const char *what, const std::string &letters) {
    trace() += what + letters + ' ';
}

inline char letter(const void *text) {
    return *static_cast<const char *>(text);
}

inline std::string said(const void *text) {
    return std::string(1, letter(text));
}

inline void *text(const char *letters) {
    return const_cast<char *>(letters); // the interface takes keys and values of any kind, unqualified
}

inline uint32_t hash(const void *key) {
    note("h:", said(key));
    return static_cast<uint32_t>(tolower(letter(key)) - 'a');
}

inline int compare(const void *a, const void *b) {
    note("c:", said(a) + said(b));
    return tolower(letter(a)) - tolower(letter(b));
}

inline void *capital(const void *original) {
    auto *copy = static_cast<char *>(malloc(2));
    copy[0] = static_cast<char>(toupper(letter(original)));
    copy[1] = '\0';
    return copy;
}

inline void *dup_key(const void *key) {
    note("K:", said(key));
    return capital(key);
}

inline void *dup_val(const void *val) {
    note("V:", said(val));
    return capital(val);
}

inline void destroy_key(void *key) {
    note("k:", said(key));
    free(key);
}

inline void destroy_val(void *val) {
    note("v:", said(val));
    free(val);
}

/// Hooks of a dictionary that owns copies.
inline dict_types owning() {
    return {hash, dup_key, dup_val, compare, destroy_key, destroy_val};
}

/// Hooks of a dictionary that stores the caller's pointers.
inline dict_types pointing() {
    return {hash, nullptr, nullptr, compare, nullptr, nullptr};
}

inline dict_t *create(dict_types type, uint32_t size = 4) {
    return dict_create(&type, size);
}

/// Adds these letters one by one, each with its own letter as value.
inline void add(dict_t *dt, const std::string &letters) {
    for (const char c : letters) {
        static const char alphabet[] =
            "a\0b\0c\0d\0e\0f\0g\0h\0i\0j\0k\0l\0m\0n\0o\0p\0q\0r\0s\0t\0u\0v\0w\0x\0y\0z";
        void *one = text(&alphabet[(c - 'a') * 2]);
        EXPECT_NE(dict_add(dt, one, one), nullptr) << c;
    }
    trace().clear();
}

/// The keys by bucket, each from its head, as "ea|b||": read from the table, no hook is called.
inline std::string keys(const dict_t *dt) {
    std::string all;
    uint32_t found = 0;
    for (uint32_t i = 0; i < dt->size; ++i) {
        for (const dict_entry *entry = dt->table[i]; entry != nullptr; entry = entry->next) {
            all += static_cast<char>(tolower(letter(entry->key)));
            ++found;
        }
        all += '|';
    }
    EXPECT_EQ(dt->used, found);
    EXPECT_EQ(dt->mask, dt->size - 1);
    return all;
}

/// A test with one dictionary, which it does not have to release.
class fixture : public testing::Test {
protected:
    void SetUp() override { trace().clear(); }
    void TearDown() override { dict_release(made_); }

    dict_t *make(dict_types type, const std::string &letters = "", uint32_t size = 4) {
        made_ = create(type, size);
        add(made_, letters);
        return made_;
    }

private:
    dict_t *made_ = nullptr;
};

} // namespace dict_probe

#endif

/**
 * @file
 * For the tests of the list: lists of one-letter texts, hooks that are counted and can be made to fail, and a
 * look at a list that checks its links on the way.
 */
#ifndef LIST_PROBE_H
#define LIST_PROBE_H

#include "utils/ut_list.h"

#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <string>

namespace list_probe {

struct record {
    std::deque<std::string> copies; // every copy that dup made; held here, so that a lost one is no leak
    std::string freed;              // the letters that went to free, in order
    std::string compared;           // the two letters of each comparison, in order
    long dup_calls = 0;
    long dups_that_work = -1; // negative: all
};

inline record &state() {
    static record r;
    return r;
}

inline void reset() {
    state() = {};
}

/// Lets this many more copies succeed; the ones after them fail.
inline void fail_dup_after(long copies) {
    state().dups_that_work = copies;
}

inline long dups() {
    return state().dup_calls;
}

inline const std::string &freed() {
    return state().freed;
}

inline const std::string &compared() {
    return state().compared;
}

inline void *text(const char *letters) {
    return const_cast<char *>(letters); // the list's interface takes values of any kind, unqualified
}

inline char letter(const void *value) {
    return *static_cast<const char *>(value);
}

/// Copies the letter; of null it makes "0".
inline void *dup(void *value) {
    record &r = state();
    ++r.dup_calls;
    if (r.dups_that_work == 0) {
        return nullptr;
    }
    r.dups_that_work -= r.dups_that_work > 0 ? 1 : 0;
    return r.copies.emplace_back(1, value != nullptr ? letter(value) : '0').data();
}

inline void release(void *value) {
    state().freed += letter(value);
}

inline int compare(const void *a, const void *b) {
    state().compared += {letter(a), letter(b), ' '};
    return letter(a) - letter(b);
}

inline list_type hooks() {
    return {dup, release, compare};
}

/// A list without hooks that points at literals.
inline list_t *plain(const std::string &letters) {
    static const char *const alphabet[] = {"a", "b", "c", "d", "e", "f", "g", "h"};
    list_t *list = list_create(nullptr);
    for (const char c : letters) {
        list_add_node_tail(list, text(alphabet[c - 'a']));
    }
    return list;
}

/// A list with all hooks.
inline list_t *owned(const std::string &letters) {
    list_type type = hooks();
    list_t *list = list_create(&type);
    for (const char c : letters) {
        list_add_node_tail(list, text(std::string(1, c).c_str()));
    }
    return list;
}

/// The letters from head to tail, after the links, the ends and the count have been checked.
inline std::string contents(const list_t *list) {
    std::string letters;
    const list_node *last = nullptr;
    for (const list_node *node = list->head; node != nullptr; node = node->next) {
        EXPECT_EQ(node->prev, last);
        EXPECT_NE(node->value, nullptr);
        letters += letter(node->value);
        last = node;
    }
    EXPECT_EQ(list->tail, last);
    EXPECT_EQ(list->len, letters.size());
    return letters;
}

} // namespace list_probe

#endif

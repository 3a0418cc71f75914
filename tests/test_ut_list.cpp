// The list: every operation on an empty list, on one node and on several, with hooks that are counted.
#include "utils/ut_list.h"

#include "list_probe.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using list_probe::contents;
using list_probe::owned;
using list_probe::plain;
using list_probe::text;

namespace {

class List : public testing::Test {
protected:
    void SetUp() override { list_probe::reset(); }
    void TearDown() override { list_release(list_); }

    /// A list without hooks that points at these letters.
    list_t *of(const std::string &letters) {
        list_ = plain(letters);
        return list_;
    }

    /// A list that owns copies of these letters.
    list_t *owning(const std::string &letters) {
        list_ = owned(letters);
        return list_;
    }

private:
    list_t *list_ = nullptr;
};

} // namespace

TEST_F(List, IsEmptyAndWithoutHooksWhenCreatedWithoutType) {
    const list_t *list = of("");
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
    EXPECT_EQ(list->len, 0U);
    EXPECT_EQ(list->type.dup, nullptr);
    EXPECT_EQ(list->type.free, nullptr);
    EXPECT_EQ(list->type.compare, nullptr);
}

TEST_F(List, CopiesTheHooksSoThatTheCallersTypeMayGo) {
    list_type type = list_probe::hooks();
    list_t *list = list_create(&type);
    type = {};
    EXPECT_EQ(list->type.dup, list_probe::hooks().dup);
    EXPECT_EQ(list->type.free, list_probe::hooks().free);
    EXPECT_EQ(list->type.compare, list_probe::hooks().compare);
    list_release(list);
}

TEST_F(List, AddsAtBothEndsAndReturnsItself) {
    list_t *list = of("");
    EXPECT_EQ(list_add_node_head(list, text("b")), list);
    EXPECT_EQ(list_add_node_head(list, text("a")), list);
    EXPECT_EQ(list_add_node_tail(list, text("c")), list);
    EXPECT_EQ(contents(list), "abc");
}

TEST_F(List, OfOneNodeHasItAsHeadAndTail) {
    for (auto *add : {list_add_node_head, list_add_node_tail}) {
        list_t *list = plain("");
        add(list, text("x"));
        EXPECT_EQ(list->head, list->tail);
        EXPECT_EQ(contents(list), "x");
        list_release(list);
    }
}

TEST_F(List, WithoutDupStoresThePointerItself) {
    char value[] = "v";
    list_t *list = of("");
    list_add_node_tail(list, value);
    EXPECT_EQ(list->head->value, value);
}

TEST_F(List, WithDupStoresOneCopyAndLeavesTheCallersValueAlone) {
    char value[] = "v";
    list_t *list = owning("");
    list_add_node_tail(list, value);
    EXPECT_NE(list->head->value, value);
    value[0] = 'w';
    EXPECT_EQ(contents(list), "v");
    EXPECT_EQ(list_probe::dups(), 1);
    EXPECT_EQ(list_probe::freed(), "");
}

TEST_F(List, RefusesANullValueWithoutDupAtEveryPlace) {
    list_t *list = of("ab");
    EXPECT_EQ(list_add_node_tail(list, nullptr), nullptr);
    EXPECT_EQ(list_add_node_head(list, nullptr), nullptr);
    EXPECT_EQ(list_insert_node(list, list->head, nullptr, 0), nullptr);
    EXPECT_EQ(list_insert_node(list, list->head, nullptr, 1), nullptr);
    EXPECT_EQ(contents(list), "ab");
}

TEST_F(List, HandsANullValueToDupWhichMayMakeSomethingOfIt) {
    list_t *list = owning("");
    EXPECT_EQ(list_add_node_tail(list, nullptr), list);
    EXPECT_EQ(contents(list), "0"); // what the probe's hook makes of null
}

TEST_F(List, IsUnchangedWhenDupFails) {
    list_t *list = owning("ab");
    list_probe::fail_dup_after(0);
    EXPECT_EQ(list_add_node_head(list, text("x")), nullptr);
    EXPECT_EQ(list_add_node_tail(list, text("x")), nullptr);
    EXPECT_EQ(list_insert_node(list, list->tail, text("x"), 1), nullptr);
    EXPECT_EQ(contents(list), "ab");
    EXPECT_EQ(list_probe::freed(), "");
}

TEST_F(List, InsertsBesideAnyNodeAndMovesTheEnds) {
    struct row {
        long pos;
        int before;
        const char *result;
    };
    for (const row &r : {row{0, 1, "xabc"}, row{0, 0, "axbc"}, row{1, 1, "axbc"}, row{1, 0, "abxc"},
                         row{2, 1, "abxc"}, row{2, 0, "abcx"}, row{1, -7, "axbc"}}) {
        list_t *list = plain("abc");
        EXPECT_EQ(list_insert_node(list, list_index(list, r.pos), text("x"), r.before), list);
        EXPECT_EQ(contents(list), r.result) << "at " << r.pos << " before " << r.before;
        list_release(list);
    }
}

TEST_F(List, PopsAtTheHeadAndGivesTheValueToFree) {
    list_t *list = owning("abc");
    list_pop_head(list);
    EXPECT_EQ(contents(list), "bc");
    EXPECT_EQ(list_probe::freed(), "a");
}

TEST_F(List, PopsAtTheTailAndGivesTheValueToFree) {
    list_t *list = owning("abc");
    list_pop_tail(list);
    EXPECT_EQ(contents(list), "ab");
    EXPECT_EQ(list_probe::freed(), "c");
}

TEST_F(List, IsEmptyAndUsableAfterItsLastNodeIsPopped) {
    for (auto *pop : {list_pop_head, list_pop_tail}) {
        list_t *list = owned("a");
        pop(list);
        EXPECT_EQ(contents(list), "");
        list_add_node_tail(list, text("b"));
        EXPECT_EQ(contents(list), "b");
        list_release(list);
    }
}

TEST_F(List, PopsNothingWhenEmpty) {
    list_t *list = owning("");
    list_pop_head(list);
    list_pop_tail(list);
    EXPECT_EQ(contents(list), "");
    EXPECT_EQ(list_probe::freed(), "");
}

TEST_F(List, DeletesAnyNode) {
    const std::vector<std::pair<long, std::string>> rows = {{0, "bc"}, {1, "ac"}, {2, "ab"}};
    for (const auto &[index, rest] : rows) {
        list_probe::reset();
        list_t *list = owned("abc");
        list_del(list, list_index(list, index));
        EXPECT_EQ(contents(list), rest);
        EXPECT_EQ(list_probe::freed(), std::string(1, "abc"[index]));
        list_release(list);
    }
}

TEST_F(List, DropsValuesWithoutAFreeHook) {
    char value[] = "v";
    list_t *list = of("");
    list_add_node_tail(list, value);
    list_add_node_tail(list, value);
    list_del(list, list->head);
    list_clear(list);
    EXPECT_EQ(contents(list), "");
    EXPECT_STREQ(value, "v");
}

TEST_F(List, RotatesTheTailToTheFront) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"", ""}, {"a", "a"}, {"ab", "ba"}, {"abc", "cab"}};
    for (const auto &[before, after] : rows) {
        list_t *list = plain(before);
        list_rotate(list);
        EXPECT_EQ(contents(list), after);
        list_release(list);
    }
}

TEST_F(List, RotatesTheNodesThemselvesWithoutAnyHook) {
    list_t *list = owning("abc");
    const list_node *last = list->tail;
    list_rotate(list);
    EXPECT_EQ(list->head, last);
    EXPECT_EQ(list_probe::dups(), 3);
    EXPECT_EQ(list_probe::freed(), "");
}

TEST_F(List, ClearsFromHeadToTailAndStaysUsable) {
    list_t *list = owning("abc");
    list_clear(list);
    EXPECT_EQ(list_probe::freed(), "abc");
    EXPECT_EQ(contents(list), "");
    list_clear(list);
    EXPECT_EQ(list_probe::freed(), "abc");
    list_add_node_head(list, text("d"));
    EXPECT_EQ(contents(list), "d");
}

TEST_F(List, ReleasesEveryValueFromHeadToTail) {
    list_release(owned("abc"));
    EXPECT_EQ(list_probe::freed(), "abc");
    list_release(plain("abc")); // the leak checker sees that the nodes go too
    EXPECT_EQ(list_probe::freed(), "abc");
}

TEST_F(List, ReleasingNothingIsAllowed) {
    list_release(nullptr);
    list_release_iterator(nullptr);
}

TEST_F(List, FindsTheFirstMatchFromTheHead) {
    list_t *list = owning("abcb");
    EXPECT_EQ(list_find(list, text("b")), list->head->next);
    EXPECT_EQ(list_find(list, text("c")), list->tail->prev);
    EXPECT_EQ(list_find(list, text("z")), nullptr);
    list_clear(list);
    EXPECT_EQ(list_find(list, text("b")), nullptr);
}

TEST_F(List, ComparesEachValueFirstAndTheKeySecondUpToTheMatch) {
    list_t *list = owning("abc");
    (void)list_find(list, text("b"));
    EXPECT_EQ(list_probe::compared(), "ab bb ");
}

TEST_F(List, FindsNothingWithoutCompareEvenWhenTheKeyIsStored) {
    char value[] = "v";
    list_t *list = of("");
    list_add_node_tail(list, value);
    EXPECT_EQ(list_find(list, value), nullptr);
}

TEST_F(List, IndexesThreeNodesFromBothEnds) {
    list_t *list = of("abc");
    const list_node *nodes[] = {list->head, list->head->next, list->tail};
    for (long i = 0; i < 3; ++i) {
        EXPECT_EQ(list_index(list, i), nodes[i]);
        EXPECT_EQ(list_index(list, i - 3), nodes[i]);
    }
    for (const long beyond : {3L, 4L, -4L, -5L, LONG_MAX, LONG_MIN, LONG_MIN + 1}) {
        EXPECT_EQ(list_index(list, beyond), nullptr) << beyond;
    }
}

TEST_F(List, HasNothingAtAnyIndexWhenEmpty) {
    list_t *list = of("");
    for (const long index : {0L, 1L, -1L, -2L, LONG_MAX, LONG_MIN}) {
        EXPECT_EQ(list_index(list, index), nullptr) << index;
    }
}

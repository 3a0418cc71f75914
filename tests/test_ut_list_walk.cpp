// Walking along a list with its iterators, and copying it.
#include "utils/ut_list.h"

#include "list_probe.h"

#include <gtest/gtest.h>
#include <string>

using list_probe::contents;
using list_probe::letter;
using list_probe::owned;
using list_probe::plain;
using list_probe::text;

namespace {

class ListWalk : public testing::Test {
protected:
    void SetUp() override { list_probe::reset(); }
};

using ListDup = ListWalk;

/// The letters that an iterator still has before it.
std::string rest_of(list_iter *iter) {
    std::string letters;
    for (const list_node *node = list_next(iter); node != nullptr; node = list_next(iter)) {
        letters += letter(node->value);
    }
    return letters;
}

std::string walk(list_t *list, int direction) {
    list_iter *iter = list_get_iterator(list, direction);
    const std::string letters = rest_of(iter);
    list_release_iterator(iter);
    return letters;
}

/// Removes every node as soon as it has been returned.
void delete_all_while_walking(list_t *list, int direction) {
    list_iter *iter = list_get_iterator(list, direction);
    for (list_node *node = list_next(iter); node != nullptr; node = list_next(iter)) {
        list_del(list, node);
    }
    list_release_iterator(iter);
}

} // namespace

TEST_F(ListWalk, GoesForwardFromTheHeadInDirection0) {
    list_t *list = plain("abc");
    EXPECT_EQ(walk(list, 0), "abc");
    list_release(list);
}

TEST_F(ListWalk, GoesBackwardFromTheTailInAnyOtherDirectionAndStoresItAs1) {
    list_t *list = plain("abc");
    for (const int direction : {1, 5, -1}) {
        list_iter *iter = list_get_iterator(list, direction);
        EXPECT_EQ(iter->direction, 1);
        EXPECT_EQ(iter->next, list->tail);
        EXPECT_EQ(rest_of(iter), "cba");
        list_release_iterator(iter);
    }
    list_release(list);
}

TEST_F(ListWalk, IsOverAtOnceOnAnEmptyList) {
    list_t *list = plain("");
    EXPECT_EQ(walk(list, 0), "");
    EXPECT_EQ(walk(list, 1), "");
    list_release(list);
}

TEST_F(ListWalk, StaysAtTheEndOnceItIsThere) {
    list_t *list = plain("a");
    list_iter *iter = list_get_iterator(list, 0);
    EXPECT_EQ(list_next(iter), list->head);
    EXPECT_EQ(list_next(iter), nullptr);
    EXPECT_EQ(list_next(iter), nullptr);
    list_release_iterator(iter);
    list_release(list);
}

TEST_F(ListWalk, IsOverWithoutAnIterator) {
    EXPECT_EQ(list_next(nullptr), nullptr);
}

TEST_F(ListWalk, PointsAtTheNodeThatComesNext) {
    list_t *list = plain("abc");
    list_iter *iter = list_get_iterator(list, 0);
    EXPECT_EQ(iter->next, list->head);
    (void)list_next(iter);
    EXPECT_EQ(iter->next, list->head->next);
    list_release_iterator(iter);
    list_release(list);
}

TEST_F(ListWalk, SurvivesTheDeletionOfEachNodeItHasReturned) {
    for (const int direction : {0, 1}) {
        list_probe::reset();
        list_t *list = owned("abcd");
        delete_all_while_walking(list, direction);
        EXPECT_EQ(contents(list), "");
        EXPECT_EQ(list_probe::freed(), direction == 0 ? "abcd" : "dcba");
        list_release(list);
    }
}

TEST_F(ListWalk, RewindsToEitherEndWhateverItsDirectionWas) {
    list_t *list = plain("abc");
    list_iter *iter = list_get_iterator(list, 0);
    (void)list_next(iter);
    list_rewind_tail(list, iter);
    EXPECT_EQ(iter->direction, 1);
    EXPECT_EQ(rest_of(iter), "cba");
    list_rewind_head(list, iter);
    EXPECT_EQ(iter->direction, 0);
    EXPECT_EQ(rest_of(iter), "abc");
    list_release_iterator(iter);
    list_release(list);
}

TEST_F(ListDup, KeepsOrderAndHooksAndLeavesTheOriginalAlone) {
    list_t *list = owned("abc");
    list_t *copy = list_dup(list);
    EXPECT_EQ(contents(copy), "abc");
    EXPECT_EQ(copy->type.dup, list->type.dup);
    EXPECT_EQ(copy->type.free, list->type.free);
    EXPECT_EQ(copy->type.compare, list->type.compare);
    list_clear(copy);
    EXPECT_EQ(contents(list), "abc");
    list_release(copy);
    list_release(list);
}

TEST_F(ListDup, CopiesEachValueTwiceAndReleasesNoneOfTheCopies) {
    list_t *list = owned("abc");
    const long dups_before = list_probe::dups();
    list_t *copy = list_dup(list);
    EXPECT_EQ(list_probe::dups() - dups_before, 6);
    EXPECT_EQ(list_probe::freed(), "");
    list_release(copy);
    EXPECT_EQ(list_probe::freed(),
              "abc"); // the copies of the copies; those in between are left to themselves
    list_release(list);
}

TEST_F(ListDup, StoresACopyOfTheCopy) {
    list_t *list = owned("a");
    list_t *copy = list_dup(list);
    const auto &copies = list_probe::state().copies;
    ASSERT_EQ(copies.size(), 3U); // the original's, the one in between, the new list's
    EXPECT_EQ(copy->head->value, copies[2].data());
    list_release(copy);
    list_release(list);
}

TEST_F(ListDup, WithoutHooksSharesTheValues) {
    list_t *list = plain("ab");
    list_t *copy = list_dup(list);
    EXPECT_EQ(contents(copy), "ab");
    EXPECT_EQ(copy->head->value, list->head->value);
    EXPECT_NE(copy->head, list->head);
    list_release(copy);
    list_release(list);
}

TEST_F(ListDup, OfAnEmptyListIsAnEmptyListWithItsHooks) {
    list_t *list = owned("");
    list_t *copy = list_dup(list);
    EXPECT_EQ(contents(copy), "");
    EXPECT_EQ(copy->type.free, list->type.free);
    list_release(copy);
    list_release(list);
}

TEST_F(ListDup, FailsAtWhicheverCopyCannotBeMadeAndReleasesWhatItHad) {
    const std::string freed_at[] = {"",  "",   "a",
                                    "a", "ab", "ab"}; // by the number of copies that still worked
    for (long works = 0; works < 6; ++works) {
        list_probe::reset();
        list_t *list = owned("abc");
        list_probe::fail_dup_after(works);
        EXPECT_EQ(list_dup(list), nullptr);
        EXPECT_EQ(list_probe::freed(), freed_at[works]) << works;
        EXPECT_EQ(contents(list), "abc");
        list_release(list);
    }
}

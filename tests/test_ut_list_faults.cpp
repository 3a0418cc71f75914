// The list when memory runs out, at each place where it asks for some.
#include "utils/ut_list.h"

#include "faults.h"
#include "list_probe.h"

#include <cerrno>
#include <gtest/gtest.h>

using faults::call;
using list_probe::contents;
using list_probe::owned;
using list_probe::plain;
using list_probe::text;

namespace {

class ListWithoutMemory : public testing::Test {
protected:
    void SetUp() override {
        faults::clear();
        list_probe::reset();
    }
    void TearDown() override { faults::clear(); }
};

} // namespace

TEST_F(ListWithoutMemory, IsNotCreated) {
    faults::fail(call::calloc, ENOMEM);
    EXPECT_EQ(list_create(nullptr), nullptr);
    list_type type = list_probe::hooks();
    EXPECT_EQ(list_create(&type), nullptr);
}

TEST_F(ListWithoutMemory, IsUnchangedByEveryAddAndAsksForNoCopy) {
    list_t *list = owned("ab");
    const long dups = list_probe::dups();
    faults::fail(call::malloc, ENOMEM);
    EXPECT_EQ(list_add_node_head(list, text("x")), nullptr);
    EXPECT_EQ(list_add_node_tail(list, text("x")), nullptr);
    EXPECT_EQ(list_insert_node(list, list->head, text("x"), 0), nullptr);
    EXPECT_EQ(list_insert_node(list, list->head, text("x"), 1), nullptr);
    EXPECT_EQ(contents(list), "ab");
    EXPECT_EQ(list_probe::dups(), dups);
    EXPECT_EQ(list_probe::freed(), "");
    list_release(list);
}

TEST_F(ListWithoutMemory, AddsAgainWhenMemoryIsBack) {
    list_t *list = plain("a");
    faults::fail(call::malloc, ENOMEM, 1);
    EXPECT_EQ(list_add_node_tail(list, text("b")), nullptr);
    EXPECT_EQ(list_add_node_tail(list, text("b")), list);
    EXPECT_EQ(contents(list), "ab");
    list_release(list);
}

TEST_F(ListWithoutMemory, GivesNoIteratorInEitherDirection) {
    list_t *list = plain("ab");
    faults::fail(call::malloc, ENOMEM);
    EXPECT_EQ(list_get_iterator(list, 0), nullptr);
    EXPECT_EQ(list_get_iterator(list, 1), nullptr);
    list_release(list);
}

TEST_F(ListWithoutMemory, ClearsRotatesAndFindsAllTheSame) {
    list_t *list = owned("abc");
    faults::fail(call::malloc, ENOMEM);
    faults::fail(call::calloc, ENOMEM);
    list_rotate(list);
    EXPECT_EQ(contents(list), "cab");
    EXPECT_EQ(list_find(list, text("b")), list->tail);
    list_release(list);
    EXPECT_EQ(list_probe::freed(), "cab");
}

TEST_F(ListWithoutMemory, IsNotCopiedWhenTheNewListCannotBeMade) {
    list_t *list = owned("abc");
    faults::fail(call::calloc, ENOMEM);
    EXPECT_EQ(list_dup(list), nullptr);
    EXPECT_EQ(contents(list), "abc");
    EXPECT_EQ(list_probe::dups(), 3);
    list_release(list);
}

TEST_F(ListWithoutMemory, IsNotCopiedWhicheverOfTheIteratorAndTheNodesCannotBeMade) {
    const std::string freed_at[] = {"", "", "a", "ab"}; // the iterator, then one node per value
    for (int works = 0; works < 4; ++works) {
        list_probe::reset();
        list_t *list = owned("abc");
        faults::fail(call::malloc, ENOMEM, 1, works);
        EXPECT_EQ(list_dup(list), nullptr);
        EXPECT_EQ(list_probe::freed(), freed_at[works]) << works;
        EXPECT_EQ(contents(list), "abc");
        list_release(list);
    }
}

TEST_F(ListWithoutMemory, IsCopiedWithOneAllocationMoreThanTheFailuresCover) {
    list_t *list = owned("abc");
    faults::fail(call::malloc, ENOMEM, 1, 4);
    list_t *copy = list_dup(list);
    EXPECT_EQ(contents(copy), "abc");
    list_release(copy);
    list_release(list);
}

// The dictionary when memory runs out, at each place where it asks for some.
#include "utils/ut_dict.h"

#include "dict_probe.h"
#include "faults.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>

using dict_probe::add;
using dict_probe::keys;
using dict_probe::letter;
using dict_probe::owning;
using dict_probe::text;
using dict_probe::trace;
using faults::call;

namespace {

class DictWithoutMemory : public testing::Test {
protected:
    void SetUp() override {
        faults::clear();
        trace().clear();
    }
    void TearDown() override {
        faults::clear();
        dict_release(made_);
    }

    dict_t *make(const std::string &letters = "") {
        made_ = dict_probe::create(owning());
        add(made_, letters);
        return made_;
    }

private:
    dict_t *made_ = nullptr;
};

} // namespace

TEST_F(DictWithoutMemory, IsNotCreatedWhicheverOfItsTwoBlocksIsMissing) {
    for (int works = 0; works < 2; ++works) {
        faults::fail(call::calloc, ENOMEM, 1, works);
        EXPECT_EQ(dict_probe::create(owning()), nullptr) << works;
    }
}

TEST_F(DictWithoutMemory, AsksForATableOf2To31BucketsButForNoneAbove) {
    faults::fail(call::calloc, ENOMEM, 1, 1);
    EXPECT_EQ(dict_probe::create(owning(), 1U << 31), nullptr);
    EXPECT_EQ(faults::calls(call::calloc), 2); // the dictionary and its table
    faults::clear();
    EXPECT_EQ(dict_probe::create(owning(), (1U << 31) + 1), nullptr);
    EXPECT_EQ(faults::calls(call::calloc), 1); // the dictionary
}

TEST_F(DictWithoutMemory, IsUnchangedByAnExpand) {
    dict_t *dt = make("aeb");
    faults::fail(call::calloc, ENOMEM);
    EXPECT_EQ(dict_expand(dt, 64), -1);
    EXPECT_EQ(dt->size, 4U);
    EXPECT_EQ(keys(dt), "ea|b|||");
    EXPECT_EQ(trace(), "");
}

TEST_F(DictWithoutMemory, AddsNothingWhenTheEntryIsMissing) {
    dict_t *dt = make("a");
    faults::fail(call::malloc, ENOMEM);
    EXPECT_EQ(dict_add(dt, text("e"), text("x")), nullptr);
    EXPECT_EQ(trace(), "h:e c:eA ");
    EXPECT_EQ(keys(dt), "a||||");
    EXPECT_EQ(dt->id_start, 1U);
    EXPECT_EQ(dict_find(dt, "e"), nullptr);
}

TEST_F(DictWithoutMemory, AddsNothingWhenTheDueGrowthIsMissing) {
    dict_t *dt = make("abcdefghijklmnop");
    faults::fail(call::calloc, ENOMEM, 1);
    EXPECT_EQ(dict_add(dt, text("q"), text("x")), nullptr);
    EXPECT_EQ(dt->size, 4U);
    EXPECT_EQ(dt->used, 16U);
    EXPECT_EQ(dt->id_start, 16U);
    EXPECT_NE(dict_add(dt, text("q"), text("x")), nullptr);
    EXPECT_EQ(dt->size, 16U);
}

TEST_F(DictWithoutMemory, ReplaceOfANewKeyFailsWithMinus1) {
    dict_t *dt = make("a");
    faults::fail(call::malloc, ENOMEM);
    EXPECT_EQ(dict_replace(dt, text("b"), text("x")), -1);
    EXPECT_EQ(keys(dt), "a||||");
}

TEST_F(DictWithoutMemory, ReplaceOfAPresentKeyNeedsNone) {
    dict_t *dt = make("a");
    faults::fail(call::malloc, ENOMEM);
    faults::fail(call::calloc, ENOMEM);
    EXPECT_EQ(dict_replace(dt, text("a"), text("x")), 0);
    EXPECT_EQ(letter(dict_find(dt, "a")->val), 'X');
}

TEST_F(DictWithoutMemory, GivesNoIterator) {
    dict_t *dt = make("a");
    faults::fail(call::malloc, ENOMEM);
    EXPECT_EQ(dict_get_iterator(dt), nullptr);
}

TEST_F(DictWithoutMemory, ClearDoesNothing) {
    dict_t *dt = make("ab");
    faults::fail(call::malloc, ENOMEM, 1);
    dict_clear(dt);
    EXPECT_EQ(keys(dt), "a|b|||");
    EXPECT_EQ(trace(), "");
}

TEST_F(DictWithoutMemory, MarkClearFindDeleteAndReleaseNeedNone) {
    dict_t *dt = dict_probe::create(owning());
    add(dt, "abcd");
    faults::fail(call::malloc, ENOMEM);
    faults::fail(call::calloc, ENOMEM);
    dict_mark_clear(dt);
    EXPECT_EQ(dict_find(dt, "a"), nullptr);
    EXPECT_EQ(dict_delete(dt, "b"), 1);
    dict_release(dt);
    EXPECT_EQ(trace(), "h:a k:A v:A h:b c:Bb k:B v:B k:C v:C k:D v:D ");
}

TEST_F(DictWithoutMemory, AddsNothingOnceItsCountIsFull) {
    dict_t *dt = make("ab");
    dt->used = UINT32_MAX; // as if it held so many; one more would count as none
    EXPECT_EQ(dict_add(dt, text("e"), text("x")), nullptr);
    EXPECT_EQ(dict_replace(dt, text("e"), text("x")), -1);
    dt->used = 2;
    EXPECT_EQ(keys(dt), "a|b|||");
}

// Emptying the dictionary, lazily and at once, and walking through it.
#include "utils/ut_dict.h"

#include "dict_probe.h"

#include <gtest/gtest.h>
#include <string>

using dict_probe::add;
using dict_probe::keys;
using dict_probe::letter;
using dict_probe::owning;
using dict_probe::pointing;
using dict_probe::text;
using dict_probe::trace;

namespace {

class DictMarkClear : public dict_probe::fixture {};

using DictClear = DictMarkClear;
using DictRelease = DictMarkClear;
using DictWalk = DictMarkClear;

/// The keys in the order of a walk.
std::string walk(dict_t *dt) {
    std::string letters;
    dict_iterator *iter = dict_get_iterator(dt);
    for (const dict_entry *entry = dict_next(iter); entry != nullptr; entry = dict_next(iter)) {
        letters += letter(entry->key);
    }
    dict_release_iterator(iter);
    return letters;
}

} // namespace

TEST_F(DictMarkClear, TouchesNoEntryAndCallsNoHook) {
    dict_t *dt = make(owning(), "abe");
    dict_mark_clear(dt);
    EXPECT_EQ(trace(), "");
    EXPECT_EQ(keys(dt), "ea|b|||");
    EXPECT_EQ(dt->id_clear, 3U);
    EXPECT_EQ(dt->id_start, 4U);
}

TEST_F(DictMarkClear, HasNothingPendingOnADictionaryThatNeverHeldAnything) {
    dict_t *dt = make(owning());
    dict_mark_clear(dt);
    EXPECT_EQ(dt->id_clear, 0U);
    EXPECT_EQ(dt->id_start, 1U);
    add(dt, "a");
    EXPECT_NE(dict_find(dt, "a"), nullptr);
}

TEST_F(DictMarkClear, LetsTheNextLookupReleaseItsWholeBucketAndNoOther) {
    dict_t *dt = make(owning(), "aebif");
    dict_mark_clear(dt);
    EXPECT_EQ(dict_find(dt, "e"), nullptr);
    EXPECT_EQ(trace(), "h:e k:I v:I k:E v:E k:A v:A ");
    EXPECT_EQ(keys(dt), "|fb|||");
}

TEST_F(DictMarkClear, LeavesTheDroppingToNobodyWithoutDestructors) {
    dict_t *dt = make(pointing(), "aeb");
    dict_mark_clear(dt);
    EXPECT_EQ(dict_find(dt, "a"), nullptr);
    EXPECT_EQ(trace(), "h:a ");
    EXPECT_EQ(keys(dt), "|b|||");
}

TEST_F(DictMarkClear, MakesRoomForTheSameKeyAnew) {
    dict_t *dt = make(owning(), "ae");
    dict_mark_clear(dt);
    const dict_entry *entry = dict_add(dt, text("a"), text("x"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(trace(), "h:a k:E v:E k:A v:A h:a K:a V:x ");
    EXPECT_EQ(entry->id, 3U);
    EXPECT_EQ(letter(dict_find(dt, "a")->val), 'X');
}

TEST_F(DictMarkClear, MakesReplaceAnAdding) {
    dict_t *dt = make(owning(), "a");
    dict_mark_clear(dt);
    EXPECT_EQ(dict_replace(dt, text("a"), text("x")), 1);
    EXPECT_EQ(trace(), "h:a k:A v:A h:a h:a K:a V:x ");
}

TEST_F(DictMarkClear, SparesWhatIsAddedAfterIt) {
    dict_t *dt = make(owning(), "ab");
    dict_mark_clear(dt);
    add(dt, "ei");
    EXPECT_EQ(dict_find(dt, "a"), nullptr);
    EXPECT_NE(dict_find(dt, "e"), nullptr);
    EXPECT_NE(dict_find(dt, "i"), nullptr);
    EXPECT_EQ(keys(dt), "ie|b|||");
}

TEST_F(DictMarkClear, SparesAnEntryWhoseStampIsTheLimitItself) {
    dict_t *dt = make(owning(), "ae");
    dt->id_clear = dict_find(dt, "e")->id; // no sequence of operations gives an entry this stamp
    EXPECT_NE(dict_find(dt, "e"), nullptr);
    EXPECT_EQ(keys(dt), "e||||");
}

TEST_F(DictMarkClear, ClearsAgainWhatCameAfterTheFirstTime) {
    dict_t *dt = make(owning(), "a");
    dict_mark_clear(dt);
    add(dt, "e");
    dict_mark_clear(dt);
    EXPECT_EQ(dt->id_clear, 3U);
    EXPECT_EQ(dict_find(dt, "e"), nullptr);
    EXPECT_EQ(keys(dt), "||||");
}

TEST_F(DictMarkClear, TakesOldEntriesOutFromBetweenNewOnesAndKeepsTheirOrder) {
    dict_t *dt = make(owning(), "ai", 16);
    dict_mark_clear(dt);
    add(dt, "eqm"); // q shares bucket 0 with a, which goes now; i waits in bucket 8
    ASSERT_EQ(dict_expand(dt, 4), 0);
    ASSERT_EQ(keys(dt), "mieq||||");
    trace().clear();
    EXPECT_NE(dict_find(dt, "q"), nullptr);
    EXPECT_EQ(trace(), "h:q k:I v:I c:qM c:qE c:qQ ");
    EXPECT_EQ(keys(dt), "meq||||");
}

TEST_F(DictMarkClear, StillCountsTheOldEntriesForGrowthAndMovesThem) {
    dict_t *dt = make(owning(), "abcefgijkmnoqrsu"); // 16, none in bucket 3
    dict_mark_clear(dt);
    add(dt, "d");
    EXPECT_EQ(dt->size, 16U);
    EXPECT_EQ(dt->used, 17U);
    EXPECT_EQ(dict_find(dt, "a"), nullptr); // takes q along
    EXPECT_EQ(dt->used, 15U);
}

TEST_F(DictMarkClear, SavesAGrowthWhenTheSearchedBucketIsEmptiedFirst) {
    dict_t *dt = make(owning(), "abcdefghijklmnop");
    dict_mark_clear(dt);
    add(dt, "q");
    EXPECT_EQ(dt->size, 4U);
    EXPECT_EQ(keys(dt), "q|njfb|okgc|plhd|");
}

TEST_F(DictMarkClear, LeavesOldEntriesToDeleteWhichReleasesOnlyTheOne) {
    dict_t *dt = make(owning(), "ae");
    dict_mark_clear(dt);
    EXPECT_EQ(dict_delete(dt, "a"), 1);
    EXPECT_EQ(trace(), "h:a c:Ea c:Aa k:A v:A ");
    EXPECT_EQ(keys(dt), "e||||");
}

TEST_F(DictMarkClear, LeavesOldEntriesToAWalkThatBeginsBeforeAnyLookup) {
    dict_t *dt = make(owning(), "aeb");
    dict_mark_clear(dt);
    EXPECT_EQ(walk(dt), "EAB");
    EXPECT_EQ(dict_find(dt, "a"), nullptr);
    EXPECT_EQ(walk(dt), "B");
}

TEST_F(DictClear, DeletesEachEntryByItsKeyInTheOrderOfTheWalk) {
    dict_t *dt = make(owning(), "aeb");
    dict_clear(dt);
    EXPECT_EQ(trace(), "h:E c:EE k:E v:E h:A c:AA k:A v:A h:B c:BB k:B v:B ");
    EXPECT_EQ(keys(dt), "||||");
}

TEST_F(DictClear, KeepsSizeAndStampsAndTheDictionaryUsable) {
    dict_t *dt = make(owning(), "abcdefghijklmnopq");
    dict_mark_clear(dt);
    add(dt, "z");
    dict_clear(dt);
    EXPECT_EQ(dt->used, 0U);
    EXPECT_EQ(dt->size, 16U);
    EXPECT_EQ(dt->id_clear, 17U);
    EXPECT_EQ(dt->id_start, 19U);
    add(dt, "a");
    EXPECT_NE(dict_find(dt, "a"), nullptr);
}

TEST_F(DictClear, OfAnEmptyDictionaryCallsNoHook) {
    dict_t *dt = make(owning());
    dict_clear(dt);
    EXPECT_EQ(trace(), "");
}

TEST_F(DictRelease, DestroysEveryKeyAndValueBucketByBucket) {
    dict_t *dt = dict_probe::create(owning());
    add(dt, "baed");
    dict_release(dt);
    EXPECT_EQ(trace(), "k:E v:E k:A v:A k:B v:B k:D v:D ");
}

TEST_F(DictRelease, DestroysClearedEntriesToo) {
    dict_t *dt = dict_probe::create(owning());
    add(dt, "ab");
    dict_mark_clear(dt);
    dict_release(dt);
    EXPECT_EQ(trace(), "k:A v:A k:B v:B ");
}

TEST_F(DictRelease, CallsNoHookWithoutDestructors) {
    dict_t *dt = dict_probe::create(pointing());
    add(dt, "ab");
    dict_release(dt);
    EXPECT_EQ(trace(), "");
}

TEST_F(DictRelease, OfNothingIsAllowed) {
    dict_release(nullptr);
    dict_release_iterator(nullptr);
    EXPECT_EQ(trace(), "");
}

TEST_F(DictWalk, BeginsBeforeTheFirstBucket) {
    dict_t *dt = make(pointing(), "a");
    dict_iterator *iter = dict_get_iterator(dt);
    EXPECT_EQ(iter->dt, dt);
    EXPECT_EQ(iter->index, -1);
    EXPECT_EQ(iter->entry, nullptr);
    EXPECT_EQ(iter->next_entry, nullptr);
    dict_release_iterator(iter);
}

TEST_F(DictWalk, GoesBucketByBucketFromEachHeadAndCallsNoHook) {
    EXPECT_EQ(walk(make(owning(), "badeilu")), "UIEABLD");
    EXPECT_EQ(trace(), "");
}

TEST_F(DictWalk, RemembersWhereItIsAndWhatComesNext) {
    dict_t *dt = make(pointing(), "bf");
    dict_iterator *iter = dict_get_iterator(dt);
    const dict_entry *first = dict_next(iter);
    EXPECT_EQ(iter->index, 1);
    EXPECT_EQ(iter->entry, first);
    EXPECT_EQ(iter->next_entry, first->next);
    dict_release_iterator(iter);
}

TEST_F(DictWalk, IsOverAtOnceInAnEmptyDictionary) {
    EXPECT_EQ(walk(make(pointing())), "");
}

TEST_F(DictWalk, StaysAtTheEndOnceItIsThere) {
    dict_t *dt = make(pointing(), "d");
    dict_iterator *iter = dict_get_iterator(dt);
    EXPECT_EQ(dict_next(iter), dt->table[3]);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(dict_next(iter), nullptr);
        EXPECT_EQ(iter->index, 4);
    }
    dict_release_iterator(iter);
}

TEST_F(DictWalk, IsOverWithoutAnIterator) {
    EXPECT_EQ(dict_next(nullptr), nullptr);
}

TEST_F(DictWalk, SurvivesTheDeletionOfEachEntryItHasReturned) {
    dict_t *dt = make(owning(), "aeibfd");
    std::string met;
    dict_iterator *iter = dict_get_iterator(dt);
    for (const dict_entry *entry = dict_next(iter); entry != nullptr; entry = dict_next(iter)) {
        met += letter(entry->key);
        EXPECT_EQ(dict_delete(dt, entry->key), 1);
    }
    dict_release_iterator(iter);
    EXPECT_EQ(met, "IEAFBD");
    EXPECT_EQ(keys(dt), "||||");
}

// The dictionary: making, adding, finding, replacing, deleting and growing, with the exact hook calls.
#include "utils/ut_dict.h"

#include "dict_probe.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using dict_probe::add;
using dict_probe::keys;
using dict_probe::letter;
using dict_probe::owning;
using dict_probe::pointing;
using dict_probe::text;
using dict_probe::trace;

namespace {

class Dict : public dict_probe::fixture {};

void *null_copy(const void *) {
    return nullptr;
}

} // namespace

TEST(DictHash, IsFnv1aOf32Bits) {
    const std::vector<std::pair<std::string_view, uint32_t>> rows = {
        {{"", 0}, 0x811C9DC5},
        {"a", 0xE40C292C},
        {"b", 0xE70C2DE5},
        {"foobar", 0xBF9CF968},
        {{"\xff\0\0\x01", 4}, 0xC48FB86D}, // bytes count as unsigned, zeros too
    };
    for (const auto &[bytes, hash] : rows) {
        EXPECT_EQ(dict_generic_hash_function(bytes.data(), bytes.size()), hash) << bytes;
    }
}

TEST(DictHash, OfNoBytesNeedsNoData) {
    EXPECT_EQ(dict_generic_hash_function(nullptr, 0), 0x811C9DC5U);
}

TEST(DictGenericFree, FreesABlockAndIgnoresNull) {
    dict_generic_free(malloc(1)); // the leak checker looks
    dict_generic_free(nullptr);
}

TEST_F(Dict, RoundsItsSizeUpToAPowerOfTwoOf4AtLeast) {
    const std::vector<std::pair<uint32_t, uint32_t>> rows = {
        {0, 4}, {3, 4}, {4, 4}, {5, 8}, {8, 8}, {9, 16}, {1000, 1024}, {1024, 1024}, {1025, 2048}};
    for (const auto &[wanted, size] : rows) {
        dict_t *dt = dict_probe::create(pointing(), wanted);
        EXPECT_EQ(dt->size, size) << wanted;
        EXPECT_EQ(dt->mask, size - 1);
        dict_release(dt);
    }
}

TEST_F(Dict, StartsEmptyWithItsStampsAt0) {
    const dict_t *dt = make(owning());
    EXPECT_EQ(keys(dt), "||||");
    EXPECT_EQ(dt->id_start, 0U);
    EXPECT_EQ(dt->id_clear, 0U);
}

TEST_F(Dict, CopiesTheHooksSoThatTheCallersTypeMayGo) {
    dict_types type = owning();
    dict_t *dt = dict_create(&type, 4);
    type = {};
    EXPECT_EQ(dt->type.hash_function, owning().hash_function);
    EXPECT_EQ(dt->type.key_dup, owning().key_dup);
    EXPECT_EQ(dt->type.val_dup, owning().val_dup);
    EXPECT_EQ(dt->type.key_compare, owning().key_compare);
    EXPECT_EQ(dt->type.key_destructor, owning().key_destructor);
    EXPECT_EQ(dt->type.val_destructor, owning().val_destructor);
    dict_release(dt);
}

TEST_F(Dict, NeedsAHashAndAComparison) {
    dict_types no_hash = owning();
    no_hash.hash_function = nullptr;
    EXPECT_EQ(dict_create(&no_hash, 4), nullptr);
    dict_types no_compare = owning();
    no_compare.key_compare = nullptr;
    EXPECT_EQ(dict_create(&no_compare, 4), nullptr);
    EXPECT_EQ(dict_create(nullptr, 4), nullptr);
}

TEST_F(Dict, AddsAnEntryAndReturnsIt) {
    dict_t *dt = make(pointing());
    char key[] = "a";
    char val[] = "x";
    const dict_entry *entry = dict_add(dt, key, val);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->key, key);
    EXPECT_EQ(entry->val, val);
    EXPECT_EQ(entry->id, 0U);
    EXPECT_EQ(dict_find(dt, "a"), entry);
    EXPECT_EQ(dt->used, 1U);
    EXPECT_EQ(dt->id_start, 1U);
}

TEST_F(Dict, HashesForTheSearchAndForThePlaceThenCopiesKeyAndValue) {
    dict_t *dt = make(owning());
    const dict_entry *entry = dict_add(dt, text("a"), text("x"));
    EXPECT_EQ(trace(), "h:a h:a K:a V:x ");
    EXPECT_EQ(letter(entry->key), 'A');
    EXPECT_EQ(letter(entry->val), 'X');
}

TEST_F(Dict, StoresACopyThatIsNullAsItIs) {
    dict_types type = pointing();
    type.val_dup = null_copy;
    dict_t *dt = make(type);
    const dict_entry *entry = dict_add(dt, text("a"), text("x"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->val, nullptr);
    EXPECT_EQ(dict_find(dt, "a"), entry);
}

TEST_F(Dict, TakesANullValueWithoutCopying) {
    dict_t *dt = make(pointing());
    ASSERT_NE(dict_add(dt, text("a"), nullptr), nullptr);
    EXPECT_EQ(dict_find(dt, "a")->val, nullptr);
}

TEST_F(Dict, PutsANewEntryAtTheHeadOfItsBucket) {
    EXPECT_EQ(keys(make(owning(), "aebim")), "miea|b|||");
}

TEST_F(Dict, RefusesAPresentKeyAndKeepsTheOldValue) {
    dict_t *dt = make(owning());
    (void)dict_add(dt, text("a"), text("x"));
    trace().clear();
    EXPECT_EQ(dict_add(dt, text("a"), text("y")), nullptr);
    EXPECT_EQ(trace(), "h:a c:aA ");
    EXPECT_EQ(letter(dict_find(dt, "a")->val), 'X');
    EXPECT_EQ(dt->used, 1U);
    EXPECT_EQ(dt->id_start, 1U);
}

TEST_F(Dict, FindsWithTheSearchedKeyFirstUpToTheMatch) {
    dict_t *dt = make(owning(), "aei");
    EXPECT_EQ(letter(dict_find(dt, "e")->key), 'E');
    EXPECT_EQ(trace(), "h:e c:eI c:eE ");
}

TEST_F(Dict, FindsNothingUnderAnAbsentKey) {
    dict_t *dt = make(owning(), "ab");
    EXPECT_EQ(dict_find(dt, "e"), nullptr);
    EXPECT_EQ(dict_find(dt, "c"), nullptr);
    EXPECT_EQ(trace(), "h:e c:eA h:c ");
}

TEST_F(Dict, DeletesWithTheStoredKeyFirstAndDestroysKeyThenValue) {
    dict_t *dt = make(owning(), "aei");
    EXPECT_EQ(dict_delete(dt, "e"), 1);
    EXPECT_EQ(trace(), "h:e c:Ie c:Ee k:E v:E ");
    EXPECT_EQ(keys(dt), "ia||||");
}

TEST_F(Dict, DeletesAnywhereInABucket) {
    const std::vector<std::pair<const char *, std::string>> rows = {
        {"i", "ea||||"}, {"e", "ia||||"}, {"a", "ie||||"}};
    for (const auto &[key, left] : rows) {
        dict_t *dt = dict_probe::create(pointing());
        add(dt, "aei");
        EXPECT_EQ(dict_delete(dt, key), 1);
        EXPECT_EQ(keys(dt), left);
        dict_release(dt);
    }
}

TEST_F(Dict, DeletesNothingUnderAnAbsentKey) {
    dict_t *dt = make(owning(), "a");
    EXPECT_EQ(dict_delete(dt, "e"), 0);
    EXPECT_EQ(dict_delete(dt, "b"), 0);
    EXPECT_EQ(trace(), "h:e c:Ae h:b ");
    EXPECT_EQ(keys(dt), "a||||");
}

TEST_F(Dict, ReplaceAddsANewKeyAndDestroysNothing) {
    dict_t *dt = make(owning());
    EXPECT_EQ(dict_replace(dt, text("a"), text("x")), 1);
    EXPECT_EQ(trace(), "h:a h:a h:a K:a V:x "); // its own search, the add's search, the add's place
    EXPECT_EQ(letter(dict_find(dt, "a")->val), 'X');
}

TEST_F(Dict, ReplaceStoresTheNewValueAndThenDestroysTheOld) {
    dict_t *dt = make(owning());
    const dict_entry *entry = dict_add(dt, text("a"), text("x"));
    const void *key = entry->key;
    trace().clear();
    EXPECT_EQ(dict_replace(dt, text("a"), text("y")), 0);
    EXPECT_EQ(trace(), "h:a c:aA V:y v:X ");
    EXPECT_EQ(letter(entry->val), 'Y');
    EXPECT_EQ(entry->key, key);
    EXPECT_EQ(dt->used, 1U);
    EXPECT_EQ(dt->id_start, 1U);
}

TEST_F(Dict, ReplacesAValueByItselfWhenItCopies) {
    dict_t *dt = make(owning(), "a");
    const dict_entry *entry = dict_find(dt, "a");
    EXPECT_EQ(dict_replace(dt, text("a"), entry->val), 0);
    EXPECT_EQ(letter(entry->val), 'A');
}

TEST_F(Dict, ReplaceStoresThePointerWithoutACopy) {
    dict_t *dt = make(pointing(), "a");
    char val[] = "x";
    EXPECT_EQ(dict_replace(dt, text("a"), val), 0);
    EXPECT_EQ(dict_find(dt, "a")->val, val);
}

TEST_F(Dict, GrowsFourfoldAtThe17thAddInto4Buckets) {
    dict_t *dt = make(owning(), "abcdefghijklmnop");
    EXPECT_EQ(dt->size, 4U);
    EXPECT_EQ(dt->used, 16U);
    add(dt, "q");
    EXPECT_EQ(dt->size, 16U);
    EXPECT_EQ(keys(dt), "qa|b|c|d|e|f|g|h|i|j|k|l|m|n|o|p|");
}

TEST_F(Dict, GrowsByUseAndNotByTheLengthOfABucket) {
    dict_t *dt = make(pointing(), "aeimquy");
    EXPECT_EQ(dt->size, 4U);
    EXPECT_EQ(keys(dt), "yuqmiea||||");
}

TEST_F(Dict, DoesNotGrowForAKeyThatIsPresent) {
    dict_t *dt = make(pointing(), "abcdefghijklmnop");
    EXPECT_EQ(dict_add(dt, text("a"), nullptr), nullptr);
    EXPECT_EQ(dict_replace(dt, text("a"), nullptr), 0);
    EXPECT_EQ(dt->size, 4U);
}

TEST_F(Dict, ExpandReversesTheOrderOfEntriesThatLandTogether) {
    dict_t *dt = make(owning(), "aeim");
    ASSERT_EQ(keys(dt), "miea||||");
    EXPECT_EQ(dict_expand(dt, 8), 0);
    EXPECT_EQ(keys(dt), "ai||||em||||");
    EXPECT_EQ(dict_expand(dt, 8), 0);
    EXPECT_EQ(keys(dt), "ia||||me||||");
}

TEST_F(Dict, ExpandHashesEachEntryOnceAndCallsNoOtherHook) {
    dict_t *dt = make(owning(), "aebi");
    trace().clear();
    EXPECT_EQ(dict_expand(dt, 16), 0);
    EXPECT_EQ(trace(), "h:I h:E h:A h:B ");
}

TEST_F(Dict, ExpandRoundsItsSizeAndMayShrinkBelowWhatIsThere) {
    dict_t *dt = make(owning(), "abcdefghi", 16);
    EXPECT_EQ(dict_expand(dt, 5), 0);
    EXPECT_EQ(keys(dt), "ia|b|c|d|e|f|g|h|");
    EXPECT_EQ(dict_expand(dt, 0), 0);
    EXPECT_EQ(keys(dt), "eai|fb|gc|hd|");
    EXPECT_EQ(letter(dict_find(dt, "i")->val), 'I');
}

TEST_F(Dict, ExpandKeepsStampsAndUse) {
    dict_t *dt = make(owning(), "abc");
    dict_mark_clear(dt);
    EXPECT_EQ(dict_expand(dt, 64), 0);
    EXPECT_EQ(dt->used, 3U);
    EXPECT_EQ(dt->id_start, 4U);
    EXPECT_EQ(dt->id_clear, 3U);
    EXPECT_EQ(dt->table[1]->id, 1U);
}

TEST_F(Dict, RefusesASizeAbove2To31) {
    dict_t *dt = make(owning(), "ab");
    for (const uint32_t size : {(1U << 31) + 1, UINT32_MAX}) {
        EXPECT_EQ(dict_probe::create(owning(), size), nullptr);
        EXPECT_EQ(dict_expand(dt, size), -1);
    }
    EXPECT_EQ(keys(dt), "a|b|||");
}

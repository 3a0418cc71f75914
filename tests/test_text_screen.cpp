// Lines and tables for terminals: what gives way when there is little room, and that nothing is ever too
// wide.
#include "text_screen.h"

#include "key_reader.h"
#include "number_text.h"

#include <gtest/gtest.h>

using vexa::key_kind;
using vexa::text_line;
using vexa::text_table;
using vexa::tone;

namespace {

text_table three_columns() {
    text_table table{.columns = {{.title = "NAME", .least = 4, .rank = 0},
                                 {.title = "RATE", .right = true, .rank = 1},
                                 {.title = "BARS", .keeps_end = true, .least = 3, .rank = 2}}};
    table.rows = {{{"detection"}, {"5.0"}, {"12345678"}}, {{"soa"}, {"1000.0"}, {"ab"}}};
    return table;
}

std::vector<std::string> plain(const std::vector<text_line> &lines) {
    std::vector<std::string> all;
    for (const text_line &line : lines) {
        all.push_back(line.plain());
    }
    return all;
}

using lines = std::vector<std::string>;

} // namespace

TEST(TextTable, ColumnsAreAsWideAsWhatIsInThem) {
    EXPECT_EQ(plain(lay_out(three_columns())),
              (lines{"NAME         RATE  BARS", "detection     5.0  12345678", "soa        1000.0  ab"}));
}

TEST(TextTable, TheHighestRankIsNarrowedFirstAndThenTheNext) {
    EXPECT_EQ(plain(lay_out(three_columns(), 23))[1], "detection     5.0  5678");
    EXPECT_EQ(plain(lay_out(three_columns(), 20))[1], "detect~     5.0  678");
}

TEST(TextTable, TheHighestRankIsLeftOutWhenNarrowingDoesNotDo) {
    EXPECT_EQ(plain(lay_out(three_columns(), 16)),
              (lines{"NAME        RATE", "detecti~     5.0", "soa       1000.0"}));
    EXPECT_EQ(plain(lay_out(three_columns(), 8)), (lines{"NAME", "detecti~", "soa"}));
}

TEST(TextTable, IsNeverWiderThanTheRoomWhereAColumnIsLeft) {
    for (size_t width = 4; width < 40; ++width) {
        for (const text_line &line : lay_out(three_columns(), width)) {
            EXPECT_LE(line.width(), width);
        }
    }
}

TEST(TextLine, IsCutAtItsWidthAndShowsIt) {
    text_line line("drops: ");
    line.add("soa(5) 12", tone::bad).add(" more");
    line.limit(12);
    EXPECT_EQ(line.plain(), "drops: soa(~");
    line.limit(0);
    EXPECT_EQ(line.plain(), "");
}

TEST(TextLine, CountsCharactersNotBytes) {
    EXPECT_EQ(vexa::width_of("▁▂█ a"), 5U);
    EXPECT_EQ(vexa::cut_to("▁▂█", 2, true), "▂█");
    EXPECT_EQ(vexa::cut_to("▁▂█", 2), "▁~");
}

TEST(TextLine, TonesAreSequencesAndEndWithTheirText) {
    text_line line("a ");
    line.add("b", tone::bad);
    EXPECT_EQ(line.ansi(), "a \x1b[1;31mb\x1b[0m");
    text_line bar("x", tone::bar);
    bar.fill(3);
    EXPECT_EQ(bar.ansi(), "\x1b[7mx\x1b[0m\x1b[7m  \x1b[0m");
}

TEST(NumberText, HasThreeDigitsOrSo) {
    EXPECT_EQ(vexa::rate_text(std::nullopt), "-");
    EXPECT_EQ(vexa::rate_text(0.25), "0.25");
    EXPECT_EQ(vexa::rate_text(9.999), "10.0");
    EXPECT_EQ(vexa::rate_text(99.96), "100");
    EXPECT_EQ(vexa::rate_text(5000), "5000");
    EXPECT_EQ(vexa::rate_text(1234567), "1.23M");
    EXPECT_EQ(vexa::bytes_text(999), "999");
    EXPECT_EQ(vexa::bytes_text(21'340), "21.3k");
    EXPECT_EQ(vexa::bytes_text(999'600), "1.00M");
    EXPECT_EQ(vexa::age_text(-5), "0.0 s");
    EXPECT_EQ(vexa::age_text(9'940'000'000), "9.9 s");
    EXPECT_EQ(vexa::age_text(42'000'000'000), "42 s");
    EXPECT_EQ(vexa::age_text(600'000'000'000), "10 min");
    EXPECT_EQ(vexa::age_text(7'200'000'000'000), "2 h");
}

TEST(NumberText, BarsAreAsHighAsTheNumbersBesideTheLargest) {
    EXPECT_EQ(vexa::bars_text({0, 1, 4, 8}, true), " ▁▃▇");
    EXPECT_EQ(vexa::bars_text({0, 1, 4, 8}, false), " .-#");
    EXPECT_EQ(vexa::bars_text({1, 100000}, true), "▁▇") << "whatever has come shows";
    EXPECT_EQ(vexa::bars_text({0, 0}, true), "  ");
    EXPECT_EQ(vexa::bars_text({}, true), "");
}

TEST(KeyReader, TakesLettersAndSequences) {
    vexa::key_reader keys;
    EXPECT_EQ(keys.take("q\x1b[A\x1bOB\x1b[6~\r\x7f\t\x15"), (std::vector<vexa::key>{{key_kind::text, 'q'},
                                                                                     {key_kind::up},
                                                                                     {key_kind::down},
                                                                                     {key_kind::page_down},
                                                                                     {key_kind::enter},
                                                                                     {key_kind::erase},
                                                                                     {key_kind::tab},
                                                                                     {key_kind::erase_all}}));
}

TEST(KeyReader, ASequenceMayComeInPieces) {
    vexa::key_reader keys;
    EXPECT_TRUE(keys.take("\x1b[").empty());
    EXPECT_TRUE(keys.take("5").empty());
    EXPECT_EQ(keys.take("~s"), (std::vector<vexa::key>{{key_kind::page_up}, {key_kind::text, 's'}}));
}

TEST(KeyReader, AnEscapeCharacterAloneIsTheKey) {
    vexa::key_reader keys;
    EXPECT_EQ(keys.take("\x1b"), std::vector<vexa::key>{{key_kind::escape}});
    EXPECT_EQ(keys.take("\x1b\x1b"), (std::vector<vexa::key>{{key_kind::escape}, {key_kind::escape}}));
}

TEST(KeyReader, LeavesOutWhatItDoesNotKnow) {
    vexa::key_reader keys;
    EXPECT_EQ(keys.take("\x1b[1;5C\x01\xc3\xa4x"), (std::vector<vexa::key>{{key_kind::text, 'x'}}));
}

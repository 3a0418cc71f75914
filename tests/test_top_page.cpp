// `vexa top` without a terminal: what its lines say, what the keys do, how it gives way to little room.
#include "top_page.h"

#include "route_datagrams.h"

#include <algorithm>
#include <gmock/gmock.h>

using bus::message;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vexa::key_kind;
using vexa::screen_size;

namespace {

constexpr screen_size k_usual{.columns = 120, .rows = 24};

/// Three flows: 9 to 1 ten times a second, 3 to 5 twice, 5 to 9 once with much.
vexa::top_numbers some_numbers() {
    static vexa::flow_table flows;
    if (flows.all().empty()) {
        for (int i = 0; i <= 40; ++i) {
            const double now = i / 10.0;
            flows.see(captured(message({1, 9, 1}, bus::bytes(100)), 9, 1).at(now));
            if (i % 5 == 0) {
                flows.see(captured(message({0, 3, 5}, bus::bytes{1, 0, 7}), 3, 5).at(now));
            }
            if (i % 10 == 0) {
                flows.see(captured(message({1, 5, 9}, bus::bytes(8000, 0xFF)), 5, 9).at(now));
            }
        }
    }
    const int64_t now_ns = captured::k_begin_ns + 4'010'000'000;
    vexa::top_numbers numbers{.source = "lo", .now_ns = now_ns};
    numbers.flows = rows_of(flows, now_ns, vexa::rates::now);
    numbers.sockets = {
        {.node_id = 5, .local = {0, 9005}, .drops = 40, .new_drops = 12, .holder = "PID 71 (soa)"},
        {.node_id = 9, .local = {0, 9009}}};
    numbers.capture = {.received = 500, .dropped = 3};
    return numbers;
}

class page {
public:
    explicit page(std::function<vexa::top_numbers()> now = some_numbers) : page_(std::move(now), {}) {
        page_.refresh();
    }
    bool press(const std::string &bytes) {
        const auto keys = vexa::key_reader{}.take(bytes);
        return std::ranges::all_of(keys, [&](const vexa::key &each) { return page_.press(each); });
    }
    void refresh() { page_.refresh(); }
    std::vector<std::string> lines(screen_size size = k_usual) {
        std::vector<std::string> all;
        for (const vexa::text_line &line : page_.draw(size)) {
            EXPECT_LE(line.width(), size.columns);
            all.push_back(line.plain());
        }
        EXPECT_LE(all.size(), size.rows);
        return all;
    }
    /// First words of the rows.
    std::vector<std::string> senders(screen_size size = k_usual) {
        std::vector<std::string> all;
        const auto whole = lines(size);
        for (size_t i = 3; i + 1 < whole.size() && !whole[i].empty(); ++i) {
            all.push_back(whole[i].substr(0, whole[i].find(' ')));
        }
        return all;
    }

private:
    vexa::top_page page_;
};

const std::string k_detection = "detection_tracking(9)";
const std::string k_vio = "vio(3)";
const std::string k_soa = "soa(5)";

} // namespace

TEST(TopPage, ShowsTotalsDropsAndFlowsTheFastestFirst) {
    page top;
    const auto lines = top.lines();
    ASSERT_EQ(lines.size(), 24U);
    EXPECT_THAT(lines[0], StartsWith(" vexa top  lo  "));
    EXPECT_THAT(lines[0], HasSubstr("  3 flows  13.0 messages/s  9.21k bytes/s"));
    EXPECT_EQ(lines[1], " drops: capture 3, sockets of 2 nodes 12: soa(5) 12");
    EXPECT_THAT(lines[2], StartsWith("FROM                   TO                     KIND       TYPE"));
    EXPECT_THAT(lines[3],
                StartsWith("detection_tracking(9)  vision_machine(1)      1 message  vision_state(0)"));
    EXPECT_THAT(lines[3], HasSubstr("  10.0    1.16k  0.0 s  "));
    EXPECT_THAT(lines[4], HasSubstr("0 status   vio_cfg(1)         2.00       38  0.0 s  "));
    EXPECT_THAT(lines[5], HasSubstr("1.00    8.02k  0.0 s  "));
    EXPECT_EQ(lines[23], " q quit  h help  s sort  r reverse  / filter  p pause  Tab sockets");
}

TEST(TopPage, ShowsBarsOfTheLastSecondsTheNewestAtTheRight) {
    page top;
    EXPECT_THAT(top.lines({.columns = 170, .rows = 24})[3],
                testing::EndsWith("  0.0 s  " + std::string(57, ' ') + "▇▇▇"));
}

TEST(TopPage, SortsByEachColumnAndReverses) {
    page top;
    EXPECT_THAT(top.senders(), ElementsAre(k_detection, k_vio, k_soa)) << "by rate";
    top.press("s");
    EXPECT_THAT(top.senders(), ElementsAre(k_soa, k_detection, k_vio)) << "by bytes";
    top.press("r");
    EXPECT_THAT(top.senders(), ElementsAre(k_vio, k_detection, k_soa)) << "by bytes, the least first";
    top.press("ss");
    EXPECT_THAT(top.senders(), ElementsAre(k_vio, k_soa, k_detection))
        << "by sender, in its usual order again";
    top.press(">");
    EXPECT_THAT(top.senders(), ElementsAre(k_detection, k_vio, k_soa)) << "by destination";
    top.press("<<");
    EXPECT_EQ(top.senders().size(), 3U) << "by the last column";
    top.press("\x1b[C\x1b[D");
    EXPECT_EQ(top.senders().size(), 3U);
}

TEST(TopPage, RatesThatDifferByLittleKeepTheirOrder) {
    auto numbers = some_numbers();
    const auto set = [&](size_t row, double rate) { numbers.flows[row].per_second = vexa::rate{rate, 0}; };
    set(0, 10.01);
    set(1, 9.99);
    set(2, 10.02);
    const auto calm = vexa::chosen(numbers.flows, {});
    EXPECT_EQ(calm[0].names.from, numbers.flows[0].names.from);
    EXPECT_EQ(calm[1].names.from, numbers.flows[1].names.from);
    set(1, 12);
    EXPECT_EQ(vexa::chosen(numbers.flows, {})[0].names.from, numbers.flows[1].names.from);
}

TEST(TopPage, AFilterIsTypedAndFollowedAtOnce) {
    page top;
    top.press("/from 9x");
    EXPECT_EQ(top.lines().back(), " filter: from 9x_");
    EXPECT_THAT(top.senders(), ElementsAre(k_detection)) << "of what made sense last";
    top.press("\x7f,3\r");
    EXPECT_THAT(top.senders(), ElementsAre(k_detection, k_vio));
    EXPECT_THAT(top.lines()[0], HasSubstr("2 of 3 flows  12.0 messages/s"));
    EXPECT_THAT(top.lines().back(), StartsWith(" filter: from 9,3  Esc all"));
    top.press("\x1b");
    EXPECT_EQ(top.senders().size(), 3U);
}

TEST(TopPage, EscDropsAFilterThatIsBeingTyped) {
    page top;
    top.press("/from 3\r/\x15"
              "from 5");
    EXPECT_THAT(top.senders(), ElementsAre(k_soa));
    top.press("\x1b");
    EXPECT_THAT(top.senders(), ElementsAre(k_vio)) << "the one before";
}

TEST(TopPage, ComplainsOfAFilterThatMakesNoSense) {
    page top;
    top.press("/form 9\r");
    EXPECT_THAT(top.lines()[1], HasSubstr("'form' is no condition"));
    EXPECT_EQ(top.lines().back(), " filter: form 9_");
    EXPECT_EQ(top.senders().size(), 3U);
    top.press("\x15"
              "from 9\r");
    EXPECT_THAT(top.lines()[1], StartsWith(" drops:"));
    EXPECT_THAT(top.senders(), ElementsAre(k_detection));
}

TEST(TopPage, LettersAreTextWhileAFilterIsTyped) {
    page top;
    EXPECT_TRUE(top.press("/q"));
    EXPECT_EQ(top.lines().back(), " filter: q_");
}

TEST(TopPage, APictureThatIsHeldStaysAsItIs) {
    auto numbers = some_numbers();
    page top([&] { return numbers; });
    top.press("p");
    numbers.flows.resize(1);
    top.refresh();
    EXPECT_EQ(top.senders().size(), 3U);
    EXPECT_THAT(top.lines()[0], StartsWith(" vexa top  PAUSED  "));
    top.press("s");
    EXPECT_EQ(top.senders()[0], k_soa) << "what is held can be sorted";
    top.press(" ");
    EXPECT_EQ(top.senders().size(), 1U);
    EXPECT_THAT(top.lines()[0], Not(HasSubstr("PAUSED")));
}

TEST(TopPage, TabShowsTheSocketsAndTheirDrops) {
    page top;
    top.press("\t");
    const auto lines = top.lines();
    EXPECT_EQ(lines[2], "NODE                   SOCKET        PROCESS       WAITING  DROPS  NEW  DROPS/s");
    EXPECT_EQ(lines[3], "soa(5)                 0.0.0.0:9005  PID 71 (soa)        0     40   12     0.00");
    EXPECT_THAT(lines[4], StartsWith(k_detection));
    top.press("\t");
    EXPECT_THAT(top.lines()[2], StartsWith("FROM"));
}

TEST(TopPage, HelpNamesEveryKeyAndGoesAway) {
    page top;
    top.press("?");
    const std::string all = testing::PrintToString(top.lines());
    for (const char *word :
         {"q, Ctrl-C", "sort", "reverse", "filter", "hold", "sockets", "scroll", "this help"}) {
        EXPECT_THAT(all, HasSubstr(word));
    }
    top.press("h");
    EXPECT_EQ(top.senders().size(), 3U);
}

TEST(TopPage, ScrollsNoFurtherThanTheLastRow) {
    constexpr screen_size two_rows{.columns = 120, .rows = 6};
    page top;
    EXPECT_EQ(top.senders(two_rows).size(), 2U);
    top.press("\x1b[B\x1b[B\x1b[B");
    EXPECT_THAT(top.senders(two_rows), ElementsAre(k_vio, k_soa));
    top.press("\x1b[A");
    EXPECT_THAT(top.senders(two_rows), ElementsAre(k_detection, k_vio))
        << "one back from the last, not from beyond";
    top.press("\x1b[F");
    EXPECT_THAT(top.senders(two_rows), ElementsAre(k_vio, k_soa));
    top.press("\x1b[5~");
    EXPECT_THAT(top.senders(two_rows), ElementsAre(k_detection, k_vio));
    top.press("\x1b[6~\x1b[H");
    EXPECT_THAT(top.senders(two_rows), ElementsAre(k_detection, k_vio));
}

TEST(TopPage, EndsWithQ) {
    page top;
    EXPECT_TRUE(top.press("xyz"));
    EXPECT_FALSE(top.press("q"));
}

TEST(TopPage, FitsEveryTerminal) {
    page top;
    for (const char *keys : {"", "\t", "h", "/from 9 or to 5 or kind 4 or family user"}) {
        top.press(keys);
        for (size_t columns = 1; columns < 200; columns += 1 + columns / 20) {
            for (const size_t rows : std::vector<size_t>{1, 2, 3, 4, 5, 6, 24, 100}) {
                (void)top.lines({.columns = columns, .rows = rows}); // which looks at every line
            }
        }
    }
}

TEST(TopPage, ANarrowTerminalHasWhoSendsHowFast) {
    page top;
    const auto lines = top.lines({.columns = 20, .rows = 5});
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[2], "FROM   TO     RATE/s");
    EXPECT_EQ(lines[3], "dete~  visi~    10.0");
}

TEST(TopText, HasTheSameRowsWithoutBarsAndTheSockets) {
    const std::string text = top_text(some_numbers(), {});
    EXPECT_THAT(
        text, StartsWith("FROM                   TO                     KIND       TYPE             RATE/s  "
                         "BYTES/s   LAST\ndetection_tracking(9)  "));
    EXPECT_THAT(text, HasSubstr("\n\nNODE                   SOCKET"));
    EXPECT_THAT(text, Not(HasSubstr("▇")));
}

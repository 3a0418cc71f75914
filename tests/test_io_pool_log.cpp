// The two throttled lines of the receive queue: events 1, 102, 203 and so on.
#include "io_pool.h"

#include "log_lines.h"
#include "pool_probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using pool_probe::ask;
using pool_probe::status;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char k_overwrite[] = "CPY msg_type=%d,size=%d \n";
constexpr char k_visit[] = "GET msg type %d len %u\n";

class PoolLog : public pool_probe::Pool {};

/// Does something a number of times and tells after which of them a line of this format was added.
template <class Event>
std::vector<int> logged_after(const char *format, int events, Event event) {
    std::vector<int> numbers;
    for (int i = 1; i <= events; ++i) {
        const size_t before = logs::count(format);
        event();
        if (logs::count(format) != before) {
            numbers.push_back(i);
        }
    }
    return numbers;
}

} // namespace

TEST_F(PoolLog, HasTheFirstOverwriteAndThenEvery101st) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_THAT(logged_after(k_overwrite, 250, [] { (void)io_pool_rx_put(status(6, 10)); }),
                ElementsAre(1, 102, 203));
}

TEST_F(PoolLog, ShowsKeyAndNewLengthOfAnOverwrite) {
    ASSERT_EQ(io_pool_rx_put(status(0xFFFE, 10)), 0);
    ASSERT_EQ(io_pool_rx_put(status(0xFFFE, 7)), 0);
    EXPECT_THAT(logs::lines(), ElementsAre("INFO src/io_pool io_pool_rx_put: CPY msg_type=65534,size=7 \n"));
    EXPECT_EQ(logs::count(k_overwrite), 1U);
}

TEST_F(PoolLog, ShowsTheOverwriteThatIsLoggedAndNotTheFirst) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    for (int i = 0; i < 101; ++i) {
        ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    }
    ASSERT_EQ(io_pool_rx_put(status(7, 10)), 0);
    logs::clear();
    for (int i = 0; i < 101; ++i) {
        ASSERT_EQ(io_pool_rx_put(status(7, 9)), 0);
    }
    EXPECT_THAT(logs::lines(), ElementsAre("INFO src/io_pool io_pool_rx_put: CPY msg_type=7,size=9 \n"));
}

TEST_F(PoolLog, TakesOnlyOverwritesInPlaceForEvents) {
    for (size_t size = 4; size < 8; ++size) {
        ASSERT_EQ(io_pool_rx_put(status(6, size)), 0); // new, then longer each time
        ASSERT_EQ(io_pool_rx_put(status(static_cast<unsigned>(size + 10), 4)), 0);
    }
    EXPECT_THAT(logs::lines_of(k_overwrite), IsEmpty());
    ASSERT_EQ(io_pool_rx_put(status(6, 7)), 0);
    EXPECT_EQ(logs::count(k_overwrite), 1U);
}

TEST_F(PoolLog, HasTheFirstVisitAndThenEvery101st) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_THAT(logged_after(k_visit, 250, [] { (void)ask(6); }), ElementsAre(1, 102, 203));
}

TEST_F(PoolLog, CountsEveryQueuedMessageThatASearchVisits) {
    for (unsigned key = 0; key < 10; ++key) {
        ASSERT_EQ(io_pool_rx_put(status(key, 10 + key)), 0);
    }
    // Ten visits each, so that visits 102 and 203 are the second of search 11 and the third of search 21.
    EXPECT_THAT(logged_after(k_visit, 25, [] { (void)ask(0x1234); }), ElementsAre(1, 11, 21));
    EXPECT_THAT(logs::lines(), ElementsAre("INFO src/io_pool io_pool_rx_get: GET msg type 0 len 10\n",
                                           "INFO src/io_pool io_pool_rx_get: GET msg type 1 len 11\n",
                                           "INFO src/io_pool io_pool_rx_get: GET msg type 2 len 12\n"));
    EXPECT_EQ(logs::count(k_visit), 3U);
}

TEST_F(PoolLog, CountsNoVisitBehindTheMatch) {
    for (unsigned key = 0; key < 10; ++key) {
        ASSERT_EQ(io_pool_rx_put(status(key, 10)), 0);
    }
    EXPECT_THAT(logged_after(k_visit, 150, [] { (void)ask(0); }), ElementsAre(1, 102));
}

TEST_F(PoolLog, HasAVisitBeforeTheKeysAreCompared) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    pool_probe::matched().clear();
    std::vector<size_t> compared_before;
    logs::on_line([&](const logs::line &) { compared_before.push_back(pool_probe::matched().size()); });
    EXPECT_EQ(ask(6).len, 10);
    logs::on_line({});
    EXPECT_THAT(compared_before, ElementsAre(0U));
}

TEST_F(PoolLog, CountsNoVisitInAnEmptyQueue) {
    for (int i = 0; i < 200; ++i) {
        (void)ask(6);
    }
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_THAT(logged_after(k_visit, 1, [] { (void)ask(6); }), ElementsAre(1));
}

TEST_F(PoolLog, CountsOverwritesAndVisitsApart) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    for (int i = 0; i < 50; ++i) {
        (void)ask(6);
    }
    EXPECT_THAT(logged_after(k_overwrite, 110, [] { (void)io_pool_rx_put(status(6, 10)); }),
                ElementsAre(1, 102));
}

TEST_F(PoolLog, GoesOnCountingAfterAStop) {
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    for (int i = 0; i < 10; ++i) {
        (void)ask(6);
    }
    io_pool_deinit();
    ASSERT_EQ(io_pool_init(pool_probe::same_key), 0);
    ASSERT_EQ(io_pool_rx_put(status(6, 10)), 0);
    EXPECT_THAT(logged_after(k_visit, 100, [] { (void)ask(6); }), ElementsAre(92)); // visit 102
}

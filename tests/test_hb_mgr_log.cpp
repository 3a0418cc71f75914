// The heartbeat's log lines: one per change of a field's value as it was given.
#include "hb_mgr.h"

#include "hb_rows.h"
#include "log_lines.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char k_prefix[] = "INFO src/hb_mgr hbmgr_set_hb: ";

void set_field(HeartBeatField field, int value) {
    const HeartBeatPair pair = {field, value};
    ASSERT_EQ(hbmgr_set_hb(&pair, 1), 0);
}

/// The line for a field: the text up to "0x%0x" and the number in hexadecimal.
std::string line_of(const hb_rows::row &row, const std::string &hex) {
    const std::string format = row.format;
    const size_t number = format.find("%0x");
    return k_prefix + format.substr(0, number) + hex + "\n";
}

std::vector<std::string> logged_by(HeartBeatField field, int value) {
    logs::clear();
    set_field(field, value);
    return logs::lines();
}

} // namespace

TEST(HeartbeatLog, HasALineOfItsOwnForEachFieldAtInfo) {
    for (const hb_rows::row &row : hb_rows::all) {
        EXPECT_THAT(logged_by(row.field, 0x1B), ElementsAre(line_of(row, "1b"))) << row.number;
        EXPECT_EQ(logs::count(row.format), 1U) << row.number;
    }
}

TEST(HeartbeatLog, ShowsTheValueBeforeItIsCut) {
    for (const hb_rows::row &row : hb_rows::all) {
        EXPECT_THAT(logged_by(row.field, 0x12345678), ElementsAre(line_of(row, "12345678"))) << row.number;
        EXPECT_THAT(logged_by(row.field, -1), ElementsAre(line_of(row, "ffffffff"))) << row.number;
    }
}

TEST(HeartbeatLog, HasAFieldsFirstValueAlsoWhenItIsZero) {
    for (const hb_rows::row &row : hb_rows::all) {
        EXPECT_THAT(logged_by(row.field, 0), ElementsAre(line_of(row, "0"))) << row.number;
    }
}

TEST(HeartbeatLog, HasEveryChangeOfAFieldAndNoRepetition) {
    for (const hb_rows::row &row : hb_rows::all) {
        logs::clear();
        for (const int value : {0, 0, 5, 5, 5, 0, 0, 6}) {
            set_field(row.field, value);
        }
        EXPECT_THAT(logs::lines(),
                    ElementsAre(line_of(row, "0"), line_of(row, "5"), line_of(row, "0"), line_of(row, "6")))
            << row.number;
    }
}

TEST(HeartbeatLog, ComparesAllBitsOfAValue) {
    for (const hb_rows::row &row : hb_rows::all) {
        logs::clear();
        for (const int value : {5, 0x105, 0x105, INT_MIN + 0x105, INT_MIN + 0x105, 5}) {
            set_field(row.field, value);
        }
        EXPECT_THAT(logs::lines(), ElementsAre(line_of(row, "5"), line_of(row, "105"),
                                               line_of(row, "80000105"), line_of(row, "5")))
            << row.number;
    }
}

TEST(HeartbeatLog, StaysSilentHoweverOftenAValueIsRepeated) {
    set_field(VIO_MODE, 2);
    logs::clear();
    for (int i = 0; i < 300; ++i) {
        set_field(VIO_MODE, 2);
    }
    EXPECT_THAT(logs::lines(), IsEmpty());
}

TEST(HeartbeatLog, ShowsAChangeOfBitsThatTheFrameDoesNotKeep) {
    set_field(LED, 5);
    VPHeartbeatFrame before;
    VPHeartbeatFrame after;
    hbmgr_get_hb(&before);
    EXPECT_THAT(logged_by(LED, 13), ElementsAre("INFO src/hb_mgr hbmgr_set_hb: LED:value 0xd\n"));
    hbmgr_get_hb(&after);
    EXPECT_EQ(hb_rows::to_bytes(before), hb_rows::to_bytes(after));
}

TEST(HeartbeatLog, KeepsFieldsWithTheSameTextApart) {
    set_field(SELF_CALIB_MODE, 4);
    EXPECT_THAT(logged_by(SELF_CALIB_RATE, 4),
                ElementsAre(std::string(k_prefix) + "SELF_CALIB_MODE:value 0x4\n"));
    EXPECT_THAT(logged_by(SELF_CALIB_MODE, 4), IsEmpty());
}

TEST(HeartbeatLog, KeepsFieldsWithTheSameBitsApart) {
    set_field(GIMBAL_CALIB_THERM, 1);
    EXPECT_THAT(logged_by(GIMBAL_CAMERA_THERM, 1),
                ElementsAre(std::string(k_prefix) + "GIMBAL_CAMERA_THERM:value 0x1\n"));
}

TEST(HeartbeatLog, IsWrittenInTheOrderOfThePairs) {
    const HeartBeatPair pairs[] = {
        {ENABLE_OMNI_SOA, 1}, {static_cast<HeartBeatField>(73), 1}, {OVERHEART, 0}};
    EXPECT_EQ(hbmgr_set_hb(pairs, 3), 0);
    EXPECT_THAT(logs::lines(), ElementsAre(std::string(k_prefix) + "ENABLE_OMNI_RADAR:value 0x1\n",
                                           std::string(k_prefix) + "set heartbeat, 73 is a invalid field\n",
                                           std::string(k_prefix) + "overheat:value 0x0\n"));
}

TEST(HeartbeatLog, NamesEveryUnknownFieldEachTime) {
    struct {
        int field;
        const char *text;
    } const rows[] = {{73, "73"}, {-1, "-1"}, {74, "74"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto &row : rows) {
        logs::clear();
        set_field(static_cast<HeartBeatField>(row.field), 1);
        set_field(static_cast<HeartBeatField>(row.field), 1);
        const std::string line =
            std::string(k_prefix) + "set heartbeat, " + row.text + " is a invalid field\n";
        EXPECT_THAT(logs::lines(), ElementsAre(line, line));
        EXPECT_EQ(logs::count("set heartbeat, %d is a invalid field\n"), 2U);
    }
}

TEST(HeartbeatLog, IsWrittenWhileTheFrameIsLocked) {
    std::vector<int> trials;
    logs::on_line([&](const logs::line &) { trials.push_back(pthread_mutex_trylock(&hb_mutex)); });
    const HeartBeatPair pairs[] = {{LED, 1}, {static_cast<HeartBeatField>(-1), 1}, {WORK_MODE, 2}};
    EXPECT_EQ(hbmgr_set_hb(pairs, 3), 0);
    logs::on_line({});
    EXPECT_THAT(trials, ElementsAre(EBUSY, EBUSY, EBUSY));
}

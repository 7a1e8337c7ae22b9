#include <gtest/gtest.h>
#include <sstream>

#include "statistics/occupancy_records.h"
#include "test_clock.h"

namespace {

using Fields = std::vector<std::string>;

TEST(RecordText, IsTheFieldsJoinedByCommas) {
    const char* const date = "2024-01-02 03:04:05";
    EXPECT_EQ(CrowdCountRecord(date, "Cam", aoi::aoi2, objects::car, 4).serialize(), "2024-01-02 03:04:05,Cam,1,2,4");
    EXPECT_EQ(EntranceActivityRecord(date, "Cam", entrance::entrance3, objects::boat, 5, -6).serialize(),
              "2024-01-02 03:04:05,Cam,2,8,5,-6");
    EXPECT_EQ(OccupancyObjectRecord(date, "Cam", objects::person, 7).serialize(), "2024-01-02 03:04:05,Cam,0,7");
    EXPECT_EQ(OccupancyRecord(date, 1, 2, 3, 4, 5, 6).serialize(), "2024-01-02 03:04:05,1,2,3,4,5,6");
    EXPECT_EQ(CrowdCountRecord("", "a,b", aoi::unknown, objects::unknown, 0).serialize(), ",a,b,100,100,0");
}

TEST(RecordText, HasAHeader) {
    EXPECT_STREQ(CrowdCountRecord::getCSVHeader(), "Date,Camera Name,AOI,Object,Count");
    EXPECT_STREQ(EntranceActivityRecord::getCSVHeader(), "Date,Camera Name,Entrance,Object,EntranceCount,ExitCount");
    EXPECT_STREQ(OccupancyObjectRecord::getCSVHeader(), "Date,Camera Name,Object,Count");
    EXPECT_STREQ(OccupancyRecord::getCSVHeader(), "Date,Occupancy,AOI1,AOI2,AOI3,Total Occupancy,Total AOI");
}

TEST(RecordText, SplitsAtEveryComma) {
    const struct {
        const char* label;
        std::string line;
        Fields fields;
    } cases[] = {
        {"empty line", "", {""}},
        {"two fields", "a,b", {"a", "b"}},
        {"comma at the end", "a,", {"a", ""}},
        {"only commas", ",,", {"", "", ""}},
        {"spaces stay", " a , b", {" a ", " b"}},
        {"a byte of value zero stays", std::string("a\0b,c", 5), {std::string("a\0b", 3), "c"}},
        {"carriage return stays", "a,b\r", {"a", "b\r"}},
    };
    for (const auto& [label, line, fields] : cases) {
        EXPECT_EQ(OccupancyRecordBase::stringToFields(line), fields) << label;
    }
}

TEST(RecordText, IsReadIntoARecord) {
    CrowdCountRecord crowd;
    EXPECT_TRUE(crowd.deserialize("any text,Cam,7,12,+4"));
    EXPECT_EQ(crowd.serialize(), "any text,Cam,100,100,4");
    EXPECT_TRUE(crowd.deserialize("d,Cam,2,8,-2147483648\r"));
    EXPECT_EQ(crowd.serialize(), "d,Cam,2,8,-2147483648");
    EntranceActivityRecord activity;
    EXPECT_TRUE(activity.deserialize("d,Cam,-1,9,1,2"));
    EXPECT_EQ(activity.serialize(), "d,Cam,100,100,1,2");
    OccupancyObjectRecord occupant;
    EXPECT_TRUE(occupant.deserialize("d,Cam, 3,12tail"));
    EXPECT_EQ(occupant.serialize(), "d,Cam,3,12");
    OccupancyRecord totals;
    EXPECT_TRUE(totals.deserialize("d,6,5,4,3,2,1"));
    EXPECT_EQ(totals.serialize(), "d,6,5,4,3,2,1");
}

TEST(RecordText, OfAnotherWidthLeavesTheRecord) {
    for (const char* line : {"", "a", "a,b,c", "a,b,c,d,e,f,g,h"}) {
        CrowdCountRecord crowd("date", "Cam", aoi::aoi1, objects::bus, 3);
        EXPECT_FALSE(crowd.deserialize(line)) << line;
        EXPECT_EQ(crowd.serialize(), "date,Cam,0,5,3") << line;
        OccupancyObjectRecord occupant("date", "Cam", objects::bus, 3);
        EXPECT_FALSE(occupant.deserialize(line)) << line;
        EXPECT_EQ(occupant.serialize(), "date,Cam,5,3") << line;
        OccupancyRecord totals("date", 1, 2, 3, 4, 5, 6);
        EXPECT_FALSE(totals.deserialize(line)) << line;
        EXPECT_EQ(totals.serialize(), "date,1,2,3,4,5,6") << line;
    }
    EntranceActivityRecord activity("date", "Cam", entrance::entrance1, objects::bus, 3, 4);
    EXPECT_FALSE(activity.deserialize("d,Cam,1,2,3"));
    EXPECT_EQ(activity.serialize(), "date,Cam,0,5,3,4");
}

TEST(RecordText, WithWordsForNumbersThrowsAndKeepsWhatWasRead) {
    CrowdCountRecord crowd;
    EXPECT_THROW(crowd.deserialize("d,Cam,two,2,4"), std::invalid_argument);
    EXPECT_EQ(crowd.dateTime, "d");
    EXPECT_EQ(crowd.cameraName, "Cam");
    EXPECT_EQ(crowd.aoi, aoi::unknown);
    EXPECT_THROW(crowd.deserialize("e,Cam,1,2,2147483648"), std::out_of_range);
    EXPECT_EQ(crowd.serialize(), "e,Cam,1,2,0");
    EXPECT_THROW(EntranceActivityRecord().deserialize("d,Cam,0,0,1,"), std::invalid_argument);
    EXPECT_THROW(OccupancyObjectRecord().deserialize("d,Cam,0,-"), std::invalid_argument);
    EXPECT_THROW(OccupancyRecord().deserialize("d,1,2,3,4,5,x"), std::invalid_argument);
}

TEST(RecordIndices, OutsideTheirRangeAreUnknown) {
    for (const int index : {-2147483647, -1, 9, 100}) {
        EXPECT_EQ(indexToObject(index), objects::unknown) << index;
    }
    for (const int index : {-1, 3, 100}) {
        EXPECT_EQ(indexToArea(index), aoi::unknown) << index;
        EXPECT_EQ(indexToEntrance(index), entrance::unknown) << index;
    }
    EXPECT_EQ(indexToArea(2), aoi::aoi3);
    EXPECT_EQ(indexToEntrance(0), entrance::entrance1);
    EXPECT_EQ(indexToObject(8), objects::boat);
}

TEST(Monitored, IsWhatTheSettingsSwitchOn) {
    ConfigParams config;
    bool* const classes[] = {&config.b_DetectPersons,     &config.b_DetectBicycles,  &config.b_DetectCars,
                             &config.b_DetectMotorcycles, &config.b_DetectAirplanes, &config.b_DetectBuses,
                             &config.b_DetectTrains,      &config.b_DetectTrucks,    &config.b_DetectBoats};
    bool* const areas[] = {&config.b_Detection1Active, &config.b_Detection2Active, &config.b_Detection3Active};
    bool* const zones[] = {&config.b_Occupancy1Active, &config.b_Occupancy2Active, &config.b_Occupancy3Active};
    for (int on = 0; on < 9; ++on) {
        for (int i = 0; i < 9; ++i) {
            *classes[i] = i == on;
        }
        for (int i = -1; i < 11; ++i) {
            EXPECT_EQ(isObjectClassMonitored(config, i), i == on) << on << ' ' << i;
        }
    }
    for (int on = 0; on < 3; ++on) {
        for (int i = 0; i < 3; ++i) {
            *areas[i] = *zones[2 - i] = i == on;
        }
        for (int i = -1; i < 4; ++i) {
            EXPECT_EQ(isAreaMonitored(config, i), i == on) << on << ' ' << i;
            EXPECT_EQ(isEntranceMonitored(config, i), i == 2 - on) << on << ' ' << i;
        }
    }
}

TEST(Follower, IsCallableUnlessStoppedOrWithoutAnswer) {
    LeaderMetricsParams leader;
    for (int status = 0; status <= 1000; status += 50) {
        leader.followerStatus[4] = status;
        EXPECT_EQ(isCameraCallable(leader, 4), status != 300 && status != 700) << status;
        EXPECT_TRUE(isCameraCallable(leader, 5)) << status;
    }
}

TEST(RecordDate, IsLocalTime) {
    const struct {
        const char* zone;
        time_t moment;
        const char* text;
    } cases[] = {
        {"UTC0", 0, "1970-01-01 00:00:00"},
        {"UTC0", 2147483648, "2038-01-19 03:14:08"},
        {"UTC0", 4102444800, "2100-01-01 00:00:00"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1711846799, "2024-03-31 01:59:59"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1711846800, "2024-03-31 03:00:00"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1729990799, "2024-10-27 02:59:59"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1729990800, "2024-10-27 02:00:00"},
        {"EST5EDT,M3.2.0,M11.1.0", 1710054000, "2024-03-10 03:00:00"},
        {"IST-5:30", 0, "1970-01-01 05:30:00"},
        {"NPT-5:45", 0, "1970-01-01 05:45:00"},
        {"NZST-12NZDT,M9.5.0,M4.1.0/3", 1704067200, "2024-01-01 13:00:00"},
    };
    for (const auto& [zone, moment, text] : cases) {
        const TimeZone inZone(zone);
        EXPECT_EQ(OccupancyRecordBase::timeToString(moment), text) << zone;
        const TestClock clock(moment);
        EXPECT_EQ(OccupancyRecordBase::getCurrentDateTime(), text) << zone;
        EXPECT_EQ(CrowdCountRecord().dateTime, text) << zone;
        EXPECT_EQ(ptrToDateTime(nullptr), text) << zone;
    }
    EXPECT_EQ(ptrToDateTime("as given"), "as given");
}

TEST(RecordDate, OfASummersDayReadsBackAnHourOff) {
    const struct {
        const char* label;
        const char* zone;
        const char* text;
        time_t moment;
    } cases[] = {
        {"no daylight saving", "UTC0", "2024-07-01 12:00:00", 1719835200},
        {"winter", "CET-1CEST,M3.5.0,M10.5.0/3", "2024-01-01 12:00:00", 1704106800},
        // 12:00 of summer time is 10:00 UTC; taken as winter time it is 11:00.
        {"summer", "CET-1CEST,M3.5.0,M10.5.0/3", "2024-07-01 12:00:00", 1719831600},
        {"beyond 2038", "UTC0", "2100-01-01 00:00:00", 4102444800},
        {"no date", "UTC0", "yesterday", 0},
        {"empty", "UTC0", "", 0},
        {"month 13", "UTC0", "2024-13-01 00:00:00", 0},
        {"half a time", "UTC0", "2024-07-01 12:30", 0},
        // The stream's parser is content when the text ends between two fields: a day stands for its midnight.
        {"no time", "UTC0", "2024-07-01", 1719792000},
        {"more than a time", "UTC0", "2024-07-01 12:00:00 noon", 1719835200},
    };
    for (const auto& [label, zone, text, moment] : cases) {
        const TimeZone inZone(zone);
        EXPECT_EQ(OccupancyRecordBase::stringToTime(text), moment) << label;
    }
}

TEST(RecordDate, OrdersRecords) {
    const TimeZone utc("UTC0");
    const CrowdCountRecord unreadable("never", "", aoi::aoi1, objects::car, 0);
    const OccupancyObjectRecord early("2024-01-01 00:00:00", "", objects::car, 0);
    const OccupancyObjectRecord late("2024-01-01 00:00:01", "", objects::car, 0);
    EXPECT_TRUE(unreadable < early);
    EXPECT_TRUE(early < late);
    EXPECT_FALSE(late < early);
    EXPECT_FALSE(early < early);
    EXPECT_TRUE(OccupancyRecord(time_t{5}, 0, 0, 0, 0, 0, 0) < OccupancyRecord(time_t{6}, 0, 0, 0, 0, 0, 0));
}

TEST(OccupancyTotals, HaveABinaryForm) {
    const TimeZone utc("UTC0");
    const TestClock clock(1704067200);
    std::stringstream bytes;
    EXPECT_TRUE(OccupancyRecord(1, 2, 3, 4, 5, -6).write(bytes));
    EXPECT_EQ(bytes.str().size(), 28U);
    OccupancyRecord back;
    EXPECT_EQ(back.serialize(), ",0,0,0,0,0,0");
    EXPECT_TRUE(back.read(bytes));
    EXPECT_EQ(back.serialize(), "2024-01-01 00:00:00,1,2,3,4,5,-6");
    std::stringstream later;
    OccupancyRecord(time_t{4102444800}, 0, 0, 0, 0, 0, 0).write(later);
    EXPECT_TRUE(back.read(later));
    EXPECT_EQ(back.dateTime, "2100-01-01 00:00:00");
}

}  // namespace

#include "ledger/counts.h"

#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "failing_power.h"

namespace ledger {
namespace {

constexpr int64_t kMinute = 60'000;

/** A disk that lets the test do something whenever it is read. */
class InterruptedDisk : public FailingPower {
public:
    using FailingPower::FailingPower;

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        if (onRead) {
            onRead();
        }
        return FailingPower::read(name, from, most);
    }

    std::vector<std::string> list() override {
        ++lists;
        return FailingPower::list();
    }

    bool replace(const std::string& name, std::string_view content) override {
        const bool isDone = FailingPower::replace(name, content);
        if (onReplaced) {
            onReplaced();
        }
        return isDone;
    }

    std::function<void()> onRead;
    std::function<void()> onReplaced;
    int lists = 0;
};

/** A ledger to count, whose clock the test moves. */
class Book {
public:
    explicit Book(int64_t mostBytes = int64_t{1} << 30) : m_mostBytes(mostBytes) { start(); }

    void start() {
        m_ledger = std::make_unique<Ledger>(
            disk, LedgerOptions{m_mostBytes, [this] { return now; }, [] { return std::string("epoch"); }});
        m_ledger->open();
        index = std::make_unique<Index>(disk, *m_ledger);
    }

    void cross(const std::string& utc, int entrance = 1, const char* direction = "in", const char* object = "Person") {
        now = {*utcOf(utc), "", 0};
        m_ledger->append("crossing", {{"entrance", entrance}, {"direction", direction}, {"class", object}});
    }

    /** A minute that was watched for so many seconds. */
    void watch(const std::string& minute, double seconds = 60) {
        now = {*utcOf(minute) + kMinute, "", 0};
        m_ledger->append("watched", {{"minute", minute}, {"seconds", seconds}});
    }

    Ledger& ledger() { return *m_ledger; }

    std::vector<CountsRow> count(const std::string& from, const std::string& until, Step step, CountsBy by = {},
                                 const std::string& zone = "UTC") {
        while (!index->update(1000)) {
        }
        return countsOf(*index, {momentOf(from, zone), momentOf(until, zone), step, by, zone});
    }

    InterruptedDisk disk{1};
    Moment now;
    std::unique_ptr<Index> index;

private:
    const int64_t m_mostBytes;
    std::unique_ptr<Ledger> m_ledger;
};

int64_t sumOf(const CountsRow& row) {
    int64_t sum = 0;
    for (const auto& [key, count] : row.counts) {
        sum += count;
    }
    return sum;
}

TEST(LedgerCounts, TellsDirectionsEntrancesAndClassesApart) {
    Book book;
    book.cross("2026-11-22T08:00:00.000Z", 1, "in");
    book.cross("2026-11-22T08:10:00.000Z", 1, "in", "Car");
    book.cross("2026-11-22T08:59:59.999Z", 2, "out");
    book.cross("2026-11-22T09:00:00.000Z", 1, "in");
    const auto rows = book.count("2026-11-22T08:00:00", "2026-11-22T10:00:00", Step::Hour, {true, true, true});
    ASSERT_EQ(rows.size(), 2U);
    const std::map<Count, int64_t> first = {{{1, true, 0}, 1}, {{1, true, 2}, 1}, {{2, false, 0}, 1}};
    EXPECT_EQ(rows[0].counts, first);
    EXPECT_EQ(sumOf(rows[1]), 1);
    const auto all = book.count("2026-11-22T08:00:00", "2026-11-22T10:00:00", Step::Day, {false, false, false});
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].counts, (std::map<Count, int64_t>{{{}, 4}}));
}

TEST(LedgerCounts, TellsHowMuchWasWatched) {
    Book book;
    for (int minute = 10; minute < 40; ++minute) {
        book.watch("2026-11-22T08:" + std::to_string(minute) + ":00.000Z", minute < 20 ? 30 : 60);
    }
    const auto rows = book.count("2026-11-22T08:00:00", "2026-11-22T10:00:00", Step::Hour);
    EXPECT_NEAR(rows[0].coverage, 25.0 / 60, 1e-9);
    EXPECT_EQ(rows[1].coverage, 0);
}

/** All that an index tells at this moment. */
int64_t sumOf(const Index& index) {
    int64_t sum = 0;
    for (const auto& [number, quarter] : index.quarters(0, std::numeric_limits<int64_t>::max())) {
        for (const auto& [key, count] : quarter.crossings) {
            sum += count;
        }
    }
    return sum;
}

struct Night {
    const char* name;
    const char* zone;
    const char* from;
    const char* until;
    Step step;
    std::vector<int64_t> quarters; /**< of each row */
    const char* second;            /**< how the second row begins */
};

TEST(LedgerCounts, HasHoursAndDaysAsTheZoneHasThem) {
    const Night nights[] = {
        {"clocks go back", "Europe/Berlin", "2026-10-25", "2026-10-26", Step::Day, {100}, nullptr},
        {"clocks go forward",
         "Europe/Berlin",
         "2026-03-28",
         "2026-03-30",
         Step::Day,
         {96, 92},
         "2026-03-29T00:00:00+01:00"},
        {"midnight comes twice",
         "Atlantic/Azores",
         "2026-10-24",
         "2026-10-26",
         Step::Day,
         {96, 100},
         "2026-10-25T00:00:00+00:00"},
        {"the day whose midnight comes twice",
         "Atlantic/Azores",
         "2026-10-25",
         "2026-10-26",
         Step::Day,
         {100},
         nullptr},
        {"the hour that comes twice",
         "Europe/Berlin",
         "2026-10-25T02:00:00+02:00",
         "2026-10-25T04:00:00+01:00",
         Step::Hour,
         {4, 4, 4},
         "2026-10-25T02:00:00+01:00"},
        {"half an hour back",
         "Australia/Lord_Howe",
         "2026-04-05T00:00:00",
         "2026-04-05T03:00:00",
         Step::Hour,
         {4, 6, 4},
         "2026-04-05T01:00:00+11:00"},
        {"a zone off by half an hour", "Asia/Kolkata", "2026-11-22", "2026-11-23", Step::Day, {96}, nullptr},
        {"a week from Wednesday",
         "Europe/Berlin",
         "2026-11-25",
         "2026-12-02",
         Step::Week,
         {5 * 96, 2 * 96},
         "2026-11-30T00:00:00+01:00"},
        {"months",
         "Europe/Berlin",
         "2026-03-01",
         "2026-05-01",
         Step::Month,
         {31 * 96 - 4, 30 * 96},
         "2026-04-01T00:00:00+02:00"},
        {"a year's end", "UTC", "2027-12-31", "2028-02-01", Step::Year, {96, 31 * 96}, "2028-01-01T00:00:00+00:00"},
        {"months with ends that others lack",
         "UTC",
         "2026-01-31",
         "2026-03-01",
         Step::Month,
         {96, 28 * 96},
         "2026-02-01T00:00:00+00:00"},
    };
    for (const Night& night : nights) {
        Book book;
        const auto rows = book.count(night.from, night.until, night.step, {}, night.zone);
        std::vector<int64_t> quarters;
        for (const CountsRow& row : rows) {
            quarters.push_back((row.end - row.begin) / kQuarterMillis);
        }
        EXPECT_EQ(quarters, night.quarters) << night.name;
        if (night.second != nullptr && rows.size() > 1) {
            EXPECT_EQ(rows[1].beginText, night.second) << night.name;
        }
    }
}

TEST(LedgerCounts, IsTheSameAfterARestartWithAndWithoutItsFiles) {
    Book book;
    for (int day = 10; day < 30; ++day) {
        const std::string date = "2026-11-" + std::to_string(day);
        for (int i = 0; i < day; ++i) {
            book.cross(date + "T12:00:00.000Z");
        }
        book.watch(date + "T12:00:00.000Z");
    }
    const auto days = [&] {
        std::vector<int64_t> sums;
        for (const CountsRow& row : book.count("2026-11-10", "2026-11-30", Step::Day)) {
            sums.push_back(sumOf(row));
        }
        return sums;
    };
    const std::vector<int64_t> before = days();
    EXPECT_EQ(before.size(), 20U);
    EXPECT_EQ(before[5], 15);
    book.index->save();
    const auto indexFiles = [&] {
        const auto names = book.disk.list();
        return std::count_if(names.begin(), names.end(), [](const auto& name) { return name.ends_with(".index"); });
    };
    EXPECT_EQ(indexFiles(), 19) << "all but the day that goes on";
    book.start();
    EXPECT_EQ(days(), before);
    for (const std::string& name : book.disk.list()) {
        if (name.ends_with(".index")) {
            book.disk.replace(name, name.find("11-15") != std::string::npos ? R"({"bytes":1})" : "garbage");
        }
    }
    book.start();
    EXPECT_EQ(days(), before);
    book.index->save();
    book.start();
    EXPECT_EQ(days(), before);
}

TEST(LedgerCounts, IsReadFromItsFilesWhereTheyFit) {
    Book book;
    book.cross("2026-11-10T12:00:00.000Z");
    book.cross("2026-11-11T12:00:00.000Z");
    book.count("2026-11-10", "2026-11-12", Step::Day);
    book.index->save();
    // What only the small file says shows that it was read.
    for (const std::string& name : book.disk.list()) {
        if (name.ends_with(".index")) {
            std::string text = *book.disk.read(name, 0, 10'000);
            text.replace(text.rfind("1]"), 2, "7]");
            book.disk.replace(name, text);
        }
    }
    book.start();
    EXPECT_EQ(sumOf(book.count("2026-11-10", "2026-11-11", Step::Day)[0]), 7);
}

TEST(LedgerCounts, CountsAMinuteFromBeforeTheClockWasKnownWhereItBegan) {
    Book book;
    book.now = {0, "boot-1", 121'000};
    book.ledger().append("watched", {{"minute", 60'000}, {"seconds", 60}});
    book.now = {*utcOf("2026-11-22T12:00:30.000Z"), "", 0};
    book.ledger().append("clock", {{"boot", "boot-1"}, {"mono", 121'000}, {"synchronised", true}});
    const auto rows = book.count("2026-11-22T11:00:00", "2026-11-22T13:00:00", Step::Hour);
    EXPECT_NEAR(rows[0].coverage, 1.0 / 60, 1e-9) << "11:59:29 to 12:00:29";
    EXPECT_EQ(rows[1].coverage, 0);
}

TEST(LedgerCounts, CountsWhatWasSeenBeforeTheClockWasKnown) {
    Book book;
    book.now = {0, "boot-1", 1000};
    book.ledger().append("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
    book.now = {0, "boot-1", 61'000};
    book.ledger().append("crossing", {{"entrance", 1}, {"direction", "out"}, {"class", "Person"}});
    EXPECT_EQ(sumOf(book.count("2026-11-22", "2026-11-23", Step::Day)[0]), 0);
    book.now = {*utcOf("2026-11-22T12:00:00.000Z"), "", 0};
    book.ledger().append("clock", {{"boot", "boot-1"}, {"mono", 121'000}, {"synchronised", true}});
    EXPECT_EQ(sumOf(book.count("2026-11-22T11:45:00", "2026-11-22T12:00:00", Step::Hour)[0]), 2);
    book.index->save();
    book.start();
    EXPECT_EQ(sumOf(book.count("2026-11-22T11:45:00", "2026-11-22T12:00:00", Step::Hour)[0]), 2);
}

TEST(LedgerCounts, AreThereWhileNewLinesAreRead) {
    Book book;
    for (int i = 0; i < 3; ++i) {
        book.cross("2026-11-22T08:00:00.000Z");
    }
    while (!book.index->update(1000)) {
    }
    book.cross("2026-11-22T08:00:00.000Z");
    std::vector<int64_t> seen;
    book.disk.onRead = [&] { seen.push_back(sumOf(*book.index)); };
    while (!book.index->update(1000)) {
    }
    EXPECT_EQ(seen, std::vector<int64_t>{3});
    EXPECT_EQ(sumOf(*book.index), 4);
}

TEST(LedgerCounts, LookAtTheFolderOnlyWhenFilesHaveComeOrGone) {
    Book book;
    book.cross("2026-11-21T08:00:00.000Z");
    book.disk.replace("000000000009-2026-11-20.ndjson.index", "{}");
    const auto save = [&] {
        book.index->update(1000);
        book.index->save();
    };
    save();
    EXPECT_FALSE(book.disk.size("000000000009-2026-11-20.ndjson.index"));
    const int lists = book.disk.lists;
    book.cross("2026-11-21T08:00:01.000Z");
    save();
    save();
    EXPECT_EQ(book.disk.lists, lists);
    book.cross("2026-11-22T08:00:00.000Z");
    save();
    EXPECT_EQ(book.disk.lists, lists + 1);
}

TEST(LedgerCounts, AreThereWhileARewrittenFileIsReadAgain) {
    constexpr int kLines = 40;
    Book book(int64_t{256} << 10);
    const auto addObject = [&](const char* utc, size_t length) {
        book.now = {*utcOf(utc), "", 0};
        book.ledger().append("object", {{"path", std::string(length, 'x')}});
    };
    for (int i = 0; i < kLines; ++i) {
        book.cross("2026-11-21T08:00:00.000Z");
    }
    addObject("2026-11-21T08:00:00.000Z", 10);
    book.index->update(1000);
    const int64_t before = sumOf(*book.index);
    ASSERT_GT(before, 1);
    ASSERT_LT(before, kLines);
    const int64_t bytes = book.ledger().files().front().bytes;
    for (int i = 0; i < 320; ++i) {
        addObject("2026-11-22T08:00:00.000Z", 1000);
    }
    book.ledger().keep();
    ASSERT_LT(book.ledger().files().front().bytes, bytes) << "retention took the object";
    int64_t least = before;
    book.disk.onRead = [&] { least = std::min(least, sumOf(*book.index)); };
    while (!book.index->update(1)) {
        least = std::min(least, sumOf(*book.index));
    }
    EXPECT_EQ(least, before);
    EXPECT_EQ(sumOf(*book.index), kLines);
}

TEST(LedgerCounts, AreRightWhereAFileIsRewrittenWhileItIsRead) {
    constexpr int kLines = 40;
    for (const bool isWhileReading : {true, false}) {
        Book book(int64_t{256} << 10);
        const auto addObject = [&](const char* utc, size_t length) {
            book.now = {*utcOf(utc), "", 0};
            book.ledger().append("object", {{"path", std::string(length, 'x')}});
        };
        addObject("2026-11-21T08:00:00.000Z", 400);
        for (int i = 0; i < kLines; ++i) {
            book.cross("2026-11-21T08:00:00.000Z");
        }
        book.index->update(1000);
        ASSERT_LT(sumOf(*book.index), kLines) << "the rest is read while the object goes";
        for (int i = 0; i < 320; ++i) {
            addObject("2026-11-22T08:00:00.000Z", 1000);
        }
        int interruptions = 0;
        if (isWhileReading) {
            book.disk.onRead = [&] {
                book.disk.onRead = nullptr;
                ++interruptions;
                book.ledger().keep();
            };
            book.index->update(1 << 20);
        } else {
            book.disk.onReplaced = [&] {
                book.disk.onReplaced = nullptr;
                ++interruptions;
                book.index->update(1 << 20);
            };
            book.ledger().keep();
        }
        ASSERT_EQ(interruptions, 1);
        ASSERT_EQ(book.ledger().files().front().version, 1) << "retention took the object";
        while (!book.index->update(1 << 20)) {
        }
        EXPECT_EQ(sumOf(*book.index), kLines) << isWhileReading;
    }
}

TEST(LedgerCounts, KnowZonesByTheirNamesOnly) {
    for (const char* const zone : {"UTC", "Etc/GMT+1", "America/Port-au-Prince", "America/Argentina/Buenos_Aires"}) {
        EXPECT_NO_THROW(momentOf("2026-11-22", zone)) << zone;
    }
    // GLib would open these, whatever they are.
    for (const std::string zone :
         {"/usr/share/zoneinfo/Europe/Berlin", "../zoneinfo/Europe/Berlin", "Europe/./Berlin", "Europe//Berlin",
          "Europe/Berlin/", "/", ":Europe/Berlin", "Europe/Berlin ", "+01:00"}) {
        try {
            momentOf("2026-11-22", zone);
            ADD_FAILURE() << "took " << zone;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), "expected a time zone such as Europe/Berlin, got \"" + zone + "\"");
        }
    }
}

/** What a question is refused with; empty where it is not. */
template <typename Question>
std::string refusal(const Question& question) {
    try {
        question();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

TEST(LedgerCounts, AreOfTheYearsThatACalendarHas) {
    for (const std::string moment : {"0001-01-01T00:00:00+14:00", "9999-12-31T23:00:00-14:00"}) {
        EXPECT_EQ(refusal([&] { momentOf(moment, "UTC"); }),
                  "expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"" + moment + "\"");
    }
    Book book;
    const struct {
        const char* from;
        const char* until;
        const char* zone;
    } spans[] = {
        {"0001-01-01T00:00:00Z", "0001-01-01T02:00:00Z", "America/New_York"},
        {"9999-12-31T23:00:00Z", "9999-12-31T23:30:00Z", "Europe/Berlin"},
        {"9999-12-31T23:00:00Z", "9999-12-31T23:50:00Z", "UTC"},
    };
    for (const auto& [from, until, zone] : spans) {
        for (const Step step : {Step::Quarter, Step::Hour, Step::Day, Step::Week, Step::Month, Step::Year}) {
            EXPECT_EQ(
                refusal([&, from = from, until = until, zone = zone] { book.count(from, until, step, {}, zone); }),
                "expected times within the years 1 to 9999 of the time zone, got one outside of them")
                << from << " in steps of " << static_cast<int>(step);
        }
    }
}

TEST(LedgerCounts, SaysWhatIsWrongWithAQuestion) {
    Book book;
    EXPECT_EQ(refusal([] { stepOf("minute"); }),
              "expected a step of quarter, hour, day, week, month or year, got \"minute\"");
    EXPECT_EQ(refusal([] { countsByOf("entrance,colour"); }),
              "expected by=entrance, direction or class, joined by commas, got \"colour\"");
    EXPECT_EQ(refusal([] { momentOf("yesterday", ""); }),
              "expected a time such as 2026-11-22 or 2026-11-22T07:00:00Z, got \"yesterday\"");
    EXPECT_EQ(refusal([] { momentOf("2026-11-22", "Europe/Bonn"); }),
              "expected a time zone such as Europe/Berlin, got \"Europe/Bonn\"");
    EXPECT_EQ(refusal([&] { book.count("2026-11-22", "2026-11-22", Step::Day); }),
              "expected an end behind the begin, got 2026-11-22T00:00:00+00:00 to 2026-11-22T00:00:00+00:00");
    EXPECT_NE(refusal([&] { book.count("2000-01-01", "2026-11-22", Step::Quarter); }), "");
}

}  // namespace
}  // namespace ledger

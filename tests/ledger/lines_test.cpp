#include "lines.h"

#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "failing_power.h"
#include "kept_path.h"
#include "ledger.h"

namespace inquiry {
namespace {

/** A disk that knows which files were read. */
class ReadDisk : public FailingPower {
public:
    using FailingPower::FailingPower;

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        days.insert(ledger::fileOf(name)->day);
        return FailingPower::read(name, from, most);
    }

    std::set<std::string> days;
};

class LinesOfATime : public testing::Test {
protected:
    LinesOfATime() { m_book.open(); }

    void add(const char* utc, const char* kind = "crossing") {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, {});
    }
    void addUndated() {
        m_now = {0, "boot", 1};
        m_book.append("crossing", {});
    }

    static std::vector<int64_t> numbersOf(const Chunks& chunks, const Span& span) {
        std::vector<int64_t> numbers;
        visitLinesFor(chunks, span,
                      [&](const ledger::LineHead& head, std::string_view) { numbers.push_back(head.seq); });
        return numbers;
    }

    ReadDisk m_disk{1};
    ledger::Moment m_now;
    ledger::Ledger m_book{m_disk, {int64_t{1} << 30, [this] { return m_now; }, [] { return std::string("epoch"); }}};
};

TEST_F(LinesOfATime, AreFoundWhereverTheClockWasSet) {
    add("2026-11-20T12:00:00.000Z");
    add("2026-11-21T12:00:00.000Z");
    add("2036-01-01T00:00:00.000Z");
    add("2026-11-22T10:00:00.000Z");
    add("2036-01-01T00:00:00.000Z", "start");
    add("2036-01-01T00:00:01.000Z");
    add("2026-11-22T11:00:00.000Z");
    add("2026-11-22T18:00:00.000Z");
    add("2026-11-22T11:30:00.000Z");
    add("2026-11-23T12:00:00.000Z");
    add("2026-11-24T12:00:00.000Z");
    const Span span = {*ledger::utcOf("2026-11-22T09:00:00.000Z"), *ledger::utcOf("2026-11-22T12:00:00.000Z")};
    // That a run began there says that its objects are others.
    const std::vector<int64_t> expected = {4, 5, 7, 9};
    m_disk.days.clear();
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), expected);
    EXPECT_EQ(m_disk.days, (std::set<std::string>{"2026-11-22", "2036-01-01"}));
    m_disk.days.clear();
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), expected);
    EXPECT_FALSE(m_disk.days.contains("2026-11-20") || m_disk.days.contains("2026-11-21") ||
                 m_disk.days.contains("2026-11-24"));
    const Span never = {*ledger::utcOf("2026-12-22T09:00:00.000Z"), *ledger::utcOf("2026-12-22T12:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_book, never), never), std::vector<int64_t>());
}

TEST_F(LinesOfATime, GoOnBehindWhatIsNoLine) {
    // As much as is read at once ends with it.
    m_now = {*ledger::utcOf("2026-11-22T10:00:00.000Z"), "", 0};
    m_book.append("object", {{"path", std::string((1 << 20) - 300, 'x')}});
    const std::string name = m_disk.list().at(0);
    m_disk.append(name, std::string(99, '?') + "\n");
    // Near the end it would be cut off at the next start.
    for (int i = 0; i < 9; ++i) {
        m_book.append("object", {{"path", std::string(1 << 19, 'x')}});
    }
    ledger::Ledger again(m_disk, {int64_t{1} << 30, [this] { return m_now; }, [] { return std::string("epoch"); }});
    again.open();
    EXPECT_EQ(numbersOf(chunksOf(again, {}), {}), (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(LinesOfATime, AreThoseOfTheNextDayThatTellOfThisOne) {
    add("2026-11-22T23:59:00.000Z");
    add("2026-11-23T00:14:59.999Z");
    add("2026-11-23T00:15:00.000Z");
    const Span span = {*ledger::utcOf("2026-11-22T00:00:00.000Z"), *ledger::utcOf("2026-11-23T00:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), (std::vector<int64_t>{1, 2}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), (std::vector<int64_t>{1, 2}));
}

TEST_F(LinesOfATime, OfAnUnknownOneAreWhereTheLinesBeforeThemAre) {
    addUndated();
    add("2026-11-22T10:00:00.000Z");
    addUndated();
    add("2026-11-22T18:00:00.000Z");
    addUndated();
    const Span span = {std::numeric_limits<int64_t>::min(), *ledger::utcOf("2026-11-22T12:00:00.000Z")};
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), (std::vector<int64_t>{1, 2, 3}));
    EXPECT_EQ(numbersOf(chunksOf(m_book, {}), {}), (std::vector<int64_t>{1, 2, 3, 4, 5}));
}

TEST(KeptPaths, AreNothingForNonsense) {
    const char* const line =
        R"({"object":1,"class":"Person","size":[640,360],"ended":true,"begin":"2026-11-22T08:00:00.000Z",)"
        R"("path":[[0,1,2],[100,3,4,1]],"areas":[]})";
    const auto good = pathOf(nlohmann::json::parse(line));
    ASSERT_TRUE(good);
    ASSERT_EQ(good->points.size(), 3U);
    EXPECT_EQ(good->points[1].at, (t_one_locator{2, 3}));
    EXPECT_EQ(good->points[1].utcMillis - good->points[0].utcMillis, 50);
    for (const auto& [key, value] : std::map<std::string, nlohmann::json>{
             {"path", {{0, 1, 2}, {100, 3, 4, 2'000'000'000}}},
             {"size", {640}},
             {"object", "one"},
             {"areas", {{{"area", 9}, {"enter", "2026-11-22T08:00:00.000Z"}, {"leave", "2026-11-22T08:00:00.000Z"}}}},
             {"path", {{-5, 1, 2}}}}) {
        nlohmann::json bad = nlohmann::json::parse(line);
        bad[key] = value;
        EXPECT_FALSE(pathOf(bad)) << bad;
    }
    EXPECT_FALSE(pathOf(nlohmann::json()));
    EXPECT_FALSE(crossingOf(nlohmann::json::array()));
}

}  // namespace
}  // namespace inquiry

#include "inquiry/lines.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "failing_power.h"
#include "inquiry/kept_path.h"
#include "ledger/ledger.h"

namespace inquiry {
namespace {

class LinesOfATime : public testing::Test {
protected:
    LinesOfATime() { m_book.open(); }

    void add(const char* utc, const char* kind = "crossing") {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, {});
    }
    void addUndated(const std::string& boot = "boot", int64_t mono = 1) {
        m_now = {0, boot, mono};
        m_book.append("crossing", {});
    }
    void addClock(const char* utc, const std::string& boot, int64_t mono) {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append("clock", {{"boot", boot}, {"mono", mono}});
    }

    static std::vector<int64_t> numbersOf(const Chunks& chunks, const Span& span) {
        std::vector<int64_t> numbers;
        visitLinesFor(chunks, span,
                      [&](const ledger::LineHead& head, std::string_view) { numbers.push_back(head.seq); });
        return numbers;
    }

    /** The lines of the files that are read. */
    static std::vector<int64_t> readOf(const Chunks& chunks) {
        std::vector<int64_t> numbers;
        visitLines(chunks, [&](const ledger::LineHead& head, std::string_view) {
            numbers.push_back(head.seq);
            return true;
        });
        return numbers;
    }

    FailingPower m_disk{1};
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
    const std::vector<int64_t> read = {4, 5, 6, 7, 8, 9};
    EXPECT_EQ(numbersOf(chunksOf(m_disk, span), span), expected);
    EXPECT_EQ(readOf(chunksOf(m_disk, span)), read);
    EXPECT_EQ(numbersOf(chunksOf(m_book, span), span), expected);
    EXPECT_EQ(readOf(chunksOf(m_book, span)), read);
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

/** Knows how much was asked for at once. */
class Watched : public FailingPower {
public:
    Watched() : FailingPower(1) {}
    std::optional<std::string> read(const std::string& name, int64_t from, int64_t bytes) override {
        most = std::max(most, bytes);
        return FailingPower::read(name, from, bytes);
    }
    int64_t most = 0;
};

TEST_F(LinesOfATime, AreFoundBehindWhatIsTooLongForALine) {
    constexpr size_t kMebibyte = size_t{1} << 20U;
    add("2026-11-22T10:00:00.000Z");
    const std::string name = m_disk.list().at(0);
    const std::string text = *m_disk.read(name, 0, 1 << 20);
    // The longest line that there is, its end included, and the shortest that is none.
    const std::string head = R"({"seq":2,"epoch":"epoch","t":"2026-11-22T10:00:00.000Z","kind":"object","path":")";
    const std::string longest = head + std::string(kMebibyte - head.size() - 3, 'x') + "\"}\n";
    std::string tooLong = longest;
    tooLong.insert(tooLong.size() - 3, 1, 'x');
    tooLong[7] = '3';
    const std::string last = R"({"seq":4,"epoch":"epoch","t":"2026-11-22T10:00:00.000Z","kind":"stop"})";
    for (const std::string& junk : {tooLong, std::string(9 * kMebibyte, '\0') + "\n"}) {
        SCOPED_TRACE(junk.size());
        Watched disk;
        disk.replace(name, text + longest + junk + last + "\n" + std::string(5 * kMebibyte, 'x'));
        EXPECT_EQ(readOf(chunksOf(disk, {})), (std::vector<int64_t>{1, 2, 4}));
        ledger::LedgerFile file = filesIn(disk).at(0);
        file.bytes = *disk.size(name);
        std::vector<size_t> lengths;
        int64_t at = 0;
        ledger::forEachLine(disk, file, 0, [&](std::string_view line, int64_t begin) {
            lengths.push_back(line.size());
            at = begin;
            return true;
        });
        EXPECT_EQ(lengths, (std::vector<size_t>{text.size() - 1, kMebibyte - 1, 0, last.size()}));
        EXPECT_EQ(at, static_cast<int64_t>(text.size() + longest.size() + junk.size()));
        EXPECT_LE(disk.most, static_cast<int64_t>(kMebibyte));
    }
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

TEST_F(LinesOfATime, FromBeforeTheClockWasKnownAreDatedByIt) {
    add("2026-11-20T12:00:00.000Z");
    addUndated("never", 400);
    addUndated("b1", 1'000);
    addUndated("b1", 61'000);
    add("2026-11-22T10:01:31.000Z");  // by somebody else, in the very moment
    addClock("2026-11-22T10:01:32.000Z", "b1", 92'000);
    addUndated("b2", 1'000);
    addUndated("b3", 1'000);
    addClock("2026-11-25T08:00:00.000Z", "b3", 2'000);
    const auto timesOf = [&](const Span& span) {
        std::map<int64_t, std::string> told;
        for (const Chunks& chunks : {chunksOf(m_disk, span), chunksOf(m_book, span)}) {
            visitLinesFor(chunks, span, [&](const ledger::LineHead& head, std::string_view) {
                if (span.holds(timeOf(head))) {
                    told[head.seq] = head.moment.isDated() ? ledger::utcText(head.moment.utcMillis) : "unknown";
                }
            });
        }
        return told;
    };
    const auto at = [](const char* utc) { return *ledger::utcOf(utc); };
    using Times = std::map<int64_t, std::string>;
    EXPECT_EQ(timesOf({}), (Times{{1, "2026-11-20T12:00:00.000Z"},
                                  {2, "unknown"},
                                  {3, "2026-11-22T10:00:01.000Z"},
                                  {4, "2026-11-22T10:01:01.000Z"},
                                  {5, "2026-11-22T10:01:31.000Z"},
                                  {6, "2026-11-22T10:01:32.000Z"},
                                  {7, "unknown"},
                                  {8, "2026-11-25T07:59:59.000Z"},
                                  {9, "2026-11-25T08:00:00.000Z"}}));
    EXPECT_EQ(timesOf({at("2026-11-22T10:00:00.000Z"), at("2026-11-22T10:01:00.000Z")}),
              (Times{{3, "2026-11-22T10:00:01.000Z"}}));
    EXPECT_EQ(timesOf({at("2026-11-25T00:00:00.000Z"), at("2026-11-26T00:00:00.000Z")}),
              (Times{{8, "2026-11-25T07:59:59.000Z"}, {9, "2026-11-25T08:00:00.000Z"}}));
    EXPECT_EQ(timesOf({at("2026-11-20T00:00:00.000Z"), at("2026-11-21T00:00:00.000Z")}),
              (Times{{1, "2026-11-20T12:00:00.000Z"}}));
    EXPECT_EQ(timesOf({std::numeric_limits<int64_t>::min(), at("2026-11-21T00:00:00.000Z")}),
              (Times{{1, "2026-11-20T12:00:00.000Z"}, {2, "unknown"}}));
}

TEST(KeptPaths, AreNothingForNonsense) {
    const char* const line =
        R"({"object":1,"class":"Person","size":[640,360],"ended":true,"begin":"2026-11-22T08:00:00.000Z",)"
        R"("path":[[0,1,2],[100,3,4,1]],"areas":[]})";
    const auto good = pathOf(nlohmann::json::parse(line), {});
    ASSERT_TRUE(good);
    ASSERT_EQ(good->points.size(), 3U);
    EXPECT_EQ(good->points[1].at, (t_one_locator{2, 3}));
    EXPECT_EQ(good->points[1].utcMillis - good->points[0].utcMillis, 50);
    nlohmann::json endless = {{0, 1, 2}};
    for (int i = 0; i < 100; ++i) {
        endless.push_back({100, 3, 4, 1000});
    }
    for (const auto& [key, value] : std::vector<std::pair<std::string, nlohmann::json>>{
             {"path", {{0, 1, 2}, {100, 3, 4, 2'000'000'000}}},
             {"path", endless},
             {"size", {640}},
             {"object", "one"},
             {"areas", {{{"area", 9}, {"enter", "2026-11-22T08:00:00.000Z"}, {"leave", "2026-11-22T08:00:00.000Z"}}}},
             {"path", {{-5, 1, 2}}}}) {
        nlohmann::json bad = nlohmann::json::parse(line);
        bad[key] = value;
        EXPECT_FALSE(pathOf(bad, {})) << bad;
    }
    EXPECT_FALSE(pathOf(nlohmann::json(), {}));
    EXPECT_FALSE(crossingOf(nlohmann::json::array()));
}

}  // namespace
}  // namespace inquiry

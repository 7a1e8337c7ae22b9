#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "ledger/counts.h"
#include "ledger/index.h"
#include "ledger/last_run.h"
#include "ledger/ledger.h"
#include "ledger_holds.h"
#include "lines_table.h"
#include "recount_bench.h"
#include "test_folder.h"
#include "topics.h"

namespace {

constexpr int64_t kBegin = 1'732'233'600'000;  // 2024-11-22 00:00:00 UTC
constexpr int64_t kDayMillis = 86'400'000;
constexpr int kDays = 730;
constexpr int kCrossingsADay = 1'000;
constexpr int kCrossingsAPeriod = 10;
constexpr double kLongestStart = 1'000'000;  // microseconds, in which nobody is counted

/** A ledger of the benchmark's own; its clock is the test's. */
class Book {
public:
    explicit Book(const std::filesystem::path& folder) : m_disk(ledger::openFolder(folder.string())) { m_book.open(); }

    ledger::Ledger& lines() { return m_book; }
    ledger::Disk& disk() { return *m_disk; }
    void setNow(int64_t millis) { m_now = {millis, "", 0}; }

private:
    ledger::Moment m_now = {kBegin, "", 0};
    std::unique_ptr<ledger::Disk> m_disk;
    ledger::Ledger m_book{*m_disk, {int64_t{1} << 40, [this] { return m_now; }, [] { return std::string("epoch"); }}};
};

nlohmann::ordered_json crossing(int number) {
    return {{"entrance", number % 3 + 1},
            {"direction", number % 2 == 0 ? "in" : "out"},
            {"class", "Person"},
            {"object", number},
            {"before", {320, 100 + number % 50}},
            {"after", {320, 140}},
            {"size", {640, 360}},
            {"followed", 1.8},
            {"occupancy", number % 20}};
}

void benchAppend(benchmark::State& state) {
    const TestFolder folder;
    Book book(folder.path() / "ledger");
    int number = 0;
    for (auto _ : state) {
        book.lines().append("crossing", crossing(++number));
    }
}

void benchInsert(benchmark::State& state) {
    const TestFolder folder;
    LinesTable table(folder.path() / "lines.db");
    int number = 0;
    for (auto _ : state) {
        ++number;
        table.add(number, kBegin + number, crossing(number));
    }
}

/** Two years, in a ledger with its index and in a table. */
struct TwoYears {
    TwoYears() : book(folder.path() / "ledger"), table(folder.path() / "lines.db"), index(book.disk(), book.lines()) {
        table.begin();
        for (int64_t number = 0; number < int64_t{kDays} * kCrossingsADay; ++number) {
            const int64_t millis = kBegin + number * kDayMillis / kCrossingsADay;
            const nlohmann::ordered_json body = crossing(static_cast<int>(number));
            book.setNow(millis);
            book.lines().append("crossing", body);
            table.add(number + 1, millis, body);
            if (number % kCrossingsAPeriod == 0) {
                book.lines().append("period", {{"tallies", nlohmann::ordered_json::object()}});
            }
        }
        table.commit();
        while (!index.update(int64_t{64} << 20)) {
        }
        index.save();
    }
    TestFolder folder;
    Book book;
    LinesTable table;
    ledger::Index index;
};

/** A ledger whose newest file is nearly as long as files get: a start looks through all of it. */
struct LongFile {
    LongFile() {
        Book book(folder.path());
        for (int number = 0; book.lines().files().empty() || book.lines().files().back().bytes < kBytes; ++number) {
            book.lines().append("crossing", crossing(number));
            if (number % kCrossingsAPeriod == 0) {
                book.lines().append("period", {{"tallies", nlohmann::ordered_json::object()}});
            }
        }
        if (!book.lines().keep() || book.lines().files().size() != 1) {
            throw std::runtime_error("expected a single file, got another number or none that could be synced");
        }
    }
    static constexpr int64_t kBytes = int64_t{15} << 20;
    TestFolder folder;
};

void benchStart(benchmark::State& state) {
    static const LongFile file;
    for (auto _ : state) {
        Book book(file.folder.path());
        const ledger::LastRun before =
            ledger::lastRunOf(book.disk(), book.lines().files(), {kBegin + kDayMillis, 0, true}, "boot");
        if (!before.occupancy) {
            throw std::runtime_error("expected an occupancy of the run before, got none");
        }
    }
}

TwoYears& twoYears() {
    static TwoYears years;
    return years;
}

constexpr int64_t kAskedDay = kBegin + 500 * kDayMillis;

void mustBeADay(int64_t counted) {
    if (counted != kCrossingsADay) {
        throw std::runtime_error("expected " + std::to_string(kCrossingsADay) + " crossings of a day, got " +
                                 std::to_string(counted));
    }
}

void benchDay(benchmark::State& state) {
    const ledger::Index& index = twoYears().index;
    for (auto _ : state) {
        int64_t sum = 0;
        for (const ledger::CountsRow& row : ledger::countsOf(
                 index, {kAskedDay, kAskedDay + kDayMillis, ledger::Step::Hour, {true, true, true}, "UTC"})) {
            for (const auto& [key, count] : row.counts) {
                sum += count;
            }
        }
        mustBeADay(sum);
    }
}

void benchDayInTable(benchmark::State& state) {
    LinesTable& table = twoYears().table;
    for (auto _ : state) {
        mustBeADay(table.count({kAskedDay, kAskedDay + kDayMillis}));
    }
}

}  // namespace

std::vector<Limit> registerLedger() {
    benchmark::RegisterBenchmark("ledger line/SQLite", benchInsert);
    benchmark::RegisterBenchmark("ledger line/ours", benchAppend);
    benchmark::RegisterBenchmark("a day of two years/SQLite", benchDayInTable);
    benchmark::RegisterBenchmark("a day of two years/ours", benchDay);
    benchmark::RegisterBenchmark("start of a ledger of 15 MiB/ours", benchStart);
    std::vector<Limit> limits = {{"ledger line", "SQLite", "", std::nullopt},
                                 {"ledger line", "ours", "SQLite", 1.0},
                                 {"a day of two years", "SQLite", "", std::nullopt},
                                 {"a day of two years", "ours", "SQLite", 1.0},
                                 {"start of a ledger of 15 MiB", "ours", "", kLongestStart}};
    for (const std::vector<Limit>& more :
         {registerRecount(),
          registerLedgerHolds([] { return twoYears().folder.path() / "ledger"; }, kBegin + kDays * kDayMillis)}) {
        limits.insert(limits.end(), more.begin(), more.end());
    }
    return limits;
}

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <stdexcept>

#include "counts.h"
#include "index.h"
#include "ledger.h"
#include "ledger_holds.h"
#include "recount_bench.h"
#include "test_folder.h"
#include "topics.h"

namespace {

constexpr int64_t kBegin = 1'732'233'600'000;  // 2024-11-22 00:00:00 UTC
constexpr int64_t kDayMillis = 86'400'000;
constexpr int kDays = 730;
constexpr int kCrossingsADay = 1'000;
constexpr int kCrossingsAPeriod = 10;

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

/** The same lines in SQLite: a row each, with what is asked for in columns and an index on the time. */
class Table {
public:
    explicit Table(const std::filesystem::path& file) {
        if (sqlite3_open(file.c_str(), &m_database) != SQLITE_OK) {
            throw std::runtime_error("cannot open " + file.string());
        }
        run("PRAGMA journal_mode=WAL");
        run("PRAGMA synchronous=NORMAL");
        run("CREATE TABLE line (seq INTEGER PRIMARY KEY, t INTEGER, entrance INTEGER, direction TEXT, class TEXT, "
            "text TEXT)");
        run("CREATE INDEX line_t ON line (t)");
        sqlite3_prepare_v2(m_database, "INSERT INTO line VALUES (?, ?, ?, ?, ?, ?)", -1, &m_insert, nullptr);
        sqlite3_prepare_v2(m_database,
                           "SELECT entrance, direction, class, t / 3600000, count(*) FROM line WHERE t >= ? AND t < ? "
                           "GROUP BY 1, 2, 3, 4",
                           -1, &m_count, nullptr);
    }
    ~Table() {
        sqlite3_finalize(m_insert);
        sqlite3_finalize(m_count);
        sqlite3_close(m_database);
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void run(const char* text) { sqlite3_exec(m_database, text, nullptr, nullptr, nullptr); }

    void add(int64_t seq, int64_t millis, const nlohmann::ordered_json& body) {
        const std::string text = ledger::bodyText(body);
        sqlite3_bind_int64(m_insert, 1, seq);
        sqlite3_bind_int64(m_insert, 2, millis);
        sqlite3_bind_int64(m_insert, 3, body["entrance"].get<int64_t>());
        sqlite3_bind_text(m_insert, 4, body["direction"].get_ref<const std::string&>().c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 5, body["class"].get_ref<const std::string&>().c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 6, text.c_str(), -1, SQLITE_TRANSIENT);
        if (sqlite3_step(m_insert) != SQLITE_DONE) {
            throw std::runtime_error(sqlite3_errmsg(m_database));
        }
        sqlite3_reset(m_insert);
    }

    int64_t count(int64_t from, int64_t until) {
        sqlite3_bind_int64(m_count, 1, from);
        sqlite3_bind_int64(m_count, 2, until);
        int64_t sum = 0;
        while (sqlite3_step(m_count) == SQLITE_ROW) {
            sum += sqlite3_column_int64(m_count, 4);
        }
        sqlite3_reset(m_count);
        return sum;
    }

private:
    sqlite3* m_database = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_count = nullptr;
};

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
    Table table(folder.path() / "lines.db");
    int number = 0;
    for (auto _ : state) {
        ++number;
        table.add(number, kBegin + number, crossing(number));
    }
}

/** Two years, in a ledger with its index and in a table. */
struct TwoYears {
    TwoYears() : book(folder.path() / "ledger"), table(folder.path() / "lines.db"), index(book.disk(), book.lines()) {
        table.run("BEGIN");
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
        table.run("COMMIT");
        while (!index.update(int64_t{64} << 20)) {
        }
        index.save();
    }
    TestFolder folder;
    Book book;
    Table table;
    ledger::Index index;
};

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
    Table& table = twoYears().table;
    for (auto _ : state) {
        mustBeADay(table.count(kAskedDay, kAskedDay + kDayMillis));
    }
}

}  // namespace

std::vector<Limit> registerLedger() {
    benchmark::RegisterBenchmark("ledger line/SQLite", benchInsert);
    benchmark::RegisterBenchmark("ledger line/ours", benchAppend);
    benchmark::RegisterBenchmark("a day of two years/SQLite", benchDayInTable);
    benchmark::RegisterBenchmark("a day of two years/ours", benchDay);
    std::vector<Limit> limits = {{"ledger line", "SQLite", "", std::nullopt},
                                 {"ledger line", "ours", "SQLite", 1.0},
                                 {"a day of two years", "SQLite", "", std::nullopt},
                                 {"a day of two years", "ours", "SQLite", 1.0}};
    for (const std::vector<Limit>& more :
         {registerRecount(),
          registerLedgerHolds([] { return twoYears().folder.path() / "ledger"; }, kBegin + kDays * kDayMillis)}) {
        limits.insert(limits.end(), more.begin(), more.end());
    }
    return limits;
}

#include "lines_table.h"

#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

LinesTable::LinesTable(const std::filesystem::path& file) {
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
    sqlite3_prepare_v2(m_database, "SELECT text FROM line WHERE t >= ? AND t < ? ORDER BY seq", -1, &m_select, nullptr);
}

LinesTable::~LinesTable() {
    sqlite3_finalize(m_insert);
    sqlite3_finalize(m_count);
    sqlite3_finalize(m_select);
    sqlite3_close(m_database);
}

void LinesTable::run(const char* text) {
    if (sqlite3_exec(m_database, text, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(m_database));
    }
}

void LinesTable::insert(int64_t seq, int64_t millis, std::string_view text) {
    sqlite3_bind_int64(m_insert, 1, seq);
    sqlite3_bind_int64(m_insert, 2, millis);
    sqlite3_bind_text(m_insert, 6, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(m_insert) != SQLITE_DONE) {
        throw std::runtime_error(sqlite3_errmsg(m_database));
    }
    sqlite3_reset(m_insert);
    sqlite3_clear_bindings(m_insert);
}

void LinesTable::add(int64_t seq, int64_t millis, const nlohmann::ordered_json& crossing) {
    sqlite3_bind_int64(m_insert, 3, crossing["entrance"].get<int64_t>());
    sqlite3_bind_text(m_insert, 4, crossing["direction"].get_ref<const std::string&>().c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(m_insert, 5, crossing["class"].get_ref<const std::string&>().c_str(), -1, SQLITE_TRANSIENT);
    insert(seq, millis, ledger::bodyText(crossing));
}

void LinesTable::add(const ledger::LineHead& head, std::string_view text) {
    insert(head.seq, head.moment.utcMillis, text);
}

int64_t LinesTable::count(const inquiry::Span& span) {
    sqlite3_bind_int64(m_count, 1, span.from);
    sqlite3_bind_int64(m_count, 2, span.until);
    int64_t sum = 0;
    while (sqlite3_step(m_count) == SQLITE_ROW) {
        sum += sqlite3_column_int64(m_count, 4);
    }
    sqlite3_reset(m_count);
    return sum;
}

inquiry::Chunks LinesTable::chunksOf(const inquiry::Span& span) {
    sqlite3_reset(m_select);
    sqlite3_bind_int64(m_select, 1, span.from);
    sqlite3_bind_int64(m_select, 2, span.until + inquiry::kLatestLine);
    return [this, isOver = false]() mutable {
        constexpr size_t kPiece = size_t{1} << 20U;
        std::string lines;
        while (!isOver && lines.size() < kPiece) {
            isOver = sqlite3_step(m_select) != SQLITE_ROW;  // another step would begin anew
            if (isOver) {
                break;
            }
            lines.append(reinterpret_cast<const char*>(sqlite3_column_text(m_select, 0)),
                         static_cast<size_t>(sqlite3_column_bytes(m_select, 0)));
            lines += '\n';
        }
        return lines;
    };
}

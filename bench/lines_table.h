#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "inquiry/lines.h"
#include "ledger/line.h"

struct sqlite3;
struct sqlite3_stmt;

/**
 * What a ledger holds, in SQLite: a row for each line, by its number and with an index on the time; of a crossing, what
 * is counted stands in columns. Throws std::runtime_error where SQLite refuses something.
 */
class LinesTable {
public:
    explicit LinesTable(const std::filesystem::path& file);
    ~LinesTable();
    LinesTable(const LinesTable&) = delete;
    LinesTable& operator=(const LinesTable&) = delete;

    /** From here to commit all rows come at once. */
    void begin() { run("BEGIN"); }
    void commit() { run("COMMIT"); }

    /** A crossing. millis: UTC. */
    void add(int64_t seq, int64_t millis, const nlohmann::ordered_json& crossing);

    /** Any line, as it is. */
    void add(const ledger::LineHead& head, std::string_view text);

    /** The crossings of a time, counted per hour, entrance, direction and class; their sum. */
    int64_t count(const inquiry::Span& span);

    /** The lines that tell of a time, in pieces as a ledger gives them; the table outlives them. */
    inquiry::Chunks chunksOf(const inquiry::Span& span);

private:
    void run(const char* text);
    void insert(int64_t seq, int64_t millis, std::string_view text);

    sqlite3* m_database = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_count = nullptr;
    sqlite3_stmt* m_select = nullptr;
};

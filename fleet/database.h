#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/batch.h"

struct pg_conn;
struct pg_result;

namespace fleet {

/** A numbered file of fleet/sql. */
struct Migration {
    int number;
    const char* name;
    const char* sql;
};

/** All that this program knows, in order. */
const std::vector<Migration>& migrations();

/** Up to where the database has every line of a camera. */
struct Confirmation {
    std::string prefix;
    std::string epoch;
    int64_t through = 0;
};

/** The database refuses what it is given, and would again. */
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * The fleet's database. Whatever else fails throws std::runtime_error with the reason, after which another one is to be
 * made. One thread.
 */
class Database {
public:
    /**
     * Connects and brings the tables up to date. address: as libpq takes it, a URI or words such as "dbname=senvo".
     * Throws std::runtime_error also for a database that is newer than this program.
     */
    explicit Database(const std::string& address);

    /**
     * Stores batches in one transaction and, once that is committed, tells what is confirmed. Throws Refusal where one
     * of them cannot be stored, and then none is.
     */
    std::vector<Confirmation> store(const std::vector<Batch>& batches);

private:
    struct Finish {
        void operator()(pg_conn* connection) const;
    };
    struct Clear {
        void operator()(pg_result* result) const;
    };
    using Result = std::unique_ptr<pg_result, Clear>;

    Result run(const std::string& sql);
    Result check(pg_result* result);
    void copy(const char* table, std::string_view rows);
    void migrate();

    std::unique_ptr<pg_conn, Finish> m_connection;
};

}  // namespace fleet

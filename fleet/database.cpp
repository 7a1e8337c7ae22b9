#include "fleet/database.h"

#include <cstdlib>
#include <libpq-fe.h>

namespace fleet {
namespace {

/** A value as COPY reads it. */
void addValue(std::string& row, std::string_view value) {
    for (const char c : value) {
        switch (c) {
            case '\\':
                row += "\\\\";
                break;
            case '\n':
                row += "\\n";
                break;
            case '\r':
                row += "\\r";
                break;
            case '\t':
                row += "\\t";
                break;
            default:
                row += c;
        }
    }
}

std::string withoutEnd(std::string text) {
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

}  // namespace

void Database::Finish::operator()(pg_conn* connection) const {
    PQfinish(connection);
}

void Database::Clear::operator()(pg_result* result) const {
    PQclear(result);
}

Database::Database(const std::string& address) : m_connection(PQconnectdb(address.c_str())) {
    if (PQstatus(m_connection.get()) != CONNECTION_OK) {
        throw std::runtime_error(withoutEnd(PQerrorMessage(m_connection.get())));
    }
    PQsetNoticeProcessor(
        m_connection.get(), [](void*, const char*) {}, nullptr);
    run("set client_encoding to utf8");
    migrate();
    run("create temp table staged_line (prefix text, epoch text, seq bigint, t timestamptz, kind text, body json) "
        "on commit delete rows");
    run("create temp table staged_batch (prefix text, epoch text, after bigint, through bigint) "
        "on commit delete rows");
}

void Database::migrate() {
    run("begin");
    run("select pg_advisory_xact_lock(hashtext('senvo migrations'))");  // several collectors may start at once
    run("create table if not exists migration (number integer primary key, name text not null, "
        "applied timestamptz not null default now())");
    const Result newest = run("select coalesce(max(number), 0) from migration");
    const int number = std::atoi(PQgetvalue(newest.get(), 0, 0));
    if (number > migrations().back().number) {
        throw std::runtime_error("the database is newer than this program: expected migrations up to " +
                                 std::to_string(migrations().back().number) + ", it has " + std::to_string(number));
    }
    for (const Migration& migration : migrations()) {
        if (migration.number > number) {
            run(migration.sql);
            run("insert into migration (number, name) values (" + std::to_string(migration.number) + ", '" +
                migration.name + "')");
        }
    }
    if (number == 0) {
        run("comment on table migration is 'The numbered files that made these tables'");
        run("comment on column migration.number is 'The file''s number'");
        run("comment on column migration.name is 'Its name'");
        run("comment on column migration.applied is 'When it was applied'");
    }
    run("commit");
}

Database::Result Database::run(const std::string& sql) {
    return check(PQexec(m_connection.get(), sql.c_str()));
}

Database::Result Database::check(pg_result* result) {
    Result owned(result);
    const ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_COPY_IN) {
        return owned;
    }
    const char* const code = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    const char* const primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    const std::string reason = primary == nullptr ? withoutEnd(PQerrorMessage(m_connection.get())) : primary;
    // What the data are to blame for: values of a wrong kind, and those that a column does not take.
    const std::string_view kind = code == nullptr ? "" : code;
    if (kind.starts_with("22") || kind.starts_with("23")) {
        throw Refusal(reason);
    }
    throw std::runtime_error(reason);
}

void Database::copy(const char* table, std::string_view rows) {
    run(std::string("copy ") + table + " from stdin");
    if (PQputCopyData(m_connection.get(), rows.data(), static_cast<int>(rows.size())) != 1 ||
        PQputCopyEnd(m_connection.get(), nullptr) != 1) {
        throw std::runtime_error(withoutEnd(PQerrorMessage(m_connection.get())));
    }
    Result result;
    try {
        result = check(PQgetResult(m_connection.get()));
    } catch (...) {
        const Result end(PQgetResult(m_connection.get()));
        throw;
    }
    const Result end(PQgetResult(m_connection.get()));
}

std::vector<Confirmation> Database::store(const std::vector<Batch>& batches) {
    std::string lines;
    std::string covered;
    for (const Batch& batch : batches) {
        std::string camera;
        addValue(camera, batch.prefix);
        camera += '\t';
        addValue(camera, batch.epoch);
        camera += '\t';
        for (const StagedLine& line : batch.lines) {
            lines += camera + std::to_string(line.head.seq) + '\t';
            lines += line.head.moment.isDated() ? ledger::utcText(line.head.moment.utcMillis) : "\\N";
            lines += '\t';
            addValue(lines, line.head.kind);
            lines += '\t';
            addValue(lines, line.text);
            lines += '\n';
        }
        // One that confirms nothing covers nothing.
        const int64_t through = batch.isInOrder ? batch.through : batch.after;
        covered += camera + std::to_string(batch.after) + '\t' + std::to_string(through) + '\n';
    }
    try {
        run("begin");
        copy("staged_line", lines);
        copy("staged_batch", covered);
        const Result rows = run("select * from store()");
        run("commit");
        const int count = PQntuples(rows.get());
        std::vector<Confirmation> confirmed;
        confirmed.reserve(static_cast<size_t>(count));
        for (int row = 0; row < count; ++row) {
            confirmed.push_back({PQgetvalue(rows.get(), row, 0), PQgetvalue(rows.get(), row, 1),
                                 std::atoll(PQgetvalue(rows.get(), row, 2))});
        }
        return confirmed;
    } catch (const Refusal&) {
        run("rollback");
        throw;
    }
}

}  // namespace fleet

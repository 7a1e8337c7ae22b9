#include "desktop/parameters/parameter_store.h"

#include <chrono>
#include <stdexcept>

#include "desktop/parameters/good_copy.h"

namespace desktop {
namespace {

constexpr std::chrono::milliseconds kSyncDelay(100);
constexpr int kBusyTimeoutMilliseconds = 15000;  // a backup of the file, or a slow disk; less than a hang

[[noreturn]] void fail(sqlite3* database, const std::string& path) {
    throw std::runtime_error(path + ": " + (database == nullptr ? "out of memory" : sqlite3_errmsg(database)));
}

std::string columnText(sqlite3_stmt* statement) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    return text == nullptr ? std::string() : std::string(text);
}

/** Resets a statement at the end of its use, so that it holds no read lock. */
class StatementUse {
public:
    explicit StatementUse(sqlite3_stmt* statement) : m_statement(statement) {}
    ~StatementUse() {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

    void bind(int index, const std::string& text) {
        sqlite3_bind_text(m_statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    }
    int step() { return sqlite3_step(m_statement); }

private:
    sqlite3_stmt* m_statement;
};

}  // namespace

ParameterStore::ParameterStore(const std::string& path, const std::vector<ParameterDefault>& defaults)
    : m_path(path), m_database(open(path)) {
    execute("PRAGMA journal_mode=WAL");
    // NORMAL leaves commits in the log unsynced; the sync thread's checkpoints bring them to the disk.
    execute("PRAGMA synchronous=NORMAL");
    execute("CREATE TABLE IF NOT EXISTS parameter (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID");
    m_select = prepare("SELECT value FROM parameter WHERE name = ?1");
    m_update = prepare("UPDATE parameter SET value = ?2 WHERE name = ?1");
    m_insert = prepare("INSERT OR IGNORE INTO parameter (name, value) VALUES (?1, ?2)");
    execute("BEGIN IMMEDIATE");
    for (const ParameterDefault& parameter : defaults) {
        run(m_insert.get(), parameter.name, &parameter.value);
    }
    execute("COMMIT");
    m_syncDatabase = open(path);
    m_dirty = true;
    m_syncThread = std::thread([this] { syncLoop(); });
}

ParameterStore::~ParameterStore() {
    {
        const MutexLock lock(m_syncMutex);
        m_stopping = true;
    }
    m_syncWanted.notifyOne();
    m_syncThread.join();
}

ParameterStore::Database ParameterStore::open(const std::string& path) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    Database database(handle);
    if (result != SQLITE_OK) {
        fail(handle, path);
    }
    sqlite3_busy_timeout(handle, kBusyTimeoutMilliseconds);
    return database;
}

ParameterStore::Statement ParameterStore::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_database.get(), sql, -1, &statement, nullptr) != SQLITE_OK) {
        fail(m_database.get(), m_path);
    }
    return Statement(statement);
}

void ParameterStore::execute(const char* sql) {
    if (sqlite3_exec(m_database.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(m_database.get(), m_path);
    }
}

int ParameterStore::run(sqlite3_stmt* statement, const std::string& name, const std::string* value) {
    StatementUse use(statement);
    use.bind(1, name);
    use.bind(2, *value);
    if (use.step() != SQLITE_DONE) {
        fail(m_database.get(), m_path);
    }
    return sqlite3_changes(m_database.get());
}

std::optional<std::string> ParameterStore::get(const std::string& name) {
    const MutexLock lock(m_databaseMutex);
    StatementUse use(m_select.get());
    use.bind(1, name);
    const int result = use.step();
    if (result == SQLITE_ROW) {
        return columnText(m_select.get());
    }
    if (result != SQLITE_DONE) {
        fail(m_database.get(), m_path);
    }
    return std::nullopt;
}

void ParameterStore::set(const std::string& name, const std::string& value) {
    {
        const MutexLock lock(m_databaseMutex);
        if (run(m_update.get(), name, &value) == 0) {
            throw std::runtime_error("no parameter " + name);
        }
    }
    markDirty();
}

bool ParameterStore::add(const std::string& name, const std::string& value) {
    {
        const MutexLock lock(m_databaseMutex);
        if (run(m_insert.get(), name, &value) == 0) {
            return false;
        }
    }
    markDirty();
    return true;
}

std::vector<std::string> ParameterStore::names() {
    const MutexLock lock(m_databaseMutex);
    const Statement list = prepare("SELECT name FROM parameter ORDER BY name");
    std::vector<std::string> names;
    while (sqlite3_step(list.get()) == SQLITE_ROW) {
        names.push_back(columnText(list.get()));
    }
    return names;
}

void ParameterStore::markDirty() {
    {
        const MutexLock lock(m_syncMutex);
        m_dirty = true;
    }
    m_syncWanted.notifyOne();
}

/** Waits until there is something to sync, and a little longer; false when there is nothing and never will be. */
bool ParameterStore::waitForDirt() {
    const MutexLock lock(m_syncMutex);
    while (!m_dirty && !m_stopping) {
        m_syncWanted.wait(m_syncMutex);
    }
    if (!m_dirty) {
        return false;
    }
    // Sets come in bursts: a short wait lets one sync serve them all.
    const auto end = std::chrono::steady_clock::now() + kSyncDelay;
    while (!m_stopping && m_syncWanted.waitUntil(m_syncMutex, end)) {
    }
    m_dirty = false;
    return true;
}

void ParameterStore::syncLoop() {
    while (waitForDirt()) {
        // A checkpoint syncs the log before it moves pages. Its failure loses nothing: the log stays and the next
        // checkpoint takes it along.
        sqlite3_wal_checkpoint_v2(m_syncDatabase.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        keepGoodCopy(m_syncDatabase.get(), m_path);
    }
}

}  // namespace desktop

#pragma once

#include <memory>
#include <optional>
#include <sqlite3.h>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "desktop/parameters/declarations.h"

namespace desktop {

/**
 * The parameter store of one camera: texts by name in an SQLite file.
 *
 * A set is a committed write into a write-ahead log: it survives the death of the process from the moment the call
 * returns. A thread of the store's own brings the log to the disk within 100 ms, so that callers never wait for the
 * disk, and a burst of sets costs one sync and one new copy (good_copy.h) of the file. All operations may be called
 * from any thread and throw std::runtime_error with SQLite's words on failure.
 */
class ParameterStore {
public:
    /** Opens or creates the file; parameters that it lacks get their defaults. */
    ParameterStore(const std::string& path, const std::vector<ParameterDefault>& defaults);

    /** Brings everything to the disk. */
    ~ParameterStore();

    ParameterStore(const ParameterStore&) = delete;
    ParameterStore& operator=(const ParameterStore&) = delete;

    std::optional<std::string> get(const std::string& name);
    void set(const std::string& name, const std::string& value);

    /** Creates a parameter; false when it is there already, whose value then stays. */
    bool add(const std::string& name, const std::string& value);

    std::vector<std::string> names();

private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Database = std::unique_ptr<sqlite3, CloseDatabase>;
    using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

    static Database open(const std::string& path);
    Statement prepare(const char* sql) REQUIRES(m_databaseMutex);
    void execute(const char* sql) REQUIRES(m_databaseMutex);
    /** Binds the texts, runs a statement that returns no rows, and returns how many rows it changed. */
    int run(sqlite3_stmt* statement, const std::string& name, const std::string* value) REQUIRES(m_databaseMutex);
    void markDirty();
    bool waitForDirt();
    void syncLoop();

    const std::string m_path;
    Mutex m_databaseMutex; /**< guards the connection and its statements */
    Database m_database GUARDED_BY(m_databaseMutex);
    Statement m_select GUARDED_BY(m_databaseMutex);
    Statement m_update GUARDED_BY(m_databaseMutex);
    Statement m_insert GUARDED_BY(m_databaseMutex);

    Mutex m_syncMutex; /**< guards m_dirty and m_stopping; not held while syncing */
    ConditionVariable m_syncWanted;
    bool m_dirty GUARDED_BY(m_syncMutex) = false;
    bool m_stopping GUARDED_BY(m_syncMutex) = false;
    Database m_syncDatabase; /**< the sync thread's own connection */
    std::thread m_syncThread;
};

}  // namespace desktop

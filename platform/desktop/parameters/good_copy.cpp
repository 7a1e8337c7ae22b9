#include "desktop/parameters/good_copy.h"

#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <unistd.h>

#include "desktop/parameters/lost_settings.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};

std::string goodCopy(const std::string& path) {
    return path + ".good";
}

bool sync(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = file >= 0 && fsync(file) == 0;
    if (file >= 0) {
        close(file);
    }
    return synced;
}

/** What is wrong with a database, in SQLite's words; empty when nothing is, or that cannot be told. */
std::string damageOf(const std::string& path) {
    sqlite3* handle = nullptr;
    sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    const std::unique_ptr<sqlite3, CloseDatabase> database(handle);
    std::string found;
    const auto first = [](void* text, int, char** columns, char**) {
        if (static_cast<std::string*>(text)->empty() && columns[0] != nullptr) {
            *static_cast<std::string*>(text) = columns[0];
        }
        return 0;
    };
    const int result = sqlite3_exec(handle, "PRAGMA integrity_check", first, &found, nullptr);
    if (result == SQLITE_CORRUPT || result == SQLITE_NOTADB) {
        return sqlite3_errmsg(handle);
    }
    return result != SQLITE_OK || found == "ok" ? std::string() : found;
}

/** Whether there is nothing of a store in a file that SQLite takes for whole, as in one of no bytes. */
bool isEmptied(const std::string& path) {
    sqlite3* handle = nullptr;
    sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
    const std::unique_ptr<sqlite3, CloseDatabase> database(handle);
    return sqlite3_exec(handle, "SELECT name FROM parameter LIMIT 1", nullptr, nullptr, nullptr) == SQLITE_ERROR;
}

}  // namespace

void keepGoodCopy(sqlite3* database, const std::string& path) {
    const std::string beside = goodCopy(path) + ".new";
    unlink(beside.c_str());
    const std::unique_ptr<char, decltype(&sqlite3_free)> command(sqlite3_mprintf("VACUUM INTO %Q", beside.c_str()),
                                                                 sqlite3_free);
    const bool copied = sqlite3_exec(database, command.get(), nullptr, nullptr, nullptr) == SQLITE_OK;
    if (!copied || !sync(beside) || rename(beside.c_str(), goodCopy(path).c_str()) != 0) {
        unlink(beside.c_str());
    }
}

std::string restoreDamaged(const std::string& path) {
    if (!fs::is_regular_file(path)) {
        return {};
    }
    std::string damage = damageOf(path);
    if (damage.empty() && fs::is_regular_file(goodCopy(path)) && isEmptied(path)) {
        damage = "it is empty";
    }
    if (damage.empty()) {
        return {};
    }
    const std::string aside = path + ".damaged";
    const std::string told = path + " is damaged (" + damage + "); it is kept as " + aside;
    try {
        fs::copy_file(path, aside, fs::copy_options::overwrite_existing);
        const bool isGood = fs::is_regular_file(goodCopy(path)) && damageOf(goodCopy(path)).empty();
        const std::string beside = path + ".new";
        if (isGood) {
            fs::copy_file(goodCopy(path), beside, fs::copy_options::overwrite_existing);
            sync(beside);
        }
        if (!isGood) {
            rememberLoss(path);
        }
        // A log of the damaged file must not be played into the other one.
        fs::remove(path + "-wal");
        fs::remove(path + "-shm");
        if (!isGood) {
            fs::remove(path);
            return told + ", and the settings begin anew, since there is no good copy";
        }
        fs::rename(beside, path);
        return told + ", and the settings are those of the last good copy";
    } catch (const fs::filesystem_error& error) {
        return path + " is damaged (" + damage + ") and cannot be set aside: " + error.what();
    }
}

}  // namespace desktop

#pragma once

#include <filesystem>
#include <libpq-fe.h>
#include <memory>
#include <optional>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

#include "program.h"
#include "test_folder.h"

/** A PostgreSQL of a test's own, in a folder that goes with it, reached by a socket in that folder alone. */
class Cluster {
public:
    static bool isInstalled() { return std::filesystem::exists(programs() / "initdb"); }

    Cluster() {
        namespace fs = std::filesystem;
        fs::create_directory(home());
        if (const passwd* const user = getpwnam("postgres"); geteuid() == 0 && user != nullptr) {
            // PostgreSQL refuses to be root.
            fs::permissions(m_folder.path(), fs::perms::others_exec, fs::perm_options::add);
            if (chown(home().c_str(), user->pw_uid, user->pw_gid) != 0) {
                throw std::runtime_error("cannot give a folder to postgres");
            }
            m_as = {"/usr/bin/setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"};
        }
        const ProgramResult made = runProgram(
            command({programs() / "initdb", "-D", data(), "-U", "senvo", "--auth=trust", "-N", "--locale=C.UTF-8"}),
            m_folder.path());
        if (made.status != 0) {
            throw std::runtime_error("initdb: " + made.err);
        }
        start();
    }

    void start() {
        m_process.emplace(startProgram(
            command({programs() / "postgres", "-D", data(), "-k", home(), "-c", "listen_addresses=", "-F"}),
            m_folder.path()));
        for (int i = 0; i < 6000 && PQping(address("postgres").c_str()) != PQPING_OK; ++i) {
            usleep(10000);
        }
        if (PQping(address("postgres").c_str()) != PQPING_OK) {
            throw std::runtime_error("postgres does not start: " + readFile(m_folder.path() / "err"));
        }
    }

    void stop(int signal) {
        kill(m_process->pid(), signal);
        m_process->wait(60000);
        m_process.reset();
    }

    ~Cluster() {
        if (m_process) {
            stop(SIGQUIT);
        }
    }

    std::string address(const std::string& database = "postgres") const {
        return "host=" + home().string() + " user=senvo dbname=" + database;
    }

    /** What a query answers: values joined by a bar, rows by a line's end; or "error: " and why. */
    std::string ask(const std::string& sql) const {
        const std::unique_ptr<PGconn, decltype(&PQfinish)> connection(PQconnectdb(address().c_str()), PQfinish);
        PQsetNoticeProcessor(
            connection.get(), [](void*, const char*) {}, nullptr);
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(PQexec(connection.get(), sql.c_str()), PQclear);
        if (PQresultStatus(result.get()) != PGRES_TUPLES_OK && PQresultStatus(result.get()) != PGRES_COMMAND_OK) {
            return std::string("error: ") + PQerrorMessage(connection.get());
        }
        std::string text;
        for (int row = 0; row < PQntuples(result.get()); ++row) {
            for (int column = 0; column < PQnfields(result.get()); ++column) {
                text += (column > 0 ? "|" : "") + std::string(PQgetvalue(result.get(), row, column));
            }
            text += "\n";
        }
        return text;
    }

private:
    static std::filesystem::path programs() { return "/usr/lib/postgresql/15/bin"; }
    std::filesystem::path home() const { return m_folder.path() / "pg"; }
    std::string data() const { return home() / "data"; }
    std::vector<std::string> command(const std::vector<std::string>& words) const {
        std::vector<std::string> all = m_as;
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }

    TestFolder m_folder;
    std::vector<std::string> m_as;
    std::optional<Child> m_process;
};

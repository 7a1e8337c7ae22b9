#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "log/Logger.h"
#include "test_folder.h"

/**
 * A camera's folder as working folder and root for the length of a test: what the application logs can be read back.
 */
class LogCapture {
public:
    LogCapture() : m_inFolder(m_folder.path()) {
        std::filesystem::create_directories(m_folder.path() / "localdata");
        std::filesystem::create_directories(m_folder.path() / "usr/local/packages/ostrel_senvo/localdata");
        std::filesystem::create_directories(m_folder.path() / "usr/local/packages/ostrel_senvo/html");
        std::filesystem::create_directories(m_folder.path() / "tmp");
        std::filesystem::create_directories(m_folder.path() / "mnt/flash/usr/local/packages/ostrel_senvo");
        setenv("OSTREL_SENVO_ROOT", m_folder.path().c_str(), 1);
        applicationLog().clear();
    }
    ~LogCapture() {
        applicationLog().clear();
        unsetenv("OSTREL_SENVO_ROOT");
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::filesystem::path& folder() const { return m_folder.path(); }

    /** Level and message of every entry, "error: text". */
    static std::vector<std::string> lines() {
        applicationLog().flush();
        std::vector<std::string> lines;
        for (const LogEntry& entry : applicationLog().getLogEntriesFromFile()) {
            lines.push_back(entry._logLevel + ": " + entry._message);
        }
        return lines;
    }

    static int count(const std::string& line) {
        const std::vector<std::string> all = lines();
        return static_cast<int>(std::count(all.begin(), all.end(), line));
    }

    static int countContaining(const std::string& text) {
        int number = 0;
        for (const std::string& line : lines()) {
            number += line.find(text) != std::string::npos ? 1 : 0;
        }
        return number;
    }

    /** The lines of one level, without it. */
    static std::vector<std::string> ofLevel(const std::string& level) {
        std::vector<std::string> found;
        for (const std::string& line : lines()) {
            if (line.rfind(level + ": ", 0) == 0) {
                found.push_back(line.substr(level.size() + 2));
            }
        }
        return found;
    }

private:
    TestFolder m_folder;
    WorkingFolder m_inFolder;
};

#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "program.h"
#include "test_folder.h"

/** A folder of lines as another process writes them. */
class LineFolder {
public:
    std::string path() const { return m_folder.path().string(); }

    static std::string line(int64_t seq, const std::string& epoch = "a", const std::string& more = "") {
        return R"({"seq":)" + std::to_string(seq) + R"(,"epoch":")" + epoch + "\"" + more + "}\n";
    }

    /** The lines of some numbers, ends included. */
    static std::string lines(int64_t from, int64_t through, const std::string& epoch = "a") {
        std::string text;
        for (int64_t seq = from; seq <= through; ++seq) {
            text += line(seq, epoch);
        }
        return text;
    }

    /** Adds to the file whose first line has a number. */
    void append(int64_t first, const std::string& text, const std::string& ending = ".ndjson") const {
        std::ofstream(file(first, ending), std::ios::app | std::ios::binary) << text;
    }

    /** Gives a file another content, as retention does. */
    void rewrite(int64_t first, const std::string& text) const {
        writeFile(m_folder.path() / "beside", text);
        std::filesystem::rename(m_folder.path() / "beside", file(first));
    }

    std::filesystem::path file(int64_t first, const std::string& ending = ".ndjson") const {
        char name[32] = {};
        std::snprintf(name, sizeof name, "%012lld-2026-11-22", static_cast<long long>(first));
        return m_folder.path() / (name + ending);
    }

private:
    TestFolder m_folder;
};

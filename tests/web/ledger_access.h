#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "program.h"
#include "test_folder.h"
#include "web/ledger_actions.h"

/* A ledger that a test has written, as requests reach it. */

/** A ledger in a folder, written by the test. */
class Access : public LedgerAccess {
public:
    explicit Access(int64_t mostBytes = int64_t{1} << 30) : m_mostBytes(mostBytes) { m_book.open(); }

    void add(const std::string& utc, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {*ledger::utcOf(utc), "", 0};
        m_book.append(kind, body);
    }
    /** A line from before the clock was known. */
    void addUndated() { addUndated(1, "crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}}); }
    void addUndated(int64_t mono, const std::string& kind, const nlohmann::ordered_json& body) {
        m_now = {0, "boot", mono};
        m_book.append(kind, body);
    }
    void cross(const std::string& utc, const char* direction = "in") {
        add(utc, "crossing", {{"entrance", 1}, {"direction", direction}, {"class", "Person"}});
    }

    [[nodiscard]] const ledger::Ledger& book() const override { return m_book; }
    void makeSafe() override { m_book.keep(); }
    [[nodiscard]] ledger::LastRun lastRun() const override { return before; }
    ledger::Index& index() override { return m_index; }

    void write(const std::string& kind, const nlohmann::ordered_json& body) override { m_book.append(kind, body); }
    AnswerJobs& jobs() override { return m_jobs; }
    [[nodiscard]] std::string archive() const override { return m_folder.path() / "EntranceActivityTidy.csv"; }
    [[nodiscard]] ledger::RunTotals totals() const override { return seen; }

    /** Makes a file of the ledger one that cannot be read. */
    void spoil(const std::string& name) const {
        std::filesystem::remove(m_folder.path() / "ledger" / name);
        std::filesystem::create_directory(m_folder.path() / "ledger" / name);
    }
    /** Puts a file beside the ledger's. */
    void put(const std::string& name, const std::string& text = "", uintmax_t bytes = 0) const {
        const std::filesystem::path path = m_folder.path() / "ledger" / name;
        writeFile(path, text);
        std::filesystem::resize_file(path, std::max<uintmax_t>(bytes, text.size()));
    }
    /** The application is started again. */
    void reopen() { m_book.open(); }

    ledger::LastRun before;
    ledger::RunTotals seen;

private:
    const int64_t m_mostBytes;
    TestFolder m_folder;
    ledger::Moment m_now;
    std::unique_ptr<ledger::Disk> m_disk = ledger::openFolder((m_folder.path() / "ledger").string());
    ledger::Ledger m_book{*m_disk, {m_mostBytes, [this] { return m_now; }, [] { return std::string("e1"); }}};
    ledger::Index m_index{*m_disk, m_book};
    AnswerJobs m_jobs;
};

/** Asks, and asks again where an answer takes its time. */
inline LedgerAnswer ask(Access& access, const LedgerQuestion& question, bool isPost = false) {
    LedgerAnswer answer = *(isPost ? answerPostToLedger : answerFromLedger)(access, question);
    while (std::string(answer.status) == "202 Accepted") {
        const auto job = nlohmann::json::parse(answer.body).at("job").get<int64_t>();
        answer = *answerFromLedger(access, {"ledger_answer", {{"job", std::to_string(job)}}});
    }
    return answer;
}

/** The value of a header of an answer. */
inline std::string headerOf(const LedgerAnswer& answer, const std::string& name) {
    const size_t at = answer.headers.find(name + ": ");
    const size_t begin = at + name.size() + 2;
    return at == std::string::npos ? "" : answer.headers.substr(begin, answer.headers.find("\r\n", at) - begin);
}

inline std::vector<int64_t> numbersOf(const std::string& lines) {
    std::vector<int64_t> numbers;
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        const std::optional<ledger::LineHead> head = ledger::headOf(line);
        EXPECT_TRUE(head) << line;
        numbers.push_back(head ? head->seq : 0);
    }
    return numbers;
}

using Numbers = std::vector<int64_t>;

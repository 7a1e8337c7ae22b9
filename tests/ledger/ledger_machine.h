#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ledger/index.h"
#include "ledger/ledger.h"

namespace ledger {

inline constexpr int64_t kMidnight = 1'795'305'600'000;  // 2026-11-22
inline constexpr int64_t kDay = 86'400'000;

/** A ledger whose clock the test moves. */
class Machine {
public:
    explicit Machine(Disk& disk, int64_t mostBytes = int64_t{1} << 30) : m_disk(disk), m_mostBytes(mostBytes) {
        start();
    }

    /** Starts the application again. */
    std::string start() {
        m_ledger =
            std::make_unique<Ledger>(m_disk, LedgerOptions{m_mostBytes, [this] { return now; },
                                                           [this] { return "epoch" + std::to_string(++m_epochs); }});
        return m_ledger->open();
    }

    bool add(const std::string& kind = "crossing") { return m_ledger->append(kind, {{"note", ++m_note}}); }

    Ledger& ledger() { return *m_ledger; }

    Moment now = {kMidnight, "", 0};

private:
    Disk& m_disk;
    const int64_t m_mostBytes;
    std::unique_ptr<Ledger> m_ledger;
    int m_epochs = 0;
    int m_note = 0;
};

/** Every line's text by its number, read in pieces. */
inline std::map<int64_t, std::string> textsOf(const Ledger& book) {
    std::map<int64_t, std::string> texts;
    for (int64_t next = 1; next <= book.end().seq;) {
        std::istringstream piece(book.lines(next, book.end().seq, 4096));
        std::string line;
        while (std::getline(piece, line)) {
            const std::optional<LineHead> head = headOf(line);
            EXPECT_TRUE(head) << line;
            texts[head ? head->seq : 0] = line;
        }
        const int64_t last = texts.empty() ? 0 : texts.rbegin()->first;
        if (last < next) {
            break;
        }
        next = last + 1;
    }
    return texts;
}

inline std::vector<nlohmann::json> allLines(const Ledger& book) {
    std::vector<nlohmann::json> lines;
    for (const auto& [seq, text] : textsOf(book)) {
        lines.push_back(parseLine(text));
        EXPECT_FALSE(lines.back().is_discarded()) << text;
    }
    return lines;
}

/** The gaps between lines' numbers that no cut explains. */
inline std::string unexplainedGaps(const std::map<int64_t, std::string>& texts) {
    std::vector<std::pair<int64_t, int64_t>> cuts;
    int64_t expected = 1;
    std::vector<std::pair<int64_t, int64_t>> missing;
    for (const auto& [seq, text] : texts) {
        if (expected < seq) {
            missing.emplace_back(expected, seq - 1);
        }
        expected = seq + 1;
        if (text.find(R"("kind":"cut")") != std::string::npos) {
            const nlohmann::json cut = parseLine(text);
            cuts.emplace_back(cut["from"], cut["through"]);
        }
    }
    for (auto [from, through] : missing) {
        for (int64_t reached = 0; from <= through; from = reached) {
            reached = from;
            for (const auto& [first, last] : cuts) {
                reached = first <= from ? std::max(reached, last + 1) : reached;
            }
            if (reached == from) {
                return std::to_string(from) + ".." + std::to_string(through);
            }
        }
    }
    return "";
}

/** All crossings that an index counts, once it has read what there is. */
inline int64_t crossingsIn(Index& index) {
    while (!index.update(500)) {
    }
    int64_t crossings = 0;
    for (const auto& [number, quarter] : index.quarters(0, std::numeric_limits<int64_t>::max())) {
        for (const auto& [key, count] : quarter.crossings) {
            crossings += count;
        }
    }
    return crossings;
}

inline std::string unexplainedGaps(const Ledger& book) {
    return unexplainedGaps(textsOf(book));
}

}  // namespace ledger

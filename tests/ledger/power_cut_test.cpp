#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>

#include "failing_power.h"
#include "ledger_machine.h"
#include "slow_build.h"

namespace ledger {
namespace {

/** A disk whose power fails in the middle of what others do with it. */
class FailingMidway : public FailingPower {
public:
    using FailingPower::FailingPower;

    /** Thrown out of the operation in which the power fails: nothing behind it happens any more. */
    struct PowerFailure {};

    /** The power fails before or behind what the operation does that is so many changes of the disk away. */
    void failIn(uint64_t changes) { m_left = changes; }

    bool append(const std::string& name, std::string_view text) override {
        return change([&] { return FailingPower::append(name, text); });
    }
    bool sync(const std::string& name) override {
        return change([&] { return FailingPower::sync(name); });
    }
    bool truncate(const std::string& name, int64_t size) override {
        return change([&] { return FailingPower::truncate(name, size); });
    }
    bool replace(const std::string& name, std::string_view content) override {
        return change([&] {
            const uint64_t left = std::exchange(m_left, 0);  // it syncs, too, and is whole or not at all
            const bool isDone = FailingPower::replace(name, content);
            m_left = left;
            return isDone;
        });
    }
    bool rename(const std::string& from, const std::string& to) override {
        return change([&] { return FailingPower::rename(from, to); });
    }
    bool remove(const std::string& name) override {
        return change([&] { return FailingPower::remove(name); });
    }

private:
    template <typename Operation>
    bool change(Operation operation) {
        const bool fails = m_left > 0 && --m_left == 0;
        if (fails && m_random() % 2 == 0) {
            throw PowerFailure();
        }
        const bool isDone = operation();
        if (fails) {
            throw PowerFailure();
        }
        return isDone;
    }

    uint64_t m_left = 0; /**< changes until the power fails; 0: it does not */
    std::mt19937 m_random{5};
};

/** What somebody knows of a ledger who wrote it. */
class Writer {
public:
    explicit Writer(FailingMidway& disk) : m_disk(disk) { start(); }

    /** Starts the application again; the power may fail in that. */
    void start() {
        m_index.reset();
        m_book = std::make_unique<Ledger>(
            m_disk, LedgerOptions{4'000, [this] { return m_now; }, [] { return std::string("epoch"); }});
        m_book->open();
        m_index = std::make_unique<Index>(m_disk, *m_book);
    }

    void step(uint64_t chosen) {
        switch (chosen % 8) {
            case 0:
                m_now.utcMillis += kDay;
                break;
            case 1:
                m_book->keep();
                m_safeSeq = m_book->safeSeq();
                break;
            case 2:
                m_index->update(static_cast<int64_t>(chosen % 3000));
                m_index->save();
                break;
            case 3:
                m_disk.setFull((chosen / 8) % 4 == 0);
                break;
            default:
                ++m_note;
                if (m_book->append(chosen % 3 == 0 ? "object" : "crossing",
                                   {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}, {"note", m_note}})) {
                    m_notes[m_book->end().seq] = m_note;
                }
        }
    }

    /** What is wrong with the ledger after a failure; empty when nothing is. */
    std::string faults() {
        const std::map<int64_t, std::string> texts = textsOf(*m_book);
        if (m_book->end().seq < m_safeSeq) {
            return "ends at " + std::to_string(m_book->end().seq) + ", safe was " + std::to_string(m_safeSeq);
        }
        m_notes.erase(m_notes.upper_bound(m_book->end().seq), m_notes.end());
        int64_t crossings = 0;
        for (const auto& [seq, text] : texts) {
            if (text.find(R"("kind":"cut","removed":"all")") != std::string::npos) {
                // Of what was safe only the oldest lines go, for lack of room.
                const int64_t from = parseLine(text)["from"];
                if (!m_cuts.contains(seq) && from > 1 && from <= m_safeSeq) {
                    return "lost what was safe: " + text;
                }
                m_cuts.insert(seq);
                m_notes.erase(seq);  // it may have the number of a line that was not safe
            }
            const auto note = m_notes.find(seq);
            const std::string expected = note == m_notes.end() ? "" : "\"note\":" + std::to_string(note->second) + "}";
            if (text.find(expected) == std::string::npos) {
                return "expected " + expected + ", got " + text;
            }
            crossings += text.find(R"("kind":"crossing")") == std::string::npos ? 0 : 1;
        }
        const int64_t counted = crossingsIn(*m_index);
        return counted == crossings
                   ? unexplainedGaps(texts)
                   : "the index counts " + std::to_string(counted) + " of " + std::to_string(crossings);
    }

private:
    FailingMidway& m_disk;
    Moment m_now = {kMidnight, "", 0};
    std::unique_ptr<Ledger> m_book;
    std::unique_ptr<Index> m_index;
    int64_t m_safeSeq = 0;
    int m_note = 0;
    std::map<int64_t, int> m_notes; /**< by the line's number */
    std::set<int64_t> m_cuts;       /**< numbers of lines "cut" that were looked at */
};

TEST(LedgerPowerCut, LosesNothingThatWasSafe) {
    constexpr int kCuts = kSlow ? 1'000 : 10'000;
    FailingMidway disk(7);
    Writer writer(disk);
    std::mt19937 random(11);
    for (int cut = 0; cut < kCuts; ++cut) {
        disk.failIn(1 + random() % 40);
        for (bool isOn = true; isOn;) {
            try {
                writer.step(random());
            } catch (const FailingMidway::PowerFailure&) {
                isOn = false;
            }
        }
        disk.cutPower();
        // The power may fail again while the application mends what it finds.
        disk.failIn(random() % 4);
        for (bool isStarted = false; !isStarted;) {
            try {
                writer.start();
                isStarted = true;
            } catch (const FailingMidway::PowerFailure&) {
                disk.cutPower();
            }
        }
        disk.failIn(0);
        disk.setFull(false);
        writer.step(4);  // adds a line, before which a start that had no room tells what is gone
        ASSERT_EQ(writer.faults(), "") << "cut " << cut;
    }
}

}  // namespace
}  // namespace ledger

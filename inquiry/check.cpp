#include "inquiry/check.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "inquiry/check_archive.h"
#include "inquiry/kept_path.h"
#include "ledger/index.h"
#include "statistics/occupancy_records.h"

namespace inquiry {

namespace {

using nlohmann::json;

constexpr int64_t kMostOffset = 86'400;    // of any zone, seconds
constexpr int64_t kLongestCycle = 10'000;  // milliseconds between what a cycle counts and its lines

struct Cut {
    int64_t from = 0;
    int64_t through = 0;
    bool isAll = false; /**< lines of every kind; else those of objects */
    int64_t lines = 0;  /**< how many of objects */

    [[nodiscard]] bool overlaps(int64_t first, int64_t last) const { return from <= last && through >= first; }
};

std::string tallyName(const KeptCrossing& crossing) {
    return std::string(entranceNames.at(static_cast<size_t>(crossing.entrance - 1))) +
           (crossing.isIn ? "_Entrances_" : "_Exits_") + class_index_to_label(crossing.classId);
}

bool isOfCrossings(const std::string& name) {
    return name.find("_Entrances_") != std::string::npos || name.find("_Exits_") != std::string::npos;
}

/** Walks a ledger and keeps what the next line is judged by. */
class Walk {
public:
    Walk(Checked& checked, std::vector<Cut> cuts) : m_checked(checked), m_cuts(std::move(cuts)) {}

    void take(const std::string& file, std::string_view text) {
        const json line = ledger::parseLine(text);
        const std::optional<ledger::LineHead> head = ledger::headOf(text);
        if (line.is_discarded() || !head) {
            m_checked.faults.push_back(file + ": behind line " + std::to_string(m_seq) +
                                       " is something that is no line");
            return;
        }
        ++m_checked.lines;
        if (head->moment.isDated()) {
            m_kept.first = m_kept.first ? m_kept.first : head->moment.utcMillis;
            m_kept.last = head->moment.utcMillis;
        }
        if (head->kind == "start" && m_seq > 0) {
            m_kept.breaks.push_back(head->seq);
        }
        judgeNumber(file, *head);
        if (head->kind == "start") {
            // What a run had counted since its last period is in no tally.
            m_checked.explained += m_sum.empty() && m_unsure.empty() ? 0 : 1;
            m_sum.clear();
            m_unsure.clear();
            m_resetAt.reset();
            m_isWhole = true;
        } else if (head->kind == "reset") {
            m_sum.clear();
            m_unsure.clear();
            m_resetAt = timeOf(*head);
        } else if (head->kind == "crossing") {
            if (const std::optional<KeptCrossing> crossing = crossingOf(line)) {
                ++m_checked.crossings;
                const bool isSure = !m_resetAt || std::abs(timeOf(*head) - *m_resetAt) > kLongestCycle;
                ++(isSure ? m_sum : m_unsure)[tallyName(*crossing)];
            } else {
                m_checked.faults.push_back(file + ": line " + std::to_string(head->seq) + " is no crossing");
            }
        } else if (head->kind == "period") {
            judgePeriod(file, *head, line);
        }
    }

    /** Judges what only all lines together tell. */
    void finish() {
        for (const auto& [cut, missing] : m_missing) {
            const Cut& told = m_cuts.at(cut);
            // Ledgers of before have no number in the line.
            if (told.lines > 0 && missing > told.lines) {
                m_checked.faults.push_back("between the lines " + std::to_string(told.from) + " and " +
                                           std::to_string(told.through) + " " + std::to_string(missing) +
                                           " are missing, of which " + std::to_string(told.lines) + " were cut");
            }
        }
    }

    [[nodiscard]] const KeptPeriods& kept() const { return m_kept; }

private:
    /** Whether a line "cut" tells that all lines between two numbers are gone, or all of a kind that is not kept. */
    [[nodiscard]] bool isCut(int64_t from, int64_t through) {
        // What was cut of one kind may have been cut altogether later.
        const bool ofAll = std::any_of(m_cuts.begin(), m_cuts.end(),
                                       [&](const Cut& cut) { return cut.isAll && cut.overlaps(from, through); });
        m_isWhole = m_isWhole && !ofAll;
        int64_t next = from;
        for (size_t i = 0; i < m_cuts.size(); ++i) {
            const Cut& cut = m_cuts[i];
            if (cut.overlaps(next, next)) {
                const int64_t last = std::min(cut.through, through);
                m_missing[i] += ofAll ? 0 : last - next + 1;
                next = last + 1;
            }
        }
        return next > through;
    }

    void judgeNumber(const std::string& file, const ledger::LineHead& head) {
        if (m_epoch.empty()) {
            m_epoch = head.epoch;
        } else if (head.epoch != m_epoch) {
            m_checked.faults.push_back(file + ": line " + std::to_string(head.seq) + " is of the epoch " + head.epoch +
                                       ", expected " + m_epoch);
            m_epoch = head.epoch;
        }
        if (head.seq <= m_seq) {
            m_checked.faults.push_back(file + ": line " + std::to_string(head.seq) + " comes behind line " +
                                       std::to_string(m_seq));
        } else if (head.seq > m_seq + 1) {
            judgeGap(file, head);
        }
        m_seq = std::max(m_seq, head.seq);
    }

    void judgeGap(const std::string& file, const ledger::LineHead& head) {
        const bool wasWhole = std::exchange(m_isWhole, true);
        if (!isCut(m_seq + 1, head.seq - 1)) {
            m_checked.faults.push_back(file + ": lines " + std::to_string(m_seq + 1) + " to " +
                                       std::to_string(head.seq - 1) +
                                       " are missing, and no line says that they were cut");
            m_isWhole = false;
        }
        if (!m_isWhole && m_seq > 0) {
            m_kept.breaks.push_back(head.seq);
        }
        m_isWhole = m_isWhole && wasWhole;
    }

    void judgePeriod(const std::string& file, const ledger::LineHead& head, const json& line) {
        Period period = {head.seq,
                         ledger::textIn(line, "camera"),
                         ledger::textIn(line, "archived"),
                         std::clamp(ledger::numberIn(line, "offset"), -kMostOffset, kMostOffset),
                         {}};
        const auto found = line.find("tallies");
        const json tallies = found == line.end() ? json::object() : *found;
        for (const auto& [name, count] : tallies.items()) {
            if (isOfCrossings(name) && count.is_number_integer()) {
                period.tallies[name] = count.get<int64_t>();
            }
        }
        const bool isSame = std::all_of(period.tallies.begin(), period.tallies.end(), [&](const auto& tally) {
            const auto countIn = [&tally](const Tallies& sums) {
                const auto counted = sums.find(tally.first);
                return counted == sums.end() ? 0 : counted->second;
            };
            const int64_t sure = countIn(m_sum);
            return tally.second >= sure && tally.second <= sure + countIn(m_unsure);
        });
        if (isSame) {
            ++m_checked.periods;
        } else if (!m_isWhole) {
            ++m_checked.explained;
        } else {
            m_checked.faults.push_back(file + ": the tallies of the period in line " + std::to_string(head.seq) +
                                       " are not the sum of its crossings");
        }
        m_kept.periods.push_back(std::move(period));
        m_sum.clear();
        m_unsure.clear();
        m_resetAt.reset();
        m_isWhole = true;
    }

    Checked& m_checked;
    std::vector<Cut> m_cuts;
    std::string m_epoch;
    int64_t m_seq = 0;
    Tallies m_sum;                       /**< crossings since the last period, start or reset */
    std::optional<int64_t> m_resetAt;    /**< in this period */
    Tallies m_unsure;                    /**< what crossed about then: the same cycle's may be on either side */
    bool m_isWhole = false;              /**< this period's lines are all there */
    std::map<size_t, int64_t> m_missing; /**< lines, by the cut that explains them */
    KeptPeriods m_kept;
};

/** All that was cut, by the numbers it begins with: a line tells it that may come long after. */
std::vector<Cut> cutsOf(ledger::Disk& disk) {
    std::vector<Cut> cuts;
    visitLines(chunksOf(disk, {}), [&](const ledger::LineHead& head, std::string_view text) {
        if (head.kind == "cut") {
            const json line = ledger::parseLine(text);
            cuts.push_back({ledger::numberIn(line, "from"), ledger::numberIn(line, "through"),
                            ledger::textIn(line, "removed") == "all", ledger::numberIn(line, "lines")});
        }
        return true;
    });
    std::sort(cuts.begin(), cuts.end(), [](const Cut& a, const Cut& b) { return a.from < b.from; });
    return cuts;
}

}  // namespace

Checked check(ledger::Disk& disk, const std::string& archive) {
    Checked checked;
    Walk walk(checked, cutsOf(disk));
    for (ledger::LedgerFile file : filesIn(disk)) {
        file.bytes = disk.size(file.name).value_or(0);
        const bool isRead = ledger::forEachLine(disk, file, 0, [&](std::string_view line, int64_t) {
            walk.take(file.name, line);
            return true;
        });
        if (!isRead) {
            checked.faults.push_back("cannot read " + file.name);
        }
    }
    for (const std::string& name : disk.list()) {
        if (name.ends_with(ledger::kAsideEnding)) {
            checked.faults.push_back(name + " was set aside, since it could not be read");
        }
    }
    walk.finish();
    if (!archive.empty()) {
        compareArchive(archive, walk.kept(), checked);
    }
    return checked;
}

}  // namespace inquiry

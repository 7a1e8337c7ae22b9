#include "check.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "index.h"
#include "kept_path.h"
#include "occupancy_records.h"

namespace inquiry {

namespace {

using nlohmann::json;

/** Tallies of a period by the data map's names, such as "Entrance1_Entrances_Person". */
using Tallies = std::map<std::string, int64_t>;

struct Cut {
    int64_t from = 0;
    int64_t through = 0;
    bool isAll = false; /**< lines of every kind; else those of objects */
};

/** A period as the ledger has it. */
struct Period {
    int64_t seq = 0;
    std::string camera;
    std::string archived; /**< its date in the archives */
    Tallies tallies;
};

std::string tallyName(const KeptCrossing& crossing) {
    return std::string(entranceNames.at(static_cast<size_t>(crossing.entrance - 1))) +
           (crossing.isIn ? "_Entrances_" : "_Exits_") + class_index_to_label(crossing.classId);
}

/** The same for a number of an archive's record. */
std::string tallyName(const EntranceActivityRecord& record, bool isIn) {
    return std::string(entranceNames.at(static_cast<size_t>(record.entrance))) + (isIn ? "_Entrances_" : "_Exits_") +
           objectNames.at(static_cast<size_t>(record.object));
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
        judgeNumber(file, *head);
        if (head->kind == "start") {
            // What a run had counted since its last period is in no tally.
            m_checked.explained += m_sum.empty() ? 0 : 1;
            m_sum.clear();
            m_isWhole = true;
        } else if (head->kind == "reset") {
            m_sum.clear();
            m_isReset = true;
        } else if (head->kind == "crossing") {
            if (const std::optional<KeptCrossing> crossing = crossingOf(line)) {
                ++m_checked.crossings;
                ++m_sum[tallyName(*crossing)];
            } else {
                m_checked.faults.push_back(file + ": line " + std::to_string(head->seq) + " is no crossing");
            }
        } else if (head->kind == "period") {
            judgePeriod(file, *head, line);
        }
    }

    [[nodiscard]] const std::vector<Period>& periods() const { return m_periods; }

private:
    /** Whether a line "cut" tells that all lines between two numbers are gone, or all of a kind that is not kept. */
    [[nodiscard]] bool isCut(int64_t from, int64_t through) {
        int64_t next = from;
        for (const Cut& cut : m_cuts) {
            if (cut.from <= next && cut.through >= next) {
                m_isWhole = m_isWhole && !cut.isAll;
                next = cut.through + 1;
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
        }
        if (head.seq <= m_seq) {
            m_checked.faults.push_back(file + ": line " + std::to_string(head.seq) + " comes behind line " +
                                       std::to_string(m_seq));
        } else if (head.seq > m_seq + 1 && !isCut(m_seq + 1, head.seq - 1)) {
            m_checked.faults.push_back(file + ": lines " + std::to_string(m_seq + 1) + " to " +
                                       std::to_string(head.seq - 1) +
                                       " are missing, and no line says that they were cut");
            m_isWhole = false;
        }
        m_seq = std::max(m_seq, head.seq);
    }

    void judgePeriod(const std::string& file, const ledger::LineHead& head, const json& line) {
        Period period = {head.seq, ledger::textIn(line, "camera"), ledger::textIn(line, "archived"), {}};
        const auto found = line.find("tallies");
        const json tallies = found == line.end() ? json::object() : *found;
        for (const auto& [name, count] : tallies.items()) {
            if (isOfCrossings(name) && count.is_number_integer()) {
                period.tallies[name] = count.get<int64_t>();
            }
        }
        const bool isSame = std::all_of(period.tallies.begin(), period.tallies.end(), [&](const auto& tally) {
            const auto counted = m_sum.find(tally.first);
            return tally.second == (counted == m_sum.end() ? 0 : counted->second);
        });
        if (isSame) {
            ++m_checked.periods;
        } else if (m_isReset || !m_isWhole) {
            ++m_checked.explained;
        } else {
            m_checked.faults.push_back(file + ": the tallies of the period in line " + std::to_string(head.seq) +
                                       " are not the sum of its crossings");
        }
        m_periods.push_back(std::move(period));
        m_sum.clear();
        m_isReset = false;
        m_isWhole = true;
    }

    Checked& m_checked;
    std::vector<Cut> m_cuts;
    std::string m_epoch;
    int64_t m_seq = 0;
    Tallies m_sum;          /**< crossings since the last period, start or reset */
    bool m_isReset = false; /**< in this period; what crossed in that very cycle may be on either side */
    bool m_isWhole = false; /**< this period's lines are all there */
    std::vector<Period> m_periods;
};

/** All that was cut, by the numbers it begins with: a line tells it that may come long after. */
std::vector<Cut> cutsOf(ledger::Disk& disk) {
    std::vector<Cut> cuts;
    visitLines(chunksOf(disk, {}), [&](const ledger::LineHead& head, std::string_view text) {
        if (head.kind == "cut") {
            const json line = ledger::parseLine(text);
            cuts.push_back({ledger::numberIn(line, "from"), ledger::numberIn(line, "through"),
                            ledger::textIn(line, "removed") == "all"});
        }
        return true;
    });
    std::sort(cuts.begin(), cuts.end(), [](const Cut& a, const Cut& b) { return a.from < b.from; });
    return cuts;
}

/** A number of a period that no number of the archive has been compared with. */
struct Kept {
    int64_t count = 0;
    int64_t seq = 0; /**< the period's line */
};

/** By date in the archive and camera, then by name. A second of local time may come twice, and with it a key. */
using KeptByEnd = std::map<std::pair<std::string, std::string>, std::map<std::string, std::vector<Kept>>>;

KeptByEnd keptByEnd(const std::vector<Period>& periods) {
    KeptByEnd kept;
    for (const Period& period : periods) {
        auto& here = kept[{period.archived, period.camera}];
        for (const auto& [name, count] : period.tallies) {
            here[name].push_back({count, period.seq});
        }
    }
    return kept;
}

/** Compares the archive's periods with the ledger's that ended in the same second. */
void compareArchive(const std::string& archive, const std::vector<Period>& periods, Checked& checked) {
    std::ifstream file(archive);
    if (!file) {
        checked.faults.push_back("cannot read " + archive);
        return;
    }
    KeptByEnd byEnd = keptByEnd(periods);
    std::set<std::pair<std::string, std::string>> compared;
    for (std::string line; std::getline(file, line);) {
        EntranceActivityRecord record;
        try {
            if (!record.deserialize(line) || static_cast<size_t>(record.entrance) >= entranceNames.size() ||
                static_cast<size_t>(record.object) >= objectNames.size()) {
                continue;
            }
        } catch (const std::logic_error&) {
            continue;
        }
        const auto here = byEnd.find({record.dateTime, record.cameraName});
        if (here == byEnd.end()) {
            continue;  // a follower's, or from before the ledger's first day
        }
        compared.insert(here->first);
        for (const bool isIn : {true, false}) {
            const std::string name = tallyName(record, isIn);
            const int32_t count = isIn ? record.entranceCount : record.exitCount;
            std::vector<Kept>& kept = here->second[name];
            const auto same =
                std::find_if(kept.begin(), kept.end(), [&](const Kept& one) { return one.count == count; });
            if (same != kept.end()) {
                kept.erase(same);
                continue;
            }
            checked.faults.push_back(archive + ": " + record.dateTime + " has " + std::to_string(count) + " for " +
                                     name + ", " +
                                     (kept.empty() ? "no line of the ledger has any"
                                                   : "the ledger's line " + std::to_string(kept.front().seq) + " has " +
                                                         std::to_string(kept.front().count)));
        }
    }
    checked.archived = static_cast<int64_t>(compared.size());
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
    if (!archive.empty()) {
        compareArchive(archive, walk.periods(), checked);
    }
    return checked;
}

}  // namespace inquiry

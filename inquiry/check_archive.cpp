#include "inquiry/check_archive.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "ledger/line.h"
#include "statistics/occupancy_records.h"

namespace inquiry {

namespace {

constexpr int64_t kMillisPerSecond = 1000;
constexpr std::string_view kDate = "2026-11-22 08:15:00";

std::string tallyName(const EntranceActivityRecord& record, bool isIn) {
    return std::string(entranceNames.at(static_cast<size_t>(record.entrance))) + (isIn ? "_Entrances_" : "_Exits_") +
           objectNames.at(static_cast<size_t>(record.object));
}

/** A number of a period that no number of the archive has been compared with. */
struct Kept {
    int64_t count = 0;
    int64_t seq = 0;     /**< the period's line */
    bool isAlone = true; /**< no other period ended in that second of local time */
};

/** By date in the archive and camera, then by name. A second of local time may come twice, and with it a key. */
using KeptByEnd = std::map<std::pair<std::string, std::string>, std::map<std::string, std::vector<Kept>>>;

KeptByEnd keptByEnd(const std::vector<Period>& periods) {
    KeptByEnd kept;
    for (const Period& period : periods) {
        auto& here = kept[{period.archived, period.camera}];
        for (const auto& [name, count] : period.tallies) {
            std::vector<Kept>& known = here[name];
            known.push_back({count, period.seq, known.empty()});
            known.front().isAlone = known.size() == 1;
        }
    }
    return kept;
}

/** The local time of a moment, as the archives have it. */
std::string archiveDate(int64_t utcMillis, int64_t offset) {
    std::string text = ledger::utcText(utcMillis + offset * kMillisPerSecond).substr(0, kDate.size());
    text[kDate.find(' ')] = ' ';
    return text;
}

/** Finds the archive's periods that the ledger should have and has not. */
class Coverage {
public:
    explicit Coverage(const KeptPeriods& ledger) : m_ledger(ledger) {
        for (const Period& period : ledger.periods) {
            m_cameras.insert(period.camera);
            m_seqs[{period.archived, period.camera}].push_back(period.seq);
        }
    }

    /** The archive's records in order. */
    void add(const EntranceActivityRecord& record) {
        const std::pair<std::string, std::string> key = {record.dateTime, record.cameraName};
        if (!m_cameras.contains(record.cameraName) || key == m_last) {
            return;  // a follower's, or another number of the same period
        }
        m_last = key;
        const auto known = m_seqs.find(key);
        if (known == m_seqs.end()) {
            m_unknown.push_back(record.dateTime);
            return;
        }
        // A second of local time may come twice.
        const std::vector<int64_t>& seqs = known->second;
        const auto next = std::find_if(seqs.begin(), seqs.end(), [&](int64_t seq) { return seq > m_before.seq; });
        const Neighbour here = {next == seqs.end() ? seqs.front() : *next, record.dateTime};
        judge(here);
        m_before = here;
    }

    /** The dates of those that are missing, once all are added. */
    std::vector<std::string> missing() {
        judge({});
        return std::move(m_missing);
    }

private:
    /** A period that both have; seq is 0 for none. */
    struct Neighbour {
        int64_t seq = 0;
        std::string date;
    };

    /** Judges those that came between two periods that both have. */
    void judge(const Neighbour& behind) {
        const std::vector<std::string> unknown = std::exchange(m_unknown, {});
        const int64_t end = behind.seq == 0 ? std::numeric_limits<int64_t>::max() : behind.seq;
        const bool isBroken = std::any_of(m_ledger.breaks.begin(), m_ledger.breaks.end(),
                                          [&](int64_t seq) { return seq > m_before.seq && seq <= end; });
        if (isBroken || unknown.empty() || !m_ledger.first || !m_ledger.last) {
            return;
        }
        // Of the second in which the ledger begins or ends nobody knows.
        const std::string from = m_before.seq == 0
                                     ? archiveDate(*m_ledger.first + kMillisPerSecond, m_ledger.periods.front().offset)
                                     : m_before.date;
        const std::string until = behind.seq == 0
                                      ? archiveDate(*m_ledger.last - kMillisPerSecond, m_ledger.periods.back().offset)
                                      : behind.date;
        std::copy_if(unknown.begin(), unknown.end(), std::back_inserter(m_missing),
                     [&](const std::string& date) { return date >= from && date <= until; });
    }

    const KeptPeriods& m_ledger;
    std::set<std::string> m_cameras;                                            /**< this camera's names */
    std::map<std::pair<std::string, std::string>, std::vector<int64_t>> m_seqs; /**< by date and camera */
    std::pair<std::string, std::string> m_last;                                 /**< the period that is being read */
    Neighbour m_before;
    std::vector<std::string> m_unknown; /**< dates since then */
    std::vector<std::string> m_missing;
};

/**
 * Notes the numbers of compared periods that the archive has no row for. Of its first, a purge may have left half;
 * where a second of local time came twice, one of two periods may be all that it has.
 */
void noteMissing(const std::string& archive, const KeptByEnd& byEnd,
                 const std::set<std::pair<std::string, std::string>>& compared, const std::string& first,
                 Checked& checked) {
    for (const auto& [end, numbers] : byEnd) {
        if (!compared.contains(end) || end.first == first) {
            continue;
        }
        for (const auto& [name, kept] : numbers) {
            for (const Kept& one : kept) {
                if (one.count != 0 && one.isAlone) {
                    checked.faults.push_back(archive + ": " + end.first + " has no row for " + name +
                                             ", the ledger's line " + std::to_string(one.seq) + " has " +
                                             std::to_string(one.count));
                }
            }
        }
    }
}

}  // namespace

void compareArchive(const std::string& archive, const KeptPeriods& ledger, Checked& checked) {
    std::ifstream file(archive);
    if (!file) {
        checked.faults.push_back("cannot read " + archive);
        return;
    }
    KeptByEnd byEnd = keptByEnd(ledger.periods);
    Coverage coverage(ledger);
    std::set<std::pair<std::string, std::string>> compared;
    std::string first;
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
        first = first.empty() ? record.dateTime : first;
        coverage.add(record);
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
            if (!kept.empty()) {
                kept.erase(kept.begin());
            }
        }
    }
    noteMissing(archive, byEnd, compared, first, checked);
    for (const std::string& date : coverage.missing()) {
        checked.faults.push_back(archive + ": no line of the ledger tells of the period that ended " + date);
    }
    checked.archived = static_cast<int64_t>(compared.size());
}

}  // namespace inquiry

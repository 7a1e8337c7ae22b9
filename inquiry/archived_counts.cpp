#include "inquiry/archived_counts.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "inquiry/kept_path.h"
#include "inquiry/lines.h"
#include "ledger/counts.h"
#include "statistics/occupancy_records.h"

namespace inquiry {

namespace {

/** What the periods tell with which a ledger begins. */
struct Beginning {
    /** Dates of periods that the archive need not tell of, whatever clock dated them: what the ledger has of them. */
    std::set<std::string> archived;
    std::string camera;                          /**< what it was called then; empty where no line tells */
    std::map<ledger::CountKey, int64_t> missing; /**< of the first one, in which lines were cut */
};

std::string tallyName(const ledger::CountKey& key) {
    return std::string(entranceNames.at(static_cast<size_t>(key.entrance - 1))) +
           (key.isIn ? "_Entrances_" : "_Exits_") + objectNames.at(static_cast<size_t>(key.classId));
}

/** What a period counted and the crossings in the ledger do not tell. */
std::map<ledger::CountKey, int64_t> without(const std::map<ledger::CountKey, int64_t>& seen,
                                            const nlohmann::json& period) {
    std::map<ledger::CountKey, int64_t> missing;
    const nlohmann::json tallies = period.value("tallies", nlohmann::json());
    if (!tallies.is_object()) {
        return missing;
    }
    for (int entrance = 1; entrance <= static_cast<int>(entranceNames.size()); ++entrance) {
        for (int classId = 0; classId < static_cast<int>(objectNames.size()); ++classId) {
            for (const bool isIn : {true, false}) {
                const ledger::CountKey key = {entrance, isIn, classId};
                const auto known = seen.find(key);
                const int64_t count =
                    ledger::numberIn(tallies, tallyName(key).c_str()) - (known == seen.end() ? 0 : known->second);
                if (count > 0) {
                    missing[key] = count;
                }
            }
        }
    }
    return missing;
}

Beginning beginningOf(const ledger::Ledger& book) {
    Beginning result;
    std::map<ledger::CountKey, int64_t> seen;
    bool isWhole = false;
    visitLines(chunksOf(book, {}), [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "crossing" && result.archived.empty()) {
            if (const std::optional<KeptCrossing> crossing = crossingOf(ledger::parseLine(line))) {
                ++seen[{crossing->entrance, crossing->isIn, crossing->classId}];
            }
        } else if (head.kind == "start" || head.kind == "reset") {
            isWhole = true;  // such a period counts from there on
        } else if (head.kind == "period") {
            const nlohmann::json period = ledger::parseLine(line);
            if (result.archived.empty()) {
                result.missing = isWhole ? std::map<ledger::CountKey, int64_t>() : without(seen, period);
                result.camera = ledger::textIn(period, "camera");
            }
            result.archived.insert(ledger::textIn(period, "archived"));
        }
        // Before the clock is known, the archive may have any date.
        return head.kind != "period" || !head.moment.isDated();
    });
    return result;
}

}  // namespace

ledger::Quarters countsBefore(const ledger::Ledger& book, int64_t knownFrom, const std::string& archive,
                              const std::string& camera, const std::atomic<bool>& stop) {
    const Beginning first = beginningOf(book);
    ledger::Quarters quarters;
    for (const auto& [key, count] : first.missing) {
        quarters[(knownFrom - 1) / ledger::kQuarterMillis].crossings[key] += count;
    }
    std::ifstream file(archive);
    std::string known;
    int64_t end = 0;
    for (std::string line; std::getline(file, line) && !stop;) {
        EntranceActivityRecord record;
        try {
            const bool isRead = record.deserialize(line);
            if (!isRead || (record.cameraName != camera && record.cameraName != first.camera) ||
                record.entrance == entrance::unknown || record.object == objects::unknown) {
                continue;
            }
            if (record.dateTime != known) {
                known = record.dateTime;
                std::string text = known;
                std::replace(text.begin(), text.end(), ' ', 'T');
                end = ledger::momentOf(text, "") - 1000;
            }
        } catch (const std::logic_error&) {
            continue;  // a torn line, or no time
        }
        if (end >= knownFrom || first.archived.contains(record.dateTime)) {
            continue;
        }
        ledger::Quarter& quarter = quarters[end / ledger::kQuarterMillis];
        const int zone = static_cast<int>(record.entrance) + 1;
        const int classId = static_cast<int>(record.object);
        const auto add = [&](bool isIn, int32_t count) {
            if (count > 0) {
                quarter.crossings[{zone, isIn, classId}] += count;
            }
        };
        add(true, record.entranceCount);
        add(false, record.exitCount);
    }
    return quarters;
}

}  // namespace inquiry

#include "archived_counts.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "counts.h"
#include "kept_path.h"
#include "lines.h"
#include "occupancy_records.h"

namespace inquiry {

namespace {

/** The period in which a ledger begins. */
struct FirstPeriod {
    std::string archived; /**< its date in the archive; empty where the ledger has all of it */
    std::string camera;   /**< what the camera was called then; empty where no line tells */
    std::map<ledger::CountKey, int64_t> missing;
};

std::string tallyName(const ledger::CountKey& key) {
    return std::string(entranceNames.at(static_cast<size_t>(key.entrance - 1))) +
           (key.isIn ? "_Entrances_" : "_Exits_") + objectNames.at(static_cast<size_t>(key.classId));
}

/** What a period counted and the crossings in the ledger do not tell. */
FirstPeriod without(const std::map<ledger::CountKey, int64_t>& seen, const nlohmann::json& period) {
    FirstPeriod result;
    result.archived = ledger::textIn(period, "archived");
    const nlohmann::json tallies = period.value("tallies", nlohmann::json());
    if (!tallies.is_object()) {
        return result;
    }
    for (int entrance = 1; entrance <= static_cast<int>(entranceNames.size()); ++entrance) {
        for (int classId = 0; classId < static_cast<int>(objectNames.size()); ++classId) {
            for (const bool isIn : {true, false}) {
                const ledger::CountKey key = {entrance, isIn, classId};
                const auto known = seen.find(key);
                const int64_t count =
                    ledger::numberIn(tallies, tallyName(key).c_str()) - (known == seen.end() ? 0 : known->second);
                if (count > 0) {
                    result.missing[key] = count;
                }
            }
        }
    }
    return result;
}

FirstPeriod firstPeriodOf(const ledger::Ledger& book) {
    FirstPeriod result;
    std::map<ledger::CountKey, int64_t> seen;
    bool isWhole = false;
    visitLines(chunksOf(book, {}), [&](const ledger::LineHead& head, std::string_view line) {
        if (head.kind == "crossing") {
            if (const std::optional<KeptCrossing> crossing = crossingOf(ledger::parseLine(line))) {
                ++seen[{crossing->entrance, crossing->isIn, crossing->classId}];
            }
        } else if (head.kind == "start" || head.kind == "reset") {
            isWhole = true;  // such a period counts from there on
        } else if (head.kind == "period") {
            const nlohmann::json period = ledger::parseLine(line);
            result = isWhole ? FirstPeriod() : without(seen, period);
            result.camera = ledger::textIn(period, "camera");
        }
        return head.kind != "period";
    });
    return result;
}

}  // namespace

ledger::Quarters countsBefore(const ledger::Ledger& book, int64_t knownFrom, const std::string& archive,
                              const std::string& camera, const std::atomic<bool>& stop) {
    const FirstPeriod first = firstPeriodOf(book);
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
        if (end >= knownFrom || record.dateTime == first.archived) {
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

#include "ledger/last_run.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

namespace ledger {
namespace {

/** The file in which the last period ended, or the oldest. */
size_t firstFileOf(Disk& disk, const std::vector<LedgerFile>& files) {
    size_t first = files.size();
    for (bool isFound = false; first > 0 && !isFound;) {
        --first;
        forEachLine(disk, files[first], 0, [&](std::string_view line, int64_t) {
            const std::optional<LineHead> head = headOf(line);
            isFound = isFound || (head && head->kind == "period");
            return true;
        });
    }
    return first;
}

/** What a line says of the occupancy behind it; nothing where it says nothing. */
std::optional<int64_t> occupancyIn(const nlohmann::json& line) {
    for (const char* const member : {"occupancy", "to"}) {
        if (const auto found = line.find(member); found != line.end() && found->is_number_integer()) {
            return std::clamp<int64_t>(numberIn(line, member), 0, std::numeric_limits<int32_t>::max());
        }
    }
    return std::nullopt;
}

/** What is known of the runs so far. */
struct Known {
    LastRun run;
    /** Inside before runs that began with nobody and ended before their first period: nobody has seen them leave. */
    int64_t carried = 0;

    void take(const LineHead& head, const nlohmann::json& line) {
        if (head.kind == "period" || head.kind == "reset") {
            run.openPeriod.clear();  // the tallies begin anew
            carried = 0;
        } else if (head.kind == "start") {
            carried = numberIn(line, "occupancy") > 0 ? 0 : carried + run.occupancy.value_or(0);
        } else if (head.kind == "corrected") {
            carried = 0;
        } else if (head.kind == "crossing") {
            ++run.openPeriod[{numberIn(line, "entrance"), textIn(line, "direction"), textIn(line, "class")}];
        }
        if (const std::optional<int64_t> occupancy = occupancyIn(line)) {
            run.occupancy = occupancy;
        }
        run.ending = head.kind == "stop" ? textIn(line, "reason") : "";
    }
};

}  // namespace

LastRun lastRunOf(Disk& disk, const std::vector<LedgerFile>& files, const Instant& now, const std::string& boot) {
    Known known;
    LastRun& run = known.run;
    int64_t lastSeq = 0;
    for (size_t i = firstFileOf(disk, files); i < files.size(); ++i) {
        forEachLine(disk, files[i], 0, [&](std::string_view text, int64_t) {
            const std::optional<LineHead> head = headOf(text);
            // What a start mended, or retention took behind the word "stop", is no sign of life.
            if (!head || head->seq <= lastSeq || head->kind == "cut") {
                return true;
            }
            lastSeq = head->seq;
            run.lastLine = head->moment;
            run.ending = "";
            // Paths are most of a ledger, and tell nothing of this.
            if (head->kind != "object") {
                if (const nlohmann::json line = parseLine(text); !line.is_discarded()) {
                    known.take(*head, line);
                }
            }
            return true;
        });
    }
    if (!run.lastLine) {
        return run;
    }
    if (run.occupancy) {
        run.occupancy = std::min<int64_t>(*run.occupancy + known.carried, std::numeric_limits<int32_t>::max());
    }
    // Before the machine's start its clock, which nobody sets, was below 0.
    std::optional<int64_t> mono;
    if (run.lastLine->isDated() && now.isDated) {
        mono = run.lastLine->utcMillis - now.utcOffset;
    } else if (run.lastLine->boot == boot) {
        mono = run.lastLine->monoMillis;
    }
    if (mono) {
        run.gapMillis = now.monoMillis - *mono;
    }
    if (run.ending.empty()) {
        run.ending = mono && *mono >= 0 ? "killed" : "power lost or machine restarted";
    }
    return run;
}

}  // namespace ledger

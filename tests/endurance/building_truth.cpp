#include "building_truth.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

#include "inquiry/check.h"
#include "inquiry/lines.h"
#include "inquiry/recount.h"
#include "ledger/counts.h"
#include "ledger/index.h"
#include "ledger_schema.h"
#include "statistics/occupancy_records.h"

namespace building {

namespace {

using nlohmann::json;

constexpr int64_t kTolerance = 2 * kCycle;          // the look behind the step, and pixels
constexpr int64_t kLongestWait = kMinute + kCycle;  // what a full disk refused is written with the next line

/** A step over a threshold that was to be seen. */
struct Expected {
    Passage passage;
    int32_t y = 0;
    int32_t classId = 0;
    bool isCut = false;  /**< the camera did not run then, or had just begun to look */
    bool isLost = false; /**< it may have waited for a full disk as its process was killed */
    bool isFound = false;
};

/** What a ledger tells. */
struct Told {
    int64_t lines = 0;
    std::map<std::string, int64_t> kinds;
    std::vector<json> crossings;
    int64_t watchedMillis = 0;
};

class Comparison {
public:
    Comparison(const Day& day, size_t camera, std::filesystem::path folder,
               const std::vector<Interruption>& interruptions, Watched& watched)
        : m_day(day),
          m_camera(camera),
          m_folder(std::move(folder)),
          m_archives(m_folder / kArchives),
          m_interruptions(interruptions),
          m_watched(watched),
          m_disk(ledger::openFolder((m_archives / "ledger").string())) {}

    void run() {
        read();
        match();
        judgeClock();
        judgeLog();
        judgeWatched();
        judgeCounts();
        judgeRecount();
        if (m_camera == 0) {
            judgeFollowers();
        }
        const inquiry::Checked checked = inquiry::check(*m_disk, (m_archives / "EntranceActivityTidy.csv").string());
        for (const std::string& fault : checked.faults) {
            blame("check: " + fault);
        }
        if (checked.periods == 0 || checked.archived == 0) {
            blame("check compared nothing");
        }
        say(std::to_string(checked.periods) + " periods are the sum of their crossings, " +
            std::to_string(checked.explained) + " were cut short; " + std::to_string(checked.archived) +
            " compared with the archive; check finds " + std::to_string(checked.faults.size()) + " faults");
    }

private:
    void say(const std::string& what) { m_watched.said.push_back("camera " + std::to_string(m_camera) + ": " + what); }
    void blame(const std::string& what) {
        m_watched.faults.push_back("camera " + std::to_string(m_camera) + ": " + what);
    }

    void read() {
        std::string epoch;
        std::string all;
        inquiry::visitLines(inquiry::chunksOf(*m_disk, {}), [&](const ledger::LineHead& head, std::string_view text) {
            const json line = ledger::parseLine(text);
            all += std::string(text) + '\n';
            ++m_told.lines;
            // What a start says of its clock is no step of it.
            m_told.kinds[head.kind] += head.kind != "clock" || line.contains("before") ? 1 : 0;
            epoch = epoch.empty() ? head.epoch : epoch;
            if (head.seq != m_told.lines || head.epoch != epoch || !head.moment.isDated()) {
                blame("line " + std::to_string(m_told.lines) + " of " + epoch + " is " + std::string(text));
                return m_watched.faults.size() < 10;
            }
            if (head.kind == "crossing") {
                m_told.crossings.push_back(line);
            } else if (head.kind == "watched") {
                m_told.watchedMillis += static_cast<int64_t>(line.at("seconds").get<double>() * 1000);
            }
            return true;
        });
        if (const std::string faults = schemaFaults(all); !faults.empty()) {
            blame("the schema has something against " + faults);
        }
        std::string kinds;
        for (const auto& [kind, count] : m_told.kinds) {
            kinds += (kinds.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
        }
        say(std::to_string(m_told.lines) + " lines without a gap: " + kinds);
    }

    std::vector<Expected> expected() {
        const std::array<Span, 2> fullDisks = m_day.fullDisks();
        std::vector<Expected> all;
        for (const Walker& walker : walkersOf(m_day, m_camera)) {
            m_cutWalkers += std::any_of(m_interruptions.begin(), m_interruptions.end(), [&](const Interruption& gap) {
                return walker.begin <= gap.time.until && walker.end >= gap.time.from;
            });
            for (const Passage& passage : walker.passages()) {
                const bool isCut =
                    std::any_of(m_interruptions.begin(), m_interruptions.end(), [&](const Interruption& gap) {
                        const Span unseen = {gap.time.from - kTolerance, gap.time.until + kTolerance};
                        return unseen.holds(passage.at);
                    });
                const bool isLost =
                    std::any_of(m_interruptions.begin(), m_interruptions.end(), [&](const Interruption& gap) {
                        return std::any_of(fullDisks.begin(), fullDisks.end(), [&](const Span& full) {
                            const Span waits = {full.from, full.until + kLongestWait};
                            return waits.holds(gap.time.from) && passage.at + kTolerance >= full.from &&
                                   passage.at <= gap.time.from;
                        });
                    });
                all.push_back({passage, walker.y, walker.classId, isCut, isLost, false});
            }
        }
        std::sort(all.begin(), all.end(),
                  [](const Expected& a, const Expected& b) { return a.passage.at < b.passage.at; });
        return all;
    }

    /** Whether the wall clock may have shown a time as somebody stepped over. */
    bool isAt(int64_t wall, int64_t at) const {
        return isNear(wall, at, at - kCycle) || isNear(wall, at, at + kTolerance);
    }
    bool isNear(int64_t wall, int64_t at, int64_t byClockOf) const {
        const int64_t behind = wall - (m_day.wallAt(byClockOf) - byClockOf) - at;
        return behind >= -kCycle && behind <= kTolerance;
    }

    void match() {
        std::vector<Expected> truth = expected();
        int64_t reached = 0;
        int64_t invented = 0;
        for (const json& line : m_told.crossings) {
            const int64_t wall = ledger::utcOf(ledger::textIn(line, "t")).value_or(0);
            const auto found = std::find_if(truth.begin(), truth.end(), [&](const Expected& one) {
                return !one.isFound && one.passage.at >= reached - kTolerance && isAt(wall, one.passage.at) &&
                       one.passage.entrance == ledger::numberIn(line, "entrance") &&
                       (one.passage.isIn ? "in" : "out") == ledger::textIn(line, "direction") &&
                       class_index_to_label(one.classId) == ledger::textIn(line, "class") &&
                       std::abs(line.at("after").at(1).get<int64_t>() - one.y) <= 2;
            });
            if (found == truth.end()) {
                ++invented;
                blame("nobody made the crossing " + line.dump());
            } else {
                found->isFound = true;
                reached = found->passage.at;
            }
        }
        std::map<std::string, int64_t> sums;
        for (const Expected& one : truth) {
            const char* const fate = one.isFound ? "found" : one.isCut ? "cut" : one.isLost ? "lost" : "missing";
            ++sums[fate];
            sums["of cut"] += one.isCut ? 1 : 0;
            if (std::string(fate) == "missing") {
                blame("no line tells of the crossing at " + ledger::utcText(m_day.wallAt(one.passage.at)) + " (" +
                      std::to_string(one.passage.at) + " ms), entrance " + std::to_string(one.passage.entrance) +
                      (one.passage.isIn ? " in" : " out") + ", y " + std::to_string(one.y));
            }
        }
        const auto kills = std::count_if(m_interruptions.begin(), m_interruptions.end(),
                                         [](const Interruption& gap) { return gap.isKill; });
        say("killed " + std::to_string(kills) + " times, ended by itself " +
            std::to_string(static_cast<int64_t>(m_interruptions.size()) - kills) + " times; of " +
            std::to_string(truth.size()) + " crossings " + std::to_string(sums["found"]) + " are told, " +
            std::to_string(sums["missing"]) + " are missing, " + std::to_string(invented) + " are invented; " +
            std::to_string(m_cutWalkers) + " walkers were cut in two; " + std::to_string(sums["of cut"]) +
            " crossings came while the camera did not run, or within two cycles of that, " +
            std::to_string(sums["cut"]) + " of them are not told; " + std::to_string(sums["lost"]) +
            " were lost with a process that waited for a full disk");
        if (sums["found"] * 2 < static_cast<int64_t>(truth.size()) ||
            sums["lost"] * 5 > static_cast<int64_t>(truth.size())) {
            blame("too little is told to tell anything");
        }
    }

    /** Each time that the clock was set, and somebody was there to see it, has its line. */
    void judgeClock() {
        int64_t most = 0;
        int64_t least = 0;
        for (const Day::Step& step : m_day.steps()) {
            const bool isSeen =
                std::none_of(m_interruptions.begin(), m_interruptions.end(), [&](const Interruption& gap) {
                    return step.at >= gap.time.from - kTolerance && step.at <= gap.time.until + kTolerance;
                });
            ++most;
            least += isSeen ? 1 : 0;
        }
        if (m_told.kinds["clock"] < least || m_told.kinds["clock"] > most) {
            blame("the clock was set " + std::to_string(most) + " times, " + std::to_string(m_told.kinds["clock"]) +
                  " lines tell of it");
        }
    }

    /** On a full disk the log has one error a minute, and a first one after each start. */
    void judgeLog() {
        int64_t most = 0;
        for (const Span& full : m_day.fullDisks()) {
            const Span whole = {full.from, full.until + kLongestWait};
            most += (whole.until - whole.from) / kMinute + 1;
            most += std::count_if(m_interruptions.begin(), m_interruptions.end(),
                                  [&](const Interruption& gap) { return whole.holds(gap.time.until); });
        }
        std::ifstream log(m_folder / "system.log");
        int64_t errors = 0;
        for (std::string line; std::getline(log, line);) {
            errors += line.find("LedgerKeeping: cannot ") == std::string::npos ? 0 : 1;
        }
        say("a full disk was logged " + std::to_string(errors) + " times, of at most " + std::to_string(most));
        if (errors == 0 || errors > most) {
            blame("a full disk was logged " + std::to_string(errors) + " times, expected 1 to " + std::to_string(most));
        }
    }

    void judgeWatched() {
        int64_t alive = m_day.length;
        for (const Interruption& gap : m_interruptions) {
            alive -= gap.time.until - gap.time.from;
        }
        const auto runs = static_cast<int64_t>(m_interruptions.size()) + 1;
        int64_t least = alive - runs * kLongestWait;
        for (const Span& full : m_day.fullDisks()) {
            least -= full.until - full.from + kLongestWait;
        }
        say("ran for " + std::to_string(alive / 1000) + " s, of which " + std::to_string(m_told.watchedMillis / 1000) +
            " are told as watched");
        if (m_told.watchedMillis > alive || m_told.watchedMillis < least) {
            blame("watched for " + std::to_string(m_told.watchedMillis) + " ms, expected " + std::to_string(least) +
                  " to " + std::to_string(alive));
        }
    }

    void judgeCounts() {
        ledger::Ledger book(*m_disk,
                            {std::numeric_limits<int64_t>::max(), [] { return ledger::Moment(); }, [] { return ""; }});
        if (const std::string dropped = book.open(); !dropped.empty()) {
            blame("ended in order, yet " + dropped);
        }
        ledger::Index index(*m_disk, book);
        index.update(std::numeric_limits<int64_t>::max());
        const int64_t margin = m_day.length / 4;
        ledger::CountsQuery query;
        query.from = m_day.begin - margin;
        query.until = m_day.begin + m_day.length + margin;
        query.zone = m_day.zone;
        query.step = ledger::Step::Hour;
        int64_t all = 0;
        for (const ledger::CountsRow& row : ledger::countsOf(index, query)) {
            int64_t told = 0;
            for (const auto& [key, count] : row.counts) {
                told += count;
            }
            const auto here = std::count_if(m_told.crossings.begin(), m_told.crossings.end(), [&](const json& line) {
                return Span{row.begin, row.end}.holds(ledger::utcOf(ledger::textIn(line, "t")).value_or(0));
            });
            if (told != here) {
                blame("the hour " + row.beginText + " counts " + std::to_string(told) + ", expected " +
                      std::to_string(here));
            }
            all += told;
        }
        if (all != static_cast<int64_t>(m_told.crossings.size())) {
            blame("all hours count " + std::to_string(all) + ", expected " + std::to_string(m_told.crossings.size()));
        }
    }

    void judgeRecount() {
        const auto rectangle = [](int32_t left, int32_t right) {
            return PointArray<8>{left, 0, right, 0, right, kHeight, left, kHeight};
        };
        const inquiry::Recounted again = inquiry::recountOf(
            inquiry::chunksOf(*m_disk, {}),
            [&](ledger::PictureSize) {
                ConfigParams config;
                config.i_EntrancesControlPoints = config.i_DetectionControlPoints = 4;
                config.i_Occupancy1 = rectangle(kDoor1, kWidth);
                config.i_Occupancy2 = rectangle(0, kDoor2);
                config.i_Detection1 = rectangle(kDoor2, kDoor1);
                config.b_Occupancy1Active = config.b_Occupancy2Active = config.b_Detection1Active = true;
                config.b_DetectPersons = config.b_DetectCars = config.b_DetectTrucks = true;
                return config;
            },
            {});
        const auto sumOf = [](const inquiry::Counts& counts) {
            int64_t sum = 0;
            for (const auto& [key, count] : counts) {
                sum += count;
            }
            return sum;
        };
        const int64_t told = sumOf(again.recorded);
        const int64_t counted = sumOf(again.counts);
        say("counted again, " + std::to_string(counted) + " of " + std::to_string(told) + " crossings; " +
            std::to_string(again.withoutPath) + " left no path");
        if (told != static_cast<int64_t>(m_told.crossings.size()) || counted + again.withoutPath != told) {
            blame("counted again, the crossings are not the recorded ones");
        }
    }

    /** The leader's archive has what its followers counted, and no more. */
    void judgeFollowers() {
        std::map<std::string, int64_t> counted;
        std::ifstream archive(m_archives / "EntranceActivityTidy.csv");
        for (std::string text; std::getline(archive, text);) {
            EntranceActivityRecord record;
            if (record.deserialize(text)) {
                counted[record.cameraName] += record.entranceCount + record.exitCount;
            }
        }
        for (size_t follower = 1; follower < kCameras; ++follower) {
            int64_t most = 0;
            for (const Walker& walker : walkersOf(m_day, follower)) {
                most += static_cast<int64_t>(walker.passages().size());
            }
            const int64_t sum = counted["Follower" + std::to_string(follower)];
            say("archived " + std::to_string(sum) + " crossings of follower " + std::to_string(follower));
            if (sum == 0 || sum > most) {
                blame("archived " + std::to_string(sum) + " crossings of follower " + std::to_string(follower) +
                      ", expected 1 to " + std::to_string(most));
            }
        }
    }

    const Day& m_day;
    const size_t m_camera;
    const std::filesystem::path m_folder;
    const std::filesystem::path m_archives;
    const std::vector<Interruption>& m_interruptions;
    Watched& m_watched;
    const std::unique_ptr<ledger::Disk> m_disk;
    Told m_told;
    int64_t m_cutWalkers = 0; /**< whom the end of a run cut in two */
};

}  // namespace

void compare(const Day& day, size_t camera, const std::filesystem::path& folder,
             const std::vector<Interruption>& interruptions, Watched& watched) {
    Comparison(day, camera, folder, interruptions, watched).run();
}

}  // namespace building

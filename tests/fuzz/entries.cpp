#include "entries.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "failing_power.h"
#include "inquiry/check.h"
#include "inquiry/stays.h"
#include "inquiry/why.h"
#include "ledger/counts.h"
#include "ledger/index.h"
#include "ledger/ledger.h"
#include "log_capture.h"
#include "program.h"
#include "statistics/occupancy_manager.h"
#include "statistics/summary_report.h"
#include "test_clock.h"

namespace fuzz {
namespace {

constexpr time_t kNow = 1704067200;  // 2024-01-01 00:00:00

/** A camera's folder and a clock, for as long as the process lives. */
struct Camera {
    const TimeZone zone{"UTC0"};
    const LogCapture folder;
};

const std::filesystem::path& cameraFolder() {
    static const Camera camera;
    return camera.folder.folder();
}

void require(bool condition, const char* what) {
    if (!condition) {
        throw Violation(what);
    }
}

/** What a call returns, or which of the exceptions of a number that is none came instead. */
template <typename Call>
std::string outcome(Call call) {
    try {
        return call();
    } catch (const std::invalid_argument&) {
        return "invalid argument";
    } catch (const std::out_of_range&) {
        return "out of range";
    }
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

template <typename Record>
void parseAs(const std::string& line, int64_t fields) {
    Record parsed;
    const std::string before = parsed.serialize();
    const std::string result = outcome([&] { return parsed.deserialize(line) ? "read" : "another shape"; });
    const bool fits = std::count(line.begin(), line.end(), ',') + 1 == fields;
    require((result == "another shape") == !fits, "the number of fields decides");
    require(fits || parsed.serialize() == before, "a line of another shape leaves the record");
    if (result == "read") {
        const std::string text = parsed.serialize();
        require(text.substr(0, text.find(',')) == line.substr(0, line.find(',')), "the date is taken as it is");
        Record again;
        require(again.deserialize(text) && again.serialize() == text, "what was written reads back");
    }
}

}  // namespace

void record(const std::string& text) {
    cameraFolder();
    parseAs<CrowdCountRecord>(text, 5);
    parseAs<EntranceActivityRecord>(text, 6);
    parseAs<OccupancyObjectRecord>(text, 4);
    parseAs<OccupancyRecord>(text, 7);
    OccupancyRecordBase::stringToTime(text);
}

void exchange(const std::string& text) {
    cameraFolder();
    std::vector<CrowdCountRecord> crowd;
    std::vector<EntranceActivityRecord> activity;
    std::vector<OccupancyObjectRecord> occupants;
    std::vector<CrowdCountRecord> average;
    const std::string result = outcome([&] {
        OccupancyManager::deserializeRecords(text, "date", "Back", crowd, activity, occupants, average);
        return "read";
    });
    const size_t records = crowd.size() + activity.size() + occupants.size() + average.size();
    require(records <= linesOf(text).size() + 1000, "no more records than lines and those that may lack");
    std::string again = std::to_string(crowd.size()) + "\n";
    const auto add = [&again](const auto& section) {
        for (const auto& each : section) {
            require(each.serialize().starts_with("date,Back,"), "date and name are the leader's");
            again += each.serialize() + "\n";
        }
    };
    add(crowd);
    again += std::to_string(activity.size()) + "\n";
    add(activity);
    again += std::to_string(occupants.size()) + "\n";
    add(occupants);
    again += std::to_string(average.size()) + "\n";
    add(average);
    if (result == "read") {
        std::vector<CrowdCountRecord> sameCrowd;
        std::vector<EntranceActivityRecord> sameActivity;
        std::vector<OccupancyObjectRecord> sameOccupants;
        std::vector<CrowdCountRecord> sameAverage;
        OccupancyManager::deserializeRecords(again, "date", "Back", sameCrowd, sameActivity, sameOccupants,
                                             sameAverage);
        const auto same = [](const auto& left, const auto& right) {
            return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                              [](const auto& a, const auto& b) { return a.serialize() == b.serialize(); });
        };
        require(same(crowd, sameCrowd) && same(activity, sameActivity) && same(occupants, sameOccupants) &&
                    same(average, sameAverage),
                "what was read can be handed on");
    }
}

void log(const std::string& text) {
    const TestClock clock(kNow);
    const std::string path = cameraFolder() / "fuzz.txt";
    writeFile(path, text);
    Logger log("app", path);
    const std::vector<std::string> before = linesOf(text.substr(0, text.rfind('\n') + 1));
    const std::vector<std::string> after = log.getLogLines();
    require(after.size() > before.size() && std::equal(before.begin(), before.end(), after.begin()),
            "lines that have their end stay");
    const std::vector<LogEntry> entries = log.getLogEntriesFromFile();
    require(entries.size() == after.size(), "every line is an entry");
    for (size_t i = 0; i < entries.size(); ++i) {
        const LogEntry& entry = entries[i];
        const std::string& line = after[i];
        const auto bars = std::count(line.begin(), line.end(), '|');
        require(line.ends_with(entry._message), "the message is the end of the line");
        require(bars != 3 || entry.serialize() == line, "a line with three bars is written as it was");
        require(bars != 0 || entry._message == line, "a line without a bar is all message");
    }
    const auto count = [](const std::string& contents) { return std::count(contents.begin(), contents.end(), '\n'); };
    require(count(log.getPlainLogContents()) == static_cast<int64_t>(entries.size()) &&
                count(log.getCSVLogContents()) == static_cast<int64_t>(entries.size()),
            "one line an entry, in every form");
    log.close();
    std::filesystem::remove(path);
}

namespace {

std::string plainReport(const OccupancyManager& manager, report_stream::Form form) {
    SummaryReport report;
    report.add(manager.getArchivedCrowdCountRecords());
    report.add(manager.getArchivedEntranceActivityRecords());
    report.add(manager.getArchivedOccupancyObjectRecords());
    report.addAverage(manager.getArchivedAverageCrowdCountRecords());
    return form == report_stream::Form::Csv ? report.getCSVAsString() : report.getHTMLAsString();
}

template <typename Record>
void mendAndPurge(const std::string& name) {
    RecordArchive<Record> archive(name);
    const std::string before = readFile(archive.path());
    const std::string whole = before.substr(0, before.rfind('\n') + 1);
    archive.repair();
    const std::string mended = readFile(archive.path());
    require(mended == whole || mended == before + "\n", "mending ends the last line or drops it");
    const auto lines = static_cast<size_t>(std::count(mended.begin(), mended.end(), '\n'));
    const std::string result = outcome([&] {
        require(archive.getRecords().size() == lines, "every line is a record");
        return "read";
    });
    const time_t cutOff = kNow - 86400;
    const std::string purge = outcome([&] {
        archive.purgeBefore(cutOff);
        return "read";
    });
    require(purge == result, "a purge meets what reading meets");
    const std::string purged = readFile(archive.path());
    if (result != "read") {
        require(purged == mended, "a purge that fails leaves the file");
        return;
    }
    for (const Record& each : archive.getRecords()) {
        require(OccupancyRecordBase::stringToTime(each.dateTime) >= cutOff, "what is too old is gone");
    }
    archive.purgeBefore(cutOff);
    require(readFile(archive.path()) == purged, "a second purge changes nothing");
}

}  // namespace

void archives(const std::string& text) {
    const TestClock clock(kNow);
    const std::filesystem::path folder = cameraFolder() / "usr/local/packages/ostrel_senvo/localdata";
    const ConfigParams config;
    const OccupancyManager manager(config);
    report_stream::Archives files;
    size_t number = 0;
    forEachKind([&](const auto& kind) { files[number++].path = folder / kind.file; });
    std::istringstream stream(text);
    for (const report_stream::Archive& file : files) {
        std::string part;
        std::getline(stream, part, '\x1d');
        writeFile(file.path, part);
    }
    for (const report_stream::Form form : {report_stream::Form::Csv, report_stream::Form::Html}) {
        const std::string plain = outcome([&] { return plainReport(manager, form); });
        const std::string streamed = outcome([&] {
            const std::optional<std::string> report = report_stream::write(files, form);
            return report ? *report : plain;
        });
        require(streamed == plain, "both ways lead to the same report");
    }
    forEachKind([](const auto& kind) { mendAndPurge<typename std::decay_t<decltype(kind)>::Record>(kind.file); });
}

namespace {

/** Everything that is asked of lines; what is none has to be passed over. */
void askLines(FailingPower& disk) {
    ConfigParams settings;
    settings.b_DetectPersons = true;
    settings.b_Occupancy1Active = settings.b_Detection1Active = true;
    settings.i_EntrancesControlPoints = settings.i_DetectionControlPoints = 4;
    settings.i_Occupancy1 = settings.i_Detection1 = {0, 0, 100, 0, 100, 100, 0, 100};
    const inquiry::SettingsFor settingsFor = inquiry::settingsInForce(settings, {640, 360});
    const inquiry::Recounted recounted = inquiry::recountOf(inquiry::chunksOf(disk, {}), settingsFor, {});
    require(recounted.withoutPath >= 0 && recounted.objects >= 0, "nothing is counted backwards");
    inquiry::jsonOf(recounted).dump();
    inquiry::jsonOf(inquiry::staysOf(inquiry::chunksOf(disk, {}), {})).dump();
    const inquiry::Span day = {int64_t{kNow} * 1000, int64_t{kNow + 86400} * 1000};
    inquiry::jsonOf(inquiry::heatOf(inquiry::chunksOf(disk, day), day, "UTC")).dump();
    inquiry::whyOf(inquiry::chunksOf(disk, day), settingsFor, day, 0).dump();
}

bool isSame(const ledger::Quarters& left, const ledger::Quarters& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](const auto& a, const auto& b) {
        return a.first == b.first && a.second.crossings == b.second.crossings &&
               a.second.watchedMillis == b.second.watchedMillis;
    });
}

ledger::LedgerOptions ledgerOptions() {
    return {int64_t{1} << 30,
            [] {
                return ledger::Moment{int64_t{kNow} * 1000, "", 0};
            },
            [] { return std::string("epoch"); }};
}

/** Reads what somebody else has made of an index, beside a good line; its numbers of the file fit. */
void askIndex(const std::string& text) {
    nlohmann::json saved = nlohmann::json::parse(text, nullptr, false);
    if (!saved.is_object()) {
        return;
    }
    FailingPower disk(1);
    ledger::Ledger book(disk, ledgerOptions());
    book.open();
    book.append("crossing", {{"entrance", 1}, {"direction", "in"}, {"class", "Person"}});
    const ledger::LedgerFile file = book.files().at(0);
    saved["bytes"] = file.bytes;
    saved["last_seq"] = file.lastSeq;
    disk.replace("000000000001-2024-01-01.ndjson.index",
                 saved.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    ledger::Index index(disk, book);
    require(index.update(1 << 20), "one line is read at once");
    const int64_t day = int64_t{24} * 60 * 60 * 1000;
    ledger::countsOf(index, {int64_t{kNow} * 1000, int64_t{kNow} * 1000 + day, ledger::Step::Hour, {}, "UTC"});
    index.save();
}

/** The good lines of a file but for those that tell of a cut. */
std::string keptIn(const std::string& text) {
    std::string kept;
    for (const std::string& line : linesOf(text.substr(0, text.rfind('\n') + 1))) {
        const std::optional<ledger::LineHead> head = ledger::headOf(line);
        if (head && head->kind != "cut" && nlohmann::json::accept(line)) {
            kept += line + '\n';
        }
    }
    return kept;
}

}  // namespace

void ledger(const std::string& text) {
    cameraFolder();
    askIndex(text);
    const std::string name = "000000000001-2024-01-01.ndjson";
    FailingPower disk(1);
    disk.replace(name, text);
    askLines(disk);
    ledger::Ledger book(disk, ledgerOptions());
    book.open();
    require(keptIn(text) == keptIn(disk.read(name, 0, int64_t{1} << 30).value_or("")),
            "mending leaves every good line");
    const int64_t last = book.end().seq;
    require(book.append("reset", {{"by", "web"}}) && book.end().seq == last + 1, "it goes on with the next number");
    require(!book.lines(last + 1, last + 1, 1).empty(), "what was appended is read back");
    const auto quartersOf = [&] {
        ledger::Index index(disk, book);
        while (!index.update(1 << 20)) {
        }
        index.save();
        return index.quarters(std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
    };
    const ledger::Quarters read = quartersOf();
    require(isSame(read, quartersOf()), "the index tells what the lines told");
    inquiry::check(disk, "");
}

}  // namespace fuzz

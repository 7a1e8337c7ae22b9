#include "recount_bench.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>

#include "inquiry/recount.h"
#include "ledger/ledger.h"
#include "ledger/recorder.h"
#include "lines_table.h"
#include "test_folder.h"
#include "tracking/counting_rules.h"

namespace {

constexpr int64_t kBegin = 1'732'233'600'000;  // 2024-11-22 00:00:00 UTC
constexpr int64_t kDayMillis = 86'400'000;
constexpr inquiry::Span kDay = {kBegin, kBegin + kDayMillis};
constexpr int kObjectsOfADay = 5'000;
constexpr ledger::PictureSize kPicture = {640, 360};

ConfigParams settings() {
    ConfigParams config;
    config.b_DetectPersons = true;
    config.i_EntrancesControlPoints = config.i_DetectionControlPoints = 4;
    config.i_Occupancy1 = {0, 0, 320, 0, 320, 360, 0, 360};
    config.i_Detection1 = {200, 100, 400, 100, 400, 300, 200, 300};
    config.b_Occupancy1Active = config.b_Detection1Active = true;
    return config;
}

/** A day of people who walk through the picture in ten seconds, eight at once, each with a gait and a way. */
struct BusyDay {
    BusyDay() : disk(ledger::openFolder((folder.path() / "ledger").string())), table(folder.path() / "lines.db") {
        book.open();
        const ConfigParams config = settings();
        area_of_interest areas(config);
        storeEntrances(config, areas);
        storeDetectionAreas(config, areas);
        ledger::Recorder recorder(
            [this](const std::string& kind, const nlohmann::ordered_json& body) { book.append(kind, body); },
            [&](t_one_locator at) { return 4 * static_cast<int>(entranceAt(areas, at)) + detectionAreaAt(areas, at); });
        std::mt19937 random(1);
        std::normal_distribution<double> sway(0, 2);
        constexpr int kTogether = 8;
        constexpr int kCycles = 100;
        for (int group = 0; group < kObjectsOfADay / kTogether; ++group) {
            for (int cycle = 0; cycle < kCycles; ++cycle) {
                const int64_t millis = kBegin + (int64_t{group} * kCycles + cycle) * 100;
                std::vector<one_find> findings;
                for (int i = 0; i < kTogether; ++i) {
                    one_find finding;
                    finding.id = group * kTogether + i;
                    finding.locator = {static_cast<int32_t>(20 + 6 * cycle + sway(random)),
                                       static_cast<int32_t>(30 + 40 * i + sway(random))};
                    findings.push_back(finding);
                }
                now = {millis, "", 0};
                recorder.add({findings, kPicture, {millis, 0, true}, 0, false});
            }
        }
        recorder.finish({now.utcMillis, 0, true}, 0);
        table.begin();
        inquiry::visitLines(inquiry::chunksOf(book, {}), [this](const ledger::LineHead& head, std::string_view text) {
            table.add(head, text);
            return true;
        });
        table.commit();
    }

    TestFolder folder;
    ledger::Moment now = {kBegin, "", 0};
    std::unique_ptr<ledger::Disk> disk;
    ledger::Ledger book{*disk, {int64_t{1} << 40, [this] { return now; }, [] { return std::string("epoch"); }}};
    LinesTable table;
};

BusyDay& busyDay() {
    static BusyDay day;
    return day;
}

void recountOnce(const inquiry::Chunks& chunks) {
    const inquiry::Recounted result = inquiry::recountOf(chunks, inquiry::settingsInForce(settings(), kPicture), kDay);
    if (result.objects != kObjectsOfADay) {
        throw std::runtime_error("expected " + std::to_string(kObjectsOfADay) + " objects, got " +
                                 std::to_string(result.objects));
    }
}

void benchRecount(benchmark::State& state) {
    const BusyDay& day = busyDay();
    for (auto _ : state) {
        recountOnce(inquiry::chunksOf(day.book, inquiry::readToRecount(kDay)));
    }
}

void benchRecountOfTable(benchmark::State& state) {
    BusyDay& day = busyDay();
    for (auto _ : state) {
        recountOnce(day.table.chunksOf(inquiry::readToRecount(kDay)));
    }
}

}  // namespace

std::vector<Limit> registerRecount() {
    benchmark::RegisterBenchmark("recount of 5000 objects/SQLite", benchRecountOfTable);
    benchmark::RegisterBenchmark("recount of 5000 objects/ours", benchRecount);
    return {{"recount of 5000 objects", "SQLite", "", std::nullopt},
            {"recount of 5000 objects", "ours", "SQLite", 1.1},
            {"recount of 5000 objects", "ours", "", 1'000'000.0}};
}

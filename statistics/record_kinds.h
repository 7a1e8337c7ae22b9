#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

#include "statistics/occupancy_records.h"
#include "statistics/summary_report.h"

/** What one camera counted in one period, kind by kind. */
struct PeriodRecords {
    std::vector<CrowdCountRecord> crowd;
    std::vector<EntranceActivityRecord> activity;
    std::vector<OccupancyObjectRecord> occupants;
    std::vector<CrowdCountRecord> average;
};

/** A kind of record. */
template <typename R>
struct RecordKind {
    using Record = R;

    const char* file;                                          /**< of its archive */
    std::vector<R> PeriodRecords::*records;                    /**< where a period has them */
    size_t numbers;                                            /**< that end a line: 1 or 2 */
    bool (SummaryReport::*addToReport)(const std::vector<R>&); /**< what gives a record its columns */
};

/** All kinds, in the order in which they are archived, handed to a leader, and reported. */
inline constexpr std::tuple kRecordKinds = {
    RecordKind<CrowdCountRecord>{"CrowdCountTidy.csv", &PeriodRecords::crowd, 1, &SummaryReport::add},
    RecordKind<EntranceActivityRecord>{"EntranceActivityTidy.csv", &PeriodRecords::activity, 2, &SummaryReport::add},
    RecordKind<OccupancyObjectRecord>{"OccupancyTidy.csv", &PeriodRecords::occupants, 1, &SummaryReport::add},
    RecordKind<CrowdCountRecord>{"AverageCrowdCountTidy.csv", &PeriodRecords::average, 1, &SummaryReport::addAverage},
};

inline constexpr size_t kRecordKindCount = std::tuple_size_v<decltype(kRecordKinds)>;

/** Something of each kind: a file, what a purge leaves. */
template <typename Value>
using OfEachKind = std::array<Value, kRecordKindCount>;

/** Calls visit for each kind, in order. */
template <typename Visit>
void forEachKind(Visit visit) {
    std::apply([&](const auto&... kind) { (visit(kind), ...); }, kRecordKinds);
}

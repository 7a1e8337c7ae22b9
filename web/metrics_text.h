#pragma once

#include <cstdint>
#include <string>

#include "config/config_params.h"
#include "ledger/run_totals.h"

/** What a monitoring system asks for again and again. */
struct MeasuredState {
    const ledger::RunTotals& totals;
    const ConfigParams& settings;
    int32_t occupancy;
    int executionMillis; /**< of the last analysis */
};

/** The content type of metricsText. */
inline constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

/**
 * The figures of this run in Prometheus' text format, version 0.0.4
 * (https://prometheus.io/docs/instrumenting/exposition_formats/): names in base units, counters from 0 at each start.
 * Every class that is counted has its line for each entrance and area in use, from the start on; one that is not, only
 * when it has been seen.
 */
std::string metricsText(const MeasuredState& state);

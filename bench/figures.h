#pragma once

#include <benchmark/benchmark.h>
#include <optional>
#include <string>
#include <vector>

/**
 * Figures from Google Benchmark's runs. Benchmarks are named TOPIC/VARIANT; a topic's variants run interleaved, so that
 * a noisy machine disturbs them alike, and are compared by their medians.
 */

/** What a topic's figure should be. */
struct Limit {
    std::string topic;
    std::string variant;
    std::string reference;      /**< variant to divide by; empty: the figure is the time itself */
    std::optional<double> most; /**< largest good figure: a ratio, or microseconds without a reference */
};

/** Collects the repetitions of all runs. */
class FigureReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override;

    /** Median time in microseconds, nothing when the benchmark did not run. */
    std::optional<double> median(const std::string& topic, const std::string& variant) const;

private:
    std::vector<std::pair<std::string, double>> m_times;
};

/** One line of the report. */
struct Figure {
    Limit limit;
    double microseconds = 0.0;
    double value = 0.0; /**< the ratio, or the microseconds again without a reference */
    bool good = true;
};

std::vector<Figure> figuresOf(const FigureReporter& reporter, const std::vector<Limit>& limits);
std::string textOf(const std::vector<Figure>& figures);
std::string jsonOf(const std::vector<Figure>& figures);

#include "figures.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

void FigureReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
            const double nanoseconds = run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
            m_times.emplace_back(run.run_name.function_name, nanoseconds / 1000.0);
        }
    }
}

std::optional<double> FigureReporter::median(const std::string& topic, const std::string& variant) const {
    std::vector<double> times;
    for (const auto& [name, time] : m_times) {
        if (name == topic + "/" + variant) {
            times.push_back(time);
        }
    }
    if (times.empty()) {
        return std::nullopt;
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

std::vector<Figure> figuresOf(const FigureReporter& reporter, const std::vector<Limit>& limits) {
    std::vector<Figure> figures;
    for (const Limit& limit : limits) {
        const std::optional<double> time = reporter.median(limit.topic, limit.variant);
        if (!time) {
            continue;
        }
        Figure figure{limit, *time, *time, true};
        if (!limit.reference.empty()) {
            figure.value = *time / reporter.median(limit.topic, limit.reference).value_or(*time);
        }
        figure.good = !limit.most || figure.value <= *limit.most;
        figures.push_back(figure);
    }
    return figures;
}

std::string textOf(const std::vector<Figure>& figures) {
    std::ostringstream text;
    text << std::fixed;
    for (const Figure& figure : figures) {
        text << std::left << std::setw(34) << figure.limit.topic << std::setw(14) << figure.limit.variant << std::right
             << std::setprecision(1) << std::setw(10) << figure.microseconds << " us";
        if (!figure.limit.reference.empty()) {
            text << std::setprecision(2) << std::setw(8) << figure.value << " x " << figure.limit.reference;
        }
        if (figure.limit.most) {
            text << "   (at most " << std::setprecision(2) << *figure.limit.most
                 << (figure.limit.reference.empty() ? " us" : " x") << (figure.good ? ")" : ": MISSED)");
        }
        text << '\n';
    }
    return text.str();
}

std::string jsonOf(const std::vector<Figure>& figures) {
    nlohmann::ordered_json document = nlohmann::ordered_json::array();
    for (const Figure& figure : figures) {
        nlohmann::ordered_json entry = {{"topic", figure.limit.topic},
                                        {"variant", figure.limit.variant},
                                        {"microseconds", figure.microseconds},
                                        {"good", figure.good}};
        if (!figure.limit.reference.empty()) {
            entry["reference"] = figure.limit.reference;
            entry["ratio"] = figure.value;
        }
        if (figure.limit.most) {
            entry["at_most"] = *figure.limit.most;
        }
        document.push_back(entry);
    }
    return document.dump(2) + "\n";
}

#include "web/metrics_text.h"

#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>

namespace {

/** The lines without those that explain. */
std::string samples(const std::string& text) {
    std::istringstream lines(text);
    std::string found;
    for (std::string line; std::getline(lines, line);) {
        found += line.rfind("# ", 0) == 0 || line.rfind("senvo_build_info{", 0) == 0 ? "" : line + "\n";
    }
    return found;
}

TEST(MetricsText, TellsWhatIsCountedFromTheStartOnAndWhatHasBeenSeen) {
    ConfigParams settings;
    settings.b_DetectPersons = true;
    settings.b_DetectTrucks = true;
    settings.b_Occupancy2Active = true;
    settings.b_Detection3Active = true;
    ledger::RunTotals totals;
    totals.crossings.at(3).at(0) = 12'345'678'901;  // out of entrance 2
    totals.crossings.at(4).at(1) = 2;               // into entrance 3, which was switched off since
    totals.inAreas.at(2).at(0) = 4;
    totals.watchedMillis = 86'399'900;
    totals.watchedRatio = 0.25;
    totals.lastCycle = 1'795'305'600'125;
    EXPECT_EQ(samples(metricsText({totals, settings, -1, 87})),
              "senvo_crossings_total{entrance=\"2\",direction=\"in\",class=\"Person\"} 0\n"
              "senvo_crossings_total{entrance=\"2\",direction=\"in\",class=\"Truck\"} 0\n"
              "senvo_crossings_total{entrance=\"2\",direction=\"out\",class=\"Person\"} 12345678901\n"
              "senvo_crossings_total{entrance=\"2\",direction=\"out\",class=\"Truck\"} 0\n"
              "senvo_crossings_total{entrance=\"3\",direction=\"in\",class=\"Bicycle\"} 2\n"
              "senvo_occupancy -1\n"
              "senvo_area_objects{area=\"3\",class=\"Person\"} 4\n"
              "senvo_area_objects{area=\"3\",class=\"Truck\"} 0\n"
              "senvo_watched_seconds_total 86399.9\n"
              "senvo_watched_ratio 0.25\n"
              "senvo_cycle_duration_seconds 0.087\n"
              "senvo_last_frame_timestamp_seconds 1795305600.125\n");
}

TEST(MetricsText, LeavesOutWhatIsNotKnown) {
    const std::string text = metricsText({ledger::RunTotals(), ConfigParams(), 0, 0});
    EXPECT_EQ(samples(text), "senvo_occupancy 0\nsenvo_watched_seconds_total 0\nsenvo_cycle_duration_seconds 0\n");
}

TEST(MetricsText, ExplainsEveryMetricOnceBeforeItsSamples) {
    ConfigParams settings;
    settings.b_DetectPersons = true;
    settings.b_Occupancy1Active = true;
    ledger::RunTotals totals;
    totals.watchedRatio = 1;
    totals.lastCycle = 1;
    std::istringstream lines(metricsText({totals, settings, 0, 0}));
    std::string explained;
    std::set<std::string> metrics;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("# HELP ", 0) == 0) {
            explained = line.substr(7, line.find(' ', 7) - 7);
            EXPECT_TRUE(metrics.insert(explained).second) << line;
            std::getline(lines, line);
            const bool isCounter = explained.substr(explained.size() - 6) == "_total";
            EXPECT_EQ(line, "# TYPE " + explained + (isCounter ? " counter" : " gauge"));
        } else {
            EXPECT_EQ(line.substr(0, line.find_first_of("{ ")), explained) << line;
        }
    }
    EXPECT_EQ(metrics.size(), 8U);
}

}  // namespace

#include "evaluate/comparison.h"

#include <functional>
#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

Truth truth() {
    Truth truth;
    truth.entrances[0] = {{"Person", {6, 1}}};
    truth.occupancyAtEnd = 5;
    truth.alertStarts = {{"area1", 2}};
    truth.alertStops = {{"area1", 1}};
    return truth;
}

Results results() {
    Results results;
    results.entrances[0] = {{"Person", {6, 1}}};
    results.occupancyAtEnd = 5;
    results.alertChanges = {{1.0, "area1", true}, {1.0, "breached", true}, {2.0, "area1", false}, {3.0, "area1", true}};
    return results;
}

TEST(Comparison, OfEqualsIsEmpty) {
    EXPECT_EQ(compare(results(), truth()), Lines{});
}

struct DifferenceCase {
    const char* label;
    std::function<void(Results&)> change;
    Lines differences;
};

class Difference : public testing::TestWithParam<DifferenceCase> {};

TEST_P(Difference, IsALineOfItsOwn) {
    Results found = results();
    GetParam().change(found);
    EXPECT_EQ(compare(found, truth()), GetParam().differences) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(Table, Difference,
                         testing::Values(DifferenceCase{"one more",
                                                        [](Results& found) { found.entrances[0]["Person"].enter = 7; },
                                                        {"entrance 1 Person enter: expected 6, found 7"}},
                                         DifferenceCase{"none at all",
                                                        [](Results& found) { found.entrances[0].clear(); },
                                                        {"entrance 1 Person enter: expected 6, found 0",
                                                         "entrance 1 Person exit: expected 1, found 0"}},
                                         DifferenceCase{"a class that was not to move",
                                                        [](Results& found) { found.entrances[0]["Car"].exit = 1; },
                                                        {"entrance 1 Car exit: expected 0, found 1"}},
                                         DifferenceCase{"an entrance where nobody was to move",
                                                        [](Results& found) { found.entrances[2]["Person"].enter = 1; },
                                                        {"entrance 3 Person enter: expected 0, found 1"}},
                                         DifferenceCase{"occupancy",
                                                        [](Results& found) { found.occupancyAtEnd = 4; },
                                                        {"occupancy at end: expected 5, found 4"}},
                                         DifferenceCase{"alerts",
                                                        [](Results& found) { found.alertChanges.clear(); },
                                                        {"area1 alert starts: expected 2, found 0",
                                                         "area1 alert stops: expected 1, found 0"}}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST(Comparison, LeavesOutWhatTheTruthDoesNotSay) {
    Results found = results();
    found.occupancyAtEnd = 77;
    Truth silent = truth();
    silent.occupancyAtEnd.reset();
    silent.alertStarts.clear();
    silent.alertStops.clear();
    EXPECT_EQ(compare(found, silent), Lines{});
}

}  // namespace

#include "desktop/video/scene/scene.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "desktop/frames/picture.h"
#include "this_build.h"
#include "vdo_handles.h"

namespace desktop {
namespace {

constexpr double kSmallestGap = 60.0;
constexpr double kFastest = 350.0;

struct Box {
    double left, top, right, bottom;
};

Box boxAt(const SceneFigure& figure, double seconds) {
    const FigurePose pose = poseAt(figure, seconds);
    return {pose.x - figure.width / 2.0, pose.y - figure.height / 2.0, pose.x + figure.width / 2.0,
            pose.y + figure.height / 2.0};
}

bool touchesPicture(const Scene& scene, const Box& box) {
    return box.right > 0 && box.left < scene.width && box.bottom > 0 && box.top < scene.height;
}

/** A figure's centre crosses an area's border. */
struct Passage {
    double seconds;
    bool enters;
    std::string label;
};

/**
 * The moments at which a figure's centre goes into or out of an area, solved leg by leg from its path. All legs of the
 * scene are level, so only an area's left and right side are ever crossed.
 */
std::vector<Passage> passagesOf(const Scene& scene, const SceneFigure& figure, const SceneArea& area) {
    std::vector<Passage> passages;
    const double left = area.left * scene.width;
    const double right = area.right * scene.width;
    for (std::size_t leg = 1; leg < figure.path.size(); ++leg) {
        const Keyframe& from = figure.path[leg - 1];
        const Keyframe& to = figure.path[leg];
        EXPECT_EQ(from.y, to.y) << "this reckoning needs level legs";
        if (from.y <= area.top * scene.height || from.y >= area.bottom * scene.height || from.x == to.x) {
            continue;
        }
        for (const double side : {left, right}) {
            const double part = (side - from.x) / (to.x - from.x);
            // Nobody is seen beyond the picture's edge: whoever leaves there vanishes inside the area.
            if (part > 0 && part <= 1 && side > 0 && side < scene.width) {
                const bool rightwards = to.x > from.x;
                passages.push_back({from.seconds + part * (to.seconds - from.seconds), rightwards == (side == left),
                                    labelOf(figure.kind)});
            }
        }
    }
    std::sort(passages.begin(), passages.end(), [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
    return passages;
}

std::vector<Passage> allPassages(const Scene& scene, const SceneArea& area) {
    std::vector<Passage> all;
    for (const SceneFigure& figure : scene.figures) {
        const auto passages = passagesOf(scene, figure, area);
        all.insert(all.end(), passages.begin(), passages.end());
    }
    std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
    return all;
}

nlohmann::json plazaTruth() {
    std::ifstream file(this_build::checkout() / "package/scenes/plaza.truth.json");
    return nlohmann::json::parse(file);
}

nlohmann::json countsOf(const std::vector<Passage>& passages) {
    nlohmann::json counts = nlohmann::json::object();
    for (const Passage& passage : passages) {
        auto& entry = counts[passage.label];
        if (entry.is_null()) {
            entry = {{"enter", 0}, {"exit", 0}};
        }
        auto& count = entry[passage.enters ? "enter" : "exit"];
        count = count.get<int>() + 1;
    }
    return counts;
}

nlohmann::json cornersOf(const SceneArea& area) {
    return {{area.left, area.top}, {area.right, area.top}, {area.right, area.bottom}, {area.left, area.bottom}};
}

TEST(PlazaTruthTest, AreasAreTheSceneGroundsAreas) {
    const auto settings = plazaTruth()["settings"];
    EXPECT_EQ(settings["entrance1"], cornersOf(plaza().door));
    EXPECT_EQ(settings["entrance2"], cornersOf(plaza().crossing));
    EXPECT_EQ(settings["detection1"], cornersOf(plaza().seats));
}

TEST(PlazaTruthTest, EntranceCountsFollowFromThePaths) {
    const auto expected = plazaTruth()["expected"];
    const auto door = allPassages(plaza(), plaza().door);
    const auto crossing = allPassages(plaza(), plaza().crossing);
    EXPECT_EQ(expected["entrance1"], countsOf(door));
    EXPECT_EQ(expected["entrance2"], countsOf(crossing));

    std::vector<Passage> both = door;
    both.insert(both.end(), crossing.begin(), crossing.end());
    std::sort(both.begin(), both.end(), [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
    int occupancy = 0;
    for (const Passage& passage : both) {
        occupancy += passage.enters ? 1 : -1;
        EXPECT_GE(occupancy, 0) << "someone who never came in leaves at " << passage.seconds;
    }
    EXPECT_EQ(expected["occupancy_at_end"], occupancy);
}

TEST(PlazaTruthTest, AlertsFollowFromTheStays) {
    const auto truth = plazaTruth();
    const double threshold = truth["settings"]["detection1_threshold_seconds"];
    int alerts = 0;
    double lastLeft = -10.0;
    double entered = 0.0;
    for (const Passage& passage : allPassages(plaza(), plaza().seats)) {
        if (passage.enters) {
            EXPECT_GT(passage.seconds - lastLeft, 2.0) << "stays run into each other at " << passage.seconds;
            entered = passage.seconds;
            continue;
        }
        lastLeft = passage.seconds;
        const double stay = lastLeft - entered;
        EXPECT_TRUE(stay > threshold + 2.0 || stay < threshold - 1.0) << "an ambiguous stay of " << stay << " s";
        alerts += stay > threshold ? 1 : 0;
    }
    EXPECT_EQ(truth["expected"]["area1_alert_starts"], alerts);
    EXPECT_EQ(truth["expected"]["area1_alert_stops"], alerts);
}

TEST(PlazaTruthTest, ObjectsAreListedWithTheirVisibleSeconds) {
    struct Seen {
        std::string label;
        double from;
        double to;
    };
    std::vector<Seen> seen;
    for (const SceneFigure& figure : plaza().figures) {
        Seen row = {labelOf(figure.kind), -1.0, -1.0};
        for (int milli = 0; milli < plaza().seconds * 1000; ++milli) {
            const double seconds = milli / 1000.0;
            if (isPresent(figure, seconds) && touchesPicture(plaza(), boxAt(figure, seconds))) {
                row.from = row.from < 0 ? seconds : row.from;
                row.to = seconds;
            }
        }
        seen.push_back(row);
    }
    std::sort(seen.begin(), seen.end(), [](const auto& a, const auto& b) { return a.from < b.from; });
    const auto objects = plazaTruth()["objects"];
    ASSERT_EQ(objects.size(), seen.size());
    for (std::size_t index = 0; index < seen.size(); ++index) {
        EXPECT_EQ(objects[index]["class"], seen[index].label) << "object " << index;
        EXPECT_NEAR(objects[index]["visible"][0].get<double>(), seen[index].from, 0.06) << "object " << index;
        EXPECT_NEAR(objects[index]["visible"][1].get<double>(), seen[index].to, 0.06) << "object " << index;
    }
}

TEST(PlazaTest, FiguresComeAndGoOutsideThePicture) {
    for (const SceneFigure& figure : plaza().figures) {
        for (const Keyframe& end : {figure.path.front(), figure.path.back()}) {
            EXPECT_FALSE(touchesPicture(plaza(), boxAt(figure, end.seconds)))
                << labelOf(figure.kind) << " is seen at its path's end, " << end.seconds << " s";
            EXPECT_GE(end.seconds, 0.5);
            EXPECT_LT(end.seconds, plaza().seconds - 0.5);
        }
    }
}

TEST(PlazaTest, FiguresKeepTheirDistanceAndSpeed) {
    const auto& figures = plaza().figures;
    for (const SceneFigure& figure : figures) {
        for (std::size_t leg = 1; leg < figure.path.size(); ++leg) {
            const Keyframe& from = figure.path[leg - 1];
            const Keyframe& to = figure.path[leg];
            ASSERT_GT(to.seconds, from.seconds);
            EXPECT_LE(std::hypot(to.x - from.x, to.y - from.y) / (to.seconds - from.seconds), kFastest);
        }
    }
    for (int frame = 0; frame < plaza().seconds * plaza().frameRate; ++frame) {
        const double seconds = static_cast<double>(frame) / plaza().frameRate;
        for (std::size_t one = 0; one < figures.size(); ++one) {
            for (std::size_t other = one + 1; other < figures.size(); ++other) {
                if (!isPresent(figures[one], seconds) || !isPresent(figures[other], seconds)) {
                    continue;
                }
                const Box a = boxAt(figures[one], seconds);
                const Box b = boxAt(figures[other], seconds);
                const double gap = std::max({a.left - b.right, b.left - a.right, a.top - b.bottom, b.top - a.bottom});
                ASSERT_GE(gap, kSmallestGap) << "figures " << one << " and " << other << " at " << seconds << " s";
            }
        }
    }
}

TEST(PlazaTest, ShapesTellTheClassesApart) {
    const double picture = static_cast<double>(plaza().width) * plaza().height;
    std::map<FigureKind, int> numbers;
    for (const SceneFigure& figure : plaza().figures) {
        const double ratio = static_cast<double>(figure.width) / figure.height;
        const double share = figure.width * figure.height / picture;
        numbers[figure.kind] += 1;
        switch (figure.kind) {
            case FigureKind::Person:
                EXPECT_GT(1 / ratio, 2.3);
                EXPECT_LT(1 / ratio, 2.8);
                EXPECT_GE(share, 0.011);
                break;
            case FigureKind::Car:
                EXPECT_GT(ratio, 2.2);
                EXPECT_LT(ratio, 2.8);
                EXPECT_GT(share, 0.025);
                EXPECT_LT(share, 0.06);
                break;
            case FigureKind::Bus:
                EXPECT_GT(ratio, 2.8);
                EXPECT_GE(share, 0.10);
                EXPECT_LT(share, 0.50);
                break;
            case FigureKind::Bicycle:
                EXPECT_NEAR(ratio, 1.0, 0.1);
                EXPECT_GT(share, 0.005);
                break;
        }
    }
    EXPECT_GE(numbers[FigureKind::Person], 6);
    EXPECT_GE(numbers[FigureKind::Car], 4);
    EXPECT_EQ(numbers[FigureKind::Bus], 1);
    EXPECT_EQ(numbers[FigureKind::Bicycle], 2);
}

TEST(PlazaTest, WhoeverGoesInGoesDeepBeforeVanishing) {
    // The whole body is in the picture while the centre is 80 pixels past the line.
    for (const SceneFigure& figure : plaza().figures) {
        if (figure.kind == FigureKind::Person) {
            EXPECT_LE(plaza().door.left * plaza().width + 80 + figure.width / 2.0, plaza().width);
        }
    }
}

TEST(PoseTest, FollowsTheKeyframes) {
    const SceneFigure figure = {
        FigureKind::Person, 60, 150, 0, 0, {{1, 0, 50}, {3, 200, 50}, {5, 200, 50}, {6, 100, 50}}};
    struct Row {
        double seconds;
        double x;
        double travelled;
        bool moves;
        bool facesLeft;
    };
    const Row rows[] = {{1, 0, 0, true, false},
                        {2, 100, 100, true, false},
                        {4, 200, 200, false, false},
                        {5.5, 150, 250, true, true},
                        {6, 100, 300, true, true}};
    for (const Row& row : rows) {
        const FigurePose pose = poseAt(figure, row.seconds);
        EXPECT_DOUBLE_EQ(pose.x, row.x) << row.seconds;
        EXPECT_DOUBLE_EQ(pose.travelled, row.travelled) << row.seconds;
        EXPECT_EQ(pose.moves, row.moves) << row.seconds;
        EXPECT_EQ(pose.facesLeft, row.facesLeft) << row.seconds;
    }
    EXPECT_FALSE(isPresent(figure, 0.9));
    EXPECT_FALSE(isPresent(figure, 6.1));
}

/** Every tenth second of the scene, as the service hands it out. */
std::vector<std::string> shotsOfPlaza() {
    const video_test::ConfiguredSource source("scene:plaza");
    const video_test::StreamHandle stream = video_test::startStream(1280, 720);
    std::vector<std::string> shots;
    video_test::ErrorSlot error;
    for (int second = 0; second < 60; second += 10) {
        setVirtualTime(int64_t{second} * 1'000'000);
        shots.push_back(video_test::fetchFrame(stream.get(), nv12Size(1280, 720), error));
        EXPECT_FALSE(shots.back().empty()) << error.message();
    }
    return shots;
}

TEST(PlazaTest, TwoRunsGiveTheSameBytes) {
    const auto first = shotsOfPlaza();
    const auto second = shotsOfPlaza();
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t shot = 0; shot < first.size(); ++shot) {
        EXPECT_TRUE(first[shot] == second[shot]) << "shot " << shot << " differs";
    }
}

TEST(PlazaTest, APassLastsAMinuteAndTheNoiseIsMild) {
    const video_test::ConfiguredSource source("scene:plaza");
    const video_test::StreamHandle stream = video_test::startStream(1280, 720);
    video_test::ErrorSlot error;
    const std::string first = video_test::fetchFrame(stream.get(), nv12Size(1280, 720), error);
    const std::string second = video_test::fetchFrame(stream.get(), nv12Size(1280, 720), error);
    ASSERT_EQ(first.size(), second.size());
    int changed = 0;
    int largest = 0;
    for (std::size_t index = 0; index < first.size(); ++index) {
        const int change = std::abs(static_cast<uint8_t>(first[index]) - static_cast<uint8_t>(second[index]));
        largest = std::max(largest, change);
        changed += change > 0 ? 1 : 0;
    }
    EXPECT_GT(changed, 1280 * 720 / 2) << "the empty place is too still to be a sensor's picture";
    EXPECT_LE(largest, 6) << "noise of -3 to 3 on either frame";
    EXPECT_EQ(sourceDuration(), 60'000'000);
    setVirtualTime(60'000'000);
    EXPECT_FALSE(video_test::fetchFrame(stream.get(), nv12Size(1280, 720), error).empty()) << error.message();
    EXPECT_EQ(nextFrameTime(), -1);
    EXPECT_TRUE(video_test::fetchFrame(stream.get(), nv12Size(1280, 720), error).empty());
    EXPECT_EQ(error.message(), "scene:plaza: the recording has ended");
    EXPECT_EQ(sourceError(), "");
}

}  // namespace
}  // namespace desktop

#include "inquiry/kept_path.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace inquiry {

namespace {

using nlohmann::json;

// Such an unknown time can have milliseconds added to it.
constexpr int64_t kUndated = std::numeric_limits<int64_t>::min() / 2;
// Beyond what a ledger holds; a damaged line must not make numbers overflow or memory run out.
constexpr int32_t kMostLeftOut = 1000;
constexpr size_t kMostPoints = 100'000;
constexpr int32_t kMostCoordinate = 1'000'000;
constexpr int64_t kLongestUptime = 1'000'000'000'000'000;  // milliseconds
constexpr int64_t kLongestPath = int64_t{366} * 86'400'000;

/** What a line says that no ledger says. */
struct Nonsense {};

int64_t within(const json& number, int64_t least, int64_t most) {
    const auto value = number.get<int64_t>();
    if (value < least || value > most) {
        throw Nonsense();
    }
    return value;
}

/** boot: when the machine was started, which times without UTC count from; nothing where that is not known. */
int64_t timeIn(const json& time, const std::optional<int64_t>& boot) {
    if (time.is_string()) {
        return ledger::utcOf(time.get<std::string>()).value_or(kUndated);
    }
    const int64_t sinceBoot = within(time, 0, kLongestUptime);
    return boot ? *boot + sinceBoot : kUndated;
}

t_one_locator pointOf(const json& point) {
    return {static_cast<int32_t>(within(point.at(0), -kMostCoordinate, kMostCoordinate)),
            static_cast<int32_t>(within(point.at(1), -kMostCoordinate, kMostCoordinate))};
}

ledger::PictureSize sizeOf(const json& line) {
    const t_one_locator size = pointOf(line.at("size"));
    return {size.first, size.second};
}

int32_t classIn(const json& line) {
    return label_to_class_index(line.at("class").get<std::string>()).value_or(-1);
}

void addPoint(const json& entry, int64_t begin, std::vector<PlacedPoint>& points) {
    const t_one_locator at = {static_cast<int32_t>(within(entry.at(1), -kMostCoordinate, kMostCoordinate)),
                              static_cast<int32_t>(within(entry.at(2), -kMostCoordinate, kMostCoordinate))};
    const int64_t time = begin + within(entry.at(0), 0, kLongestPath);
    const auto leftOut = static_cast<int32_t>(entry.size() > 3 ? within(entry.at(3), 0, kMostLeftOut) : 0);
    if (points.size() + static_cast<size_t>(leftOut) >= kMostPoints) {
        throw Nonsense();
    }
    if (!points.empty()) {
        const PlacedPoint from = points.back();
        for (int32_t i = 1; i <= leftOut; ++i) {
            const int64_t then = from.utcMillis + (time - from.utcMillis) * i / (leftOut + 1);
            points.push_back({then, ledger::pointBetween(from.at, at, i, leftOut)});
        }
    }
    points.push_back({time, at});
}

}  // namespace

std::optional<KeptPath> pathOf(const json& line, const ledger::Moment& moment) {
    try {
        const std::optional<int64_t> boot =
            moment.isDated() ? std::optional(moment.utcMillis - moment.monoMillis) : std::nullopt;
        KeptPath path;
        path.object = line.at("object").get<int64_t>();
        path.classId = classIn(line);
        path.size = sizeOf(line);
        path.ended = !line.contains("ended") || line.at("ended").get<bool>();
        const int64_t begin = timeIn(line.at(line.contains("begin") ? "begin" : "first"), boot);
        for (const json& entry : line.at("path")) {
            addPoint(entry, begin, path.points);
        }
        for (const json& stay : line.at("areas")) {
            path.stays.push_back({static_cast<int>(within(stay.at("area"), 1, 3)), timeIn(stay.at("enter"), boot),
                                  timeIn(stay.at("leave"), boot)});
        }
        return path;
    } catch (const json::exception&) {
        return std::nullopt;
    } catch (const Nonsense&) {
        return std::nullopt;
    }
}

std::optional<KeptCrossing> crossingOf(const json& line) {
    try {
        return KeptCrossing{line.at("object").get<int64_t>(),
                            static_cast<int>(within(line.at("entrance"), 1, 3)),
                            line.at("direction").get<std::string>() == "in",
                            classIn(line),
                            sizeOf(line),
                            pointOf(line.at("before")),
                            pointOf(line.at("after"))};
    } catch (const json::exception&) {
        return std::nullopt;
    } catch (const Nonsense&) {
        return std::nullopt;
    }
}

}  // namespace inquiry

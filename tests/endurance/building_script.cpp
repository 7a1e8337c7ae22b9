#include "building_script.h"

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace building {

namespace {

constexpr int64_t kDayMillis = 86'400'000;
constexpr int32_t kHall = 280; /**< x between the doors */

/** The tracker takes whoever appears as another one vanishes for the same: between the two some time passes. */
constexpr int64_t kApart = 4 * kCycle;
constexpr size_t kMostAtOnce = 16; /**< more than can have come while anybody was there */

/** The ways that people take. */
const std::vector<std::vector<int32_t>>& ways() {
    static const std::vector<std::vector<int32_t>> kWays = {
        {kHall, 480},         // in by door 1
        {480, kHall},         // out by it
        {kHall, 80},          // and by door 2
        {80, kHall},          //
        {80, 480},            // through
        {480, 80},            //
        {kHall, 460, kHall},  // in, and out again
        {200, 370, 190},      // to and fro within the hall
    };
    return kWays;
}

/** A number of 0 to below 1, the same on every machine, unlike the library's distributions. */
double fraction(std::mt19937& random) {
    return static_cast<double>(random()) / 4294967296.0;
}

size_t below(std::mt19937& random, size_t limit) {
    return random() % limit;
}

int64_t duration(const Walker& walker, int32_t from, int32_t to) {
    return static_cast<int64_t>(std::abs(to - from) * 1000 / walker.speed);
}

}  // namespace

std::array<Day::Step, 2> Day::steps() const {
    // Over the day in UTC, where there is such a night: what comes later then belongs to the day before.
    const int64_t midnight = (begin / kDayMillis + 1) * kDayMillis - begin;
    const Step forward = {length / 4, length / 30};
    const int64_t behindMidnight = midnight - forward.by + length / 60;
    const bool hasMidnight = behindMidnight > forward.at && behindMidnight < length * 9 / 10;
    return {forward, Step{hasMidnight ? behindMidnight : length * 2 / 3, -length / 20}};
}

std::array<Span, 2> Day::fullDisks() const {
    return {Span{length / 8, length / 8 + length / 40}, Span{length * 4 / 5, length * 4 / 5 + length / 30}};
}

Span Day::quiet() const {
    const Span full = fullDisks()[0];
    return {full.from, full.until + kMinute + 2 * kCycle};
}

int64_t Day::wallAt(int64_t time) const {
    int64_t wall = begin + time;
    for (const Step& step : steps()) {
        wall += time >= step.at ? step.by : 0;
    }
    return wall;
}

std::optional<double> Walker::xAt(int64_t time) const {
    if (time < begin || time >= end) {
        return std::nullopt;
    }
    int64_t left = time - begin;
    for (size_t i = 0; i + 1 < stops.size(); ++i) {
        const int64_t whole = duration(*this, stops[i], stops[i + 1]);
        if (left < whole) {
            return stops[i] + (stops[i + 1] - stops[i]) * (static_cast<double>(left) / static_cast<double>(whole));
        }
        left -= whole;
    }
    return stops.back();
}

std::vector<Passage> Walker::passages() const {
    std::vector<Passage> found;
    int64_t at = begin;
    for (size_t i = 0; i + 1 < stops.size(); ++i) {
        const int32_t from = stops[i];
        const int32_t to = stops[i + 1];
        std::vector<Passage> here;
        const auto pass = [&](int32_t door, int entrance, bool isInRightwards) {
            if (std::min(from, to) < door && door < std::max(from, to)) {
                here.push_back({at + duration(*this, from, door), entrance, (to > from) == isInRightwards});
            }
        };
        pass(kDoor1, 1, true);
        pass(kDoor2, 2, false);
        std::sort(here.begin(), here.end(), [](const Passage& a, const Passage& b) { return a.at < b.at; });
        found.insert(found.end(), here.begin(), here.end());
        at += duration(*this, from, to);
    }
    return found;
}

std::vector<Walker> walkersOf(const Day& day, size_t camera) {
    constexpr std::array<int32_t, 4> kLanes = {45, 135, 225, 315};
    constexpr std::array<int32_t, 3> kClasses = {0, 2, 7};
    constexpr double kBusy = 8'000;
    constexpr double kQuiet = 60'000;
    std::mt19937 random(day.seed * 16 + static_cast<uint32_t>(camera));
    std::vector<Walker> walkers;
    std::array<int64_t, kLanes.size()> free = {};
    for (double time = 0; time < static_cast<double>(day.length);) {
        // A quiet time and a busy one in every four hours.
        const double hour = time / 3'600'000;
        const double busy = (1 + std::cos(hour * std::numbers::pi / 2)) / 2;
        time += -std::log(1 - fraction(random)) * (busy * kBusy + (1 - busy) * kQuiet);
        Walker walker;
        const size_t lane = below(random, kLanes.size());
        walker.stops = ways().at(below(random, ways().size()));
        walker.speed = 14 + 14 * fraction(random);
        walker.classId = kClasses.at(below(random, kClasses.size()));
        walker.y = kLanes.at(lane);
        walker.begin = static_cast<int64_t>(time);
        walker.end = walker.begin + 2 * kCycle;  // who has arrived stands there
        for (size_t i = 0; i + 1 < walker.stops.size(); ++i) {
            walker.end += duration(walker, walker.stops[i], walker.stops[i + 1]);
        }
        const auto isNear = [&](const Walker& other) {
            return std::abs(other.end - walker.begin) < kApart || std::abs(other.begin - walker.end) < kApart;
        };
        const auto recent = walkers.end() - static_cast<std::ptrdiff_t>(std::min(walkers.size(), kMostAtOnce));
        const bool isAlone = std::none_of(recent, walkers.end(), isNear);
        if (isAlone && walker.begin >= free.at(lane) && walker.end < day.length) {
            free.at(lane) = walker.end + kApart;
            walkers.push_back(std::move(walker));
        }
    }
    return walkers;
}

SharedTimes::SharedTimes(const std::string& path) {
    const UniqueFd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    void* const memory = file && ftruncate(file.get(), sizeof(Times)) == 0
                             ? mmap(nullptr, sizeof(Times), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0)
                             : MAP_FAILED;
    if (memory == MAP_FAILED) {
        throw std::runtime_error("cannot share " + path);
    }
    // All of it is 0 at first, which is what a time begins with.
    m_times = static_cast<Times*>(memory);
}

SharedTimes::~SharedTimes() {
    munmap(m_times, sizeof(Times));
}

int64_t SharedTimes::slowest() const {
    int64_t least = std::numeric_limits<int64_t>::max();
    for (const std::atomic<int64_t>& time : m_times->passed) {
        least = std::min(least, time.load());
    }
    return least;
}

std::vector<std::string> wordsOf(const Day& day) {
    return {std::to_string(day.seed), std::to_string(day.begin), std::to_string(day.length), day.zone, day.resetAt};
}

Day dayOf(const std::vector<std::string>& words) {
    return {static_cast<uint32_t>(std::stoul(words.at(0))), std::stoll(words.at(1)), std::stoll(words.at(2)),
            words.at(3), words.at(4)};
}

}  // namespace building

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <glib.h>
#include <random>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "app/application.h"
#include "base/clock.h"
#include "building_script.h"
#include "scripted_platform.h"

/**
 * A camera of the building: the real process on the scripted platform. It looks as often as it can while a second goes
 * by between two looks, sees who walks before it then, and ends in order when the day is over.
 *
 * Arguments: its number, the file of the times, the day, and the addresses of its followers.
 */
namespace {

constexpr int64_t kUptime = 3'600'000;  // the machine has run for an hour when the day begins
constexpr int64_t kLead = 20'000;       // no camera is further ahead of another one
constexpr useconds_t kPause = 50;

std::atomic<bool> g_isDiskFull = false;

bool isOnTheDisk(int fd) {
    std::array<char, PATH_MAX> path = {};
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size() - 1);
    return length > 0 &&
           std::string_view(path.data(), static_cast<size_t>(length)).find("/localdata/") != std::string_view::npos;
}

}  // namespace

/**
 * The machine's log, which a full disk does not silence: its errors go to a file. Without a daemon the C library would
 * write all of it to the console, which is as slow as a serial line.
 */
extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (priority == LOG_ERR) {
        std::array<char, 512> line = {};
        const int length = vsnprintf(line.data(), line.size() - 1, format, arguments);
        const size_t size = std::min(static_cast<size_t>(std::max(length, 0)), line.size() - 2);
        line.at(size) = '\n';
        static const int file = open("system.log", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        [[maybe_unused]] const long written = ::syscall(SYS_write, file, line.data(), size + 1);
    }
    va_end(arguments);
}

/** The call of the C library, but for a disk that may be full: the last bytes that it takes tear what they are of. */
extern "C" ssize_t write(int fd, const void* data, size_t size) {
    if (!g_isDiskFull || !isOnTheDisk(fd)) {
        return syscall(SYS_write, fd, data, size);
    }
    static std::atomic<uint32_t> refused = 0;
    constexpr size_t kMostTorn = 200;
    if (++refused % 4 == 0 && size > 1) {
        return syscall(SYS_write, fd, data, 1 + refused % std::min(size - 1, kMostTorn));
    }
    errno = ENOSPC;
    return -1;
}

namespace {

using building::Walker;

/** The time of one camera, which is the application's meanwhile, and what it sees by it. */
class CameraLife {
public:
    CameraLife(building::Day day, size_t number, const std::string& times)
        : m_day(std::move(day)), m_number(number), m_times(times), m_walkers(building::walkersOf(m_day, number)) {
        setClock([this] { return m_day.wallAt(now()) * 1000; }, [this] { return (kUptime + now()) * 1000; });
    }
    ~CameraLife() { setClock(nullptr); }
    CameraLife(const CameraLife&) = delete;
    CameraLife& operator=(const CameraLife&) = delete;

    int64_t now() { return m_times.of(m_number); }
    bool isAhead() { return now() > m_times.slowest() + kLead; }
    bool isOver() { return now() >= m_day.length; }

    void goOn() {
        const int64_t next = now() + building::kCycle;
        const auto spans = m_day.fullDisks();
        g_isDiskFull = std::any_of(spans.begin(), spans.end(), [&](const auto& span) { return span.holds(next); });
        m_times.of(m_number) = next;
    }

    std::vector<scripted::Candidate> seen() {
        const int64_t time = now();
        std::vector<scripted::Candidate> found;
        while (m_first < m_walkers.size() && m_walkers[m_first].end <= time) {
            ++m_first;
        }
        // Long ways and short ones overlap: whoever came first may still be there when the next one is not.
        for (size_t i = m_first; i < m_walkers.size() && m_walkers[i].begin <= time; ++i) {
            if (const std::optional<double> x = m_walkers[i].xAt(time)) {
                found.push_back(boxAround(*x, m_walkers[i]));
            }
        }
        return found;
    }

private:
    static scripted::Candidate boxAround(double x, const Walker& walker) {
        constexpr double kHalfWidth = 20;
        constexpr double kHalfHeight = 30;
        const auto share = [](double pixels, int32_t size) { return static_cast<float>(pixels / size); };
        return {.classId = walker.classId,
                .score = 0.9F,
                .ymin = share(walker.y - kHalfHeight, building::kHeight),
                .xmin = share(x - kHalfWidth, building::kWidth),
                .ymax = share(walker.y + kHalfHeight, building::kHeight),
                .xmax = share(x + kHalfWidth, building::kWidth)};
    }

    const building::Day m_day;
    const size_t m_number;
    building::SharedTimes m_times;
    const std::vector<Walker> m_walkers;
    size_t m_first = 0; /**< who came before has gone */
};

void setRectangle(const std::string& area, int32_t left, int32_t right) {
    const std::array<std::pair<int32_t, int32_t>, 4> corners = {
        {{left, 0}, {right, 0}, {right, building::kHeight}, {left, building::kHeight}}};
    for (size_t i = 0; i < corners.size(); ++i) {
        scripted::parameters()[area + std::to_string(i) + "x"] = std::to_string(corners.at(i).first);
        scripted::parameters()[area + std::to_string(i) + "y"] = std::to_string(corners.at(i).second);
    }
    scripted::parameters()[area + "Active"] = "true";
}

void setParameters(const building::Day& day, size_t number, const std::vector<std::string>& followers) {
    std::map<std::string, std::string>& parameters = scripted::parameters();
    const std::pair<const char*, const char*> kSettings[] = {
        {"ModelWidth", "64"},
        {"ModelHeight", "36"},
        {"MainLoopTime", "1000000000"},  // looks come from elsewhere
        {"Sensitivity", "0.35"},
        {"DetectPersons", "true"},
        {"DetectCars", "true"},
        {"DetectTrucks", "true"},
        {"EntrancesControlPoints", "4"},
        {"DetectionControlPoints", "4"},
        {"Detection1ThreshSeconds", "8"},
        {"MinNumberOfPeopleForTrigger", "1"},
        {"AoiLogicComparison", "2"},
        {"MinOccupantsForTrigger", "1000000"},
        {"OccupancyAutoResetActive", "true"},
        {"PeriodTime", "2"},
    };
    for (const auto& [name, text] : kSettings) {
        parameters[name] = text;
    }
    setRectangle("Occupancy1", building::kDoor1, building::kWidth);
    setRectangle("Occupancy2", 0, building::kDoor2);
    setRectangle("Detection1", building::kDoor2, building::kDoor1);
    parameters["OccupancyAutoResetTime"] = day.resetAt;
    parameters["ThisDeviceCameraName"] = "Camera" + std::to_string(number);
    for (size_t i = 0; i < followers.size(); ++i) {
        const std::string follower = "Follower" + std::to_string(i + 1);
        parameters[follower + "IP"] = followers[i];
        parameters[follower + "CameraName"] = follower;
        parameters["is" + follower + "Active"] = "true";
    }
}

}  // namespace

int main(int argc, char** argv) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody else looks after it
    std::vector<std::string> words(argv + 1, argv + argc);
    const size_t number = std::stoul(words.at(0));
    constexpr size_t kDayWords = 5;
    const auto dayBegin = words.begin() + 2;
    const building::Day day = building::dayOf({dayBegin, dayBegin + kDayWords});
    CameraLife life(day, number, words.at(1));
    scripted::reset();
    scripted::offerResolutions(1, {{building::kWidth, building::kHeight}});
    std::vector<uint8_t> picture(static_cast<size_t>(building::kWidth) * building::kHeight * 3 / 2);
    scripted::lendPicture(picture.data());
    scripted::onEachJob([&] { return life.seen(); });
    setParameters(day, number, {dayBegin + kDayWords, words.end()});
    Application application;
    struct Looking {
        CameraLife& life;
        Application& application;
    } looking = {life, application};
    g_idle_add(
        [](gpointer data) -> gboolean {
            auto& self = *static_cast<Looking*>(data);
            if (self.life.isOver()) {
                kill(getpid(), SIGTERM);
                return G_SOURCE_REMOVE;
            }
            if (self.life.isAhead()) {
                usleep(kPause);
            } else {
                self.life.goOn();
                self.application.thread_function();
            }
            return G_SOURCE_CONTINUE;
        },
        &looking);
    return application.main();
}

#include "building_day.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <memory>
#include <random>
#include <thread>

#include "building_front.h"
#include "building_truth.h"
#include "scripted_process.h"

namespace building {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPause = std::chrono::microseconds(100);
constexpr std::chrono::seconds kLongestStandstill(600);

/** A camera and its fate. */
class Fate {
public:
    Fate(const Day& day, const Watching& watching, size_t number, const std::string& times)
        : m_day(day),
          m_watching(watching),
          m_number(number),
          m_times(times),
          m_timesFile(times),
          m_random(day.seed * 64 + static_cast<uint32_t>(number)) {}

    const ScriptedProcess& process() const { return m_process; }
    const std::vector<Interruption>& interruptions() const { return m_interruptions; }
    int64_t passed() { return m_times.of(m_number); }
    bool isOver() const { return m_isOver; }

    void start(const std::vector<std::string>& followers) {
        m_followers = followers;
        std::vector<std::string> command = this_build::command("senvo_building_camera");
        command.push_back(std::to_string(m_number));
        command.push_back(m_timesFile);
        for (const std::vector<std::string>& words : {wordsOf(m_day), followers}) {
            command.insert(command.end(), words.begin(), words.end());
        }
        m_child = std::make_unique<Child>(startProgram(
            command, m_process.folder(),
            {"OSTREL_SENVO_ROOT=" + m_process.folder().string(), "TZ=" + m_day.zone, "OSTREL_SENVO_LEDGER_SYNC=1"},
            {SIGTERM}));
        m_killAt = passed() + static_cast<int64_t>(-std::log(1 - share()) * static_cast<double>(m_watching.killEvery));
        const Span quiet = m_day.quiet();
        if (passed() < quiet.until && m_killAt >= quiet.from) {
            m_killAt += quiet.until - std::max(passed(), quiet.from);
        }
        // Now and then it is killed while it starts.
        constexpr int kOneIn = 10;
        constexpr int kLongestStart = 30'000;
        const bool isEarly = m_random() % kOneIn == 0 && m_killAt < m_day.length && !quiet.holds(passed());
        m_killEarly =
            Clock::now() + (isEarly ? std::chrono::microseconds(m_random() % kLongestStart) : std::chrono::hours(24));
    }

    /** Kills it when it is time, and starts it again when it has ended. Returns what is wrong; empty for nothing. */
    std::string lookAfter() {
        if (m_isOver) {
            return "";
        }
        const bool isLastMinute = passed() >= m_day.length - kMinute;
        if (!isLastMinute && (passed() >= m_killAt || Clock::now() >= m_killEarly)) {
            // Anywhere within a look, not just where the time goes on.
            const auto until = Clock::now() + std::chrono::microseconds(m_random() % 1'000);
            while (Clock::now() < until) {
            }
            ::kill(m_child->pid(), SIGKILL);
            m_child->wait(-1);
            interrupt(true);
            return "";
        }
        const int status = m_child->wait(0);
        if (status == 0) {
            m_isOver = true;
            return passed() >= m_day.length ? "" : "ended in order before its day was over";
        }
        if (status == 1 && m_number == 0) {
            // A leader whose follower was killed as it asked has its supervisor start it again.
            interrupt(false);
            return "";
        }
        return status == -1 ? "" : "ended with " + std::to_string(status) + ": " + readFile(m_process.folder() / "err");
    }

private:
    double share() { return static_cast<double>(m_random()) / 4294967296.0; }

    void interrupt(bool isKill) {
        constexpr int64_t kShortest = 500;
        const int64_t from = passed();
        const int64_t outage = kShortest + static_cast<int64_t>(-std::log(1 - share()) * 15'000);
        const int64_t until = std::max(from, std::min(from + outage, m_day.length - kMinute));
        m_interruptions.push_back({{from, until}, isKill});
        m_times.of(m_number) = until;
        start(m_followers);
    }

    const Day& m_day;
    const Watching& m_watching;
    const size_t m_number;
    SharedTimes m_times;
    const std::string m_timesFile;
    std::mt19937 m_random;
    ScriptedProcess m_process;
    std::vector<std::string> m_followers;
    std::unique_ptr<Child> m_child;
    int64_t m_killAt = 0;
    Clock::time_point m_killEarly;
    std::vector<Interruption> m_interruptions;
    bool m_isOver = false;
};

}  // namespace

Watched liveThrough(const Day& day, const Watching& watching) {
    const TestFolder folder;
    const std::string times = folder.path() / "times";
    std::vector<std::unique_ptr<Fate>> cameras;
    for (size_t number = 0; number < kCameras; ++number) {
        cameras.push_back(std::make_unique<Fate>(day, watching, number, times));
    }
    Watched watched;
    {
        const Front first(cameras[1]->process().service());
        const Front second(cameras[2]->process().service());
        cameras[0]->start({first.address(), second.address()});
        cameras[1]->start({});
        cameras[2]->start({});
        std::array<int64_t, kCameras> before = {};
        auto moved = Clock::now();
        const auto isOver = [](const auto& camera) { return camera->isOver(); };
        while (!std::all_of(cameras.begin(), cameras.end(), isOver) && watched.faults.empty()) {
            std::array<int64_t, kCameras> now = {};
            for (size_t i = 0; i < kCameras; ++i) {
                if (const std::string fault = cameras[i]->lookAfter(); !fault.empty()) {
                    watched.faults.push_back("camera " + std::to_string(i) + " " + fault);
                }
                now[i] = cameras[i]->passed();
            }
            moved = now == before ? moved : Clock::now();
            before = now;
            if (Clock::now() - moved > kLongestStandstill) {
                watched.faults.push_back("nothing goes on any more");
            }
            std::this_thread::sleep_for(kPause);
        }
    }
    size_t ends = 0;
    for (size_t i = 0; i < kCameras && watched.faults.empty(); ++i) {
        ends += cameras[i]->interruptions().size();
        compare(day, i, cameras[i]->process().folder(), cameras[i]->interruptions(), watched);
        if (!watching.checkProgram.empty()) {
            const std::filesystem::path archives = cameras[i]->process().folder() / kArchives;
            const ProgramResult result = runProgram(
                {this_build::program(watching.checkProgram), "check", "--ledger", archives / "ledger"}, folder.path());
            if (result.status != 0 || !result.out.empty()) {
                watched.faults.push_back("camera " + std::to_string(i) + ": " + watching.checkProgram + " ends with " +
                                         std::to_string(result.status) + " and says " + result.out);
            }
        }
    }
    if (watched.faults.empty() && static_cast<int64_t>(ends) < day.length / watching.killEvery) {
        watched.faults.push_back("ended " + std::to_string(ends) + " times only");
    }
    return watched;
}

}  // namespace building

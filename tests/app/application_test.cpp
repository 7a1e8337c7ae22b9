#include "app/application.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <thread>

#include "base/clock.h"
#include "canned_server.h"
#include "running_application.h"

namespace {

using Lines = std::vector<std::string>;
using Analysis = RunningApplication;
using ApplicationDeathTest = RunningApplication;

// --- Start-up and stop -----------------------------------------------------------------------------------------------

/** The lines of a run; those about memory without their figures. */
Lines withoutFigures() {
    Lines lines;
    for (const std::string& line : LogCapture::lines()) {
        lines.push_back(line.substr(0, line.find(" - Total memory: ")));
    }
    return lines;
}

TEST_F(Analysis, MainStartsInOrderAndStopsInOrderOnSigterm) {
    askToEndInTheFirstCycle();
    scripted::parameters()["MainLoopTime"] = "1";
    EXPECT_EQ(m_application.main(), 0);
    const Lines lines = withoutFigures();
    const Lines inOrder = {"info: logMemoryUsage: Starting Ostrel Senvo",
                           "info: find_rotation_parameter: The value of rotation is 0",
                           "info: larod_setup: Model loaded successfully",
                           "info: init_larod: Start fetching video frames from VDO",
                           "info: init_sensor_aspect_ratio: Image sensor aspect ratio: 16:9",
                           "info: EventManager: EventManager constructor",
                           "info: addEvent: Successfully declared event Ostrel Senvo Breached. Declaration ID=1",
                           "info: addEvent: Successfully declared event Ostrel Senvo Area 1 Alert. Declaration ID=2",
                           "info: addEvent: Successfully declared event Ostrel Senvo Area 2 Alert. Declaration ID=3",
                           "info: addEvent: Successfully declared event Ostrel Senvo Area 3 Alert. Declaration ID=4",
                           "info: addEvent: Successfully declared event Ostrel Senvo Occupancy Alert. Declaration ID=5",
                           "info: addJSONDataEvent: Successfully declared event Ostrel Senvo JSON Data. Declaration "
                           "ID=6",
                           "info: addXMLDataEvent: Successfully declared event Ostrel Senvo XML Data. Declaration ID=7",
                           "info: handle_sigterm: was invoked",
                           "info: logMemoryUsage: Ending Ostrel Senvo"};
    auto from = lines.begin();
    for (const std::string& line : inOrder) {
        from = std::find(from, lines.end(), line);
        ASSERT_NE(from, lines.end()) << "missing, or before its predecessor: " << line;
    }
    EXPECT_TRUE(LogCapture::ofLevel("error").empty());
}

TEST_F(Analysis, TheStatusIsStartingBeforeTheFirstCycle) {
    int whileStarting = 0;
    askToEndInTheFirstCycle([&] { whileStarting = m_application.status(); });
    EXPECT_EQ(m_application.main(), 0);
    EXPECT_EQ(whileStarting, 100);
    EXPECT_EQ(m_application.status(), 200);
}

TEST_F(Analysis, GoesOnWithoutItsWebService) {
    std::filesystem::remove_all(m_log.folder() / "usr/local/packages/ostrel_senvo/html");
    bool unknown = false;
    askToEndInTheFirstCycle([&] {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!unknown && std::chrono::steady_clock::now() < giveUp) {
            unknown = m_application.status() == 50;
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(m_application.main(), 0);
    EXPECT_TRUE(unknown);
    EXPECT_EQ(m_application.status(), 200) << "the cycle's own";
    EXPECT_EQ(LogCapture::countContaining("info: webservices_thread_fcn: "), 1);
    EXPECT_EQ(LogCapture::count("error: webservices_thread_fcn: Failed to init fastcgi service"), 1);
}

TEST_F(Analysis, MainFailsWhenTheModelCannotBeInitialised) {
    std::filesystem::remove(modelPath("detect_960_540_tpu.tflite"));
    EXPECT_EQ(m_application.main(), -1);
    EXPECT_EQ(m_application.status(), 401);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"init_larod: Unable to open model file: " + modelPath("detect_960_540_tpu.tflite"),
                     "main: Failed init_ai"}));
    EXPECT_EQ(scripted::declarations().size(), 0U) << "nothing after the model is started";
}

TEST_F(ApplicationDeathTest, SigtermBeforeTheMainLoopEndsTheProcessWithStatusOne) {
    // Nobody writes into this pipe: start-up waits at opening its model until the signal has ended the process.
    std::filesystem::remove(modelPath("detect_960_540_tpu.tflite"));
    ASSERT_EQ(mkfifo(modelPath("detect_960_540_tpu.tflite").c_str(), 0600), 0);
    const auto runWithPendingSignal = [this] {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        kill(getpid(), SIGTERM);
        m_application.main();
    };
    EXPECT_EXIT(runWithPendingSignal(), testing::ExitedWithCode(1), "");
    EXPECT_EQ(LogCapture::count("info: handle_sigterm: was invoked"), 1);
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"grateful_dead: gp_Loop is NULL"}));
    EXPECT_EQ(LogCapture::ofLevel("warning"), (Lines{"STOPPING ostrel_senvo", ""}));
}

struct MountingCase {
    const char* label;
    const char* rotation;
    bool portrait;
};

class Mounting : public Analysis, public testing::WithParamInterface<MountingCase> {};

TEST_P(Mounting, DecidesTheModelAndTheStream) {
    scripted::parameters()["root.Image.I0.Appearance.Rotation"] = GetParam().rotation;
    start();
    const bool portrait = GetParam().portrait;
    EXPECT_EQ(m_application.detector().is_portrait(), portrait) << GetParam().label;
    EXPECT_EQ(scripted::lastStreamSettings().at("rotation"), portrait ? 90U : 0U) << GetParam().label;
    const std::string model = modelPath(portrait ? "detect_540_960_tpu.tflite" : "detect_960_540_tpu.tflite");
    EXPECT_EQ(LogCapture::count("info: init_larod: Setting up larod connection with chip google-edge-tpu-tflite and "
                                "model " +
                                model),
              1)
        << GetParam().label;
    EXPECT_EQ(m_application.config().i_WStream, portrait ? 36 : 64) << GetParam().label;
    EXPECT_EQ(m_application.config().i_HStream, portrait ? 64 : 36) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(Table, Mounting,
                         testing::Values(MountingCase{"upright", "0", false}, MountingCase{"right", "90", true},
                                         MountingCase{"upside down", "180", false}, MountingCase{"left", "270", true}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Analysis, TheSettingsReachDetectorAndAreasAtStart) {
    scripted::parameters()["Sensitivity"] = "0.9";
    scripted::parameters()["Detection1Active"] = "true";
    scripted::parameters()["DetectionControlPoints"] = "4";
    scripted::parameters()["MinNumberOfPeopleForTrigger"] = "1";
    for (const auto& [name, value] :
         std::map<std::string, std::string>{{"11x", "64"}, {"12x", "64"}, {"12y", "36"}, {"13y", "36"}}) {
        scripted::parameters()["Detection" + name] = value;
    }
    start();
    scripted::find({{.classId = 0, .score = 0.9F, .ymin = 0.2F, .xmin = 0.2F, .ymax = 0.5F, .xmax = 0.5F},
                    {.classId = 0, .score = 0.91F, .ymin = 0.6F, .xmin = 0.6F, .ymax = 0.9F, .xmax = 0.9F}});
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.metrics().crowdCount1, 1) << "a score of 0.9 is not above 0.9";
}

// --- Status ----------------------------------------------------------------------------------------------------------

struct StatusCase {
    const char* label;
    std::vector<const char*> active;
    int status;
};

class Status : public Analysis, public testing::WithParamInterface<StatusCase> {};

TEST_P(Status, TellsTheFirstActiveEvent) {
    // With "less than", the analysis itself neither starts nor stops the areas' alerts.
    scripted::parameters()["AoiLogicComparison"] = "0";
    const std::vector<const char*>& active = GetParam().active;
    const auto isActive = [&](const char* name) {
        return std::find(active.begin(), active.end(), name) != active.end();
    };
    scripted::parameters()["MinOccupantsForTrigger"] = isActive(alerts::kOccupancy) ? "0" : "1000";
    start();
    for (const char* name : active) {
        m_application.events().sendEventStarted(name);
    }
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.status(), GetParam().status) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Status,
    testing::Values(StatusCase{"no event", {}, 200}, StatusCase{"breached", {alerts::kBreached}, 500},
                    StatusCase{"occupancy", {alerts::kOccupancy}, 501}, StatusCase{"area 1", {alerts::kArea1}, 502},
                    StatusCase{"area 2", {alerts::kArea2}, 503}, StatusCase{"area 3", {alerts::kArea3}, 504},
                    StatusCase{"occupancy over area 2", {alerts::kArea2, alerts::kOccupancy}, 501},
                    StatusCase{"occupancy over area 1", {alerts::kArea1, alerts::kOccupancy}, 501},
                    StatusCase{"area 3 before area 2", {alerts::kArea2, alerts::kArea3}, 504},
                    StatusCase{"area 1 before area 3", {alerts::kArea1, alerts::kArea3}, 502},
                    StatusCase{"area 2 before breached", {alerts::kBreached, alerts::kArea2}, 503}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

struct DurationCase {
    const char* label;
    int64_t milliseconds;
    int status;
};

class Duration : public Analysis, public testing::WithParamInterface<DurationCase> {};

TEST_P(Duration, OfACycleDecidesWhetherItIsSlow) {
    start();
    cycleTakes(GetParam().milliseconds);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.status(), GetParam().status) << GetParam().label;
    EXPECT_EQ(m_application.lastCycleDuration(), GetParam().milliseconds) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(Table, Duration,
                         testing::Values(DurationCase{"no time at all", 0, 200},
                                         DurationCase{"longer than the iteration", 150, 200},
                                         DurationCase{"just under twice the iteration", 199, 200},
                                         DurationCase{"exactly twice the iteration", 200, 600},
                                         DurationCase{"far beyond", 5000, 600}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Analysis, BothEndsOfACycleAreCutToMillisecondsBeforeTheyAreSubtracted) {
    start();
    int64_t now = 1700000000000999;
    setClock([&now] { return now; });
    scripted::onJob([&now](const std::vector<uint8_t>&) {
        now += 199001;
        return std::vector<scripted::Candidate>();
    });
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.lastCycleDuration(), 200) << "199.001 ms, but over 200 ends of milliseconds";
    EXPECT_EQ(m_application.status(), 600);
    setClock(nullptr);
}

TEST_F(Analysis, ASlowCycleOutweighsAnActiveEvent) {
    scripted::parameters()["MinOccupantsForTrigger"] = "0";
    start();
    cycleTakes(200);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_TRUE(m_application.events().isEventStarted(alerts::kOccupancy));
    EXPECT_EQ(m_application.status(), 600);
}

// --- Failures of the model -------------------------------------------------------------------------------------------

std::string failureLine(int frame, int repeated) {
    return "error: do_one_analysis: Error running model for frame " + std::to_string(frame) +
           ", malfunction repeated " + std::to_string(repeated) + " consecutive frame(s)";
}

std::string restartLine(int result, int count) {
    return "error: do_one_analysis: After reset init_ai. res_init_ai=" + std::to_string(result) +
           ", initAIcount=" + std::to_string(count);
}

TEST_F(Analysis, TheFirstFailureCountsAsNone) {
    start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(m_application.do_one_analysis(), 1);
    }
    fail(1);
    EXPECT_EQ(m_application.status(), 401);
    EXPECT_EQ(LogCapture::count(failureLine(3, 0)), 1);
    EXPECT_EQ(LogCapture::countContaining("info: logMemoryUsage: larod_prepare_data_and_do_ai failure - Total"), 1);
    EXPECT_EQ(m_application.frameCounter(), 3U);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.status(), 200);
}

TEST_F(Analysis, TheEleventhFailureInARowStartsTheModelAllOver) {
    start();
    fail(10);
    EXPECT_EQ(scripted::calls("larodConnect"), 1);
    EXPECT_EQ(LogCapture::count(failureLine(0, 9)), 1);
    fail(1);
    EXPECT_EQ(LogCapture::count(failureLine(0, 10)), 1);
    EXPECT_EQ(LogCapture::count(restartLine(1, 1)), 1);
    EXPECT_EQ(scripted::calls("larodConnect"), 2);
    EXPECT_EQ(scripted::liveStreams(), 1);
    fail(11);
    EXPECT_EQ(LogCapture::count(failureLine(0, 0)), 2) << "the count of failures begins again";
    EXPECT_EQ(LogCapture::count(restartLine(1, 2)), 1);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
}

TEST_F(Analysis, ASuccessInBetweenResetsTheFailures) {
    start();
    fail(10);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    fail(10);
    EXPECT_EQ(LogCapture::countContaining("initAIcount"), 0);
    EXPECT_EQ(LogCapture::count(failureLine(1, 0)), 1);
}

TEST_F(Analysis, ASuccessInBetweenResetsTheRestarts) {
    start();
    fail(11);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    fail(11);
    EXPECT_EQ(LogCapture::count(restartLine(1, 1)), 2);
    EXPECT_EQ(LogCapture::count(restartLine(1, 2)), 0);
}

TEST_F(ApplicationDeathTest, TheEleventhRestartInARowEndsTheProcess) {
    start();
    fail(10 * 11);
    EXPECT_EQ(LogCapture::count(restartLine(1, 10)), 1) << "ten are borne";
    EXPECT_EXIT(fail(11), testing::ExitedWithCode(1), "");
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_GE(errors.size(), 2U);
    EXPECT_EQ("error: " + errors[errors.size() - 2], restartLine(1, 11));
    EXPECT_EQ(errors.back(), "grateful_dead: do_one_analysis 10 consecutive initAIcount. Restarting the program.");
    EXPECT_EQ(LogCapture::count("warning: STOPPING ostrel_senvo"), 1);
}

class FailedRestart : public Analysis, public testing::WithParamInterface<const char*> {};

TEST_P(FailedRestart, LeavesTheApplicationFailingUntilOneWorks) {
    start();
    fail(10);
    scripted::failFrom(GetParam(), 1, {1, "gone"});
    fail(1);
    EXPECT_EQ(LogCapture::count(restartLine(0, 1)), 1) << GetParam();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(m_application.do_one_analysis(), 0) << GetParam() << ": nothing is there to run, cycle " << i;
    }
    EXPECT_EQ(m_application.status(), 401);
    scripted::heal(GetParam());
    EXPECT_EQ(m_application.do_one_analysis(), 0);
    EXPECT_EQ(LogCapture::count(restartLine(1, 2)), 1) << GetParam();
    EXPECT_EQ(m_application.do_one_analysis(), 1) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(EachCall, FailedRestart,
                         testing::Values("vdo_stream_new", "vdo_stream_attach", "vdo_stream_get_settings",
                                         "vdo_stream_start", "larodConnect", "larodGetDevice", "larodLoadModel",
                                         "larodCreateModelInputs", "larodCreateModelOutputs", "larodSetTensorFd",
                                         "larodCreateJobRequest"),
                         [](const auto& instance) { return std::string(instance.param); });

// --- The automatic reset of the occupancy ----------------------------------------------------------------------------

constexpr time_t kMidnight = 1699920000;  // a midnight in universal time

constexpr time_t at(int hour, int minute, int second) {
    return kMidnight + hour * 3600 + minute * 60 + second;
}

class AutomaticReset : public RunningApplication {
protected:
    AutomaticReset() : RunningApplication(at(7, 0, 0)) {
        scripted::parameters()["OccupancyAutoResetActive"] = "true";
        scripted::parameters()["OccupancyAutoResetTime"] = "07:05";
    }

    void startAt(time_t moment) {
        m_clock.set(moment);
        start();
        m_application.occupancy().init(9);
    }

    /** One tick; whether it reset the occupancy. */
    bool resetsAt(time_t moment) {
        m_clock.set(moment);
        const int before = LogCapture::count("info: reset_occupancy: Auto occupancy reset.");
        EXPECT_TRUE(m_application.thread_function());
        const int resets = LogCapture::count("info: reset_occupancy: Auto occupancy reset.") - before;
        EXPECT_EQ(m_application.occupancy().get_count(), resets > 0 ? 0 : 9);
        m_application.occupancy().init(9);
        return resets > 0;
    }

    void turn(bool on) {
        ConfigParams config = m_application.config();
        config.b_OccupancyAutoResetActive = on;
        m_application.applySettings(config);
    }

    TimeZone m_zone{"UTC0"};
};

TEST_F(AutomaticReset, HappensOnceWhenTheChecksStraddleTheMinute) {
    startAt(at(7, 3, 49));
    EXPECT_FALSE(resetsAt(at(7, 4, 59)));
    EXPECT_FALSE(resetsAt(at(7, 5, 58))) << "not checked again within the minute";
    EXPECT_TRUE(resetsAt(at(7, 5, 59)));
    EXPECT_FALSE(resetsAt(at(7, 6, 58)));
    EXPECT_FALSE(resetsAt(at(7, 6, 59)));
}

TEST_F(AutomaticReset, IsFirstCheckedSeventySecondsAfterTheStart) {
    startAt(at(7, 4, 30));
    EXPECT_FALSE(resetsAt(at(7, 5, 39)));
    EXPECT_TRUE(resetsAt(at(7, 5, 40)));
    EXPECT_FALSE(resetsAt(at(7, 5, 41)));
}

TEST_F(AutomaticReset, ChecksThatWereMissedFollowAtOneATick) {
    startAt(at(7, 0, 0));
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(resetsAt(at(7, 5, 5))) << "check " << i << " of those due at 7:01:10 to 7:04:10";
    }
    EXPECT_FALSE(resetsAt(at(7, 5, 5))) << "the next one is due at 7:05:10";
}

TEST_F(AutomaticReset, FollowsLocalTime) {
    const TimeZone ahead("AHEAD-2");
    scripted::parameters()["OccupancyAutoResetTime"] = "09:05";
    startAt(at(7, 3, 49));
    EXPECT_FALSE(resetsAt(at(7, 4, 59)));
    EXPECT_TRUE(resetsAt(at(7, 5, 59)));
}

TEST_F(AutomaticReset, TurnedOffDoesNotAdvanceTheCheckTime) {
    startAt(at(7, 0, 0));
    turn(false);
    for (time_t moment = at(7, 0, 0); moment < at(7, 4, 50); moment += 10) {
        EXPECT_FALSE(resetsAt(moment));
    }
    turn(true);
    EXPECT_TRUE(resetsAt(at(7, 5, 0))) << "still due since 7:01:10";
}

TEST_F(AutomaticReset, IsLeftOutInATickWhoseModelFails) {
    startAt(at(7, 0, 0));
    scripted::failAt("larodRunJob", 1, {});
    EXPECT_FALSE(resetsAt(at(7, 5, 0)));
    EXPECT_TRUE(resetsAt(at(7, 5, 1)));
}

class ResetTime : public AutomaticReset, public testing::WithParamInterface<const char*> {};

TEST_P(ResetTime, ThatIsNoTimeIsReportedOnceADay) {
    scripted::parameters()["OccupancyAutoResetTime"] = GetParam();
    startAt(at(7, 0, 0));
    const std::string line = std::string(
                                 "error: reset_occupancy: OccupancyAutoResetTime is no time of day (hh:mm): "
                                 "\"") +
                             GetParam() + "\"; the occupancy is not reset";
    for (time_t moment = at(7, 0, 0); moment < at(7, 10, 0); moment += 60) {
        EXPECT_FALSE(resetsAt(moment));
    }
    EXPECT_EQ(LogCapture::count(line), 1);
    EXPECT_FALSE(resetsAt(at(24 + 7, 5, 0)));
    EXPECT_EQ(LogCapture::count(line), 2);
    EXPECT_EQ(LogCapture::countContaining("error: reset_occupancy: "), 2);
}

INSTANTIATE_TEST_SUITE_P(Table, ResetTime,
                         testing::Values("", "7", "07:", ":05", "ab:cd", "24:05", "07:60", "-1:05", "07:-5", "0705"),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(AutomaticReset, TakesATimeWithoutLeadingZeroes) {
    scripted::parameters()["OccupancyAutoResetTime"] = "7:5";
    startAt(at(7, 0, 0));
    EXPECT_TRUE(resetsAt(at(7, 5, 0)));
}

// --- Memory figures --------------------------------------------------------------------------------------------------

TEST_F(Analysis, TheMemoryLineTellsKilobytes) {
    Application::logMemoryUsage("Now");
    struct sysinfo figures = {};
    ASSERT_EQ(sysinfo(&figures), 0);
    const uint32_t total = (static_cast<uint32_t>(figures.totalram) * static_cast<uint32_t>(figures.mem_unit)) >> 10U;
    const Lines lines = LogCapture::ofLevel("info");
    ASSERT_EQ(lines.size(), 1U);
    const std::string before = "logMemoryUsage: Now - Total memory: " + std::to_string(total) + " kB. Free memory: ";
    const std::string after = " kB.";
    ASSERT_TRUE(lines[0].starts_with(before) && lines[0].ends_with(after)) << lines[0];
    const std::string free = lines[0].substr(before.size(), lines[0].size() - before.size() - after.size());
    EXPECT_FALSE(free.empty());
    EXPECT_EQ(free.find_first_not_of("0123456789"), std::string::npos) << lines[0];
}

// --- Followers that answer nonsense ----------------------------------------------------------------------------------

struct NonsenseCase {
    const char* label;
    const char* status;     /**< the follower's answer to a question for its status */
    const char* statistics; /**< its answer to one for its statistics */
    const char* reason;     /**< why the process ends */
};

class NonsenseDeathTest : public RunningApplication, public testing::WithParamInterface<NonsenseCase> {};

TEST_P(NonsenseDeathTest, OfAFollowerEndsTheProcessWithAReason) {
    const auto tickOfALeader = [this] {
        // In the process that ends: one with threads is not to be forked.
        const CannedServer follower([](int connection, const std::string& request) {
            const bool status = request.find("action=get_status_code ") != std::string::npos;
            return CannedServer::saying(status ? GetParam().status : GetParam().statistics)(connection, request);
        });
        scripted::parameters()["isFollower1Active"] = "true";
        scripted::parameters()["Follower1IP"] = follower.address();
        scripted::parameters()["Follower1login"] = "somebody";
        scripted::parameters()["Follower1PWD"] = "secret";
        scripted::parameters()["Follower1CameraName"] = "Gate";
        start();
        m_clock.advance(60);
        m_application.thread_function();
    };
    EXPECT_EXIT(tickOfALeader(), testing::ExitedWithCode(1), "") << GetParam().label;
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 1U) << GetParam().label;
    const std::regex address("127\\.0\\.0\\.1:[0-9]+");
    EXPECT_EQ(std::regex_replace(errors[0], address, "ADDRESS"),
              std::string("grateful_dead: thread_function: ") + GetParam().reason)
        << GetParam().label;
    EXPECT_EQ(LogCapture::countContaining("secret") + LogCapture::countContaining("somebody"), 0) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, NonsenseDeathTest,
    testing::Values(NonsenseCase{"another application's page", "<html>somebody</html>", "0\n0\n0\n0\n",
                                 "expected a number from ADDRESS for get_status_code, got 21 bytes that are none"},
                    NonsenseCase{
                        "a status out of range", "99999999999", "0\n0\n0\n0\n",
                        "expected a number from ADDRESS for get_status_code, got 11 bytes that are none of 32 bits"},
                    NonsenseCase{"statistics of another application", "200", "<html>somebody</html>",
                                 "expected records from follower 1, Gate, got 21 bytes that are none (stoi)"},
                    NonsenseCase{"empty statistics", "200", "",
                                 "expected records from follower 1, Gate, got 0 bytes that are none (stoi)"},
                    NonsenseCase{"statistics with an error in them", "200", "error",
                                 "expected records from follower 1, Gate, got 0 bytes that are none (stoi)"},
                    NonsenseCase{"a number of records out of range", "200", "99999999999\n",
                                 "expected records from follower 1, Gate, got 12 bytes that are none (stoi)"},
                    NonsenseCase{"more records than there are", "200", "2147483647\n",
                                 "expected records from follower 1, Gate, got 11 bytes that are none "
                                 "(deserializeRecords: expected 2147483647 records, the text ends after 0)"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Analysis, GoesOnBesideAFollowerThatDoesNotAnswerAtAll) {
    scripted::parameters()["isFollower1Active"] = "true";
    scripted::parameters()["Follower1IP"] = "127.0.0.1:1";
    start();
    m_clock.advance(30);
    EXPECT_TRUE(m_application.thread_function()) << "its status says now that it is not to be asked";
    m_clock.advance(30);
    EXPECT_TRUE(m_application.thread_function());
    EXPECT_EQ(m_application.status(), 200);
    EXPECT_EQ(LogCapture::ofLevel("error"), Lines{});
}

}  // namespace

#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <set>

#include "camera_statistics.h"
#include "followers/follower_round.h"
#include "no_threads.h"
#include "scripted_followers.h"
#include "scripted_platform.h"
#include "statistics/occupancy_manager.h"
#include "test_clock.h"

namespace {

constexpr time_t kDay = 86400;
constexpr const char* kGood = "1\n,,0,0,3\n1\n,,0,0,2,1\n1\n,,0,7\n1\n,,0,0,4\n";

constexpr const char* kFiles[] = {"CrowdCountTidy.csv", "EntranceActivityTidy.csv", "OccupancyTidy.csv",
                                  "AverageCrowdCountTidy.csv"};

/** Followers one of which may break its call, and whose answers may take their time. */
class TroubledFollowers : public ScriptedFollowers {
public:
    std::string breaking; /**< the address whose call throws */
    std::function<void()> onCall = [] {};

    std::string follower_flush(const std::string& ip, const std::string& login, const std::string& password) override {
        onCall();
        if (ip == breaking) {
            throw std::runtime_error("no memory for " + ip);
        }
        return ScriptedFollowers::follower_flush(ip, login, password);
    }
};

/** A leader with ten followers, each with one record of each kind. */
class Collection : public CameraStatistics {
protected:
    Collection() {
        for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
            m_camera.followerActive[i] = true;
            m_camera.followerIPAddress[i] = address(i);
            m_camera.followerCameraName[i] = "Gate" + std::to_string(i + 1);
            m_followers.answers[address(i)] = kGood;
        }
    }

    static std::string address(size_t follower) { return "10.0.0." + std::to_string(follower + 1); }

    /** The cameras of an archive's lines, in order: "Cam Gate1 Gate2". */
    std::string cameras(const std::string& name) const {
        std::ifstream in(path(name));
        std::string found;
        for (std::string line; std::getline(in, line);) {
            found += (found.empty() ? "" : " ") + OccupancyRecordBase::stringToFields(line).at(1);
        }
        return found;
    }

    /** All cameras but these followers. */
    static std::string allBut(const std::set<size_t>& bad) {
        std::string names = "Cam";
        for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
            names += bad.contains(i) ? "" : " Gate" + std::to_string(i + 1);
        }
        return names;
    }

    /** The end of a period; what came out of it, empty for nothing. */
    std::string flush() {
        try {
            m_manager->add({}, {m_camera, m_events, m_followers, m_leaderMetrics});
            return "";
        } catch (const std::exception& exception) {
            return exception.what();
        }
    }

    /** An archive with a word for a number, which makes every purge throw until somebody mends it. */
    void breakArchive(const std::string& name) const {
        std::ofstream(path(name)) << (name == kFiles[1]   ? "d,Old,0,0,0,x\n"
                                      : name == kFiles[2] ? "d,Old,0,x\n"
                                                          : "d,Old,0,0,x\n");
    }

    void removeFiles() const {
        for (const char* const name : kFiles) {
            std::filesystem::remove(path(name));
        }
    }

    TroubledFollowers m_followers;
};

TEST_F(Collection, KeepsTheGoodOnesWhicheverFollowerAnswersNonsense) {
    const struct {
        const char* label;
        const char* text;
    } nonsense[] = {{"empty", ""}, {"garbage", "<html>no</html>"}, {"cut off in a number", "1\n,,0,0,\n0\n0\n0\n"}};
    for (const auto& [label, text] : nonsense) {
        for (size_t bad = 0; bad < CameraInfo::kFollowers; ++bad) {
            const std::string name = std::string(label) + " from follower " + std::to_string(bad + 1);
            removeFiles();
            m_manager.emplace(m_config);
            m_followers.answers[address(bad)] = text;
            m_clock.advance(60);
            const std::string thrown = flush();
            EXPECT_EQ(thrown.find("expected records from follower " + std::to_string(bad + 1) + ", "), 0U)
                << name << ": " << thrown;
            for (const char* const file : kFiles) {
                EXPECT_EQ(cameras(file), allBut({bad})) << name << " in " << file;
            }
            m_followers.answers[address(bad)] = kGood;
        }
    }
}

TEST_F(Collection, ThrowsWhatTheFirstOfSeveralBadFollowersGave) {
    m_followers.answers[address(2)] = "second";
    m_followers.answers[address(0)] = "";
    m_followers.breaking = address(9);
    m_clock.advance(60);
    EXPECT_EQ(flush().find("expected records from follower 1, "), 0U);
    for (const char* const file : kFiles) {
        EXPECT_EQ(cameras(file), allBut({0, 2, 9})) << file;
    }
}

TEST_F(Collection, KeepsTheOthersWhenACallBreaks) {
    m_followers.breaking = address(0);
    m_clock.advance(60);
    EXPECT_EQ(flush(), "no memory for 10.0.0.1");
    for (const char* const file : kFiles) {
        EXPECT_EQ(cameras(file), allBut({0})) << file;
    }
}

TEST_F(Collection, KeepsAllWhenNoThreadCanBeStarted) {
    m_clock.advance(60);
    const NoThreads noThreads;
    EXPECT_EQ(flush(), "");
    for (const char* const file : kFiles) {
        EXPECT_EQ(cameras(file), allBut({})) << file;
    }
}

TEST(FollowerRound, AsksAllWhicheverThreadIsTheFirstThatCannotBeStarted) {
    for (size_t first = 0; first < CameraInfo::kFollowers; ++first) {
        std::optional<NoThreads> noThreads;
        const auto answers = askFollowers(
            [&](size_t i) {
                if (i == first) {
                    noThreads.emplace();
                }
                return true;
            },
            [](size_t i) { return i; });
        for (size_t i = 0; i < answers.size(); ++i) {
            EXPECT_EQ(answers.at(i), i) << "threads end before follower " << first + 1;
        }
    }
}

TEST_F(Collection, KeepsAllWhenAPurgeThrowsAmongThem) {
    for (const char* const broken : kFiles) {
        removeFiles();
        m_clock.set(kStart);
        m_manager.emplace(m_config);
        breakArchive(broken);
        m_clock.set(kStart + 30 * kDay - 1);
        m_followers.onCall = [&] { m_clock.set(kStart + 30 * kDay); };  // due only once the followers have answered
        EXPECT_EQ(flush(), "stoi") << broken;
        for (const char* const file : kFiles) {
            EXPECT_EQ(cameras(file), (file == broken ? "Old " : "") + allBut({})) << broken << " is broken, " << file;
        }
    }
}

TEST_F(Collection, KeepsAllOfThisCameraWhenAPurgeThrowsAmongIt) {
    for (const char* const broken : kFiles) {
        removeFiles();
        m_clock.set(kStart);
        m_manager.emplace(m_config);
        breakArchive(broken);
        m_clock.set(kStart + 30 * kDay);
        EXPECT_THROW(m_manager->flushLocal("2024-01-31 00:00:00", "Cam"), std::invalid_argument) << broken;
        for (const char* const file : kFiles) {
            EXPECT_EQ(cameras(file), file == broken ? "Old Cam" : "Cam") << broken << " is broken, " << file;
        }
    }
}

}  // namespace

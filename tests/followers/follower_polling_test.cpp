#include "followers/follower_polling.h"

#include <gtest/gtest.h>
#include <memory>

#include "canned_server.h"
#include "log_capture.h"
#include "test_clock.h"
#include "web/http_request_controller.h"

namespace {

/** A follower camera on loopback that answers each action with a text of its own. */
class Follower {
public:
    std::map<std::string, std::string> answers = {
        {"get_occupancy_count", "0"}, {"get_total_crowd", "0"}, {"get_status_code", "200"}};

    const std::string& address() const { return m_server.address(); }
    size_t asked() const { return m_server.requests().size(); }

private:
    CannedServer m_server{[this](int connection, const std::string& request) {
        const size_t start = request.find("action=") + 7;
        return CannedServer::saying(answers[request.substr(start, request.find(' ', start) - start)])(connection,
                                                                                                      request);
    }};
};

class Polling : public testing::Test {
protected:
    Polling() {
        m_polling.start(m_clock.now());
        m_metrics.occupancyCount = 5;
        m_metrics.crowdCount1 = 1;
        m_metrics.crowdCount2 = 1;
    }

    /** Makes a camera on loopback follower i, 0..9. */
    Follower& follow(size_t i, const std::string& occupancy = "0", const std::string& crowd = "0",
                     const std::string& status = "200") {
        Follower& follower = *m_cameras.emplace_back(std::make_unique<Follower>());
        follower.answers = {
            {"get_occupancy_count", occupancy}, {"get_total_crowd", crowd}, {"get_status_code", status}};
        m_config.cameraInfo.followerActive[i] = true;
        m_config.cameraInfo.followerIPAddress[i] = follower.address();
        m_client.set_followerip(follower.address(), "", "");
        return follower;
    }

    /** One tick after so many seconds. */
    void after(time_t seconds) {
        m_clock.advance(seconds);
        m_polling.check_follower_status();
        m_polling.query_follower_cameras();
    }

    const LogCapture m_log;
    TestClock m_clock;
    std::vector<std::unique_ptr<Follower>> m_cameras;
    ConfigParams m_config;
    MetricsParams m_metrics;
    LeaderMetricsParams m_leader;
    http_request_controller m_client;
    FollowerPolling m_polling{m_config, m_metrics, m_leader, m_client};
};

TEST_F(Polling, OfACameraAloneIsItsOwnCounts) {
    after(59);
    EXPECT_EQ(m_leader.totalOccupancy, 0);
    after(1);
    EXPECT_EQ(m_leader.totalOccupancy, 5);
    EXPECT_EQ(m_leader.totalCrowdCount, 2);
}

TEST_F(Polling, AddsTheFollowers) {
    follow(0, "3", "4");
    follow(9, "10", "20", "501");
    after(60);
    EXPECT_EQ(m_leader.totalOccupancy, 5 + 3 + 10);
    EXPECT_EQ(m_leader.totalCrowdCount, 2 + 4 + 20);
    EXPECT_EQ(m_leader.followerCrowdCount[0], 4);
    EXPECT_EQ(m_leader.followerCrowdCount[9], 20);
    EXPECT_EQ(m_leader.followerStatus[0], 200);
    EXPECT_EQ(m_leader.followerStatus[9], 501);
}

TEST_F(Polling, ShowsTheLargestNumberForSumsBeyondIt) {
    follow(0, "2147483647", "2147483647");
    follow(1, "2147483647", "2147483647");
    after(60);
    EXPECT_EQ(m_leader.totalOccupancy, 2147483647);
    EXPECT_EQ(m_leader.totalCrowdCount, 2147483647);
    m_cameras[0]->answers["get_total_crowd"] = "-2147483648";
    m_cameras[1]->answers["get_total_crowd"] = "-2147483648";
    after(3);
    EXPECT_EQ(m_leader.totalCrowdCount, 0);
}

TEST_F(Polling, KnowsWhenAFollowerAnsweredHoweverTheClockIsSet) {
    follow(0);
    after(60);
    const time_t answered = m_leader.followerAnswered[0];
    EXPECT_EQ(answered, steadyNow());
    m_clock.set(m_clock.now() + 30);
    after(10);
    EXPECT_EQ(m_leader.followerAnswered[0], steadyNow());
    EXPECT_EQ(m_leader.followerAnswered[0], answered + 10);
}

TEST_F(Polling, KeepsItsSchedules) {
    Follower& camera = follow(0);
    after(29);
    EXPECT_EQ(camera.asked(), 0U);
    after(1);
    EXPECT_EQ(camera.asked(), 1U) << "the status after 30 seconds";
    after(29);
    EXPECT_EQ(camera.asked(), 1U);
    after(1);
    EXPECT_EQ(camera.asked(), 3U) << "the counts after 60";
    after(2);
    EXPECT_EQ(camera.asked(), 3U);
    after(1);
    EXPECT_EQ(camera.asked(), 5U);
    after(7);  // 70 s: the counts of 66 are late, those of 69 follow with the next tick
    EXPECT_EQ(camera.asked(), 7U);
    after(0);
    EXPECT_EQ(camera.asked(), 9U);
    after(0);
    EXPECT_EQ(camera.asked(), 9U);
}

TEST_F(Polling, LetsAFollowerWithoutAnswerLowerTheCrowdByOne) {
    follow(0, "3", "4");
    m_config.cameraInfo.followerActive[1] = true;
    m_config.cameraInfo.followerIPAddress[1] = "127.0.0.1:1";
    m_client.set_followerip("127.0.0.1:1", "", "");
    m_clock.advance(60);
    m_polling.query_follower_cameras();
    EXPECT_EQ(m_leader.followerCrowdCount[1], -1);
    EXPECT_EQ(m_leader.totalCrowdCount, 2 + 4 - 1);
    EXPECT_EQ(m_leader.totalOccupancy, 5 + 3);
    m_metrics.crowdCount1 = m_metrics.crowdCount2 = 0;
    m_config.cameraInfo.followerActive[0] = false;
    m_clock.advance(3);
    m_polling.query_follower_cameras();
    EXPECT_EQ(m_leader.totalCrowdCount, 0) << "never below nobody";
    m_polling.check_follower_status();
    EXPECT_EQ(m_leader.followerStatus[1], 700);
    m_clock.advance(3);
    m_polling.query_follower_cameras();
    EXPECT_EQ(m_leader.followerCrowdCount[1], 0) << "no longer called";
}

TEST_F(Polling, NotesWhenAFollowerLastToldItsCounts) {
    Follower& camera = follow(3, "3", "0");
    after(59);
    EXPECT_EQ(m_leader.followerAnswered[3], 0) << "a status alone is no count";
    after(1);
    const time_t answered = m_clock.now();
    EXPECT_EQ(m_leader.followerAnswered[3], answered);
    camera.answers["get_total_crowd"] = "";
    after(3);
    EXPECT_EQ(m_leader.followerCrowdCount[3], -1);
    EXPECT_EQ(m_leader.followerAnswered[3], answered) << "no answer is none";
    EXPECT_EQ(m_leader.followerAnswered[0], 0);
}

TEST_F(Polling, ForgetsTheAnswerOfACameraThatIsNoFollowerAnyMore) {
    follow(3);
    follow(4);
    follow(5);
    after(60);
    const time_t answered = m_clock.now();
    m_config.cameraInfo.followerActive[3] = false;
    m_config.cameraInfo.followerIPAddress[4] = "127.0.0.1:1";
    m_client.set_followerip("127.0.0.1:1", "", "");
    after(1);
    EXPECT_EQ(m_leader.followerAnswered[3], 0) << "switched off";
    EXPECT_EQ(m_leader.followerAnswered[4], 0) << "another camera";
    EXPECT_EQ(m_leader.followerAnswered[5], answered) << "the same as before";
    m_config.cameraInfo.followerActive[3] = true;
    after(1);
    EXPECT_EQ(m_leader.followerAnswered[3], 0) << "switched on, but not asked yet";
    after(1);
    EXPECT_EQ(m_leader.followerAnswered[3], m_clock.now());
}

TEST_F(Polling, AddsNothingForAnOccupancyBelowOne) {
    follow(0, "0");
    follow(1, "-7");
    after(60);
    EXPECT_EQ(m_leader.totalOccupancy, 5);
}

TEST_F(Polling, DoesNotAskAnInactiveFollower) {
    Follower& camera = follow(4, "3", "4", "600");
    after(60);
    EXPECT_EQ(m_leader.followerCrowdCount[4], 4);
    const size_t asked = camera.asked();
    m_config.cameraInfo.followerActive[4] = false;
    after(120);
    EXPECT_EQ(camera.asked(), asked);
    EXPECT_EQ(m_leader.followerCrowdCount[4], 0);
    EXPECT_EQ(m_leader.followerStatus[4], 600) << "what was last known";
}

TEST_F(Polling, AsksAStoppedFollowerForNothingButItsStatus) {
    Follower& camera = follow(2, "3", "4", "300");
    after(60);
    const size_t asked = camera.asked();
    EXPECT_EQ(m_leader.followerCrowdCount[2], 0);
    camera.answers["get_status_code"] = "200";
    after(30);
    EXPECT_EQ(camera.asked(), asked + 3) << "it runs again";
    EXPECT_EQ(m_leader.followerCrowdCount[2], 4);
}

TEST_F(Polling, ThrowsOverNonsense) {
    follow(0, "many");
    m_clock.advance(60);
    EXPECT_THROW(m_polling.query_follower_cameras(), std::invalid_argument);
}

}  // namespace

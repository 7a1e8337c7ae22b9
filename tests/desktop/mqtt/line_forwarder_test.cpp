#include "desktop/mqtt/line_forwarder.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "line_folder.h"

namespace {

class LineForwarder : public testing::Test {
protected:
    desktop::LineForwarder& start(const std::function<void(desktop::LineForwarderSettings&)>& change = [](auto&) {}) {
        desktop::LineForwarderSettings settings;
        settings.folder = m_lines.path();
        settings.positionFile = (m_folder.path() / "confirmed.json").string();
        settings.liveMembers = {"occupancy"};
        settings.steadyMillis = [this] { return m_now; };
        settings.random = [this](int64_t below) {
            m_below = below;
            return m_jitter;
        };
        settings.say = [this](const std::string& text) { m_said += text + "\n"; };
        change(settings);
        m_forwarder = std::make_unique<desktop::LineForwarder>(settings);
        m_forwarder->connected();
        return *m_forwarder;
    }

    /** What is due for a topic: "after: numbers;" for each message. */
    std::string due(const std::string& topic = "ledger") {
        std::string text;
        for (const desktop::LineMessage& message : m_forwarder->due()) {
            if (message.topic != topic) {
                continue;
            }
            std::istringstream lines(message.payload);
            std::string line;
            std::getline(lines, line);
            text += line.substr(line.find("after\":") + 7);
            text.back() = ':';
            while (std::getline(lines, line)) {
                text += " " + line.substr(7, line.find(',') - 7);
            }
            text += ";";
        }
        return text;
    }

    std::string live() {
        for (const desktop::LineMessage& message : m_forwarder->due()) {
            if (message.topic == "live") {
                return message.isRetained ? message.payload : "not retained";
            }
        }
        return "";
    }

    LineFolder m_lines;
    TestFolder m_folder;
    int64_t m_now = 1000000;
    int64_t m_jitter = 0;
    int64_t m_below = 0;
    std::string m_said;
    std::unique_ptr<desktop::LineForwarder> m_forwarder;
};

TEST_F(LineForwarder, SendsEachLineOnceWhileItIsUnderWay) {
    m_lines.append(1, LineFolder::lines(1, 3));
    start();
    EXPECT_EQ(due(), "0: 1 2 3;");
    EXPECT_EQ(due(), "");
    m_lines.append(1, LineFolder::line(4));
    EXPECT_EQ(due(), "3: 4;");
}

TEST_F(LineForwarder, GoesOnAfterARestartBehindWhatIsConfirmedAlone) {
    m_lines.append(1, LineFolder::lines(1, 5));
    start();
    EXPECT_EQ(due(), "0: 1 2 3 4 5;");
    start();
    EXPECT_EQ(due(), "0: 1 2 3 4 5;");
    m_forwarder->confirmed(R"({"epoch":"a","through":3})");
    start();
    EXPECT_EQ(due(), "3: 4 5;");
    m_forwarder->connected();
    EXPECT_EQ(due(), "3: 4 5;") << "a connection delivers nothing of the one before";
}

TEST_F(LineForwarder, SendsAgainWhatIsNotConfirmedForThirtySeconds) {
    m_lines.append(1, LineFolder::lines(1, 5));
    start();
    due();
    m_now += 29999;
    EXPECT_EQ(due(), "");
    m_now += 1;
    EXPECT_EQ(due(), "0: 1 2 3 4 5;");
    m_forwarder->confirmed(R"({"epoch":"a","through":5})");
    m_now += 60000;
    EXPECT_EQ(due(), "");
}

TEST_F(LineForwarder, GoesBackWithADatabaseThatWasRestored) {
    m_lines.append(1, LineFolder::lines(1, 5));
    start();
    due();
    m_forwarder->confirmed(R"({"epoch":"a","through":5})");
    m_forwarder->confirmed(R"({"epoch":"a","through":2})");
    EXPECT_EQ(due(), "2: 3 4 5;");
    start();
    EXPECT_EQ(due(), "2: 3 4 5;");
}

TEST_F(LineForwarder, GoesOnBehindWhatTheDatabaseHasAlready) {
    m_lines.append(1, LineFolder::lines(1, 5));
    m_jitter = 10;
    start();
    m_forwarder->confirmed(R"({"epoch":"a","through":4})");
    m_now += 10;
    EXPECT_EQ(due(), "4: 5;");
}

TEST_F(LineForwarder, BeginsAnewWithAnotherLedger) {
    m_lines.append(1, LineFolder::lines(1, 2, "b"));
    start();
    m_forwarder->confirmed(R"({"epoch":"a","through":70})");
    EXPECT_EQ(due(), "0: 1 2;");
}

TEST_F(LineForwarder, ConfirmsAnEpochOnceTheOneBeforeIs) {
    m_lines.append(1, LineFolder::lines(1, 4) + LineFolder::lines(5, 6, "b"));
    start();
    EXPECT_EQ(due(), "0: 1 2 3 4;0: 5 6;");
    m_forwarder->confirmed(R"({"epoch":"a","through":2})");
    m_forwarder->confirmed(R"({"epoch":"b","through":6})");
    start();
    EXPECT_EQ(due(), "2: 3 4;0: 5 6;") << "lines of the first epoch were lost on the way";
    m_forwarder->confirmed(R"({"epoch":"a","through":4})");
    m_forwarder->confirmed(R"({"epoch":"b","through":6})");
    start();
    EXPECT_EQ(due(), "");
}

TEST_F(LineForwarder, TellsOfAConfirmationThatIsNone) {
    m_lines.append(1, LineFolder::lines(1, 2));
    start();
    for (const char* wrong : {"", "garbage", "[]", R"({"epoch":"a"})", R"({"epoch":1,"through":2})",
                              R"({"epoch":"a","through":"2"})", R"({"epoch":"a","through":-1})"}) {
        m_said.clear();
        m_forwarder->confirmed(wrong);
        EXPECT_EQ(m_said,
                  std::string(R"(confirmed: expected {"epoch":TEXT,"through":NUMBER}, got ")") + wrong + "\"\n");
    }
    EXPECT_EQ(due(), "0: 1 2;");
}

TEST_F(LineForwarder, TellsOfAPositionFileThatIsNone) {
    m_lines.append(1, LineFolder::lines(1, 2));
    writeFile(m_folder.path() / "confirmed.json", "torn");
    start();
    EXPECT_NE(m_said.find("got \"torn\"; all lines are sent again"), std::string::npos) << m_said;
    EXPECT_EQ(due(), "0: 1 2;");
}

TEST_F(LineForwarder, SendsNoMoreThanABatchAWindowAndARate) {
    m_lines.append(100, LineFolder::lines(100, 129));
    const auto two = static_cast<int64_t>(LineFolder::lines(100, 101).size());
    const auto message = static_cast<int64_t>(std::string("{\"epoch\":\"a\",\"after\":100}\n").size()) + two;
    start([&](auto& settings) {
        settings.batchBytes = two;
        settings.windowBytes = 2 * message;
    });
    EXPECT_EQ(due(), "0: 100 101;101: 102 103;103: 104 105;") << "the first header is shorter";
    m_forwarder->confirmed(R"({"epoch":"a","through":103})");
    EXPECT_EQ(due(), "105: 106 107;");
    start([&](auto& settings) {
        settings.batchBytes = two;
        settings.bytesASecond = message;
    });
    EXPECT_EQ(due(), "103: 104 105;");
    EXPECT_EQ(due(), "");
    m_now += 1000;
    EXPECT_EQ(due(), "105: 106 107;");
}

TEST_F(LineForwarder, WaitsForItsJitterWhileTheNewestGoAtOnce) {
    m_lines.append(1, LineFolder::lines(1, 3));
    m_jitter = 7000;
    start();
    EXPECT_EQ(m_below, 10001);
    EXPECT_EQ(due("recent"), "0: 1 2 3;");
    m_lines.append(1, LineFolder::line(4));
    EXPECT_EQ(due("recent"), "3: 4;");
    m_now += 6999;
    EXPECT_EQ(due(), "");
    m_now += 1;
    EXPECT_EQ(due(), "0: 1 2 3 4;") << "and come again in order";
    m_lines.append(1, LineFolder::line(5));
    EXPECT_EQ(due("recent"), "") << "nothing older waits";
}

TEST_F(LineForwarder, TellsWhoLooksOnEveryFewSeconds) {
    start();
    EXPECT_EQ(live(), "") << "there is no line yet";
    m_lines.append(1, LineFolder::line(1, "a", R"(,"occupancy":7)") + LineFolder::line(2));
    EXPECT_EQ(live(), R"({"epoch":"a","occupancy":7,"seq":2,"unconfirmed":true})");
    m_forwarder->confirmed(R"({"epoch":"a","through":2})");
    m_now += 4999;
    EXPECT_EQ(live(), "");
    m_now += 1;
    EXPECT_EQ(live(), R"({"epoch":"a","occupancy":7,"seq":2,"unconfirmed":false})");
}

}  // namespace

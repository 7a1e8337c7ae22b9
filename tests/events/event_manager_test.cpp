#include "events/event_manager.h"

#include <gtest/gtest.h>
#include <optional>

#include <axsdk/axevent.h>

#include "log_capture.h"
#include "scripted_platform.h"

namespace {

using Lines = std::vector<std::string>;

class Alerts : public testing::Test {
protected:
    Alerts() {
        scripted::reset();
        m_events.emplace();
        applicationLog().clear();
    }

    /** "topic2 active" of everything sent so far. */
    static Lines sent() {
        Lines events;
        for (const scripted::SentEvent& event : scripted::sentEvents()) {
            events.push_back(event.topic + " " + event.values.at("active"));
        }
        return events;
    }

    LogCapture m_log;
    std::optional<EventManager> m_events;
};

TEST(EventKey, HasOnlyLettersAndDigits) {
    EXPECT_EQ(friendlyToKey("Ostrel Senvo Area 1 Alert"), "OstrelSenvoArea1Alert");
    EXPECT_EQ(friendlyToKey("Ostrel Senvo JSON Data"), "OstrelSenvoJSONData");
    EXPECT_EQ(friendlyToKey(" a-b_c.9\t\xC3\xA4!"), "abc9");
    EXPECT_EQ(friendlyToKey(""), "");
}

TEST_F(Alerts, AreMadeWithALine) {
    m_events.emplace();
    EXPECT_EQ(LogCapture::lines().back(), "info: EventManager: EventManager constructor");
}

TEST_F(Alerts, AreDeclaredWithTopicsAndOneDataKey) {
    m_events->addEvent(alerts::kArea2);
    ASSERT_EQ(scripted::declarations().size(), 1U);
    const auto& [id, declared] = *scripted::declarations().begin();
    EXPECT_FALSE(declared.stateless);
    EXPECT_EQ(declared.keys, (std::map<std::string, std::string>{{"tnsaxis:topic0", "CameraApplicationPlatform"},
                                                                 {"tnsaxis:topic1", "OstrelSenvoApplication"},
                                                                 {"tnsaxis:topic2", "OstrelSenvoArea2Alert"},
                                                                 {"active", "false"}}));
    EXPECT_EQ(declared.dataKeys, (Lines{"active"}));
    EXPECT_EQ(declared.niceNames,
              (std::map<std::string, std::string>{{"tnsaxis:topic2", "Ostrel Senvo/Ostrel Senvo Area 2 Alert"}}));
    EXPECT_EQ(m_events->getDeclarationID(alerts::kArea2), id);
    EXPECT_EQ(m_events->getDeclarationID(alerts::kArea3), 0U);
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"info: addEvent: Successfully declared event Ostrel Senvo Area 2 Alert. Declaration ID=1",
                     "info: registerEvent: EventManager registering event Ostrel Senvo Area 2 Alert to "
                     "DeclarationID=1"}));
}

TEST_F(Alerts, AreSentOnlyWhenTheyChange) {
    m_events->addEvent(alerts::kArea1);
    m_events->sendEventStopped(alerts::kArea1);
    EXPECT_EQ(sent(), Lines{}) << "was never started";
    m_events->sendEventStarted(alerts::kArea1);
    m_events->sendEventStarted(alerts::kArea1);
    EXPECT_EQ(sent(), (Lines{"OstrelSenvoArea1Alert true"}));
    EXPECT_TRUE(m_events->isEventStarted(alerts::kArea1));
    EXPECT_FALSE(m_events->isEventStartedManually(alerts::kArea1));
    m_events->sendEventStopped(alerts::kArea1);
    m_events->sendEventStopped(alerts::kArea1);
    EXPECT_EQ(sent(), (Lines{"OstrelSenvoArea1Alert true", "OstrelSenvoArea1Alert false"}));
    EXPECT_FALSE(m_events->isEventStarted(alerts::kArea1));
}

TEST_F(Alerts, ByHandKeepTheirOwnAccount) {
    m_events->addEvent(alerts::kBreached);
    m_events->sendEventStoppedManually(alerts::kBreached);
    m_events->sendEventStartedManually(alerts::kBreached);
    m_events->sendEventStartedManually(alerts::kBreached);
    m_events->sendEventStarted(alerts::kBreached);
    EXPECT_EQ(sent(), (Lines{"OstrelSenvoBreached true", "OstrelSenvoBreached true"}));
    m_events->sendEventStoppedManually(alerts::kBreached);
    EXPECT_FALSE(m_events->isEventStartedManually(alerts::kBreached));
    EXPECT_TRUE(m_events->isEventStarted(alerts::kBreached)) << "the analysis still considers it started";
    m_events->sendEventStarted(alerts::kBreached);
    EXPECT_EQ(sent().size(), 3U) << "and does not send it again";
    EXPECT_EQ(LogCapture::ofLevel("warning"), (Lines{"sendEventStartedManually: Manually Starting event "
                                                     "Ostrel Senvo Breached",
                                                     "sendEventStarted: Starting event Ostrel Senvo Breached",
                                                     "sendEventStoppedManually: Manually Stopping event "
                                                     "Ostrel Senvo Breached"}));
}

TEST_F(Alerts, TellWhatTheySent) {
    m_events->addEvent(alerts::kOccupancy);
    applicationLog().clear();
    m_events->sendEventStarted(alerts::kOccupancy);
    m_events->sendEventStopped(alerts::kOccupancy);
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"warning: sendEventStarted: Starting event Ostrel Senvo Occupancy Alert",
                     "info: sendEvent: Successfully sent event Ostrel Senvo Occupancy Alert activeValue=1",
                     "warning: sendEventStopped: Stopping event Ostrel Senvo Occupancy Alert",
                     "info: sendEvent: Successfully sent event Ostrel Senvo Occupancy Alert activeValue=0"}));
}

TEST_F(Alerts, WithoutADeclarationAreRefused) {
    m_events->sendEvent("Nobody", true);
    EXPECT_EQ(LogCapture::lines(), (Lines{"error: sendEvent: No declaration for event Nobody"}));
    EXPECT_EQ(sent(), Lines{});
}

struct DeclarationFault {
    const char* call;
    const char* message;
    Lines lines;
};

class FailedDeclaration : public Alerts, public testing::WithParamInterface<DeclarationFault> {};

TEST_P(FailedDeclaration, IsToldAndItsSendsRefused) {
    scripted::failAt(GetParam().call, 1, {AX_EVENT_ERROR_DECLARATION, GetParam().message});
    m_events->addEvent(alerts::kArea1);
    EXPECT_EQ(LogCapture::lines(), GetParam().lines);
    EXPECT_EQ(m_events->getDeclarationID(alerts::kArea1), 0U);
    m_events->sendEventStarted(alerts::kArea1);
    EXPECT_EQ(LogCapture::lines().back(), "error: sendEvent: No declaration for event Ostrel Senvo Area 1 Alert");
    EXPECT_EQ(sent(), Lines{});
    EXPECT_TRUE(m_events->isEventStarted(alerts::kArea1)) << "the account is kept all the same";
}

Lines undeclared(const std::string& reason) {
    return {"error: addEvent: Failed to declare event Ostrel Senvo Area 1 Alert " + reason,
            "info: registerEvent: EventManager registering event Ostrel Senvo Area 1 Alert to DeclarationID=0"};
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailedDeclaration,
    testing::Values(DeclarationFault{"ax_event_key_value_set_add_key_values",
                                     "full",
                                     {"error: addEvent: Error creating key value set for event Ostrel Senvo Area 1 "
                                      "Alert full"}},
                    DeclarationFault{"ax_event_key_value_set_mark_as_data", "full", undeclared("full")},
                    DeclarationFault{"ax_event_key_value_set_add_nice_names", "full", undeclared("full")},
                    DeclarationFault{"ax_event_handler_declare", "full", undeclared("full")},
                    DeclarationFault{"ax_event_handler_declare", "", undeclared("N/A")}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Alerts, TellWhatTheyCouldNotSend) {
    m_events->addEvent(alerts::kArea1);
    scripted::failAt("ax_event_key_value_set_add_key_value", 1, {AX_EVENT_ERROR_GENERIC, "full"});
    m_events->sendEvent(alerts::kArea1, true);
    scripted::failAt("ax_event_handler_send_event", 1, {AX_EVENT_ERROR_SEND, "gone"});
    m_events->sendEvent(alerts::kArea1, true);
    scripted::failAt("ax_event_handler_send_event", 1, {});
    m_events->sendEvent(alerts::kArea1, false);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"sendEvent: Failed to add active key value to event Ostrel Senvo Area 1 Alert full",
                     "sendEvent: Failed to send event Ostrel Senvo Area 1 Alert activeValue=1 gone",
                     "sendEvent: Failed to send event Ostrel Senvo Area 1 Alert activeValue=0 N/A"}));
    EXPECT_EQ(sent(), Lines{});
}

TEST_F(Alerts, AreTakenBackAtTheEnd) {
    m_events->addEvent(alerts::kArea1);
    m_events->addEvent(alerts::kBreached);
    applicationLog().clear();
    scripted::failAt("ax_event_handler_undeclare", 2, {AX_EVENT_ERROR_UNDECLARE, "gone"});
    m_events.reset();
    const std::string area = "Ostrel Senvo Area 1 Alert : DeclarationID=1";
    const std::string breached = "Ostrel Senvo Breached : DeclarationID=2";
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"info: ~EventManager: EventManager destructor called",
                     "info: ~EventManager: EventManager undeclaring event " + area,
                     "info: ~EventManager: EventManager destructor successfully undeclared event " + area,
                     "info: ~EventManager: EventManager undeclaring event " + breached,
                     "error: ~EventManager: EventManager destructor failed to undeclare event " + breached + " gone",
                     "info: ~EventManager: Going to free the event handler",
                     "info: ~EventManager: EventManager destructor complete"}));
    EXPECT_EQ(scripted::calls("ax_event_handler_free"), 1);
}

}  // namespace

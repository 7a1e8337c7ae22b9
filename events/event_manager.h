#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <axsdk/axevent.h>

/** The names of the alerts, in the order in which they are declared. */
namespace alerts {
inline constexpr const char* kBreached = "Ostrel Senvo Breached";
inline constexpr const char* kArea1 = "Ostrel Senvo Area 1 Alert";
inline constexpr const char* kArea2 = "Ostrel Senvo Area 2 Alert";
inline constexpr const char* kArea3 = "Ostrel Senvo Area 3 Alert";
inline constexpr const char* kOccupancy = "Ostrel Senvo Occupancy Alert";
}  // namespace alerts

/** The names of the data events. */
namespace data_events {
inline constexpr const char* kJson = "Ostrel Senvo JSON Data";
inline constexpr const char* kXml = "Ostrel Senvo XML Data";
}  // namespace data_events

/** Removes every character that is not a letter or digit. */
std::string friendlyToKey(const std::string& name);

/**
 * Declares the application's events with the platform's event service and sends them: alerts, which have a state, and
 * data events, which carry the statistics of a period.
 *
 * Alerts are started and stopped by the analysis or by hand; each keeps its own account of what it sent, so that one
 * does not cancel the other's. The platform sees both on the same event: a manual stop may end an alert that the
 * analysis still considers started. No failure is fatal: each is logged with the platform's words.
 */
class EventManager {
public:
    /** Creates the platform's event handler. */
    EventManager();

    /** Takes every declaration back. */
    ~EventManager();

    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    /** Declares a stateful event with the data key "active". */
    void addEvent(const std::string& name);

    /** Declares the data event with one text per key of the map. Despite its name it carries no JSON document. */
    void addJSONDataEvent(const std::map<std::string, std::string>& data);

    /** Declares the data event that carries the map as an element tree. */
    void addXMLDataEvent(const std::map<std::string, std::string>& data);

    /** Remembers a declaration. */
    void registerEvent(const std::string& name, uint32_t id);

    /** The identifier of a declaration, 0 for a name that was never registered. */
    uint32_t getDeclarationID(const std::string& name);

    // By the analysis: sends only changes.
    void sendEventStarted(const std::string& name);
    void sendEventStopped(const std::string& name);
    bool isEventStarted(const std::string& name);

    // By hand: sends only changes.
    void sendEventStartedManually(const std::string& name);
    void sendEventStoppedManually(const std::string& name);
    bool isEventStartedManually(const std::string& name);

    /** Asks for a call for every alert that starts or stops, by the analysis or by hand; on the caller's thread. */
    void onAlert(std::function<void(const std::string& name, bool active, bool byHand)> observer) {
        m_alertObserver = std::move(observer);
    }

    /** Sends one state, whatever was sent before. */
    void sendEvent(const std::string& name, bool active);

    /** Sends a period's tallies; the keys are those of the declaration. */
    void sendJSONDataEvent(const std::map<std::string, std::string>& data);

    /** Sends a period's tallies as an element tree, a child per key. */
    void sendXMLDataEvent(const std::map<std::string, std::string>& data);

private:
    struct FreeHandler {
        void operator()(AXEventHandler* handler) const { ax_event_handler_free(handler); }
    };

    void declare(const char* function, const std::string& name, AXEventKeyValueSet* set,
                 const std::vector<std::string>& dataKeys, bool stateless);
    void send(const char* function, const std::string& name, uint32_t id, AXEventKeyValueSet* set);

    void tell(const std::string& name, bool active, bool byHand) const;

    std::function<void(const std::string&, bool, bool)> m_alertObserver;
    std::unique_ptr<AXEventHandler, FreeHandler> m_pHandler;
    std::map<std::string, uint32_t> m_eventDeclarationIDs;
    std::map<std::string, bool> m_eventStarted;         /**< the state last sent by the analysis */
    std::map<std::string, bool> m_eventStartedManually; /**< the state last sent by hand */
};

#include <cstdlib>
#include <string>
#include <unistd.h>

#include <axsdk/axevent.h>

/*
 * A process of the tests that sends events as the application does: through the event service, with a handler that it
 * never frees. Usage: mqtt_sender COUNT exit|wait
 */

namespace {

/** Declares an event with one number, which is -1 to begin with; 0 when that fails. */
guint declare(AXEventHandler* handler, const char* topic, gboolean stateless) {
    AXEventKeyValueSet* const set = ax_event_key_value_set_new();
    const gint start = -1;
    guint declaration = 0;
    ax_event_key_value_set_add_key_values(set, nullptr, "topic0", "tnsaxis", topic, AX_VALUE_TYPE_STRING, "number",
                                          nullptr, &start, AX_VALUE_TYPE_INT, nullptr);
    ax_event_key_value_set_mark_as_data(set, "number", nullptr, nullptr);
    ax_event_handler_declare(handler, set, stateless, &declaration, nullptr, nullptr, nullptr);
    ax_event_key_value_set_free(set);
    return declaration;
}

bool send(AXEventHandler* handler, guint declaration, gint number) {
    AXEventKeyValueSet* const data = ax_event_key_value_set_new();
    ax_event_key_value_set_add_key_value(data, "number", nullptr, &number, AX_VALUE_TYPE_INT, nullptr);
    AXEvent* const event = ax_event_new2(data, nullptr);
    const bool isSent = ax_event_handler_send_event(handler, declaration, event, nullptr) != FALSE;
    ax_event_free(event);
    ax_event_key_value_set_free(data);
    return isSent;
}

}  // namespace

int main(int, char** arguments) {
    static AXEventHandler* const handler = ax_event_handler_new();
    const guint state = declare(handler, "Sender", FALSE);
    const guint data = declare(handler, "Data", TRUE);
    bool isSent = send(handler, data, 0);
    for (gint number = 0; number < std::stoi(arguments[1]); ++number) {
        isSent = send(handler, state, number) && isSent;
    }
    if (arguments[2] == std::string("wait")) {
        pause();
    }
    return isSent ? EXIT_SUCCESS : EXIT_FAILURE;
}

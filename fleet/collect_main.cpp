#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <optional>
#include <time.h>

#include "fleet/collector.h"

/* Brings what cameras send to an MQTT broker into a PostgreSQL database. */

namespace {

constexpr std::chrono::milliseconds kStep(200);
constexpr int kLongestPause = 30;

volatile std::sig_atomic_t s_isEnding = 0;

void end(int) {
    s_isEnding = 1;
}

void say(const std::string& line) {
    std::cerr << "senvo: " + line + "\n" << std::flush;
}

/** Waits some seconds, or until the end is asked for. */
void pause(int seconds) {
    for (int i = 0; i < seconds * 5 && s_isEnding == 0; ++i) {
        const timespec fifth = {0, 200000000};
        nanosleep(&fifth, nullptr);
    }
}

/** Collects for as long as broker and database are there. */
void collect(const fleet::BrokerSettings& settings, const std::string& address, const std::function<void()>& isReady) {
    // The database first: who cannot store takes nothing from those who can.
    fleet::Database database(address);
    fleet::Broker broker(settings);
    fleet::Collector collector(broker, database, say);
    isReady();
    while (s_isEnding == 0) {
        collector.step(kStep);
    }
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Brings what cameras send to an MQTT broker into a PostgreSQL database, and makes its tables. Several of them "
        "share the work. Goes on until Ctrl-C; what it has not stored is sent again. docs/fleet.md tells more.",
        "senvo collect");
    fleet::BrokerSettings broker;
    std::string database;
    app.add_option("--broker", broker.address,
                   "HOST:PORT of the broker; with /ROOT for cameras below that prefix alone")
        ->required();
    app.add_option("--database", database,
                   "The database as libpq takes it, such as \"host=db dbname=senvo\". A password belongs into a "
                   "password file (PGPASSFILE), since everybody sees the options")
        ->required();
    app.add_option("--mqtt-user", broker.user, "The user to log on to the broker as");
    app.add_option("--mqtt-password-file", broker.passwordFile, "A file whose first line is that user's password");
    app.add_option("--mqtt-cafile", broker.caFile, "Switches TLS on: the authorities that the broker is held to");
    CLI11_PARSE(app, argc, argv);
    struct sigaction action = {};
    action.sa_handler = end;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::string told;
    int seconds = 1;
    while (s_isEnding == 0) {
        try {
            collect(broker, database, [&] {
                told.clear();
                seconds = 1;
                say("collecting from " + broker.address);
            });
        } catch (const std::runtime_error& error) {
            if (s_isEnding == 0 && told != error.what()) {
                told = error.what();
                say(told + "; trying again");
            }
            pause(seconds);
            seconds = std::min(2 * seconds, kLongestPause);
        }
    }
    return 0;
}

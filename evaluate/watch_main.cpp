#include <array>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include "Logger.h"
#include "application.h"
#include "clock.h"
#include "truth_file.h"

namespace {

/** Prints the counts of a running application whenever they have changed. */
class CountPrinter {
public:
    explicit CountPrinter(Application& application) : m_application(application) {}

    void print() {
        for (const one_find& finding : m_application.processing().findings()) {
            if (finding.entranceAct != entranceActivity::unknown) {
                ++m_moves[static_cast<size_t>(finding.entranceAct)];
            }
        }
        const std::string line = counts();
        if (line != m_printed) {
            m_printed = line;
            std::cout << Logger::getCurrentDateTime().substr(11) << "  " << line << std::endl;
        }
    }

private:
    std::string counts() const {
        const MetricsParams& metrics = m_application.metrics();
        std::ostringstream text;
        text << "occupancy " << metrics.occupancyCount << "   area 1: " << metrics.crowdCount1;
        for (size_t zone = 0; zone < m_moves.size() / 2; ++zone) {
            text << "   entrance " << zone + 1 << ": " << m_moves[2 * zone] << " in, " << m_moves[2 * zone + 1]
                 << " out";
        }
        text << (m_application.events().isEventStarted(alerts::kArea1) ? "   area 1 alert" : "");
        return text.str();
    }

    Application& m_application;
    std::array<int, 6> m_moves = {};
    std::string m_printed;
};

}  // namespace

/** The application, with its counts on the terminal and, when the environment names one, a truth file's settings. */
int main() {
    Application application;
    CountPrinter printer(application);
    const char* const truthFile = std::getenv("SENVO_WATCH_TRUTH");
    bool settingsWanted = truthFile != nullptr;
    application.onCycle([&] {
        if (settingsWanted) {
            settingsWanted = false;
            ConfigParams config = application.config();
            applySettings(readTruthFile(truthFile).settings, application.detector().get_stream_width(),
                          application.detector().get_stream_height(), application.detector().get_iteration_time(),
                          config);
            application.applySettings(config);
        }
        printer.print();
    });
    return application.main();
}

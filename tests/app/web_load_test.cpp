#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

#include "scripted_process.h"
#include "slow_build.h"

/*
 * The real process under load: clients ask, upload and reset without a pause while the analysis runs, and every period
 * is over at once. A build with the thread sanitizer ends the process at the first race.
 */

namespace {

constexpr int kClients = 8;
constexpr std::chrono::seconds kLoad = kSanitized ? std::chrono::seconds(60) : std::chrono::seconds(4);

std::string bodyOf(const std::string& answer) {
    const size_t header = answer.find("\r\n\r\n");
    return header == std::string::npos ? "" : answer.substr(header + 4);
}

/** The settings document as an upload, detection area 1 a square of so many hundredths. */
std::string uploadOf(std::string document, int hundredths) {
    const std::string corner = "<Detection1_4>";
    const size_t at = document.find(corner) + corner.size();
    document.replace(at, document.find('<', at) - at, "0." + std::to_string(10 + hundredths));
    return "<root>" + document.substr(5, document.size() - 11) + "</root>";
}

class Load : public testing::Test {
protected:
    /** What one client does until the time is over; how many requests went wrong. */
    int client(unsigned seed) const {
        std::mt19937 random(seed);
        const FastCgiClient service = m_process.service();
        int wrong = 0;
        while (std::chrono::steady_clock::now() < m_end) {
            const auto choice = std::uniform_int_distribution<size_t>(0, m_actions.size())(random);
            if (choice == m_actions.size()) {
                const std::string document = bodyOf(service.get("action=get_all_parameters"));
                const int hundredths = std::uniform_int_distribution<int>(0, 89)(random);
                wrong += service.post("action=set_post_parameters", uploadOf(document, hundredths)) ==
                                 "Status: 200 OK\r\n\r\n"
                             ? 0
                             : 1;
            } else {
                wrong += service.get("action=" + m_actions[choice]).rfind("Status: 200 OK\r\n", 0) == 0 ? 0 : 1;
            }
        }
        return wrong;
    }

    ScriptedProcess m_process;
    const std::vector<std::string> m_actions = {
        "follower_flush",        "get_occupancy_count", "get_total_crowd",         "reset_occupancy",
        "reset_total_occupancy", "get_occupancy_csv",   "get_occupancy_html",      "get_data_panel_info",
        "get_status_code",       "get_execution_time",  "get_analysis_resolution", "get_logfile_as_plain_text",
        "manual_area1_alert_on", "clear_logfile",       "manual_area1_alert_off",  "get_crowd_2"};
    std::chrono::steady_clock::time_point m_end;
};

TEST_F(Load, OfEightClientsDoesNotDisturbTheAnalysis) {
    Child process(m_process.start());
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!m_process.answers("get_status_code") && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::yield();
    }
    m_end = std::chrono::steady_clock::now() + kLoad;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> clients;
    for (unsigned seed = 1; seed <= kClients; ++seed) {
        clients.emplace_back([this, seed, &wrong] { wrong += client(seed); });
    }
    for (std::thread& thread : clients) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    kill(process.pid(), SIGTERM);
    EXPECT_EQ(process.wait(30000), 0) << readFile(m_process.folder() / "err");
    EXPECT_EQ(readFile(m_process.folder() / "err").find("ThreadSanitizer"), std::string::npos)
        << readFile(m_process.folder() / "err");
}

}  // namespace

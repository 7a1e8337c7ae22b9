#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

#include "fastcgi_client.h"
#include "program.h"
#include "sanitized.h"
#include "test_folder.h"

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
    Load() {
        for (const char* name : {"localdata", "tmp", "mnt/flash/usr/local/packages/ostrel_senvo",
                                 "usr/local/packages/ostrel_senvo/localdata", "usr/local/packages/ostrel_senvo/html"}) {
            std::filesystem::create_directories(m_folder.path() / name);
        }
        writeFile(m_folder.path() / "mnt/flash/usr/local/packages/ostrel_senvo/detect_960_540_tpu.tflite", "model");
    }

    bool serves() const {
        try {
            return FastCgiClient(m_socket).get("action=get_status_code").rfind("Status: 200 OK\r\n", 0) == 0;
        } catch (const std::runtime_error&) {
            return false;  // nobody listens yet
        }
    }

    /** What one client does until the time is over; how many requests went wrong. */
    int client(unsigned seed) const {
        std::mt19937 random(seed);
        const FastCgiClient service(m_socket);
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

    TestFolder m_folder;
    const std::string m_socket = m_folder.path() / "usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket";
    const std::vector<std::string> m_actions = {
        "follower_flush",        "get_occupancy_count", "get_total_crowd",         "reset_occupancy",
        "reset_total_occupancy", "get_occupancy_csv",   "get_occupancy_html",      "get_data_panel_info",
        "get_status_code",       "get_execution_time",  "get_analysis_resolution", "get_logfile_as_plain_text",
        "manual_area1_alert_on", "clear_logfile",       "manual_area1_alert_off",  "get_crowd_2"};
    std::chrono::steady_clock::time_point m_end;
};

TEST_F(Load, OfEightClientsDoesNotDisturbTheAnalysis) {
    Child process(startProgram({EMULATOR SCRIPTED_PROGRAM}, m_folder.path(), {"OSTREL_SENVO_ROOT=" + m_folder.path().string()},
                               {SIGTERM}));
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!serves() && std::chrono::steady_clock::now() < giveUp) {
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
    EXPECT_EQ(process.wait(30000), 0) << readFile(m_folder.path() / "err");
    EXPECT_EQ(readFile(m_folder.path() / "err").find("ThreadSanitizer"), std::string::npos)
        << readFile(m_folder.path() / "err");
}

}  // namespace

#include <glib.h>
#include <iostream>
#include <memory>
#include <optional>
#include <regex>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>

#include "base/camera_paths.h"
#include "builders.h"
#include "desktop/webserver/accounts.h"
#include "desktop/webserver/front.h"
#include "followers/follower_polling.h"
#include "front_process.h"
#include "scripted_platform.h"
#include "topics.h"
#include "web/fastcgi_service.h"
#include "web/fastcgi_socket.h"
#include "web/parameter_io.h"

namespace {

/** The web service on the scripted platform, with a full settings document. */
class Service {
public:
    Service() {
        scripted::reset();
        scripted::offerResolutions(1, {{1280, 720}});
        m_config.i_MainLoopTime = 200;
        m_detector.init_larod("ostrel_senvo", "detect_960_540_tpu.tflite", 1280, 720, 200, false);
        m_store.init_controller("ostrel_senvo");
        int32_t pixel = 7;
        for (auto* area : {&m_config.i_Detection1, &m_config.i_Detection2, &m_config.i_Detection3,
                           &m_config.i_Occupancy1, &m_config.i_Occupancy2, &m_config.i_Occupancy3}) {
            for (int32_t& coordinate : *area) {
                coordinate = pixel = (pixel * 31 + 7) % 719;
            }
        }
    }

    parameter_io& settings() { return m_settings; }
    fastcgi_service& service() { return m_service; }
    http_request_controller& client() { return m_followers; }
    MetricsParams& metrics() { return m_metrics; }
    LeaderMetricsParams& leaderMetrics() { return m_leaderMetrics; }

private:
    ConfigParams m_config = everyClass();
    location_controller_larod m_detector{m_config};
    http_request_controller m_followers;
    parameter_controller m_store{m_config};
    MetricsParams m_metrics;
    LeaderMetricsParams m_leaderMetrics;
    occupancy_controller m_occupancy;
    OccupancyManager m_statistics{m_config};
    std::atomic<int> m_status = 200;
    std::atomic<int> m_executionTime = 37;
    parameter_io m_settings{{m_config, m_detector, m_followers, m_store, m_metrics, m_leaderMetrics, m_status,
                             [](const SettingsUpdate&) {}}};
    fastcgi_service m_service{{m_config, m_settings, m_detector, m_statistics, m_occupancy, m_metrics, m_leaderMetrics,
                               m_status, m_executionTime, false, [] { return 0; }, [](const char*, bool) {}}};
};

/** The least that a FastCGI program can do: writes the answer to get_status_code, whatever is asked. */
class BareResponder {
public:
    explicit BareResponder(const std::string& socketPath) : m_socket(openFastCgiSocket(socketPath, 5)) {
        FCGX_Init();  // without it nothing is accepted
        FCGX_InitRequest(&m_request, m_socket, 0);
        m_thread = std::thread([this] {
            while (FCGX_Accept_r(&m_request) == 0) {
                FCGX_PutS("Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n200", m_request.out);
                FCGX_Finish_r(&m_request);
            }
        });
    }
    ~BareResponder() {
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        FCGX_Free(&m_request, 1);
        close(m_socket);
    }
    BareResponder(const BareResponder&) = delete;
    BareResponder& operator=(const BareResponder&) = delete;

private:
    int m_socket;
    FCGX_Request m_request = {};
    std::thread m_thread;
};

/** The service on its thread, for as long as this lives. */
class RunningService {
public:
    explicit RunningService(fastcgi_service& service) : m_service(service) {
        m_service.init();
        m_thread = std::thread([this] { m_service.run(); });
    }
    ~RunningService() {
        m_service.stop();
        m_thread.join();
    }
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

private:
    fastcgi_service& m_service;
    std::thread m_thread;
};

constexpr const char* kAction = "/local/ostrel_senvo/webservices.cgi?action=get_status_code";

std::string sha256(const std::string& text) {
    const std::unique_ptr<gchar, decltype(&g_free)> digest(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(), static_cast<gssize>(text.size())), g_free);
    return digest.get();
}

/** A login that holds for as many requests as come while the server's nonce does. */
std::string authorization(const std::string& address) {
    const std::string challenge = outputOf("curl -s --max-time 20 -D - -o /dev/null http://" + address + kAction);
    std::smatch nonce;
    if (!std::regex_search(challenge, nonce, std::regex("nonce=\"([^\"]*)\""))) {
        throw std::runtime_error("expected a web server that asks for a login, got:\n" + challenge);
    }
    const std::string own = sha256(std::string(desktop::kOperator) + ":" + desktop::kRealm + ":" + kPassword);
    const std::string response =
        sha256(own + ":" + nonce[1].str() + ":00000001:c:auth:" + sha256(std::string("GET:") + kAction));
    return std::string("Authorization: Digest username=\"") + desktop::kOperator + "\", realm=\"" + desktop::kRealm +
           "\", nonce=\"" + nonce[1].str() + "\", uri=\"" + kAction +
           "\", algorithm=SHA-256, qop=auth, nc=00000001, cnonce=\"c\", response=\"" + response + "\"";
}

/** Seconds per request that wrk reaches; adds a line with the percentiles. */
double secondsPerRequest(const std::string& address, int connections, const std::string& label) {
    const std::string report = outputOf("wrk -t1 -c" + std::to_string(connections) + " -d2s --latency -H '" +
                                        authorization(address) + "' http://" + address + kAction);
    const auto find = [&](const char* pattern) {
        std::smatch found;
        return std::regex_search(report, found, std::regex(pattern)) ? found[1].str() : std::string("?");
    };
    // Where more ask at once than the application's queue holds, the front turns some away: the more, the busier the
    // machine is. These are no work that was done.
    const auto count = [&](const char* pattern) {
        const std::string number = find(pattern);
        return number == "?" ? 0 : std::stol(number);
    };
    const long refused = count("Non-2xx or 3xx responses: ([0-9]+)");
    if (refused > 0) {
        std::fprintf(stderr, "%s: %ld requests were refused\n", label.c_str(), refused);
    }
    const long answered = count("([0-9]+) requests in") - refused;
    if (answered <= refused || find("Requests/sec: +([1-9][0-9.]+)") == "?") {
        throw std::runtime_error("wrk could not measure:\n" + report);
    }
    const double rate = std::stod(find("Requests/sec: +([0-9.]+)")) * static_cast<double>(answered) /
                        static_cast<double>(answered + refused);
    std::cout << "web, " << connections << " connections, " << label << ": " << rate << " requests/s, p50 "
              << find("50% +([0-9.a-z]+)") << ", p99 " << find("99% +([0-9.a-z]+)") << '\n';
    return 1.0 / rate;
}

void benchRequests(benchmark::State& state, bool bare, int connections) {
    Service parts;
    std::optional<RunningService> ours;
    std::optional<BareResponder> responder;
    const FrontProcess front;
    if (bare) {
        responder.emplace(front.socketPath());
    } else {
        ours.emplace(parts.service());
    }
    for (auto _ : state) {
        state.SetIterationTime(secondsPerRequest(front.address(), connections, bare ? "bare" : "ours"));
    }
}

void benchDownload(benchmark::State& state) {
    Service parts;
    for (auto _ : state) {
        benchmark::DoNotOptimize(parts.settings().get_parameters());
    }
}

void benchPanel(benchmark::State& state) {
    Service parts;
    for (auto _ : state) {
        benchmark::DoNotOptimize(parts.settings().get_data_panel_info());
    }
}

/** Without a store behind it: what saving costs is a topic of its own. */
void benchUpload(benchmark::State& state) {
    Service parts;
    const std::string document = parts.settings().get_parameters();
    const std::string body = "<root>" + document.substr(5, document.size() - 11) + "</root>";
    for (auto _ : state) {
        benchmark::DoNotOptimize(parts.settings().set_post_parameters(body));
    }
}

constexpr time_t kStart = 1700000000;

/** A leader whose ten followers are one service under ten addresses. */
class Leader {
public:
    Leader() {
        for (size_t i = 0; i < CameraInfo::kFollowers; ++i) {
            CameraInfo& cameras = m_config.cameraInfo;
            cameras.followerActive[i] = true;
            cameras.followerIPAddress[i] = "127.0.0." + std::to_string(i + 1) + m_front.address().substr(9);
            cameras.followerLogin[i] = desktop::kOperator;
            cameras.followerPassword[i] = kPassword;
            m_parts.client().set_followerip(cameras.followerIPAddress[i], desktop::kOperator, kPassword);
        }
        m_config.b_Detection1Active = m_config.b_Detection2Active = m_config.b_Detection3Active = true;
        m_config.b_Occupancy1Active = m_config.b_Occupancy2Active = m_config.b_Occupancy3Active = true;
    }

    void query() {
        m_polling.start(kStart);
        m_polling.query_follower_cameras();
    }
    void flush() {
        m_statistics.setFlushInterval(-1);
        m_statistics.add({}, {m_config.cameraInfo, m_events, m_parts.client(), m_parts.leaderMetrics()});
    }

private:
    Service m_parts;
    const FrontProcess m_front{"0.0.0.0"};
    const RunningService m_running{m_parts.service()};
    ConfigParams m_config = everyClass();
    OccupancyManager m_statistics{m_config};
    EventManager m_events;
    FollowerPolling m_polling{m_config, m_parts.metrics(), m_parts.leaderMetrics(), m_parts.client()};
};

void benchQueryPass(benchmark::State& state) {
    Leader leader;
    for (auto _ : state) {
        leader.query();
    }
}

void benchFlush(benchmark::State& state) {
    Leader leader;
    for (auto _ : state) {
        leader.flush();
    }
}

}  // namespace

std::vector<Limit> registerWeb() {
    benchmark::RegisterBenchmark("web handler/get_all_parameters", benchDownload);
    benchmark::RegisterBenchmark("web handler/get_data_panel_info", benchPanel);
    benchmark::RegisterBenchmark("web handler/set_post_parameters", benchUpload);
    benchmark::RegisterBenchmark("leader of ten/one query pass", benchQueryPass)->UseRealTime();
    benchmark::RegisterBenchmark("leader of ten/one flush", benchFlush)->UseRealTime();
    std::vector<Limit> limits = registerDelay();
    limits.insert(limits.end(), {{"web handler", "get_all_parameters", "", 100.0},
                                 {"web handler", "get_data_panel_info", "", 100.0},
                                 {"web handler", "set_post_parameters", "", 5000.0},
                                 {"leader of ten", "one query pass", "", std::nullopt},
                                 {"leader of ten", "one flush", "", std::nullopt}});
    if (outputOf("which wrk").empty()) {
        std::cout << "web: requests per second are not measured, since wrk is not installed\n";
        return limits;
    }
    for (const int connections : {1, 8, 64}) {
        const std::string topic = "web requests, " + std::to_string(connections) + " connections";
        for (const bool bare : {true, false}) {
            benchmark::RegisterBenchmark((topic + (bare ? "/bare" : "/ours")).c_str(), benchRequests, bare, connections)
                ->UseManualTime()
                ->Iterations(1);
        }
        // At least nine tenths of the requests of a program that does nothing else.
        limits.push_back({topic, "bare", "", std::nullopt});
        limits.push_back({topic, "ours", "bare", 1.0 / 0.9});
    }
    return limits;
}

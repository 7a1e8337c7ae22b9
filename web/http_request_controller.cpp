#include "web/http_request_controller.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <strings.h>

#include "base/clock.h"
#include "log/Logger.h"
#include "web/name_lookups.h"

namespace {

constexpr std::chrono::milliseconds kTimeout(5000);
constexpr size_t kMostBytes = 1U << 20U;
constexpr int kMostAnswers = 4;  // digest authentication takes two, and a third when the server's nonce was stale
constexpr const char* kCookieFile = "cookie.txt";

/** One transfer: what has come so far, how often the server has answered, and whether it set a cookie. */
struct Transfer {
    std::string body;
    std::string role;
    int answers = 0;
    bool hasCookie = false;
};

size_t limitedWrite(const char* data, size_t size, size_t count, void* userData) {
    auto& transfer = *static_cast<Transfer*>(userData);
    if (transfer.body.size() + size * count > kMostBytes) {
        return 0;
    }
    return WriteCallback(data, size, count, &transfer.body);
}

size_t readHeader(const char* data, size_t size, size_t count, void* userData) {
    auto& transfer = *static_cast<Transfer*>(userData);
    const std::string line(data, size * count);
    static constexpr std::string_view kCookie = "Set-Cookie:";
    static constexpr std::string_view kRole = "X-Senvo-Role: ";
    transfer.hasCookie = transfer.hasCookie || strncasecmp(line.c_str(), kCookie.data(), kCookie.size()) == 0;
    if (strncasecmp(line.c_str(), kRole.data(), kRole.size()) == 0) {
        transfer.role = line.substr(kRole.size(), line.find_last_not_of("\r\n") + 1 - kRole.size());
    }
    if (line.rfind("HTTP/", 0) == 0 && ++transfer.answers > kMostAnswers) {
        return 0;
    }
    return size * count;
}

/** An address as messages may show it: without a login that was written before it. */
std::string displayed(const std::string& ip) {
    return ip.substr(ip.rfind('@') + 1);
}

int numberIn(const std::string& answer, const std::string& ip, const char* action) {
    // The answer's text stays out of the message: whoever answers may repeat the login in it.
    const auto message = [&](const char* what) {
        return "expected a number from " + displayed(ip) + " for " + action + ", got " + std::to_string(answer.size()) +
               " bytes that are " + what;
    };
    try {
        return std::stoi(answer);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(message("none"));
    } catch (const std::out_of_range&) {
        throw std::out_of_range(message("none of 32 bits"));
    }
}

/** Whether a cookie, as a line of libcurl's, has not expired: its fifth field tells when it does, 0 for never. */
bool isLive(std::string_view cookie) {
    for (int field = 0; field < 4; ++field) {
        cookie.remove_prefix(cookie.find('\t') + 1);
    }
    const long long expires = std::atoll(std::string(cookie).c_str());
    return expires == 0 || expires > clockNow();
}

void initOnce() {
    static std::once_flag done;
    std::call_once(done, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

std::string makeRequest(const std::string& ip, const std::string& action) {
    return "http://" + ip + "/local/ostrel_senvo/webservices.cgi?action=" + action;
}

size_t WriteCallback(const char* data, size_t size, size_t count, void* userData) {
    static_cast<std::string*>(userData)->append(data, size * count);
    return size * count;
}

std::string send_request_text(const std::string& url, const std::string& login, const std::string& password) {
    FollowerReply reply = askFollower(url, login, password, kTimeout);
    return reply.isComplete && reply.body.find("error") == std::string::npos ? std::move(reply.body) : "";
}

FollowerReply askFollower(const std::string& url, const std::string& login, const std::string& password,
                          std::chrono::microseconds limit) {
    initOnce();
    FollowerReply reply;
    const int64_t begun = steadyNowMicros();
    const std::optional<std::string> addresses = lookUpHost(url, limit);
    const auto left = limit - std::chrono::microseconds(steadyNowMicros() - begun);
    const auto leftMillis = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(left).count());
    reply.isFound = addresses.has_value();
    if (!addresses || leftMillis <= 0) {
        return reply;
    }
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> known(
        addresses->empty() ? nullptr : curl_slist_append(nullptr, addresses->c_str()), curl_slist_free_all);
    const std::string credentials = login + ":" + password;
    Transfer transfer;
    {
        const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
        if (!curl) {
            return reply;
        }
        curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl.get(), CURLOPT_USERPWD, credentials.c_str());
        curl_easy_setopt(curl.get(), CURLOPT_COOKIEFILE, kCookieFile);
        curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, leftMillis);
        curl_easy_setopt(curl.get(), CURLOPT_RESOLVE, known.get());
        curl_easy_setopt(curl.get(), CURLOPT_HTTPAUTH, CURLAUTH_DIGEST);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, limitedWrite);
        curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
        curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, readHeader);
        curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &transfer);
        // A page that says why a login failed is no answer, whatever it says.
        curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http,https");
        // libcurl would otherwise time the name lookup with SIGALRM, which is not safe beside other threads.
        curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
        // A follower is a neighbour on the network: a proxy of the environment must not see its password.
        curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
        reply.isComplete = curl_easy_perform(curl.get()) == CURLE_OK;
        long status = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
        reply.status = static_cast<int>(status);
        // libcurl writes the file when the transfer is cleaned up; the flash is spared when there is nothing new.
        if (transfer.hasCookie) {
            curl_slist* cookies = nullptr;
            curl_easy_getinfo(curl.get(), CURLINFO_COOKIELIST, &cookies);
            const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> owner(cookies, curl_slist_free_all);
            while (cookies != nullptr && !isLive(cookies->data)) {
                cookies = cookies->next;
            }
            if (cookies != nullptr) {
                curl_easy_setopt(curl.get(), CURLOPT_COOKIEJAR, kCookieFile);
            } else {
                std::remove(kCookieFile);
            }
        }
    }
    reply.role = std::move(transfer.role);
    reply.body = std::move(transfer.body);
    return reply;
}

http_request_controller::http_request_controller()
    : m_FollowerIPs(std::make_unique<nlohmann::json>(nlohmann::json::object())) {}

http_request_controller::~http_request_controller() = default;

void http_request_controller::init(const std::string& appName) {
    const MutexLock lock(m_mutex);
    m_AppName = appName;
}

void http_request_controller::set_followerip(const std::string& ip, const std::string& login,
                                             const std::string& password) {
    const MutexLock lock(m_mutex);
    (*m_FollowerIPs)[ip] = {{"Username", login}, {"Password", password}, {"HTTP_Headers", "Empty"}};
}

void http_request_controller::remove_followerip(const std::string& ip) {
    const MutexLock lock(m_mutex);
    if (m_FollowerIPs->erase(ip) == 0) {
        applicationLog().error("remove_followerip: " + displayed(ip) + " not found.");
    }
}

int http_request_controller::askCount(const std::string& ip, const char* action) {
    std::string login;
    std::string password;
    {
        const MutexLock lock(m_mutex);
        const auto follower = m_FollowerIPs->find(ip);
        if (follower == m_FollowerIPs->end()) {
            return kNoCount;
        }
        login = follower->at("Username");
        password = follower->at("Password");
    }
    const std::string answer = send_request_text(makeRequest(ip, action), login, password);
    return answer.empty() ? kNoCount : numberIn(answer, ip, action);
}

int http_request_controller::get_occupancy_from_followerip(const std::string& ip) {
    return askCount(ip, "get_occupancy_count");
}

int http_request_controller::get_crowd_sum_of_3_areas_from_followerip(const std::string& ip) {
    return askCount(ip, "get_total_crowd");
}

int http_request_controller::get_crowd_per_area_from_followerip(const std::string& ip, int area) {
    static constexpr const char* kActions[] = {"get_crowd_1", "get_crowd_2", "get_crowd_3"};
    return area >= 1 && area <= 3 ? askCount(ip, kActions[area - 1]) : kNoCount;
}

int http_request_controller::get_status_from_followerip(const std::string& ip, const std::string& login,
                                                        const std::string& password) {
    static constexpr const char* kAction = "get_status_code";
    const std::string answer = send_request_text(makeRequest(ip, kAction), login, password);
    return answer.empty() ? kNoConnection : numberIn(answer, ip, kAction);
}

bool http_request_controller::reset_occupancy_of_followerip(const std::string& ip, const std::string& login,
                                                            const std::string& password) {
    const std::string answer = send_request_text(makeRequest(ip, "reset_occupancy"), login, password);
    applicationLog().info("reset_occupancy_of_followerip: " + answer + " for " + displayed(ip));
    return !answer.empty();
}

std::string http_request_controller::follower_flush(const std::string& ip, const std::string& login,
                                                    const std::string& password) {
    return send_request_text(makeRequest(ip, "follower_flush"), login, password);
}

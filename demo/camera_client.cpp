#include "demo/camera_client.h"

#include <curl/curl.h>
#include <memory>

namespace {

constexpr long kTimeoutSeconds = 5;

size_t append(const char* data, size_t size, size_t count, void* text) {
    static_cast<std::string*>(text)->append(data, size * count);
    return size * count;
}

/** For libcurl, which asks it every now and then: not 0 to give up. */
int isGivenUp(void* givenUp, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return *static_cast<const std::atomic<bool>*>(givenUp) ? 1 : 0;
}

}  // namespace

CameraClient::CameraClient(std::string address, std::string user, std::string password,
                           const std::atomic<bool>& givenUp)
    : m_address(std::move(address)), m_credentials(std::move(user) + ":" + std::move(password)), m_givenUp(givenUp) {}

bool CameraClient::transfer(const std::string& action, const std::string* body, std::string& answer) const {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    const std::string url = "http://" + m_address + "/local/ostrel_senvo/webservices.cgi?action=" + action;
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_USERPWD, m_credentials.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_HTTPAUTH, CURLAUTH_DIGEST);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, kTimeoutSeconds);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, isGivenUp);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &m_givenUp);
    if (body != nullptr) {
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body->c_str());
    }
    return curl_easy_perform(curl.get()) == CURLE_OK;
}

std::string CameraClient::get(const std::string& action) const {
    std::string answer;
    return transfer(action, nullptr, answer) ? answer : "";
}

bool CameraClient::post(const std::string& action, const std::string& body) const {
    std::string answer;
    return transfer(action, &body, answer);
}

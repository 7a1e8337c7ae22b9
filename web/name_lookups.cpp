#include "name_lookups.h"

#include <arpa/inet.h>
#include <array>
#include <curl/curl.h>
#include <deque>
#include <memory>

#include "clock.h"
#include "mutex.h"

namespace {

constexpr time_t kLongestLookup = 60;  // seconds; resolvers give up after 5 to 30

/** Lookups at work, and until when those left behind count. */
struct Lookups {
    Mutex mutex;  // guards what follows
    int atWork GUARDED_BY(mutex) = 0;
    std::deque<time_t> leftBehind GUARDED_BY(mutex);
};

Lookups& lookups() {
    static Lookups instance;
    return instance;
}

}  // namespace

bool needsLookup(const std::string& url) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parts(curl_url(), curl_url_cleanup);
    char* text = nullptr;
    if (curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_get(parts.get(), CURLUPART_HOST, &text, 0) != CURLUE_OK) {
        return true;
    }
    const std::unique_ptr<char, decltype(&curl_free)> host(text, curl_free);
    std::array<unsigned char, sizeof(in6_addr)> address = {};
    return *text != '[' && inet_pton(AF_INET, text, address.data()) != 1;
}

LookupRoom::LookupRoom(bool wanted) : m_wanted(wanted) {
    if (!wanted) {
        return;
    }
    Lookups& all = lookups();
    const time_t now = steadyNow();
    const MutexLock lock(all.mutex);
    while (!all.leftBehind.empty() && all.leftBehind.front() <= now) {
        all.leftBehind.pop_front();
    }
    m_taken = all.atWork + static_cast<int>(all.leftBehind.size()) < kMost;
    all.atWork += m_taken ? 1 : 0;
}

LookupRoom::~LookupRoom() {
    if (m_taken) {
        Lookups& all = lookups();
        const MutexLock lock(all.mutex);
        --all.atWork;
    }
}

void LookupRoom::leaveBehind() {
    if (m_taken) {
        Lookups& all = lookups();
        const MutexLock lock(all.mutex);
        --all.atWork;
        all.leftBehind.push_back(steadyNow() + kLongestLookup);
        m_taken = false;
    }
}

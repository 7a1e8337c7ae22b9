#include "web/name_lookups.h"

#include <arpa/inet.h>
#include <array>
#include <curl/curl.h>
#include <future>
#include <map>
#include <memory>
#include <netdb.h>
#include <system_error>
#include <thread>

#include "base/mutex.h"

namespace {

/** A lookup that has not ended. */
struct Lookup {
    std::shared_future<std::string> addresses; /**< separated by commas; empty when there are none */
    bool hangs = false;                        /**< somebody has given it up */
};

struct Lookups {
    Mutex mutex;  // guards what follows
    std::map<std::string, Lookup> ofHosts GUARDED_BY(mutex);
};

/** Never destroyed: lookups may go on when the process ends. */
Lookups& lookups() {
    static Lookups& instance = *new Lookups;
    return instance;
}

using UrlText = std::unique_ptr<char, decltype(&curl_free)>;

UrlText partOf(CURLU* url, CURLUPart part, unsigned int flags = 0) {
    char* text = nullptr;
    return {curl_url_get(url, part, &text, flags) == CURLUE_OK ? text : nullptr, curl_free};
}

bool isAddress(const char* host) {
    std::array<unsigned char, sizeof(in6_addr)> address = {};
    return *host == '[' || inet_pton(AF_INET, host, address.data()) == 1;
}

std::string addressesOf(const std::string& host) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_IDN;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
        return "";
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    std::string addresses;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        std::array<char, NI_MAXHOST> text = {};
        getnameinfo(entry->ai_addr, entry->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST);
        const std::string address = text.data();
        // libcurl takes none with a network interface behind it.
        if (!address.empty() && address.find('%') == std::string::npos) {
            addresses +=
                (addresses.empty() ? "" : ",") + (entry->ai_family == AF_INET6 ? "[" + address + "]" : address);
        }
    }
    return addresses;
}

/** The lookup of a host that is under way, or a new one; one without addresses to come when there must be none. */
std::shared_future<std::string> lookupOf(const std::string& host) {
    Lookups& all = lookups();
    const MutexLock lock(all.mutex);
    if (const auto known = all.ofHosts.find(host); known != all.ofHosts.end()) {
        return known->second.hangs ? std::shared_future<std::string>() : known->second.addresses;
    }
    if (all.ofHosts.size() >= kMostNameLookups) {
        return {};
    }
    std::promise<std::string> promise;
    std::shared_future<std::string> addresses = promise.get_future();
    try {
        std::thread([&all, host, promise = std::move(promise)]() mutable {
            std::string found = addressesOf(host);
            {
                const MutexLock ending(all.mutex);
                all.ofHosts.erase(host);
            }
            promise.set_value(std::move(found));
        }).detach();
    } catch (const std::system_error&) {
        return {};
    }
    all.ofHosts[host] = {addresses};
    return addresses;
}

}  // namespace

std::optional<std::string> lookUpHost(const std::string& url, std::chrono::microseconds limit) {
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parts(curl_url(), curl_url_cleanup);
    curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), CURLU_GUESS_SCHEME);
    const UrlText host = partOf(parts.get(), CURLUPART_HOST);
    const UrlText port = partOf(parts.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!host || *host == '\0' || !port || isAddress(host.get())) {
        return "";
    }
    const std::shared_future<std::string> lookup = lookupOf(host.get());
    if (!lookup.valid()) {
        return std::nullopt;
    }
    if (lookup.wait_for(limit) != std::future_status::ready) {
        Lookups& all = lookups();
        const MutexLock lock(all.mutex);
        if (const auto known = all.ofHosts.find(host.get()); known != all.ofHosts.end()) {
            known->second.hangs = true;
        }
        return std::nullopt;
    }
    return lookup.get().empty() ? std::nullopt : std::optional("*:" + std::string(port.get()) + ":" + lookup.get());
}

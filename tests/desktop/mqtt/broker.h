#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <mosquitto.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <utility>
#include <vector>

#include "program.h"

/** What the tests of the MQTT link talk to: a real broker on loopback, and a subscriber. */

/** Longest wait for what has to come: only a test that fails waits so long. */
inline constexpr std::chrono::seconds kPatience(60);

/** Waits for something that another thread or process brings about; false when it does not come. */
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds pause = std::chrono::milliseconds(1)) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

/** A socket on a loopback port that the system chooses, and that nobody else is given. */
class LoopbackSocket {
public:
    LoopbackSocket() : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_address;
        if (bind(m_fd, generic(), length) != 0 || getsockname(m_fd, generic(), &length) != 0) {
            throw std::runtime_error("no loopback port");
        }
        // From now on whoever names this very port may have it too, as the broker does at each of its starts.
        const int on = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    ~LoopbackSocket() { close(m_fd); }
    LoopbackSocket(const LoopbackSocket&) = delete;
    LoopbackSocket& operator=(const LoopbackSocket&) = delete;

    int port() const { return ntohs(m_address.sin_port); }

    /** Connections are taken by the system from now on, and nobody ever answers. */
    void hang() const { listen(m_fd, 16); }

    static bool isAnswering(int port) {
        LoopbackSocket caller;
        sockaddr_in other = caller.m_address;
        other.sin_port = htons(static_cast<uint16_t>(port));
        return connect(caller.m_fd, reinterpret_cast<const sockaddr*>(&other), sizeof other) == 0;
    }

private:
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&m_address); }

    int m_fd;
    sockaddr_in m_address = {};
};

/** A mosquitto in a folder, on a port of its own that stays the same from one start to the next. */
class Broker {
public:
    /** more: further lines of the configuration. */
    explicit Broker(const std::filesystem::path& folder, const std::string& more = "allow_anonymous true\n")
        : m_folder(folder) {
        configure("persistence true\n" + more);
    }

    static bool isInstalled() { return std::filesystem::exists(MOSQUITTO_PROGRAM); }

    int port() const { return m_reserved.port(); }

    void configure(const std::string& more) const {
        writeFile(m_folder / "mosquitto.conf",
                  "listener " + std::to_string(port()) + " 127.0.0.1\nuser root\n" +
                      "max_queued_messages 0\nqueue_qos0_messages true\npersistence_location " + m_folder.string() +
                      "/\n" + more);
    }

    void start() {
        m_process.emplace(startProgram({MOSQUITTO_PROGRAM, "-c", m_folder / "mosquitto.conf"}, m_folder));
        if (!waitUntil([this] { return LoopbackSocket::isAnswering(port()); })) {
            throw std::runtime_error("mosquitto does not start: " + readFile(m_folder / "err"));
        }
    }

    /** SIGTERM lets it write its memory to the disk, SIGKILL does not. */
    void stop(int signal = SIGTERM) {
        kill(m_process->pid(), signal);
        m_process->wait(60000);
        m_process.reset();
    }

private:
    std::filesystem::path m_folder;
    LoopbackSocket m_reserved;  // keeps the port while the broker is stopped
    std::optional<Child> m_process;
};

struct Received {
    std::string topic;
    std::string payload;
    bool isOld; /**< the broker had kept it; it was not published just now */

    bool operator==(const Received&) const = default;
};

inline void PrintTo(const Received& message, std::ostream* out) {
    *out << message.topic << " " << message.payload << (message.isOld ? " (old)" : "");
}

/** Subscribes to everything; all its work is done within its calls, reconnecting included. */
class Subscriber {
public:
    /**
     * keepSession: the broker keeps for it what comes while it is not connected.
     * qualityOfService: 0 shows what the broker passes on; with 2, it is the broker's duty that none is lost between
     * them and none doubled.
     */
    explicit Subscriber(const Broker& broker, bool keepSession = false, int qualityOfService = 2)
        : m_qualityOfService(qualityOfService) {
        mosquitto_lib_init();
        m_handle = mosquitto_new(keepSession ? "subscriber" : nullptr, !keepSession, this);
        mosquitto_connect_callback_set(m_handle, [](mosquitto* handle, void* self, int) {
            mosquitto_subscribe(handle, nullptr, "#", static_cast<Subscriber*>(self)->m_qualityOfService);
        });
        mosquitto_subscribe_callback_set(m_handle, [](mosquitto*, void* self, int, int, const int*) {
            static_cast<Subscriber*>(self)->m_isSubscribed = true;
        });
        mosquitto_message_callback_set(m_handle, [](mosquitto*, void* self, const mosquitto_message* message) {
            static_cast<Subscriber*>(self)->m_messages.push_back(
                {message->topic,
                 std::string(static_cast<const char*>(message->payload), static_cast<size_t>(message->payloadlen)),
                 message->retain});
        });
        mosquitto_connect(m_handle, "127.0.0.1", broker.port(), 60);
        if (!collect([this] { return m_isSubscribed; })) {
            throw std::runtime_error("cannot subscribe");
        }
    }
    ~Subscriber() { mosquitto_destroy(m_handle); }
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    /** Receives until the condition holds; false when that does not come. */
    bool collect(const std::function<bool()>& condition) {
        return waitUntil(
            [&] {
                if (condition()) {
                    return true;
                }
                if (mosquitto_loop(m_handle, 10, 1) != MOSQ_ERR_SUCCESS) {
                    mosquitto_reconnect(m_handle);
                }
                return false;
            },
            std::chrono::milliseconds(0));
    }

    /** Receives until a topic has brought a payload. */
    bool collectUntil(const std::string& topic, const std::string& payload) {
        return collect([&] {
            const size_t from = std::exchange(m_searched, m_messages.size());
            return std::any_of(
                m_messages.begin() + static_cast<std::ptrdiff_t>(from), m_messages.end(),
                [&](const Received& message) { return message.topic == topic && message.payload == payload; });
        });
    }

    /** All that came, in order. */
    const std::vector<Received>& messages() const { return m_messages; }

    /** The payloads of one topic. */
    std::vector<std::string> payloads(const std::string& topic) const {
        std::vector<std::string> found;
        for (const Received& message : m_messages) {
            if (message.topic == topic) {
                found.push_back(message.payload);
            }
        }
        return found;
    }

private:
    const int m_qualityOfService;
    mosquitto* m_handle;
    bool m_isSubscribed = false;
    size_t m_searched = 0;
    std::vector<Received> m_messages;
};

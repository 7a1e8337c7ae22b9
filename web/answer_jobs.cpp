#include "web/answer_jobs.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <stdexcept>
#include <utility>

#include "base/clock.h"

namespace {

constexpr size_t kMostWaiting = 8;
// More than can be under way together, so that nobody's answer goes while he is on his way to fetch it.
constexpr size_t kMostKept = 2 * kMostWaiting;
constexpr size_t kMostKeptBytes = size_t{16} << 20;
constexpr std::chrono::minutes kLongestKept(2);
constexpr std::chrono::milliseconds kPatience(50);
constexpr int64_t kMostNumber = int64_t{1} << 52;  // which every reader of JSON keeps exactly

int64_t randomNumber() {
    std::random_device random;
    return std::uniform_int_distribution<int64_t>(1, kMostNumber)(random);
}

}  // namespace

AnswerJobs::~AnswerJobs() {
    {
        const MutexLock lock(m_mutex);
        m_stop = true;
    }
    m_changed.notifyAll();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

int64_t AnswerJobs::post(Work work) {
    int64_t number = 0;
    {
        const MutexLock lock(m_mutex);
        if (m_waiting.size() == kMostWaiting) {
            throw std::invalid_argument("expected at most " + std::to_string(kMostWaiting) +
                                        " questions that wait for an answer, got one more; ask again later");
        }
        if (!m_isStarted) {
            m_thread = std::thread([this] { run(); });
            m_isStarted = true;
        }
        number = randomNumber();
        m_waiting.push_back({number, std::move(work)});
    }
    m_changed.notifyAll();
    return number;
}

std::optional<std::string> AnswerJobs::take(int64_t number) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    Done done;
    m_mutex.lock();
    letGo();
    for (bool isInTime = true;;) {
        const auto found =
            std::find_if(m_done.begin(), m_done.end(), [&](const Done& one) { return one.number == number; });
        if (found != m_done.end()) {
            done = std::move(*found);
            m_done.erase(found);
            break;
        }
        const bool isWaiting =
            std::any_of(m_waiting.begin(), m_waiting.end(), [&](const Job& job) { return job.number == number; });
        const bool isKnown = isWaiting || m_current == number;
        if (!isKnown || !isInTime) {
            m_mutex.unlock();
            if (!isKnown) {
                throw std::invalid_argument(
                    "expected the number of an answer that is being made, or was in the last two minutes and not "
                    "fetched yet, got " +
                    std::to_string(number));
            }
            return std::nullopt;
        }
        isInTime = m_changed.waitUntil(m_mutex, deadline);
    }
    m_mutex.unlock();
    if (done.error) {
        std::rethrow_exception(done.error);
    }
    return std::move(done.answer);
}

/** Lets answers go that nobody fetched, the oldest first. */
void AnswerJobs::letGo() {
    const int64_t earliest = steadyNowMicros() - std::chrono::microseconds(kLongestKept).count();
    size_t bytes = 0;
    for (const Done& done : m_done) {
        bytes += done.answer.size();
    }
    while (!m_done.empty() &&
           (m_done.size() > kMostKept || bytes > kMostKeptBytes || m_done.front().madeMicros < earliest)) {
        bytes -= m_done.front().answer.size();
        m_done.pop_front();
    }
}

void AnswerJobs::run() {
    m_mutex.lock();
    while (true) {
        while (m_waiting.empty() && !m_stop) {
            letGo();
            if (m_done.empty()) {
                m_changed.wait(m_mutex);
            } else {
                m_changed.waitFor(m_mutex, kLongestKept);
            }
        }
        if (m_stop) {
            break;
        }
        const Job job = std::move(m_waiting.front());
        m_waiting.pop_front();
        m_current = job.number;
        m_mutex.unlock();
        Done done;
        done.number = job.number;
        try {
            done.answer = job.work(m_stop);
            if (done.answer.size() > kMostKeptBytes) {
                const std::string size = std::to_string(std::exchange(done.answer, {}).size());
                throw std::invalid_argument("expected a question whose answer has at most " +
                                            std::to_string(kMostKeptBytes) + " bytes, got one with " + size +
                                            "; ask for longer steps or less time");
            }
        } catch (...) {
            done.error = std::current_exception();
        }
        m_mutex.lock();
        m_current = 0;
        done.madeMicros = steadyNowMicros();
        m_done.push_back(std::move(done));
        letGo();
        m_changed.notifyAll();
    }
    m_mutex.unlock();
}

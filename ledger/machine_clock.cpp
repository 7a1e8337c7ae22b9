#include "ledger/machine_clock.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sys/timex.h>
#include <unistd.h>
#include <utility>

#include "base/clock.h"
#include "base/unique_fd.h"

namespace ledger {

namespace {

constexpr int64_t kLongestWait = 600'000;  // for word of synchronisation, since the machine's start
constexpr int64_t kSmallestStep = 1'000;   // what time services correct bit by bit is told once it is more

bool kernelIsSynchronised() {
    timex state = {};
    const int answer = adjtimex(&state);
    return answer != -1 && answer != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
}

/** The kernel's name for this start of the machine; where it tells none, one that no other run has. */
std::string bootName() {
    const UniqueFd file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    std::array<char, 36> name = {};
    const bool isRead = file && read(file.get(), name.data(), name.size()) == static_cast<ssize_t>(name.size());
    return isRead ? std::string(name.begin(), name.end()) : "unknown-" + std::to_string(std::random_device()());
}

}  // namespace

ClockSources::ClockSources()
    : wallMicros(clockNowMicros),
      monoMillis([] { return steadyNowMicros() / 1000; }),
      isSynchronised(kernelIsSynchronised),
      boot(bootName()) {}

MachineClock::MachineClock(ClockSources sources)
    : m_sources(std::move(sources)),
      m_isDated(m_sources.monoMillis() >= kLongestWait || m_sources.isSynchronised()),
      m_offset(offset()) {}

int64_t MachineClock::offset() const {
    return m_sources.wallMicros() / 1000 - m_sources.monoMillis();
}

Instant MachineClock::now() const {
    const int64_t mono = m_sources.monoMillis();
    const MutexLock lock(m_mutex);
    return {mono, m_offset, m_isDated};
}

Moment MachineClock::moment() const {
    const Instant instant = now();
    return instant.isDated ? Moment{instant.monoMillis + instant.utcOffset, "", 0}
                           : Moment{0, m_sources.boot, instant.monoMillis};
}

std::optional<nlohmann::ordered_json> MachineClock::look(const std::function<void()>& beforeSet) {
    const int64_t mono = m_sources.monoMillis();
    const int64_t current = offset();
    int64_t before = 0;
    {
        const MutexLock lock(m_mutex);
        before = m_offset;
        if (!m_isDated) {
            m_offset = current;
            m_isDated = m_sources.isSynchronised() || mono >= kLongestWait;
            return m_isDated ? std::optional(known()) : std::nullopt;
        }
    }
    if (std::abs(current - before) <= kSmallestStep) {
        return std::nullopt;
    }
    beforeSet();
    const MutexLock lock(m_mutex);
    m_offset = current;
    return nlohmann::ordered_json({{"before", utcText(mono + before)}, {"after", utcText(mono + current)}});
}

nlohmann::ordered_json MachineClock::known() const {
    return {{"boot", m_sources.boot}, {"mono", m_sources.monoMillis()}, {"synchronised", m_sources.isSynchronised()}};
}

}  // namespace ledger

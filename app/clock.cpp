#include "clock.h"

#include <chrono>
#include <utility>

static_assert(sizeof(time_t) == sizeof(int64_t), "times go beyond 2038, on every processor");

namespace {

// A function, so that the logger can ask during static initialisation.
std::function<int64_t()>& source() {
    static std::function<int64_t()> instance;
    return instance;
}

}  // namespace

int64_t clockNowMicros() {
    if (source()) {
        return source()();
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

time_t clockNow() {
    return static_cast<time_t>(clockNowMicros() / 1000000);
}

std::tm localTime(time_t moment) {
    std::tm result = {};
    localtime_r(&moment, &result);
    return result;
}

void setClock(std::function<int64_t()> nowMicros) {
    source() = std::move(nowMicros);
}

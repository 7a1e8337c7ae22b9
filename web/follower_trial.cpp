#include "web/follower_trial.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/clock.h"
#include "ledger/counts.h"
#include "ledger/line.h"
#include "web/http_request_controller.h"

namespace {

using nlohmann::ordered_json;
using std::chrono::microseconds;

constexpr microseconds kLimit = std::chrono::seconds(5);
constexpr const char* kApplication = "ostrel_senvo";

bool isNumber(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/** What a follower tells of itself; an empty object where that is nothing. */
nlohmann::json aboutIn(const FollowerReply& reply) {
    nlohmann::json about = nlohmann::json::parse(reply.isComplete ? reply.body : "", nullptr, false);
    const bool isOurs = about.is_object() && ledger::textIn(about, "application") == kApplication;
    return isOurs ? about : nlohmann::json::object();
}

/** A clock's time between two moments of this one, in whole seconds ahead. */
int64_t aheadOf(int64_t theirMillis, int64_t askedMicros, int64_t answeredMicros) {
    const double here = static_cast<double>(askedMicros + answeredMicros) / 2e6;
    return std::llround(static_cast<double>(theirMillis) / 1e3 - here);
}

}  // namespace

std::string aboutText() {
    const int64_t now = clockNowMicros();
    const ordered_json about = {{"application", kApplication},
                                {"version", SENVO_VERSION},
                                {"time", ledger::utcText(now / 1000)},
                                {"zone", ledger::localZoneName()},
                                {"offset", localTime(now / 1'000'000).tm_gmtoff}};
    return about.dump();
}

std::string tryFollower(const std::string& ip, const std::string& login, const std::string& password) {
    const int64_t begun = steadyNowMicros();
    const FollowerReply reply = askFollower(makeRequest(ip, "get_status_code"), login, password, kLimit);
    const bool counts = reply.isComplete && isNumber(reply.body);
    nlohmann::json about = nlohmann::json::object();
    const int64_t asked = clockNowMicros();
    if (counts) {
        const microseconds left = kLimit - microseconds(steadyNowMicros() - begun);
        about = aboutIn(askFollower(makeRequest(ip, "get_about"), login, password, left));
    }
    const int64_t answered = clockNowMicros();
    const std::optional<int64_t> time = ledger::utcOf(ledger::textIn(about, "time"));
    const bool tellsVersion = about.contains("version") && about["version"].is_string();
    const ordered_json told = {
        {"found", reply.isFound},
        {"status", reply.status},
        {"counts", counts},
        {"role", reply.role == "operator" || reply.role == "viewer" ? reply.role : ""},
        {"version", tellsVersion ? ordered_json(about["version"]) : ordered_json()},
        {"own", SENVO_VERSION},
        {"ahead", time ? ordered_json(aheadOf(*time, asked, answered)) : ordered_json()},
    };
    return told.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

#include "desktop/mqtt/line_forwarder.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "base/atomic_file.h"

namespace desktop {
namespace {

// What is told of the past to somebody who looks on after a start.
constexpr int64_t kNewestBytes = int64_t{64} << 10;

std::optional<LinePosition> parsePosition(std::string_view text) {
    const nlohmann::json position = nlohmann::json::parse(text, nullptr, false);
    if (!position.is_object() || !position.contains("epoch") || !position["epoch"].is_string() ||
        !position.contains("through") || !position["through"].is_number_integer() ||
        position["through"].get<int64_t>() < 0) {
        return std::nullopt;
    }
    return LinePosition{position["epoch"].get<std::string>(), position["through"].get<int64_t>()};
}

std::string formatPosition(const LinePosition& position) {
    return nlohmann::ordered_json{{"epoch", position.epoch}, {"through", position.seq}}.dump() + "\n";
}

std::string formatRun(const LineRun& run) {
    std::string text = nlohmann::ordered_json{{"epoch", run.lines.front().epoch}, {"after", run.after}}.dump() + "\n";
    for (const FiledLine& line : run.lines) {
        text += line.text + "\n";
    }
    return text;
}

}  // namespace

LineForwarder::LineForwarder(LineForwarderSettings settings)
    : m_settings(std::move(settings)),
      m_ordered(m_settings.folder),
      m_newest(m_settings.folder),
      m_progress(m_settings.steadyMillis()),
      m_refilled(m_progress),
      m_allowance(m_settings.bytesASecond) {
    readPosition();
    m_ordered.seek(m_confirmed);
}

void LineForwarder::readPosition() {
    std::ifstream file(m_settings.positionFile);
    if (!file) {
        return;
    }
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    if (const auto position = parsePosition(text)) {
        m_confirmed = *position;
    } else {
        m_settings.say(m_settings.positionFile + ": expected {\"epoch\":TEXT,\"through\":NUMBER}, got \"" +
                       text.substr(0, 100) + "\"; all lines are sent again");
    }
}

void LineForwarder::connected() {
    m_underWay.clear();
    m_ordered.seek(m_confirmed);
    m_notBefore = m_settings.steadyMillis() + m_settings.random(m_settings.longestJitterMillis + 1);
    m_isAtNewest = false;
    m_nextLive = 0;
}

void LineForwarder::confirmed(std::string_view payload) {
    const auto position = parsePosition(payload);
    if (!position) {
        m_settings.say("confirmed: expected {\"epoch\":TEXT,\"through\":NUMBER}, got \"" +
                       std::string(payload.substr(0, 100)) + "\"");
        return;
    }
    if (!mayConfirm(*position)) {
        return;
    }
    const auto isCovered = [&](const Sent& sent) {
        return sent.last.epoch == position->epoch && sent.last.seq <= position->seq;
    };
    const auto rest = std::find_if_not(m_underWay.begin(), m_underWay.end(), isCovered);
    if (rest != m_underWay.begin()) {
        m_underWay.erase(m_underWay.begin(), rest);
        m_progress = m_settings.steadyMillis();
    }
    if (*position == m_confirmed) {
        return;
    }
    m_confirmed = *position;
    if (m_underWay.empty() && m_ordered.position() != m_confirmed) {
        // Not what was sent here: the database knows more, or less, than this camera thought.
        m_ordered.seek(m_confirmed);
    }
    if (!replaceFile(m_settings.positionFile, formatPosition(m_confirmed))) {
        m_settings.say(m_settings.positionFile + ": " + strerror(errno));
    }
}

/**
 * Whether a confirmation is of the epoch that is to be confirmed next: one of a later epoch would pass over lines of an
 * earlier one that were lost on the way, and one of another ledger's says nothing of this one.
 */
bool LineForwarder::mayConfirm(const LinePosition& position) const {
    if (position.epoch == m_confirmed.epoch) {
        return true;
    }
    LineFiles files(m_settings.folder);
    files.seek(m_confirmed);
    const LineRun next = files.next(1);
    return next.lines.empty() || next.lines.front().epoch == position.epoch;
}

std::vector<LineMessage> LineForwarder::due() {
    const int64_t now = m_settings.steadyMillis();
    std::vector<LineMessage> messages;
    if (!m_underWay.empty() && now - m_progress >= m_settings.resendMillis) {
        m_underWay.clear();
        m_ordered.seek(m_confirmed);
    }
    addLedger(messages, now);
    addRecent(messages);
    addLive(messages, now);
    return messages;
}

/** The newest lines go at once to who looks on, where older ones still wait for their turn. */
void LineForwarder::addRecent(std::vector<LineMessage>& messages) {
    if (!std::exchange(m_isAtNewest, true)) {
        m_newest.seekNewest(kNewestBytes);
    }
    for (LineRun run = m_newest.next(m_settings.batchBytes); !run.lines.empty();
         run = m_newest.next(m_settings.batchBytes)) {
        noteLive(run);
        const LinePosition& ordered = m_ordered.position();
        if (ordered.epoch != run.lines.back().epoch || ordered.seq < run.lines.back().seq) {
            messages.push_back({"recent", formatRun(run)});
        }
    }
}

void LineForwarder::noteLive(const LineRun& run) {
    m_live["epoch"] = nlohmann::json(run.lines.back().epoch).dump();
    m_live["seq"] = std::to_string(run.lines.back().seq);
    for (const FiledLine& line : run.lines) {
        const nlohmann::json members = nlohmann::json::parse(line.text, nullptr, false);
        for (const std::string& name : m_settings.liveMembers) {
            if (const auto member = members.find(name); member != members.end()) {
                m_live[name] = member->dump();
            }
        }
    }
}

void LineForwarder::addLedger(std::vector<LineMessage>& messages, int64_t now) {
    m_allowance = std::min(m_settings.bytesASecond, m_allowance + (now - m_refilled) * m_settings.bytesASecond / 1000);
    m_refilled = now;
    int64_t underWay = 0;
    for (const Sent& sent : m_underWay) {
        underWay += sent.bytes;
    }
    while (now >= m_notBefore && m_allowance > 0 && underWay < m_settings.windowBytes) {
        const LineRun run = m_ordered.next(m_settings.batchBytes);
        if (run.lines.empty()) {
            return;
        }
        if (m_underWay.empty()) {
            m_progress = now;
        }
        LineMessage message = {"ledger", formatRun(run)};
        const auto bytes = static_cast<int64_t>(message.payload.size());
        m_allowance -= bytes;
        underWay += bytes;
        m_underWay.push_back({m_ordered.position(), bytes});
        messages.push_back(std::move(message));
    }
}

void LineForwarder::addLive(std::vector<LineMessage>& messages, int64_t now) {
    if (now < m_nextLive || m_live.empty()) {
        return;
    }
    m_nextLive = now + m_settings.liveMillis;
    nlohmann::ordered_json live;
    for (const auto& [name, value] : m_live) {
        live[name] = nlohmann::json::parse(value);
    }
    live["unconfirmed"] = m_newest.position() != m_confirmed;
    messages.push_back({"live", live.dump(), true});
}

}  // namespace desktop

#include "desktop/live/anonymised_stream.h"

#include <charconv>
#include <utility>

namespace desktop {
namespace {

// Far longer than the application takes from setting a parameter to obeying it in a new cycle.
constexpr auto kTimeToObey = std::chrono::seconds(2);

std::optional<int> parseNumber(const std::string& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/** A size as the application reads it: a second "x" ends it. */
std::optional<StreamSize> parseChosen(const std::string& text) {
    return parseSize(text.substr(0, text.find('x', text.find('x') + 1)));
}

}  // namespace

std::optional<StreamSize> parseSize(const std::string& text) {
    const std::size_t between = text.find('x');
    if (between == std::string::npos) {
        return std::nullopt;
    }
    const auto width = parseNumber(text.substr(0, between));
    const auto height = parseNumber(text.substr(between + 1));
    return width && height ? std::optional(StreamSize{*width, *height}) : std::nullopt;
}

AnonymisedStream::AnonymisedStream(AnonymisedStreamNames names, ParameterValues values, Clock& clock)
    : m_names(std::move(names)), m_clock(clock), m_values(std::move(values)) {
    const MutexLock lock(m_mutex);
    update();
    m_changed.reset();
}

void AnonymisedStream::parameterSet(const std::string& name, const std::string& value) {
    const MutexLock lock(m_mutex);
    for (const std::string& known : {m_names.on, m_names.resolution, m_names.rivalOn, m_names.rivalResolution}) {
        if (name == known) {
            m_values[name] = value;
        }
    }
    update();
}

void AnonymisedStream::parametersLost() {
    const MutexLock lock(m_mutex);
    for (const std::string& name : {m_names.on, m_names.resolution}) {
        if (!name.empty()) {
            m_values[name] = std::nullopt;
        }
    }
    update();
}

/** A parameter without a name is never set. */
const std::optional<std::string>& AnonymisedStream::valueOf(const std::string& name) const {
    static const std::optional<std::string> kNeverSet = "";
    const auto found = m_values.find(name);
    return found == m_values.end() ? kNeverSet : found->second;
}

std::optional<StreamSize> AnonymisedStream::choice(const std::string& on, const std::string& resolution) const {
    return valueOf(on) == "true" ? parseChosen(valueOf(resolution).value_or("")) : std::nullopt;
}

void AnonymisedStream::update() {
    const std::optional<StreamSize> size = choice(m_names.on, m_names.resolution);
    const std::optional<StreamSize> rival = choice(m_names.rivalOn, m_names.rivalResolution);
    if (size != m_size || rival != m_rival) {
        m_size = size;
        m_rival = rival;
        m_changed = m_clock.now();
    }
}

bool AnonymisedStream::isKnown() const {
    const MutexLock lock(m_mutex);
    return valueOf(m_names.on) && valueOf(m_names.resolution);
}

bool AnonymisedStream::is(const StreamSize& size) const {
    const MutexLock lock(m_mutex);
    return m_size == size;
}

bool AnonymisedStream::isUnknown(const StreamSize& size) const {
    const MutexLock lock(m_mutex);
    const std::optional<std::string>& on = valueOf(m_names.on);
    const std::optional<std::string>& resolution = valueOf(m_names.resolution);
    if (on && (*on != "true" || resolution)) {
        return false;
    }
    return !resolution || parseChosen(*resolution) == size;
}

bool AnonymisedStream::yields(const StreamSize& size) const {
    const MutexLock lock(m_mutex);
    return m_rival == size;
}

bool AnonymisedStream::mayLackMasks(const Drawing& drawing) const {
    // The application takes settings over between two cycles, and a cycle begins after the redraw before.
    const MutexLock lock(m_mutex);
    return m_changed && (!drawing.before || *drawing.before < *m_changed + kTimeToObey);
}

}  // namespace desktop

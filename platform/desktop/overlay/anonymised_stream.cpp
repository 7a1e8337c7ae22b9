#include "anonymised_stream.h"

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

AnonymisedStream::AnonymisedStream(AnonymisedStreamNames names, const std::string& on, const std::string& resolution,
                                   Clock& clock)
    : m_names(std::move(names)), m_clock(clock), m_on(on), m_resolution(resolution) {
    update();
    m_changed.reset();
}

void AnonymisedStream::parameterSet(const std::string& name, const std::string& value) {
    const std::lock_guard lock(m_mutex);
    if (name == m_names.on) {
        m_on = value;
    } else if (name == m_names.resolution) {
        m_resolution = value;
    }
    update();
}

void AnonymisedStream::update() {
    const std::optional<StreamSize> size = m_on == "true" ? parseSize(m_resolution) : std::nullopt;
    if (size != m_size) {
        m_size = size;
        m_changed = m_clock.now();
    }
}

bool AnonymisedStream::is(const StreamSize& size) const {
    const std::lock_guard lock(m_mutex);
    return m_size == size;
}

bool AnonymisedStream::mayLackMasks(const Drawing& drawing) const {
    // The application takes settings over between two cycles, and a cycle begins after the redraw before.
    const std::lock_guard lock(m_mutex);
    return m_changed && (!drawing.before || *drawing.before < *m_changed + kTimeToObey);
}

}  // namespace desktop

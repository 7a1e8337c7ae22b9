#pragma once

#include <map>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "desktop/live/drawing_desk.h"
#include "desktop/parameters/declarations.h"

namespace desktop {

/** Parameters by name; nothing where the value is not known. */
using ParameterValues = std::map<std::string, std::optional<std::string>>;

/**
 * Which stream the settings want anonymised. A size counts from the moment at which its parameter is set, though the
 * application may take the setting over only later. Thread-safe.
 */
class AnonymisedStream {
public:
    /** The parameters' names, their values now by name, and the clock that says when they change. */
    AnonymisedStream(AnonymisedStreamNames names, ParameterValues values, Clock& clock);

    /** Takes note of a parameter that was set. */
    void parameterSet(const std::string& name, const std::string& value);

    /**
     * Takes note that the choice is not known: what was to be set was not, or what was set cannot be read. Until both
     * parameters were set again, every stream may be the one.
     */
    void parametersLost();

    /** Whether both parameters are known. */
    bool isKnown() const;

    /** Whether this is the stream, as far as one knows. */
    bool is(const StreamSize& size) const;

    /** Whether one does not know that this is the stream, nor that it is not. */
    bool isUnknown(const StreamSize& size) const;

    /** Whether the settings want this very size shown with overlays that hide nobody, which the application prefers. */
    bool yields(const StreamSize& size) const;

    /**
     * Whether a drawing of the anonymised stream may be without its masks, since the settings had only just changed
     * when the application began with it.
     */
    bool mayLackMasks(const Drawing& drawing) const;

private:
    void update() REQUIRES(m_mutex);
    const std::optional<std::string>& valueOf(const std::string& name) const REQUIRES(m_mutex);
    std::optional<StreamSize> choice(const std::string& on, const std::string& resolution) const REQUIRES(m_mutex);

    const AnonymisedStreamNames m_names;
    Clock& m_clock;
    mutable Mutex m_mutex;  // guards what follows
    ParameterValues m_values GUARDED_BY(m_mutex);
    std::optional<StreamSize> m_size GUARDED_BY(m_mutex);
    std::optional<StreamSize> m_rival GUARDED_BY(m_mutex);
    std::optional<Clock::TimePoint> m_changed
        GUARDED_BY(m_mutex);  // when a size last became another; nothing: before the start
};

/** Reads "WxH"; nothing when a text is no size. */
std::optional<StreamSize> parseSize(const std::string& text);

}  // namespace desktop

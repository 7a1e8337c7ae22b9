#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <axoverlay.h>

#include "detection/camera_resolutions.h"
#include "finding/finding.h"

/** What a stream is to the application; its size tells. */
enum class StreamType {
    OtherStream = 0,
    ApplicationStream = 1,
    OverlayStream = 2,
    AnonymizedStream = 3,
};

/** What is drawn and on which streams. All sizes in pixels before any rotation; 0 x 0 is no stream. */
struct OverlayInfo {
    const std::vector<one_find>* pFindings = nullptr; /**< null until there is a list */
    uint32_t appStreamWidth = 0;
    uint32_t appStreamHeight = 0;
    uint32_t overlayStreamWidth = 0;
    uint32_t overlayStreamHeight = 0;
    uint32_t anonymizedStreamWidth = 0;
    uint32_t anonymizedStreamHeight = 0;
    axoverlay_stream_type appStreamType = AXOVERLAY_STREAM_JPEG; /**< not used */
    bool renderOnUserStreams = false;                            /**< not used */

    /** By exact size; of equal sizes the analysis stream's counts first, then the overlay's. */
    StreamType getStreamType(uint32_t width, uint32_t height) const;
};

void SetApplicationStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height);
void SetOverlayStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height);
void SetAnonymizedStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height);

/**
 * From "WxH", as the settings hold it; what follows a second "x" is not read. Any other text counts as "0x0", with an
 * error line.
 */
void SetOverlayStreamResolutionFromString(OverlayInfo& info, const std::string& text);
void SetAnonymizedStreamResolutionFromString(OverlayInfo& info, const std::string& text);

/** How a stream would be drawn on. */
struct OverlayRenderOptions {
    bool renderOverlays = false;
    bool fillRectangles = false;
    bool operator==(const OverlayRenderOptions&) const = default;
};

/** Options by stream size: a standby facility that the renderer does not consult. */
class OverlayRenderOptionsDict {
public:
    void setOptions(Resolution resolution, OverlayRenderOptions options);

    /** False, with the options left alone, for a size that has none. */
    bool getOptions(Resolution resolution, OverlayRenderOptions& options) const;
    bool getOptions(unsigned width, unsigned height, OverlayRenderOptions& options) const;

private:
    std::map<Resolution, OverlayRenderOptions> m_options;
};

/** A rectangle in pixels of the analysis stream, drawn beside the findings. */
struct UserRectangle {
    rectangle rect;
    int colorIndex = 0; /**< of PaletteColors */
};

/** At most 16 of them. */
class UserRectangles {
public:
    void clear() { m_count = 0; }

    /** False when there is no place left. */
    bool add(const UserRectangle& rectangle);

    const UserRectangle* begin() const { return m_rectangles.data(); }
    const UserRectangle* end() const { return m_rectangles.data() + m_count; }

private:
    std::array<UserRectangle, 16> m_rectangles;
    size_t m_count = 0;
};

#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "desktop/frames/picture.h"

namespace desktop {

/** What a source is known to be once it is open. */
struct SourceInfo {
    int width = 0;          /**< pixels as shown, that is with non-square pixels stretched */
    int height = 0;         /**< pixels */
    double frameRate = 0.0; /**< frames a second */
    int64_t duration = 0;   /**< microseconds as the source itself tells it, 0 when unknown */
    bool live = false;      /**< frames come when they come: no pacing, no second pass */
};

/** One frame of a source. The picture is made on demand, since a frame that is passed over need not be drawn. */
struct Frame {
    int64_t time = 0;                       /**< microseconds since the source's first frame */
    std::function<SharedPicture()> picture; /**< by any thread, one at a time; the reader may be gone by then */
};

/** One pass over a source's frames. Used by one thread at a time. */
class FrameReader {
public:
    FrameReader() = default;
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;
    virtual ~FrameReader() = default;

    virtual const SourceInfo& info() const = 0;

    /**
     * Returns the next frame, nothing after the last one. Throws VideoError with VDO_ERROR_NO_VIDEO, naming the source,
     * the place and the reason, when a recording is damaged or a live source is lost.
     */
    virtual std::optional<Frame> next() = 0;
};

}  // namespace desktop

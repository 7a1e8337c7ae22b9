#pragma once

#include <atomic>
#include <cstdint>

#include "desktop/frames/frame_reader.h"

namespace desktop {

/** A frame as a stream gets it: its number in the source, counted from 1, and its picture. */
struct Delivery {
    uint64_t number = 0;
    SharedPicture picture;
    int64_t micros = 0; /**< when it came, on the source's clock, which only goes forward */
};

/** An open source that hands its frames to any number of streams. */
class VideoSource {
public:
    VideoSource() = default;
    VideoSource(const VideoSource&) = delete;
    VideoSource& operator=(const VideoSource&) = delete;
    virtual ~VideoSource() = default;

    virtual const SourceInfo& info() const = 0;

    /**
     * Returns the newest frame whose number is greater than after, waiting for one when there is none. Throws
     * VideoError: VDO_ERROR_NO_VIDEO when the source is lost or has ended, VDO_ERROR_FAILED once stopped is set.
     */
    virtual Delivery newest(uint64_t after, const std::atomic<bool>& stopped) = 0;

    /**
     * Returns the newest frame as it is, without waiting; number 0 and no picture before the first. Throws VideoError
     * with VDO_ERROR_NO_VIDEO while the source is lost.
     */
    virtual Delivery current() = 0;

    /** Makes waiting calls look at their stop flags. Any thread. */
    virtual void wake() = 0;
};

}  // namespace desktop

#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "base/mutex.h"
#include "desktop/frames/frame_converter.h"
#include "desktop/frames/video_source.h"
#include "desktop/video/settings_map.h"
#include "vdo-buffer.h"

namespace desktop {

struct UnrefObject {
    void operator()(VdoBuffer* buffer) const { g_object_unref(buffer); }
};
using BufferPtr = std::unique_ptr<VdoBuffer, UnrefObject>;

/** Makes a buffer of so many bytes; the caller owns it. */
BufferPtr makeBuffer(std::size_t bytes);

/** The buffer's bytes; they stay where they are for the buffer's life. */
uint8_t* bytesOf(VdoBuffer* buffer);

/**
 * One stream: the source's frames at one size and rotation, and the buffers in which they travel. Thread-safe, except
 * that frames are fetched by one thread at a time.
 *
 * The stream holds a reference to every buffer that is queued or lent, so that none dies under the consumer's hands
 * before the stream does.
 */
class Stream {
public:
    /** Checks the settings against what the source offers. Throws VideoError with VDO_ERROR_INVALID_ARGUMENT. */
    Stream(std::shared_ptr<VideoSource> source, const SettingsMap& asked);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /** All settings in force, those with their defaults that were not asked for among them. */
    const SettingsMap& settings() const { return m_settings; }

    void attach();
    /** Throws VideoError when the consumer has neither attached nor queued a buffer. */
    void start();
    /** Ends a fetch that waits. Any thread. */
    void stop();

    /** Waits for the next frame; the buffer stays the stream's. Throws VideoError. */
    VdoBuffer* fetch();

    /** Makes a buffer that the consumer owns. Throws VideoError unless the strategy is explicit. */
    BufferPtr allocate() const;
    /** Takes a buffer to be filled. Throws VideoError for one that is queued already or not this stream's kind. */
    void enqueue(VdoBuffer* buffer);
    /**
     * Takes a lent buffer back. A buffer of the explicit strategy is not filled again then; one that is not lent is
     * released for good, the consumer's reference with it. Throws VideoError for a buffer that was never handed out.
     */
    void giveBack(VdoBuffer* buffer);

private:
    BufferPtr takeFreeBuffer();
    bool isExplicit() const;

    const std::shared_ptr<VideoSource> m_source;
    const SettingsMap m_settings;
    const std::size_t m_bytes;
    FrameConverter m_converter;  // used by the fetching thread
    uint64_t m_fetched = 0;      // used by the fetching thread: number of the newest frame handed out
    std::atomic<bool> m_stopped = true;

    Mutex m_mutex;                // guards what follows
    ConditionVariable m_changed;  // a buffer was queued, or the stream was stopped
    bool m_attached GUARDED_BY(m_mutex) = false;
    std::vector<BufferPtr> m_free GUARDED_BY(m_mutex);  // to be filled, oldest first
    std::vector<BufferPtr> m_lent GUARDED_BY(m_mutex);  // in the consumer's hands
};

}  // namespace desktop

#pragma once

#include <memory>
#include <string>

#include <vdo-stream.h>

/**
 * The video stream that is analysed. Every failure is logged under the operation that it belongs to and turned into a
 * result. Analysis thread.
 */
class AnalysisStream {
public:
    static constexpr unsigned kChannel = 1;

    /**
     * Opens the stream at a landscape size in pixels or, where the camera does not deliver that, at the size that fits
     * best; the video service turns it by rotation degrees. Replaces the stream that is open. On failure size() stays.
     */
    bool open(int width, int height, int rotation);

    void close() { m_stream.reset(); }

    /** The newest frame, to be given back; null, with the reason, when none can be had. */
    VdoBuffer* newest(std::string& reason);

    /** Gives a frame back; false, with the reason. */
    bool giveBack(VdoBuffer* frame, std::string& reason);

    /** Pixels after rotation; 0 before the first stream. */
    unsigned width() const { return m_width; }
    unsigned height() const { return m_height; }

private:
    struct Unref {
        void operator()(gpointer object) const { g_object_unref(object); }
    };

    bool isOffered(int width, int height, int rotation);

    std::unique_ptr<VdoStream, Unref> m_stream;
    unsigned m_width = 0;
    unsigned m_height = 0;
};

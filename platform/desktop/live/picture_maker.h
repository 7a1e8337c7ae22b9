#pragma once

#include <string>
#include <vector>

#include "desktop/frames/frame_converter.h"
#include "desktop/live/drawing_desk.h"
#include "desktop/live/jpeg_encoder.h"
#include "desktop/live/sightings.h"

namespace desktop {

/** Makes the pictures of one stream: scaled, turned, drawn over, encoded. Used by one thread at a time. */
class PictureMaker {
public:
    /** The size before turning; rotation in degrees clockwise; mirrored: left and right exchanged after turning. */
    PictureMaker(const StreamSize& size, int rotation, bool mirrored);

    int rotation() const { return m_rotation; }

    /**
     * Returns the picture as a JPEG file; the overlays' surfaces are transparent afterwards. What the masks cover lies
     * below the overlays. With words, all is coarsely pixelated, and the words stand on it. Throws VideoError or
     * std::runtime_error.
     */
    std::string make(const AVFrame& picture, const std::vector<Mask>& masks, const std::vector<DrawnOverlay>& overlays,
                     const std::string& words);

private:
    void hide(const Mask& mask);
    void write(const std::string& words);

    int m_rotation;
    bool m_mirrored;
    FrameConverter m_converter;
    std::vector<uint8_t> m_nv12;
    Planes m_planes;
    JpegEncoder m_encoder;
};

/** Makes what was drawn transparent again without using it. */
void clearAll(const std::vector<DrawnOverlay>& overlays);

/** Whether a picture turned by so many degrees has its width and height exchanged. */
constexpr bool liesOnItsSide(int rotation) {
    return rotation == 90 || rotation == 270;
}

}  // namespace desktop

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "desktop/frames/picture.h"

struct SwsContext;

namespace desktop {

/**
 * Turns decoded pictures into the NV12 frames of one stream: scaled into the stream's size, black bars where the aspect
 * ratios differ, then rotated clockwise. Used by one thread at a time.
 */
class FrameConverter {
public:
    /** Size in even pixels before rotation; rotation is 0, 90, 180 or 270 degrees. */
    FrameConverter(int width, int height, int rotation);

    /** Writes the picture as NV12 without row padding to out, nv12Size(width, height) bytes. Throws VideoError. */
    void convert(const AVFrame& picture, uint8_t* out);

private:
    struct FreeScaler {
        void operator()(SwsContext* scaler) const;
    };

    /** What a scaler was made for. */
    struct Input {
        int width = 0;
        int height = 0;
        int layout = -1;  // a pixel format of the library
        bool fullRange = false;
        int scaledWidth = 0;
        int scaledHeight = 0;
        bool operator==(const Input&) const = default;
    };

    static SwsContext* makeScaler(const Input& input);
    const AVFrame& scale(const AVFrame& picture, int width, int height);

    int m_width;
    int m_height;
    int m_rotation;
    std::unique_ptr<SwsContext, FreeScaler> m_scaler;
    Input m_input;
    FramePtr m_scaled;               // aligned, since the scaler may write past a row's end
    std::vector<uint8_t> m_upright;  // the frame before rotation
};

}  // namespace desktop

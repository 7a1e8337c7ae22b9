#include "desktop/frames/picture.h"

#include <new>

extern "C" {
#include <libavutil/frame.h>
}

namespace desktop {

void FreeFrame::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

FramePtr makeFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        throw std::bad_alloc();
    }
    return frame;
}

FramePtr makeNv12Frame(int width, int height) {
    FramePtr frame = makeFrame();
    frame->format = AV_PIX_FMT_NV12;
    frame->width = width;
    frame->height = height;
    frame->color_range = AVCOL_RANGE_MPEG;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::bad_alloc();
    }
    return frame;
}

}  // namespace desktop

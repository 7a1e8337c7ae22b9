#pragma once

#include <cstddef>
#include <memory>

struct AVFrame;

namespace desktop {

struct FreeFrame {
    void operator()(AVFrame* frame) const;
};
using FramePtr = std::unique_ptr<AVFrame, FreeFrame>;

/** A picture that no one changes any more, so that threads may share it. */
using SharedPicture = std::shared_ptr<const AVFrame>;

/** Makes an empty frame. Throws std::bad_alloc. */
FramePtr makeFrame();

/** Makes an NV12 frame with memory for its pixels, rows aligned for fast conversion. Throws std::bad_alloc. */
FramePtr makeNv12Frame(int width, int height);

/** Bytes of an NV12 picture without row padding; width and height are even. */
constexpr std::size_t nv12Size(int width, int height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3 / 2;
}

}  // namespace desktop

#pragma once

#include <memory>
#include <vector>

#include "desktop/frames/picture.h"

namespace desktop {

/** Where something was found, in fractions (0..1) of a frame's width and height as the frame was fetched, turned. */
struct FoundBox {
    float left = 0;
    float top = 0;
    float right = 0;
    float bottom = 0;
};
using FoundBoxes = std::shared_ptr<const std::vector<FoundBox>>;

/** A frame that a stream's consumer works on. */
struct Fetched {
    SharedPicture picture; /**< as the source has it, before scaling and turning; null before the first */
    int rotation = 0;      /**< of the stream that it was fetched from, in degrees clockwise */
    int width = 0;         /**< of that stream before turning, in pixels */
    int height = 0;
    int64_t micros = 0;    /**< when it came, on the source's clock, which only goes forward */
    int64_t lag = 0;       /**< microseconds by which a newer frame, fetched since, is ahead of it */
    FoundBoxes found = {}; /**< what has to be hidden where people are to be hidden; null: nobody has looked yet */
};

/**
 * What the calling thread fetched last from any stream, or the older frame that its findings are for, which whoever
 * answers for an older frame notes instead. What the thread draws belongs to this picture, however many newer ones the
 * source has by then.
 */
const Fetched& lastFetched();

/** Remembers what the calling thread has fetched, or which older frame its findings are for. */
void noteFetched(Fetched fetched);

/**
 * Remembers what the inference has found on the frame that the calling thread has fetched last. boxes are in fractions
 * of the picture that was looked at, width by height pixels, which is the largest centred part of the frame with its
 * aspect ratio; what lies beside it was not looked at, and counts as found.
 */
void noteFound(std::vector<FoundBox> boxes, int width, int height);

}  // namespace desktop

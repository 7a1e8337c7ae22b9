#pragma once

#include "picture.h"

namespace desktop {

/** A frame that a stream's consumer works on. */
struct Fetched {
    SharedPicture picture; /**< as the source has it, before scaling and turning; null before the first */
    int rotation = 0;      /**< of the stream that it was fetched from, in degrees clockwise */
    int width = 0;         /**< of that stream before turning, in pixels */
    int height = 0;
};

/**
 * What the calling thread fetched last from any stream. What it draws belongs to this picture, however many newer ones
 * the source has by then.
 */
const Fetched& lastFetched();

/** Remembers what the calling thread has fetched. */
void noteFetched(Fetched fetched);

}  // namespace desktop

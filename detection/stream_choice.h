#pragma once

/** How wide a stream is for its height. */
enum AspectRatioType {
    ASPECT_RATIO_INVALID = 0,
    FULLSCREEN = 1,
    WIDESCREEN = 2,
    SQUARE = 3
};

/** A stream's size in pixels, before it is turned. */
struct StreamChoice {
    unsigned width = 0;
    unsigned height = 0;
};

/*
 * The choice of an analysis stream when the camera does not deliver the model's own size. Each asks the video service
 * what the analysis channel offers, logs what it does under its operation's name, and returns false, with best as it
 * was, when nothing fits or the service cannot be asked.
 */

AspectRatioType aspectRatioOf(int width, int height);

/** Whether a stream is at least as large as the model both ways. */
bool containsModel(int streamWidth, int streamHeight, int modelWidth, int modelHeight);

bool findSmallestContaining(int modelWidth, int modelHeight, AspectRatioType ratio, StreamChoice& best);
bool findLargestNotContaining(int modelWidth, int modelHeight, AspectRatioType ratio, StreamChoice& best);

/** The aspect ratio matters more than the size: a small 16:9 stream is preferred to a large 4:3 one. */
bool chooseResolution(unsigned modelWidth, unsigned modelHeight, StreamChoice& best);

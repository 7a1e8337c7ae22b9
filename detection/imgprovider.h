#pragma once

#include <vdo-buffer.h>
#include <vdo-types.h>

/**
 * A source of frames with a thread of its own that fetches them, so that a consumer gets the newest frame without
 * waiting for the next one. A standby component: the analysis reads its stream itself.
 *
 * A consumer creates a provider, starts the fetching, takes frames and returns each, stops the fetching and destroys
 * the provider. Failures are logged.
 */
struct ImgProvider;

/**
 * Opens a stream of video channel 1. numFrames: how many delivered frames are kept; 0 counts as 1. Null on failure,
 * with nothing left behind; the caller destroys it.
 */
ImgProvider* createImgProvider(unsigned width, unsigned height, unsigned numFrames, VdoFormat format);

/** Releases everything; null is ignored. The fetching is stopped first where it was not. */
void destroyImgProvider(ImgProvider* provider);

/**
 * The smallest resolution of video channel 1 with at least this width and height, the first listed of equal areas;
 * without one, the size asked for. False when the channel cannot be asked; then nothing is chosen.
 */
bool chooseStreamResolution(unsigned width, unsigned height, unsigned* chosenWidth, unsigned* chosenHeight);

/** Makes the provider's stream and its buffers, and starts it; part of createImgProvider. */
bool createStream(ImgProvider* provider, unsigned width, unsigned height);

/** Starts the thread; false when it runs already or cannot be had. */
bool startFrameFetch(ImgProvider* provider);

/** Ends the thread, once the frame that it waits for has come; false when there is none. */
bool stopFrameFetch(ImgProvider* provider);

/**
 * The newest of the frames that were delivered and not taken yet; waits for one where there is none. The consumer
 * returns it, and holds no more than two at a time. Null when the fetching has stopped and none is left. Any one
 * thread.
 */
VdoBuffer* getLastFrameBlocking(ImgProvider* provider);

/** Gives a frame back, to be filled again. Any thread. */
void returnFrame(ImgProvider* provider, VdoBuffer* frame);

#pragma once

#include <cstdint>
#include <string>

/**
 * Offline pacing: a program that embeds the video service drives a recorded or drawn source by hand.
 *
 * With Pacing::Virtual the process's source hands out, at each vdo_stream_get_buffer, the newest frame whose time is
 * not later than the virtual time and that was not handed out before; when there is none, the next frame, as a camera
 * would make the caller wait for it. Times are microseconds since the source's first frame. One thread.
 */
namespace desktop {

/** Moves the virtual time; it never goes back. */
void setVirtualTime(int64_t micros);

/** Time of the first frame that was not handed out or skipped yet; -1 when the source has ended or cannot be read. */
int64_t nextFrameTime();

/**
 * Has an ended recording hand out its last frame again at each virtual time, as if the camera went on to see the same:
 * for services that answer for a frame only when they have seen what comes after it.
 */
void holdLastFrame();

/** Length in microseconds as the source itself tells it, 0 when unknown. For progress bars only. */
int64_t sourceDuration();

/** Why the source ended early, naming the source and the place in it; empty after an orderly end. */
std::string sourceError();

}  // namespace desktop

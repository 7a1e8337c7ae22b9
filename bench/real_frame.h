#pragma once

#include <cstdint>
#include <vector>

/**
 * One frame of a real clip as NV12 of the size given, by the ffmpeg program; without clip or program, a drawn pattern.
 */
std::vector<uint8_t> realFrame(unsigned width, unsigned height);

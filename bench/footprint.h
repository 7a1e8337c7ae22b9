#pragma once

/**
 * What the application takes of a camera, held against its limits: the program's size, its memory and its start on
 * 32-bit ARM (in an emulator), and what a day writes to the flash. Needs the camera's build; prints, as JSON when
 * asked. Returns the process' status: 1 when a figure misses its limit. Throws std::runtime_error when it cannot
 * measure.
 */
int measureFootprint(bool json);

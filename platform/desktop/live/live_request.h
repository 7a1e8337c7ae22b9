#pragma once

#include <string>
#include <variant>
#include <vector>

#include "desktop/live/drawing_desk.h"

namespace desktop {

/** What a viewer asks for. */
struct LiveRequest {
    bool video = false; /**< pictures one after another; otherwise one */
    StreamSize size;
    bool overlays = true;
    int fps = 0; /**< most pictures a second; 0: as many as there are */
};

/** Why a request is refused: an HTTP status and one line that says what was expected and what came. */
struct Refusal {
    int status = 400;
    std::string reason;
};

/**
 * Reads the first line of an HTTP request, "GET /live/image.jpg?resolution=640x360 HTTP/1.1". sizes: those on offer,
 * the largest first, one at least.
 */
std::variant<LiveRequest, Refusal> parseLiveRequest(const std::string& line, const std::vector<StreamSize>& sizes);

/** "640x360". */
std::string textOf(const StreamSize& size);

}  // namespace desktop

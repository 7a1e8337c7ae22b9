#pragma once

#include <string>

namespace desktop {

enum class SourceKind {
    File,
    Network, /**< rtsp, rtsps, http, https */
    Webcam,  /**< /dev/videoN */
    Scene,   /**< scene:NAME */
};

/** Tells a source's kind by its name. Throws VideoError for an address whose scheme is not served. */
SourceKind kindOf(const std::string& source);

/** The source's name as messages may show it: no user, no password, no query. */
std::string displayName(const std::string& source);

}  // namespace desktop

#include "desktop/frames/source_name.h"

#include <algorithm>
#include <array>

#include "desktop/frames/video_error.h"

namespace desktop {

SourceKind kindOf(const std::string& source) {
    if (source.starts_with("scene:")) {
        return SourceKind::Scene;
    }
    if (source.starts_with("/dev/video")) {
        return SourceKind::Webcam;
    }
    const auto schemeEnd = source.find("://");
    if (schemeEnd == std::string::npos) {
        return SourceKind::File;
    }
    constexpr std::array<const char*, 4> kSchemes = {"rtsp", "rtsps", "http", "https"};
    const std::string scheme = source.substr(0, schemeEnd);
    if (std::find(kSchemes.begin(), kSchemes.end(), scheme) == kSchemes.end()) {
        throw VideoError(VDO_ERROR_NOT_FOUND, displayName(source) +
                                                  ": expected a file, rtsp://, rtsps://, http://, "
                                                  "https://, /dev/videoN or scene:NAME, got the scheme \"" +
                                                  scheme + "\"");
    }
    return SourceKind::Network;
}

std::string displayName(const std::string& source) {
    const auto schemeEnd = source.find("://");
    if (schemeEnd == std::string::npos) {
        return source;
    }
    const auto authority = schemeEnd + 3;
    std::string shown = source;
    // The last "@" and not the first: a password may hold one, as well as "/" and "?".
    const auto at = shown.rfind('@');
    if (at != std::string::npos && at >= authority) {
        shown.replace(authority, at - authority, "***");
    }
    return shown.substr(0, shown.find('?', authority));
}

}  // namespace desktop

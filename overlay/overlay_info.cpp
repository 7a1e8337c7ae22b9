#include "overlay/overlay_info.h"

#include <charconv>
#include <optional>

#include "log/Logger.h"

namespace {

std::optional<uint32_t> decimal(const std::string& digits) {
    uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

Resolution resolutionOf(const std::string& text, const char* function) {
    const size_t first = text.find('x');
    if (first != std::string::npos) {
        const std::optional<uint32_t> width = decimal(text.substr(0, first));
        const std::optional<uint32_t> height = decimal(text.substr(first + 1, text.find('x', first + 1) - first - 1));
        if (width && height) {
            return {*width, *height};
        }
    }
    applicationLog().error(std::string(function) + ": Expected a size such as 1280x720, got \"" + text +
                           "\". No stream is chosen.");
    return {};
}

}  // namespace

StreamType OverlayInfo::getStreamType(uint32_t width, uint32_t height) const {
    if (width == appStreamWidth && height == appStreamHeight) {
        return StreamType::ApplicationStream;
    }
    if (width == overlayStreamWidth && height == overlayStreamHeight) {
        return StreamType::OverlayStream;
    }
    if (width == anonymizedStreamWidth && height == anonymizedStreamHeight) {
        return StreamType::AnonymizedStream;
    }
    return StreamType::OtherStream;
}

void SetApplicationStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height) {
    info.appStreamWidth = width;
    info.appStreamHeight = height;
}

void SetOverlayStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height) {
    info.overlayStreamWidth = width;
    info.overlayStreamHeight = height;
}

void SetAnonymizedStreamResolution(OverlayInfo& info, uint32_t width, uint32_t height) {
    info.anonymizedStreamWidth = width;
    info.anonymizedStreamHeight = height;
}

void SetOverlayStreamResolutionFromString(OverlayInfo& info, const std::string& text) {
    const auto [width, height] = resolutionOf(text, "SetOverlayStreamResolutionFromString");
    SetOverlayStreamResolution(info, width, height);
}

void SetAnonymizedStreamResolutionFromString(OverlayInfo& info, const std::string& text) {
    const auto [width, height] = resolutionOf(text, "SetAnonymizedStreamResolutionFromString");
    SetAnonymizedStreamResolution(info, width, height);
}

void OverlayRenderOptionsDict::setOptions(Resolution resolution, OverlayRenderOptions options) {
    m_options[resolution] = options;
}

bool OverlayRenderOptionsDict::getOptions(Resolution resolution, OverlayRenderOptions& options) const {
    const auto found = m_options.find(resolution);
    if (found == m_options.end()) {
        return false;
    }
    options = found->second;
    return true;
}

bool OverlayRenderOptionsDict::getOptions(unsigned width, unsigned height, OverlayRenderOptions& options) const {
    return getOptions(Resolution{width, height}, options);
}

bool UserRectangles::add(const UserRectangle& rectangle) {
    if (m_count == m_rectangles.size()) {
        return false;
    }
    m_rectangles[m_count++] = rectangle;
    return true;
}

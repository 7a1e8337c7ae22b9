#include "desktop/live/drawing_desk.h"

#include <algorithm>
#include <utility>

namespace desktop {
namespace {

constexpr std::size_t kMostKept = 16;

}  // namespace

void DrawingDesk::watch(const std::set<StreamSize>& sizes) {
    const MutexLock lock(m_mutex);
    std::erase_if(m_watched, [&](const auto& entry) { return !sizes.contains(entry.first); });
    for (const StreamSize& size : sizes) {
        m_watched.try_emplace(size);
    }
    if (sizes.empty()) {
        m_clean.clear();
    }
}

std::vector<StreamSize> DrawingDesk::wanting() const {
    const MutexLock lock(m_mutex);
    std::vector<StreamSize> sizes;
    for (const auto& [size, drawing] : m_watched) {
        if (!drawing) {
            sizes.push_back(size);
        }
    }
    return sizes;
}

SurfacePtr DrawingDesk::surface(int width, int height) {
    {
        const MutexLock lock(m_mutex);
        const auto fits = [&](const SurfacePtr& surface) {
            return cairo_image_surface_get_width(surface.get()) == width &&
                   cairo_image_surface_get_height(surface.get()) == height;
        };
        if (const auto found = std::find_if(m_clean.begin(), m_clean.end(), fits); found != m_clean.end()) {
            SurfacePtr surface = std::move(*found);
            m_clean.erase(found);
            return surface;
        }
    }
    SurfacePtr made(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
    return cairo_surface_status(made.get()) == CAIRO_STATUS_SUCCESS ? std::move(made) : nullptr;
}

void DrawingDesk::put(const StreamSize& size, Drawing drawing) {
    const MutexLock lock(m_mutex);
    if (const auto found = m_watched.find(size); found != m_watched.end()) {
        found->second = std::move(drawing);
    }
}

std::optional<Drawing> DrawingDesk::take(const StreamSize& size) {
    const MutexLock lock(m_mutex);
    const auto found = m_watched.find(size);
    return found == m_watched.end() ? std::nullopt : std::exchange(found->second, std::nullopt);
}

void DrawingDesk::giveBack(std::vector<DrawnOverlay> overlays) {
    const MutexLock lock(m_mutex);
    for (DrawnOverlay& overlay : overlays) {
        if (m_clean.size() < kMostKept && !m_watched.empty()) {
            m_clean.push_back(std::move(overlay.surface));
        }
    }
}

std::optional<Clock::TimePoint> DrawingDesk::redrawn(Clock::TimePoint now) {
    const MutexLock lock(m_mutex);
    return std::exchange(m_lastRedraw, now);
}

bool DrawingDesk::everRedrawn() const {
    const MutexLock lock(m_mutex);
    return m_lastRedraw.has_value();
}

}  // namespace desktop

#include <algorithm>
#include <cairo.h>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "detection/location_controller_larod.h"
#include "overlay/StreamMapper.h"
#include "overlay/overlay_drawing.h"
#include "overlay/overlay_manager.h"
#include "scripted_platform.h"
#include "topics.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

/** A dozen vehicles in detection areas: a name and a dwell time each. */
std::vector<one_find> dozen() {
    std::vector<one_find> finds;
    for (int i = 0; i < 12; ++i) {
        one_find find;
        find.detect.X = 60 + 310 * (i % 6);
        find.detect.Y = 100 + 450 * (i / 6);
        find.detect.W = 240;
        find.detect.H = 300;
        find.detect.ClassId = 1 + i % 8;
        find.footing = static_cast<footings>(1 + i % 6);
        find.entrance = entrances::not_in_entrance;
        find.seconds = 7 * i;
        finds.push_back(find);
    }
    return finds;
}

/** The picture that is drawn on and how. */
class Canvas {
public:
    Canvas()
        : m_surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight), cairo_surface_destroy),
          m_manager(m_config, kWidth, kHeight) {
        m_manager.showFindings(m_finds);
    }

    std::vector<uint32_t> pixels() const {
        const auto* const first = reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(m_surface.get()));
        return {first, first + size_t{kWidth} * kHeight};
    }

    /** As the application draws, onto a picture that is cleared whole: how a service clears is its own affair. */
    void draw() {
        clear();
        const Context context(cairo_create(m_surface.get()), cairo_destroy);
        scripted::drawOverlay(scripted::overlays().front(), stream(), context.get());
        cairo_surface_flush(m_surface.get());
    }

    /** The same step by step, each text's outline filled and stroked anew. */
    void drawPlainly() {
        using namespace overlay_drawing;
        clear();
        const Context owner(cairo_create(m_surface.get()), cairo_destroy);
        cairo_t* const context = owner.get();
        cairo_set_antialias(context, CAIRO_ANTIALIAS_BEST);
        cairo_select_font_face(context, "Arial", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(context, 32);
        const auto mapper = getStreamMapper(kHeight, kWidth, kHeight, kWidth, false, false);
        for (const one_find& find : m_finds) {
            const detection& box = find.detect;
            const bool isLong = static_cast<int>(find.footing) % 2 == 0;
            drawRectangle(context, *mapper, box, {isLong ? Red : Yellow, 5}, false);
            drawLocatorCross(context, *mapper, box, m_config.b_LocatorAtBottom, {White, 7}, 6);
            cairo_text_extents_t extents;
            const std::string name = location_controller_larod::ClassIDToLabel(box.ClassId);
            cairo_text_extents(context, name.c_str(), &extents);
            TextCache::drawPlainly(context, name, box.X, static_cast<int>(box.Y + extents.height + 10), White);
            const std::string time = secondsToTimeText(find.seconds);
            cairo_text_extents(context, time.c_str(), &extents);
            TextCache::drawPlainly(context, time, box.X + static_cast<int>((box.W - extents.width) / 2),
                                   static_cast<int>(box.Y + box.H + extents.height + 10), White);
        }
        cairo_surface_flush(m_surface.get());
    }

private:
    using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

    static axoverlay_stream_data stream() {
        axoverlay_stream_data data = {};
        data.width = kWidth;
        data.height = kHeight;
        return data;
    }

    void clear() {
        std::memset(cairo_image_surface_get_data(m_surface.get()), 0,
                    static_cast<size_t>(cairo_image_surface_get_stride(m_surface.get())) * kHeight);
        cairo_surface_mark_dirty(m_surface.get());
    }

    ConfigParams m_config;
    std::vector<one_find> m_finds = dozen();
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> m_surface;
    OverlayManager m_manager;
};

/** Differences beyond cairo's own rounding of a rim, which is 1 of 255 in one pixel of thousands. */
bool isTheSame(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    size_t different = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i] == b[i]) {
            continue;
        }
        ++different;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            if (std::abs(static_cast<int>((a[i] >> shift) & 0xffU) - static_cast<int>((b[i] >> shift) & 0xffU)) > 1) {
                return false;
            }
        }
    }
    return different < 20;
}

}  // namespace

std::vector<Limit> registerOverlay() {
    static Canvas canvas;
    canvas.draw();
    const std::vector<uint32_t> ours = canvas.pixels();
    canvas.drawPlainly();
    if (!isTheSame(ours, canvas.pixels())) {
        throw std::runtime_error("the overlay that is drawn differs from the one that is drawn plainly");
    }
    benchmark::RegisterBenchmark("overlay/ours", [](benchmark::State& state) {
        for (auto _ : state) {
            canvas.draw();
        }
    });
    benchmark::RegisterBenchmark("overlay/plain", [](benchmark::State& state) {
        for (auto _ : state) {
            canvas.drawPlainly();
        }
    });
    return {{"overlay", "ours", "plain", 0.25}, {"overlay", "ours", "", std::nullopt}};
}

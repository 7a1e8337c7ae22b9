#include "desktop/video/scene/scene_painter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

namespace desktop {
namespace {

constexpr std::size_t kNoisePeriod = 1 << 20;

struct FreeCairo {
    void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
using CairoPtr = std::unique_ptr<cairo_t, FreeCairo>;

SurfacePtr makeSurface(const Scene& scene) {
    return SurfacePtr(cairo_image_surface_create(CAIRO_FORMAT_RGB24, scene.width, scene.height));
}

/** A step of a linear congruential generator; the same on every machine, which std distributions are not. */
uint32_t nextRandom(uint32_t& state) {
    state = state * 1664525U + 1013904223U;
    return state >> 16U;
}

/** A sensor's noise, so many times as strong. */
std::vector<int8_t> makeNoise(double strength) {
    std::vector<int8_t> noise(kNoisePeriod);
    uint32_t state = 20240521;
    for (int8_t& value : noise) {
        // The sum of two dice: small deviations are more frequent than large ones, as on a sensor.
        const int dice = static_cast<int>(nextRandom(state) % 4 + nextRandom(state) % 4) - 3;
        value = static_cast<int8_t>(std::lround(strength * dice));
    }
    return noise;
}

/** Makes NV12 of what cairo draws; the same bytes on every machine. */
std::unique_ptr<SwsContext, FreeScaler> makeScaler(int width, int height) {
    std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, AV_PIX_FMT_NV12,
                       SWS_BILINEAR | SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr));
    if (!scaler) {
        throw std::bad_alloc();
    }
    return scaler;
}

/** Where the wind holds the camera: slow swings with a tremor on top. */
std::pair<double, double> swayAt(const Scene& scene, int frame) {
    if (scene.weather.shake <= 0) {
        return {0, 0};
    }
    const double seconds = static_cast<double>(frame) / scene.frameRate;
    auto state = static_cast<uint32_t>(frame) * 7919U;
    const auto tremor = [&state] { return (nextRandom(state) % 201) / 100.0 - 1; };
    const double x = 0.6 * std::sin(seconds * 5.3) + 0.4 * tremor();
    const double y = 0.6 * std::sin(seconds * 7.1 + 1) + 0.4 * tremor();
    return {scene.weather.shake * x, scene.weather.shake * y};
}

/** The figures that are there, the farthest first, so that the nearer ones hide it. */
std::vector<const SceneFigure*> nearestLast(const Scene& scene, double seconds) {
    std::vector<std::pair<double, const SceneFigure*>> figures;
    for (const SceneFigure& figure : scene.figures) {
        if (isPresent(figure, seconds)) {
            const FigurePose pose = poseAt(figure, seconds);
            figures.emplace_back(pose.y + pose.scale * figure.height / 2, &figure);
        }
    }
    std::stable_sort(figures.begin(), figures.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<const SceneFigure*> sorted;
    sorted.reserve(figures.size());
    for (const auto& [bottom, figure] : figures) {
        sorted.push_back(figure);
    }
    return sorted;
}

double gainAt(const Weather& weather, double seconds) {
    double gain = 1;
    for (const LightStep& step : weather.light) {
        gain = seconds >= step.seconds ? step.gain : gain;
    }
    return gain;
}

}  // namespace

void FreeScaler::operator()(SwsContext* scaler) const {
    sws_freeContext(scaler);
}

ScenePainter::ScenePainter(Scene scene)
    : m_scene(std::move(scene)),
      m_backdrop(makeSurface(m_scene)),
      m_canvas(makeSurface(m_scene)),
      m_noise(makeNoise(m_scene.weather.noise)),
      m_scaler(makeScaler(m_scene.width, m_scene.height)) {
    const CairoPtr cairo(cairo_create(m_backdrop.get()));
    if (m_scene.backdrop == Backdrop::Plaza) {
        drawPlazaBackdrop(cairo.get(), m_scene);
    } else {
        drawTrialBackdrop(cairo.get(), m_scene);
    }
}

SharedPicture ScenePainter::draw(int frame) {
    const double seconds = static_cast<double>(frame) / m_scene.frameRate;
    const CairoPtr cairo(cairo_create(m_canvas.get()));
    const auto [swayX, swayY] = swayAt(m_scene, frame);
    cairo_translate(cairo.get(), swayX, swayY);
    cairo_set_operator(cairo.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(cairo.get(), m_backdrop.get(), 0, 0);
    cairo_pattern_set_extend(cairo_get_source(cairo.get()), CAIRO_EXTEND_REFLECT);
    cairo_paint(cairo.get());
    cairo_set_operator(cairo.get(), CAIRO_OPERATOR_OVER);
    for (const SceneFigure* figure : nearestLast(m_scene, seconds)) {
        drawFigure(cairo.get(), *figure, poseAt(*figure, seconds));
    }
    cairo_identity_matrix(cairo.get());
    drawRain(cairo.get(), frame);
    cairo_surface_flush(m_canvas.get());
    FramePtr picture = makeNv12Frame(m_scene.width, m_scene.height);
    const uint8_t* pixels = cairo_image_surface_get_data(m_canvas.get());
    const int stride = cairo_image_surface_get_stride(m_canvas.get());
    sws_scale(m_scaler.get(), &pixels, &stride, 0, m_scene.height, picture->data, picture->linesize);
    addLight(*picture, seconds);
    addNoise(*picture, frame);
    return picture;
}

void ScenePainter::drawRain(cairo_t* cairo, int frame) const {
    auto state = static_cast<uint32_t>(frame) * 104729U + 5;
    cairo_set_line_width(cairo, 1);
    setColour(cairo, 0xd8dde2, 0.45);
    for (int drop = 0; drop < m_scene.weather.rain; ++drop) {
        const auto x = static_cast<double>(nextRandom(state) % static_cast<uint32_t>(m_scene.width));
        const auto y = static_cast<double>(nextRandom(state) % static_cast<uint32_t>(m_scene.height));
        const double length = 8 + nextRandom(state) % 14;
        cairo_move_to(cairo, x, y);
        cairo_line_to(cairo, x - length * 0.15, y + length);
        cairo_stroke(cairo);
    }
}

void ScenePainter::addLight(AVFrame& picture, double seconds) const {
    const Weather& weather = m_scene.weather;
    if (weather.light.empty() && weather.cloud <= 0) {
        return;
    }
    const double gain = gainAt(weather, seconds);
    constexpr double kCloudSpeed = 0.25;  // of the picture's width in a second
    for (int row = 0; row < picture.height; ++row) {
        uint8_t* luma = picture.data[0] + static_cast<ptrdiff_t>(row) * picture.linesize[0];
        for (int column = 0; column < picture.width; ++column) {
            const double along = static_cast<double>(column) / picture.width - kCloudSpeed * seconds;
            const double covered = weather.cloud * (0.5 + 0.5 * std::sin(5 * along));
            luma[column] =
                static_cast<uint8_t>(std::clamp(16 + (luma[column] - 16) * gain * (1 - covered), 16.0, 235.0));
        }
    }
    for (int row = 0; row < picture.height / 2; ++row) {
        uint8_t* colour = picture.data[1] + static_cast<ptrdiff_t>(row) * picture.linesize[1];
        for (int column = 0; column < picture.width; ++column) {
            colour[column] = static_cast<uint8_t>(std::clamp(128 + (colour[column] - 128) * gain, 16.0, 240.0));
        }
    }
}

void ScenePainter::addNoise(AVFrame& picture, int frame) const {
    uint32_t state = static_cast<uint32_t>(frame) + 1;
    for (int row = 0; row < picture.height; ++row) {
        // A different stretch of the noise for every row and frame.
        const std::size_t span = kNoisePeriod - static_cast<std::size_t>(picture.width);
        const std::size_t offset = (static_cast<std::size_t>(nextRandom(state)) << 8U ^ nextRandom(state)) % span;
        const int8_t* noise = m_noise.data() + offset;
        uint8_t* luma = picture.data[0] + static_cast<ptrdiff_t>(row) * picture.linesize[0];
        for (int column = 0; column < picture.width; ++column) {
            luma[column] = static_cast<uint8_t>(std::clamp(luma[column] + noise[column], 16, 235));
        }
    }
}

void setColour(cairo_t* cairo, Colour colour, double opacity) {
    cairo_set_source_rgba(cairo, ((colour >> 16U) & 0xffU) / 255.0, ((colour >> 8U) & 0xffU) / 255.0,
                          (colour & 0xffU) / 255.0, opacity);
}

}  // namespace desktop

#pragma once

#include <cairo.h>
#include <cstdint>
#include <memory>
#include <vector>

#include "desktop/frames/picture.h"
#include "desktop/video/scene/scene.h"

struct SwsContext;

namespace desktop {

struct FreeSurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct FreeScaler {
    void operator()(SwsContext* scaler) const;
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, FreeSurface>;

/** Draws a scene's frames: backdrop, figures and a sensor's noise. The same frame is the same bytes at every draw. */
class ScenePainter {
public:
    explicit ScenePainter(Scene scene);

    /** Draws the frame of that number, counted from 0, as NV12. One thread at a time. */
    SharedPicture draw(int frame);

private:
    void drawRain(cairo_t* cairo, int frame) const;
    void addLight(AVFrame& picture, double seconds) const;
    void addNoise(AVFrame& picture, int frame) const;

    const Scene m_scene;
    SurfacePtr m_backdrop;
    SurfacePtr m_canvas;
    std::vector<int8_t> m_noise;
    const std::unique_ptr<SwsContext, FreeScaler> m_scaler;
};

/** Draws what stands still on the plaza, the size of the scene. */
void drawPlazaBackdrop(cairo_t* cairo, const Scene& scene);

/** Draws what stands still in a yard or beside a road, the size of the scene. */
void drawTrialBackdrop(cairo_t* cairo, const Scene& scene);

/** Draws a figure in its box. */
void drawFigure(cairo_t* cairo, const SceneFigure& figure, const FigurePose& pose);

void setColour(cairo_t* cairo, Colour colour, double opacity = 1.0);

}  // namespace desktop

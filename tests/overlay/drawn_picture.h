#pragma once

#include <algorithm>
#include <cairo.h>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "this_build.h"

/** An ARGB32 picture to draw on, transparent at first. */
class DrawnPicture {
public:
    DrawnPicture(int width, int height)
        : m_surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height)),
          m_context(cairo_create(m_surface.get())) {}

    cairo_t* context() const { return m_context.get(); }
    int width() const { return cairo_image_surface_get_width(m_surface.get()); }
    int height() const { return cairo_image_surface_get_height(m_surface.get()); }

    /** Puts a picture under what is drawn from now on: as many pixels as this has. */
    void fill(const std::vector<uint32_t>& frame) const {
        cairo_surface_flush(m_surface.get());
        for (int y = 0; y < height(); ++y) {
            std::copy_n(frame.begin() + static_cast<ptrdiff_t>(y) * width(), width(),
                        const_cast<uint32_t*>(rowOf(m_surface.get(), y)));
        }
        cairo_surface_mark_dirty(m_surface.get());
    }

    /** 0xAARRGGBB. */
    uint32_t at(int x, int y) const {
        EXPECT_TRUE(x >= 0 && x < width() && y >= 0 && y < height()) << x << ", " << y;
        return rowOf(m_surface.get(), y)[x];
    }

    /** The colour, 0xffRRGGBB, with which a pixel was covered, wholly or in part; 0 where nothing was drawn. */
    uint32_t colorAt(int x, int y) const {
        const uint32_t alpha = at(x, y) >> 24U;
        uint32_t color = alpha == 0 ? 0 : 0xff000000U;
        for (unsigned shift = 0; alpha != 0 && shift < 24; shift += 8) {
            color |= ((((at(x, y) >> shift) & 0xffU) * 255 + alpha / 2) / alpha) << shift;
        }
        return color;
    }

    /** How many pixels of a part, both ends included, something was drawn on. */
    int drawnIn(int x0, int y0, int x1, int y1) const {
        int drawn = 0;
        for (int y = std::max(0, y0); y <= std::min(y1, height() - 1); ++y) {
            for (int x = std::max(0, x0); x <= std::min(x1, width() - 1); ++x) {
                drawn += at(x, y) != 0 ? 1 : 0;
            }
        }
        return drawn;
    }
    int drawn() const { return drawnIn(0, 0, width() - 1, height() - 1); }

    std::vector<uint32_t> pixels() const {
        std::vector<uint32_t> all;
        for (int y = 0; y < height(); ++y) {
            const uint32_t* const row = rowOf(m_surface.get(), y);
            all.insert(all.end(), row, row + width());
        }
        return all;
    }

    /** By how much the component that differs most does. */
    static int distance(uint32_t a, uint32_t b) {
        int largest = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            largest = std::max(
                largest, std::abs(static_cast<int>((a >> shift) & 0xffU) - static_cast<int>((b >> shift) & 0xffU)));
        }
        return largest;
    }

    void writePng(const std::filesystem::path& path) const {
        EXPECT_EQ(cairo_surface_write_to_png(m_surface.get(), path.c_str()), CAIRO_STATUS_SUCCESS) << path;
    }

    /**
     * Holds this against a picture in the tree: none of the colours' components may differ by more than 48 of 255 in
     * more than two pixels of a thousand of those drawn on, which lets pass what another version of a font or of cairo
     * does to the edges of letters, and nothing that an eye would see. The picture as it came is left in the build's
     * folder of pictures when it does not fit. SENVO_WRITE_PICTURES=1 writes the tree's pictures anew; look at them
     * before you commit.
     */
    void expectLike(const std::string& name) const {
        const std::filesystem::path reference = this_build::checkout() / "tests/overlay/pictures" / (name + ".png");
        if (std::getenv("SENVO_WRITE_PICTURES") != nullptr) {
            writePng(reference);
        }
        const Surface expected(cairo_image_surface_create_from_png(reference.c_str()));
        ASSERT_EQ(cairo_surface_status(expected.get()), CAIRO_STATUS_SUCCESS) << reference;
        ASSERT_EQ(cairo_image_surface_get_width(expected.get()), width());
        ASSERT_EQ(cairo_image_surface_get_height(expected.get()), height());
        int different = 0;
        int total = 0;
        for (int y = 0; y < height(); ++y) {
            for (int x = 0; x < width(); ++x) {
                const uint32_t wanted = rowOf(expected.get(), y)[x];
                total += wanted != 0 || at(x, y) != 0 ? 1 : 0;
                different += distance(wanted, at(x, y)) > 48 ? 1 : 0;
            }
        }
        EXPECT_GT(total, 0) << "an empty picture proves nothing";
        EXPECT_LE(different * 1000, total * 2) << different << " of " << total << " pixels differ";
        if (different * 1000 > total * 2) {
            writePng(this_build::folder() / "pictures" / (name + "-as-it-came.png"));
        }
    }

private:
    struct Destroy {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };
    using Surface = std::unique_ptr<cairo_surface_t, Destroy>;

    static const uint32_t* rowOf(cairo_surface_t* surface, int y) {
        cairo_surface_flush(surface);
        return reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(surface) +
                                                 static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(surface));
    }

    Surface m_surface;
    std::unique_ptr<cairo_t, Destroy> m_context;
};

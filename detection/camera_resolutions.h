#pragma once

#include <cstdint>
#include <set>
#include <string>

/** The size of a stream in pixels. */
struct Resolution {
    uint32_t width = 0;
    uint32_t height = 0;
    bool operator==(const Resolution&) const = default;
    /** By width, then by height. */
    bool operator<(const Resolution& other) const {
        return width != other.width ? width < other.width : height < other.height;
    }
};

/** Every size that any of the camera's video channels offers; empty, logged, when the channels cannot be listed. */
std::set<Resolution> getCameraResolutions();

/** The same as text, "640x360,1280x720,", for the page's choices. */
std::string getCamerasResolutionsAsCsv();

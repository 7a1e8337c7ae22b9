#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "desktop/inference/detections/detections.h"

namespace desktop {

/** Something that finds objects in pictures. An engine is used by one thread at a time. */
class Engine {
public:
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    Engine(Engine&&) = delete;
    Engine& operator=(Engine&&) = delete;
    virtual ~Engine() = default;

    /**
     * Returns the objects in a picture (8-bit RGB, of the card's tensor size). Pictures are expected in the order of
     * time, one per cycle. Throws std::exception when the picture cannot be worked on.
     */
    virtual std::vector<Detection> detect(const cv::Mat& rgb) = 0;

    /** What the last picture shows besides, of which it is not sure yet whether it is an object. */
    virtual std::vector<Detection> unconfirmed() const { return {}; }
};

}  // namespace desktop

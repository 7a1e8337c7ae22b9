#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "desktop/inference/layouts/output_layout.h"

/**
 * Model cards: small JSON files that stand where a camera has its compiled model.
 *
 * A card names an engine, the size of the picture the application writes, and what that engine needs. Every key is
 * declared here, with its default and its effect; a key that is not is refused, so that a typing error is found.
 */
namespace desktop {

/** How a picture is brought to the network's input size. */
enum class Fit {
    Stretch,   /**< scaled to the input size, whatever that does to the shapes */
    Letterbox, /**< scaled with its shape kept, centred, the rest filled with grey */
};

/** "network", "input", "decoder", "classes", "threshold" and "nms" of a card for the engine opencv-dnn. */
struct NetworkCard {
    std::vector<std::string> files;        /**< "network": absolute, or relative to the desktop's folder of networks */
    int width = 0;                         /**< "input"."width": pixels; needed */
    int height = 0;                        /**< "input"."height": pixels; needed */
    bool swapToBgr = false;                /**< "input"."order": "RGB" (default) or "BGR" */
    double scale = 1.0 / 255;              /**< "input"."scale": a value v enters the network as (v - mean) * scale */
    std::array<double, 3> mean{};          /**< "input"."mean": one per channel, in the network's order */
    Fit fit = Fit::Stretch;                /**< "input"."fit": "stretch" (default) or "letterbox" */
    const OutputLayout* decoder = nullptr; /**< "decoder": needed */
    std::map<int, ObjectClass> classes;    /**< "classes": index in the network to our name; others are dropped */
    float threshold = 0.05F;               /**< "threshold": lowest score handed on; the application has its own */
    float sensitivity = 0.35F;             /**< "sensitivity": its own score that fits; handed on as 0.35 */
    int tiles = 1;        /**< "tiles": n x n pieces of the picture are looked at as well as the whole */
    float overlap = 0.5F; /**< "nms": of boxes of a class that overlap more, only the best stays */
};

/** "motion" of a card for the engine motion. */
struct MotionCard {
    /**
     * "contrast": how far, in grey levels of 255, something must stand out from the background. Lower finds pale
     * objects and more noise; higher misses clothes that resemble the floor.
     */
    double contrast = 18;

    /** "smallestArea": objects that cover a smaller fraction of the picture are ignored. Raise against foliage. */
    double smallestArea = 0.003;

    /**
     * "absorbCycles": an object that stands still becomes background after so many cycles. Lower forgets parked
     * vehicles sooner; higher keeps people at rest longer.
     */
    int absorbCycles = 3000;

    /** "shadows": whether darker regions of unchanged colour and texture are taken for shadows and ignored. */
    bool ignoreShadows = true;

    /** "classes": what may appear before this camera, as far as it is counted; empty: whatever is counted. */
    std::vector<ObjectClass> classes;
};

enum class EngineKind {
    OpencvDnn, /**< "opencv-dnn" */
    Motion,    /**< "motion" */
};

struct ModelCard {
    std::string name;                       /**< "name": for messages */
    EngineKind engine = EngineKind::Motion; /**< "engine": needed */
    int tensorWidth = 960;                  /**< "tensor"."width": pixels of the picture the application writes */
    int tensorHeight = 540;                 /**< "tensor"."height" */
    bool steady = true;                     /**< "steady": whether what is found is steadied before it is handed on */
    NetworkCard network;                    /**< for opencv-dnn */
    MotionCard motion;                      /**< for motion */
};

/** Reads a card. Throws std::runtime_error that names the key, what was expected and what came. */
ModelCard parseModelCard(const std::string& json);

}  // namespace desktop

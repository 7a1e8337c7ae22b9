#pragma once

#include <map>
#include <string>
#include <vector>

#include "desktop/inference/detections/detections.h"
#include "random.h"
#include "walkers.h"

/** A detector that sees objects as real ones do: now and then, roughly, and sometimes what is not there. */
namespace accuracy {

struct Noise {
    std::string name;
    double missed = 0;    /**< share of an object's pictures in which it is not found */
    int longestBurst = 1; /**< pictures in a row in which it is not found; evenly from 1 up to this */
    double jitter = 0;    /**< deviation of a box's place, and half of it that of its size, in its height */
    double merged = 0;    /**< share of pictures in which an object and one that it touches are one box */
    double split = 0;     /**< share of pictures in which an object is two boxes, one above the other */
    double flipped = 0;   /**< share of pictures in which its class is another */
    double invented = 0;  /**< boxes of nothing in a picture */
};

/** "good", "typical" and "bad". */
const std::vector<Noise>& noiseLevels();

class NoisyEye {
public:
    NoisyEye(const Noise& noise, const Scene& scene, uint64_t seed);

    /** What is found in the next picture of the scene. */
    std::vector<desktop::Detection> look(const std::vector<TrueObject>& objects);

private:
    bool seen(int id);
    void invent(std::vector<desktop::Detection>& found);
    desktop::Detection jittered(const TrueObject& object);

    const Noise m_noise;
    const double m_pillarLeft;
    const double m_pillarRight;
    const desktop::ObjectClass m_usual;
    Random m_random;
    std::map<int, int> m_hidden; /**< pictures for which an object stays unseen */
};

}  // namespace accuracy

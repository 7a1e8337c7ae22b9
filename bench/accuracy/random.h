#pragma once

#include <cmath>
#include <cstdint>

/** Random numbers that are the same for a seed on every machine, which the standard's distributions are not. */
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed * 0x9E3779B97F4A7C15ULL + 1) {}

    /** Evenly from 0 up to, but not with, 1. */
    double uniform() {
        // SplitMix64 (Steele, Lea, Flood: Fast splittable pseudorandom number generators, OOPSLA 2014).
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27U)) * 0x94D049BB133111EBULL;
        return static_cast<double>((z ^ (z >> 31U)) >> 11U) * 0x1.0p-53;
    }

    double between(double low, double high) { return low + (high - low) * uniform(); }

    /** Evenly from low to high, both included. */
    int whole(int low, int high) { return low + static_cast<int>(uniform() * (high - low + 1)); }

    bool happens(double probability) { return uniform() < probability; }

    /** With mean 0 and deviation 1 (Box and Muller, 1958). */
    double normal() {
        return std::sqrt(-2 * std::log(1 - uniform())) * std::cos(2 * 3.14159265358979323846 * uniform());
    }

private:
    uint64_t m_state;
};

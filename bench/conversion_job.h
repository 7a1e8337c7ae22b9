#pragma once

#include <cstdint>
#include <utility>
#include <vector>

/** A picture to be made into a network's input: the middle part that has its shape, scaled to its size. */
struct ConversionJob {
    unsigned width;
    unsigned height;
    unsigned modelWidth;
    unsigned modelHeight;
    std::vector<uint8_t> frame;
    std::vector<uint8_t> rgb;

    int cropWidth() const { return static_cast<int>(crop().first); }
    int cropHeight() const { return static_cast<int>(crop().second); }
    int left() const { return static_cast<int>((width - static_cast<unsigned>(crop().first)) >> 1); }
    int top() const { return static_cast<int>((height - static_cast<unsigned>(crop().second)) >> 1); }

private:
    std::pair<double, double> crop() const {
        const double ratio = static_cast<double>(modelWidth) / modelHeight;
        return width / ratio > height ? std::pair(height * ratio, static_cast<double>(height))
                                      : std::pair(static_cast<double>(width), width / ratio);
    }
};

/** The steps one after the other over whole pictures: converts all, crops, scales, repacks. What others are held to. */
void convertLiterally(ConversionJob& job);

#pragma once

#include <map>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "desktop/inference/engine/model_card.h"

/**
 * Readers of network outputs. C is the number of the network's classes, N the number of its candidates.
 *
 * | decoder      | outputs         | a candidate                                                                    |
 * |--------------|-----------------|--------------------------------------------------------------------------------|
 * | yolo-darknet | any number, NxK | K = 5+C: cx, cy, w, h in fractions, objectness, class scores (final)           |
 * | yolov5       | 1xNxK           | K = 5+C: cx, cy, w, h in pixels, objectness, class scores to be multiplied     |
 * | yolov8       | 1xKxN           | K = 4+C: cx, cy, w, h in pixels, class scores (final)                          |
 * | yolox        | 1xNxK           | as yolov5, but the box relative to its cell in grids of stride 8, 16, 32       |
 * | ssd          | 1x1xNx7         | picture, class, score, left, top, right, bottom in fractions                   |
 * | fastestdet   | 1xKxHxW         | K = 5+C, one per cell: objectness, box relative to the cell, class scores      |
 */
namespace desktop {

/**
 * Checks that a network's outputs have the decoder's layout and know class highestClass. Throws std::runtime_error
 * naming the shape that was expected and the one that came.
 */
void checkOutputs(Decoder decoder, const std::vector<cv::Mat>& outputs, cv::Size input, int highestClass);

/**
 * Returns the candidates whose best class is one of classes and whose score is at least threshold; boxes are in
 * fractions of the network's input. The outputs must have passed checkOutputs.
 */
std::vector<Detection> decodeOutputs(Decoder decoder, const std::vector<cv::Mat>& outputs, cv::Size input,
                                     const std::map<int, ObjectClass>& classes, float threshold);

}  // namespace desktop

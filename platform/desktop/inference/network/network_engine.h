#pragma once

#include <opencv2/dnn/dnn.hpp>
#include <string>
#include <vector>

#include "desktop/inference/engine/engine.h"
#include "desktop/inference/engine/model_card.h"
#include "desktop/inference/network/blind_watch.h"

namespace desktop {

/** A network's own score on the scale on which every network's fitting score is the settings' default, 0.35. */
float fittedScore(float score, float fitting);

/**
 * The parts of a picture in which tiles x tiles overlapping pieces are looked at one by one; with 1 tile the whole
 * alone.
 */
std::vector<cv::Rect> tilesOf(cv::Size picture, int tiles);

/** Runs a neural network with OpenCV on the processor. */
class NetworkEngine : public Engine {
public:
    /**
     * Loads the network and tries it on a blank picture. Throws std::runtime_error when a file is missing or not
     * readable as a network, or when its outputs are not what the card's decoder reads.
     */
    explicit NetworkEngine(const ModelCard& card);

    std::vector<Detection> detect(const cv::Mat& rgb) override;

private:
    void forward(const cv::Mat& rgb);
    std::vector<Detection> detectIn(const cv::Mat& rgb);
    std::vector<Detection> detectInTiles(const cv::Mat& rgb);
    void warnWhenBlind(const cv::Mat& rgb, bool found);

    std::string m_name;
    NetworkCard m_card;
    cv::dnn::Net m_net;
    std::vector<std::string> m_outputNames;
    cv::Mat m_fitted; /**< the picture at the network's input size */
    cv::Mat m_blob;
    std::vector<cv::Mat> m_outputs;
    BlindWatch m_watch;
};

}  // namespace desktop

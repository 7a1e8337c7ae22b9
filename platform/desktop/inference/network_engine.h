#pragma once

#include <opencv2/dnn/dnn.hpp>
#include <string>
#include <vector>

#include "engine.h"

namespace desktop {

/** Runs a neural network with OpenCV on the processor. */
class NetworkEngine : public Engine {
public:
    /**
     * Loads the network and tries it on a blank picture. Throws std::runtime_error when a file is missing or not
     * readable as a network, or when its outputs are not what the card's decoder reads.
     */
    explicit NetworkEngine(const NetworkCard& card);

    std::vector<Detection> detect(const cv::Mat& rgb) override;

private:
    void forward(const cv::Mat& rgb);

    NetworkCard m_card;
    cv::dnn::Net m_net;
    std::vector<std::string> m_outputNames;
    cv::Mat m_fitted; /**< the picture at the network's input size */
    cv::Mat m_blob;
    std::vector<cv::Mat> m_outputs;
};

}  // namespace desktop

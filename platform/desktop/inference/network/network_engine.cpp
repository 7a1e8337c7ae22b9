#include "desktop/inference/network/network_engine.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "desktop/config/desktop_config.h"
#include "desktop/inference/layouts/output_layout.h"

namespace desktop {
namespace {

/** Where the picture lies in the network's input, in input pixels. */
cv::Rect pictureInInput(cv::Size picture, const NetworkCard& card) {
    if (card.fit == Fit::Stretch) {
        return {0, 0, card.width, card.height};
    }
    const double factor =
        std::min(static_cast<double>(card.width) / picture.width, static_cast<double>(card.height) / picture.height);
    const int width = std::max(1, static_cast<int>(std::lround(picture.width * factor)));
    const int height = std::max(1, static_cast<int>(std::lround(picture.height * factor)));
    return {(card.width - width) / 2, (card.height - height) / 2, width, height};
}

std::string findNetworkFile(const std::string& file) {
    const std::filesystem::path path = std::filesystem::path(desktopConfig().networksFolder) / file;
    if (!std::filesystem::is_regular_file(path)) {
        throw std::runtime_error("\"network\": expected a file " + path.string() + ", which is not there");
    }
    return path.string();
}

cv::dnn::Net readNetwork(const std::vector<std::string>& files) {
    const std::string first = findNetworkFile(files.front());
    const std::string second = files.size() > 1 ? findNetworkFile(files[1]) : "";
    try {
        cv::dnn::Net net = cv::dnn::readNet(first, second);
        if (net.empty()) {
            throw std::runtime_error("the file holds no layers");
        }
        return net;
    } catch (const std::exception& error) {
        throw std::runtime_error("\"network\": expected a network in " + first + (second.empty() ? "" : " and ") +
                                 second + ", got " + error.what());
    }
}

}  // namespace

float fittedScore(float score, float fitting) {
    constexpr float kDefault = 0.35F;  // of the setting
    if (score <= fitting) {
        return score * kDefault / fitting;
    }
    return kDefault + (score - fitting) * (1 - kDefault) / (1 - fitting);
}

std::vector<cv::Rect> tilesOf(cv::Size picture, int tiles) {
    constexpr double kOverlap = 0.25;  // of a tile: what one cuts another shows whole
    const double parts = tiles - (tiles - 1) * kOverlap;
    const int width = static_cast<int>(std::ceil(picture.width / parts));
    const int height = static_cast<int>(std::ceil(picture.height / parts));
    std::vector<cv::Rect> places;
    for (int row = 0; row < tiles; ++row) {
        for (int column = 0; column < tiles; ++column) {
            const int steps = std::max(1, tiles - 1);
            places.emplace_back((picture.width - width) * column / steps, (picture.height - height) * row / steps,
                                width, height);
        }
    }
    return places;
}

NetworkEngine::NetworkEngine(const ModelCard& card)
    : m_name(card.name),
      m_card(card.network),
      m_net(readNetwork(m_card.files)),
      m_outputNames(m_net.getUnconnectedOutLayersNames()) {
    m_net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    m_net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    try {
        forward(cv::Mat::zeros(m_card.height, m_card.width, CV_8UC3));
    } catch (const cv::Exception& error) {
        throw std::runtime_error("\"input\": expected a size that the network takes, got " +
                                 std::to_string(m_card.width) + "x" + std::to_string(m_card.height) + ": " +
                                 error.what());
    }
    checkOutputs(*m_card.decoder, m_outputs, {m_card.width, m_card.height}, m_card.classes.rbegin()->first);
}

void NetworkEngine::forward(const cv::Mat& rgb) {
    const cv::Rect place = pictureInInput(rgb.size(), m_card);
    constexpr double kLetterboxGrey = 114;  // what the networks that letterbox are trained with
    m_fitted.create(m_card.height, m_card.width, CV_8UC3);
    if (place.size() != m_fitted.size()) {
        m_fitted.setTo(cv::Scalar::all(kLetterboxGrey));
    }
    cv::Mat window = m_fitted(place);
    cv::resize(rgb, window, place.size(), 0, 0, cv::INTER_LINEAR);
    cv::dnn::blobFromImage(m_fitted, m_blob, m_card.scale, {}, {m_card.mean[0], m_card.mean[1], m_card.mean[2]},
                           m_card.swapToBgr, false, CV_32F);
    m_net.setInput(m_blob);
    m_net.forward(m_outputs, m_outputNames);
}

std::vector<Detection> NetworkEngine::detect(const cv::Mat& rgb) {
    std::vector<Detection> found = detectIn(rgb);
    if (m_card.tiles > 1) {
        const std::vector<Detection> small = detectInTiles(rgb);
        found.insert(found.end(), small.begin(), small.end());
    }
    keepBestPerObject(found, m_card.overlap);
    constexpr float kSurely = 0.35F;
    warnWhenBlind(rgb, !found.empty() && found.front().score > kSurely);
    return found;
}

void NetworkEngine::warnWhenBlind(const cv::Mat& rgb, bool found) {
    if (m_watch.noticesBlindness(rgb, found, nowMicros())) {
        std::cerr
            << "senvo: " + m_name +
                   " has seen nothing for a minute though the picture moves: are \"input\" and \"decoder\" of its "
                   "model card (order, mean, scale, fit) those that it was trained with?\n"
            << std::flush;
    }
}

/** What the tiles show whole; what a tile's border cuts is left to its neighbour, or to the whole picture. */
std::vector<Detection> NetworkEngine::detectInTiles(const cv::Mat& rgb) {
    std::vector<Detection> found;
    const auto width = static_cast<float>(rgb.cols);
    const auto height = static_cast<float>(rgb.rows);
    for (const cv::Rect& tile : tilesOf(rgb.size(), m_card.tiles)) {
        for (Detection detection : detectIn(rgb(tile))) {
            constexpr float kRim = 0.01F;
            const bool cut = (detection.left < kRim && tile.x > 0) || (detection.top < kRim && tile.y > 0) ||
                             (detection.right > 1 - kRim && tile.br().x < rgb.cols) ||
                             (detection.bottom > 1 - kRim && tile.br().y < rgb.rows);
            if (cut) {
                continue;
            }
            const auto across = [&](float x) {
                return (static_cast<float>(tile.x) + x * static_cast<float>(tile.width)) / width;
            };
            const auto down = [&](float y) {
                return (static_cast<float>(tile.y) + y * static_cast<float>(tile.height)) / height;
            };
            detection.left = across(detection.left);
            detection.right = across(detection.right);
            detection.top = down(detection.top);
            detection.bottom = down(detection.bottom);
            found.push_back(detection);
        }
    }
    return found;
}

std::vector<Detection> NetworkEngine::detectIn(const cv::Mat& rgb) {
    forward(rgb);
    std::vector<Detection> found =
        decodeOutputs(*m_card.decoder, m_outputs, {m_card.width, m_card.height}, m_card.classes, m_card.threshold);
    const cv::Rect place = pictureInInput(rgb.size(), m_card);
    const auto horizontal = [&](float x) {
        return (x * static_cast<float>(m_card.width) - static_cast<float>(place.x)) / static_cast<float>(place.width);
    };
    const auto vertical = [&](float y) {
        return (y * static_cast<float>(m_card.height) - static_cast<float>(place.y)) / static_cast<float>(place.height);
    };
    for (Detection& detection : found) {
        detection.left = horizontal(detection.left);
        detection.right = horizontal(detection.right);
        detection.top = vertical(detection.top);
        detection.bottom = vertical(detection.bottom);
        detection.score = fittedScore(detection.score, m_card.sensitivity);
    }
    return found;
}

}  // namespace desktop

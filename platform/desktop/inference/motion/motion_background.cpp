// The background of a fixed camera.
//
// Idea: every pixel has a mean colour and a noise level. Before the comparison, the exposure of the new picture (gain
// and offset of brightness, shift of colour) is fitted robustly to all pixels that showed background last time, so that
// an automatic exposure that reacts to a white car does not turn the whole street into an object. A pixel is learned
// only while no tracked object covers it: an object at rest stays an object for as long as its track wants.
//
// Shadows and lamps scale the brightness of a surface and leave its texture and colour: where the ratio of picture to
// expected picture is locally constant, not extreme, and the colour is unchanged, the change is one of light. Plain
// surfaces of objects can look the same; the joining of fragments puts those back (motion_blobs).
//
// What the first pictures show may be an object and not the background. So each pixel also remembers the colour that
// covers it most of late (by majority vote: Boyer and Moore, "MJRTY", 1981), and how often it saw either. A colour that
// was seen more often than the background becomes the background, unless it belongs to an object that is known to have
// come and to rest there.
//
// Limits: a total change (lamps switched, camera moved) is taken as a new background once most of the picture differs;
// objects in the picture at that moment are learned with it and heal like any ghost.
//
// To tune: "contrast" on the card is the grey-level difference of a strong change; colour counts with half of it.

#include "desktop/inference/motion/motion_background.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace desktop {
namespace {

constexpr double kWeakPart = 0.55;        // a weak change is this part of a strong one
constexpr double kChromaContrast = 0.55;  // contrast of colour compared with that of brightness
constexpr float kNoiseMultiple = 4.5F;
constexpr float kLearnRate = 1.0F / 24;
constexpr float kDisturbedRate = 1.0F / 50;  // where something differs that no track accounts for
constexpr double kExposureRate = 0.05;
constexpr int kTotalChangeCycles = 3;
constexpr double kTotalChangePart = 0.6;
constexpr int kSampleStep = 4;

float medianOf(std::vector<float>& values, float fallback) {
    if (values.empty()) {
        return fallback;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

MotionBackground::MotionBackground(const MotionCard& card) : m_card(card) {}

void MotionBackground::start(const cv::Mat& picture) {
    picture.convertTo(m_mean, CV_32F);
    m_noise.create(picture.size(), CV_32FC2);
    m_noise.setTo(cv::Scalar::all(2));
    m_evidence.create(picture.size(), CV_8U);
    m_evidence.setTo(kBackground);
    m_support = cv::Mat::ones(picture.size(), CV_32F);
    m_mean.copyTo(m_alternative);
    m_alternativeSupport = cv::Mat::zeros(picture.size(), CV_32F);
    m_cycles = 0;
    m_totalChangeCycles = 0;
}

void MotionBackground::compare(const cv::Mat& picture, int margin) {
    if (m_mean.size() != picture.size()) {
        start(picture);
    }
    picture.copyTo(m_picture);
    fitExposure(picture);
    predict(picture);
    classify();
    const cv::Rect shown(margin, margin, std::max(0, picture.cols - 2 * margin),
                         std::max(0, picture.rows - 2 * margin));
    for (const cv::Rect& rim :
         {cv::Rect(0, 0, picture.cols, shown.y), cv::Rect(0, shown.br().y, picture.cols, margin),
          cv::Rect(0, 0, shown.x, picture.rows), cv::Rect(shown.br().x, 0, margin, picture.rows)}) {
        m_evidence(rim).setTo(kBackground);
    }
    noticeTotalChange();
}

void MotionBackground::fitExposure(const cv::Mat& picture) {
    struct Sample {
        double expected;
        double came;
    };
    std::vector<Sample> samples;
    std::vector<float> cr;
    std::vector<float> cb;
    m_scratch.clear();
    for (int y = kSampleStep / 2; y < picture.rows; y += kSampleStep) {
        const auto* mean = m_mean.ptr<cv::Vec3f>(y);
        const auto* came = picture.ptr<cv::Vec3b>(y);
        const auto* evidence = m_evidence.ptr<unsigned char>(y);
        for (int x = kSampleStep / 2; x < picture.cols; x += kSampleStep) {
            // clipped pixels follow no exposure
            if (evidence[x] >= kWeakChange || mean[x][0] > 245 || came[x][0] > 250 || mean[x][0] < 6) {
                continue;
            }
            samples.push_back({static_cast<double>(mean[x][0]), static_cast<double>(came[x][0])});
            m_scratch.push_back(static_cast<float>(came[x][0]) / mean[x][0]);
            cr.push_back(static_cast<float>(came[x][1]) - mean[x][1]);
            cb.push_back(static_cast<float>(came[x][2]) - mean[x][2]);
        }
    }
    constexpr size_t kFewestSamples = 100;
    if (samples.size() < kFewestSamples) {
        return;  // nearly all is covered: the last exposure is the best guess
    }
    // further than this goes no white balance: the scene has another colour
    constexpr double kLargestShift = 20;
    m_crShift = std::clamp(static_cast<double>(medianOf(cr, 0)), -kLargestShift, kLargestShift);
    m_cbShift = std::clamp(static_cast<double>(medianOf(cb, 0)), -kLargestShift, kLargestShift);
    m_gain = static_cast<double>(medianOf(m_scratch, 1));
    m_offset = 0;
    // An offset is only believed where a range of brightnesses calls for one.
    constexpr double kOffsetReluctance = 0.002;
    constexpr double kOutlier = 6;
    for (int round = 0; round < 4; ++round) {
        double w = 0;
        double wx = 0;
        double wxx = 0;
        double wy = 0;
        double wxy = 0;
        for (const Sample& s : samples) {
            const double residual = (m_gain * s.expected + m_offset - s.came) / kOutlier;
            const double weight = 1 / (1 + residual * residual) / (1 + residual * residual);
            w += weight;
            wx += weight * s.expected;
            wxx += weight * s.expected * s.expected;
            wy += weight * s.came;
            wxy += weight * s.expected * s.came;
        }
        const double reluctantW = w * (1 + kOffsetReluctance);
        const double determinant = wxx * reluctantW - wx * wx;
        if (determinant <= 0) {
            break;
        }
        m_gain = (wxy * reluctantW - wx * wy) / determinant;
        m_offset = (wxx * wy - wx * wxy) / determinant;
    }
    m_gain = std::clamp(m_gain, 0.2, 5.0);
}

void MotionBackground::predict(const cv::Mat& picture) {
    m_expected.create(picture.size(), CV_32FC3);
    m_change.create(picture.size(), CV_32F);
    m_chroma.create(picture.size(), CV_32F);
    m_ratio.create(picture.size(), CV_32F);
    const auto gain = static_cast<float>(m_gain);
    const auto offset = static_cast<float>(m_offset);
    const auto crShift = static_cast<float>(m_crShift);
    const auto cbShift = static_cast<float>(m_cbShift);
    const auto contrast = static_cast<float>(m_card.contrast);
    const float chromaContrast = contrast * static_cast<float>(kChromaContrast);
    for (int y = 0; y < picture.rows; ++y) {
        const auto* mean = m_mean.ptr<cv::Vec3f>(y);
        const auto* noise = m_noise.ptr<cv::Vec2f>(y);
        const auto* came = picture.ptr<cv::Vec3b>(y);
        auto* expected = m_expected.ptr<cv::Vec3f>(y);
        auto* change = m_change.ptr<float>(y);
        auto* chroma = m_chroma.ptr<float>(y);
        auto* ratio = m_ratio.ptr<float>(y);
        for (int x = 0; x < picture.cols; ++x) {
            const float brightness = std::clamp(gain * mean[x][0] + offset, 0.0F, 255.0F);
            expected[x] = {brightness, mean[x][1] + crShift, mean[x][2] + cbShift};
            const float cr = std::abs(static_cast<float>(came[x][1]) - expected[x][1]);
            const float cb = std::abs(static_cast<float>(came[x][2]) - expected[x][2]);
            const float difference = std::abs(static_cast<float>(came[x][0]) - brightness);
            // what a gain makes of the noise, and of the contrast of a picture that has become darker
            const float scale = std::clamp(gain, 0.5F, 1.5F);
            chroma[x] = std::max(cr, cb) / std::max(chromaContrast, noise[x][1] * kNoiseMultiple);
            change[x] = std::max(difference / std::max(contrast, noise[x][0] * scale * kNoiseMultiple), chroma[x]);
            ratio[x] = (static_cast<float>(came[x][0]) + 8) / (brightness + 8);
        }
    }
}

void MotionBackground::classify() {
    constexpr float kDarkestShadow = 0.4F;
    constexpr float kBrightestLamp = 1.4F;
    constexpr float kSmoothRatio = 0.035F;
    constexpr float kSameColour = 0.8F;
    const cv::Size window(5, 5);
    cv::boxFilter(m_ratio, m_ratioMean, CV_32F, window);
    cv::sqrBoxFilter(m_ratio, m_ratioSpread, CV_32F, window);
    for (int y = 0; y < m_change.rows; ++y) {
        const auto* change = m_change.ptr<float>(y);
        const auto* chroma = m_chroma.ptr<float>(y);
        const auto* ratio = m_ratioMean.ptr<float>(y);
        const auto* squares = m_ratioSpread.ptr<float>(y);
        auto* evidence = m_evidence.ptr<unsigned char>(y);
        for (int x = 0; x < m_change.cols; ++x) {
            if (change[x] < static_cast<float>(kWeakPart)) {
                evidence[x] = kBackground;
                continue;
            }
            const float variance = std::max(0.0F, squares[x] - ratio[x] * ratio[x]);
            const bool light = m_card.ignoreShadows && chroma[x] < kSameColour && ratio[x] > kDarkestShadow &&
                               ratio[x] < kBrightestLamp &&
                               variance < kSmoothRatio * kSmoothRatio * ratio[x] * ratio[x];
            evidence[x] = light ? kLightChange : (change[x] < 1 ? kWeakChange : kStrongChange);
        }
    }
}

void MotionBackground::noticeTotalChange() {
    int changed = 0;
    for (int y = 0; y < m_evidence.rows; ++y) {
        const auto* evidence = m_evidence.ptr<unsigned char>(y);
        changed += static_cast<int>(
            std::count_if(evidence, evidence + m_evidence.cols, [](unsigned char e) { return e >= kWeakChange; }));
    }
    if (changed < kTotalChangePart * static_cast<double>(m_evidence.total())) {
        m_totalChangeCycles = 0;
        return;
    }
    m_evidence.setTo(kBackground);
    if (++m_totalChangeCycles >= kTotalChangeCycles) {
        start(m_picture);
    }
}

void MotionBackground::learn(const cv::Mat& kept) {
    ++m_cycles;
    if (m_totalChangeCycles > 0) {
        return;
    }
    const auto gain = static_cast<float>(m_gain);
    const auto offset = static_cast<float>(m_offset);
    const auto crShift = static_cast<float>(m_crShift);
    const auto cbShift = static_cast<float>(m_cbShift);
    const auto follow = static_cast<float>(kExposureRate);
    const float calmRate = std::max(kLearnRate, 1.0F / static_cast<float>(m_cycles + 1));
    for (int y = 0; y < m_picture.rows; ++y) {
        auto* mean = m_mean.ptr<cv::Vec3f>(y);
        auto* noise = m_noise.ptr<cv::Vec2f>(y);
        const auto* came = m_picture.ptr<cv::Vec3b>(y);
        const auto* evidence = m_evidence.ptr<unsigned char>(y);
        const auto* keep = kept.ptr<unsigned char>(y);
        auto* support = m_support.ptr<float>(y);
        for (int x = 0; x < m_picture.cols; ++x) {
            const cv::Vec3f expected(std::clamp(gain * mean[x][0] + offset, 0.0F, 255.0F), mean[x][1] + crShift,
                                     mean[x][2] + cbShift);
            // everywhere, also beneath objects: the reference slowly takes on the present exposure
            mean[x] += follow * (expected - mean[x]);
            const cv::Vec3f deviation = cv::Vec3f(came[x]) - expected;
            if (evidence[x] == kBackground) {
                support[x] = std::min(support[x] + 1, static_cast<float>(m_card.absorbCycles));
            } else if (keep[x] != kHeldObject) {
                weighAlternative(y, x, mean[x] + cv::Vec3f(deviation[0] / gain, deviation[1], deviation[2]));
            }
            if (keep[x] != 0) {
                continue;
            }
            const float rate = evidence[x] == kBackground ? calmRate : kDisturbedRate;
            mean[x] += rate * deviation;
            constexpr float kLargestNoise = 14;
            const std::array<float, 2> disturbance = {std::abs(deviation[0]),
                                                      std::max(std::abs(deviation[1]), std::abs(deviation[2]))};
            for (int i = 0; i < 2; ++i) {
                noise[x][i] +=
                    std::max(kLearnRate / 2, calmRate / 2) * (disturbance[static_cast<size_t>(i)] - noise[x][i]);
                noise[x][i] = std::clamp(noise[x][i], 1.0F, kLargestNoise);
            }
        }
    }
}

void MotionBackground::weighAlternative(int y, int x, const cv::Vec3f& inReference) {
    constexpr float kFewest = 12;  // cycles
    auto& alternative = m_alternative.at<cv::Vec3f>(y, x);
    auto& seen = m_alternativeSupport.at<float>(y, x);
    auto& support = m_support.at<float>(y, x);
    const cv::Vec3f away = inReference - alternative;
    const double different = std::max({static_cast<double>(std::abs(away[0])) / m_card.contrast,
                                       static_cast<double>(std::abs(away[1])) / (m_card.contrast * kChromaContrast),
                                       static_cast<double>(std::abs(away[2])) / (m_card.contrast * kChromaContrast)});
    if (different < kWeakPart) {
        seen += 1;
        alternative += away / seen;
    } else if (seen >= 1) {
        seen -= 1;
    } else {
        seen = 1;
        alternative = inReference;
    }
    if (seen > std::max(kFewest, support)) {
        m_mean.at<cv::Vec3f>(y, x) = alternative;
        support = seen;
        seen = 0;
    }
}

void MotionBackground::replace(const cv::Mat& region, const cv::Rect& box) {
    cv::Mat current;
    m_picture(box).convertTo(current, CV_32F);
    // into the reference exposure, so that the next prediction gives this picture
    const auto gain = static_cast<float>(m_gain);
    for (int y = 0; y < box.height; ++y) {
        const auto* inside = region.ptr<unsigned char>(y);
        const auto* came = current.ptr<cv::Vec3f>(y);
        auto* mean = m_mean.ptr<cv::Vec3f>(box.y + y) + box.x;
        auto* evidence = m_evidence.ptr<unsigned char>(box.y + y) + box.x;
        for (int x = 0; x < box.width; ++x) {
            if (inside[x] != 0) {
                mean[x] = {(came[x][0] - static_cast<float>(m_offset)) / gain,
                           came[x][1] - static_cast<float>(m_crShift), came[x][2] - static_cast<float>(m_cbShift)};
                evidence[x] = kBackground;
                m_support.at<float>(box.y + y, box.x + x) = 1;
            }
        }
    }
}

}  // namespace desktop

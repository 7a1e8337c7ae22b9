#pragma once

#include <opencv2/core/mat.hpp>

#include "desktop/inference/engine/model_card.h"

namespace desktop {

/** What a pixel of the working picture shows, as compared with the background. */
enum PixelEvidence : unsigned char {
    kBackground = 0,
    kLightChange = 1, /**< the background, darker or brighter than expected: shadow, lamp, sun */
    kWeakChange = 2,  /**< something else, if stronger evidence is near */
    kStrongChange = 3,
};

/**
 * The picture without objects, as learned. Pictures are 8-bit Y, Cr, Cb at the working size, all of one size.
 * Call compare once per picture, then learn; replace may be called in between.
 */
class MotionBackground {
public:
    explicit MotionBackground(const MotionCard& card);

    /** The background under its reference exposure (CV_32FC3); empty before the first picture. */
    [[nodiscard]] const cv::Mat& mean() const { return m_mean; }

    /**
     * Compares a picture with what is expected under the picture's own exposure; the first one becomes the background.
     * The outermost margin pixels are not compared.
     */
    void compare(const cv::Mat& picture, int margin = 0);

    /** PixelEvidence of the last compared picture (CV_8U). Empty of evidence while everything changes at once. */
    [[nodiscard]] const cv::Mat& evidence() const { return m_evidence; }

    /** The background under the exposure of the last compared picture (CV_32FC3). */
    [[nodiscard]] const cv::Mat& expectedPicture() const { return m_expected; }

    /**
     * Learns from the last compared picture wherever kept (CV_8U) is zero. Where it is kLooseObject, a colour that
     * stays longer than the background was seen becomes the background; kHeldObject never does.
     */
    void learn(const cv::Mat& kept);

    static constexpr unsigned char kLooseObject = 128;
    static constexpr unsigned char kHeldObject = 255;

    /** Makes the last compared picture the background wherever region (CV_8U, at box) is not zero. */
    void replace(const cv::Mat& region, const cv::Rect& box);

private:
    void start(const cv::Mat& picture);
    void fitExposure(const cv::Mat& picture);
    void predict(const cv::Mat& picture);
    void classify();
    void noticeTotalChange();
    void weighAlternative(int y, int x, const cv::Vec3f& inReference);

    MotionCard m_card;
    int m_cycles = 0; /**< pictures learned from */
    int m_totalChangeCycles = 0;
    cv::Mat m_mean;               /**< CV_32FC3: Y, Cr, Cb under the reference exposure */
    cv::Mat m_noise;              /**< CV_32FC2: mean absolute deviation of brightness, of colour */
    cv::Mat m_support;            /**< CV_32F: cycles in which the background was seen */
    cv::Mat m_alternative;        /**< CV_32FC3: the colour that covers it most of late, under the reference exposure */
    cv::Mat m_alternativeSupport; /**< CV_32F: cycles in which that was seen, less those in which another was */
    cv::Mat m_picture;            /**< the last compared picture */
    cv::Mat m_expected;
    cv::Mat m_change; /**< CV_32F: deviation in multiples of what counts as strong */
    cv::Mat m_chroma; /**< CV_32F: deviation of colour alone, likewise */
    cv::Mat m_ratio;  /**< CV_32F: brightness over expected brightness */
    cv::Mat m_ratioMean;
    cv::Mat m_ratioSpread;
    cv::Mat m_evidence;
    double m_gain = 1; /**< the picture's exposure: Y = gain * mean + offset */
    double m_offset = 0;
    double m_crShift = 0;
    double m_cbShift = 0;
    std::vector<float> m_scratch;
};

}  // namespace desktop

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include "conversion_job.h"
#include "detection/imgconverter.h"
#include "real_frame.h"
#include "topics.h"

namespace {

void convertWithOpenCv(ConversionJob& job) {
    const int width = static_cast<int>(job.width);
    const int height = static_cast<int>(job.height);
    const cv::Mat nv12(height * 3 / 2, width, CV_8UC1, job.frame.data());
    cv::Mat whole;
    cv::cvtColor(nv12, whole, cv::COLOR_YUV2RGB_NV12);
    cv::Mat target(static_cast<int>(job.modelHeight), static_cast<int>(job.modelWidth), CV_8UC3, job.rgb.data());
    cv::resize(whole(cv::Rect(job.left(), job.top(), job.cropWidth(), job.cropHeight())), target, target.size(), 0, 0,
               cv::INTER_LINEAR);
}

/** swscale with its context made once, as a careful user would. */
class Swscale {
public:
    explicit Swscale(const ConversionJob& job)
        : m_context(sws_getContext(job.cropWidth(), job.cropHeight(), AV_PIX_FMT_NV12, static_cast<int>(job.modelWidth),
                                   static_cast<int>(job.modelHeight), AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr,
                                   nullptr),
                    sws_freeContext) {}

    void convert(ConversionJob& job) {
        const int width = static_cast<int>(job.width);
        const int left = job.left() & ~1;
        const uint8_t* const planes[] = {
            job.frame.data() + job.top() * width + left,
            job.frame.data() + size_t{job.width} * job.height + job.top() / 2 * width + left};
        const int strides[] = {width, width};
        uint8_t* const targets[] = {job.rgb.data()};
        const int targetStrides[] = {static_cast<int>(job.modelWidth) * 3};
        sws_scale(m_context.get(), planes, strides, 0, job.cropHeight(), targets, targetStrides);
    }

private:
    std::unique_ptr<SwsContext, decltype(&sws_freeContext)> m_context;
};

template <typename Convert>
void addVariant(const std::string& topic, const std::string& variant, const std::shared_ptr<ConversionJob>& job,
                Convert convert) {
    benchmark::RegisterBenchmark((topic + "/" + variant).c_str(), [job, convert](benchmark::State& state) {
        for (auto _ : state) {
            convert(*job);
            benchmark::ClobberMemory();
        }
    });
}

}  // namespace

std::vector<Limit> registerConversion() {
    struct Size {
        unsigned width;
        unsigned height;
        std::optional<double> most;
    };
    std::vector<Limit> limits;
    for (const Size& size :
         {Size{1280, 720, 0.65}, Size{1920, 1080, 0.65}, Size{640, 480, 0.65}, Size{3840, 2160, std::nullopt}}) {
        const std::string topic =
            "convert " + std::to_string(size.width) + "x" + std::to_string(size.height) + " to 960x540";
        const auto job = std::make_shared<ConversionJob>(ConversionJob{size.width, size.height, 960, 540,
                                                                       realFrame(size.width, size.height),
                                                                       std::vector<uint8_t>(size_t{960} * 540 * 3)});
        addVariant(topic, "literal", job, convertLiterally);
        addVariant(topic, "ours", job, [](ConversionJob& frame) {
            convertCropScaleU8yuvToRGB(frame.frame.data(), frame.width, frame.height, frame.rgb.data(),
                                       frame.modelWidth, frame.modelHeight);
        });
        addVariant(topic, "OpenCV", job, convertWithOpenCv);
        const auto swscale = std::make_shared<Swscale>(*job);
        addVariant(topic, "swscale", job, [swscale](ConversionJob& frame) { swscale->convert(frame); });
        limits.push_back({topic, "literal", "", std::nullopt});
        limits.push_back({topic, "ours", "literal", size.most});
        limits.push_back({topic, "OpenCV", "literal", std::nullopt});
        limits.push_back({topic, "swscale", "literal", std::nullopt});
    }
    return limits;
}

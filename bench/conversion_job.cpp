#include "conversion_job.h"

#include <cstdlib>
#include <libyuv.h>
#include <memory>

void convertLiterally(ConversionJob& job) {
    const int width = static_cast<int>(job.width);
    const int height = static_cast<int>(job.height);
    const int modelWidth = static_cast<int>(job.modelWidth);
    const int modelHeight = static_cast<int>(job.modelHeight);
    const std::unique_ptr<uint8_t, decltype(&free)> source(
        static_cast<uint8_t*>(malloc(size_t{job.width} * job.height * 4)), free);
    const std::unique_ptr<uint8_t, decltype(&free)> target(
        static_cast<uint8_t*>(malloc(size_t{job.modelWidth} * job.modelHeight * 4)), free);
    libyuv::NV12ToARGB(job.frame.data(), width, job.frame.data() + size_t{job.width} * job.height, width, source.get(),
                       width * 4, width, height);
    libyuv::ARGBScale(source.get() + job.left() * 4 + job.top() * width * 4, width * 4, job.cropWidth(),
                      job.cropHeight(), target.get(), modelWidth * 4, modelWidth, modelHeight, libyuv::kFilterBilinear);
    const uint8_t* argb = target.get();
    uint8_t* rgb = job.rgb.data();
    for (unsigned i = 0; i < job.modelWidth * job.modelHeight; ++i) {
        rgb[0] = argb[2];
        rgb[1] = argb[1];
        rgb[2] = argb[0];
        rgb += 3;
        argb += 4;
    }
}

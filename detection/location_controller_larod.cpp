#include "detection/location_controller_larod.h"

#include <cassert>

#include "base/camera_paths.h"
#include "detection/imgconverter.h"
#include "log/Logger.h"

namespace {

std::string sizeText(unsigned width, unsigned height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

bool location_controller_larod::init_larod(const std::string& appName, const std::string& modelFileName, int modelWidth,
                                           int modelHeight, int iterationTime, bool isPortrait) {
    m_IsPortrait = isPortrait;
    m_IterationTime = iterationTime > 0 ? iterationTime : kDefaultIterationTime;
    m_Model.release("init_larod: ");

    m_ModelWidth = isPortrait ? modelHeight : modelWidth;
    m_ModelHeight = isPortrait ? modelWidth : modelHeight;
    // The landscape size in either case: the video service does the turning.
    if (!m_Stream.open(modelWidth, modelHeight, isPortrait ? 90 : 0)) {
        applicationLog().error("init_larod: Failed to initialize video stream.");
        return false;
    }
    m_StreamWidth = m_Stream.width();
    m_StreamHeight = m_Stream.height();
    applicationLog().info("init_larod: " + modelFileName + ", Model " + std::to_string(m_ModelWidth) + "x" +
                          std::to_string(m_ModelHeight) + ", Stream " + sizeText(m_StreamWidth, m_StreamHeight));
    const std::string path = cameraPath("/mnt/flash/usr/local/packages/" + appName + "/" + modelFileName);
    if (!m_Model.load(path, modelFileName, m_ModelWidth, m_ModelHeight)) {
        return false;
    }
    applicationLog().info("init_larod: Start fetching video frames from VDO");
    return true;
}

int location_controller_larod::larod_prepare_data_and_do_ai() {
    std::string reason;
    const auto fail = [&reason](int result) {
        applicationLog().error("larod_prepare_data_and_do_ai: " + reason);
        return result;
    };
    VdoBuffer* const frame = m_Stream.newest(reason);
    if (frame == nullptr) {
        return fail(-1);
    }
    const auto* const pixels = static_cast<const uint8_t*>(vdo_buffer_get_data(frame));
    if (pixels == nullptr ||
        !convertCropScaleU8yuvToRGB(pixels, m_StreamWidth, m_StreamHeight, m_Model.input(),
                                    static_cast<unsigned>(m_ModelWidth), static_cast<unsigned>(m_ModelHeight))) {
        reason = "Failed img scale/convert in convertCropScaleU8yuvToRGB() (continue anyway)";
        fail(0);
    }
    if (!m_Model.run(reason) || !m_Stream.giveBack(frame, reason)) {
        return fail(1);
    }
    remove_anomalies();
    apply_non_maximum_suppression();
    return 0;
}

std::string location_controller_larod::getAnalysisResolution() const {
    return m_IsPortrait ? sizeText(m_StreamHeight, m_StreamWidth) : sizeText(m_StreamWidth, m_StreamHeight);
}

int location_controller_larod::remove_anomalies() {
    rejectAnomalies(m_Model.candidates(), limits());
    return 0;
}

int location_controller_larod::apply_non_maximum_suppression() {
    suppressNonMaxima(m_Model.candidates(), limits());
    return 0;
}

int location_controller_larod::lower_the_threshold_of_any_same_object_overlapping_this_one(int index) {
    rejectSameObjectsAs(index, m_Model.candidates(), limits());
    return 0;
}

namespace {

bool tell(bool isFound, const StreamChoice& best, unsigned int& width, unsigned int& height) {
    if (isFound) {
        width = best.width;
        height = best.height;
    }
    return isFound;
}

}  // namespace

bool location_controller_larod::find_smallest_containing_stream(int modelWidth, int modelHeight, AspectRatioType ratio,
                                                                unsigned int& width, unsigned int& height) const {
    StreamChoice best;
    return tell(findSmallestContaining(modelWidth, modelHeight, ratio, best), best, width, height);
}

bool location_controller_larod::find_largest_not_containing_stream(int modelWidth, int modelHeight,
                                                                   AspectRatioType ratio, unsigned int& width,
                                                                   unsigned int& height) const {
    StreamChoice best;
    return tell(findLargestNotContaining(modelWidth, modelHeight, ratio, best), best, width, height);
}

bool location_controller_larod::choose_resolution(unsigned int modelWidth, unsigned int modelHeight,
                                                  unsigned int* chosenWidth, unsigned int* chosenHeight) const {
    assert(chosenWidth != nullptr && "chosenWidth");
    assert(chosenHeight != nullptr && "chosenHeight");
    StreamChoice best;
    return tell(chooseResolution(modelWidth, modelHeight, best), best, *chosenWidth, *chosenHeight);
}

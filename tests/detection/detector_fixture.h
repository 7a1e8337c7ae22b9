#pragma once

#include <fstream>
#include <gtest/gtest.h>

#include "builders.h"
#include "detection/location_controller_larod.h"
#include "log_capture.h"
#include "scripted_platform.h"

/** A detector on a scripted camera that offers the model's own size, every class selected. */
class Detector : public testing::Test {
protected:
    Detector() {
        scripted::reset();
        std::ofstream(modelPath()) << "model";
    }

    std::string modelPath() const { return m_log.folder() / "mnt/flash/usr/local/packages/ostrel_senvo/model"; }

    bool init(int width, int height, bool portrait = false) {
        return m_detector.init_larod("ostrel_senvo", "model", width, height, 100, portrait);
    }

    LogCapture m_log;
    ConfigParams m_config = everyClass();
    location_controller_larod m_detector{m_config};
};

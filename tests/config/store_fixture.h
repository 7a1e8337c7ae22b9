#pragma once

#include <gtest/gtest.h>

#include "config/parameter_controller.h"
#include "log_capture.h"
#include "scripted_platform.h"

/** The binding to a scripted parameter store. */
class Store : public testing::Test {
protected:
    Store() { scripted::reset(); }

    /** Opens the store; what that logged and called is forgotten. */
    void open() {
        m_store.init_controller("ostrel_senvo");
        forget();
    }
    static void forget() {
        applicationLog().clear();
        scripted::parameterCalls().clear();
    }

    LogCapture m_log;
    ConfigParams m_config;
    parameter_controller m_store{m_config};
};

#pragma once

#include "running_camera.h"

/** One camera behind its web server, for all tests of a suite, which have a process to themselves. */
class CameraAndFront : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TestFolder;
        s_camera = new RunningCamera(s_folder->path());
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(s_camera->stop(), 0);
        delete s_camera;
        delete s_folder;
    }

    /** A test before may have failed logins on purpose, which slows all others of this address for a while. */
    void SetUp() override {
        EXPECT_TRUE(eventually([] { return camera().ask("get_status_code").status == 200; }));
    }

    static CameraAccess camera() { return s_camera->access(); }
    static std::string url(const std::string& path) { return "http://" + s_camera->address() + path; }
    static std::vector<std::string> login(const std::string& password = s_camera->password) {
        return {"--digest", "-u", "operator:" + password};
    }
    static std::vector<std::string> loginAnd(std::vector<std::string> more) {
        const std::vector<std::string> own = login();
        more.insert(more.end(), own.begin(), own.end());
        return more;
    }

    static inline TestFolder* s_folder = nullptr;
    static inline RunningCamera* s_camera = nullptr;
};

#include <optional>
#include <regex>

#include "builders.h"
#include "config/parameter_controller.h"
#include "drawn_picture.h"
#include "fastcgi_client.h"
#include "running_application.h"

namespace {

constexpr uint32_t kGreen = 0xff00ff00;

/** The application with one person in view, whose overlays a test watches. */
class Overlays : public RunningApplication {
protected:
    Overlays() { scripted::find({candidateFor(kPerson, kWidth, kHeight)}); }
    ~Overlays() override {
        scripted::watch({}, nullptr);
        g_SensorIs16x9 = true;
    }

    /** From now on with every redraw. */
    void watch(int width, int height, int rotation = 0) {
        scripted::watch({.id = 1,
                         .camera = 1,
                         .type = AXOVERLAY_STREAM_JPEG,
                         .width = width,
                         .height = height,
                         .rotation = rotation,
                         .mirrored = FALSE},
                        [this](int w, int h) {
                            m_picture.emplace(w, h);
                            return m_picture->context();
                        });
    }

    static constexpr detection kPerson = {20, 10, 20, 16, 0, 0.9F};
    std::optional<DrawnPicture> m_picture;
};

TEST_F(Overlays, AreDrawnInEveryCycleThatRan) {
    start();
    const int before = scripted::calls("axoverlay_redraw");
    watch(kWidth, kHeight);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(scripted::calls("axoverlay_redraw"), before + 1);
    EXPECT_EQ(m_picture->colorAt(20, 15), kGreen);
    EXPECT_EQ(m_picture->colorAt(40, 15), kGreen);
    fail(1);
    EXPECT_EQ(scripted::calls("axoverlay_redraw"), before + 1);
}

TEST_F(Overlays, ThatFailDoNotDisturbTheAnalysis) {
    start();
    scripted::failFrom("axoverlay_redraw", 1, {AXOVERLAY_ERROR_SERVICE_UNAVAILABLE, "nobody there"});
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    EXPECT_EQ(m_application.status(), STATUS_RUNNING);
    EXPECT_EQ(m_application.frameCounter(), 1U);
    EXPECT_EQ(LogCapture::ofLevel("error"),
              std::vector<std::string>{"renderFindings: Failed to redraw overlay: (6000) nobody there"});
}

TEST_F(Overlays, FollowTheStoredChoice) {
    scripted::parameters()["DetectionOverlaysOn"] = "true";
    scripted::parameters()["SelectedDetectionOverlay"] = "128x72";
    scripted::parameters()["AnonOverlaysOn"] = "true";
    scripted::parameters()["SelectedAnonOverlay"] = "256x144";
    start();
    watch(128, 72);
    m_application.do_one_analysis();
    EXPECT_EQ(m_picture->at(60, 30), 0U) << "not filled";
    EXPECT_GT(m_picture->drawn(), 0);
    watch(256, 144);
    m_application.do_one_analysis();
    EXPECT_NE(m_picture->at(120, 60), 0U) << "filled";
}

TEST_F(Overlays, OfAChoiceThatIsNoSizeAreLeftOut) {
    scripted::parameters()["DetectionOverlaysOn"] = "true";
    scripted::parameters()["SelectedDetectionOverlay"] = "the large one";
    scripted::parameters()["AnonOverlaysOn"] = "false";
    scripted::parameters()["SelectedAnonOverlay"] = "nor this, but nobody asks";
    start();
    EXPECT_EQ(
        LogCapture::ofLevel("error"),
        std::vector<std::string>{"SetOverlayStreamResolutionFromString: Expected a size such as 1280x720, got \"the "
                                 "large one\". No stream is chosen."});
    EXPECT_EQ(m_application.do_one_analysis(), 1);
}

TEST_F(Overlays, OfATurnedCameraAreDrawnUpright) {
    scripted::parameters()["root.Image.I0.Appearance.Rotation"] = "90";
    // The picture is 36 x 64 once it is turned.
    const detection person = {10, 20, 16, 30, 0, 0.9F};
    scripted::find({candidateFor(person, kHeight, kWidth)});
    start();
    watch(kWidth, kHeight, 90);
    EXPECT_EQ(m_application.do_one_analysis(), 1);
    ASSERT_EQ(m_picture->width(), static_cast<int>(kHeight));
    ASSERT_EQ(m_picture->height(), static_cast<int>(kWidth));
    EXPECT_EQ(m_picture->colorAt(10, 30), kGreen);
    EXPECT_EQ(m_picture->colorAt(26, 30), kGreen);
    EXPECT_EQ(m_picture->colorAt(18, 20), kGreen);
}

TEST_F(Overlays, KnowTheSensorsShape) {
    for (const char* ratio : {"4:3", "16:9", "1:1"}) {
        scripted::parameters()["root.ImageSource.I0.Sensor.AspectRatio"] = ratio;
        m_application.init_parameter_controller();
        m_application.init_sensor_aspect_ratio();
        EXPECT_EQ(g_SensorIs16x9, std::string(ratio) != "4:3") << ratio;
    }
}

TEST_F(Overlays, FollowAnUploadFromTheNextCycleOn) {
    const std::string socket = m_log.folder() / "usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket";
    // The web service's thread may come to listen only after the first cycles.
    const auto upload = [&socket] {
        try {
            const FastCgiClient service(socket);
            std::string document = service.get("action=get_all_parameters");
            document = document.substr(document.find("<app>") + 5);
            document = std::regex_replace(document, std::regex("<DetectionOverlaysOn>."), "<DetectionOverlaysOn>1");
            document = std::regex_replace(document, std::regex("(<SelectedDetectionOverlay>)[^<]*"), "$01128x72");
            return service.post("action=set_post_parameters",
                                "<root>" + document.substr(0, document.find("</app>")) + "</root>");
        } catch (const std::runtime_error&) {
            return std::string();
        }
    };
    int drawnBefore = -1;
    int drawnAfter = -1;
    int cycle = 0;
    int uploaded = 0;
    watch(128, 72);
    scripted::parameters()["MainLoopTime"] = "1";
    scripted::onJob([&](const std::vector<uint8_t>&) {
        ++cycle;
        if (uploaded == 0 && cycle > 1) {
            drawnBefore = m_picture->drawn();
            const std::string answer = upload();
            uploaded = answer.empty() ? 0 : cycle;
            EXPECT_TRUE(answer.empty() || answer == "Status: 200 OK\r\n\r\n") << answer;
        } else if (uploaded != 0 && cycle == uploaded + 2) {
            drawnAfter = m_picture->drawn();
            kill(getpid(), SIGTERM);
        }
        return std::vector<scripted::Candidate>{candidateFor(kPerson, kWidth, kHeight)};
    });
    EXPECT_EQ(m_application.main(), 0);
    EXPECT_EQ(drawnBefore, 0);
    EXPECT_GT(drawnAfter, 0);
}

}  // namespace

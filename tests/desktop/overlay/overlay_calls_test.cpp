#include <gtest/gtest.h>
#include <memory>

#include <axoverlay.h>
#include <axsdk/axparameter.h>

#include "desktop/config/desktop_config.h"
#include "desktop/video/shared_source.h"
#include "live_client.h"
#include "program.h"
#include "test_folder.h"
#include "vdo-stream.h"

namespace {

/** An error slot for one call after another. */
class Slot {
public:
    Slot() = default;
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    ~Slot() { g_clear_error(&m_error); }
    GError** fresh() {
        g_clear_error(&m_error);
        return &m_error;
    }
    int code() const { return m_error != nullptr && m_error->domain == AXOVERLAY_ERROR ? m_error->code : -1; }
    std::string message() const { return m_error != nullptr ? m_error->message : ""; }

private:
    GError* m_error = nullptr;
};

/** The process's overlay service on the drawn scene. */
class OverlayCalls : public testing::Test {
protected:
    void SetUp() override {
        desktop::closeSharedSource();
        m_config.video = "scene:plaza";
        m_config.stateFolder = m_folder.path();
        desktop::setDesktopConfig(m_config);
        axoverlay_init_axoverlay_settings(&m_settings);
    }
    void TearDown() override {
        axoverlay_cleanup();
        desktop::closeSharedSource();
        desktop::setDesktopConfig({});
    }
    void init() {
        axoverlay_init(&m_settings, m_error.fresh());
        ASSERT_EQ(m_error.message(), "");
    }
    static axoverlay_overlay_data overlay(gint width = 1280, gint height = 720) {
        axoverlay_overlay_data data;
        axoverlay_init_overlay_data(&data);
        data.width = width;
        data.height = height;
        data.colorspace = AXOVERLAY_COLORSPACE_ARGB32;
        return data;
    }

    TestFolder m_folder;
    desktop::DesktopConfig m_config;
    axoverlay_settings m_settings = {};
    Slot m_error;
};

TEST_F(OverlayCalls, TakeCairoImagesOnly) {
    EXPECT_TRUE(axoverlay_is_backend_supported(AXOVERLAY_CAIRO_IMAGE_BACKEND));
    EXPECT_FALSE(axoverlay_is_backend_supported(AXOVERLAY_OPEN_GL_BACKEND));
    m_settings.backend = AXOVERLAY_OPEN_GL_BACKEND;
    axoverlay_init(&m_settings, m_error.fresh());
    EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_BACKEND);
    EXPECT_EQ(m_error.message(), "expected backend 0 (cairo image), got 1");
}

TEST_F(OverlayCalls, WantTheServiceStartedOnce) {
    axoverlay_overlay_data data = overlay();
    EXPECT_EQ(axoverlay_create_overlay(&data, nullptr, m_error.fresh()), 0);
    EXPECT_EQ(m_error.message(), "the overlay service is not started");
    EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_SERVICE_UNAVAILABLE);
    axoverlay_redraw(m_error.fresh());
    EXPECT_EQ(m_error.message(), "the overlay service is not started");
    axoverlay_destroy_overlay(1, m_error.fresh());
    EXPECT_EQ(m_error.message(), "the overlay service is not started");
    EXPECT_EQ(axoverlay_get_max_resolution_width(1, m_error.fresh()), 0);
    EXPECT_EQ(m_error.message(), "the overlay service is not started");
    init();
    axoverlay_init(&m_settings, m_error.fresh());
    EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_UNEXPECTED);
    EXPECT_EQ(m_error.message(), "the overlay service is started already");
    axoverlay_cleanup();
    init();
}

TEST_F(OverlayCalls, SayWhatASourceLacks) {
    desktop::DesktopConfig config;
    config.video = "/missing.mp4";
    desktop::setDesktopConfig(config);
    axoverlay_init(&m_settings, m_error.fresh());
    EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_SERVICE_UNAVAILABLE);
    EXPECT_NE(m_error.message().find("missing.mp4"), std::string::npos) << m_error.message();
}

TEST_F(OverlayCalls, TellTheLargestSize) {
    init();
    EXPECT_EQ(axoverlay_get_max_resolution_width(1, m_error.fresh()), 1920);
    EXPECT_EQ(axoverlay_get_max_resolution_height(1, m_error.fresh()), 1080);
    EXPECT_EQ(axoverlay_get_max_resolution_width(2, m_error.fresh()), 0);
    EXPECT_EQ(m_error.message(), "expected camera 1, got camera 2");
    EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_INVALID_ARGUMENT);
}

TEST_F(OverlayCalls, RefuseOverlaysThatCannotBe) {
    init();
    const std::string sizes = "expected an overlay of 1x1 to 1920x1080 pixels, got ";
    struct Row {
        axoverlay_overlay_data data;
        std::string error;
    };
    std::vector<Row> rows = {{overlay(0, 720), sizes + "0x720"},
                             {overlay(1280, -1), sizes + "1280x-1"},
                             {overlay(1921, 1080), sizes + "1921x1080"},
                             {overlay(1920, 1081), sizes + "1920x1081"}};
    rows.push_back({overlay(), "expected colour space 1 (ARGB32), got 2"});
    rows.back().data.colorspace = AXOVERLAY_COLORSPACE_4BIT_PALETTE;
    rows.push_back({overlay(), "expected a corner as position, 2 to 5, got 0"});
    rows.back().data.postype = AXOVERLAY_CUSTOM_NORMALIZED;
    for (Row& row : rows) {
        EXPECT_EQ(axoverlay_create_overlay(&row.data, nullptr, m_error.fresh()), 0) << row.error;
        EXPECT_EQ(m_error.message(), row.error);
        EXPECT_EQ(m_error.code(), AXOVERLAY_ERROR_INVALID_VALUE) << row.error;
    }
}

TEST_F(OverlayCalls, CountOverlays) {
    init();
    axoverlay_overlay_data data = overlay(1920, 1080);
    EXPECT_EQ(axoverlay_create_overlay(&data, nullptr, m_error.fresh()), 1);
    EXPECT_EQ(axoverlay_create_overlay(&data, nullptr, m_error.fresh()), 2);
    axoverlay_destroy_overlay(1, m_error.fresh());
    EXPECT_EQ(m_error.message(), "");
    axoverlay_destroy_overlay(1, m_error.fresh());
    EXPECT_EQ(m_error.message(), "expected an overlay that was created, got 1");
    axoverlay_cleanup();
    init();
    axoverlay_destroy_overlay(2, m_error.fresh());
    EXPECT_EQ(m_error.message(), "expected an overlay that was created, got 2") << "cleanup drops them all";
}

TEST_F(OverlayCalls, OpenNoSocketUnlessOneIsNamed) {
    init();
    axoverlay_redraw(m_error.fresh());
    EXPECT_EQ(m_error.message(), "");
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.path()));
}

TEST_F(OverlayCalls, MirrorAndHideAsTheStoreSays) {
    writeFile(m_folder.path() / "manifest.json", R"({
        "anonymised_stream": {"on": "Hide", "resolution": "HideSize"},
        "parameters": [{"name": "Hide", "default": "false"}, {"name": "HideSize", "default": "320x180"}]})");
    m_config.manifest = m_folder.path() / "manifest.json";
    m_config.liveSocket = m_folder.path() / "live.socket";
    desktop::setDesktopConfig(m_config);
    Slot error;
    const std::unique_ptr<AXParameter, decltype(&ax_parameter_free)> store(ax_parameter_new("test", error.fresh()),
                                                                           ax_parameter_free);
    ASSERT_TRUE(store) << error.message();
    ASSERT_TRUE(ax_parameter_set(store.get(), "root.Image.I0.Appearance.Mirrored", "1", TRUE, error.fresh()));
    bool mirrored = false;
    m_settings.render_callback = [](gpointer, gint, axoverlay_stream_data* stream, axoverlay_position_type, gfloat,
                                    gfloat, gint, gint,
                                    gpointer user) { *static_cast<bool*>(user) = stream->mirrored; };
    init();
    axoverlay_overlay_data data = overlay(320, 180);
    axoverlay_create_overlay(&data, &mirrored, m_error.fresh());

    // A stream of this thread, whose last frame is what is drawn on.
    std::unique_ptr<VdoMap, decltype(&g_object_unref)> map(vdo_map_new(), g_object_unref);
    vdo_map_set_uint32(map.get(), "width", 320);
    vdo_map_set_uint32(map.get(), "height", 180);
    std::unique_ptr<VdoStream, decltype(&g_object_unref)> stream(vdo_stream_new(map.get(), nullptr, nullptr),
                                                                 g_object_unref);
    ASSERT_TRUE(stream);
    vdo_stream_attach(stream.get(), nullptr, nullptr);
    vdo_stream_start(stream.get(), nullptr);
    LiveClient viewer(m_config.liveSocket, "/live/image.jpg?resolution=320x180");
    while (!viewer.hasNews(0)) {
        VdoBuffer* buffer = vdo_stream_get_buffer(stream.get(), nullptr);
        ASSERT_NE(buffer, nullptr);
        vdo_stream_buffer_unref(stream.get(), &buffer, nullptr);
        axoverlay_redraw(m_error.fresh());
        ASSERT_EQ(m_error.message(), "");
    }
    EXPECT_EQ(viewer.head().rfind("HTTP/1.1 200 ", 0), 0U);
    EXPECT_TRUE(mirrored);
    const std::string bare = "/live/image.jpg?resolution=320x180&overlays=0";
    EXPECT_EQ(LiveClient(m_config.liveSocket, bare).head().rfind("HTTP/1.1 200 ", 0), 0U);
    ASSERT_TRUE(ax_parameter_set(store.get(), "Hide", "true", TRUE, error.fresh()));
    EXPECT_EQ(LiveClient(m_config.liveSocket, bare).head().rfind("HTTP/1.1 403 ", 0), 0U) << "the setting acts at once";

    const std::string lost = m_config.stateFolder + "/parameters.db.lost";
    EXPECT_FALSE(ax_parameter_set(store.get(), "Missing", "1", TRUE, error.fresh()));
    EXPECT_TRUE(std::filesystem::exists(lost));
    EXPECT_EQ(LiveClient(m_config.liveSocket, bare).head().rfind("HTTP/1.1 200 ", 0), 0U) << "hidden, whichever it is";
    ASSERT_TRUE(ax_parameter_set(store.get(), "Hide", "true", TRUE, error.fresh()));
    EXPECT_TRUE(std::filesystem::exists(lost)) << "its size is not known yet";
    axoverlay_cleanup();
    init();
    ASSERT_TRUE(ax_parameter_set(store.get(), "Hide", "true", TRUE, error.fresh()));
    EXPECT_TRUE(std::filesystem::exists(lost)) << "nor after a new start";
    ASSERT_TRUE(ax_parameter_set(store.get(), "HideSize", "320x180", TRUE, error.fresh()));
    EXPECT_FALSE(std::filesystem::exists(lost));
    EXPECT_EQ(LiveClient(m_config.liveSocket, bare).head().rfind("HTTP/1.1 403 ", 0), 0U);
}

}  // namespace

#include <cmath>
#include <fstream>
#include <memory>
#include <set>
#include <turbojpeg.h>

#include "desktop/video/scene/scene.h"
#include "running_camera.h"
#include "slow_build.h"

namespace {

struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;

    /** How many pixels have nearly this colour, from a row on. */
    int count(int red, int green, int blue, int nearly = 40, int top = 0) const {
        int found = 0;
        for (size_t i = size_t{3} * static_cast<size_t>(width) * static_cast<size_t>(top); i + 2 < rgb.size(); i += 3) {
            found += std::abs(rgb[i] - red) < nearly && std::abs(rgb[i + 1] - green) < nearly &&
                             std::abs(rgb[i + 2] - blue) < nearly
                         ? 1
                         : 0;
        }
        return found;
    }

    /** Pixels in the colours of boxes, none of which the drawn plaza itself has. */
    int boxes() const { return count(255, 0, 0) + count(0, 255, 0) + count(255, 255, 0); }

    /** The coats of people of the drawn plaza that can be seen, a tenth of a coat at least. */
    std::set<desktop::Colour> coats() const {
        std::set<desktop::Colour> seen;
        for (const desktop::SceneFigure& figure : desktop::plaza().figures) {
            const double scale = static_cast<double>(width) / desktop::plaza().width;
            const double coat = 0.3 * figure.width * figure.height * scale * scale;
            const int red = static_cast<int>(figure.main >> 16U);
            const int green = static_cast<int>(figure.main >> 8U & 0xFFU);
            const int blue = static_cast<int>(figure.main & 0xFFU);
            if (figure.kind == desktop::FigureKind::Person && count(red, green, blue, 12, height / 3) > coat / 10) {
                seen.insert(figure.main);
            }
        }
        return seen;
    }

    /** Whether there is more to see than large squares. */
    bool isSharp() const {
        int steps = 0;
        for (size_t i = 3; i < rgb.size(); i += 3) {
            steps += std::abs(rgb[i] - rgb[i - 3]) > 10 ? 1 : 0;
        }
        return steps > width * height / 20;
    }
};

Picture decode(const std::string& jpeg) {
    const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), tjDestroy);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    Picture picture;
    int sampling = 0;
    if (tjDecompressHeader2(decoder.get(), const_cast<unsigned char*>(bytes), jpeg.size(), &picture.width,
                            &picture.height, &sampling) != 0) {
        return {};
    }
    picture.rgb.resize(size_t{3} * static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height));
    return tjDecompress2(decoder.get(), bytes, jpeg.size(), picture.rgb.data(), picture.width, 0, picture.height,
                         TJPF_RGB, 0) == 0
               ? picture
               : Picture();
}

/** Somebody who looks at a stream all the time. */
class Watcher {
public:
    Watcher(const std::string& url, const std::string& password)
        : m_program(startProgram(
              {"/usr/bin/curl", "-s", "-N", "--noproxy", "*", "--digest", "-u", "operator:" + password, url},
              m_folder.path())) {}

    /** The pictures that have come since the last call. */
    std::vector<Picture> newest() {
        std::ifstream file(m_folder.path() / "out", std::ios::binary);
        file.seekg(static_cast<std::streamoff>(m_read));
        const std::string more((std::istreambuf_iterator<char>(file)), {});
        m_read += more.size();
        m_rest += more;
        std::vector<Picture> pictures;
        for (;;) {
            const std::string key = "Content-Length: ";
            const size_t at = m_rest.find(key);
            const size_t start = m_rest.find("\r\n\r\n", at) + 4;
            if (at == std::string::npos || start < 4) {
                return pictures;
            }
            const size_t size = std::stoul(m_rest.substr(at + key.size()));
            if (m_rest.size() < start + size) {
                return pictures;
            }
            pictures.push_back(decode(m_rest.substr(start, size)));
            m_rest.erase(0, start + size);
        }
    }

private:
    const TestFolder m_folder;
    Child m_program;
    size_t m_read = 0;
    std::string m_rest;
};

/** A whole camera whose pictures are watched. */
class Live : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TestFolder;
        s_camera = new RunningCamera(s_folder->path());
    }
    static void TearDownTestSuite() {
        delete s_camera;
        delete s_folder;
    }

    static std::string url(const std::string& path) { return "http://" + s_camera->address() + path; }
    static HttpAnswer ask(const std::string& path) {
        return curl(url(path), {"--digest", "-u", "operator:" + s_camera->password});
    }
    static Picture see(const std::string& path) {
        const HttpAnswer answer = ask(path);
        EXPECT_EQ(answer.contentType, "image/jpeg") << answer.body;
        return decode(answer.body);
    }

    /** Changes elements of the settings document and uploads it, without some of them; the answer's status. */
    static int upload(const std::vector<std::pair<std::string, std::string>>& changes,
                      const std::vector<std::string>& missing = {}) {
        std::string document = s_camera->access().get("get_all_parameters");
        for (const auto& [tag, value] : changes) {
            document = std::regex_replace(document, std::regex("<" + tag + ">[^<]*"), "<" + tag + ">" + value);
        }
        for (const std::string& tag : missing) {
            document = std::regex_replace(document, std::regex("<" + tag + ">[^<]*</" + tag + ">"), "");
        }
        document = "<root>" + document.substr(5, document.rfind("</app>") - 5) + "</root>";
        return s_camera->access().post("set_post_parameters", document).status;
    }
    static void save(const std::vector<std::pair<std::string, std::string>>& changes) {
        EXPECT_EQ(upload(changes), 200);
    }

    static TestFolder* s_folder;
    static RunningCamera* s_camera;
};
TestFolder* Live::s_folder = nullptr;
RunningCamera* Live::s_camera = nullptr;

TEST_F(Live, ShowsWhatTheApplicationFindsToWhoeverMayLogIn) {
    EXPECT_EQ(curl(url("/live/image.jpg")).status, 401);
    save({{"DetectionOverlaysOn", "1"}, {"SelectedDetectionOverlay", "1920x1080"}, {"AnonOverlaysOn", "0"}});
    EXPECT_TRUE(eventually([] { return see("/live/image.jpg?resolution=1920x1080").boxes() > 300; }));
    const Picture bare = see("/live/image.jpg?resolution=1920x1080&overlays=0");
    EXPECT_EQ(bare.width, 1920);
    EXPECT_EQ(bare.height, 1080);
    EXPECT_LT(bare.boxes(), 20);
    const Picture other = see("/live/image.jpg?resolution=320x180");
    EXPECT_EQ(other.width, 320);
    EXPECT_LT(other.boxes(), 20) << "no stream for overlays";
}

TEST_F(Live, HidesPeopleOnTheAnonymisedStream) {
    save({{"DetectionOverlaysOn", "0"}, {"AnonOverlaysOn", "1"}, {"SelectedAnonOverlay", "640x360"}});
    EXPECT_EQ(ask("/live/image.jpg?resolution=640x360&overlays=0").status, 403);
    // Half a checkerboard is in the box's colour: far more than the box's frame alone.
    EXPECT_TRUE(eventually([] { return see("/live/image.jpg?resolution=640x360").boxes() > 400; }));
    save({{"AnonOverlaysOn", "0"}});
    EXPECT_TRUE(eventually([] { return ask("/live/image.jpg?resolution=640x360&overlays=0").status == 200; }));
}

TEST_F(Live, ShowsNobodyUncoveredOnTheAnonymisedStream) {
    if (kSanitized) {
        GTEST_SKIP() << "watches as long as a pass of the scene takes; what it runs, the others run, too";
    }
    save({{"DetectionOverlaysOn", "0"}, {"AnonOverlaysOn", "1"}, {"SelectedAnonOverlay", "640x360"}});
    Watcher hidden(url("/live/video.mjpg?resolution=640x360"), s_camera->password);
    Watcher other(url("/live/video.mjpg?resolution=480x270&overlays=0&fps=3"), s_camera->password);
    std::set<desktop::Colour> there;
    size_t pictures = 0;
    size_t sharp = 0;
    // It takes most of a pass to see everybody; on a slow machine there are fewer pictures of it.
    EXPECT_TRUE(eventually(
        [&] {
            for (const Picture& picture : hidden.newest()) {
                ++pictures;
                sharp += picture.isSharp() ? 1 : 0;
                EXPECT_EQ(picture.coats(), std::set<desktop::Colour>()) << "picture " << pictures;
            }
            for (const Picture& picture : other.newest()) {
                there.merge(picture.coats());
            }
            return sharp >= 200 && there.size() == 8;
        },
        std::chrono::minutes(20)))
        << there.size() << " people, " << sharp << " of " << pictures << " pictures";
}

TEST_F(Live, GoesOnHidingPeopleAfterAnUploadThatWasRefused) {
    save({{"DetectionOverlaysOn", "0"}, {"AnonOverlaysOn", "1"}, {"SelectedAnonOverlay", "640x360"}});
    EXPECT_TRUE(eventually([] { return see("/live/image.jpg?resolution=640x360").boxes() > 400; }));
    // The one reads as switched off, which the application obeys; the other is a number, without which it gives up.
    EXPECT_EQ(upload({}, {"AnonOverlaysOn", "RepInt"}), 500);
    EXPECT_EQ(ask("/live/image.jpg?resolution=640x360&overlays=0").status, 403);
    Watcher hidden(url("/live/video.mjpg?resolution=640x360"), s_camera->password);
    Watcher other(url("/live/video.mjpg?resolution=480x270&overlays=0&fps=3"), s_camera->password);
    std::set<desktop::Colour> there;
    size_t pictures = 0;  // since people were there, long enough for them to be on the other stream, too
    EXPECT_TRUE(eventually(
        [&] {
            for (const Picture& picture : hidden.newest()) {
                pictures += there.size() >= 2 ? 1 : 0;
                EXPECT_EQ(picture.coats(), std::set<desktop::Colour>()) << "picture " << pictures;
            }
            for (const Picture& picture : other.newest()) {
                there.merge(picture.coats());
            }
            return pictures >= 60;
        },
        std::chrono::minutes(20)))
        << there.size() << " people, " << pictures << " pictures";
    save({{"AnonOverlaysOn", "1"}});
}

TEST_F(Live, SaysWhatItExpected) {
    EXPECT_EQ(ask("/live/image.jpg?resolution=99x99").body,
              "resolution: expected one of 1920x1080, 1280x720, 640x360, 480x270, 320x180, got \"99x99\"\n");
    for (const char* path : {"/live/image.jpg?resolution=0x0", "/live/video.mjpg?fps=0", "/live/video.mjpg?fps=10000",
                             "/live/image.jpg?overlays=yes"}) {
        EXPECT_EQ(ask(path).status, 400) << path;
    }
    EXPECT_EQ(ask("/live/").status, 404);
    EXPECT_EQ(curl(url("/live/image.jpg"), {"--digest", "-u", "operator:" + s_camera->password, "-H",
                                            "Origin: http://elsewhere.example", "-H", "Sec-Fetch-Site: cross-site"})
                  .status,
              403);
}

TEST_F(Live, EndsWithItsViewersWatching) {
    const TestFolder folder;
    std::vector<std::unique_ptr<Child>> viewers;
    for (int i = 0; i < 3; ++i) {
        const std::filesystem::path own = folder.path() / std::to_string(i);
        std::filesystem::create_directory(own);
        viewers.push_back(std::make_unique<Child>(
            startProgram({"/usr/bin/curl", "-s", "--noproxy", "*", "--digest", "-u", "operator:" + s_camera->password,
                          url("/live/video.mjpg?resolution=640x360")},
                         own)));
        EXPECT_TRUE(eventually([&] { return readFile(own / "out").size() > 20'000; }));
    }
    EXPECT_EQ(s_camera->stop(), 0);
    for (const auto& viewer : viewers) {
        EXPECT_NE(viewer->wait(30'000), -1);
    }
    EXPECT_EQ(s_camera->errors(), "");
}

}  // namespace

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <opencv2/imgproc.hpp>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <turbojpeg.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "desktop/config/desktop_config.h"
#include "desktop/inference/engines.h"
#include "desktop/overlay/overlay_service.h"
#include "real_frame.h"
#include "this_build.h"
#include "topics.h"

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr auto kPeriod = std::chrono::milliseconds(100);
constexpr int kCycles = 10;

desktop::Planes realPlanes() {
    desktop::Planes planes(kWidth, kHeight);
    fillFromNv12(planes, realFrame(kWidth, kHeight).data(), false);
    return planes;
}

void benchEncoder(benchmark::State& state) {
    const desktop::Planes planes = realPlanes();
    desktop::JpegEncoder encoder;
    for (auto _ : state) {
        benchmark::DoNotOptimize(encoder.encode(planes));
    }
}

/** The library alone, into room that is there. */
void benchLibrary(benchmark::State& state) {
    const desktop::Planes planes = realPlanes();
    const std::unique_ptr<void, decltype(&tjDestroy)> encoder(tjInitCompress(), tjDestroy);
    std::vector<unsigned char> room(tjBufSize(kWidth, kHeight, TJSAMP_420));
    const unsigned char* rows[] = {planes.y.data(), planes.u.data(), planes.v.data()};
    for (auto _ : state) {
        unsigned char* out = room.data();
        unsigned long size = room.size();
        if (tjCompressFromYUVPlanes(encoder.get(), rows, kWidth, nullptr, kHeight, TJSAMP_420, &out, &size, 80,
                                    TJFLAG_NOREALLOC) != 0) {
            throw std::runtime_error("libjpeg-turbo cannot encode the picture");
        }
        benchmark::DoNotOptimize(size);
    }
}

/** A source that shows one real frame; what comes from it is made by the analysis. */
class StillSource : public desktop::VideoSource {
public:
    explicit StillSource(desktop::SharedPicture picture) : m_picture(std::move(picture)) {}
    const desktop::SourceInfo& info() const override { return m_info; }
    desktop::Delivery newest(uint64_t, const std::atomic<bool>&) override { return {1, m_picture}; }
    desktop::Delivery current() override { return {1, m_picture}; }
    void wake() override {}

private:
    const desktop::SourceInfo m_info = {kWidth, kHeight, 25.0, 0, true};
    const desktop::SharedPicture m_picture;
};

desktop::SharedPicture realPicture() {
    const std::vector<uint8_t> nv12 = realFrame(kWidth, kHeight);
    desktop::FramePtr frame = desktop::makeNv12Frame(kWidth, kHeight);
    for (int row = 0; row < kHeight * 3 / 2; ++row) {
        const int plane = row < kHeight ? 0 : 1;
        std::memcpy(frame->data[plane] + std::ptrdiff_t{row - plane * kHeight} * frame->linesize[plane],
                    nv12.data() + std::ptrdiff_t{row} * kWidth, kWidth);
    }
    return {frame.release(), desktop::FreeFrame()};
}

/** Twelve boxes with a locator and a word each. */
void drawTwelve(gpointer context, gint, axoverlay_stream_data*, axoverlay_position_type, gfloat, gfloat, gint width,
                gint height, gpointer) {
    auto* const cairo = static_cast<cairo_t*>(context);
    cairo_select_font_face(cairo, "Arial", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cairo, 0.03 * height);
    cairo_set_line_width(cairo, 3);
    for (int i = 0; i < 12; ++i) {
        const double left = width * (0.05 + 0.24 * (i % 4));
        const double top = height * (0.05 + 0.32 * (i / 4));
        cairo_set_source_rgb(cairo, 0, 1, 0);
        cairo_rectangle(cairo, left, top, 0.08 * width, 0.2 * height);
        cairo_stroke(cairo);
        cairo_set_source_rgb(cairo, 1, 1, 1);
        cairo_move_to(cairo, left, top + 0.05 * height);
        cairo_show_text(cairo, "12 seconds");
    }
}

/** People who watch, and take all that they are shown. */
class Viewers {
public:
    Viewers(const std::string& socketPath, int count) {
        for (int i = 0; i < count; ++i) {
            m_sockets.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
            sockaddr_un name = {};
            name.sun_family = AF_UNIX;
            std::strncpy(name.sun_path, socketPath.c_str(), sizeof(name.sun_path) - 1);
            const std::string request = "GET /live/video.mjpg?resolution=1280x720 HTTP/1.0\r\n\r\n";
            if (connect(m_sockets.back().get(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)) != 0 ||
                send(m_sockets.back().get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
                throw std::runtime_error("cannot watch " + socketPath);
            }
        }
        m_thread = std::thread([this] { run(); });
    }
    ~Viewers() {
        m_stop = true;
        m_thread.join();
    }
    Viewers(const Viewers&) = delete;
    Viewers& operator=(const Viewers&) = delete;

private:
    void run() {
        std::vector<char> room(1U << 20U);
        std::vector<pollfd> waits;
        for (const UniqueFd& viewer : m_sockets) {
            waits.push_back({viewer.get(), POLLIN, 0});
        }
        while (!m_stop) {
            poll(waits.data(), waits.size(), 50);
            for (const pollfd& wait : waits) {
                if (wait.revents != 0) {
                    recv(wait.fd, room.data(), room.size(), MSG_DONTWAIT);
                }
            }
        }
    }

    std::vector<UniqueFd> m_sockets;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

std::string readText(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/** A network, where this machine has one; the engine that needs none otherwise. */
desktop::ModelCard modelCard() {
    const std::string networks = this_build::shared() / "models";
    const bool there = std::ifstream(networks + "/yolo-fastest-1.1-xl.weights").good();
    desktop::DesktopConfig config;
    config.networksFolder = networks;
    desktop::setDesktopConfig(config);
    return desktop::parseModelCard(
        readText(this_build::checkout() / "package/models" / (there ? "yolo-fastest-xl.json" : "motion.json")));
}

/** What an analysis of a frame costs its thread, ten times a second: conversion, model and redraw. */
void benchCycle(benchmark::State& state, int viewers) {
    const auto source = std::make_shared<StillSource>(realPicture());
    std::vector<uint8_t> nv12 = realFrame(kWidth, kHeight);
    const cv::Mat luma(kHeight, kWidth, CV_8UC1, nv12.data());
    const cv::Mat chroma(kHeight / 2, kWidth / 2, CV_8UC2, nv12.data() + kWidth * kHeight);
    const desktop::ModelCard card = modelCard();
    const auto engine = desktop::makeEngine(card);
    cv::Mat whole;
    cv::Mat rgb;

    desktop::OverlayParts parts;
    parts.source = source;
    parts.liveSocket = std::string(std::getenv("OSTREL_SENVO_ROOT")) + "/live.socket";
    axoverlay_settings settings = {};
    settings.render_callback = drawTwelve;
    desktop::OverlayService service(settings, parts);
    axoverlay_overlay_data data = {};
    data.postype = AXOVERLAY_TOP_LEFT;
    data.width = kWidth;
    data.height = kHeight;
    data.colorspace = AXOVERLAY_COLORSPACE_ARGB32;
    service.create(data, nullptr);
    const Viewers watching(parts.liveSocket, viewers);
    while (service.live()->viewers() != static_cast<size_t>(viewers)) {
        std::this_thread::yield();
    }
    auto tick = std::chrono::steady_clock::now();
    for (auto _ : state) {
        std::chrono::duration<double> spent(0);
        for (int cycle = 0; cycle < kCycles; ++cycle) {
            const auto start = std::chrono::steady_clock::now();
            cv::cvtColorTwoPlane(luma, chroma, whole, cv::COLOR_YUV2RGB_NV12);
            cv::resize(whole, rgb, cv::Size(card.tensorWidth, card.tensorHeight));
            benchmark::DoNotOptimize(engine->detect(rgb));
            service.redraw({source->current().picture, 0});
            spent += std::chrono::steady_clock::now() - start;
            tick = std::max(tick + kPeriod, std::chrono::steady_clock::now());
            std::this_thread::sleep_until(tick);
        }
        state.SetIterationTime(spent.count() / kCycles);
    }
    if (viewers > 0 && service.live()->picturesMade() == 0) {
        throw std::runtime_error("nobody was shown a picture");
    }
}

}  // namespace

std::vector<Limit> registerLive() {
    benchmark::RegisterBenchmark("JPEG, 1280x720/ours", benchEncoder);
    benchmark::RegisterBenchmark("JPEG, 1280x720/libjpeg-turbo", benchLibrary);
    const std::pair<const char*, int> audiences[] = {{"none", 0}, {"one", 1}, {"twenty", 20}};
    for (const auto& [name, viewers] : audiences) {
        benchmark::RegisterBenchmark((std::string("cycle with viewers/") + name).c_str(),
                                     [count = viewers](benchmark::State& state) { benchCycle(state, count); })
            ->UseManualTime()
            ->Iterations(1);
    }
    return {{"JPEG, 1280x720", "libjpeg-turbo", "", std::nullopt},
            {"JPEG, 1280x720", "ours", "libjpeg-turbo", 1.1},
            {"cycle with viewers", "none", "", std::nullopt},
            {"cycle with viewers", "one", "none", 1.05},
            {"cycle with viewers", "twenty", "none", 1.05}};
}

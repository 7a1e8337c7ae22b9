#include "desktop/video/media_reader.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
}

#include "desktop/frames/video_error.h"

namespace desktop {
namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

constexpr auto kOpenTimeout = std::chrono::seconds(10);
constexpr auto kReadTimeout = std::chrono::seconds(5);
constexpr const char* kNoData = "no data for 5 s";  // kReadTimeout
constexpr auto kWebcamPoll = std::chrono::milliseconds(5);
constexpr double kMissingSecondsAllowed = 0.5;
constexpr double kRateWhenUnknown = 25.0;

struct CloseFormat {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreeCodec {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

class Options {
public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&m_entries); }
    void set(const char* key, const char* value) { av_dict_set(&m_entries, key, value, 0); }
    AVDictionary** get() { return &m_entries; }

private:
    AVDictionary* m_entries = nullptr;
};

std::string reasonOf(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text = {};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

std::string secondsText(double seconds) {
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.2f s", seconds);
    return text.data();
}

void setUpLibrary() {
    static const bool done = [] {
        avdevice_register_all();
        avformat_network_init();
        // Its log would show addresses with their passwords; the reasons reach the caller as errors.
        av_log_set_level(AV_LOG_QUIET);
        return true;
    }();
    static_cast<void>(done);
}

void requireFile(const std::string& source) {
    std::error_code ignored;
    const auto status = std::filesystem::status(source, ignored);
    if (!std::filesystem::exists(status)) {
        throw VideoError(VDO_ERROR_NOT_FOUND, source + ": no such file");
    }
    if (std::filesystem::is_directory(status)) {
        throw VideoError(VDO_ERROR_NOT_FOUND, source + ": expected a video file, got a folder");
    }
    // A pipe would be waited for, for ever.
    if (!std::filesystem::is_regular_file(status)) {
        throw VideoError(VDO_ERROR_NOT_FOUND, source + ": expected a video file, got something else");
    }
}

class MediaReader : public FrameReader {
public:
    MediaReader(const std::string& source, SourceKind kind, const std::atomic<bool>& stop);

    const SourceInfo& info() const override { return m_info; }
    std::optional<Frame> next() override;

private:
    static int interrupted(void* self);

    void openInput(const std::string& source);
    void openDecoder();
    void readInfo();
    bool feedDecoder();
    bool isDamaged(const AVFrame& frame) const;
    std::optional<Frame> timed(FramePtr frame);
    void checkEnd() const;
    [[noreturn]] void failAtFrame(const std::string& reason) const;

    const std::string m_name;
    const SourceKind m_kind;
    const std::atomic<bool>& m_stop;
    SteadyTime m_deadline = SteadyTime::max();
    std::unique_ptr<AVFormatContext, CloseFormat> m_format;
    std::unique_ptr<AVCodecContext, FreeCodec> m_decoder;
    std::unique_ptr<AVPacket, FreePacket> m_packet;
    const AVStream* m_stream = nullptr;
    SourceInfo m_info;
    int64_t m_frames = 0;
    int64_t m_firstTimestamp = 0;
    int64_t m_lastTime = -1;
    int64_t m_endTime = 0;  // when the last frame's display ends
};

MediaReader::MediaReader(const std::string& source, SourceKind kind, const std::atomic<bool>& stop)
    : m_name(displayName(source)), m_kind(kind), m_stop(stop), m_packet(av_packet_alloc()) {
    setUpLibrary();
    if (!m_packet) {
        throw std::bad_alloc();
    }
    openInput(source);
    openDecoder();
    readInfo();
}

int MediaReader::interrupted(void* self) {
    const auto& reader = *static_cast<const MediaReader*>(self);
    return reader.m_stop || std::chrono::steady_clock::now() > reader.m_deadline ? 1 : 0;
}

void MediaReader::openInput(const std::string& source) {
    Options options;
    const AVInputFormat* format = nullptr;
    if (m_kind == SourceKind::File) {
        requireFile(source);
        // A crafted list of clips must not reach out to other files' protocols or to the network.
        options.set("protocol_whitelist", "file");
    } else {
        m_deadline = std::chrono::steady_clock::now() + kOpenTimeout;
    }
    if (m_kind == SourceKind::Network) {
        options.set("protocol_whitelist", "rtsp,rtsps,rtp,tcp,udp,tls,http,https,httpproxy,crypto");
        options.set("rtsp_transport", "tcp");
        options.set("fflags", "nobuffer");
    }
    if (m_kind == SourceKind::Webcam) {
        format = av_find_input_format("v4l2");
    }

    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    context->interrupt_callback = {&MediaReader::interrupted, this};
    if (m_kind == SourceKind::Webcam) {
        context->flags |= AVFMT_FLAG_NONBLOCK;  // its reads do not ask whether to stop
    }
    const std::string address = m_kind == SourceKind::File ? "file:" + source : source;
    const int opened = avformat_open_input(&context, address.c_str(), format, options.get());
    if (opened < 0) {  // the library has freed the context
        const bool noVideo = opened == AVERROR_INVALIDDATA;
        throw VideoError(
            VDO_ERROR_NO_VIDEO,
            m_name + (noVideo ? ": expected a video, got something else or a cut-off file (" : ": cannot open (") +
                reasonOf(opened) + ")");
    }
    m_format.reset(context);
    if (std::string(m_format->iformat->name) == "tty") {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": expected a video, got a text file");
    }
    const int found = avformat_find_stream_info(m_format.get(), nullptr);
    if (found < 0) {
        throw VideoError(VDO_ERROR_NO_VIDEO,
                         m_name + ": expected a video, cannot tell what it holds (" + reasonOf(found) + ")");
    }
}

void MediaReader::openDecoder() {
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(m_format.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (index < 0 || codec == nullptr) {
        throw VideoError(VDO_ERROR_NO_VIDEO,
                         m_name + ": expected a video, found no picture stream that can be decoded in " +
                             std::to_string(m_format->nb_streams) + " stream(s) of " + m_format->iformat->name);
    }
    for (unsigned other = 0; other < m_format->nb_streams; ++other) {
        m_format->streams[other]->discard = static_cast<int>(other) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    m_stream = m_format->streams[index];
    m_decoder.reset(avcodec_alloc_context3(codec));
    if (!m_decoder) {
        throw std::bad_alloc();
    }
    int result = avcodec_parameters_to_context(m_decoder.get(), m_stream->codecpar);
    if (result >= 0) {
        m_decoder->thread_count = 1;  // the same damage gives the same frames, and no frame is held back
        m_decoder->pkt_timebase = m_stream->time_base;
        result = avcodec_open2(m_decoder.get(), codec, nullptr);
    }
    if (result < 0 || m_decoder->width <= 0 || m_decoder->height <= 0) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": cannot decode " + codec->name + " of " +
                                                 std::to_string(m_stream->codecpar->width) + "x" +
                                                 std::to_string(m_stream->codecpar->height) +
                                                 (result < 0 ? " (" + reasonOf(result) + ")" : ""));
    }
}

void MediaReader::readInfo() {
    const AVRational pixel = av_guess_sample_aspect_ratio(m_format.get(), const_cast<AVStream*>(m_stream), nullptr);
    const double stretch = pixel.num > 0 && pixel.den > 0 ? av_q2d(pixel) : 1.0;
    m_info.width = static_cast<int>(std::lround(m_decoder->width * stretch));
    m_info.height = m_decoder->height;
    const AVRational rate = av_guess_frame_rate(m_format.get(), const_cast<AVStream*>(m_stream), nullptr);
    m_info.frameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : kRateWhenUnknown;
    if (m_stream->duration != AV_NOPTS_VALUE) {
        m_info.duration = av_rescale_q(m_stream->duration, m_stream->time_base, AVRational{1, 1000000});
    } else if (m_format->duration != AV_NOPTS_VALUE) {
        m_info.duration = av_rescale(m_format->duration, 1000000, AV_TIME_BASE);
    }
    m_info.live = m_kind == SourceKind::Webcam || (m_kind == SourceKind::Network && m_info.duration == 0);
}

std::optional<Frame> MediaReader::next() {
    FramePtr frame = makeFrame();
    for (;;) {
        const int result = avcodec_receive_frame(m_decoder.get(), frame.get());
        if (result >= 0) {
            if (!isDamaged(*frame)) {
                return timed(std::move(frame));
            }
            if (!m_info.live) {
                failAtFrame("the picture's data is damaged");
            }
            av_frame_unref(frame.get());
        } else if (result == AVERROR_EOF) {
            if (!m_info.live) {
                checkEnd();
            }
            return std::nullopt;
        } else if (result != AVERROR(EAGAIN)) {
            failAtFrame(reasonOf(result));
        } else if (!feedDecoder()) {
            avcodec_send_packet(m_decoder.get(), nullptr);
        }
    }
}

/** Gives the decoder one packet; false at the source's end. */
bool MediaReader::feedDecoder() {
    m_deadline = m_kind == SourceKind::File ? SteadyTime::max() : std::chrono::steady_clock::now() + kReadTimeout;
    for (;;) {
        av_packet_unref(m_packet.get());
        const int read = av_read_frame(m_format.get(), m_packet.get());
        if (read == AVERROR(EAGAIN) && interrupted(this) == 0) {
            std::this_thread::sleep_for(kWebcamPoll);
            continue;
        }
        if (read == AVERROR_EOF &&
            (m_format->pb == nullptr || m_format->pb->error >= 0 || m_format->pb->error == AVERROR_EOF)) {
            return false;
        }
        if (read < 0) {
            const int code = read == AVERROR_EOF ? m_format->pb->error : read;
            const std::string reason = code == AVERROR_EXIT ? kNoData : reasonOf(code);
            if (m_info.live) {
                throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": connection lost (" + reason + ")");
            }
            failAtFrame(reason);
        }
        if (m_packet->stream_index != m_stream->index) {
            continue;
        }
        if (!m_info.live && (m_packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
            failAtFrame(interrupted(this) != 0 ? kNoData : "the recording is cut off or damaged there");
        }
        const int sent = avcodec_send_packet(m_decoder.get(), m_packet.get());
        if (sent < 0 && !m_info.live) {
            failAtFrame(reasonOf(sent));
        }
        return true;  // a live source's damaged packet is passed over: the next whole picture follows
    }
}

bool MediaReader::isDamaged(const AVFrame& frame) const {
    return (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame.decode_error_flags != 0;
}

std::optional<Frame> MediaReader::timed(FramePtr frame) {
    const AVRational micros = {1, 1000000};
    const auto interval = static_cast<int64_t>(1e6 / m_info.frameRate);
    int64_t time = m_frames == 0 ? 0 : m_lastTime + interval;
    if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
        const int64_t timestamp = av_rescale_q(frame->best_effort_timestamp, m_stream->time_base, micros);
        if (m_frames == 0) {
            m_firstTimestamp = timestamp;
        }
        time = std::max(timestamp - m_firstTimestamp, m_lastTime + 1);
    }
    const int64_t shown =
        frame->pkt_duration > 0 ? av_rescale_q(frame->pkt_duration, m_stream->time_base, micros) : interval;
    m_lastTime = time;
    m_endTime = time + shown;
    m_frames += 1;
    if (frame->sample_aspect_ratio.num == 0) {
        frame->sample_aspect_ratio = m_stream->sample_aspect_ratio;
    }
    return Frame{time, [picture = SharedPicture(std::move(frame))] { return picture; }};
}

void MediaReader::checkEnd() const {
    const double expected = static_cast<double>(m_info.duration) / 1e6;
    const double got = static_cast<double>(m_endTime) / 1e6;
    const bool guessed = m_format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    if (!guessed && expected - got > kMissingSecondsAllowed) {
        throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": ends at " + secondsText(got) + " of " + secondsText(expected) +
                                                 ", frame " + std::to_string(m_frames));
    }
}

void MediaReader::failAtFrame(const std::string& reason) const {
    throw VideoError(VDO_ERROR_NO_VIDEO, m_name + ": breaks at frame " + std::to_string(m_frames + 1) + " (" +
                                             secondsText(static_cast<double>(m_endTime) / 1e6) + "): " + reason);
}

}  // namespace

std::unique_ptr<FrameReader> openMedia(const std::string& source, SourceKind kind, const std::atomic<bool>& stop) {
    return std::make_unique<MediaReader>(source, kind, stop);
}

}  // namespace desktop

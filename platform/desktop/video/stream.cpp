#include "desktop/video/stream.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "desktop/frames/last_fetched.h"
#include "desktop/frames/resolutions.h"
#include "desktop/frames/video_error.h"

namespace desktop {
namespace {

constexpr auto kBufferPatience = std::chrono::seconds(2);

struct BufferBytes {
    std::vector<uint8_t> bytes;
};

guint32 settingOr(const SettingsMap& settings, const char* name, guint32 def) {
    const auto found = settings.find(name);
    return found == settings.end() ? def : found->second;
}

void requireSetting(bool holds, const std::string& message) {
    if (!holds) {
        throw VideoError(VDO_ERROR_INVALID_ARGUMENT, message);
    }
}

SettingsMap checkedSettings(const SettingsMap& asked, const SourceInfo& source) {
    SettingsMap settings = asked;
    const guint32 channel = settings["channel"] = settingOr(asked, "channel", 1);
    requireSetting(channel == 1, "expected channel 1, got channel " + std::to_string(channel));
    const guint32 format = settings["format"] = settingOr(asked, "format", VDO_FORMAT_YUV);
    requireSetting(format == VDO_FORMAT_YUV, "expected format " + std::to_string(VDO_FORMAT_YUV) +
                                                 " (YUV, NV12), got format " + std::to_string(format));
    const guint32 width = settings["width"] = settingOr(asked, "width", 0);
    const guint32 height = settings["height"] = settingOr(asked, "height", 0);
    const auto& sizes = offeredResolutions(source.width, source.height);
    requireSetting(std::any_of(sizes.begin(), sizes.end(),
                               [&](const auto& size) { return size.width == width && size.height == height; }),
                   "the size " + sizeText(width, height) + " is not offered; offered are " + sizesText(sizes));
    const guint32 rotation = settings["rotation"] = settingOr(asked, "rotation", 0);
    requireSetting(rotation < 360 && rotation % 90 == 0,
                   "expected a rotation of 0, 90, 180 or 270 degrees, got " + std::to_string(rotation));
    const guint32 strategy = settings["buffer.strategy"] =
        settingOr(asked, "buffer.strategy", VDO_BUFFER_STRATEGY_INFINITE);
    requireSetting(strategy == VDO_BUFFER_STRATEGY_EXPLICIT || strategy == VDO_BUFFER_STRATEGY_INFINITE,
                   "expected buffer strategy " + std::to_string(VDO_BUFFER_STRATEGY_EXPLICIT) + " (explicit) or " +
                       std::to_string(VDO_BUFFER_STRATEGY_INFINITE) + " (infinite), got " + std::to_string(strategy));
    settings["framerate"] = static_cast<guint32>(std::lround(source.frameRate));
    return settings;
}

std::vector<BufferPtr>::iterator find(std::vector<BufferPtr>& buffers, const VdoBuffer* buffer) {
    return std::find_if(buffers.begin(), buffers.end(), [&](const BufferPtr& held) { return held.get() == buffer; });
}

}  // namespace

BufferPtr makeBuffer(std::size_t bytes) {
    return BufferPtr(platform_support::makeHandle<VdoBuffer>(
        "SenvoVdoBuffer", std::make_unique<BufferBytes>(BufferBytes{std::vector<uint8_t>(bytes)})));
}

uint8_t* bytesOf(VdoBuffer* buffer) {
    return platform_support::valueOf<BufferBytes>(buffer).bytes.data();
}

Stream::Stream(std::shared_ptr<VideoSource> source, const SettingsMap& asked)
    : m_source(std::move(source)),
      m_settings(checkedSettings(asked, m_source->info())),
      m_bytes(nv12Size(static_cast<int>(m_settings.at("width")), static_cast<int>(m_settings.at("height")))),
      m_converter(static_cast<int>(m_settings.at("width")), static_cast<int>(m_settings.at("height")),
                  static_cast<int>(m_settings.at("rotation"))) {}

Stream::~Stream() {
    stop();
}

bool Stream::isExplicit() const {
    return m_settings.at("buffer.strategy") == VDO_BUFFER_STRATEGY_EXPLICIT;
}

void Stream::attach() {
    const MutexLock lock(m_mutex);
    m_attached = true;
}

void Stream::start() {
    const MutexLock lock(m_mutex);
    if (!m_attached) {
        throw VideoError(VDO_ERROR_FAILED, "the stream is started before it was attached to");
    }
    m_stopped = false;
}

void Stream::stop() {
    {
        const MutexLock lock(m_mutex);
        m_stopped = true;
        m_changed.notifyAll();
    }
    m_source->wake();
}

VdoBuffer* Stream::fetch() {
    if (m_stopped) {
        throw VideoError(VDO_ERROR_FAILED, "a frame is asked of a stream that is not started");
    }
    BufferPtr buffer = takeFreeBuffer();
    try {
        const Delivery delivery = m_source->newest(m_fetched, m_stopped);
        m_converter.convert(*delivery.picture, bytesOf(buffer.get()));
        m_fetched = delivery.number;
        const auto setting = [this](const char* name) { return static_cast<int>(m_settings.at(name)); };
        noteFetched({delivery.picture, setting("rotation"), setting("width"), setting("height"), delivery.micros, 0});
    } catch (...) {
        const MutexLock lock(m_mutex);
        m_free.push_back(std::move(buffer));
        throw;
    }
    const MutexLock lock(m_mutex);
    m_lent.push_back(std::move(buffer));
    return m_lent.back().get();
}

BufferPtr Stream::takeFreeBuffer() {
    const MutexLock lock(m_mutex);
    if (isExplicit()) {
        const auto end = std::chrono::steady_clock::now() + kBufferPatience;
        while (!m_stopped && m_free.empty() && m_changed.waitUntil(m_mutex, end)) {
        }
        if (m_free.empty()) {
            throw VideoError(VDO_ERROR_FAILED, "no buffer is queued to be filled");
        }
    }
    if (m_free.empty()) {
        return makeBuffer(m_bytes);
    }
    BufferPtr buffer = std::move(m_free.front());
    m_free.erase(m_free.begin());
    return buffer;
}

BufferPtr Stream::allocate() const {
    if (!isExplicit()) {
        throw VideoError(VDO_ERROR_INVALID_ARGUMENT, "buffers are allocated with the explicit buffer strategy only");
    }
    return makeBuffer(m_bytes);
}

void Stream::enqueue(VdoBuffer* buffer) {
    const MutexLock lock(m_mutex);
    const auto lent = find(m_lent, buffer);
    if (lent != m_lent.end()) {
        m_free.push_back(std::move(*lent));
        m_lent.erase(lent);
    } else if (!isExplicit() || find(m_free, buffer) != m_free.end() ||
               platform_support::valueOf<BufferBytes>(buffer).bytes.size() != m_bytes) {
        throw VideoError(VDO_ERROR_INVALID_ARGUMENT, "the buffer is queued already or is not this stream's");
    } else {
        m_free.emplace_back(static_cast<VdoBuffer*>(g_object_ref(buffer)));
        m_attached = true;  // whoever brings buffers means to read frames
    }
    m_changed.notifyAll();
}

void Stream::giveBack(VdoBuffer* buffer) {
    const MutexLock lock(m_mutex);
    const auto lent = find(m_lent, buffer);
    if (lent != m_lent.end()) {
        if (!isExplicit()) {
            m_free.push_back(std::move(*lent));
        }
        m_lent.erase(lent);
        return;
    }
    if (!isExplicit()) {
        throw VideoError(VDO_ERROR_INVALID_ARGUMENT, "the buffer was not handed out by this stream");
    }
    const auto queued = find(m_free, buffer);
    if (queued != m_free.end()) {
        m_free.erase(queued);
    }
    const BufferPtr consumers(buffer);
}

}  // namespace desktop

#include <algorithm>
#include <memory>
#include <set>

#include <vdo-channel.h>
#include <vdo-stream.h>

#include "gobject_holder.h"
#include "script.h"
#include "scripted_platform.h"

namespace {

struct MapValue {
    std::map<std::string, uint32_t> values;
};

struct ChannelValue {
    unsigned number;
};

struct BufferValue {
    std::vector<uint8_t> pixels;
    uint8_t* lent = nullptr; /**< instead of pixels */
};

struct StreamValue {
    StreamValue();
    ~StreamValue();
    std::map<std::string, uint32_t> settings;
    std::set<VdoBuffer*> out;
    std::vector<VdoBuffer*> queued; /**< to be filled, oldest first; those of the consumer's own making */
    bool attached = false;
    bool started = false;

    uint32_t setting(const char* name) const {
        const auto found = settings.find(name);
        return found == settings.end() ? 0 : found->second;
    }
    bool isExplicit() const { return setting("buffer.strategy") == VDO_BUFFER_STRATEGY_EXPLICIT; }
    scripted::Size size() const {
        const bool turned = setting("rotation") == 90 || setting("rotation") == 270;
        return turned ? scripted::Size{setting("height"), setting("width")}
                      : scripted::Size{setting("width"), setting("height")};
    }
};

struct VideoScript {
    std::map<unsigned, std::vector<scripted::Size>> channels;
    std::function<void(uint8_t*, uint32_t, uint32_t)> draw;
    uint8_t* lent = nullptr;
    std::map<std::string, uint32_t> lastSettings;
    int framesOut = 0;
    int liveStreams = 0;
};

VideoScript& script() {
    static VideoScript instance;
    return instance;
}

StreamValue::StreamValue() {
    ++script().liveStreams;
}

StreamValue::~StreamValue() {
    --script().liveStreams;
    for (VdoBuffer* buffer : out) {
        g_object_unref(buffer);
    }
}

using platform_support::makeHandle;
using platform_support::valueOf;
using scripted::failsNow;
using scripted::refuse;

bool offers(unsigned channel, scripted::Size size) {
    const auto found = script().channels.find(channel);
    return found != script().channels.end() &&
           std::find(found->second.begin(), found->second.end(), size) != found->second.end();
}

void fill(std::vector<uint8_t>& pixels, uint32_t width, uint32_t height) {
    const size_t luma = size_t{width} * height;
    pixels.assign(luma, 16);
    pixels.resize(luma + luma / 2, 128);
    if (script().draw) {
        script().draw(pixels.data(), width, height);
    }
}

VdoChannel* makeChannel(unsigned number) {
    return makeHandle<VdoChannel>("ScriptedVdoChannel", std::make_unique<ChannelValue>(ChannelValue{number}));
}

}  // namespace

namespace scripted {

void resetVideo() {
    script().channels.clear();
    script().draw = nullptr;
    script().lent = nullptr;
    script().lastSettings.clear();
    script().framesOut = 0;
}

void offerResolutions(unsigned channel, const std::vector<Size>& sizes) {
    script().channels[channel] = sizes;
}

void drawFrames(std::function<void(uint8_t*, uint32_t, uint32_t)> draw) {
    script().draw = std::move(draw);
}

void lendPicture(uint8_t* nv12) {
    script().lent = nv12;
}

const std::map<std::string, uint32_t>& lastStreamSettings() {
    return script().lastSettings;
}

int framesOut() {
    return script().framesOut;
}

int liveStreams() {
    return script().liveStreams;
}

}  // namespace scripted

GQuark vdo_error_quark() {
    return g_quark_from_static_string("vdo-error-quark");
}

VdoMap* vdo_map_new() {
    return failsNow("vdo_map_new") ? nullptr : makeHandle<VdoMap>("ScriptedVdoMap", std::make_unique<MapValue>());
}

void vdo_map_set_uint32(VdoMap* self, const gchar* name, guint32 value) {
    valueOf<MapValue>(self).values[name] = value;
}

guint32 vdo_map_get_uint32(const VdoMap* self, const gchar* name, guint32 def) {
    const auto& values = valueOf<MapValue>(self).values;
    const auto found = values.find(name);
    return found == values.end() ? def : found->second;
}

void vdo_map_dump(const VdoMap* self) {
    for (const auto& [name, value] : valueOf<MapValue>(self).values) {
        g_print("%s: %u\n", name.c_str(), value);
    }
}

VdoStream* vdo_stream_new(VdoMap* settings, VdoFrameCallback, GError** error) {
    if (failsNow("vdo_stream_new", VDO_ERROR, error)) {
        return nullptr;
    }
    auto stream = std::make_unique<StreamValue>();
    stream->settings = valueOf<MapValue>(settings).values;
    script().lastSettings = stream->settings;
    if (!offers(stream->setting("channel"), {stream->setting("width"), stream->setting("height")})) {
        refuse(VDO_ERROR, VDO_ERROR_INVALID_ARGUMENT, "size not offered", error);
        return nullptr;
    }
    stream->settings.emplace("framerate", 25);
    return makeHandle<VdoStream>("ScriptedVdoStream", std::move(stream));
}

gboolean vdo_stream_attach(VdoStream* self, VdoMap*, GError** error) {
    if (failsNow("vdo_stream_attach", VDO_ERROR, error)) {
        return FALSE;
    }
    valueOf<StreamValue>(self).attached = true;
    return TRUE;
}

VdoMap* vdo_stream_get_settings(VdoStream* self, GError** error) {
    if (failsNow("vdo_stream_get_settings", VDO_ERROR, error)) {
        return nullptr;
    }
    auto map = std::make_unique<MapValue>();
    map->values = valueOf<StreamValue>(self).settings;
    return makeHandle<VdoMap>("ScriptedVdoMap", std::move(map));
}

gboolean vdo_stream_start(VdoStream* self, GError** error) {
    if (failsNow("vdo_stream_start", VDO_ERROR, error)) {
        return FALSE;
    }
    valueOf<StreamValue>(self).started = true;
    return TRUE;
}

void vdo_stream_stop(VdoStream* self) {
    failsNow("vdo_stream_stop");
    valueOf<StreamValue>(self).started = false;
}

VdoBuffer* vdo_stream_get_buffer(VdoStream* self, GError** error) {
    if (failsNow("vdo_stream_get_buffer", VDO_ERROR, error)) {
        return nullptr;
    }
    StreamValue& stream = valueOf<StreamValue>(self);
    if (!stream.attached || !stream.started) {
        refuse(VDO_ERROR, VDO_ERROR_FAILED, "stream is not attached and started", error);
        return nullptr;
    }
    const auto [width, height] = stream.size();
    VdoBuffer* handle = nullptr;
    if (!stream.isExplicit()) {
        handle = makeHandle<VdoBuffer>("ScriptedVdoBuffer", std::make_unique<BufferValue>());
    } else if (!stream.queued.empty()) {
        handle = stream.queued.front();
        stream.queued.erase(stream.queued.begin());
    } else {
        refuse(VDO_ERROR, VDO_ERROR_FAILED, "no buffer is queued to be filled", error);
        return nullptr;
    }
    valueOf<BufferValue>(handle).lent = script().lent;
    if (script().lent == nullptr) {
        fill(valueOf<BufferValue>(handle).pixels, width, height);
    }
    stream.out.insert(handle);
    ++script().framesOut;
    return handle;
}

gboolean vdo_stream_buffer_unref(VdoStream* self, VdoBuffer** buffer, GError** error) {
    if (failsNow("vdo_stream_buffer_unref", VDO_ERROR, error)) {
        return FALSE;
    }
    StreamValue& stream = valueOf<StreamValue>(self);
    const bool wasOut = stream.out.erase(*buffer) != 0;
    if (stream.isExplicit()) {
        std::erase(stream.queued, *buffer);
    } else if (!wasOut) {
        refuse(VDO_ERROR, VDO_ERROR_INVALID_ARGUMENT, "not a frame of this stream", error);
        return FALSE;
    }
    g_object_unref(*buffer);
    *buffer = nullptr;
    script().framesOut -= wasOut ? 1 : 0;
    return TRUE;
}

VdoBuffer* vdo_stream_buffer_alloc(VdoStream* self, gpointer, GError** error) {
    if (failsNow("vdo_stream_buffer_alloc", VDO_ERROR, error)) {
        return nullptr;
    }
    const auto [width, height] = valueOf<StreamValue>(self).size();
    auto buffer = std::make_unique<BufferValue>();
    buffer->pixels.resize(size_t{width} * height * 3 / 2);
    return makeHandle<VdoBuffer>("ScriptedVdoBuffer", std::move(buffer));
}

gboolean vdo_stream_buffer_enqueue(VdoStream* self, VdoBuffer* buffer, GError** error) {
    if (failsNow("vdo_stream_buffer_enqueue", VDO_ERROR, error)) {
        return FALSE;
    }
    StreamValue& stream = valueOf<StreamValue>(self);
    if (stream.out.erase(buffer) != 0) {
        --script().framesOut;
    }
    if (stream.isExplicit()) {
        stream.attached = true;  // whoever brings buffers means to read frames
        stream.queued.push_back(buffer);
    }
    return TRUE;
}

gpointer vdo_buffer_get_data(VdoBuffer* self) {
    if (failsNow("vdo_buffer_get_data")) {
        return nullptr;
    }
    BufferValue& buffer = valueOf<BufferValue>(self);
    return buffer.lent != nullptr ? buffer.lent : buffer.pixels.data();
}

VdoChannel* vdo_channel_get(guint number, GError** error) {
    if (failsNow("vdo_channel_get", VDO_ERROR, error)) {
        return nullptr;
    }
    if (!script().channels.contains(number)) {
        refuse(VDO_ERROR, VDO_ERROR_NOT_FOUND, "no such channel", error);
        return nullptr;
    }
    return makeChannel(number);
}

GList* vdo_channel_get_all(GError** error) {
    if (failsNow("vdo_channel_get_all", VDO_ERROR, error)) {
        return nullptr;
    }
    GList* channels = nullptr;
    for (const auto& [number, sizes] : script().channels) {
        channels = g_list_append(channels, makeChannel(number));
    }
    return channels;
}

VdoResolutionSet* vdo_channel_get_resolutions(VdoChannel* self, VdoMap*, GError** error) {
    if (failsNow("vdo_channel_get_resolutions", VDO_ERROR, error)) {
        return nullptr;
    }
    const std::vector<scripted::Size>& sizes = script().channels[valueOf<ChannelValue>(self).number];
    auto* const set =
        static_cast<VdoResolutionSet*>(g_malloc0(sizeof(VdoResolutionSet) + sizes.size() * sizeof(VdoResolution)));
    set->count = sizes.size();
    for (size_t i = 0; i < sizes.size(); ++i) {
        set->resolutions[i] = {sizes[i].width, sizes[i].height};
    }
    return set;
}

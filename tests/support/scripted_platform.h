#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <axoverlay.h>

/**
 * The platform's interfaces in memory, for tests: every call can be made to fail at a chosen invocation, once or for
 * good, with a chosen error; calls are counted. It stands where a program has the camera's libraries, by linking.
 *
 * One script per process; reset() between tests. The script itself is not thread-safe; the calls are as safe as the
 * services that they stand for.
 */
namespace scripted {

struct Fault {
    int code = 0;
    std::string message; /**< empty: the call fails without filling the caller's error */
};

/** Brings every service back to its beginning: nothing offered, nothing stored, no faults, no calls counted. */
void reset();

/** How often a call was made since reset(), failed ones included. */
int calls(const std::string& call);

/** Makes the invocation-th call from now on (1 is the next) fail, once. */
void failAt(const std::string& call, int invocation, const Fault& fault);

/** Makes the invocation-th call from now on and every one after it fail. */
void failFrom(const std::string& call, int invocation, const Fault& fault);

/** Makes the next call throw std::runtime_error. */
void throwNext(const std::string& call, const std::string& what);

/** Takes planned faults of a call back. */
void heal(const std::string& call);

// --- Video -----------------------------------------------------------------------------------------------------------

struct Size {
    uint32_t width;
    uint32_t height;
    bool operator==(const Size&) const = default;
};

/** The sizes of a channel, in the order listed; channels are 1 and up. Streams of other sizes are refused. */
void offerResolutions(unsigned channel, const std::vector<Size>& sizes);

/** Fills each frame handed out: NV12 of the stream's size after rotation. Without one, frames are black. */
void drawFrames(std::function<void(uint8_t* nv12, uint32_t width, uint32_t height)> draw);

/**
 * Every frame handed out is this picture from now on, of the stream's size after rotation: it stays the caller's, and
 * handing it out takes no time.
 */
void lendPicture(uint8_t* nv12);

/** Settings of the stream made last. */
const std::map<std::string, uint32_t>& lastStreamSettings();

/** Frames handed out and not given back. */
int framesOut();

/** Streams alive. */
int liveStreams();

// --- Inference -------------------------------------------------------------------------------------------------------

struct Candidate {
    int classId = 0;
    float score = 0.0F;
    float ymin = 0.0F;
    float xmin = 0.0F;
    float ymax = 0.0F;
    float xmax = 0.0F;
};

/** What every following job finds, in this order. */
void find(const std::vector<Candidate>& candidates);

/** Asked at every job; receives the input tensor's bytes. Replaces find(). */
void onJob(std::function<std::vector<Candidate>(const std::vector<uint8_t>& input)> job);

/** The same for who does not look at the input, which is then not read. */
void onEachJob(std::function<std::vector<Candidate>()> job);

/** Bytes written to output tensors since reset(). */
size_t tensorBytes();

/** How many input and output tensors the model claims to have. */
void setTensorCounts(size_t inputs, size_t outputs);

// --- Parameters ------------------------------------------------------------------------------------------------------

/** The store's content; the platform's own parameters stand under their full names. */
std::map<std::string, std::string>& parameters();

/** Every add, get, set and callback in order: "add NAME", "get NAME", "set NAME=VALUE", "callback NAME". */
std::vector<std::string>& parameterCalls();

/** Whether the store was released with ax_parameter_free since reset(). */
bool storeReleased();

// --- Events ----------------------------------------------------------------------------------------------------------

struct SentEvent {
    uint32_t declaration = 0;
    std::string topic; /**< the declaration's "topic2" */
    std::map<std::string, std::string> values;
};

struct Declaration {
    bool stateless = false;
    std::map<std::string, std::string> keys; /**< key, with its namespace and ":" before it when it has one, to value */
    std::vector<std::string> dataKeys;
    std::map<std::string, std::string> niceNames; /**< key to "key name/value name" */
};

const std::map<uint32_t, Declaration>& declarations();
std::vector<SentEvent>& sentEvents();

// --- Overlay ---------------------------------------------------------------------------------------------------------

/** Overlays alive, by identifier. */
const std::vector<int>& overlays();

/** How an overlay was asked for. */
const axoverlay_overlay_data& overlayData(int id);

/**
 * This stream, and no other, is watched from now on: at each redraw the overlays are drawn on what contextFor gives for
 * the size that the overlay is to have. Without contextFor nobody watches.
 */
void watch(const axoverlay_stream_data& stream, std::function<gpointer(int width, int height)> contextFor);

/** The stream as an overlay of any identifier would be drawn on it, at once. */
void drawOverlay(int id, axoverlay_stream_data stream, gpointer context);

}  // namespace scripted

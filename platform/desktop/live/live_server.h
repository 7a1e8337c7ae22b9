#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "desktop/frames/video_source.h"
#include "desktop/live/anonymised_stream.h"
#include "desktop/live/picture_maker.h"
#include "desktop/live/viewer.h"

namespace desktop {

/** What the live picture is made from; all of it outlives the server. */
struct LiveParts {
    VideoSource& source;
    DrawingDesk& desk;
    const Sightings& sightings;
    const AnonymisedStream& anonymised;
    const std::atomic<int>& rotation; /**< of the pictures, in degrees clockwise */
    bool mirrored = false;
    Clock& clock;
};

/**
 * The live picture over HTTP, on a UNIX socket: single pictures and endless ones, for many viewers at once, by one
 * thread that waits for nobody. A picture of a stream is made once for all who want it then; without viewers nothing is
 * made.
 *
 * A stream with overlays shows the frames that the analysis has drawn on. When there is no drawing for two seconds, it
 * goes on with the source's pictures; the anonymised stream is pixelated then, and so is every stream before the first
 * redraw. The anonymised stream lags by a second and more: its pictures wait until the analysis has looked at what came
 * behind them, and are covered wherever something was found, whatever the application draws.
 */
class LiveServer {
public:
    static constexpr int kMostViewers = 100;

    /** Listens and starts the thread. Throws std::runtime_error, naming the socket, when it cannot. */
    LiveServer(const std::string& socketPath, const LiveParts& parts);

    /** Ends every connection and removes the socket. */
    ~LiveServer();
    LiveServer(const LiveServer&) = delete;
    LiveServer& operator=(const LiveServer&) = delete;

    /** Makes the thread look at the desk and at the settings. Any thread. */
    void wake();

    /** How many pictures were made since the start. Any thread. */
    uint64_t picturesMade() const { return m_picturesMade; }

    /** How many viewers get pictures. Any thread. */
    std::size_t viewers() const { return m_watching; }

private:
    /** What some viewers see. */
    struct Key {
        StreamSize size;
        bool overlays = true;
        bool operator<(const Key& other) const {
            return std::tie(size, overlays) < std::tie(other.size, other.overlays);
        }
    };
    struct Stream {
        Clock::TimePoint lastDrawing;  // when it was drawn; at first when the stream was first wanted
        uint64_t lastNumber = 0;       // of the source's frame shown last, if it was not drawn on
        std::deque<Drawing> held;      // until it is known whom they have to hide, the oldest first
        std::unique_ptr<PictureMaker> maker;
    };

    void run();
    void serveSockets(int timeout);
    void acceptViewers();
    void answer(Viewer& viewer, const std::string& line);
    void dropViewers();
    void refreshStreams();
    void showStreams();
    std::optional<Drawing> next(const Key& key, Stream& stream);
    void letGo(Stream& stream);
    std::vector<Mask> masksOf(const Key& key, const Drawing& drawing, bool analysed) const;
    void show(const Key& key, Stream& stream, const Drawing& drawing, bool analysed);
    std::string reasonToHide(const Key& key, const Drawing& drawing, bool analysed) const;
    std::optional<Drawing> newestOf(Stream& stream) const;
    void refuseWaiting(const Key& key, const Refusal& refusal);
    bool isWanted(const Key& key, const Viewer& viewer) const;
    bool isWanted(const Key& key) const;
    int timeout() const;

    const LiveParts m_parts;
    const std::string m_socketPath;
    std::vector<StreamSize> m_sizes;  // on offer, the largest first
    UniqueFd m_listener;
    UniqueFd m_wakeUp;
    std::atomic<bool> m_stop = false;
    std::atomic<uint64_t> m_picturesMade = 0;
    std::atomic<std::size_t> m_watching = 0;
    std::list<Viewer> m_viewers;       // of the thread alone
    std::map<Key, Stream> m_streams;   // of the thread alone
    bool m_descriptorsRanOut = false;  // of the thread alone
    std::thread m_thread;              // last, so that it starts when all else is there
};

}  // namespace desktop

#include "desktop/live/live_server.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "desktop/frames/resolutions.h"
#include "desktop/frames/video_error.h"
#include "desktop/live/live_socket.h"

namespace desktop {
namespace {

constexpr auto kSilence = std::chrono::seconds(2);      // without a drawing, before the stream goes on without
constexpr auto kLongestWait = std::chrono::seconds(8);  // for a first picture
constexpr int64_t kShortestStep = 150000;  // microseconds between frames that wait, each of which takes memory
constexpr auto kLongestStill = std::chrono::seconds(30);
constexpr double kOwnReach = 0.06;  // arms and legs that a box leaves out
constexpr int kNiceness = 10;
constexpr int kLookAround = 100;  // milliseconds

std::vector<StreamSize> offeredSizes(const SourceInfo& info) {
    std::vector<StreamSize> sizes;
    for (const VdoResolution& size : offeredResolutions(info.width, info.height)) {
        sizes.push_back({static_cast<int>(size.width), static_cast<int>(size.height)});
    }
    return sizes;
}

}  // namespace

LiveServer::LiveServer(const std::string& socketPath, const LiveParts& parts)
    : m_parts(parts),
      m_socketPath(socketPath),
      m_sizes(offeredSizes(parts.source.info())),
      m_listener(listenOn(socketPath)),
      m_wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_thread([this] { run(); }) {}

LiveServer::~LiveServer() {
    m_stop = true;
    wake();
    m_thread.join();
    m_parts.desk.watch({});
    unlink(m_socketPath.c_str());
}

void LiveServer::wake() {
    eventfd_write(m_wakeUp.get(), 1);
}

void LiveServer::run() {
    // Where there are too few processors for both, the analysis goes first.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
    while (!m_stop) {
        serveSockets(timeout());
        dropViewers();
        refreshStreams();
        showStreams();
        // Whoever has all that was asked for goes at once.
        dropViewers();
        refreshStreams();
    }
}

/** How long nothing may happen: for ever without viewers; half a frame when frames come without drawings. */
int LiveServer::timeout() const {
    if (m_viewers.empty()) {
        return -1;
    }
    const auto now = m_parts.clock.now();
    const bool follows = std::any_of(m_streams.begin(), m_streams.end(), [&](const auto& entry) {
        return !entry.first.overlays || now >= entry.second.lastDrawing + kSilence;
    });
    const double halfFrame = 500.0 / m_parts.source.info().frameRate;
    return follows ? std::clamp(static_cast<int>(std::lround(halfFrame)), 5, kLookAround) : kLookAround;
}

void LiveServer::serveSockets(int timeout) {
    // A viewer for whom there was no descriptor would wake the poll at once, again and again.
    const bool rests = std::exchange(m_descriptorsRanOut, false);
    std::vector<pollfd> sockets = {{m_wakeUp.get(), POLLIN, 0},
                                   {m_listener.get(), static_cast<short>(rests ? 0 : POLLIN), 0}};
    for (const Viewer& viewer : m_viewers) {
        const int events = POLLIN | (viewer.hasMoreToWrite() ? POLLOUT : 0);
        sockets.push_back({viewer.descriptor(), static_cast<short>(events), 0});
    }
    poll(sockets.data(), sockets.size(), rests && timeout < 0 ? kLookAround : timeout);
    if ((sockets[0].revents & POLLIN) != 0) {
        eventfd_t ignored = 0;
        eventfd_read(m_wakeUp.get(), &ignored);
    }
    std::size_t index = 2;
    for (Viewer& viewer : m_viewers) {
        const int events = sockets[index++].revents;
        if ((events & POLLOUT) != 0) {
            viewer.write(m_parts.clock.now());
        }
        if ((events & ~POLLOUT) != 0) {
            if (const auto line = viewer.read()) {
                answer(viewer, *line);
            }
        }
    }
    if ((sockets[1].revents & POLLIN) != 0) {
        acceptViewers();
    }
}

void LiveServer::acceptViewers() {
    for (;;) {
        UniqueFd socket(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0) {
            m_descriptorsRanOut = errno == EMFILE || errno == ENFILE;
            return;
        }
        m_viewers.emplace_back(std::move(socket), m_parts.clock.now());
    }
}

void LiveServer::answer(Viewer& viewer, const std::string& line) {
    const auto now = m_parts.clock.now();
    const auto asked = parseLiveRequest(line, m_sizes);
    const auto watching = std::count_if(m_viewers.begin(), m_viewers.end(),
                                        [](const Viewer& other) { return other.request().has_value(); });
    if (const auto* const refusal = std::get_if<Refusal>(&asked)) {
        viewer.refuse(*refusal, now);
    } else if (watching >= kMostViewers) {
        viewer.refuse({503, "expected at most " + std::to_string(kMostViewers) + " viewers, who are there already"},
                      now);
    } else {
        viewer.watch(std::get<LiveRequest>(asked), now);
    }
}

void LiveServer::dropViewers() {
    const auto now = m_parts.clock.now();
    for (Viewer& viewer : m_viewers) {
        const auto& request = viewer.request();
        if (request && !request->overlays && m_parts.anonymised.is(request->size)) {
            viewer.refuse({403, "overlays=0: expected overlays=1 for " + textOf(request->size) +
                                    ", which the settings want anonymised"},
                          now);
        } else if (viewer.waitsForTheFirst() && now >= viewer.lastMoved() + kLongestWait) {
            viewer.refuse({503, "no picture has come yet"}, now);
        }
    }
    std::erase_if(m_viewers, [&](const Viewer& viewer) {
        const bool mayRest = viewer.request() && !viewer.hasMoreToWrite();
        return viewer.isOver() || (!mayRest && now >= viewer.lastMoved() + kLongestStill);
    });
}

/** Streams come and go with their viewers. */
void LiveServer::refreshStreams() {
    std::map<Key, Stream> wanted;
    std::size_t watching = 0;
    for (const Viewer& viewer : m_viewers) {
        if (const auto& request = viewer.request()) {
            ++watching;
            const Key key = {request->size, request->overlays};
            if (wanted.contains(key)) {
                continue;
            }
            auto known = m_streams.extract(key);
            if (known.empty()) {
                wanted[key].lastDrawing = m_parts.clock.now();
            } else {
                wanted.insert(std::move(known));
            }
        }
    }
    m_streams = std::move(wanted);
    std::set<StreamSize> drawn;
    for (const auto& [key, stream] : m_streams) {
        if (key.overlays) {
            drawn.insert(key.size);
        }
    }
    m_parts.desk.watch(drawn);
    m_watching = watching;
}

bool LiveServer::isWanted(const Key& key, const Viewer& viewer) const {
    return viewer.wantsPicture(m_parts.clock.now()) && viewer.request()->size == key.size &&
           viewer.request()->overlays == key.overlays;
}

bool LiveServer::isWanted(const Key& key) const {
    return std::any_of(m_viewers.begin(), m_viewers.end(), [&](const Viewer& viewer) { return isWanted(key, viewer); });
}

void LiveServer::showStreams() {
    for (auto& [key, stream] : m_streams) {
        try {
            std::optional<Drawing> drawing = next(key, stream);
            if (drawing) {
                show(key, stream, *drawing, true);
                m_parts.desk.giveBack(std::move(drawing->overlays));
            } else if (isWanted(key) && (!key.overlays || m_parts.clock.now() >= stream.lastDrawing + kSilence)) {
                letGo(stream);
                if (const auto newest = newestOf(stream)) {
                    show(key, stream, *newest, false);
                }
            }
        } catch (const std::exception& error) {
            refuseWaiting(key, {503, std::string("no picture: ") + error.what()});
        }
    }
}

/**
 * The drawing to show next, nothing while there is none. Those of a stream on which people are hidden wait until the
 * analysis has looked at what came behind them.
 */
std::optional<Drawing> LiveServer::next(const Key& key, Stream& stream) {
    std::optional<Drawing> drawing = key.overlays ? m_parts.desk.take(key.size) : std::nullopt;
    if (drawing) {
        stream.lastDrawing = drawing->when;
    }
    if (!m_parts.anonymised.is(key.size)) {
        letGo(stream);
        return drawing;
    }
    if (drawing) {
        if (stream.held.empty() || drawing->frame.micros >= stream.held.back().frame.micros + kShortestStep) {
            stream.held.push_back(std::move(*drawing));
        } else {
            clearAll(drawing->overlays);
            m_parts.desk.giveBack(std::move(drawing->overlays));
        }
    }
    std::optional<Drawing> settled;
    while (!stream.held.empty() && m_parts.sightings.isSettled(stream.held.front().frame.micros)) {
        if (settled) {
            clearAll(settled->overlays);
            m_parts.desk.giveBack(std::move(settled->overlays));
        }
        settled = std::move(stream.held.front());
        stream.held.pop_front();
    }
    return settled;
}

/** Gives up what waits to be shown. */
void LiveServer::letGo(Stream& stream) {
    for (Drawing& drawing : stream.held) {
        clearAll(drawing.overlays);
        m_parts.desk.giveBack(std::move(drawing.overlays));
    }
    stream.held.clear();
}

/** What covers people beside what the application draws: it need not have obeyed the settings. */
std::vector<Mask> LiveServer::masksOf(const Key& key, const Drawing& drawing, bool analysed) const {
    if (!analysed || !m_parts.anonymised.is(key.size) || !drawing.frame.found) {
        return {};
    }
    std::vector<Mask> masks = m_parts.sightings.around(drawing.frame.micros);
    for (const FoundBox& box : *drawing.frame.found) {
        masks.push_back({box, kOwnReach});
    }
    return masks;
}

/** The source's newest frame, without drawings; nothing when it was shown already. */
std::optional<Drawing> LiveServer::newestOf(Stream& stream) const {
    const Delivery newest = m_parts.source.current();
    if (std::exchange(stream.lastNumber, newest.number) == newest.number) {
        return std::nullopt;
    }
    return Drawing{
        .frame = {.picture = newest.picture, .rotation = m_parts.rotation}, .overlays = {}, .when = {}, .before = {}};
}

std::string LiveServer::reasonToHide(const Key& key, const Drawing& drawing, bool analysed) const {
    if (!m_parts.desk.everRedrawn()) {
        return "Analysis is starting: picture hidden";
    }
    if (m_parts.anonymised.isUnknown(key.size)) {
        return "Settings cannot be read or saved: picture hidden";
    }
    if (!m_parts.anonymised.is(key.size)) {
        return "";
    }
    if (!analysed) {
        return "Analysis is not running: picture hidden";
    }
    if (!drawing.frame.found) {
        return "Nobody has looked for people: picture hidden";
    }
    if (drawing.overlays.empty()) {
        return "Nothing is drawn: picture hidden";
    }
    // Where two choices are equal the application prefers what hides nobody.
    const bool isAnalysed = key.size == StreamSize{drawing.frame.width, drawing.frame.height};
    if (isAnalysed || m_parts.anonymised.yields(key.size)) {
        return isAnalysed ? "The analysed size is not anonymised: choose another"
                          : "Overlays are chosen for this size, too: choose another";
    }
    return m_parts.anonymised.mayLackMasks(drawing) ? "Anonymising begins: picture hidden" : "";
}

/** Makes one picture for all who want one now; without them, it only clears what was drawn. */
void LiveServer::show(const Key& key, Stream& stream, const Drawing& drawing, bool analysed) {
    if (!isWanted(key)) {
        clearAll(drawing.overlays);
        return;
    }
    if (!stream.maker || stream.maker->rotation() != drawing.frame.rotation) {
        stream.maker = std::make_unique<PictureMaker>(key.size, drawing.frame.rotation, m_parts.mirrored);
    }
    const std::string reason = reasonToHide(key, drawing, analysed);
    const auto jpeg = std::make_shared<const std::string>(
        stream.maker->make(*drawing.frame.picture, masksOf(key, drawing, analysed), drawing.overlays, reason));
    ++m_picturesMade;
    if (reasonToHide(key, drawing, analysed) != reason) {
        return;  // the settings have changed while it was made
    }
    for (Viewer& viewer : m_viewers) {
        if (isWanted(key, viewer)) {
            viewer.show(jpeg, m_parts.clock.now());
        }
    }
}

void LiveServer::refuseWaiting(const Key& key, const Refusal& refusal) {
    for (Viewer& viewer : m_viewers) {
        if (viewer.waitsForTheFirst() && isWanted(key, viewer)) {
            viewer.refuse(refusal, m_parts.clock.now());
        }
    }
}

}  // namespace desktop

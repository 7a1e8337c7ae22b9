#include <algorithm>
#include <array>

#include "counting.h"

namespace accuracy {
namespace {

using desktop::Detection;

/** One coordinate with its speed, as a constant-velocity Kalman filter follows it. */
struct Coordinate {
    double place = 0;
    double speed = 0;
    double pp = 1;
    double ps = 0;
    double ss = 1;

    void predict(double step, double unrest) {
        place += speed * step;
        pp += 2 * step * ps + step * step * ss + unrest * step * step * step / 3;
        ps += step * ss + unrest * step * step / 2;
        ss += unrest * step;
    }

    void correct(double seen, double noise) {
        const double sum = pp + noise;
        const double gain = pp / sum;
        const double speedGain = ps / sum;
        const double off = seen - place;
        place += gain * off;
        speed += speedGain * off;
        ss -= speedGain * ps;
        ps -= gain * ps;
        pp -= gain * pp;
    }
};

constexpr double kLongestGap = 1;  // seconds
constexpr int kHits = 3;

}  // namespace

struct PlainCount::Track {
    std::array<Coordinate, 4> edges; /**< left, top, right, bottom */
    int hits = 1;
    double lastSeen = 0;
    int side = 0;

    Detection box() const {
        return {static_cast<float>(edges[0].place), static_cast<float>(edges[1].place),
                static_cast<float>(edges[2].place), static_cast<float>(edges[3].place)};
    }
};

PlainCount::PlainCount(const Scene& scene)
    : m_lineUpright(scene.lineUpright), m_locatorAtBottom(scene.locatorAtBottom), m_step(1 / scene.cyclesPerSecond) {}

PlainCount::~PlainCount() = default;

void PlainCount::cycle(const std::vector<Detection>& boxes, double seconds) {
    struct Pair {
        double overlap;
        size_t track;
        size_t box;
    };
    std::vector<Pair> pairs;
    for (size_t t = 0; t < m_tracks.size(); ++t) {
        const Detection last = m_tracks[t].box();
        const double height = last.bottom - last.top;
        for (Coordinate& edge : m_tracks[t].edges) {
            edge.predict(m_step, height * height);
        }
        const Detection expected = m_tracks[t].box();
        for (size_t b = 0; b < boxes.size(); ++b) {
            const double overlap = desktop::intersectionOverUnion(expected, boxes[b]);
            if (boxes[b].score > kSensitivity && overlap > 0.2) {
                pairs.push_back({overlap, t, b});
            }
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.overlap > b.overlap; });
    std::vector<bool> trackTaken(m_tracks.size(), false);
    std::vector<bool> boxTaken(boxes.size(), false);
    for (const Pair& pair : pairs) {
        if (trackTaken[pair.track] || boxTaken[pair.box]) {
            continue;
        }
        trackTaken[pair.track] = boxTaken[pair.box] = true;
        Track& track = m_tracks[pair.track];
        const Detection& seen = boxes[pair.box];
        const double height = seen.bottom - seen.top;
        const double noise = 0.05 * height * 0.05 * height;
        const std::array<double, 4> edges = {seen.left, seen.top, seen.right, seen.bottom};
        for (size_t i = 0; i < edges.size(); ++i) {
            track.edges[i].correct(edges[i], noise);
        }
        ++track.hits;
        track.lastSeen = seconds;
    }
    for (size_t b = 0; b < boxes.size(); ++b) {
        if (boxes[b].score > kSensitivity && !boxTaken[b]) {
            Track track;
            const std::array<double, 4> edges = {boxes[b].left, boxes[b].top, boxes[b].right, boxes[b].bottom};
            for (size_t i = 0; i < edges.size(); ++i) {
                track.edges[i].place = edges[i];
                track.edges[i].pp = 0.0025 * (edges[3] - edges[1]) * (edges[3] - edges[1]);
                track.edges[i].ss = (edges[3] - edges[1]) * (edges[3] - edges[1]);
            }
            track.lastSeen = seconds;
            m_tracks.push_back(track);
        }
    }
    std::erase_if(m_tracks, [&](const Track& track) { return seconds - track.lastSeen > kLongestGap; });
    for (Track& track : m_tracks) {
        const Detection box = track.box();
        const float x = (box.left + box.right) / 2;
        const float middle = (box.top + box.bottom) / 2;
        const float y = m_locatorAtBottom ? box.bottom : middle;
        const int side = (m_lineUpright ? x : y) < kLine ? -1 : 1;
        if (track.hits < kHits) {
            continue;
        }
        if (track.side != 0 && side != track.side) {
            m_counts.push_back({seconds, side > 0, m_lineUpright ? middle : x});
        }
        track.side = side;
    }
}

}  // namespace accuracy

#pragma once

#include <deque>
#include <opencv2/core/types.hpp>
#include <optional>

namespace desktop {

/** How large one object is at some place of the picture; pixels of the working picture. */
struct UsualSize {
    double width = 0;
    double height = 0;
    double area = 0; /**< of its outline */
};

/**
 * Learns from objects that were seen alone how large one is at each place: what is farther is smaller. The sizes on
 * which it relies lie below the middle of those seen, for a pair that always walks as one is taken for one.
 */
class MotionSizes {
public:
    explicit MotionSizes(cv::Size picture) : m_picture(picture) {}

    /** Adds an object that was seen whole and alone. */
    void add(const cv::Rect2d& box, double area);

    /**
     * The usual size around a place. Where too few were seen it follows from those seen above and below; nothing as
     * long as there are too few of these.
     */
    [[nodiscard]] std::optional<UsualSize> at(const cv::Point2d& centre) const;

private:
    struct Seen {
        cv::Point2d centre;
        UsualSize size;
    };

    [[nodiscard]] std::optional<UsualSize> byPerspective(double y) const;

    cv::Size m_picture;
    std::deque<Seen> m_seen;
};

}  // namespace desktop

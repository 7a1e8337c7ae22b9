// From changed pixels to things.
//
// Idea: changes of more than light are closed and cut into connected fragments. A plain surface of an object can pass
// for a shadow, which breaks the object into its outlines; so two fragments that a region of changed light connects are
// one thing when that region fills the space between them. A shadow on the ground lies beside its object, fills no such
// space, and stays out. Fragments that stand closely above each other are one thing as well, for people's belts and
// collars often match the floor.
//
// A ghost is what stays behind when something that was learned as background leaves. Its outline is in the background
// and not in the picture; a thing's outline is in the picture and not in the background; a patch of light has a soft
// outline or none.
//
// Limits: people who stand shoulder to shoulder from their first moment are one thing; those who meet are kept apart by
// their tracks (motion_tracks). To tune: "smallestArea" on the card.

#include "desktop/inference/motion/motion_blobs.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "desktop/inference/motion/motion_background.h"

namespace desktop {
namespace {

constexpr size_t kMostFragments = 48;
constexpr int kSmallestFragment = 8;

/** The mask's holes are filled. */
void fillHoles(cv::Mat& mask) {
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(mask.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    cv::drawContours(mask, contours, -1, cv::Scalar(255), cv::FILLED);
}

std::vector<Blob> connectedParts(const cv::Mat& mask, int smallest) {
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centres;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centres, 8, CV_32S);
    std::vector<Blob> parts;
    for (int label = 1; label < count; ++label) {
        const int* s = stats.ptr<int>(label);
        if (s[cv::CC_STAT_AREA] < smallest) {
            continue;
        }
        Blob part;
        part.box = {s[cv::CC_STAT_LEFT], s[cv::CC_STAT_TOP], s[cv::CC_STAT_WIDTH], s[cv::CC_STAT_HEIGHT]};
        part.mask = labels(part.box) == label;
        part.area = s[cv::CC_STAT_AREA];
        parts.push_back(std::move(part));
    }
    std::stable_sort(parts.begin(), parts.end(), [](const Blob& a, const Blob& b) { return a.area > b.area; });
    return parts;
}

/** The convex hull of two blobs, as a mask of their common box. */
cv::Mat commonHull(const Blob& a, const Blob& b, const cv::Rect& box) {
    std::vector<cv::Point> points;
    for (const Blob* blob : {&a, &b}) {
        std::vector<std::vector<cv::Point>> contours;
        cv::findContours(blob->mask.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE,
                         blob->box.tl() - box.tl());
        for (const auto& contour : contours) {
            points.insert(points.end(), contour.begin(), contour.end());
        }
    }
    std::vector<cv::Point> hull;
    cv::convexHull(points, hull);
    cv::Mat mask = cv::Mat::zeros(box.size(), CV_8U);
    cv::fillConvexPoly(mask, hull, cv::Scalar(255));
    return mask;
}

bool standAboveEachOther(const Blob& a, const Blob& b) {
    const int common = std::min(a.box.br().x, b.box.br().x) - std::max(a.box.x, b.box.x);
    const int gap = std::max(a.box.y, b.box.y) - std::min(a.box.br().y, b.box.br().y);
    const cv::Rect both = a.box | b.box;
    const int narrower = std::min(a.box.width, b.box.width);
    return common * 2 >= narrower && gap * 8 <= both.height;
}

/** Joins b into a when they are one thing. */
bool joinIfOne(Blob& a, const Blob& b, const cv::Mat& changed, const MotionSizes& sizes, double thing) {
    const cv::Rect box = a.box | b.box;
    constexpr double kSmallestPart = 0.05;  // specks at the rim of a shadow are not parts
    if (b.area < kSmallestPart * a.area) {
        return false;
    }
    constexpr int kFarthest = 40;
    if (box.width > a.box.width + b.box.width + kFarthest || box.height > a.box.height + b.box.height + kFarthest) {
        return false;
    }
    const auto usual = sizes.at({box.x + box.width / 2.0, box.y + box.height / 2.0});
    if (!mayBeOne(a, b, usual ? &*usual : nullptr, thing)) {
        return false;
    }
    const cv::Mat hull = commonHull(a, b, box);
    const cv::Mat filled = hull & changed(box);
    constexpr double kFilled = 0.8;
    const bool spaceFilled = cv::countNonZero(filled) >= kFilled * cv::countNonZero(hull);
    if (!spaceFilled && !standAboveEachOther(a, b)) {
        return false;
    }
    cv::Mat mask = spaceFilled ? filled : cv::Mat::zeros(box.size(), CV_8U);
    for (const Blob* blob : {static_cast<const Blob*>(&a), &b}) {
        mask(blob->box - box.tl()).setTo(255, blob->mask);
    }
    a.box = box;
    a.mask = mask;
    a.area = cv::countNonZero(mask);
    return true;
}

void joinFragments(std::vector<Blob>& fragments, const cv::Mat& changed, const MotionSizes& sizes, double thing) {
    bool joined = true;
    while (joined) {
        joined = false;
        for (size_t i = 0; i < fragments.size(); ++i) {
            for (size_t j = i + 1; j < fragments.size();) {
                if (joinIfOne(fragments[i], fragments[j], changed, sizes, thing)) {
                    fragments.erase(fragments.begin() + static_cast<std::ptrdiff_t>(j));
                    joined = true;
                } else {
                    ++j;
                }
            }
        }
    }
}

/** Whether strong changes make up enough of a blob and of the changed light that it encloses: a shadow has only a rim.
 */
bool hasStrongPart(const Blob& blob, const cv::Mat& evidence, const cv::Mat& changed) {
    const cv::Mat strong = (evidence(blob.box) == kStrongChange) & blob.mask;
    const cv::Mat enclosed = commonHull(blob, blob, blob.box) & changed(blob.box);
    constexpr double kStrongPart = 0.35;
    return cv::countNonZero(strong) >= kStrongPart * cv::countNonZero(enclosed);
}

}  // namespace

bool mayBeOne(const Blob& a, const Blob& b, const UsualSize* usual, double thing) {
    const cv::Rect both = a.box | b.box;
    constexpr double kLarger = 1.25;
    if (usual != nullptr) {
        return both.width <= kLarger * usual->width && both.height <= kLarger * usual->height;
    }
    constexpr double kTallest = 3.5;  // times as tall as wide
    constexpr double kAlike = 0.4;
    const bool bothThings = b.area > thing && b.area > kAlike * a.area && a.area > kAlike * b.area;
    return !bothThings && both.height <= kTallest * both.width;
}

std::vector<Blob> findBlobs(const cv::Mat& evidence, double smallestArea, const MotionSizes& sizes) {
    static const cv::Mat element = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 5});
    cv::Mat solid = evidence >= kWeakChange;
    cv::medianBlur(solid, solid, 3);
    cv::morphologyEx(solid, solid, cv::MORPH_CLOSE, element);
    cv::Mat changed = evidence > kBackground;
    cv::morphologyEx(changed, changed, cv::MORPH_CLOSE, element);
    fillHoles(solid);
    changed |= solid;

    std::vector<Blob> fragments = connectedParts(solid, kSmallestFragment);
    if (fragments.size() > kMostFragments) {
        fragments.resize(kMostFragments);
    }
    joinFragments(fragments, changed, sizes, smallestArea);
    std::vector<Blob> blobs;
    for (Blob& fragment : fragments) {
        fillHoles(fragment.mask);
        fragment.area = cv::countNonZero(fragment.mask);
        if (fragment.area >= smallestArea && hasStrongPart(fragment, evidence, changed)) {
            blobs.push_back(std::move(fragment));
        }
    }
    std::stable_sort(blobs.begin(), blobs.end(), [](const Blob& a, const Blob& b) { return a.area > b.area; });
    return blobs;
}

Blob joinBlobs(const std::vector<const Blob*>& parts) {
    Blob all;
    all.box = parts.front()->box;
    all.founding = parts.front()->founding;
    for (const Blob* part : parts) {
        all.box |= part->box;
    }
    all.mask = cv::Mat::zeros(all.box.size(), CV_8U);
    for (const Blob* part : parts) {
        all.mask(part->box - all.box.tl()).setTo(255, part->mask);
    }
    all.area = cv::countNonZero(all.mask);
    return all;
}

double measureFounding(const Blob& blob, const cv::Mat& picture, const cv::Mat& expectedPicture) {
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(blob.mask.clone(), contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, blob.box.tl());
    const cv::Rect whole(0, 0, picture.cols, picture.rows);
    const auto shown = [&](cv::Point p) { return cv::Vec3f(picture.at<cv::Vec3b>(p)); };
    const auto expected = [&](cv::Point p) { return expectedPicture.at<cv::Vec3f>(p); };
    const auto distance = [](const cv::Vec3f& a, const cv::Vec3f& b) { return cv::norm(a - b, cv::NORM_L1); };
    double inPicture = 0;
    double inBackground = 0;
    double difference = 0;
    for (const auto& contour : contours) {
        const size_t length = contour.size();
        constexpr size_t kReach = 3;
        for (size_t i = 0; length > 4 * kReach && i < length; i += 2) {
            const cv::Point along = contour[(i + kReach) % length] - contour[(i + length - kReach) % length];
            const double size = std::hypot(along.x, along.y);
            if (size < 1) {
                continue;
            }
            constexpr double kStep = 3;
            const cv::Point across(static_cast<int>(std::lround(-along.y / size * kStep)),
                                   static_cast<int>(std::lround(along.x / size * kStep)));
            const cv::Point one = contour[i] + across;
            const cv::Point other = contour[i] - across;
            if (!one.inside(whole) || !other.inside(whole)) {
                continue;
            }
            inPicture += distance(shown(one), shown(other));
            inBackground += distance(expected(one), expected(other));
            difference += std::max(distance(shown(one), expected(one)), distance(shown(other), expected(other)));
        }
    }
    return difference > 0 ? (inPicture - inBackground) / difference : 0;
}

}  // namespace desktop

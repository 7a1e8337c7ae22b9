#pragma once

#include <vector>

#include "desktop/inference/steady/followed_object.h"

namespace desktop {

/**
 * Follows all objects before the camera: gives each picture's boxes to the objects that they belong to.
 *
 * Confident boxes choose first, then weak ones are given to objects that are known already, as ByteTrack does (Zhang et
 * al.: ByteTrack, multi-object tracking by associating every detection box, ECCV 2022); objects are expected where a
 * constant velocity takes them, as in SORT (Bewley et al.: Simple online and realtime tracking, ICIP 2016), and pairs
 * are chosen all at once, by how much more likely a box is of an object than of chance.
 */
class Follower {
public:
    /** Takes what was found in a picture. width and height are the picture's, in pixels. */
    void follow(double now, const std::vector<SeenBox>& seen, double width, double height);

    /** Those followed now, oldest first; among them some that were seen too rarely to be believed. */
    std::vector<FollowedObject>& objects() { return m_objects; }
    const std::vector<FollowedObject>& objects() const { return m_objects; }

    /** Those that were known and are followed no more since the last picture. */
    const std::vector<FollowedObject>& gone() const { return m_gone; }

    /** Whether an object was seen often enough to be believed. */
    static bool isKnown(const FollowedObject& object);

    /** Longest time for which an object that is known may be out of sight, in seconds. */
    static constexpr double kLongestGap = 2.0;

private:
    void give(const std::vector<SeenBox>& seen, bool confident, std::vector<bool>& taken, std::vector<bool>& found);
    void begin(double now, const std::vector<SeenBox>& seen, const std::vector<bool>& taken);
    void sortOutTwins(double now);
    FollowedObject* find(int number);
    bool hasGone(const FollowedObject& object, double now, double width, double height) const;

    std::vector<FollowedObject> m_objects;
    std::vector<FollowedObject> m_gone;
    int m_nextNumber = 0;
    double m_jitter = 0.05; /**< deviation of boxes' places, as a fraction of the height, over all objects */
    double m_chance = 0;    /**< confident boxes on a square pixel that are of none of the objects */
};

}  // namespace desktop

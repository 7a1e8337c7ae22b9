#pragma once

namespace desktop {

/**
 * One coordinate of an object with its speed, as a Kalman filter with constant velocity and white acceleration knows it
 * (Bar-Shalom, Li, Kirubarajan: Estimation with applications to tracking and navigation, 2001, 6.2). Units are the
 * caller's: a length, and that length a second.
 */
struct AxisState {
    double place = 0;
    double speed = 0;
    double placeVariance = 0;
    double covariance = 0;
    double speedVariance = 0;

    /** The state so many seconds later; unrest is the acceleration's power, length squared per second cubed. */
    AxisState after(double seconds, double unrest) const {
        AxisState next;
        next.place = place + speed * seconds;
        next.speed = speed;
        next.placeVariance = placeVariance + 2 * seconds * covariance + seconds * seconds * speedVariance +
                             unrest * seconds * seconds * seconds / 3;
        next.covariance = covariance + seconds * speedVariance + unrest * seconds * seconds / 2;
        next.speedVariance = speedVariance + unrest * seconds;
        return next;
    }

    /** Takes in that the place was seen to be off by so much, with so much variance of noise. */
    void correct(double off, double noise) {
        const double sum = placeVariance + noise;
        const double gain = placeVariance / sum;
        const double speedGain = covariance / sum;
        place += gain * off;
        speed += speedGain * off;
        speedVariance -= speedGain * covariance;
        covariance -= gain * covariance;
        placeVariance -= gain * placeVariance;
    }
};

/** Place and speed as they look from later. */
struct SmoothedAxis {
    double place = 0;
    double speed = 0;
};

/**
 * One step back in time of the smoother of Rauch, Tung and Striebel (Maximum likelihood estimates of linear dynamic
 * systems, AIAA Journal 3, 1965): what is known of a moment by all that was seen until later. filtered is that moment's
 * state, expected what it let expect of the next moment, which is so many seconds later, and later what came of that.
 */
inline SmoothedAxis smoothBack(const AxisState& filtered, const AxisState& expected, SmoothedAxis later,
                               double seconds) {
    // Gain = P F' / (expected P), with F = [1 seconds; 0 1].
    const double a = filtered.placeVariance + seconds * filtered.covariance;
    const double b = filtered.covariance;
    const double c = filtered.covariance + seconds * filtered.speedVariance;
    const double d = filtered.speedVariance;
    const double determinant =
        expected.placeVariance * expected.speedVariance - expected.covariance * expected.covariance;
    const double place = later.place - expected.place;
    const double speed = later.speed - expected.speed;
    const double u = (expected.speedVariance * place - expected.covariance * speed) / determinant;
    const double v = (expected.placeVariance * speed - expected.covariance * place) / determinant;
    return {filtered.place + a * u + b * v, filtered.speed + c * u + d * v};
}

}  // namespace desktop

// Trapezoidal motion profiles of the simulated drive.
#include "sim/motion.hpp"

#include <cmath>

namespace ryn::sim {

void Profile::start(int64_t from, int64_t to, double speed, double acceleration, uint64_t now_us) {
    from_ = from;
    forward_ = to >= from;
    distance_ = forward_ ? static_cast<uint64_t>(to) - static_cast<uint64_t>(from)
                         : static_cast<uint64_t>(from) - static_cast<uint64_t>(to);
    start_us_ = now_us;
    acceleration_ = acceleration;
    const double d = static_cast<double>(distance_);
    // With room to reach the speed: ramp up, cruise, ramp down. Otherwise a triangle whose peak
    // is the velocity reached half-way.
    if (d >= speed * speed / acceleration) {
        peak_ = speed;
        ramp_s_ = speed / acceleration;
        duration_s_ = 2 * ramp_s_ + (d - speed * speed / acceleration) / speed;
    } else {
        peak_ = std::sqrt(d * acceleration);
        ramp_s_ = peak_ / acceleration;
        duration_s_ = 2 * ramp_s_;
    }
    active_ = true;
}

Profile::State Profile::at(uint64_t now_us) const {
    const double t = now_us > start_us_ ? static_cast<double>(now_us - start_us_) * 1e-6 : 0.0;
    const double d = static_cast<double>(distance_);
    double travelled, velocity;
    if (t >= duration_s_) {
        travelled = d;
        velocity = 0;
    } else if (t < ramp_s_) {
        travelled = 0.5 * acceleration_ * t * t;
        velocity = acceleration_ * t;
    } else if (t < duration_s_ - ramp_s_) {
        travelled = 0.5 * peak_ * ramp_s_ + peak_ * (t - ramp_s_);
        velocity = peak_;
    } else {
        const double left = duration_s_ - t;
        travelled = d - 0.5 * acceleration_ * left * left;
        velocity = acceleration_ * left;
    }
    const bool done = t >= duration_s_;
    uint64_t offset = distance_;
    if (!done && travelled < d) offset = travelled > 0 ? static_cast<uint64_t>(travelled) : 0;
    if (offset > distance_) offset = distance_;
    const uint64_t base = static_cast<uint64_t>(from_);
    return {static_cast<int64_t>(forward_ ? base + offset : base - offset),
            forward_ ? velocity : -velocity, done};
}

} // namespace ryn::sim

// The motion of a simulated drive's axis: a trapezoidal profile from a start position to a target
// with a speed and an acceleration, evaluated on the bus's clock whenever it is looked at.
#pragma once

#include <cstdint>

namespace ryn::sim {

class Profile {
  public:
    // Starts a move from `from` at rest to `to`; speed and acceleration are positive, in position
    // units per second and per second squared.
    void start(int64_t from, int64_t to, double speed, double acceleration, uint64_t now_us);
    // Ends the move where it is.
    void stop() { active_ = false; }
    bool active() const { return active_; }

    // Position and velocity at `now_us` (a clock earlier than the start counts as the start);
    // `done` tells that the target has been reached.
    struct State {
        int64_t position;
        double velocity;
        bool done;
    };
    State at(uint64_t now_us) const;

  private:
    bool active_ = false;
    int64_t from_ = 0;
    uint64_t distance_ = 0; // |to - from|
    bool forward_ = true;
    uint64_t start_us_ = 0;
    double acceleration_ = 0;
    double peak_ = 0;       // highest velocity reached
    double ramp_s_ = 0;     // time to reach it
    double duration_s_ = 0; // time of the whole move
};

} // namespace ryn::sim

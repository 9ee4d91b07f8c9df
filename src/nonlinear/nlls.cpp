// NLLS: the line search of NLQN. Cubic steps after Davidon (1959); the stop asks for a fall of the
// function and for a small slope of either sign (strong Wolfe conditions).

#include "nonlinear/nlls.h"

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/nonlinear.h"

namespace korvel {
namespace {

constexpr int MOST_CUTS = 5;                           // of a step at whose end there is no value
constexpr double CUT = 0.25;                           // what each leaves of it
constexpr double LEAST_SHARE = 0.1, MOST_SHARE = 0.9;  // of a bracket

struct End {
  double a, f, g;  // step, value, slope
};

class Search {
 public:
  explicit Search(LineSearch& search) : in_(search), left_{0.0, search.f0, search.gs} {
    best_ = left_;
  }

  LineStep run() {
    double a = 1.0;
    // 1. Forwards, until a point is good or the bracket closes.
    for (;;) {
      if (!evaluate(a)) return failure();
      if (above_line()) break;
      if (flat()) return success();
      if (used_ >= MOST_EVALUATIONS) return failure();
      if (here_.g >= 0.0) break;
      a = extrapolated();
      left_ = here_;
    }
    // 2. Inside the bracket from left_ to right.
    End right = here_;
    while (used_ < MOST_EVALUATIONS) {
      const double share = interpolated(right);
      if (!evaluate(left_.a + share * (right.a - left_.a))) break;
      if (above_line() || (here_.g >= 0.0 && !flat())) {
        right = here_;
      } else if (flat()) {
        return success();
      } else {
        left_ = here_;
      }
    }
    return failure();
  }

 private:
  // The point at step a. A step without a value is cut back towards left_. False: give up.
  bool evaluate(double a) {
    for (int cuts = 0; used_ < MOST_EVALUATIONS; ++cuts) {
      if (stop_requested()) {
        stopped_ = true;
        return false;
      }
      ++used_;
      for (std::size_t i = 0; i < in_.x.size(); ++i) in_.x[i] = in_.x0[i] + a * in_.s[i];
      here_.a = a;
      if (in_.run.evaluate(in_.x, in_.gradient, here_.f)) {
        here_.g = dot(in_.gradient, in_.s);
        if (here_.f < best_.f) best_ = here_;
        return true;
      }
      if (cuts == MOST_CUTS) return false;
      a = left_.a + CUT * (a - left_.a);
    }
    return false;
  }

  bool above_line() const { return here_.f > here_.a * in_.ALPHA * in_.gs + in_.f0; }
  bool flat() const { return std::fabs(here_.g) <= -in_.BETA * in_.gs; }

  // The next step beyond here_, by the cubic through left_ and here_: 2 to 11 times as far as here_
  // is from left_.
  double extrapolated() const {
    const double a = here_.a, from = left_.a, g = here_.g, g_from = left_.g;
    const double nearest = 2.0 * a - from, farthest = 11.0 * a - 10.0 * from;
    double z = 3.0 * (left_.f - here_.f) / (a - from) + g_from + g;
    const double w2 = z * z - g_from * g;
    if (w2 >= 0.0) {
      const double w = std::sqrt(w2);
      z += w - g_from;
      double d = g - g_from + 2.0 * w;
      if (d < 0.0) {
        d = -d;
        z = -z;
      }
      if (z > 0.0 && 2.0 * d >= z) return nearest;
      if (z > 0.0 && 11.0 * d >= z) return (a - from) * z / d + from;
    } else if (g > g_from) {
      const double p = std::sqrt(-g_from), q = std::sqrt(-g);
      if (2.0 * q <= p) return nearest;
      if (11.0 * q <= 10.0 * p) return (a * p - from * q) / (p - q);
    }
    return farthest;
  }

  // Share of the bracket at which the cubic through its ends has its minimum, slopes measured
  // against the line of sufficient fall.
  double interpolated(const End& right) const {
    const double c = in_.ALPHA * in_.gs, width = right.a - left_.a;
    const double p = left_.g - c, q = right.g - c;
    const double z = 3.0 * (left_.f - (right.f - c * width)) / width + p + q;
    const double w = std::sqrt(z * z - p * q);
    const double share = (z + w - p) / (q - p + 2.0 * w);
    return std::isfinite(share) ? std::clamp(share, LEAST_SHARE, MOST_SHARE) : 0.5;
  }

  LineStep success() const { return {.accepted = true, .a = here_.a, .f = here_.f, .g = here_.g}; }
  LineStep failure() const { return {.stopped = stopped_, .a = best_.a, .f = best_.f}; }

  LineSearch& in_;
  End left_, here_{}, best_{};
  int used_ = 0;
  bool stopped_ = false;
};

}  // namespace

LineStep NLLS(LineSearch& search) { return Search(search).run(); }

}  // namespace korvel

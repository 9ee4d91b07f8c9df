// TailValue probabilities from a cumulant generating function, by integration along a contour.
//
// P(Q > x) = 1/(2 pi i) times the integral of exp[K(s) - s x] / s over a line from c - i inf to
// c + i inf with c > 0 inside the strip where the generating function exists; P(Q < x) is minus the
// same with c < 0. The line goes through the saddle point of the whole integrand, the minimum on
// the real axis, so that nothing cancels and small tails come with all their digits (Rice 1980,
// SIAM Journal on Scientific and Statistical Computing 1, 438-448). Its ends are bent towards the
// side where exp(-s x) dies out, and the parameter is stretched by sinh, after which the
// trapezoidal rule converges geometrically, however slowly exp K falls (few weights).
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>

#include "stats/probability.h"

namespace korvel {

struct ContourTail {
  double value = 0;
  int IFAULT = 0;  // 1: the halvings of the step left more than 1e-8, absolute and relative
  int points = 0;  // evaluations of K
};

// K: callable for double (on the real axis inside low..high) and std::complex<double>.
// low < 0 < high: the strip, either may be infinite. `above` asks for P(Q > x), else P(Q < x).
template <class Cumulant>
ContourTail contour_tail(const Cumulant& K, double low, double high, double x, bool above) {
  constexpr double bend = 0.6;  // slope of the bent ends against the line
  constexpr double accuracy = 1e-13;
  constexpr double coarse = 1e-8;
  constexpr double negligible = 1e-17;
  constexpr int halvings = 7;
  constexpr double golden = 0.38196601125010515;
  constexpr double pi = 3.14159265358979323846;

  // 1. The saddle point: minimum of K(s) - s x - log |s| between 0 and the end of the strip. It is
  // convex there; the search goes over log s, or over the share of a finite strip.
  const double end = above ? high : low;
  const double sign = above ? 1.0 : -1.0;
  const bool finite = std::isfinite(end);
  const auto point = [&](double u) {
    return finite ? end * (u < 0.0 ? std::exp(u) / (1.0 + std::exp(u)) : 1.0 / (1.0 + std::exp(-u)))
                  : sign * std::exp(u);
  };
  const auto height = [&](double u) {
    const double s = point(u);
    return K(s) - s * x - std::log(std::fabs(s));
  };
  double a = -30.0;
  double b = finite ? 30.0 : 700.0;
  if (!finite) a = -700.0;
  double m = a + golden * (b - a);
  double f = height(m);
  double w = b - golden * (b - a);
  double g = height(w);
  while (b - a > 0.02) {
    // Not a number counts as high: it stands at the end of the strip only.
    if (f <= g || std::isnan(g)) {
      b = w;
      w = m;
      g = f;
      m = a + golden * (b - a);
      f = height(m);
    } else {
      a = m;
      m = w;
      f = g;
      w = b - golden * (b - a);
      g = height(w);
    }
  }
  const double s0 = point(0.5 * (a + b));
  const double top = K(s0) - s0 * x - std::log(std::fabs(s0));

  // 2. Width of the saddle from the curvature on the real axis, no more than the distance to the
  // ends of the interval.
  const double room = finite ? std::min(std::fabs(s0), std::fabs(end - s0)) : std::fabs(s0);
  const double h = 0.05 * room;
  const auto level = [&](double s) { return K(s) - s * x - std::log(std::fabs(s)); };
  const double curvature = (level(s0 + h) - 2.0 * top + level(s0 - h)) / (h * h);
  double width = curvature > 0.0 ? 1.0 / std::sqrt(curvature) : room;
  width = std::min(width, 1.5 * room);
  const double slope = x > 0.0 ? bend : x < 0.0 ? -bend : 0.0;

  // 3. The integral of the upper half, the lower one being its mirror image; midpoints, since K
  // is not asked for on the axis.
  ContourTail result;
  double last = 0.0;
  double last_change = 0.0;
  double step = 0.25;
  for (int n = 0; n < halvings; ++n, step *= 0.5) {
    double sum = 0.0;
    for (int k = 0; k < 750.0 / step; ++k) {
      const double t = (k + 0.5) * step;
      const double sh = std::sinh(t);
      const double ch = std::cosh(t);
      const std::complex<double> s(s0 + width * slope * (ch - 1.0), width * sh);
      const std::complex<double> ds(width * slope * sh, width * ch);
      const std::complex<double> value = std::exp(K(s) - s * x - top) / s * ds;
      ++result.points;
      const double part = value.imag();
      if (!std::isfinite(part)) break;
      sum += part;
      if (t > 1.0 && std::abs(value) <= negligible * std::fabs(sum)) break;
    }
    const double now = sum * step / pi;
    const double change = std::fabs(now - last);
    last = now;
    // Convergence is geometric, so a change that no longer falls is the rounding of K.
    const bool rounding = n > 1 && change > 0.25 * last_change && change <= coarse * std::fabs(now);
    last_change = change;
    if (n > 0 && (rounding || change <= accuracy * std::fabs(now))) break;
  }
  if (last_change > coarse * std::fabs(last) && last_change * std::exp(top) > coarse) {
    result.IFAULT = 1;
  }
  result.value = std::clamp(sign * last * std::exp(top), 0.0, 1.0);
  return result;
}

}  // namespace korvel

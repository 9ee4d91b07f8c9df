// Density of the symmetric stable law, by which MLE fits regressions with heavy-tailed errors.
#pragma once

#include <span>

namespace korvel {

// log of (1/pi) Int_0^inf cos(t w) exp(-t^A) dt for 0.84 <= A <= 2 (the range of McCulloch 1998,
// "Numerical approximation of the symmetric stable distribution and density"). In the middle the
// integral is tabulated: Gauss sums at Chebyshev points of panels in arsinh w, log density and all
// points between by the Chebyshev series; the tails take Bergstroem's series (1952). Relative error
// of the density below 1e-9, but for A within 1e-4 of 2 beyond |w| = 8.
class StableDensity {
 public:
  static constexpr double LOWEST_A = 0.84, HIGHEST_A = 2.0;
  static double held(double A) { return A < LOWEST_A ? LOWEST_A : A > HIGHEST_A ? HIGHEST_A : A; }
  static constexpr int words();

  // Table for A in `room` (words() of it). False: A is outside its range.
  bool prepare(double A, std::span<double> room);
  double log_density(double w) const;

 private:
  static constexpr int MOST_PANELS = 24, POINTS = 16;
  double tail(double w) const;
  double A_ = 0.0;
  double edge_ = 0.0;   // |w| from which the series is taken
  double reach_ = 0.0;  // arsinh of it
  int panels_ = 0;
  const double* table_ = nullptr;
};

constexpr int StableDensity::words() {
  constexpr int most_nodes = 16 * 5 + 16 * 128;
  return MOST_PANELS * POINTS + 2 * most_nodes;
}

}  // namespace korvel

#include "nonlinear/nlmle_stable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;

// Abscissas and weights of 16 Gauss points on -1..1, the positive half (Abramowitz and Stegun 1964,
// 25.4.30).
constexpr std::array<double, 8> GAUSS_X = {0.0950125098376374401853, 0.281603550779258913230,
                                           0.458016777657227386342,  0.617876244402643748447,
                                           0.755404408355003033895,  0.865631202387831743880,
                                           0.944575023073232576078,  0.989400934991649932596};
constexpr std::array<double, 8> GAUSS_W = {0.189450610455068496285,  0.182603415044923588867,
                                           0.169156519395002538189,  0.149595988816576732081,
                                           0.124628971255533872052,  0.0951585116824927848099,
                                           0.0622535239386478928628, 0.0271524594117540948518};

constexpr double PANEL = 0.75;       // of t: 12 radians at the largest w of the table
constexpr int NEAR_PANELS = 5;       // below 1; the last one has about as many
constexpr double NEGLIGIBLE = 40.0;  // exp(-t^A) below 1e-17

// Calls use(t, weight) for the points of the integral over 0..T with the factor exp(-t^A).
template <class F>
void each_node(double A, F&& use) {
  // Near 0 t^A is not smooth: t = x^4 on panels of 0..1.
  for (int p = 0; p < NEAR_PANELS; ++p) {
    for (std::size_t i = 0; i < 16; ++i) {
      const double g = i < 8 ? -GAUSS_X[7 - i] : GAUSS_X[i - 8];
      const double weight = i < 8 ? GAUSS_W[7 - i] : GAUSS_W[i - 8];
      const double x = (p + 0.5 + 0.5 * g) / NEAR_PANELS;
      const double t = x * x * x * x;
      use(t, weight * 2.0 / NEAR_PANELS * x * x * x * std::exp(-std::pow(t, A)));
    }
  }
  const double T = std::pow(NEGLIGIBLE, 1.0 / A);
  const int panels = static_cast<int>(std::ceil((T - 1.0) / PANEL));
  for (int panel = 0; panel < panels; ++panel) {
    const double from = 1.0 + panel * PANEL;
    for (std::size_t i = 0; i < 16; ++i) {
      const double g = i < 8 ? -GAUSS_X[7 - i] : GAUSS_X[i - 8];
      const double weight = i < 8 ? GAUSS_W[7 - i] : GAUSS_W[i - 8];
      const double t = from + PANEL * (0.5 + 0.5 * g);
      use(t, weight * 0.5 * PANEL * std::exp(-std::pow(t, A)));
    }
  }
}

}  // namespace

bool StableDensity::prepare(double A, std::span<double> room) {
  if (!(A >= LOWEST_A && A <= 2.0)) return false;
  if (A == A_ && room.data() == table_) return true;
  A_ = A;
  table_ = room.data();
  if (A == 2.0) return true;
  // The series needs a larger w the nearer A is to 2, where the normal middle gives way to the tail
  // within a short stretch: shorter panels follow it.
  edge_ = A > 1.5 ? 16.0 : 9.0;
  panels_ = A > 1.7 ? MOST_PANELS : 8;
  reach_ = std::asinh(edge_);
  // 1. Points and weights of the integral, which depend on A alone.
  double* const t = room.data() + std::ptrdiff_t{MOST_PANELS} * POINTS;
  double* const weight = t + (room.size() - std::size_t{MOST_PANELS} * POINTS) / 2;
  std::size_t nodes = 0;
  each_node(A, [&](double at, double w) {
    t[nodes] = at;
    weight[nodes++] = w;
  });
  // 2. log density at the Chebyshev points of each panel, then the coefficients of its series.
  std::array<double, POINTS> value{};
  for (int p = 0; p < panels_; ++p) {
    for (int j = 0; j < POINTS; ++j) {
      const double x = std::cos(PI * (j + 0.5) / POINTS);
      const double w = std::sinh(reach_ / panels_ * (p + 0.5 + 0.5 * x));
      double sum = 0.0;
      for (std::size_t i = 0; i < nodes; ++i) sum += weight[i] * std::cos(t[i] * w);
      value[static_cast<std::size_t>(j)] =
          std::log(std::max(sum / PI, std::numeric_limits<double>::min()));
    }
    for (int k = 0; k < POINTS; ++k) {
      double c = 0.0;
      for (int j = 0; j < POINTS; ++j) {
        c += value[static_cast<std::size_t>(j)] * std::cos(PI * k * (j + 0.5) / POINTS);
      }
      room[static_cast<std::size_t>(p * POINTS + k)] = c * (k == 0 ? 1.0 : 2.0) / POINTS;
    }
  }
  return true;
}

double StableDensity::tail(double w) const {
  // (1/pi) sum of (-1)^(n+1) G(nA+1)/n! sin(n pi A/2) w^(-nA-1): convergent for A < 1, else
  // asymptotic, and ended at its smallest term.
  const double log_w = std::log(w);
  double sum = 0.0, last = std::numeric_limits<double>::infinity();
  for (int n = 1; n <= 60; ++n) {
    const double size = std::exp(log_gamma(n * A_ + 1.0) - log_gamma(n + 1.0) - n * A_ * log_w);
    if (size > last) break;
    last = size;
    sum += (n % 2 == 1 ? size : -size) * std::sin(n * PI * A_ / 2.0);
    if (size < 1e-17) break;
  }
  return std::log(sum / PI) - log_w;
}

double StableDensity::log_density(double w) const {
  if (A_ == 2.0) return -0.25 * w * w - 0.5 * std::log(4.0 * PI);
  const double distance = std::fabs(w);
  if (distance > edge_) return tail(distance);
  const double place = std::asinh(distance) / reach_ * panels_;
  const int p = std::min(static_cast<int>(place), panels_ - 1);
  const double x = 2.0 * (place - p) - 1.0;
  const double* c = table_ + std::ptrdiff_t{p} * POINTS;
  double b1 = 0.0, b2 = 0.0;
  for (int k = POINTS - 1; k > 0; --k) {
    const double b0 = 2.0 * x * b1 - b2 + c[k];
    b2 = b1;
    b1 = b0;
  }
  return x * b1 - b2 + c[0];
}

}  // namespace korvel

// Response surfaces of unit-root statistics.
#include "arima/response_surface.h"

#include <span>

#include "stats/probability.h"

namespace korvel {
namespace {

constexpr int MOST_VARIABLES = 6;
using Cubic = std::array<double, 4>;   // b0 + b1/n + b2/n^2 + b3/n^3
using Surface = std::array<Cubic, 3>;  // at 1, 5 and 10 per cent

constexpr Surface NO_CONSTANT = {{{-2.56574, -2.2358, -3.627, 0},
                                  {-1.941, -0.2686, -3.365, 31.223},
                                  {-1.61682, 0.2656, -2.714, 25.364}}};
constexpr std::array<Surface, MOST_VARIABLES> CONSTANT = {{
    {{{-3.43035, -6.5393, -16.786, -79.433},
      {-2.86154, -2.8903, -4.234, -40.04},
      {-2.56677, -1.5384, -2.809, 0}}},
    {{{-3.89644, -10.9519, -33.527, 0},
      {-3.33613, -6.1101, -6.823, 0},
      {-3.04445, -4.2412, -2.72, 0}}},
    {{{-4.29374, -14.4354, -33.195, 47.433},
      {-3.74066, -8.5632, -10.852, 27.982},
      {-3.45218, -6.2143, -3.718, 0}}},
    {{{-4.64332, -18.1031, -37.972, 0},
      {-4.096, -11.2349, -11.175, 0},
      {-3.8102, -8.3931, -4.137, 0}}},
    {{{-4.95756, -21.8883, -45.142, 0},
      {-4.41519, -14.0405, -12.575, 0},
      {-4.13157, -10.7417, -3.784, 0}}},
    {{{-5.24568, -25.6688, -57.737, 88.639},
      {-4.70693, -16.9178, -17.492, 60.007},
      {-4.42501, -13.1875, -5.104, 27.877}}},
}};
constexpr std::array<Surface, MOST_VARIABLES> TREND = {{
    {{{-3.95877, -9.0531, -28.428, -134.155},
      {-3.41049, -4.3904, -9.036, -45.374},
      {-3.12705, -2.5856, -3.925, -22.38}}},
    {{{-4.32762, -15.4387, -35.679, 0},
      {-3.78057, -9.5106, -12.074, 0},
      {-3.49631, -7.0815, -7.538, 21.892}}},
    {{{-4.66305, -18.7688, -49.793, 104.244},
      {-4.1189, -11.8922, -19.031, 77.332},
      {-3.83511, -9.0723, -8.504, 35.403}}},
    {{{-4.9694, -22.4694, -52.599, 51.314},
      {-4.42871, -14.5876, -18.228, 39.647},
      {-4.14633, -11.25, -9.873, 54.109}}},
    {{{-5.25276, -26.2183, -59.631, 50.646},
      {-4.71537, -17.3569, -22.66, 91.359},
      {-4.43422, -13.6078, -10.238, 76.781}}},
    {{{-5.51727, -29.976, -75.222, 202.253},
      {-4.98228, -20.305, -25.224, 132.03},
      {-4.70233, -16.1253, -9.836, 94.272}}},
}};

// Asymptotic values of the normalised coefficient and of the F statistics.
constexpr std::array<std::array<double, 3>, 3> Z_VALUES = {
    {{-13.8, -8.1, -5.7}, {-20.7, -14.1, -11.3}, {-29.5, -21.8, -18.3}}};
constexpr std::array<double, 3> PHI1_VALUES = {6.43, 4.59, 3.78};
constexpr std::array<double, 3> PHI2_VALUES = {6.09, 4.68, 4.03};
constexpr std::array<double, 3> PHI3_VALUES = {8.27, 6.25, 5.34};

// p = normal(polynomial in t): of degree 2 below `star`, of degree 3 above it. Left of `low` p is
// 0, right of `high` it is 1.
struct PSurface {
  double low, star, high;
  std::array<double, 3> small;
  Cubic large;
};
constexpr PSurface P_NONE = {
    -19.04, -1.04, 1e300, {0.6344, 1.2378, 0.032496}, {0.4797, 0.93557, -0.06999, 0.033066}};
constexpr std::array<PSurface, MOST_VARIABLES> P_CONSTANT = {{
    {-18.83, -1.61, 2.74, {2.1659, 1.4412, 0.038269}, {1.7339, 0.93202, -0.12745, -0.010368}},
    {-18.86, -2.62, 0.92, {2.92, 1.5012, 0.039796}, {2.1945, 0.64695, -0.29198, -0.042377}},
    {-23.48, -3.13, 0.55, {3.4699, 1.4856, 0.03164}, {2.5893, 0.45168, -0.36529, -0.050074}},
    {-28.07, -3.47, 0.61, {3.9673, 1.4777, 0.026315}, {3.0387, 0.45452, -0.33666, -0.041921}},
    {-25.96, -3.78, 0.79, {4.5509, 1.5338, 0.029545}, {3.5049, 0.52098, -0.29158, -0.033468}},
    {-23.27, -3.93, 1.0, {5.1399, 1.6036, 0.034445}, {3.9489, 0.58933, -0.25359, -0.02721}},
}};
constexpr std::array<PSurface, MOST_VARIABLES> P_TREND = {{
    {-16.18, -2.89, 0.7, {3.2512, 1.6047, 0.049588}, {2.5261, 0.61654, -0.37956, -0.060285}},
    {-21.15, -3.19, 0.63, {3.6646, 1.5419, 0.036448}, {2.85, 0.5272, -0.36622, -0.051695}},
    {-25.37, -3.50, 0.71, {4.0983, 1.5173, 0.029898}, {3.221, 0.5255, -0.32685, -0.041501}},
    {-26.63, -3.65, 0.93, {4.5844, 1.5338, 0.028796}, {3.652, 0.59758, -0.27483, -0.032081}},
    {-26.53, -3.80, 1.19, {5.0722, 1.5634, 0.029472}, {4.0712, 0.66428, -0.23464, -0.02546}},
    {-26.18, -4.36, 1.42, {5.53, 1.5914, 0.030392}, {4.4735, 0.71757, -0.20681, -0.021196}},
}};

double polynomial(std::span<const double> c, double x) {
  double sum = 0.0;
  for (std::size_t i = c.size(); i > 0; --i) sum = sum * x + c[i - 1];
  return sum;
}

bool covered(Deterministic terms, int N) {
  return N >= 1 && N <= (terms == Deterministic::none ? 1 : MOST_VARIABLES);
}

}  // namespace

CriticalValues unit_root_critical(UnitRootKind kind, Deterministic terms, int N, double n) {
  const auto t = static_cast<std::size_t>(terms);
  if (kind == UnitRootKind::tau) {
    if (!covered(terms, N) || !(n > 0.0)) return {};
    const auto v = static_cast<std::size_t>(N - 1);
    const Surface& s = terms == Deterministic::none       ? NO_CONSTANT
                       : terms == Deterministic::constant ? CONSTANT[v]
                                                          : TREND[v];
    CriticalValues found{{}, true};
    for (std::size_t i = 0; i < 3; ++i) found.at[i] = polynomial(s[i], 1.0 / n);
    return found;
  }
  if (N != 1) return {};
  switch (kind) {
    case UnitRootKind::z:
      return {Z_VALUES[t], true};
    case UnitRootKind::phi1:
      return {PHI1_VALUES, true};
    case UnitRootKind::phi2:
      return {PHI2_VALUES, true};
    default:
      return {PHI3_VALUES, true};
  }
}

double unit_root_p_value(double t, Deterministic terms, int N) {
  if (!covered(terms, N)) return -1.0;
  const auto v = static_cast<std::size_t>(N - 1);
  const PSurface& p = terms == Deterministic::none       ? P_NONE
                      : terms == Deterministic::constant ? P_CONSTANT[v]
                                                         : P_TREND[v];
  if (t > p.high) return 1.0;
  if (t < p.low) return 0.0;
  return normal_cdf(t <= p.star ? polynomial(p.small, t) : polynomial(p.large, t));
}

}  // namespace korvel

// The regression families of MLE: log densities with their derivatives, means and variances.
//
// Every family has one index z = x'b, some a second one z2 = x'd, and up to three shapes. s =
// exp(z) is the scale of the families on the positive axis; w = (y - z)/SG is the standardised
// error of those on the whole line.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace korvel {

class StableDensity;

inline constexpr int MOST_SHAPES = 3;

// In the order in which TYPE= is looked up; the first is the default.
enum class MleType : std::uint8_t {
  WEIBULL,
  EXP,
  GAMMA,
  GAMBOT,
  WEIBOT,
  GG,
  GGBOTH,
  HALFNORM,
  LOGNORM,
  BETA,
  EDGE,
  EWEIBULL,
  EXTREMEV,
  EGAMMA,
  EGG,
  STABLE,
  POISSON,
  EPOISSON,
  EBETA,
  MBETA,
};

// What the dependent variable may be.
enum class MleRange : std::uint8_t { positive, zero_up, counts, unit, real };

// Rows of one block. Inputs: the indexes, y, and what the family keeps of it (`log_y`: log y, for
// counts log y!; `log_rest`: log(1-y)). Outputs: log density and its derivatives.
struct MleTerms {
  std::ptrdiff_t rows = 0;
  const double *z = nullptr, *z2 = nullptr;
  const double *y = nullptr, *log_y = nullptr, *log_rest = nullptr;
  const double* shape = nullptr;
  const StableDensity* stable = nullptr;
  double *log_f = nullptr, *dz = nullptr, *dz2 = nullptr;
  std::array<double*, MOST_SHAPES> dshape{};
  double *u = nullptr, *v = nullptr;  // work space
};
// False: a parameter of a row is outside its range, or a density is not positive.
using MleTermLoop = bool (*)(const MleTerms&);

struct MleFamily {
  MleType type;
  std::string_view word;
  MleRange range;
  bool both;   // the shape is exp(z2)
  int shapes;  // further ones, constants
  std::array<std::string_view, MOST_SHAPES> names;
  MleTermLoop terms;
  bool positive_scale() const { return range == MleRange::positive || range == MleRange::zero_up; }
  bool count() const { return range == MleRange::counts; }
  bool beta() const { return range == MleRange::unit; }
};

// The family of a word of TYPE=, empty: the first one. Null: there is none.
const MleFamily* find_mle_family(std::string_view word);
const MleFamily& mle_family(MleType type);

// Mean and variance of y at the indexes; not a number where there is none.
struct MleMoments {
  double mean, variance;
};
MleMoments mle_moments(MleType type, double z, double z2, std::span<const double> shape);

// The series that EDGE multiplies the normal density with: 1 + K3/6 H3 + K4/24 H4 + K3^2/72 H6.
double edgeworth_series(double w, double K3, double K4);

// P and Q of the beta families.
struct BetaParameters {
  double P, Q;
};
BetaParameters beta_parameters(MleType type, double z, double Q);

}  // namespace korvel

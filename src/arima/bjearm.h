// The multiplicative ARMA model of a differenced series, and its residuals by back-forecasting.
// Kernels.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace korvel {

// Orders of a model; parameters stand in one vector: AR, MA, seasonal AR, seasonal MA, constant.
struct BjOrders {
  int NARP = 0, NMA = 0, NSARP = 0, NSMA = 0;
  int NSPAN = 0;
  int NDIFF = 0, NSDIFF = 0;
  bool constant = true;

  std::int64_t longest_ar() const { return NARP + std::int64_t{NSARP} * NSPAN; }
  std::int64_t longest_ma() const { return NMA + std::int64_t{NSMA} * NSPAN; }
  // Observations that the differences cost.
  std::int64_t lost() const { return NDIFF + std::int64_t{NSDIFF} * NSPAN; }
  int arma() const {
    constexpr std::int64_t beyond_all = 1000000000;  // sums of four orders leave the integers
    return static_cast<int>(std::min(std::int64_t{NARP} + NMA + NSARP + NSMA, beyond_all));
  }
  int parameters() const { return arma() + (constant ? 1 : 0); }
  bool operator==(const BjOrders&) const = default;
};

inline constexpr int PRESAMPLE = 104;  // places before the first observation, and the longest lag
inline constexpr int MAXBJ = 2 * PRESAMPLE + 1;  // parameters of the largest model

// The product of an ordinary and a seasonal polynomial, 1 - sum coef B^lag, without its zeros; the
// shortest lag comes last, so that a recursion waits only for its last term.
struct LagList {
  int terms = 0;
  int longest = 0;  // by the orders, whatever the coefficients
  std::array<int, PRESAMPLE> lag{};
  std::array<double, PRESAMPLE> coef{};
};
void combine_lags(std::span<const double> ordinary, std::span<const double> seasonal, int span,
                  LagList& product);

// (1 - sum of AR) (1 - sum of seasonal AR): the constant is this times the mean of the series.
double mean_factor(const BjOrders& orders, std::span<const double> b);

struct BjModel {
  LagList ar, ma;
  double c = 0.0;
};
// b: the parameters; with `mean` their last one is the mean of the series instead of the constant.
void make_model(const BjOrders& orders, std::span<const double> b, bool mean, BjModel& model);

// Work space of BJEARM for n observations: w and a have PRESAMPLE + n places, the series standing
// behind the first PRESAMPLE of w; e has PRESAMPLE places more at its end.
struct ArmRoom {
  std::span<double> w, e;
  double limit = 1e38;  // a sum of squares that no step of a minimiser wants
  ArmRoom(std::span<double> room, std::size_t n)
      : w(room.first(PRESAMPLE + n)),
        e(room.subspan(PRESAMPLE + n, std::size_t{2} * PRESAMPLE + n)) {}
};
// The limit for a series whose own squares are that large.
double arm_limit(std::span<const double> series);
constexpr std::size_t arm_words(std::size_t n) { return 2 * n + std::size_t{3} * PRESAMPLE; }

// Residuals a(t) by back-forecasting (Box and Jenkins 1976, section 7.1) and their sum of squares,
// those before the sample included. The places of a before the first residual that the lags allow
// (first_residual) are 0. Needs n > ar.longest. A sum beyond the limit of the room ends the pass
// and is returned as it is (it may be infinite); a NaN is returned as infinity.
double BJEARM(const BjModel& model, const ArmRoom& room, std::span<double> a);
inline std::size_t first_residual(const BjModel& m) {
  return static_cast<std::size_t>(m.ar.longest > m.ma.longest ? m.ar.longest : m.ma.longest);
}

}  // namespace korvel

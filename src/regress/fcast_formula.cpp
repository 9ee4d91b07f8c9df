// Forecasts of NLINEAR: values of its formula, and their derivatives by the coefficients.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/nonlinear.h"
#include "regress/fcast_parts.h"
#include "regress/regress.h"
#include "regress/tests.h"

namespace korvel {
namespace {

// Step of central differences, in units of the coefficient: the third root of the rounding.
constexpr double STEP = 6e-6;

std::vector<double> COEF;  // those of the forecast; grows to the largest model of the run

// One coefficient is moved, and moved back at the end of the scope.
class MovedCoefficient {
 public:
  explicit MovedCoefficient(std::size_t k) : b_(COEF[k]), kept_(COEF[k]) {}
  MovedCoefficient(const MovedCoefficient&) = delete;
  MovedCoefficient& operator=(const MovedCoefficient&) = delete;
  ~MovedCoefficient() { b_ = kept_; }
  void by(double h) { b_ = kept_ + h; }
  double size() const { return kept_ != 0.0 ? std::fabs(kept_) : 1.0; }

 private:
  double& b_;
  double kept_;
};

// Values of the formula at the kept rows. all: one word an observation of MBEG..MEND.
bool formula_values(Workspace ws, int equation, std::span<double> all, std::span<double> to) {
  if (!nonlinear_forecast(ws, equation, DATCOM.MBEG, DATCOM.MEND, COEF, all)) return false;
  KeptRows kept(ws);
  while (kept.next()) {
    to[static_cast<std::size_t>(kept.row)] = all[static_cast<std::size_t>(kept.obs - DATCOM.MBEG)];
  }
  return true;
}

}  // namespace

bool formula_rows(Workspace ws, const ForecastModel& model, std::span<double> all,
                  std::span<double> value, std::span<double> slopes) {
  COEF.assign(model.coef.begin(), model.coef.end());
  if (!formula_values(ws, model.equation, all, value)) return false;
  const std::size_t n = value.size();
  for (std::size_t k = 0; k < slopes.size() / n; ++k) {
    if (stop_requested()) return false;
    const std::span<double> slope = slopes.subspan(k * n, n);
    MovedCoefficient b(k);
    const double h = STEP * b.size();
    b.by(-h);
    if (!formula_values(ws, model.equation, all, slope)) return false;
    for (double& v : slope) v = -v;
    b.by(h);
    if (!nonlinear_forecast(ws, model.equation, DATCOM.MBEG, DATCOM.MEND, COEF, all)) return false;
    KeptRows kept(ws);
    while (kept.next()) {
      double& v = slope[static_cast<std::size_t>(kept.row)];
      v = (v + all[static_cast<std::size_t>(kept.obs - DATCOM.MBEG)]) / (2.0 * h);
    }
  }
  return true;
}

}  // namespace korvel

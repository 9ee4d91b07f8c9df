// Critical values: inverses of the distribution functions.
//
// Two kinds stand side by side. normal_critical and f_critical are the closed forms whose figures
// DISTRIB prints; the quantiles are the inverses to full precision, for everything that computes
// on. `p` is always a probability; IFAULT 1: there is no value (p outside the range, or the result
// beyond what the routine covers).
#pragma once

#include "stats/probability.h"

namespace korvel {

struct Critical {
  double value = 0;
  int IFAULT = 0;
};

// Normal value with the upper tail p: exactly 1.96 at 0.025 and 1.645 at 0.05, Hastings' rational
// form (error up to 4.5e-4) below 0.01, full precision from there to 0.5; -1e38 for p < 0, p = 0
// counts as 1e-20. Above 0.5 the negative of the value at 1-p.
double normal_critical(double p);

// F value with the upper tail p: closed forms for df1 or df2 of 2, the square of T for df1 of 1,
// else a normal approximation (1e-3 for some tens of degrees of freedom, 5e-2 for a few).
Critical f_critical(double p, double df1, double df2);

// Which tail of the value is p.
enum class Side : bool { below, above };

double normal_quantile(double p, Side side);  // full precision
Critical t_quantile(double p, Side side, double df, double delta = 0.0);
// At most 999999.
Critical chi_square_quantile(double p, Side side, double df, double C = 0.0);
Critical f_quantile(double p, Side side, double df1, double df2, double C = 0.0);
Critical beta_quantile(double p, Side side, double a, double b);

}  // namespace korvel

// Non-central distributions as Poisson mixtures of central ones.
#pragma once

#include "stats/probability.h"

namespace korvel {

// sum_j w_j P(a+j; x) and sum_j w_j Q(a+j; x) of the incomplete gamma ratios, w_j the Poisson
// probabilities of mean lambda > 0; x > 0.
Tails mixed_gamma_tails(double a, double x, double lambda);

// The same of the incomplete beta ratios I_x(a+j, b) with y = 1 - x.
Tails mixed_beta_tails(long double x, long double y, double a, double b, double lambda);

// Non-central T at t > 0 with non-centrality delta of either sign.
Tails mixed_t_tails(double t, double df, double delta);

// Logarithms of the densities: chi-square at x, F at f, T at t (any sign of t).
double mixed_chi_square_log_density(double x, double df, double C);
double mixed_f_log_density(double f, double df1, double df2, double C);
double mixed_t_log_density(double t, double df, double delta);

}  // namespace korvel

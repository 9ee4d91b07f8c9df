// Distribution functions and tails behind all p-values.
//
// Arguments are plain reals; degrees of freedom need not be whole. Both tails are computed as tails
// (never the small one as one minus the other), so a small p-value keeps its digits.
#pragma once

namespace korvel {

// The two sides of a point: P(X <= x) and P(X > x).
struct Tails {
  double below = 0;
  double above = 1;
};

// A tail with its fault.
struct TailValue {
  double value = 0;
  int IFAULT = 0;
};

// ---- Normal ------------------------------------------------------------------------------------

// Normal distribution function, held to the range 1e-78 .. 1-1e-78. An upper tail is
// normal_cdf(-z).
double normal_cdf(double x);
inline Tails normal_tails(double z) { return {normal_cdf(z), normal_cdf(-z)}; }

// Two-sided p-value of a standard normal statistic.
double normal_two_sided(double z);

// P(X <= h, Y <= k) of the standard bivariate normal with correlation rho, and its density.
// IFAULT 1: rho is not below 1 in absolute value.
TailValue bivariate_normal_cdf(double h, double k, double rho);
TailValue bivariate_normal_density(double x, double y, double rho);

// ---- Gamma and chi-square ----------------------------------------------------------------------

// Logarithm of the gamma function: 9.9999999999999e37 for x <= 0, exactly 0 within 1e-14 of 1
// and 2.
double log_gamma(double x);

// Logarithm of the complete beta function, a > 0 and b > 0, without the cancellation that the
// difference of large log gammas would bring.
double log_beta(double a, double b);

// Incomplete gamma ratios with shape a > 0; x below 0 counts as 0.
Tails gamma_tails(double a, double x);

// Upper tail of chi-square with df degrees of freedom. IFAULT 1 (value 1): df <= 0 or x < 0. Above
// 2000 degrees of freedom the normal form of Wilson and Hilferty stands for it.
TailValue chi_square_tail(double x, double df);
// Both sides, with non-centrality C >= 0 (the usual sum of squares; Poisson weights of C/2).
Tails chi_square_tails(double x, double df, double C = 0.0);

// The same for handlers: a bad argument prints " ...ERROR..IN PCHI" and gives 1.
double PCHI(double x, double df);

// ---- Beta, F and T -----------------------------------------------------------------------------

// Incomplete beta ratio I_x(p, q); logbeta is log_beta(p, q) and is no longer needed.
// IFAULT 1: p or q not positive. 2: x outside 0..1.
TailValue BETAIN(double x, double p, double q, double logbeta);

// Both sides at x with y = 1 - x given to its own precision; p, q > 0.
Tails beta_tails(long double x, long double y, double p, double q);

// Upper tail of F(df1, df2). 0 for f <= 0, 1 when a degree of freedom is not positive.
double f_tail(double f, double df1, double df2);
// The same with non-centrality C (the usual sum of squares; Poisson weights of C/2).
double f_tail(double f, double df1, double df2, double C);
// Both sides; below is 0 for f <= 0.
Tails f_tails(double f, double df1, double df2, double C = 0.0);

// T with df degrees of freedom and non-centrality delta: distribution function and both sides.
double t_cdf(double t, double df, double delta = 0.0);
Tails t_tails(double t, double df, double delta = 0.0);

}  // namespace korvel

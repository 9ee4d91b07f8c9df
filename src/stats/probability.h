// Distribution functions and tails behind all p-values.
//
// Arguments are plain reals; degrees of freedom need not be whole. Tails are computed as tails
// (never as one minus a distribution function), so a small p-value keeps its digits.
#pragma once

namespace korvel {

// Normal distribution function, held to the range 1e-78 .. 1-1e-78. An upper tail is
// normal_cdf(-z).
double normal_cdf(double x);

// Two-sided p-value of a standard normal statistic.
double normal_two_sided(double z);

// Logarithm of the gamma function: 9.9999999999999e37 for x <= 0, exactly 0 within 1e-14 of 1
// and 2.
double log_gamma(double x);

// Logarithm of the complete beta function, a > 0 and b > 0, without the cancellation that the
// difference of large log gammas would bring.
double log_beta(double a, double b);

// Upper tail of chi-square with df degrees of freedom. IFAULT 1 (value 1): df <= 0 or x < 0.
struct Tail {
  double value = 0;
  int IFAULT = 0;
};
Tail chi_square_tail(double x, double df);

// The same for handlers: a bad argument prints " ...ERROR..IN PCHI" and gives 1.
double PCHI(double x, double df);

// Incomplete beta ratio I_x(p, q); logbeta is log_beta(p, q).
// IFAULT 1: p or q not positive. 2: x outside 0..1.
Tail BETAIN(double x, double p, double q, double logbeta);

// Upper tail of F(df1, df2). 0 for f <= 0, 1 when a degree of freedom is not positive.
double f_tail(double f, double df1, double df2);
// The same with non-centrality C (the usual sum of squares; Poisson weights of C/2).
double f_tail(double f, double df1, double df2, double C);

// Distribution function of T with df degrees of freedom and non-centrality delta.
double t_cdf(double t, double df, double delta = 0.0);

}  // namespace korvel

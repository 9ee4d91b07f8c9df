// Distribution functions against R 4.2.2 (pnorm, lgamma, pchisq, pf, pt, pbeta at 17 digits); the
// non-central values and log_beta against 40-digit quadrature and sums in mpmath.
#include "stats/probability.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace korvel {
namespace {

void expect_digits(double value, double truth, double relative, const char* what) {
  EXPECT_LE(std::fabs(value - truth), relative * std::fabs(truth)) << what << " " << value;
}

TEST(Probability, NormalKeepsTheDigitsOfItsLowerTail) {
  expect_digits(normal_cdf(-8.0), 6.2209605742717849e-16, 2e-15, "-8");
  expect_digits(normal_cdf(-18.0), 9.7409489189371738e-73, 4e-15, "-18");
  expect_digits(normal_cdf(-3.0), 0.0013498980316300946, 1e-15, "-3");
  expect_digits(normal_cdf(-1.96), 0.024997895148220428, 1e-15, "-1.96");
  expect_digits(normal_cdf(-0.1), 0.46017216272297101, 1e-14, "-0.1");
  EXPECT_EQ(normal_cdf(0.0), 0.5);
  expect_digits(normal_cdf(2.0), 0.97724986805182079, 1e-15, "2");
  EXPECT_EQ(normal_cdf(-40.0), 1e-78);  // held to its range
  EXPECT_EQ(normal_cdf(40.0), 1.0);
  expect_digits(normal_two_sided(-1.96), 2 * 0.024997895148220428, 3e-14, "two sides");
}

TEST(Probability, LogGammaAndLogBeta) {
  EXPECT_EQ(log_gamma(0.0), 9.9999999999999e37);
  EXPECT_EQ(log_gamma(-3.5), 9.9999999999999e37);
  EXPECT_EQ(log_gamma(1.0), 0.0);
  EXPECT_EQ(log_gamma(2.0 + 5e-15), 0.0);
  expect_digits(log_gamma(0.1), 2.252712651734206, 1e-14, "0.1");
  expect_digits(log_gamma(0.5), 0.57236494292470008, 3e-14, "0.5");
  expect_digits(log_gamma(17.5), 32.081114895947358, 1e-15, "17.5");
  expect_digits(log_gamma(18.0), 33.505073450136891, 1e-15, "18");
  expect_digits(log_gamma(1234.5), 7550.5509010778942, 1e-15, "1234.5");
  // The plain difference of log gammas has an error near 1e-9 here.
  expect_digits(log_beta(500000.0, 0.5), -5.9888164957774643, 1e-13, "beta 5e5 0.5");
  expect_digits(log_beta(2.0, 3.0), -2.4849066497880004, 1e-14, "beta 2 3");
  expect_digits(log_beta(500.0, 500.0), -694.98872248571343, 1e-15, "beta 500 500");
}

TEST(Probability, ChiSquareTail) {
  struct Case {
    double x, df, tail, relative;
  };
  const Case cases[] = {
      {0.5, 1, 0.47950012218695348, 1e-13},      {3.84, 1, 0.050043521248705224, 1e-13},
      {1, 10, 0.99982788437004411, 1e-15},       {9.9, 10, 0.44931007475965251, 1e-13},
      {50, 10, 2.6690834249044957e-07, 1e-13},   {95, 100, 0.62257929187817362, 1e-13},
      {130, 100, 0.023512397809808679, 1e-13},   {1900, 1990, 0.92479435120379572, 1e-12},
      {2100, 1990, 0.042443561313124364, 1e-12},
  };
  for (const Case& c : cases) {
    expect_digits(chi_square_tail(c.x, c.df).value, c.tail, c.relative, "chi-square");
  }
  EXPECT_EQ(chi_square_tail(0.0, 3.0).value, 1.0);
  // Above 2000 degrees of freedom the normal form takes over: near the truth, not equal to it.
  // (Gamma tails of that size in full are what Poisson and gamma distributions take.)
  const double wilson = chi_square_tail(2100.0, 2001.0).value;
  EXPECT_NEAR(wilson, 0.0604, 2e-4);
  EXPECT_EQ(chi_square_tail(3e8, 1000.0).value, 0.0);
  EXPECT_EQ(chi_square_tail(1.0, 0.0).IFAULT, 1);
  EXPECT_EQ(chi_square_tail(-1.0, 2.0).IFAULT, 1);
  EXPECT_EQ(chi_square_tail(-1.0, 2.0).value, 1.0);
}

TEST(Probability, IncompleteBeta) {
  const auto beta = [](double x, double p, double q) {
    return BETAIN(x, p, q, log_beta(p, q)).value;
  };
  expect_digits(beta(0.3, 2, 3), 0.3483, 1e-14, "0.3 2 3");
  expect_digits(beta(0.48, 500, 500), 0.10291752730699605, 1e-12, "0.48 500 500");
  EXPECT_NEAR(beta(0.5, 500, 500), 0.5, 1e-13);
  EXPECT_EQ(beta(0.0, 2, 3), 0.0);
  EXPECT_EQ(beta(1.0, 2, 3), 1.0);
  EXPECT_EQ(BETAIN(0.5, 0.0, 1.0, 0.0).IFAULT, 1);
  EXPECT_EQ(BETAIN(1.5, 1.0, 1.0, 0.0).IFAULT, 2);
}

TEST(Probability, FTail) {
  struct Case {
    double f, df1, df2, tail, relative;
  };
  const Case cases[] = {
      {4, 1, 95, 0.048355570130471578, 1e-13},
      {0.01, 1, 95, 0.92055505390632675, 1e-14},
      {300, 1, 10, 8.7139052699459218e-09, 1e-13},
      {2.5, 3, 20, 0.088843751937689272, 1e-13},
      {1, 5, 5, 0.5, 5e-14},
      {0.9, 2, 2, 0.52631578947368418, 1e-14},
      {1e-8, 1, 30, 0.99992087356315751, 1e-15},
      {9999, 1, 14, 2.1894745580217114e-21, 1e-13},
      {266.02, 2, 14, 7.2832470876582262e-12, 1e-13},
      {4, 1, 1e6, 0.045500533851319185, 1e-12},  // many rows: quick and still good
      {25, 1, 1e6, 5.7339978708907352e-07, 1e-12},
      {3, 10, 1e6, 0.00085674768337593672, 1e-12},
      {1.2, 300, 400, 0.044745340683379577, 1e-12},
  };
  for (const Case& c : cases) expect_digits(f_tail(c.f, c.df1, c.df2), c.tail, c.relative, "F");
  EXPECT_EQ(f_tail(0.0, 1, 10), 0.0);  // exactly zero gives 0, not 1
  EXPECT_EQ(f_tail(-1.0, 1, 10), 0.0);
  EXPECT_EQ(f_tail(2.0, 1, 0), 1.0);
  expect_digits(f_tail(2, 3, 20, 4), 0.520930452782965963, 1e-12, "non-central F");
  expect_digits(f_tail(1.2, 5, 30, 10), 0.916876251445649334, 1e-12, "non-central F");
}

TEST(Probability, TWithNonCentrality) {
  expect_digits(t_cdf(2.228139, 10), 0.97500000627355876, 1e-14, "central");
  EXPECT_EQ(t_cdf(0.0, 10), 0.5);
  expect_digits(t_cdf(1.5, 10, 1), 0.669516848215354763, 1e-12, "1.5 10 1");
  expect_digits(t_cdf(-1, 5, 0.5), 0.0824440910567234583, 1e-12, "-1 5 .5");
  expect_digits(t_cdf(2, 100, 3), 0.159839720347321219, 1e-12, "2 100 3");
  expect_digits(t_cdf(0.2, 3, -1), 0.881141881242315426, 1e-12, ".2 3 -1");
}

// Values of mpmath with 40 digits (gammainc, betainc, regularized), one a region of the methods;
// the small side must keep its digits.
TEST(Probability, GammaAndBetaTailsInAllRegions) {
  struct Case {
    double a, x, small;
  };
  for (const Case& c :
       {Case{0.001, 0.2, 0.0012225478394732088}, Case{0.3, 1e-06, 0.017659549590193667},
        Case{0.5, 30, 9.4857375710738484e-15}, Case{7, 1, 8.3241149288023108e-5},
        Case{30, 300, 4.4219607561434808e-90}, Case{150, 151, 0.45673023655631231},
        Case{700, 400, 5.0826895230206405e-42}, Case{3000, 3300, 5.4617512588287018e-8}}) {
    const Tails t = gamma_tails(c.a, c.x);
    expect_digits(std::min(t.below, t.above), c.small, 2e-14, "gamma");
  }
  struct BetaCase {
    double p, q, x, small;
  };
  for (const BetaCase& c :
       {BetaCase{0.05, 2, 0.9, 0.0002804449398162882},
        BetaCase{0.5, 0.5, 1e-08, 6.3661977342861431e-5},
        BetaCase{20, 3, 0.5, 6.0558319091796875e-5}, BetaCase{90, 90, 0.6, 0.0033950965384654898},
        BetaCase{400, 5, 0.95, 1.0237410224412222e-5},
        BetaCase{500, 500, 0.3, 4.3265132071690849e-40},
        BetaCase{5000, 0.5, 0.9995, 0.025332672657805693},
        BetaCase{20, 7000, 0.006, 5.2386957405763522e-5}}) {
    const Tails t = beta_tails(c.x, 1.0L - c.x, c.p, c.q);
    expect_digits(std::min(t.below, t.above), c.small, 3e-14, "beta");
  }
}

// Huge and tiny parameters end, and give the limits.
TEST(Probability, ExtremeArgumentsEnd) {
  // Edgeworth's expansion at one standard deviation, whose terms end the digits at this size.
  expect_digits(gamma_tails(1e10, 1e10 + 1e5).above, 0.158655253927424, 1e-13, "gamma 1e10");
  EXPECT_NEAR(gamma_tails(1e15, 1e15).above, 0.5, 1e-8);
  expect_digits(t_cdf(-1.0, 2e9), 0.158655253991949, 1e-13, "t 2e9");
  EXPECT_NEAR(f_tail(1.0, 2e9, 2e9), 0.5, 1e-10);
  EXPECT_EQ(t_cdf(1e300, 3), 1.0);
  EXPECT_EQ(f_tails(1e-300, 1e-3, 5).below > 0.0, true);
  EXPECT_NEAR(t_tails(1000, 10, 1000).below + t_tails(1000, 10, 1000).above, 1.0, 1e-14);
  EXPECT_NEAR(chi_square_tails(1e8, 3, 1e8).below, 0.5, 1e-3);
}

// Orthants by the arc sine; the others by mpmath quadrature of Plackett's integral with 40 digits.
TEST(Probability, BivariateNormal) {
  for (const double rho : {-0.999, -0.5, 0.0, 0.3, 0.9999}) {
    expect_digits(bivariate_normal_cdf(0, 0, rho).value,
                  0.25 + std::asin(rho) / (2 * 3.14159265358979323846), 1e-12, "orthant");
  }
  expect_digits(bivariate_normal_cdf(-3, -3, -0.9).value, 3.2694360168839317e-43, 2e-13, "biv");
  expect_digits(bivariate_normal_cdf(2, 1.9, 0.9999).value, 0.97128344018399811, 2e-13, "biv");
  expect_digits(bivariate_normal_cdf(-6, -5, 0.5).value, 1.3433187397672601e-11, 2e-13, "biv");
  expect_digits(bivariate_normal_cdf(0.5, 3, -0.95).value, 0.69011256324238301, 2e-13, "biv");
  expect_digits(bivariate_normal_cdf(1, -1, 0.2).value, 0.14400759595238851, 2e-13, "biv");
  EXPECT_EQ(bivariate_normal_cdf(0, 0, 1.0).IFAULT, 1);
  expect_digits(bivariate_normal_density(1.0, -0.5, 0.4).value, 0.065034119593776547, 1e-14,
                "density");
}

}  // namespace
}  // namespace korvel

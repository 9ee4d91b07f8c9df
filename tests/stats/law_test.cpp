// The distributions of DISTRIB: density, lower and upper tail against R 4.2.2 (dt, pt ... at 17
// digits; the types that R lacks by their textbook forms written out in R).
#include "stats/law.h"

#include <gtest/gtest.h>

#include <cmath>

namespace korvel {
namespace {

struct Case {
  const char* name;
  Law law;
  double x, pdf, below, above;
};

Law make(LawType type, auto set) {
  Law law;
  law.type = type;
  set(law);
  return law;
}
#define LAW(type, ...) make(LawType::type, []([[maybe_unused]] Law& l) { __VA_ARGS__; })

TEST(Law, AgainstR) {
  const double root_3_by_pi = std::sqrt(3.0) / 3.14159265358979323846;
  const double root_6_by_pi = std::sqrt(6.0) / 3.14159265358979323846;
  Law logistic;
  logistic.type = LawType::LOGISTIC;
  logistic.scale = root_3_by_pi;
  Law extreme;
  extreme.type = LawType::EXTREME;
  extreme.scale = root_6_by_pi;
  extreme.location = -0.57721566490153286 * root_6_by_pi;
  const Case cases[] = {
      {"T", LAW(T, l.df = 7), 1.3, 0.16209295508952071, 0.88261608230381139, 0.11738391769618854},
      {"F", LAW(F, l.df = 3, l.df2 = 20), 1.7, 0.20567259845756111, 0.80085903089781207,
       0.19914096910218795},
      {"CHI", LAW(CHI, l.df = 5), 40, 6.9340849835391836e-08, 0.99999985066320995,
       1.4933679000503954e-07},
      {"BETA", LAW(BETA, l.P = 2, l.Q = 3), .4, 1.728, 0.5248, 0.4752},
      {"GAMMA", LAW(GAMMA, l.P = 2.5, l.Q = 3), 4, 0.10176333733433285, 0.24878828963387861,
       0.75121171036612133},
      {"WEIBULL", LAW(WEIBULL, l.P = 2, l.Q = 3), 4, 0.1502340581387254, 0.83098668459393388,
       0.16901331540606609},
      {"BINOMIAL", LAW(BINOMIAL, l.N = 50, l.P = .03), 6, 0.0030326819381876046,
       0.99929626538242289, 0.00070373461757711957},
      {"NEGBIN", LAW(NEGBIN, l.K = 3, l.P = .3), 9, 0.088942644, 0.537168834, 0.462831166},
      {"HYPERGEO", LAW(HYPERGEO, l.BIGN = 20, l.BIGX = 8, l.N = 6), 4, 0.11919504643962861,
       0.98194014447884415, 0.018059855521155826},
      {"HYPERGEO", LAW(HYPERGEO, l.BIGN = 1e6, l.BIGX = 4e5, l.N = 5000), 1800,
       5.086373174153938e-10, 3.1603577713926775e-09, 0.99999999683964225},
      {"POISSON", LAW(POISSON, l.location = 2.5), 8, 0.0031064426567402642, 0.99885974716739578,
       0.0011402528326042427},
      {"EXPONENT", LAW(EXPONENT, l.location = 2), 3, 0.11156508007421491, 0.77686983985157021,
       0.22313016014842982},
      {"LOGISTIC", logistic, 1.96, 0.048997720219834479, 0.97221408389946673, 0.027785916100533225},
      {"LOGNORMA", LAW(LOGNORMA, ), 3, 0.072728256139994715, 0.86403139235857562,
       0.1359686076414244},
      {"IG2", LAW(IG2, l.V = 10, l.S = 1), 1.2, 1.0881984877916369, 0.73067912599373386,
       0.26932087400626614},
      {"GG", LAW(GG, l.P = 2, l.Q = 3, l.C = 1.5), 4, 0.19063708183795061, 0.45534017138230898,
       0.54465982861769102},
      {"PARETO", LAW(PARETO, l.C = 3, l.K = 1), 2, 0.1875, 0.875, 0.125},
      {"POWER", LAW(POWER, l.C = 2), .4, 0.8, 0.16, 0.84},
      {"BURRII", LAW(BURRII, l.K = 2), .4, 0.28768228736973772, 0.35842691437092283,
       0.64157308562907711},
      {"BURRIII", LAW(BURRIII, l.K = 2, l.C = 3), 1.96, 0.27967612104110073, 0.77926579730173917,
       0.22073420269826083},
      {"BURRXII", LAW(BURRXII, l.K = 2, l.C = 3), 1.96, 0.037143871951883969, 0.98625485939048896,
       0.013745140609510995},
      {"EXTREME", extreme, 1.96, 0.055708694451165303, 0.95556177137453924, 0.04443822862546077},
      {"EDGE", LAW(EDGE, l.skewness = .5, l.kurtosis = .3), 1.96, 0.061228306275343557,
       0.96340181378352119, 0.03659818621647881},
  };
  for (const Case& c : cases) {
    const auto near = [&](double value, double truth) {
      EXPECT_LE(std::fabs(value - truth), 2e-13 * truth) << c.name << " " << value;
    };
    near(std::exp(log_density(c.law, c.x)), c.pdf);
    near(law_tails(c.law, c.x).tails.below, c.below);
    near(law_tails(c.law, c.x).tails.above, c.above);
  }
  // Non-central densities: T by the series in mpmath with 30 digits (dt has 12), df, dchisq with
  // ncp.
  EXPECT_NEAR(std::exp(log_density(LAW(T, l.df = 7, l.C = 1), 2)), 0.21915298317249634, 1e-13);
  EXPECT_NEAR(std::exp(log_density(LAW(T, l.df = 7, l.C = 1), -1.5)), 0.020972460587108838, 1e-13);
  EXPECT_NEAR(std::exp(log_density(LAW(F, l.df = 3, l.df2 = 20, l.C = 2), 1.7)), 0.2719206442402563,
              1e-12);
  EXPECT_NEAR(std::exp(log_density(LAW(CHI, l.df = 5, l.C = 3), 4)), 0.091419010122189767, 1e-12);
}

// Mean, variance and mode of the heading against the density itself, by the midpoint rule.
TEST(Law, MomentsAreThoseOfTheDensity) {
  const Law laws[] = {
      LAW(T, l.df = 30, l.C = 1),
      LAW(F, l.df = 5, l.df2 = 60),
      LAW(F, l.df = 5, l.df2 = 60, l.C = 2),
      LAW(CHI, l.df = 5, l.C = 3),
      LAW(BETA, l.P = 2, l.Q = 3),
      LAW(GAMMA, l.P = 2.5, l.Q = 1),
      LAW(WEIBULL, l.P = 2, l.Q = 3),
      LAW(GG, l.P = 2, l.Q = 3, l.C = 1.5),
      LAW(IG2, l.V = 40, l.S = 1),
      LAW(EXPONENT, l.location = 2),
      LAW(POWER, l.C = 2),
      LAW(PARETO, l.C = 30, l.K = 1),
      LAW(BURRII, l.K = 2),
      LAW(BURRIII, l.K = 2, l.C = 30),
      LAW(BURRXII, l.K = 20, l.C = 3),
      LAW(EXTREME, ),
      LAW(LOGISTIC, ),
      LAW(LOGNORMA, l.scale = 0.2),
  };
  for (const Law& law : laws) {
    const double width = 1e-3;
    double mass = 0, first = 0, second = 0, top = 0, at = 0;
    for (double x = -60 + width / 2; x < 200; x += width) {
      const double f = std::exp(log_density(law, x)) * width;
      mass += f;
      first += f * x;
      second += f * x * x;
      if (f > top) top = f, at = x;
    }
    const Moments m = law_moments(law);
    const int type = static_cast<int>(law.type);
    EXPECT_NEAR(mass, 1, 1e-4) << type;
    EXPECT_NEAR(first, m.mean, 3e-4 * (1 + std::fabs(m.mean))) << type;
    EXPECT_NEAR(second - first * first, m.variance, 5e-4 * (1 + m.variance)) << type;
    if (!std::isnan(m.mode)) {
      EXPECT_NEAR(at, m.mode, 2 * width) << type;
    }
  }
}

TEST(Law, WhatDoesNotExist) {
  EXPECT_TRUE(std::isnan(law_moments(LAW(T, l.df = 2)).variance));
  EXPECT_TRUE(std::isnan(law_moments(LAW(F, l.df = 3, l.df2 = 2)).mean));
  EXPECT_TRUE(std::isnan(law_moments(LAW(F, l.df = 3, l.df2 = 4)).variance));
  EXPECT_EQ(law_moments(LAW(CHI, l.df = 2)).mode, 0.0);
  EXPECT_EQ(find_law("NORMA"), nullptr);
  EXPECT_EQ(find_law("LOGNORMAL")->type, LawType::LOGNORMA);
  EXPECT_EQ(law_tails(LAW(F, l.df = 3, l.df2 = 4), 0.0).tails.below, 0.0);
  EXPECT_NEAR(digamma(2), 0.42278433509846747, 1e-15);
  EXPECT_NEAR(trigamma(2.5), 0.49035775610023491, 1e-15);
}

}  // namespace
}  // namespace korvel

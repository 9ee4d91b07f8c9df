// The distributions of DISTRIB: density, both tails, moments. No printing, no shared area.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "stats/critical_values.h"
#include "stats/davies.h"
#include "stats/probability.h"

namespace korvel {

enum class LawType : std::uint8_t {
  NORMAL,
  T,
  F,
  CHI,
  BETA,
  GAMMA,
  IG2,
  GG,
  EDGE,
  BINOMIAL,
  IMHOF,
  BINORMAL,
  POWER,
  PARETO,
  WEIBULL,
  EXTREME,
  LOGISTIC,
  LOGNORMA,
  EMPIR,
  SEMPIR,
  DAVIES,
  NEGBIN,
  HYPERGEO,
  POISSON,
  EXPONENT,
  BURRII,
  BURRIII,
  BURRXII,
};

// A word that TYPE= takes.
struct LawWord {
  std::string_view word;
  LawType type;
};
// The row of a word (8 characters count), nullptr: unknown.
const LawWord* find_law(std::string_view word);

// A distribution with its parameters; those that the type has no use for stay as they are.
struct Law {
  LawType type = LawType::NORMAL;
  double location = 0, scale = 1;  // of NORMAL, EDGE, T (scale H^-1/2), EXTREME, LOGISTIC, LOGNORMA
  double df = 0, df2 = 0;          // CHI, T; F with both
  double C = 0;                    // non-centrality, or the parameter C of POWER, PARETO, GG, BURR
  double P = 0, Q = 0, K = 0;      // shapes and scales by the names of the options
  double V = 0, S = 0;             // IG2; S of DAVIES
  double N = 0;                    // trials, sample size
  double BIGN = 0, BIGX = 0;       // population of HYPERGEO and the marked part of it
  double skewness = 0, kurtosis = 0;
  std::span<const double> weights, dfs, ncentr;  // IMHOF, DAVIES
  double accuracy = 0;
  int limit = 0;
  std::span<int> rank;  // work space of DAVIES
};

// What is not there is not a number.
struct Moments {
  double mean, variance, mode;
};
Moments law_moments(const Law& law);

// Values of the variable that are whole numbers only.
bool is_discrete(LawType type);
// False: IMHOF, DAVIES and the empirical distributions.
bool has_density(LawType type);

// Logarithm of the density or probability at a finite x; -infinity where it is 0.
double log_density(const Law& law, double x);
// P(X <= x) and P(X > x) at a finite x, with the faults of the integrations of IMHOF and DAVIES
// (numbered as in davies.h). `below` is negative when there is no value.
struct LawTails {
  Tails tails;
  int IFAULT = 0;
  DaviesTrace trace{};  // of DAVIES
};
LawTails law_tails(const Law& law, double x);

// Value with the probability p below it, for NORMAL, T, F, CHI and BETA.
bool has_inverse(LawType type);
Critical law_critical(const Law& law, double p);

// Digamma and trigamma, x > 0.
double digamma(double x);
double trigamma(double x);

// r-th moment about zero of IG2; not a number when V <= r.
double ig2_moment(const Law& law, int r);

}  // namespace korvel

// Exact distribution of the Durbin-Watson statistic and its kin of higher order.
#pragma once

#include <cstddef>
#include <span>

namespace korvel {

// d = sum (e(t) - e(t-order))^2 / sum e(t)^2 of the residuals of a regression on X. The pair of
// rows that spans the gap behind observation `gap` is left out (0: no gap).
struct DifferenceRows {
  std::size_t order = 1;
  std::size_t gap = 0;  // counted from 1
  // Where each row stands in time: rising whole numbers from 0 on. Rows whose partner `order`
  // places before them is missing have no difference. Empty: the rows follow one another.
  std::span<const double> place{};
  // before[t] := the row (from 0) whose error is taken from that of row t, -1 when there is none.
  void partners(std::span<double> before) const;
};

struct DurbinWatsonTails {
  double positive = 1;  // P(d' < d) under independent normal errors: small for positive
                        // autocorrelation
  double negative = 1;  // P(d' > d)
  int IFAULT = 0;       // 1: the integration did not settle, 2: no degrees of freedom,
                        // 3: a number that is none, 4: stopped
};

// Words of work space.
std::size_t durbin_watson_words(std::size_t n, std::size_t k, const DifferenceRows& rows = {});

// X: n rows, k columns (the constant included, if the model has one), element (i, j) at
// X[j * ld + i]; dependent columns count once. k may be 0. work: durbin_watson_words(n, k, rows).
// Time grows as n k^2; no matrix of size n by n is formed. stop: asked now and then, ends the work.
DurbinWatsonTails durbin_watson_tails(std::span<const double> X, std::size_t n, std::size_t k,
                                      std::size_t ld, double d, const DifferenceRows& rows,
                                      std::span<double> work, bool (*stop)() = nullptr);

}  // namespace korvel

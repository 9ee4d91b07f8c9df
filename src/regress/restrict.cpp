// Restrictions for restricted least squares: the lines of a RESTRICT block, and those that
// distributed-lag terms stand for.

#include <algorithm>
#include <cmath>

#include "engine/commands.h"
#include "engine/output.h"
#include "regress/test_parts.h"

namespace korvel {
namespace {

// End constraints of a distributed lag: the polynomial passes through zero one place before the
// first lag, one place behind the last, or both.
enum EndConstraint : int { END_NONE = 0, END_NEAR = 1, END_FAR = 2, END_BOTH = 3 };

// Orthonormal polynomials of degrees 0..order on the places 0..m-1, by rows: the values of one
// degree times the place, made orthogonal to all before it (twice, which keeps long lags exact).
void polynomials(int m, int order, std::span<double> P) {
  const auto length = static_cast<std::size_t>(m);
  for (int d = 0; d <= order; ++d) {
    const auto at = static_cast<std::size_t>(d);
    const std::span<double> row = P.subspan(at * length, length);
    for (std::size_t i = 0; i < length; ++i) {
      const double place = static_cast<double>(i) - 0.5 * (m - 1);
      row[i] = d == 0 ? 1.0 : P[(at - 1) * length + i] * place;
    }
    for (int pass = 0; pass < 2; ++pass) {
      for (std::size_t e = 0; e < at; ++e) {
        double share = 0.0;
        for (std::size_t i = 0; i < length; ++i) share += row[i] * P[e * length + i];
        for (std::size_t i = 0; i < length; ++i) row[i] -= share * P[e * length + i];
      }
    }
    double square = 0.0;
    for (const double x : row) square += x * x;
    for (double& x : row) x /= std::sqrt(square);
  }
}

// The orthogonal complement of `k` orthonormal rows of length m, as m-k orthonormal rows: the last
// rows of the product of the Householder reflectors that bring P to unit vectors. P is overwritten.
void complement(int m, int k, std::span<double> P, std::span<double> out) {
  const auto length = static_cast<std::size_t>(m);
  const auto rows = static_cast<std::size_t>(k);
  const auto reflect = [&](std::span<const double> v, std::span<double> x) {
    double share = 0.0;
    for (std::size_t i = 0; i < length; ++i) share += v[i] * x[i];
    for (std::size_t i = 0; i < length; ++i) x[i] -= 2.0 * share * v[i];
  };
  for (std::size_t d = 0; d < rows; ++d) {
    const std::span<double> v = P.subspan(d * length, length);
    double square = 0.0;
    for (std::size_t i = d; i < length; ++i) square += v[i] * v[i];
    std::fill_n(v.begin(), d, 0.0);
    const double norm = std::sqrt(square);
    const double head = v[d] >= 0.0 ? norm : -norm;
    v[d] += head;
    double left = 0.0;
    for (std::size_t i = d; i < length; ++i) left += v[i] * v[i];
    for (std::size_t i = d; i < length; ++i) v[i] /= std::sqrt(left);
    for (std::size_t e = d + 1; e < rows; ++e) reflect(v, P.subspan(e * length, length));
  }
  for (std::size_t j = rows; j < length; ++j) {
    const std::span<double> x = out.subspan((j - rows) * length, length);
    std::ranges::fill(x, 0.0);
    x[j] = 1.0;
    for (std::size_t d = rows; d-- > 0;) reflect(P.subspan(d * length, length), x);
  }
}

// One term: lags at columns first..first+n-1. The coefficients, with a zero beyond each constrained
// end, are orthogonal to everything that is orthogonal to the polynomials of that order.
void term_restrictions(int first, int n, int order, int endcon, std::size_t K, Restrictions& out) {
  const int near = endcon & END_NEAR;
  const int m = n + near + (endcon & END_FAR) / END_FAR;
  const int count = m - order - 1;
  if (count <= 0) return;
  const auto length = static_cast<std::size_t>(m);
  std::vector<double> P(static_cast<std::size_t>(order + 1) * length);
  std::vector<double> Q(static_cast<std::size_t>(count) * length);
  polynomials(m, order, P);
  complement(m, order + 1, P, Q);
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    const std::size_t row = out.R.size();
    out.R.resize(row + K, 0.0);
    const double* from = Q.data() + i * length + near;
    std::copy_n(from, n, out.R.data() + row + first);
    out.r.push_back(0.0);
    ++out.q;
  }
}

bool same_term(const ListItem& a, const ListItem& b) {
  return a.var == b.var && a.order == b.order && a.endcon == b.endcon && b.lag == a.lag + 1;
}

}  // namespace

bool lag_restrictions(std::span<const ListItem> regressors, Restrictions& out) {
  out.q = 0;
  out.R.clear();
  out.r.clear();
  for (std::size_t i = 0; i < regressors.size();) {
    const ListItem& item = regressors[i];
    std::size_t next = i + 1;
    if (item.order != 0 || item.endcon != 0) {
      if (item.order < 0) {
        fail(" ...ERROR..ORDER OF A DISTRIBUTED LAG MUST NOT BE NEGATIVE");
        return false;
      }
      if (item.endcon < END_NONE || item.endcon > END_BOTH || item.order == 0) {
        fail(" ...ERROR..ENDCON MUST BE 0, 1, 2 OR 3 AND NEEDS AN ORDER");
        return false;
      }
      while (next < regressors.size() && same_term(regressors[next - 1], regressors[next])) ++next;
      term_restrictions(static_cast<int>(i), static_cast<int>(next - i), item.order, item.endcon,
                        regressors.size(), out);
    }
    i = next;
  }
  return true;
}

bool read_restrictions(Workspace ws, std::span<const ListItem> regressors, Restrictions& out,
                       std::span<const SavedEquation> equations) {
  const Trace trace("TEST");
  // With all coefficients at zero the value of a linear expression is minus its right side.
  Scratch zeros(ws, static_cast<std::int64_t>(regressors.size()));
  if (!zeros) {
    fail(" ...ERROR..INSUFFICIENT MEMORY FOR THIS CALCULATION");
    skip_block(ws);
    return false;
  }
  std::ranges::fill(zeros.words(), 0.0);
  if (!read_hypotheses(ws, K_RESTRICT, {regressors, zeros.words(), equations}, out)) return false;
  for (double& r : out.r) r = -r;
  return true;
}

}  // namespace korvel

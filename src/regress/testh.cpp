// The estimate that tests work on, the Wald statistic, and TESTH: what a test prints and sets.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/commands.h"
#include "engine/output.h"
#include "engine/results_file.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "regress/regress.h"
#include "regress/test_parts.h"
#include "stats/probability.h"

namespace korvel {

SavedEstimate SAVED;

void save_estimate(Workspace ws, const Estimate& est) {
  SavedEstimate& s = SAVED;
  const auto K = static_cast<std::size_t>(est.K());
  s.IKOD = INPCOM.IKOD;
  s.list.assign(est.list.begin(), est.list.begin() + static_cast<std::ptrdiff_t>(K + 1));
  s.names.assign((K + 1) * NAMELEN, ' ');
  for (std::size_t i = 0; i <= K; ++i) {
    const std::string_view name = s.list[i].var != 0 ? NAME(ws, s.list[i].var) : s.list[i].name;
    char* to = s.names.data() + i * NAMELEN;
    const std::size_t n = std::min<std::size_t>(name.size(), NAMELEN);
    std::memcpy(to, name.data(), n);
    s.list[i].name = {to, n};
  }
  s.coef.assign(est.coef.begin(), est.coef.end());
  s.cov.assign(est.cov.begin(),
               est.cov.begin() + static_cast<std::ptrdiff_t>(packed_words(est.K())));
  s.means.assign(est.means.begin(), est.means.end());
  s.sigma2 = temporary(temporary_place("SIG2"));
  s.SSE = FCOM.SSE;
  s.DF = FCOM.DF;
  s.N = FCOM.ZZ;
  s.DN = OLSCOM.DN;
  s.constant = OLSCOM.CONSTANT;
  s.MBEG = DATCOM.MBEG;
  s.MEND = DATCOM.MEND;
  s.log_dependent = false;
  s.rho.clear();
  s.theta.clear();
  s.before.clear();
  s.first_rows = true;
  s.gaps = false;
  s.equations.clear();
  s.choices = 2;
  s.low = 0.0;
  s.share = 1.0;
  s.limit = 0.0;
  s.upper = false;
  s.index_coefs = 0;
  s.second_index = s.variance_in_mean = false;
  s.family = -1;
  s.made_columns = INPCOM.IKOD == K_IMLS || (INPCOM.IKOD == K_OLSQ && OLSCOM.build != Build::Plain);
  s.least_squares = s.plain = s.tested = false;
  s.KWT = 0;
  s.NORMALIZ = true;
  ADDCOM.KTEST = 1;
  if (results_wanted())
    record_estimate(est.profile != nullptr ? est.profile->word : std::string_view());
}

// ---- The covariance of linear forms
// ---------------------------------------------------------------

namespace {

// Rows that keep less than this share of their length beside the rows above them are taken as
// dependent. Smaller would let through a repeated line whose gradient was rounded on another path;
// larger would refuse hypotheses that differ in the last printed digits.
constexpr double DEPENDENT = 1e-13;

double dot(const double* a, const double* b, int n) {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

// x := C g for a packed matrix of order K.
void times_packed(std::span<const double> C, const double* g, int K, double* x) {
  for (int i = 0; i < K; ++i) x[i] = 0.0;
  const double* c = C.data();
  for (int i = 0; i < K; ++i) {
    double sum = 0.0;
    for (int j = 0; j < i; ++j) {
      sum += c[j] * g[j];
      x[j] += c[j] * g[i];
    }
    x[i] += sum + c[i] * g[i];
    c += i + 1;
  }
}

// Orthonormal rows of G with its columns scaled by `size`; the number (from 1) of the first row
// that depends on those above it, 0 none.
int dependent_row(std::span<const double> G, std::span<const double> size, int q, int K,
                  std::span<double> basis) {
  for (int i = 0; i < q; ++i) {
    double* row = basis.data() + static_cast<std::ptrdiff_t>(i) * K;
    const double* g = G.data() + static_cast<std::ptrdiff_t>(i) * K;
    for (int k = 0; k < K; ++k) row[k] = g[k] * size[static_cast<std::size_t>(k)];
    const double whole = std::sqrt(dot(row, row, K));
    for (int pass = 0; pass < 2; ++pass) {
      for (int j = 0; j < i; ++j) {
        const double* other = basis.data() + static_cast<std::ptrdiff_t>(j) * K;
        const double share = dot(row, other, K);
        for (int k = 0; k < K; ++k) row[k] -= share * other[k];
      }
    }
    const double left = std::sqrt(dot(row, row, K));
    if (!(left > DEPENDENT * whole)) return i + 1;
    for (int k = 0; k < K; ++k) row[k] /= left;
  }
  return 0;
}

}  // namespace

std::int64_t FormCovariance::words(int q, int K) {
  const std::int64_t rows = q;
  return 2 * rows * K + static_cast<std::int64_t>(packed_words(q)) + rows + K;
}

FormCovariance::FormCovariance(Scratch& scratch, int forms, int coefficients)
    : q(forms), K(coefficients) {
  const auto rows = static_cast<std::size_t>(q);
  const auto columns = static_cast<std::size_t>(K);
  A = scratch.take(rows * columns);
  basis = scratch.take(rows * columns);
  V = scratch.take(packed_words(q));
  scale = scratch.take(rows);
  size = scratch.take(columns);
}

void FormCovariance::form(std::span<const double> G, std::span<const double> C) const {
  for (int k = 1; k <= K; ++k) {
    size[static_cast<std::size_t>(k - 1)] = std::sqrt(std::max(C[packed(k, k)], 0.0));
  }
  for (int i = 0; i < q; ++i) {
    const double* g = G.data() + static_cast<std::ptrdiff_t>(i) * K;
    double* a = A.data() + static_cast<std::ptrdiff_t>(i) * K;
    times_packed(C, g, K, a);
    for (int j = 0; j <= i; ++j) {
      V[packed(i + 1, j + 1)] = dot(a, G.data() + static_cast<std::ptrdiff_t>(j) * K, K);
    }
  }
}

double FormCovariance::rounding(std::span<const double> G, int i) const {
  const double* g = G.data() + static_cast<std::ptrdiff_t>(i - 1) * K;
  double sum = 0.0;
  for (int k = 0; k < K; ++k) sum += std::fabs(g[k]) * size[static_cast<std::size_t>(k)];
  return 16.0 * MACOM.EPSNEG * K * sum * sum;
}

int FormCovariance::factor(std::span<const double> G, std::span<const double> C) const {
  form(G, C);
  for (int i = 1; i <= q; ++i) {
    const double v = V[packed(i, i)];
    if (!(v > rounding(G, i)) || !std::isfinite(v)) return i;
    scale[static_cast<std::size_t>(i - 1)] = 1.0 / std::sqrt(v);
  }
  if (const int row = dependent_row(G, size, q, K, basis); row != 0) return row;
  for (int i = 1; i <= q; ++i) {
    for (int j = 1; j <= i; ++j) {
      V[packed(i, j)] *=
          scale[static_cast<std::size_t>(i - 1)] * scale[static_cast<std::size_t>(j - 1)];
    }
  }
  return cholesky_factor(V, q);
}

void FormCovariance::half_solve(std::span<double> x, std::size_t stride) const {
  for (int i = 1; i <= q; ++i) {
    const auto at = static_cast<std::size_t>(i - 1);
    double sum = x[at * stride] * scale[at];
    for (int k = 1; k < i; ++k) {
      sum -= V[packed(i, k)] * x[static_cast<std::size_t>(k - 1) * stride];
    }
    x[at * stride] = sum * V[packed(i, i)];  // the diagonal holds reciprocals
  }
}

void FormCovariance::solve(std::span<double> x) const {
  half_solve(x, 1);
  for (int i = q; i >= 1; --i) {
    double sum = x[static_cast<std::size_t>(i - 1)];
    for (int k = i + 1; k <= q; ++k) sum -= V[packed(k, i)] * x[static_cast<std::size_t>(k - 1)];
    x[static_cast<std::size_t>(i - 1)] = sum * V[packed(i, i)];
  }
  for (int i = 0; i < q; ++i) {
    x[static_cast<std::size_t>(i)] *= scale[static_cast<std::size_t>(i)];
  }
}

WaldTest wald(std::span<const double> v, std::span<const double> G, std::span<const double> C,
              int K, Workspace ws) {
  const int q = static_cast<int>(v.size());
  Scratch scratch(ws, FormCovariance::words(q, K) + q);
  if (!scratch) return {.W = 0.0, .IFAULT = q};
  FormCovariance covariance(scratch, q, K);
  const std::span<double> x = scratch.take(v.size());
  WaldTest test;
  test.IFAULT = covariance.factor(G, C);
  if (test.IFAULT != 0) return test;
  std::ranges::copy(v, x.begin());
  covariance.half_solve(x, 1);
  for (const double e : x) test.W += e * e;
  return test;
}

// Takes out of a covariance what rounding has left along the forms, in the measure of `size`: each
// form then has no variance, and no covariance with anything, to the last bits of what remains.
static void clear_directions(const FormCovariance& forms, std::span<double> cov) {
  const int K = forms.K;
  const std::span<double> y = forms.A.first(static_cast<std::size_t>(K));
  const auto size = [&](int k) { return forms.size[static_cast<std::size_t>(k - 1)]; };
  for (int i = 0; i < forms.q; ++i) {
    const double* q = forms.basis.data() + static_cast<std::ptrdiff_t>(i) * K;
    double s = 0.0;
    for (int j = 1; j <= K; ++j) {
      double sum = 0.0;
      for (int k = 1; k <= K; ++k) {
        if (size(k) > 0.0) sum += cov[packed(j, k)] / size(k) * q[k - 1];
      }
      y[static_cast<std::size_t>(j - 1)] = size(j) > 0.0 ? sum / size(j) : 0.0;
      s += q[j - 1] * y[static_cast<std::size_t>(j - 1)];
    }
    for (int j = 1; j <= K; ++j) {
      for (int k = 1; k <= j; ++k) {
        const double part = q[j - 1] * y[static_cast<std::size_t>(k - 1)] +
                            y[static_cast<std::size_t>(j - 1)] * q[k - 1] - s * q[j - 1] * q[k - 1];
        cov[packed(j, k)] -= part * size(j) * size(k);
      }
    }
  }
}

bool restrict_estimate(Workspace ws, const Restrictions& restrictions, std::span<double> coef,
                       std::span<double> cov) {
  const Trace trace("TESTH");
  const int q = restrictions.q;
  const int K = static_cast<int>(coef.size());
  if (q == 0) return true;
  const auto columns = static_cast<std::size_t>(K);
  Scratch scratch(ws, FormCovariance::words(q, K) + q + K);
  if (!scratch) return false;
  FormCovariance covariance(scratch, q, K);
  const std::span<double> gap = scratch.take(static_cast<std::size_t>(q));
  const std::span<double> variance = scratch.take(columns);
  const int IFAULT = covariance.factor(restrictions.R, cov);
  if (IFAULT != 0) {
    OCOM.IFAULT = IFAULT;
    MATINV(IFAULT, " TEST COVAR MATRIX      ");
    warn(" ...WARNING..RESTRICTIONS COULD NOT BE DONE");
    temporary(temporary_place("ERR")) = ERR_RESTRICTIONS;
    return false;
  }
  // The coefficients; a second step takes off what the first has left by rounding.
  for (int step = 0; step < 2; ++step) {
    for (int i = 0; i < q; ++i) {
      const double* R = restrictions.R.data() + static_cast<std::ptrdiff_t>(i) * K;
      gap[static_cast<std::size_t>(i)] =
          dot(R, coef.data(), K) - restrictions.r[static_cast<std::size_t>(i)];
    }
    covariance.solve(gap);
    for (int i = 0; i < q; ++i) {
      const double* a = covariance.A.data() + static_cast<std::ptrdiff_t>(i) * K;
      for (std::size_t k = 0; k < columns; ++k) coef[k] -= a[k] * gap[static_cast<std::size_t>(i)];
    }
  }
  // The covariance: what is taken off is T'T with T = L^-1 A, so it stays symmetric and its
  // diagonal falls. A variance of which nothing but rounding is left is that of a coefficient the
  // restrictions fix: exactly zero.
  const double rounding = 64.0 * MACOM.EPSNEG * K;
  for (std::size_t k = 0; k < columns; ++k) covariance.half_solve(covariance.A.subspan(k), columns);
  for (int k = 1; k <= K; ++k) variance[static_cast<std::size_t>(k - 1)] = cov[packed(k, k)];
  for (int i = 0; i < q; ++i) {
    const double* t = covariance.A.data() + static_cast<std::ptrdiff_t>(i) * K;
    double* c = cov.data();
    for (int j = 0; j < K; ++j) {
      for (int k = 0; k <= j; ++k) *c++ -= t[j] * t[k];
    }
  }
  clear_directions(covariance, cov);
  for (int k = 1; k <= K; ++k) {
    if (cov[packed(k, k)] > rounding * variance[static_cast<std::size_t>(k - 1)]) continue;
    for (int j = 1; j <= K; ++j) cov[packed(k, j)] = 0.0;
  }
  return true;
}

void test_not_done() {
  warn(" ...WARNING..TEST COULD NOT BE DONE");
  temporary(temporary_place("ERR")) = ERR_TEST;
}

// ---- TESTH
// ----------------------------------------------------------------------------------------

namespace {

double bounded(double p) { return std::min(p, 1.0); }

void print_chi_square(double W, int q) {
  say<"(' WALD CHI-SQUARE STATISTIC =', G16.8, ' WITH ', I4, ' D.F.', '  P-VALUE=', F8.5)">(
      W, q, PCHI(W, q));
}

void print_bound(double F, int q) {
  say<"(' UPPER BOUND ON P-VALUE BY CHEBYCHEV INEQUALITY =', F8.5)">(F > 0.0 ? bounded(q / F)
                                                                             : 1.0);
}

void print_f(double F, int q, int DF, double p) {
  say<"(' F STATISTIC =', G16.8, ' WITH ', I4, ' AND ', I4, ' D.F.', '  P-VALUE=', F8.5)">(F, q, DF,
                                                                                           p);
}

void set_temporaries(double T, double F, double CHI, int q, int DF, double STES, double PVAL) {
  temporary(temporary_place("T")) = T;
  temporary(temporary_place("F")) = F;
  temporary(temporary_place("CHI")) = CHI;
  temporary(temporary_place("DF1")) = q;
  temporary(temporary_place("DF2")) = DF;
  temporary(temporary_place("STES")) = STES;
  temporary(temporary_place("PVAL")) = PVAL;
}

bool test_single(double v, double s, double rounding) {
  temporary(temporary_place("VAL")) = v;
  if (!(s > rounding) || !std::isfinite(s) || !std::isfinite(v)) {
    test_not_done();
    return false;
  }
  const int DF = static_cast<int>(SAVED.DF);
  const double STES = std::sqrt(s);
  const double T = v / STES;
  const double F = T * T;
  const double p = SAVED.DN ? normal_two_sided(T) : f_tail(F, 1.0, DF);
  set_temporaries(T, F, F, 1, DF, STES, p);
  if (!OCOM.OPUT) return true;
  say<"(' TEST VALUE =', G13.5, ' STD. ERROR OF TEST VALUE', G13.5)">(v, STES);
  if (SAVED.DN) {
    say<"(' ASYMPTOTIC NORMAL STATISTIC =', G16.8, '  P-VALUE=', F8.5)">(T, p);
  } else {
    say<"(' T STATISTIC =', G16.8, ' WITH ', I4, ' D.F.', 4X, 'P-VALUE=', F8.5)">(T, DF, p);
    print_f(F, 1, DF, p);
  }
  print_chi_square(F, 1);
  print_bound(F, 1);
  return true;
}

void test_joint(double W, int q) {
  const int DF = static_cast<int>(SAVED.DF);
  const double F = W / q;
  const double p = SAVED.DN ? PCHI(W, q) : f_tail(F, q, DF);
  set_temporaries(0.0, F, W, q, DF, 0.0, p);
  if (!OCOM.OPUT) return;
  if (!SAVED.DN) print_f(F, q, DF, p);
  print_chi_square(W, q);
  print_bound(F, q);
}

}  // namespace

void TESTH(Workspace ws, std::span<const double> v, std::span<const double> G) {
  const Trace trace("TESTH");
  const int q = static_cast<int>(v.size());
  const int K = SAVED.K();
  Scratch scratch(ws, FormCovariance::words(q, K) + q + static_cast<std::int64_t>(packed_words(q)));
  if (!scratch) return fail(" ...ERROR..INSUFFICIENT MEMORY FOR THIS CALCULATION");
  FormCovariance covariance(scratch, q, K);
  covariance.form(G, SAVED.cov);
  if (q == 1) {
    const bool done = test_single(v[0], covariance.V[0], covariance.rounding(G, 1));
    if (results_wanted()) record_test(v, covariance.V, done);
    return;
  }
  if (q == 2) {
    temporary(temporary_place("VAL1")) = v[0];
    temporary(temporary_place("VAL2")) = v[1];
    temporary(temporary_place("CT11")) = covariance.V[0];
    temporary(temporary_place("CT12")) = covariance.V[1];
    temporary(temporary_place("CT22")) = covariance.V[2];
    SAVED.tested = true;
  }
  // The factor takes the place of the covariance, which the record wants as it was.
  const std::span<double> x = scratch.take(v.size());
  const std::span<double> kept = scratch.take(covariance.V.size());
  std::ranges::copy(covariance.V, kept.begin());
  const int IFAULT = covariance.factor(G, SAVED.cov);
  if (IFAULT != 0) {
    OCOM.IFAULT = IFAULT;
    MATINV(IFAULT, " TEST COVAR MATRIX      ");
    test_not_done();
    if (results_wanted()) record_test(v, kept, false);
    return;
  }
  std::ranges::copy(v, x.begin());
  covariance.half_solve(x, 1);
  double W = 0.0;
  for (const double e : x) W += e * e;
  test_joint(W, q);
  if (results_wanted()) record_test(v, kept, true);
}

}  // namespace korvel

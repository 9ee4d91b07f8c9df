// RESET and FRESET: functions of the fitted values added to the model (Ramsey 1969; DeBenedictis
// and Giles 1998).

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/output.h"
#include "regress/diagnos_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr int POWERS = 4;   // powers 2 to 4
constexpr int FOURIER = 3;  // one to three pairs of sine and cosine
constexpr int MOST_ADDED = 2 * FOURIER;

void print_added(std::string_view word, int number, const AddedTest& test) {
  Line row;
  row.put<"(1X, A, '(', I1, ')=', G13.5, ' - F WITH DF1=', I4, ' AND DF2=')">(word, number, test.F,
                                                                              test.DF1);
  put_df(row, test.DF2);
  row.put<"(' P-VALUE=', F6.3)">(f_tail(test.F, test.DF1, test.DF2));
  OUTLINE();
}

void added_not_fitted(std::string_view word, int number) {
  warn<"(' ...WARNING..', A, '(', I1, ') COULD NOT BE FITTED')">(word, number);
}

// Angles w between -pi and pi for the terms sin(jw), cos(jw).
void fourier_terms(std::string_view title, Basis q, const DiagnosWork& d, std::span<double> u,
                   std::span<const double> w) {
  say<"(' DEBENEDICTIS-GILES FRESET SPECIFICATION TESTS USING ', A)">(title);
  bool whole = true;
  for (int j = 1; j <= FOURIER; ++j) {
    for (const bool sine : {true, false}) {
      const std::span<double> c = q.next();
      for (std::size_t t = 0; t < c.size(); ++t)
        c[t] = sine ? std::sin(j * w[t]) : std::cos(j * w[t]);
      whole = whole && q.accept(ADDED_DEPENDENT);
    }
    const AddedTest test = whole ? added_test(d.m, q, u) : AddedTest{};
    if (test.fitted)
      print_added("FRESET", j, test);
    else
      added_not_fitted("FRESET", j);
  }
}

}  // namespace

void print_resets(Workspace ws, const DiagnosWork& d) {
  const DiagnosModel& m = d.m;
  const auto N = static_cast<std::size_t>(m.N);
  const auto K = static_cast<std::size_t>(m.K);
  Scratch scratch(ws, static_cast<std::int64_t>(N * (K + MOST_ADDED + 3)));
  if (!scratch) return;
  const std::span<double> f = scratch.take(N);
  const std::span<double> u = scratch.take(N);
  Basis q(scratch.rest(), m.N);
  q.adopt(m.q);
  for (std::size_t t = 0; t < N; ++t) f[t] = m.y[t] - m.e[t];
  const auto [least, most] = std::ranges::minmax(f);
  const double low = least, largest = std::max(std::fabs(least), std::fabs(most));
  const double range = most - least > NO_SPREAD * largest ? most - least : 0.0;
  // 1. Powers. Beside a constant they may be taken about the middle of the fitted values, which
  // keeps their digits; without one only the scale is free.
  say(" RAMSEY RESET SPECIFICATION TESTS USING POWERS OF YHAT");
  const bool free_origin = m.constant && SAVED.KWT == 0;
  const double middle = free_origin ? low + range / 2.0 : 0.0;
  const double size = free_origin ? range / 2.0 : largest;
  bool whole = size > 0.0;
  for (int p = 2; p <= POWERS; ++p) {
    const std::span<double> c = q.next();
    for (std::size_t t = 0; t < N && whole; ++t) {
      const double z = (f[t] - middle) / size;
      c[t] = p == 2 ? z * z : (p == 3 ? z * z * z : z * z * z * z);
    }
    whole = whole && q.accept(ADDED_DEPENDENT);
    const AddedTest test = whole ? added_test(m, q, u) : AddedTest{};
    if (test.fitted)
      print_added("RESET", p, test);
    else
      added_not_fitted("RESET", p);
  }
  // 2. Fourier terms of two transformations of the fitted values.
  constexpr double pi = std::numbers::pi;
  q.cut(m.K);
  for (double& v : f) v = range > 0.0 ? pi * (2.0 * (v - low) - range) / range : 0.0;
  fourier_terms("FRESETL", q, d, u, f);
  for (std::size_t t = 0; t < N; ++t) {
    const double s = std::sin((m.y[t] - m.e[t]) * m.unit);
    f[t] = 2.0 * pi * s * s - pi;
  }
  fourier_terms("FRESETS", q, d, u, f);
}

}  // namespace korvel

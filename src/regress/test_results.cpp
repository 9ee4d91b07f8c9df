// Estimates and tests as records of the file of results.

#include <cmath>
#include <limits>

#include "engine/output.h"
#include "engine/results_file.h"
#include "expr/kernels/packed.h"
#include "regress/test_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double NO_NUMBER = std::numeric_limits<double>::quiet_NaN();

double standard_error(std::size_t i) {
  const int place = static_cast<int>(i) + 1;
  const double variance = SAVED.cov[packed(place, place)];
  return variance > 0.0 ? std::sqrt(variance) : 0.0;
}

// A coefficient without variance has no t.
double t_value(std::size_t i) {
  const double se = standard_error(i);
  return se > 0.0 ? SAVED.coef[i] / se : NO_NUMBER;
}

double p_value(double t) {
  if (SAVED.DN) return normal_two_sided(t);
  return SAVED.DF > 0.0 && std::isfinite(t) ? f_tail(t * t, 1.0, SAVED.DF) : NO_NUMBER;
}

}  // namespace

void record_estimate(std::string_view word) {
  const std::size_t K = SAVED.coef.size();
  const std::string_view command = word.empty() ? std::string_view(INPCOM.COMWRD, KEYLEN) : word;
  ResultRecord record("estimate", right_trimmed(command), INPCOM.KLINE);
  record.number("n", SAVED.N);
  record.number("df", SAVED.DF);
  record.truth("asymptotic", SAVED.DN);
  record.truth("constant", SAVED.constant);
  if (SAVED.list.size() > K) record.text("dependent", right_trimmed(SAVED.list[K].name));
  record.open("names", '[');
  for (std::size_t i = 0; i < K; ++i) record.element(right_trimmed(SAVED.list[i].name));
  record.close(']');
  record.open("lags", '[');
  for (std::size_t i = 0; i < K; ++i) record.element(SAVED.list[i].lag);
  record.close(']');
  record.numbers("coefficients", SAVED.coef);
  record.open("standard_errors", '[');
  for (std::size_t i = 0; i < K; ++i) record.element(standard_error(i));
  record.close(']');
  record.open("t", '[');
  for (std::size_t i = 0; i < K; ++i) record.element(t_value(i));
  record.close(']');
  record.open("p", '[');
  for (std::size_t i = 0; i < K; ++i) record.element(p_value(t_value(i)));
  record.close(']');
  record.numbers("covariance", SAVED.cov);
  record.number("sigma2", SAVED.sigma2);
  record.number("sse", SAVED.SSE);
  record.number("r2", temporary(temporary_place("R2")));
  record.number("llf", temporary(temporary_place("LLF")));
  record.temporaries();
}

void record_test(std::span<const double> v, std::span<const double> V, bool done) {
  ResultRecord record("test", "TEST", INPCOM.KLINE);
  record.truth("done", done);
  record.truth("asymptotic", SAVED.DN);
  record.numbers("values", v);
  record.numbers("covariance", V);
  if (!done) return;
  const double W = temporary(temporary_place("CHI"));
  const auto q = static_cast<double>(v.size());
  record.number("df1", q);
  record.number("df2", SAVED.DF);
  if (v.size() == 1) record.number("t", temporary(temporary_place("T")));
  record.number("f", W / q);
  record.number("chi_square", W);
  record.number("p", temporary(temporary_place("PVAL")));
  record.number("p_chi_square", PCHI(W, q));
  record.temporaries();
}

}  // namespace korvel

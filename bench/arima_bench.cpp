// Speed of the ARIMA kernels: 200 autocorrelations of a million observations, one pass of residuals
// and one fit of the airline model (144 months, (0,1,1)(0,1,1) of span 12).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "arima/autocorr.h"
#include "arima/bjegau.h"
#include "expr/kernels/packed.h"

namespace {

using namespace korvel;  // NOLINT(google-build-using-namespace): a benchmark

std::vector<double> noise(std::size_t n) {
  std::vector<double> x(n);
  std::uint32_t s = 1;
  for (double& v : x) {
    s = s * 1664525U + 1013904223U;
    v = static_cast<double>(s) * 0x1p-32 - 0.5;
  }
  return x;
}

// A series that the airline model fits: its difference equation run on noise.
std::vector<double> airline() {
  const std::vector<double> a = noise(131 + 13);
  std::vector<double> w(131);
  for (std::size_t t = 0; t < w.size(); ++t) {
    const std::size_t s = t + 13;
    w[t] = a[s] - 0.4 * a[s - 1] - 0.6 * a[s - 12] + 0.24 * a[s - 13];
  }
  return w;
}

constexpr BjOrders AIRLINE{
    .NMA = 1, .NSMA = 1, .NSPAN = 12, .NDIFF = 1, .NSDIFF = 1, .constant = false};

void identification(benchmark::State& state) {
  const std::vector<double> x = noise(static_cast<std::size_t>(state.range(0)));
  std::vector<double> copy, r(200), errors(200), Q(200), partial(12), phi(12), spare(12);
  for (auto _ : state) {
    copy = x;
    const SeriesMoments m = series_moments(copy);
    autocorrelations(copy, m, r);
    bartlett_errors(r, static_cast<double>(x.size()), errors);
    ljung_box(r, static_cast<double>(x.size()), Q);
    BJIPAR(r, partial, phi, spare);
    benchmark::DoNotOptimize(partial.data());
  }
}
BENCHMARK(identification)->Arg(1000000)->Unit(benchmark::kMillisecond);

void residuals(benchmark::State& state) {
  const std::vector<double> w = airline();
  std::vector<double> room(arm_words(w.size())), a(PRESAMPLE + w.size());
  const ArmRoom arm(room, w.size());
  std::copy(w.begin(), w.end(), arm.w.begin() + PRESAMPLE);
  BjModel model;
  const std::vector<double> b = {0.4, 0.6};
  make_model(AIRLINE, b, false, model);
  for (auto _ : state) benchmark::DoNotOptimize(BJEARM(model, arm, a));
}
BENCHMARK(residuals);

void estimation(benchmark::State& state) {
  const std::vector<double> w = airline();
  std::vector<double> a(PRESAMPLE + w.size()), cov(packed_words(2));
  std::vector<double> work(BJEGAU_words(2, w.size()));
  const auto watch = [](const GaussStep&) { return true; };
  int iterations = 0;
  for (auto _ : state) {
    std::vector<double> b = {0.1, 0.1};
    const GaussFit fit = BJEGAU({AIRLINE, 0.01, 50}, w, b, a, cov, work, watch);
    iterations = fit.iterations;
    benchmark::DoNotOptimize(fit.S);
  }
  state.counters["iterations"] = iterations;
}
BENCHMARK(estimation)->Unit(benchmark::kMicrosecond);

}  // namespace

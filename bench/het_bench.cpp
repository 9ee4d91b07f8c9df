// GARCH(1,1) with a regressor, 10,000 observations: the whole HETERO command, and its kernels - the
// likelihood with its gradient, and the pass that sums the information matrix.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "expr/kernels/packed.h"
#include "nonlinear/nlhet.h"
#include "session.h"

namespace {

using namespace korvel;  // NOLINT(google-build-using-namespace): a benchmark

struct Series {
  explicit Series(std::size_t n) : X(4 * n, 0.0) {
    std::mt19937 draw(5);
    std::normal_distribution<double> normal;
    double h = 1.0, e = 0.0;
    for (std::size_t t = 0; t < n; ++t) {
      h = 0.1 + 0.1 * e * e + 0.8 * h;
      e = std::sqrt(h) * normal(draw);
      x.push_back(normal(draw));
      y.push_back(1.0 + 0.5 * x[t] + e);
      X[4 * t] = x[t];
      X[4 * t + 1] = 1.0;
    }
  }
  std::vector<double> x, y, X;
};

void command(benchmark::State& state) {
  const Series s(10000);
  const std::string name = "/tmp/korvel_het_bench_" + std::to_string(std::rand()) + ".dat";
  {
    std::ofstream file(name);
    file.precision(10);
    for (std::size_t t = 0; t < s.x.size(); ++t) file << s.y[t] << ' ' << s.x[t] << '\n';
  }
  constexpr int times = 20;
  const std::string one = "?HET Y X / ARCH=1 GARCH=1\n";
  std::string few = "SET NOWARN\nSAMPLE 1 10000\nREAD(" + name + ") Y X\n" + one, many = few;
  for (int i = 0; i < times; ++i) many += one;
  for (auto _ : state) {
    const double base = session_seconds(few);
    state.SetIterationTime((session_seconds(many) - base) / times);
  }
  std::remove(name.c_str());
}
BENCHMARK(command)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

HetRows garch(const Series& s, const double* const* column) {
  HetRows rows;
  rows.K = 2;
  rows.p = rows.q = 1;
  rows.rows = static_cast<std::int64_t>(s.x.size());
  rows.column = column;
  rows.X = s.X.data();
  rows.y = s.y.data();
  rows.presample = 1.0;
  return rows;
}
const std::vector<double> B = {0.5, 1.0, 0.1, 0.1, 0.8};

void likelihood_and_gradient(benchmark::State& state) {
  const Series s(10000);
  const double* const column[] = {s.x.data(), nullptr};
  const HetRows rows = garch(s, column);
  std::vector<double> e(s.x.size()), h(s.x.size()), gradient(5);
  std::vector<double> work(static_cast<std::size_t>(het_value_words(rows)));
  for (auto _ : state) benchmark::DoNotOptimize(het_value(rows, B, e, h, gradient, work).L);
}
BENCHMARK(likelihood_and_gradient)->Unit(benchmark::kMicrosecond);

void information(benchmark::State& state) {
  const Series s(10000);
  const double* const column[] = {s.x.data(), nullptr};
  const HetRows rows = garch(s, column);
  std::vector<double> sums(packed_words(5));
  std::vector<double> work(static_cast<std::size_t>(het_pass_words(rows)));
  HetPass pass;
  pass.information = sums;
  for (auto _ : state) benchmark::DoNotOptimize(het_pass(rows, B, pass, work).L);
}
BENCHMARK(information)->Unit(benchmark::kMicrosecond);

}  // namespace

// Speed of the least-squares kernels: the orthogonalisation, the residual pass, the refinements of
// coefficients and inverse, the moment sweep of the normal equations, at the sizes of a textbook, a
// survey and a long panel.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "expr/kernels/gsreg.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"

namespace {

using korvel::ColumnList;

// K regressors, the last of them the constant, and y.
struct Model {
  std::vector<std::vector<double>> data;
  std::vector<const double*> columns;
  ColumnList x;
  std::vector<double> work, factor, mean, square, b, inverse, e;

  Model(std::int64_t rows, int K) {
    std::uint32_t s = 1;
    for (int k = 0; k < K; ++k) {
      std::vector<double>& column = data.emplace_back(static_cast<std::size_t>(rows));
      for (double& v : column) {
        s = s * 1664525U + 1013904223U;
        v = static_cast<double>(s) * 0x1p-32;
      }
    }
    for (int k = 0; k + 1 < K; ++k) columns.push_back(data[static_cast<std::size_t>(k)].data());
    columns.push_back(nullptr);
    columns.push_back(data.back().data());
    x = {columns, rows, nullptr, {}};
    const int n = x.columns();
    work.resize(static_cast<std::size_t>(korvel::GSREG_words(n, rows)));
    factor.resize(korvel::packed_words(n));
    inverse.resize(korvel::packed_words(n - 1));
    mean.resize(columns.size());
    square.resize(columns.size());
    b.resize(columns.size() - 1);
    e.resize(static_cast<std::size_t>(rows));
  }
  void fit() {
    benchmark::DoNotOptimize(korvel::GSREG(x, work, factor, 0, mean, square));
    korvel::gs_coefficients(factor, x.columns(), b);
    korvel::gs_inverse(factor, x.columns(), inverse);
  }
};

void sizes(benchmark::internal::Benchmark* b) {
  b->Args({100, 6})->Args({10000, 11})->Args({1000000, 11})->Args({100000, 50});
}

void fit(benchmark::State& state) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  for (auto _ : state) m.fit();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(fit)->Apply(sizes)->UseRealTime();

void residuals(benchmark::State& state) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  m.fit();
  for (auto _ : state) {
    korvel::gs_residuals(m.x, m.b, m.e);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(residuals)->Apply(sizes)->UseRealTime();

void refinement(benchmark::State& state) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  m.fit();
  for (auto _ : state) benchmark::DoNotOptimize(korvel::GSREFINE(m.x, m.factor, m.work, m.b).steps);
}
BENCHMARK(refinement)->Apply(sizes)->UseRealTime();

void moments(benchmark::State& state) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  std::vector<double> work(static_cast<std::size_t>(korvel::LSMOM_words(m.x.columns(), m.x.rows)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(korvel::LSMOM({.x = m.x}, work, m.mean, m.factor));
  }
}
BENCHMARK(moments)->Apply(sizes)->UseRealTime();

void exact_inverse(benchmark::State& state) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  m.fit();
  const int K = m.x.columns() - 1;
  std::vector<double> work(static_cast<std::size_t>(korvel::LSINVERSE_words(K, m.x.rows)));
  for (auto _ : state) benchmark::DoNotOptimize(korvel::LSINVERSE(m.x, K, work, m.inverse));
}
BENCHMARK(exact_inverse)->Args({100, 6})->Args({10000, 11})->Args({1000000, 11})->UseRealTime();

}  // namespace

// Speed of the limited-dependent-variable kernels: one pass over the rows, and whole commands at
// the size of a survey.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "expr/kernels/packed.h"
#include "limdep/likelihood.h"
#include "session.h"

namespace {

using korvel::LikelihoodRows;
using korvel::RowKind;

// Regressors, the last of them a column of ones, and a y of 0 and 1.
struct Model {
  std::vector<std::vector<double>> data;
  std::vector<const double*> columns;
  std::vector<double> y, shift, scale, b, gradient, information, work;
  LikelihoodRows rows;

  Model(std::int64_t n, int K) {
    std::uint32_t s = 1;
    const auto draw = [&] {
      s = s * 1664525U + 1013904223U;
      return static_cast<double>(s) * 0x1p-31 - 1.0;
    };
    const auto k = static_cast<std::size_t>(K);
    for (std::size_t i = 0; i + 1 < k; ++i) {
      std::vector<double>& column = data.emplace_back(static_cast<std::size_t>(n));
      for (double& v : column) v = draw();
      columns.push_back(column.data());
    }
    columns.push_back(nullptr);
    for (std::int64_t t = 0; t < n; ++t) y.push_back(draw() > 0.0 ? 1.0 : 0.0);
    shift.resize(k);
    scale.assign(k, 1.0);
    b.assign(k, 0.1);
    gradient.resize(k);
    information.resize(korvel::packed_words(K));
    work.resize(static_cast<std::size_t>(korvel::likelihood_words(K, 2, n)));
    rows = {columns, shift, scale, y.data(), nullptr, 1.0, n};
  }
};

void pass(benchmark::State& state, RowKind kind) {
  Model m(state.range(0), static_cast<int>(state.range(1)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        korvel::likelihood(m.rows, {.kind = kind}, 2, m.b, m.gradient, m.information, m.work).LLF);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(pass, probit, RowKind::probit)->Args({200000, 11})->Args({200, 5})->UseRealTime();
BENCHMARK_CAPTURE(pass, logit, RowKind::logit)->Args({200000, 11})->Args({200, 5})->UseRealTime();
BENCHMARK_CAPTURE(pass, tobit, RowKind::tobit)->Args({200000, 7})->Args({200, 5})->UseRealTime();

// Whole commands on 200,000 rows: the run with the command less the run without it.
void command(benchmark::State& state, const std::string& line) {
  const std::string data =
      "SET RANFIX\nSAMPLE 1 200000\nDO #=1,10\nGENR X#=NOR(1)\nENDO\n"
      "GENR S=0.3+X1/3+X2/4-X3/5+X4/9-X5/6+NOR(1)\nGENR Y=S.GT.0\nGENR T=S*Y\n";
  for (auto _ : state) run_session(data + line, 60000);
}
BENCHMARK_CAPTURE(command, no_command, "")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, probit, "PROBIT Y X1-X10\n")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, logit, "LOGIT Y X1-X10\n")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, tobit, "TOBIT T X1-X5\n")->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

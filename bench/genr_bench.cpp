// Formulas over 5,000,000 observations, beside the memory traffic that they can't avoid, and draws.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "engine/commands.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/expr.h"
#include "expr/trans.h"
#include "expr/trans_lanes.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

constexpr int N = 5000000;

Workspace filled() {
  static const Workspace ws = [] {
    std::int64_t largest = 0;
    new_workspace(400000, 1000, &largest);
    Workspace made = workspace();
    RESET(made);
    OSCOM.OWARN = false;
    OSCOM.ORANST = true;
    DATCOM.MBEG = 1;
    DATCOM.MEND = N;
    for (const char* name : {"X1", "X2", "Y"}) NEWVAR(made, name, {.LEN = N});
    fill_normal(elements(made, 1));
    fill_normal(elements(made, 2));
    return made;
  }();
  return ws;
}

void statement(benchmark::State& state, const std::string& text) {
  const Workspace ws = filled();
  GenrJob job;
  job.text = text;
  job.IKOD = K_GENR;
  TransJob trans;
  trans.IKOD = K_GENR;
  for (auto _ : state) benchmark::DoNotOptimize(run_formula(ws, job, trans));
  state.SetItemsProcessed(state.iterations() * N);
}
BENCHMARK_CAPTURE(statement, log_sum, std::string("Y=LOG(ABS(X1))+X2**2-3*X1*X2/(1+X2*X2)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, difference, std::string("Y=X1-X1(-1)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, dum, std::string("Y=DUM(X1-X2)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, running_sum, std::string("Y=SUM(X1)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, copy, std::string("Y=X1"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, exponential, std::string("Y=EXP(X1)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(statement, normal_draws, std::string("Y=NOR(1)"))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// What a formula of two operands can't avoid: both read, the result written, on all threads.
void memory_traffic(benchmark::State& state) {
  const Workspace ws = filled();
  const double* a = elements(ws, 1).data();
  const double* b = elements(ws, 2).data();
  double* r = elements(ws, 3).data();
  const bool with_log = state.range(0) != 0;
  for (auto _ : state) {
    parallel_sections(64, [&](int s) {
      const std::size_t from = static_cast<std::size_t>(s) * (N / 64);
      const std::size_t n = s == 63 ? N - from : N / 64;
      if (with_log) {
        for (std::size_t i = 0; i < n; i += 1000) {
          const std::size_t m = std::min<std::size_t>(1000, n - i);
          lane_table().add[LANE_VV](r + from + i, a + from + i, b + from + i, m);
          lane_table().log(r + from + i, r + from + i, nullptr, m);
        }
      } else {
        lane_table().add[LANE_VV](r + from, a + from, b + from, n);
      }
    });
  }
}
BENCHMARK(memory_traffic)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void one_stream(benchmark::State& state) {
  const Workspace ws = filled();
  for (auto _ : state) {
    parallel_sections(64, [&](int s) {
      const std::size_t from = static_cast<std::size_t>(s) * (N / 64);
      lane_table().copy(elements(ws, 3).data() + from, elements(ws, 1).data() + from, nullptr,
                        N / 64);
    });
  }
}
BENCHMARK(one_stream)->Unit(benchmark::kMillisecond)->UseRealTime();

void short_statement(benchmark::State& state) {
  const Workspace ws = filled();
  Scratch room(ws, formula_words());
  const Formula formula = carve_formula(room.words());
  GenrJob job;
  job.text = "Y=X1+2*X2";
  job.IKOD = K_GENR;
  for (auto _ : state) benchmark::DoNotOptimize(GENR(ws, job, formula));
}
BENCHMARK(short_statement);

void normals(benchmark::State& state) {
  std::vector<double> x(10000000);
  OSCOM.ORANST = true;
  for (auto _ : state) fill_normal(x);
}
BENCHMARK(normals)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace korvel

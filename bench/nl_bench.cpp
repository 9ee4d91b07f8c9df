// Speed of NLINEAR: an exponential of two coefficients on 100,000 observations, ten estimations
// with default settings; the same without them for what the data take.
#include <benchmark/benchmark.h>

#include <string>

#include "session.h"

namespace {

void estimations(benchmark::State& state) {
  std::string commands =
      "SET NOWARN\nSAMPLE 1 100000\nSET RANSEED=11\nGENR X=TIME(0)/20000\n"
      "GENR Y=3*EXP(-0.7*X)+NOR(0.2)\n";
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    commands += "?NL 1 / NCOEF=2\nEQ Y=A*EXP(-B*X)\nCOEF A 1 B 0.2\nEND\n";
  }
  for (auto _ : state) run_session(commands, 20480);
}
BENCHMARK(estimations)->Arg(0)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

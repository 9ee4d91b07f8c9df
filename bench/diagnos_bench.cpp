// DIAGNOSE: the bootstrap, and the tests that pass over the rows one by one, at growing numbers of
// rows: their time must grow with the rows and no faster. Times are those of the commands beside
// the same run without them.
#include <benchmark/benchmark.h>

#include <string>

#include "session.h"

namespace {

// A regression on four regressors and the constant.
void test(benchmark::State& state, const char* options) {
  std::string data = "SET RANFIX\nSAMPLE 1 " + std::to_string(state.range(0)) + "\n";
  for (const char* name : {"Y", "X1", "X2", "X3", "X4"}) {
    data += std::string("?GENR ") + name + "=NOR(1)\n";
  }
  data += "?OLS Y X1-X4\n";
  const std::string command = std::string("DIAGNOS / ") + options + "\n";
  constexpr int times = 5;
  std::string many;
  for (int i = 0; i < times; ++i) many += command;
  for (auto _ : state) {
    const double base = session_seconds(data);
    state.SetIterationTime((session_seconds(data + many) - base) / times);
  }
}
BENCHMARK_CAPTURE(test, bootstrap, "BOOTSAMP=1000")
    ->Arg(1000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
#define ROWS ->Arg(50000)->Arg(100000)->Arg(200000)->UseManualTime()->Unit(benchmark::kMillisecond)
BENCHMARK_CAPTURE(test, jackknife, "JACKKNIF") ROWS;
BENCHMARK_CAPTURE(test, recursive, "RECURSIV NORECEST NORECRES") ROWS;
BENCHMARK_CAPTURE(test, one_split, "CHOWONE=1000") ROWS;
BENCHMARK_CAPTURE(test, correlogram, "LAG=24") ROWS;
BENCHMARK_CAPTURE(test, hansen, "HANSEN") ROWS;
BENCHMARK_CAPTURE(test, heteroskedasticity, "WHITETES") ROWS;
BENCHMARK_CAPTURE(test, reset, "RESET") ROWS;
#undef ROWS

}  // namespace

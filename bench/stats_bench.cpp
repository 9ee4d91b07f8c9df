// STAT with correlations on 1,000,000 x 10, PCOMP on 200,000 x 20, the Hodrick-Prescott filter on
// 1,000,000 values: whole commands through the engine, and the filter's kernel alone. The time of a
// command is the difference between runs with many and with few of them, divided by their number.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "session.h"
#include "stats/hodrick.h"

namespace {

void measure(benchmark::State& state, int rows, int columns, const std::string& command) {
  constexpr int TIMES = 10;
  std::string data = "SET RANFIX\nSAMPLE 1 " + std::to_string(rows) + "\n";
  for (int j = 1; j <= columns; ++j) data += "?GENR X" + std::to_string(j) + "=NOR(1)\n";
  std::string many = data;
  for (int i = 0; i <= TIMES; ++i) many += command;
  for (auto _ : state) {
    const double base = session_seconds(data + command);
    state.SetIterationTime((session_seconds(many) - base) / TIMES);
  }
}

void stat_million(benchmark::State& state) { measure(state, 1000000, 10, "STAT X1-X10 / PCOR\n"); }
void stat_medians(benchmark::State& state) {
  measure(state, 1000000, 10, "STAT X1-X10 / PMEDIAN\n");
}
void pcomp(benchmark::State& state) { measure(state, 200000, 20, "PCOMP X1-X20 / PEV\n"); }
void pcomp_stored(benchmark::State& state) {
  measure(state, 200000, 20, "PCOMP X1-X20 / PCOMPONE=P\n");
}
void filter_command(benchmark::State& state) {
  measure(state, 1000000, 1, "?SMOOTH X1 / HPFILTER TREND=T\n");
}
void filter_kernel(benchmark::State& state) {
  std::vector<double> x(1000000), trend(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i * 7919 % 100003);
  constexpr double LAMBDA = 1600;
  std::vector<double> work(static_cast<std::size_t>(korvel::HPFILT_words(std::ssize(x), LAMBDA)));
  for (auto _ : state) {
    korvel::HPFILT(x, LAMBDA, trend, work);
    benchmark::DoNotOptimize(trend.data());
  }
}

BENCHMARK(stat_million)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(stat_medians)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(pcomp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(pcomp_stored)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(filter_command)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(filter_kernel)->Unit(benchmark::kMillisecond);

}  // namespace

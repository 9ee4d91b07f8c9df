// Whole OLS commands through the engine: reading the line, options, sample check, fit, output. The
// time of a command is the difference between runs with many and with few of them, divided by their
// number.
#include <benchmark/benchmark.h>

#include <string>

#include "session.h"

namespace {

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

std::string make_data(int rows, int regressors) {
  std::string commands = "SET RANFIX\nSAMPLE 1 " + std::to_string(rows) + "\n?GENR Y=NOR(1)\n";
  for (int j = 1; j <= regressors; ++j) commands += "?GENR X" + std::to_string(j) + "=NOR(1)\n";
  return commands;
}

void measure(benchmark::State& state, const std::string& data, const std::string& command,
             int times) {
  const std::string few = data + command;
  const std::string many = few + repeated(command, times);
  for (auto _ : state) {
    const double base = session_seconds(few);
    state.SetIterationTime((session_seconds(many) - base) / times);
  }
}

void ols_million(benchmark::State& state) {
  measure(state, make_data(1000000, 10), "OLS Y X1-X10 / ANOVA\n", 10);
}
void ols_million_residuals(benchmark::State& state) {
  measure(state, make_data(1000000, 10), "OLS Y X1-X10 / ANOVA RSTAT RESID=E\n", 10);
}
void ols_small_silent(benchmark::State& state) {
  measure(state, make_data(100, 5), "?OLS Y X1 X2 X3 X4 X5\n", 20000);
}
void ols_small_printed(benchmark::State& state) {
  measure(state, make_data(100, 5), "OLS Y X1 X2 X3 X4 X5\n", 20000);
}

BENCHMARK(ols_million)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(ols_million_residuals)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(ols_small_silent)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(10);
BENCHMARK(ols_small_printed)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(10);

}  // namespace

// Whole OLS commands through the engine: reading the line, options, sample check, fit, output. The
// time of a command is the difference between runs with many and with few of them, divided by their
// number.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "engine/run.h"

namespace {

double seconds(const std::string& commands) {
  korvel::RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.output = "/dev/null";
  settings.par = 120000;
  const auto start = std::chrono::steady_clock::now();
  korvel::run_korvel(settings);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

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
    const double base = seconds(few);
    state.SetIterationTime((seconds(many) - base) / times);
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

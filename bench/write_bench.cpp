// Whole WRITE runs of 1,000,000 x 10 values to a file in memory, less the run that only makes the
// data; the fields alone; and the bound, the same bytes handed to write() in pieces.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "data/format_edit.h"
#include "engine/run.h"

namespace {

constexpr const char* FILE_NAME = "/dev/shm/korvel_write_bench.dat";

double seconds(const std::string& commands) {
  korvel::RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.output = "/dev/null";
  settings.par = 120000;
  unlink(FILE_NAME);
  const auto start = std::chrono::steady_clock::now();
  if (korvel::run_korvel(settings) != 0) return -1;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void write_million(benchmark::State& state, const char* options) {
  std::string data = "SET RANFIX\nSAMPLE 1 1000000\n";
  for (int j = 1; j <= 10; ++j) data += "?GENR X" + std::to_string(j) + "=NOR(100)\n";
  const std::string write = data + "WRITE(" + std::string(FILE_NAME) + ") X1-X10 " + options + "\n";
  for (auto _ : state) state.SetIterationTime(seconds(write) - seconds(data));
  unlink(FILE_NAME);
}

// Fields of one thread; the argument says which.
void fields(benchmark::State& state) {
  std::mt19937_64 random(1);
  std::normal_distribution<double> normal(0, 100);
  std::vector<double> x(100000);
  for (double& v : x) v = normal(random);
  std::array<char, korvel::SHORTEST_ROOM> field;
  for (auto _ : state) {
    for (const double v : x) {
      if (state.range(0) == 0) korvel::edit_table_value(field.data(), v);
      if (state.range(0) == 1) korvel::edit_shortest(field.data(), v);
      if (state.range(0) == 2) korvel::edit_exponent(field.data(), 25, 17, v, 'E');
      benchmark::DoNotOptimize(field);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(x.size()));
}

void bytes_alone(benchmark::State& state) {
  const std::vector<char> piece(1 << 17, 'x');
  constexpr int PIECES = 1170;  // 153 MB, as the default form gives
  for (auto _ : state) {
    unlink(FILE_NAME);
    const int fd = open(FILE_NAME, O_WRONLY | O_CREAT, 0600);
    for (int i = 0; i < PIECES; ++i) {
      if (write(fd, piece.data(), piece.size()) < 0) state.SkipWithError("write failed");
    }
    close(fd);
  }
  unlink(FILE_NAME);
}

BENCHMARK_CAPTURE(write_million, default_form, "")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(write_million, comma, "/ FORMAT=COMMA")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(write_million, dump, "/ FORMAT=DUMP")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(bytes_alone)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(fields)->Arg(0)->Arg(1)->Arg(2);

}  // namespace

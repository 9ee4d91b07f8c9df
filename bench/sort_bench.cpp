// SORT of 2,000,000 rows by one key with two columns carried, beside the memory traffic that it
// can't avoid (three columns read and written once), and keys that are hard for a sort by digits.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "data/sort.h"

namespace {

constexpr std::size_t N = 2000000;

enum Keys : std::int64_t { normal, integers, two_decimals, outlier, sorted };

std::vector<double> make_keys(std::int64_t kind) {
  std::mt19937_64 bits(1);
  std::normal_distribution<double> draw;
  std::vector<double> x(N);
  for (std::size_t i = 0; i < N; ++i) {
    switch (kind) {
      case normal:
        x[i] = draw(bits);
        break;
      case integers:
        x[i] = static_cast<double>(bits() % N);
        break;
      case two_decimals:
        x[i] = std::round(draw(bits) * 100) / 100;
        break;
      case outlier:  // a missing code, and values that differ in their last digits only
        x[i] = i == 77 ? -99999.0 : 1.0 + static_cast<double>(bits() % N) * 0x1p-52;
        break;
      default:
        x[i] = static_cast<double>(i);
    }
  }
  return x;
}

void sort_rows(benchmark::State& state, std::size_t work_words) {
  const std::vector<double> key = make_keys(state.range(0));
  std::vector<double> work(work_words), k(N), a(N), b(N);
  double* const columns[] = {k.data(), a.data(), b.data()};
  for (auto _ : state) {
    state.PauseTiming();
    k = key;
    state.ResumeTiming();
    benchmark::DoNotOptimize(korvel::SORTSH(k, columns, {.first = 0, .last = N}, false, work));
  }
}
void sort(benchmark::State& state) { sort_rows(state, korvel::SORTSH_words(N)); }
void sort_with_little_room(benchmark::State& state) { sort_rows(state, N); }
BENCHMARK(sort)->DenseRange(normal, sorted)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(sort_with_little_room)->Arg(normal)->Unit(benchmark::kMillisecond)->UseRealTime();

void sort_traffic(benchmark::State& state) {
  std::vector<double> from(3 * N, 1.0), to(3 * N);
  for (auto _ : state) {
    for (std::size_t i = 0; i < 3 * N; ++i) to[i] = from[i];
    benchmark::ClobberMemory();
  }
}
BENCHMARK(sort_traffic)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

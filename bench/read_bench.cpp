// READ of 1,000,000 rows of 10 numbers (about 90 MB of text) as free text, as comma-separated cells
// and out of the command stream, and of one series; the scan of the same data for missing codes.
// Runs are whole: workspace, reading, storing, notes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/list_numbers.h"
#include "data/sample.h"
#include "engine/run.h"
#include "platform/parallel.h"

namespace {

constexpr int ROWS = 1000000, COLUMNS = 10;

// The same numbers at every run: a linear congruence, scaled to -120 .. 120 with five decimals.
std::string numbers(char separator, int columns) {
  std::string text;
  text.reserve(static_cast<std::size_t>(ROWS) * COLUMNS * 10);
  std::uint64_t state = 42;
  std::array<char, 32> field{};
  for (std::int64_t i = 0; i < std::int64_t{ROWS} * COLUMNS; ++i) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    const double v = static_cast<double>(state >> 40) / (1 << 24) * 240.0 - 120.0;
    const auto end =
        std::to_chars(field.data(), field.data() + field.size(), v, std::chars_format::fixed, 5);
    text.append(field.data(), end.ptr);
    text += (i + 1) % columns == 0 ? '\n' : separator;
  }
  return text;
}

// A file that lives as long as the program.
class DataFile {
 public:
  DataFile(const std::string& text, const char* tail)
      : name_("/tmp/korvel_read_bench_" + std::to_string(getpid()) + tail) {
    std::ofstream(name_, std::ios::binary) << text;
    size_ = text.size();
  }
  DataFile(const DataFile&) = delete;
  DataFile& operator=(const DataFile&) = delete;
  ~DataFile() {
    std::remove(name_.c_str());
    std::remove((name_ + ".gz").c_str());
  }
  const std::string& name() const { return name_; }
  std::size_t size() const { return size_; }

 private:
  std::string name_;
  std::size_t size_ = 0;
};

korvel::RunSettings settings() {
  korvel::RunSettings s;
  s.quiet = true;
  s.mirror_errors = false;
  s.output = "/dev/null";
  s.par = 200000;
  return s;
}

void run(benchmark::State& state, const DataFile& file, const std::string& options) {
  for (auto _ : state) {
    korvel::RunSettings s = settings();
    s.commands = "READ(" + file.name() + ") " + options + "\n";
    s.have_commands = true;
    if (korvel::run_korvel(s) != 0) state.SkipWithError("READ failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file.size()));
}

const char* const LIST = "A B C D E F G H I J / EOF";

void free_text(benchmark::State& state) {
  static const DataFile file(numbers(' ', COLUMNS), ".txt");
  run(state, file, LIST);
}
void comma_separated(benchmark::State& state) {
  static const DataFile file("A,B,C,D,E,F,G,H,I,J\n" + numbers(',', COLUMNS), ".csv");
  run(state, file, "/ NAMES EOF");
}
// The same unpacked first. No figure where gzip is not installed.
void compressed(benchmark::State& state) {
  static const DataFile file("A,B,C,D,E,F,G,H,I,J\n" + numbers(',', COLUMNS), "_packed.csv");
  static const bool packed = std::system(("gzip -1f " + file.name()).c_str()) == 0;
  if (!packed) return state.SkipWithError("gzip failed");
  for (auto _ : state) {
    korvel::RunSettings s = settings();
    s.commands = "READ(" + file.name() + ".gz) / NAMES EOF\n";
    s.have_commands = true;
    if (korvel::run_korvel(s) != 0) state.SkipWithError("READ failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file.size()));
}
void one_series(benchmark::State& state) {
  static const DataFile file(numbers(' ', 1), "_series.txt");
  run(state, file, "X / EOF");
}
void command_stream(benchmark::State& state) {
  static const DataFile file("READ A B C D E F G H I J\n" + numbers(' ', COLUMNS), ".kor");
  for (auto _ : state) {
    korvel::RunSettings s = settings();
    s.input = file.name();
    if (korvel::run_korvel(s) != 0) state.SkipWithError("READ failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file.size()));
}

// The bound: the numbers of the same text converted on all threads, and nothing done with them.
void numbers_only(benchmark::State& state) {
  static const std::string text = numbers(' ', COLUMNS);
  constexpr std::size_t SECTIONS = 64;
  std::array<double, SECTIONS> sums{};
  for (auto _ : state) {
    korvel::parallel_sections(static_cast<int>(SECTIONS), [&](int section) {
      const auto s = static_cast<std::size_t>(section);
      const auto from = text.find('\n', text.size() * s / SECTIONS);
      const auto to = text.find('\n', text.size() * (s + 1) / SECTIONS);
      const char* p = text.data() + (s == 0 ? 0 : from);
      const char* const end = text.data() + std::min(to, text.size());
      double sum = 0.0;
      while (p < end) {
        double v = 0.0;
        if (*p == ' ' || *p == '\n' || !korvel::scan_number(p, end, v)) ++p;
        sum += v;
      }
      sums[s] = sum;
    });
    benchmark::DoNotOptimize(sums);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void missing_scan(benchmark::State& state) {
  const std::vector<double> x(static_cast<std::size_t>(ROWS) * COLUMNS, 1.5);
  for (auto _ : state) benchmark::DoNotOptimize(korvel::count_equal(x, -99999.0));
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(x.size() * sizeof(double)));
}

BENCHMARK(free_text)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(comma_separated)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(compressed)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(one_series)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(command_stream)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(numbers_only)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(missing_scan)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

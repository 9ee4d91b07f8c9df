// Start to exit of an empty script, beside a program that does nothing. (bench/run prints the size
// of the program: a child's own figures begin with those of the benchmark.)
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

// Runs a program with standard output on /dev/null.
bool run(const std::string& program, std::vector<std::string> args) {
  std::vector<char*> argv;
  args.insert(args.begin(), program);
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  if (posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
    return false;
  }
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0;
}

void measure(benchmark::State& state, const std::string& program,
             const std::vector<std::string>& args) {
  for (auto _ : state) {
    if (!run(program, args)) state.SkipWithError("the program failed");
  }
}

void nothing(benchmark::State& state) { measure(state, "/bin/true", {}); }
void empty_script(benchmark::State& state) { measure(state, KORVEL_PROGRAM, {"/dev/null"}); }
void empty_script_big(benchmark::State& state) {
  measure(state, KORVEL_PROGRAM, {"/dev/null", "PAR=4000000"});
}

BENCHMARK(nothing)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(empty_script)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(empty_script_big)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

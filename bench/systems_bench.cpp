// Speed of equation systems: whole commands on 100,000 rows. The run with the command less the run
// without it.
#include <benchmark/benchmark.h>

#include <string>

#include "session.h"

namespace {

void command(benchmark::State& state, const std::string& lines) {
  const std::string data =
      "SET RANFIX\nSAMPLE 1 100000\nDO #=1,8\nGENR Z#=NOR(1)\nENDO\nGENR U=NOR(1)\n"
      "GENR Y3=Z1+Z2-Z5/2+U+NOR(1)\nGENR Y2=Y3/2+Z3+Z4/3-U+NOR(1)\nGENR Y1=Y2/2-Y3/3+Z6+U+NOR(1)\n";
  for (auto _ : state) run_session(data + lines, 40000);
}
const char* const EQUATIONS = "OLS Y1 Y2 Y3 Z6\nOLS Y2 Y3 Z3 Z4\nOLS Y3 Z1 Z2 Z5\n";

BENCHMARK_CAPTURE(command, no_command, "")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, sur_3, std::string("SYSTEM 3\n") + EQUATIONS)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, three_stage_3, std::string("SYSTEM 3 Z1-Z8\n") + EQUATIONS)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, three_stage_3_iterated,
                  std::string("SYSTEM 3 Z1-Z8 / ITER=50 CONV=1E-8\n") + EQUATIONS)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, three_stage_3_residuals,
                  std::string("SYSTEM 3 Z1-Z8 / RSTAT RESID=E\n") + EQUATIONS)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, two_stage, "2SLS Y1 Y2 Y3 Z6 (Z1-Z8)\n")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

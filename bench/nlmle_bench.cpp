// Speed of MLE: whole commands on 200,000 x 5, the run with the command less the run without it.
#include <benchmark/benchmark.h>

#include <string>

#include "session.h"

namespace {

void command(benchmark::State& state, const std::string& line) {
  const std::string data =
      "SET RANFIX\nSAMPLE 1 200000\nDO #=1,5\nGENR X#=NOR(1)\nENDO\n"
      "GENR S=0.3+X1/3+X2/4-X3/5+X4/9-X5/6\nGENR E=UNI(1)\nGENR T=EXP(S)*(-LOG(E))**0.7\n"
      "GENR C=(E.GT.0.3)+(E.GT.0.55)*(S.GT.0)+2*(E.GT.0.8)+3*(E.GT.0.95)*(S.GT.0.3)\n";
  for (auto _ : state) run_session(data + line, 60000);
}
BENCHMARK_CAPTURE(command, no_command, "")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, poisson, "MLE C X1-X5 / TYPE=POISSON\n")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(command, weibull, "MLE T X1-X5 / TYPE=WEIBULL\n")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
